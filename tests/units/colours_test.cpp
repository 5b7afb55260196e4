#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "qelbase/units/MColorHLSRGB.h"
#include "qelbase/units/MColor_COLORREF.h"
#include "qelbase/units/MGradientColoring.h"
#include "qelbase/units/MMaterial.h"

namespace {

using QelSDK::Common::Color;

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

struct Three {
  float a, b, c;
  bool operator==(const Three&) const = default;
};

struct Bits {
  std::uint32_t a, b, c;
  bool operator==(const Bits&) const = default;
};

Bits bits(Three t) {
  return {std::bit_cast<std::uint32_t>(t.a), std::bit_cast<std::uint32_t>(t.b),
          std::bit_cast<std::uint32_t>(t.c)};
}

Three floats(Bits b) {
  return {std::bit_cast<float>(b.a), std::bit_cast<float>(b.b), std::bit_cast<float>(b.c)};
}

Three rgb(const MColorHLSRGB& color) {
  Three t;
  color.GetRGB(t.a, t.b, t.c);
  return t;
}

Three hls(const MColorHLSRGB& color) {
  Three t;
  color.GetHLS(t.a, t.b, t.c);
  return t;
}

Three hlsOf(Three rgb) {
  MColorHLSRGB color;
  color.SetRGB(rgb.a, rgb.b, rgb.c);
  return hls(color);
}

Three rgbOf(Three hls) {
  MColorHLSRGB color;
  color.SetHLS(hls.a, hls.b, hls.c);
  return rgb(color);
}

std::uint64_t digest(std::uint64_t sum, Three t) {  // FNV-1a over the bytes, lowest first
  for (const float part : {t.a, t.b, t.c}) {
    for (int shift = 0; shift < 32; shift += 8) {
      sum = (sum ^ (std::bit_cast<std::uint32_t>(part) >> shift & 0xFF)) * 0x100000001b3;
    }
  }
  return sum;
}

// The bits were worked out apart, in rational arithmetic rounded to a float after each step. The
// rows were chosen so that a fused multiply-add, or any wider intermediate, gives other bits.
TEST(MColorHLSRGB, GivesTheSameBitsEverywhere) {
  const struct {
    Bits hls, rgb;
  } to_rgb[] = {
      {{0x3F7A7F0F, 0x3F5D02DF, 0x3F3239F4}, {0x3F755ECD, 0x3F44A6F1, 0x3F4AEFB7}},
      {{0x3EA8C9DA, 0x3E646509, 0x3F4FBF33}, {0x3D4CD59D, 0x3ECEDEA9, 0x3D2C3300}},
      {{0x3F7C241D, 0x3F5A45E2, 0x3F4E5B2B}, {0x3F78AF15, 0x3F3BDCAF, 0x3F415CEE}},
      {{0x3E496D57, 0x3E514740, 0x3F1FC2D1}, {0x3E9266C0, 0x3EA9F0E1, 0x3D9D597C}},
      {{0x3EADA54D, 0x3F0D959C, 0x3F6D3A33}, {0x3E0E3C68, 0x3F779C1E, 0x3E2BD8E4}},
      {{0x3F645656, 0x3F2098D7, 0x3F3BDDBC}, {0x3F669BD5, 0x3EB52BB2, 0x3F355E72}},
  };
  for (const auto& row : to_rgb) EXPECT_EQ(bits(rgbOf(floats(row.hls))), row.rgb);
  const struct {
    Bits rgb, hls;
  } to_hls[] = {
      {{0x3F3B7B74, 0x3EE6D72D, 0x3F40AEDA}, {0x3F52761A, 0x3F1A0D38, 0x3EC20337}},
      {{0x3EAF14C2, 0x3DBA8FAB, 0x3E74DD99}, {0x3F66D291, 0x3E5DB8AD, 0x3F144C4A}},
      {{0x3CB2ABF5, 0x3D0411C1, 0x3F35A290}, {0x3F2A04F7, 0x3EBB37F0, 0x3F70BAFC}},
      {{0x3EEA2682, 0x3F0D2F2A, 0x3D21FB42}, {0x3E4A0FB7, 0x3E974EDE, 0x3F5DBE22}},
  };
  for (const auto& row : to_hls) EXPECT_EQ(bits(hlsOf(floats(row.rgb))), row.hls);

  std::uint64_t to_rgb_sum = 0xcbf29ce484222325, to_hls_sum = to_rgb_sum;
  for (int i = 0; i < 21 * 21 * 21; ++i) {
    const Three point = {static_cast<float>(i / 441) / 20.0f,
                         static_cast<float>(i / 21 % 21) / 20.0f,
                         static_cast<float>(i % 21) / 20.0f};
    to_hls_sum = digest(to_hls_sum, hlsOf(point));
    to_rgb_sum = digest(to_rgb_sum, rgbOf(point));
  }
  EXPECT_EQ(to_hls_sum, 0x3DD2E3B794F67AABu);
  EXPECT_EQ(to_rgb_sum, 0x90253B4DB56A26C9u);
}

TEST(MColorHLSRGB, TakesEachScale) {
  MColorHLSRGB color;
  EXPECT_EQ(rgb(color), (Three{-1, -1, -1}));
  EXPECT_EQ(color.GetRedByte(), -254);
  color.SetRGB(128L, 128L, 128L);
  EXPECT_EQ(hls(color), (Three{0, 128.0f / 255, 0}));
  color.SetHLS(120L, 0.5f, 1.0f);
  EXPECT_EQ(static_cast<unsigned long>(color), 0x00FF00u);
  color.SetHLS(85L, 128L, 255L);
  long hue, lightness, saturation;
  color.GetHLS(hue, lightness, saturation);
  EXPECT_EQ(hue, 85);
  EXPECT_EQ(lightness, 128);
  EXPECT_EQ(saturation, 255);
  EXPECT_EQ(color.GetGreenByte(), 255);
  color.SetCOLORREF(0xAAFF8000);  // the top byte is not looked at
  EXPECT_EQ(rgb(color), (Three{0, 128.0f / 255, 1}));
  EXPECT_EQ(static_cast<unsigned long>(color), 0x00FF8000u);
  const Color plain = color.GetMColor();
  EXPECT_EQ(plain.m_green, 128.0f / 255);
  EXPECT_EQ(plain.m_alpha, 1);
  EXPECT_EQ(rgb(MColorHLSRGB(Color(0, 0.501f, 1, 0))), rgb(color));
}

// Hue, lightness, saturation to red, green, blue and back, on 160 * 160 * 160 colours, beside the
// formula with max and min of the CSS Color Module, in double.
TEST(MColorHLSRGB, StaysNearTheFormulaOnAGrid) {
  constexpr int size = 160;
  double rgb_error = 0, l_error = 0, s_error = 0, h_error = 0;
  for (int i = 0; i < size * size * size; ++i) {
    const Three in = {static_cast<float>(i / (size * size)) / size,
                      static_cast<float>(i / size % size + 1) / (size + 1),
                      static_cast<float>(i % size + 1) / size};
    MColorHLSRGB color;
    color.SetHLS(in.a, in.b, in.c);
    const Three out = rgb(color);
    const double l = in.b, chroma = in.c * std::min(l, 1 - l);
    const auto part = [&](double n) {
      double k = n + in.a * 12.0;
      if (k >= 12) k -= 12;
      return l - chroma * std::max(-1.0, std::min({k - 3, 9 - k, 1.0}));
    };
    rgb_error = std::max({rgb_error, std::fabs(out.a - part(0)), std::fabs(out.b - part(8)),
                          std::fabs(out.c - part(4))});
    color.SetRGB(out.a, out.b, out.c);
    const Three back = hls(color);
    l_error = std::max(l_error, std::fabs(back.b - l));
    s_error = std::max(s_error, std::fabs(back.c - static_cast<double>(in.c)) * std::min(l, 1 - l));
    const double turn = std::fabs(back.a - static_cast<double>(in.a));
    h_error = std::max(h_error, std::min(turn, 1 - turn) * chroma);
  }
  EXPECT_LT(rgb_error, 6e-7);
  EXPECT_LT(l_error, 1.5e-7);
  EXPECT_LT(s_error, 2e-7);  // weighed by what one step of a part means for it
  EXPECT_LT(h_error, 2e-7);
}

TEST(Colours, RoundInThreeWays) {
  const struct {
    float part;
    long nearest, truncated, half_in_float;
  } rows[] = {
      {0.999f, 255, 254, 255},
      {0x1.707070p-1f, 184, 183, 184},  // the product with 255 rounds up to a half
      {0x1.0101p-9f, 0, 0, 1},          // adding the half rounds up
      {1.0f, 255, 255, 255},
      {0.0f, 0, 0, 0},
      {2.0f, 510, 254, 254},
      {-1.0f, -254, 1, 2},
      {0x1p31f, INT32_MIN, 0, 0},  // the low 32 bits of 255 * 2^31
      {infinity, 0, 0, 0},
      {-infinity, 0, 0, 0},
      {nan, 0, 0, 0},
  };
  for (const auto& row : rows) {
    MColorHLSRGB color;
    color.SetRGB(row.part, row.part, row.part);
    long red, green, blue;
    color.GetRGB(red, green, blue);
    EXPECT_EQ(color.GetRedByte(), row.nearest) << row.part;
    EXPECT_EQ(blue, color.GetBlueByte());
    EXPECT_EQ(static_cast<unsigned long>(color), row.truncated * 0x10101ul) << row.part;
    EXPECT_EQ(MColor_COLORREF::GetCOLORREF(Color(row.part, row.part, row.part, 0)),
              row.half_in_float * 0x10101ul)
        << row.part;
  }
}

TEST(Colours, MoveBetweenWordAndColor) {
  Color color(0, 0, 0, 0.25f);
  MColor_COLORREF::SetCOLORREF(color, 0xFF0180FF, false);
  EXPECT_EQ(color.m_red, 1);
  EXPECT_EQ(color.m_green, 128.0f / 255);
  EXPECT_EQ(color.m_blue, 1.0f / 255);
  EXPECT_EQ(color.m_alpha, 0.25f);
  EXPECT_EQ(MColor_COLORREF::GetCOLORREF(color), 0x000180FFu);
  MColor_COLORREF::SetCOLORREF(color, 0, true);
  EXPECT_EQ(color.m_alpha, 1);
  for (unsigned byte = 0; byte < 256; ++byte) {
    MColor_COLORREF::SetCOLORREF(color, byte | (255 - byte) << 8 | byte << 16, false);
    EXPECT_EQ(color.GetRedByte(), byte);
    EXPECT_EQ(color.GetGreenByte(), 255 - byte);
    EXPECT_EQ(color.GetBlueByte(), byte);
  }
  const Color odd(-1, nan, 7);
  EXPECT_EQ(odd.GetRedByte(), 0);
  EXPECT_EQ(odd.GetGreenByte(), 0);
  EXPECT_EQ(odd.GetBlueByte(), 255);
}

TEST(MGradientColoring, GivesTheToldColours) {
  constexpr double inf = std::numeric_limits<double>::infinity();
  const struct {
    std::vector<std::uint32_t> colors;
    double min, max, value;
    std::uint32_t wanted;
  } rows[] = {
      {{0x000000, 0xFFFFFF}, 0, 1, 0.5, 0x7F7F7F},
      {{0x10, 0x20, 0x30}, 0, 10, 0, 0x10},
      {{0x10, 0x20, 0x30}, 0, 10, -1e300, 0x10},
      {{0x10, 0x20, 0x30}, 0, 10, 5, 0x20},
      {{0x10, 0x20, 0x30}, 0, 10, 10, 0x30},
      {{0x10, 0x20, 0x30}, 0, 10, inf, 0x30},
      {{0x10, 0x20, 0x30}, 0, 10, std::nextafter(10.0, 0.0), 0x2F},
      {{0x10, 0x20, 0x30}, 0, 10, std::nan(""), 0x10},
      {{0xFF1234FE, 0xFF123400}, 0, 1, 0.5, 0x12347F},
      {{0xFF1234FE, 0xFF123400}, 0, 1, 0, 0xFF1234FE},
      {{7, 9}, 2, 2, 2, 7},
      {{7, 9}, 2, 2, 2.001, 9},
      {{7, 9}, 3, 1, 2, 7},
      {{7, 9}, 3, 1, 4, 9},
      {{7, 9}, -1e308, 1e308, 0, 7},  // the range is infinite
      {{7, 9}, -inf, inf, 0, 9},
      {{7}, 0, 1, 0.5, 7},
      {{}, 0, 1, 0.5, 0},
      // One step after the other: with a fused multiply-add the last digit differs.
      {{234, 24}, 0, 1, 0.8, 66},
      {{110, 10}, 0, 1, 0.68, 42},
      {{127, 17}, 0, 1, 0.8, 39},
      {{202, 52}, 0, 1, 0.92, 64},
  };
  for (const auto& row : rows) {
    MGradientColoring gradient(row.colors, 5, 6);
    gradient.SetLimits(row.min, row.max);
    EXPECT_EQ(gradient(row.value), row.wanted) << "row " << &row - rows;
  }
}

TEST(MGradientColoring, StaysBetweenItsNeighbours) {
  EXPECT_TRUE(rc::check([](std::vector<std::uint32_t> colors, std::uint16_t at) {
    colors.resize(colors.size() + 2);
    MGradientColoring gradient;
    gradient.GetColors() = colors;
    const double value = at / 65536.0, t = value * static_cast<double>(colors.size() - 1);
    const std::uint32_t a = colors[static_cast<std::size_t>(t)];
    const std::uint32_t b = colors[static_cast<std::size_t>(t) + 1];
    const std::uint32_t got = gradient.GetColor(value);
    for (int shift = 0; value > 0 && shift < 24; shift += 8) {
      const int from = a >> shift & 0xFF, to = b >> shift & 0xFF, part = got >> shift & 0xFF;
      const double wanted = from + (to - from) * (t - std::floor(t));
      RC_ASSERT(std::fabs(part + 0.5 - wanted) <= 0.5 + 1e-9);
    }
  }));
}

TEST(MMaterial, KeepsSeventeenValuesAndComparesTheirBits) {
  MMaterial material, other;
  EXPECT_EQ(material.GetAmbient(), 0xFF7F7F7Fu);
  EXPECT_EQ(material.GetDiffuse(), 0xFFBFBFBFu);
  EXPECT_EQ(material.GetSpecular(), 0xFF7F7F7Fu);
  EXPECT_EQ(material.GetEmissive(), 0xFF000000u);
  EXPECT_EQ(material.GetShininess(), 20);
  EXPECT_EQ(material.GetEmissiveColor().m_alpha, 1);
  float r, g, b, a, shininess;
  const auto changes = std::to_array<void (*)(MMaterial&)>({
      [](MMaterial& m) { m.SetAmbient(0.5f, 0.5f, 0.5f, 0); },
      [](MMaterial& m) { m.SetDiffuse(0x80FF0000); },
      [](MMaterial& m) { m.SetSpecular(0xFF000000, 20); },
      [](MMaterial& m) { m.SetSpecular(0.5f, 0.5f, 0.5f, 1, 5); },
      [](MMaterial& m) { m.SetShininess(nan); },
      [](MMaterial& m) { m.SetEmissive(-0.0f, 0, 0, 1); },
  });
  for (const auto change : changes) {
    MMaterial changed;
    change(changed);
    EXPECT_TRUE(changed != material) << &change - changes.data();
    EXPECT_TRUE(changed == MMaterial(changed));  // not-a-number too
    changed.SetDefaults();
    EXPECT_TRUE(changed == material);
  }
  other.SetDiffuse(0x80FF0000);
  other.GetDiffuse(r, g, b, a);
  EXPECT_EQ((Three{r, g, b}), (Three{0, 0, 1}));
  EXPECT_EQ(a, 128.0f / 255);
  EXPECT_EQ(other.GetDiffuseColor().m_blue, 1);
  other.SetSpecular(0x01020304, 5);
  other.GetSpecular(r, g, b, a, shininess);
  EXPECT_EQ(r, 4.0f / 255);
  EXPECT_EQ(a, 1.0f / 255);
  EXPECT_EQ(shininess, 5);
}

TEST(MMaterial, RunsOverIntoTheNextByte) {
  const struct {
    float r, g, b, a;
    unsigned long word;
  } rows[] = {
      {2, 0, 0, 0, 0x1FE},       {1, 1, 1, 1, 0xFFFFFFFF},      {0, 0, 0, 2, 0xFE000000},
      {-1, 0, 0, 0, 0xFFFFFF01}, {nan, 1, infinity, 0, 0xFF00},
  };
  for (const auto& row : rows) {
    MMaterial material;
    material.SetEmissive(row.r, row.g, row.b, row.a);
    EXPECT_EQ(material.GetEmissive(), row.word);
  }
}

}  // namespace
