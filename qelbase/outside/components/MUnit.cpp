#include "qelbase/outside/components/MUnit.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double stl_units_per_mm = 10000.0;
}

double MUnit::_ConvertStlUnitsToMm(double stl) {
  return stl / stl_units_per_mm;
}

double MUnit::_ConvertMmToStlUnits(double mm) {
  return mm * stl_units_per_mm;
}

std::int32_t MUnit::ConvertFromMmToStlUnits(double mm) {
  if (std::isnan(mm)) return 0;
  const double stl = std::round(_ConvertMmToStlUnits(mm));
  return static_cast<std::int32_t>(std::clamp<double>(stl, INT32_MIN, INT32_MAX));
}
