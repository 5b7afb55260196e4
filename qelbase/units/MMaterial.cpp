#include "qelbase/units/MMaterial.h"

#include <array>
#include <bit>
#include <cstdint>

#include "qelbase/units/truncate_internal.h"

namespace {

using Parts = float[4];  // red, green, blue, alpha

void Set(Parts& parts, float r, float g, float b, float a) {
  parts[0] = r;
  parts[1] = g;
  parts[2] = b;
  parts[3] = a;
}

void Set(Parts& parts, unsigned long word) {
  for (float& part : parts) {
    part = qel::units::FromByte(word);
    word >>= 8;
  }
}

void Get(const Parts& parts, float& r, float& g, float& b, float& a) {
  r = parts[0];
  g = parts[1];
  b = parts[2];
  a = parts[3];
}

unsigned long Word(const Parts& parts) {
  std::uint32_t word = 0;
  for (int i = 0; i < 4; ++i) {
    word |= qel::units::Truncate<std::uint32_t>(static_cast<double>(parts[i] * 255.0f)) << 8 * i;
  }
  return word;
}

QelSDK::Common::Color ToColor(const Parts& parts) {
  return {parts[0], parts[1], parts[2], parts[3]};
}

}  // namespace

void MMaterial::SetDefaults() {
  *this = MMaterial();
}

void MMaterial::SetAmbient(float r, float g, float b, float a) {
  Set(m_ambient, r, g, b, a);
}
void MMaterial::SetAmbient(unsigned long word) {
  Set(m_ambient, word);
}
void MMaterial::GetAmbient(float& r, float& g, float& b, float& a) const {
  Get(m_ambient, r, g, b, a);
}
unsigned long MMaterial::GetAmbient() const {
  return Word(m_ambient);
}
QelSDK::Common::Color MMaterial::GetAmbientColor() const {
  return ToColor(m_ambient);
}

void MMaterial::SetDiffuse(float r, float g, float b, float a) {
  Set(m_diffuse, r, g, b, a);
}
void MMaterial::SetDiffuse(unsigned long word) {
  Set(m_diffuse, word);
}
void MMaterial::GetDiffuse(float& r, float& g, float& b, float& a) const {
  Get(m_diffuse, r, g, b, a);
}
unsigned long MMaterial::GetDiffuse() const {
  return Word(m_diffuse);
}
QelSDK::Common::Color MMaterial::GetDiffuseColor() const {
  return ToColor(m_diffuse);
}

void MMaterial::SetSpecular(float r, float g, float b, float a, float shininess) {
  Set(m_specular, r, g, b, a);
  m_shininess = shininess;
}
void MMaterial::SetSpecular(unsigned long word, float shininess) {
  Set(m_specular, word);
  m_shininess = shininess;
}
void MMaterial::GetSpecular(float& r, float& g, float& b, float& a) const {
  Get(m_specular, r, g, b, a);
}
void MMaterial::GetSpecular(float& r, float& g, float& b, float& a, float& shininess) const {
  Get(m_specular, r, g, b, a);
  shininess = m_shininess;
}
unsigned long MMaterial::GetSpecular() const {
  return Word(m_specular);
}
QelSDK::Common::Color MMaterial::GetSpecularColor() const {
  return ToColor(m_specular);
}

void MMaterial::SetEmissive(float r, float g, float b, float a) {
  Set(m_emissive, r, g, b, a);
}
void MMaterial::SetEmissive(unsigned long word) {
  Set(m_emissive, word);
}
void MMaterial::GetEmissive(float& r, float& g, float& b, float& a) const {
  Get(m_emissive, r, g, b, a);
}
unsigned long MMaterial::GetEmissive() const {
  return Word(m_emissive);
}
QelSDK::Common::Color MMaterial::GetEmissiveColor() const {
  return ToColor(m_emissive);
}

bool MMaterial::operator==(const MMaterial& other) const {
  using Bits = std::array<std::uint32_t, 17>;
  return std::bit_cast<Bits>(*this) == std::bit_cast<Bits>(other);
}
