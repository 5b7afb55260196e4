#include "qelbase/units/MColorHLSRGB.h"

#include <algorithm>
#include <cfloat>
#include <cstdint>

#include "qelbase/units/truncate_internal.h"

using qel::units::FromByte;

// The same bits everywhere: no wider intermediates here, no fused or reordered steps.
static_assert(FLT_EVAL_METHOD == 0, "build with SSE arithmetic");
#ifdef __FAST_MATH__
#error "build without -ffast-math"
#endif

namespace {

float FromLong(long value, float scale) {
  return static_cast<float>(static_cast<std::int32_t>(value)) / scale;
}

long Rounded(float part) {
  return qel::units::Truncate<std::int32_t>(static_cast<double>(part * 255.0f) + 0.5);
}

unsigned long TruncatedByte(float part) {
  return qel::units::Truncate<std::uint8_t>(static_cast<double>(part * 255.0f));
}

}  // namespace

MColorHLSRGB::MColorHLSRGB(const QelSDK::Common::Color& color) {
  SetRGB(long{color.GetRedByte()}, long{color.GetGreenByte()}, long{color.GetBlueByte()});
}

void MColorHLSRGB::SetRGB(float red, float green, float blue) {
  m_r = red;
  m_g = green;
  m_b = blue;
  _RGBtoHLS();
}

void MColorHLSRGB::SetRGB(long red, long green, long blue) {
  SetRGB(FromLong(red, 255.0f), FromLong(green, 255.0f), FromLong(blue, 255.0f));
}

void MColorHLSRGB::GetRGB(float& red, float& green, float& blue) const {
  red = m_r;
  green = m_g;
  blue = m_b;
}

void MColorHLSRGB::GetRGB(long& red, long& green, long& blue) const {
  red = Rounded(m_r);
  green = Rounded(m_g);
  blue = Rounded(m_b);
}

void MColorHLSRGB::SetHLS(float hue, float lightness, float saturation) {
  m_h = hue;
  m_l = lightness;
  m_s = saturation;
  _HLStoRGB();
}

void MColorHLSRGB::SetHLS(long hue, long lightness, long saturation) {
  SetHLS(FromLong(hue, 255.0f), FromLong(lightness, 255.0f), FromLong(saturation, 255.0f));
}

void MColorHLSRGB::SetHLS(long degrees, float lightness, float saturation) {
  SetHLS(FromLong(degrees, 360.0f), lightness, saturation);
}

void MColorHLSRGB::GetHLS(float& hue, float& lightness, float& saturation) const {
  hue = m_h;
  lightness = m_l;
  saturation = m_s;
}

void MColorHLSRGB::GetHLS(long& hue, long& lightness, long& saturation) const {
  hue = Rounded(m_h);
  lightness = Rounded(m_l);
  saturation = Rounded(m_s);
}

void MColorHLSRGB::SetCOLORREF(unsigned long word) {
  SetRGB(FromByte(word), FromByte(word >> 8), FromByte(word >> 16));
}

MColorHLSRGB::operator unsigned long() const {
  return TruncatedByte(m_r) | TruncatedByte(m_g) << 8 | TruncatedByte(m_b) << 16;
}

long MColorHLSRGB::GetRedByte() const {
  return Rounded(m_r);
}
long MColorHLSRGB::GetGreenByte() const {
  return Rounded(m_g);
}
long MColorHLSRGB::GetBlueByte() const {
  return Rounded(m_b);
}

QelSDK::Common::Color MColorHLSRGB::GetMColor() const {
  return {m_r, m_g, m_b};
}

void MColorHLSRGB::_RGBtoHLS() {
  const float max = std::max({m_r, m_g, m_b});
  const float min = std::min({m_r, m_g, m_b});
  m_l = (max + min) * 0.5f;
  if (max == min) {
    m_h = m_s = 0.0f;
    return;
  }
  const float d = max - min;
  m_s = m_l <= 0.5f ? d / (max + min) : d / (2.0f - (max + min));
  const float rc = (max - m_r) / d;
  const float gc = (max - m_g) / d;
  const float bc = (max - m_b) / d;
  if (m_r == max) {
    m_h = bc - gc;
  } else if (m_g == max) {
    m_h = rc + 2.0f - bc;
  } else {
    m_h = gc + 4.0f - rc;
  }
  m_h *= 60.0f;
  if (m_h < 0.0f) m_h += 360.0f;
  m_h /= 360.0f;
}

void MColorHLSRGB::_HLStoRGB() {
  const float m2 = m_l <= 0.5f ? (m_s + 1.0f) * m_l : m_s + m_l - m_s * m_l;
  if (m_s == 0.0f) {
    m_r = m_g = m_b = m_l;
    return;
  }
  const float m1 = m_l * 2.0f - m2;
  const float hue = m_h * 360.0f;
  m_r = _RGBValue(m1, m2, hue + 120.0f);
  m_g = _RGBValue(m1, m2, hue);
  m_b = _RGBValue(m1, m2, hue - 120.0f);
}

float MColorHLSRGB::_RGBValue(float m1, float m2, float hue) {
  if (hue < 0.0f) hue += 360.0f;
  if (hue > 360.0f) hue -= 360.0f;
  if (hue < 60.0f) return (m2 - m1) * hue / 60.0f + m1;
  if (hue < 180.0f) return m2;
  if (hue < 240.0f) return (m2 - m1) * (240.0f - hue) / 60.0f + m1;
  return m1;
}
