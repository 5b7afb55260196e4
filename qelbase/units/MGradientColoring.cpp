#include "qelbase/units/MGradientColoring.h"

#include <cstddef>

namespace {

double Part(std::uint32_t word, int shift) {
  return static_cast<int>(word >> shift & 0xFF);
}

std::uint32_t Mixed(std::uint32_t first, std::uint32_t second, double f, int shift) {
  const double part = Part(first, shift) * (1 - f) + Part(second, shift) * f;
  return static_cast<std::uint32_t>(static_cast<int>(part)) << shift;
}

}  // namespace

MGradientColoring::MGradientColoring(double min, double max) {
  SetLimits(min, max);
}

MGradientColoring::MGradientColoring(const std::vector<std::uint32_t>& colors, double min,
                                     double max)
    : m_colors(colors) {
  SetLimits(min, max);
}

void MGradientColoring::SetLimits(double min, double max) {
  m_limit_min = min;
  m_limit_max = max;
  m_range = max - min;
}

std::uint32_t MGradientColoring::GetColor(const double& value) const {
  const std::size_t count = m_colors.size();
  if (!(value > m_limit_min) || count < 2) return count ? m_colors.front() : 0;
  if (!(value < m_limit_max)) return m_colors.back();
  const double last = static_cast<double>(count - 1);
  const double t = (value - m_limit_min) / m_range * last;
  if (!(t < last)) return m_colors.back();  // by rounding, or not a number
  const auto i = static_cast<std::size_t>(t);
  const double f = t - static_cast<double>(i);
  const std::uint32_t first = m_colors[i];
  const std::uint32_t second = m_colors[i + 1];
  return Mixed(first, second, f, 0) | Mixed(first, second, f, 8) | Mixed(first, second, f, 16);
}
