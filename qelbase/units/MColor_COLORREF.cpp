#include "qelbase/units/MColor_COLORREF.h"

#include <cstdint>

#include "qelbase/units/truncate_internal.h"

using qel::units::FromByte;

namespace MColor_COLORREF {

namespace {

unsigned long ToByte(float part) {
  return qel::units::Truncate<std::uint8_t>(static_cast<double>(part * 255.0f + 0.5f));
}

}  // namespace

void SetCOLORREF(QelSDK::Common::Color& color, unsigned long word, bool set_alpha) {
  color.m_red = FromByte(word);
  color.m_green = FromByte(word >> 8);
  color.m_blue = FromByte(word >> 16);
  if (set_alpha) color.m_alpha = 1.0f;
}

unsigned long GetCOLORREF(const QelSDK::Common::Color& color) {
  return ToByte(color.m_red) | ToByte(color.m_green) << 8 | ToByte(color.m_blue) << 16;
}

}  // namespace MColor_COLORREF
