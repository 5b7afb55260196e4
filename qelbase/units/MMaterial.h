#pragma once
// Surface colours of the classic lighting model.

#include "qelbase/export.h"
#include "qelbase/outside/components/Color.h"

// Ambient, diffuse, specular and emissive colour, and a shininess: a value of 17 floats. Colour
// parts run from 0 to 1; nothing is tested or clamped.
//
// The colour word of this class has four bytes, from the lowest: red, green, blue, alpha. A getter
// multiplies by 255, truncates, and puts the parts together without masking, so that a part above 1
// (or below 0) runs over into the next bytes; bits above 32 are dropped, infinity and not-a-number
// count as 0. Since nothing is rounded, a word that was set may come back smaller by one in a part.
class QELBASE_API MMaterial {
 public:
  MMaterial() = default;
  void SetDefaults();

  void SetAmbient(float r, float g, float b, float a);
  void SetAmbient(unsigned long word);
  void GetAmbient(float& r, float& g, float& b, float& a) const;
  unsigned long GetAmbient() const;
  QelSDK::Common::Color GetAmbientColor() const;

  void SetDiffuse(float r, float g, float b, float a);
  void SetDiffuse(unsigned long word);
  void GetDiffuse(float& r, float& g, float& b, float& a) const;
  unsigned long GetDiffuse() const;
  QelSDK::Common::Color GetDiffuseColor() const;

  void SetSpecular(float r, float g, float b, float a, float shininess);
  void SetSpecular(unsigned long word, float shininess);
  void GetSpecular(float& r, float& g, float& b, float& a) const;
  void GetSpecular(float& r, float& g, float& b, float& a, float& shininess) const;
  unsigned long GetSpecular() const;
  QelSDK::Common::Color GetSpecularColor() const;

  void SetEmissive(float r, float g, float b, float a);
  void SetEmissive(unsigned long word);
  void GetEmissive(float& r, float& g, float& b, float& a) const;
  unsigned long GetEmissive() const;
  QelSDK::Common::Color GetEmissiveColor() const;

  void SetShininess(float shininess) { m_shininess = shininess; }
  float GetShininess() const { return m_shininess; }

  // By the bits: 0.0 and -0.0 differ, and not-a-number equals itself.
  bool operator==(const MMaterial& other) const;
  bool operator!=(const MMaterial& other) const { return !(*this == other); }

 private:
  float m_ambient[4] = {0.5f, 0.5f, 0.5f, 1.0f};
  float m_diffuse[4] = {0.75f, 0.75f, 0.75f, 1.0f};
  float m_specular[4] = {0.5f, 0.5f, 0.5f, 1.0f};
  float m_shininess = 20.0f;
  float m_emissive[4] = {0.0f, 0.0f, 0.0f, 1.0f};
};
