#include "qelbase/outside/components/Color.h"

namespace QelSDK::Common {

namespace {

std::uint8_t ToByte(float part) {
  const float scaled = part * 255.0f + 0.5f;
  if (!(scaled > 0.0f)) return 0;
  return scaled < 255.0f ? static_cast<std::uint8_t>(scaled) : std::uint8_t{255};
}

}  // namespace

Color::Color(float red, float green, float blue) : Color(red, green, blue, 1.0f) {}

Color::Color(float red, float green, float blue, float alpha)
    : m_red(red), m_green(green), m_blue(blue), m_alpha(alpha) {}

std::uint8_t Color::GetRedByte() const {
  return ToByte(m_red);
}
std::uint8_t Color::GetGreenByte() const {
  return ToByte(m_green);
}
std::uint8_t Color::GetBlueByte() const {
  return ToByte(m_blue);
}

}  // namespace QelSDK::Common
