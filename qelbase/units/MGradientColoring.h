#pragma once
// From a number to a colour.

#include <cstdint>
#include <vector>

#include "qelbase/export.h"

// Colour words at even distances over a range of numbers, with linear steps between neighbours. A
// colour word has red in its lowest byte, then green, then blue. An object belongs to one thread at
// a time; GetColor may run on several.
class QELBASE_API MGradientColoring {
 public:
  explicit MGradientColoring(double min = 0.0, double max = 1.0);  // no colours yet
  MGradientColoring(const std::vector<std::uint32_t>& colors, double min, double max);

  void SetLimits(double min, double max);
  double GetLimitMin() const { return m_limit_min; }
  double GetLimitMax() const { return m_limit_max; }

  std::vector<std::uint32_t>& GetColors() { return m_colors; }
  const std::vector<std::uint32_t>& GetColors() const { return m_colors; }

  // The first colour at and below the lower limit and for not-a-number, the last at and above the
  // upper one, both as they were stored. In between each part is truncated, and the top byte is 0.
  // Limits that are equal or in the wrong order leave nothing in between; a range that is no finite
  // number has no steps. Without colours the result is 0.
  std::uint32_t GetColor(const double& value) const;
  std::uint32_t operator()(const double& value) const { return GetColor(value); }

 private:
  double m_limit_min;
  double m_limit_max;
  double m_range;
  std::vector<std::uint32_t> m_colors;
};
