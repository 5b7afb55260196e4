#pragma once
// Between floating point and whole numbers, in the one way of this room.

#include <cmath>
#include <cstdint>

namespace qel::units {

// Truncates towards zero and keeps the low bits of T's width, however large the number is. Infinity
// and not-a-number give 0.
template <class T>
T Truncate(double value) {
  static_assert(sizeof(T) <= sizeof(std::uint32_t));
  if (std::fabs(value) < 0x1p63) return static_cast<T>(static_cast<std::int64_t>(value));
  if (!std::isfinite(value)) return T{};
  return static_cast<T>(static_cast<std::int64_t>(std::fmod(value, 0x1p32)));
}

// The part that the lowest byte of `value` stands for.
inline float FromByte(unsigned long value) {
  return static_cast<float>(value & 0xFF) / 255.0f;
}

}  // namespace qel::units
