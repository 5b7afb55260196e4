#pragma once
// Millimetres and STL units.

#include <cstdint>

#include "qelbase/export.h"

// One STL unit is a ten-thousandth of a millimetre, whatever the internal scale is at the moment: a
// length in the default scale is a length in STL units. A 32-bit number of them reaches 214 m.
class QELBASE_API MUnit {
 public:
  static double _ConvertStlUnitsToMm(double stl);  // stl / 10000
  static double _ConvertMmToStlUnits(double mm);   // mm * 10000

  // Rounded to the nearest, halves away from zero. What 32 bits do not hold becomes the nearest
  // limit, not-a-number becomes 0.
  static std::int32_t ConvertFromMmToStlUnits(double mm);
};
