#pragma once
// The arithmetic of the bit mixing.

#include <cstddef>
#include <cstdint>

namespace qel::checks {

// The lowest `bits` bits of `value` in the opposite order; 0 for a width of 0.
constexpr std::uint64_t ReverseBits(std::uint64_t value, unsigned bits) {
  if (bits == 0) return 0;
  value = (value >> 1 & 0x5555555555555555) | (value & 0x5555555555555555) << 1;
  value = (value >> 2 & 0x3333333333333333) | (value & 0x3333333333333333) << 2;
  value = (value >> 4 & 0x0F0F0F0F0F0F0F0F) | (value & 0x0F0F0F0F0F0F0F0F) << 4;
  return __builtin_bswap64(value) >> (64 - bits);
}

// The number q with q * (t + 1) = y modulo 2^64 (and so modulo every smaller power of two), for an
// even t. It is y - y t + y t^2 - y t^3 ..., which ends when t^n is 0, summed as
// y (1 - t) (1 + t^2) (1 + t^4) (1 + t^8) ...
constexpr std::uint64_t SeriesDivide(std::uint64_t y, std::uint64_t t) {
  std::uint64_t sum = y - y * t;
  while ((t *= t) != 0) sum += sum * t;
  return sum;
}

inline constexpr std::uint32_t kMultiplier = 1664525;

// The key in force: odd, in the arithmetic of its own type.
template <typename Key>
constexpr Key MakeOdd(Key key) {
  return key & 1 ? key : static_cast<Key>(key + kMultiplier);
}

// The constants of the fixed widths.
template <typename T>
struct MixConstants;

template <>
struct MixConstants<std::uint8_t> {
  static constexpr std::uint8_t kMasks[4] = {0x87, 0x58, 0x2C, 0xC3};
  static constexpr std::uint8_t kMultiplier = 13;
  static constexpr std::uint8_t kAddend = 185;
};

template <>
struct MixConstants<std::uint16_t> {
  static constexpr std::uint16_t kMasks[4] = {0x6887, 0x3B58, 0xD32C, 0xF0C3};
  static constexpr std::uint16_t kMultiplier = 26125;
  static constexpr std::uint16_t kAddend = 46923;
};

template <>
struct MixConstants<std::uint32_t> {
  static constexpr std::uint32_t kMasks[4] = {0xBAA96887, 0x4B0F3B58, 0x1E17D32C, 0x0874F0C3};
  static constexpr std::uint32_t kMultiplier = 1664525;
  static constexpr std::uint32_t kAddend = 1013904223;
};

// A key ready for a width: its odd factor, and the factor that undoes it.
template <typename T>
struct MixKey {
  explicit constexpr MixKey(std::uint32_t key)
      : factor(static_cast<T>(MakeOdd(key))),
        inverse(static_cast<T>(SeriesDivide(1, std::uint64_t{factor} - 1))) {}

  T factor;
  T inverse;
};

template <typename T>
inline constexpr T kMultiplierInverse =
    static_cast<T>(SeriesDivide(1, std::uint64_t{MixConstants<T>::kMultiplier} - 1));

template <typename T>
constexpr T MixForwards(T value, T factor) {
  using C = MixConstants<T>;
  constexpr unsigned kBits = 8 * sizeof(T);
  const auto times = [](T x, T by) {
    return static_cast<T>(std::uint32_t{x} * std::uint32_t{by} + C::kAddend);
  };
  T x = value ^ C::kMasks[0];
  x = static_cast<T>(ReverseBits(times(x, C::kMultiplier), kBits));
  x = times(x ^ C::kMasks[1], factor);
  x = times(x ^ C::kMasks[2], C::kMultiplier);
  return static_cast<T>(ReverseBits(x, kBits)) ^ C::kMasks[3];
}

template <typename T>
constexpr T MixBackwards(T value, T inverse) {
  using C = MixConstants<T>;
  constexpr unsigned kBits = 8 * sizeof(T);
  const auto divide = [](T x, T by) {
    return static_cast<T>((std::uint32_t{x} - C::kAddend) * std::uint32_t{by});
  };
  T x = static_cast<T>(ReverseBits(value ^ C::kMasks[3], kBits));
  x = divide(x, kMultiplierInverse<T>) ^ C::kMasks[2];
  x = divide(x, inverse) ^ C::kMasks[1];
  x = static_cast<T>(ReverseBits(x, kBits));
  return divide(x, kMultiplierInverse<T>) ^ C::kMasks[0];
}

// The forms that only buffers need.
std::uint8_t Decrypt8(std::uint8_t value, std::uint32_t key);
std::uint16_t Encrypt16(std::uint16_t value, std::uint32_t key);
std::uint16_t Decrypt16(std::uint16_t value, std::uint32_t key);

#if defined(__x86_64__)
// Whole registers of words from the start of a buffer; give the number of words done.
std::size_t MixForwardsAvx2(std::uint8_t* data, std::size_t words, std::uint32_t factor);
std::size_t MixBackwardsAvx2(std::uint8_t* data, std::size_t words, std::uint32_t inverse);
std::size_t MixForwardsAvx512(std::uint8_t* data, std::size_t words, std::uint32_t factor);
std::size_t MixBackwardsAvx512(std::uint8_t* data, std::size_t words, std::uint32_t inverse);
#endif

}  // namespace qel::checks
