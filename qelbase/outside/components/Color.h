#pragma once
// A colour of four floats.

#include <cstdint>

#include "qelbase/export.h"

namespace QelSDK::Common {

// Parts from 0 to 1; neither tested nor clamped. Alpha 1 is opaque.
struct QELBASE_API Color {
  float m_red;
  float m_green;
  float m_blue;
  float m_alpha;

  Color(float red, float green, float blue);  // opaque
  Color(float red, float green, float blue, float alpha);
  ~Color() = default;

  // 0 to 255, rounded to the nearest; what lies outside becomes the nearest limit, not-a-number 0.
  std::uint8_t GetRedByte() const;
  std::uint8_t GetGreenByte() const;
  std::uint8_t GetBlueByte() const;
};

}  // namespace QelSDK::Common
