#pragma once
// One colour in two models.

#include "qelbase/export.h"
#include "qelbase/outside/components/Color.h"

// A colour as red, green, blue and as hue, lightness, saturation (A. R. Smith's hexcone with
// lightness, as in Foley and van Dam); each setter keeps both in step. All parts are floats from 0
// to 1, hue 1 being a full turn; greys have hue and saturation 0. Every step is computed in float.
//
// Nothing is tested or clamped: parts out of range give what the formulas give. A long has 32 bits
// here; a part that becomes a whole number keeps the low bits of what does not fit, and infinity
// and not-a-number become 0. A colour word has red in its lowest byte, then green, then blue; the
// top byte is 0 when written and not looked at when read.
class QELBASE_API MColorHLSRGB {
 public:
  MColorHLSRGB() = default;  // red, green, blue are -1: no colour is set
  explicit MColorHLSRGB(const QelSDK::Common::Color& color);  // by its three bytes

  void SetRGB(float red, float green, float blue);
  void SetRGB(long red, long green, long blue);  // 0 to 255
  void GetRGB(float& red, float& green, float& blue) const;
  void GetRGB(long& red, long& green, long& blue) const;  // 0 to 255, rounded to the nearest

  void SetHLS(float hue, float lightness, float saturation);
  void SetHLS(long hue, long lightness, long saturation);        // 0 to 255, hue too
  void SetHLS(long degrees, float lightness, float saturation);  // 0 to 360 degrees
  void GetHLS(float& hue, float& lightness, float& saturation) const;
  void GetHLS(long& hue, long& lightness, long& saturation) const;  // 0 to 255, rounded

  void SetCOLORREF(unsigned long word);
  operator unsigned long() const;  // the colour word, each part truncated, not rounded

  long GetRedByte() const;  // 0 to 255, rounded to the nearest; -254 when no colour is set
  long GetGreenByte() const;
  long GetBlueByte() const;

  QelSDK::Common::Color GetMColor() const;  // opaque

 private:
  void _HLStoRGB();
  void _RGBtoHLS();
  static float _RGBValue(float m1, float m2, float hue);  // hue in degrees

  float m_r = -1.0f;
  float m_g = -1.0f;
  float m_b = -1.0f;
  float m_h = 0.0f;
  float m_s = 0.0f;
  float m_l = 0.0f;
};
