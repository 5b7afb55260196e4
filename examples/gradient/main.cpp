// Writes a picture to the standard output: a length scale in the user's unit, coloured by a
// gradient. `gradient mm` or `gradient inch`; millimetres without an argument.

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "qelbase/qelbase.h"

namespace {

constexpr double longest_mm = 80.0;
constexpr int width = 640, bar_height = 48, margin = 24, height = 112;

// The application's texts of the two units.
struct UnitTexts final : IResStringWrapper {
  bool LoadStringEx(std::wstring& text, unsigned id) override {
    switch (id) {
      case 672:
        text = L"mm";
        return true;
      case 673:
        text = L"millimetre";
        return true;
      case 674:
        text = L"in";
        return true;
      case 675:
        text = L"inch";
        return true;
      default:
        return false;
    }
  }
  std::int32_t LoadCharEx(wchar_t* buffer, unsigned, unsigned) override {
    *buffer = 0;
    return 0;
  }
};

// Blue over green to red at even steps of hue, as colour words.
std::vector<std::uint32_t> rainbow() {
  std::vector<std::uint32_t> colors;
  for (long degrees = 240; degrees >= 0; degrees -= 60) {
    MColorHLSRGB color;
    color.SetHLS(degrees, 0.5f, 0.9f);
    colors.push_back(static_cast<std::uint32_t>(static_cast<unsigned long>(color)));
  }
  return colors;
}

void drawBar(const MGradientColoring& gradient) {
  for (int x = 0; x < width; x += 4) {
    const std::uint32_t word = gradient(longest_mm * (x + 2) / width);
    std::printf("<rect x='%d' y='%d' width='4' height='%d' fill='#%02x%02x%02x'/>\n", margin + x,
                margin, bar_height, word & 0xFF, word >> 8 & 0xFF, word >> 16 & 0xFF);
  }
}

void drawMark(double mm) {
  // The length as it would stand in a part: internal units, whatever their scale is.
  MInternalUnitsValue<double, 1> length;
  length.SetInDefaultInternalUnits(MUnit::_ConvertMmToStlUnits(mm));
  wchar_t text[32];
  const double in_part = MUnit::_ConvertStlUnitsToMm(length.GetInDefaultInternalUnits());
  MUserUnit::GetInstance().PrintMmInUI(text, 32, in_part, true);
  const double x = margin + width * mm / longest_mm;
  std::printf("<path d='M%g %d v8' stroke='#444'/>\n", x, margin + bar_height);
  std::printf("<text x='%g' y='%d' text-anchor='middle'>%ls</text>\n", x, height - 8, text);
}

}  // namespace

int main(int argc, char** argv) {
  const bool inches = argc > 1 && std::strcmp(argv[1], "inch") == 0;
  UnitTexts texts;
  SetMResStringWrapper(&texts);
  MUserUnit::GetInstance().SetUnit(inches ? MUserUnit::UNIT_INCH : MUserUnit::UNIT_MILLIMETRE);

  std::printf(
      "<svg xmlns='http://www.w3.org/2000/svg' width='%d' height='%d' font-size='13' "
      "font-family='sans-serif'>\n",
      width + 2 * margin, height);
  drawBar(MGradientColoring(rainbow(), 0.0, longest_mm));
  const double step = inches ? 25.4 : 20.0;
  const int marks = static_cast<int>(longest_mm / step);
  for (int i = 0; i <= marks; ++i) drawMark(i * step);
  std::printf("</svg>\n");
  SetMResStringWrapper(nullptr);
  return std::fflush(stdout) == 0 ? 0 : 1;
}
