// Sums of bytes with the 256-bit sum of absolute differences.
#if defined(__x86_64__)

#include <immintrin.h>

#include "qelbase/checks/sums_internal.h"

namespace qel::checks {

__attribute__((target("avx2"))) std::uint32_t SumBytesAvx2(const std::uint8_t* data,
                                                           std::size_t size) {
  constexpr std::size_t kStep = 32;
  constexpr std::size_t kLanes = 4;
  const __m256i zero = _mm256_setzero_si256();
  __m256i sums[kLanes] = {zero, zero, zero, zero};
  for (; size >= kStep * kLanes; data += kStep * kLanes, size -= kStep * kLanes) {
    for (std::size_t i = 0; i < kLanes; ++i) {
      const auto* at = reinterpret_cast<const __m256i*>(data + kStep * i);
      sums[i] = _mm256_add_epi64(sums[i], _mm256_sad_epu8(_mm256_loadu_si256(at), zero));
    }
  }
  for (; size >= kStep; data += kStep, size -= kStep) {
    const auto* at = reinterpret_cast<const __m256i*>(data);
    sums[0] = _mm256_add_epi64(sums[0], _mm256_sad_epu8(_mm256_loadu_si256(at), zero));
  }
  const __m256i four =
      _mm256_add_epi64(_mm256_add_epi64(sums[0], sums[1]), _mm256_add_epi64(sums[2], sums[3]));
  const __m128i two =
      _mm_add_epi64(_mm256_castsi256_si128(four), _mm256_extracti128_si256(four, 1));
  const __m128i one = _mm_add_epi64(two, _mm_unpackhi_epi64(two, two));
  auto sum = static_cast<std::uint32_t>(_mm_cvtsi128_si32(one));
  for (; size != 0; --size) sum += *data++;
  return sum;
}

}  // namespace qel::checks

#endif
