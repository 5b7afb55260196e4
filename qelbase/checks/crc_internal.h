#pragma once
// What a CRC knows of its polynomial, and the loops over blocks.

#include <array>
#include <cstddef>
#include <cstdint>

namespace qel::checks {

// The first byte is the lowest one of `low`.
struct SixteenBytes {
  std::uint64_t low;
  std::uint64_t high;
};

// Remainders of powers of x that carry the two halves of a 128-bit piece over a distance.
struct FoldPair {
  std::uint64_t low;   // for the low quadword of the register
  std::uint64_t high;  // for the high one
};

struct FoldPairs {
  static constexpr std::size_t kPieces = 32;

  FoldPair over_512;  // bits
  FoldPair over_2048;
  // to_end[i] carries a piece with kPieces - 1 - i pieces behind it to where the check value
  // stands when the block is over. So pieces in a row take pairs in a row.
  std::array<FoldPair, kPieces> to_end;
};

template <typename T>
struct CrcPlan {
  static constexpr std::size_t kSlices = 16;

  // slices[n][b] is what byte b gives with n zero bytes behind it; slices[0] is the byte table.
  // See Kounavis and Berry, "Novel Table Lookup-Based Algorithms for High-Performance CRC
  // Generation", IEEE Transactions on Computers 57 (2008).
  std::array<std::array<T, 256>, kSlices> slices;
  FoldPairs folds;
};

// The one-byte table of a polynomial, as the classes describe their steps.
std::array<std::uint16_t, 256> MakeByteTable(std::uint16_t polynomial);
std::array<std::uint32_t, 256> MakeByteTable(std::uint32_t polynomial);

CrcPlan<std::uint16_t> MakePlan(const std::array<std::uint16_t, 256>& table,
                                std::uint16_t polynomial);
CrcPlan<std::uint32_t> MakePlan(const std::array<std::uint32_t, 256>& table,
                                std::uint32_t polynomial);

// Folds bytes into `value`, by the fastest way that the processor has.
std::uint16_t UpdateCrc(const CrcPlan<std::uint16_t>& plan, std::uint16_t value,
                        const std::uint8_t* data, std::size_t size);
std::uint32_t UpdateCrc(const CrcPlan<std::uint32_t>& plan, std::uint32_t value,
                        const std::uint8_t* data, std::size_t size);

#if defined(__x86_64__)

// Fold `size` bytes, a multiple of 16 and at least 64, the first of which are XORed with `first`,
// into a piece with the value's remainder: what its last bytes say, as many as the value has, and
// what the eight in front of them give. `reversed` tells a polynomial whose first bit is the least
// significant one. See Gopal, Ozturk, Guilford and others, "Fast CRC Computation for Generic
// Polynomials Using PCLMULQDQ Instruction", Intel 2009.
SixteenBytes FoldPclmul(bool reversed, const FoldPairs& folds, std::uint32_t first,
                        const std::uint8_t* data, std::size_t size);
SixteenBytes FoldVpclmul(bool reversed, const FoldPairs& folds, std::uint32_t first,
                         const std::uint8_t* data, std::size_t size);
SixteenBytes FoldVpclmul512(bool reversed, const FoldPairs& folds, std::uint32_t first,
                            const std::uint8_t* data, std::size_t size);

#endif

}  // namespace qel::checks
