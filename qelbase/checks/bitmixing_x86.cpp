// The bit mixing of many words at once, each in a lane of its own.
#if defined(__x86_64__)

#include <immintrin.h>

#include "qelbase/checks/bitmixing_internal.h"

// g++ 12 takes the undefined registers inside its own intrinsics for a fault.
#pragma GCC diagnostic ignored "-Wuninitialized"
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#define QEL_AVX2_TARGET __attribute__((target("avx2")))
#define QEL_AVX2 __attribute__((target("avx2"), always_inline)) inline
#define QEL_AVX512_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,gfni")))
#define QEL_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,gfni"), always_inline)) inline

namespace qel::checks {

namespace {

using C = MixConstants<std::uint32_t>;
using Words8 = std::uint32_t __attribute__((vector_size(32)));
using Words16 = std::uint32_t __attribute__((vector_size(64)));

constexpr std::uint32_t kDivisor = kMultiplierInverse<std::uint32_t>;

// The bytes of each word turn round, and each half of a byte is looked up in its reverse.
QEL_AVX2 Words8 Reverse(Words8 words) {
  const __m256i turn = _mm256_broadcastsi128_si256(
      _mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3));
  const __m256i reversed = _mm256_broadcastsi128_si256(
      _mm_set_epi8(15, 7, 11, 3, 13, 5, 9, 1, 14, 6, 10, 2, 12, 4, 8, 0));
  const __m256i halves = _mm256_set1_epi8(0x0F);
  const __m256i x = _mm256_shuffle_epi8(reinterpret_cast<__m256i>(words), turn);
  const __m256i low = _mm256_and_si256(x, halves);
  const __m256i high = _mm256_and_si256(_mm256_srli_epi16(x, 4), halves);
  return reinterpret_cast<Words8>(
      _mm256_or_si256(_mm256_slli_epi16(_mm256_shuffle_epi8(reversed, low), 4),
                      _mm256_shuffle_epi8(reversed, high)));
}

// The bytes of each word turn round, and a matrix turns round the bits of each byte.
QEL_AVX512 Words16 Reverse(Words16 words) {
  const __m512i turn =
      _mm512_broadcast_i32x4(_mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3));
  const __m512i matrix = _mm512_set1_epi64(static_cast<long long>(0x8040201008040201));
  const __m512i x = _mm512_shuffle_epi8(reinterpret_cast<__m512i>(words), turn);
  return reinterpret_cast<Words16>(_mm512_gf2p8affine_epi64_epi8(x, matrix, 0));
}

}  // namespace

QEL_AVX2_TARGET std::size_t MixForwardsAvx2(std::uint8_t* data, std::size_t words,
                                            std::uint32_t factor) {
  std::size_t i = 0;
  for (; i + 8 <= words; i += 8) {
    auto* at = reinterpret_cast<__m256i_u*>(data + 4 * i);
    auto x = reinterpret_cast<Words8>(_mm256_loadu_si256(at));
    x = Reverse((x ^ C::kMasks[0]) * C::kMultiplier + C::kAddend) ^ C::kMasks[1];
    x = (x * factor + C::kAddend) ^ C::kMasks[2];
    x = Reverse(x * C::kMultiplier + C::kAddend) ^ C::kMasks[3];
    _mm256_storeu_si256(at, reinterpret_cast<__m256i>(x));
  }
  return i;
}

QEL_AVX2_TARGET std::size_t MixBackwardsAvx2(std::uint8_t* data, std::size_t words,
                                             std::uint32_t inverse) {
  std::size_t i = 0;
  for (; i + 8 <= words; i += 8) {
    auto* at = reinterpret_cast<__m256i_u*>(data + 4 * i);
    auto x = reinterpret_cast<Words8>(_mm256_loadu_si256(at));
    x = ((Reverse(x ^ C::kMasks[3]) - C::kAddend) * kDivisor) ^ C::kMasks[2];
    x = ((x - C::kAddend) * inverse) ^ C::kMasks[1];
    x = ((Reverse(x) - C::kAddend) * kDivisor) ^ C::kMasks[0];
    _mm256_storeu_si256(at, reinterpret_cast<__m256i>(x));
  }
  return i;
}

QEL_AVX512_TARGET std::size_t MixForwardsAvx512(std::uint8_t* data, std::size_t words,
                                                std::uint32_t factor) {
  std::size_t i = 0;
  for (; i + 16 <= words; i += 16) {
    auto x = reinterpret_cast<Words16>(_mm512_loadu_si512(data + 4 * i));
    x = Reverse((x ^ C::kMasks[0]) * C::kMultiplier + C::kAddend) ^ C::kMasks[1];
    x = (x * factor + C::kAddend) ^ C::kMasks[2];
    x = Reverse(x * C::kMultiplier + C::kAddend) ^ C::kMasks[3];
    _mm512_storeu_si512(data + 4 * i, reinterpret_cast<__m512i>(x));
  }
  return i;
}

QEL_AVX512_TARGET std::size_t MixBackwardsAvx512(std::uint8_t* data, std::size_t words,
                                                 std::uint32_t inverse) {
  std::size_t i = 0;
  for (; i + 16 <= words; i += 16) {
    auto x = reinterpret_cast<Words16>(_mm512_loadu_si512(data + 4 * i));
    x = ((Reverse(x ^ C::kMasks[3]) - C::kAddend) * kDivisor) ^ C::kMasks[2];
    x = ((x - C::kAddend) * inverse) ^ C::kMasks[1];
    x = ((Reverse(x) - C::kAddend) * kDivisor) ^ C::kMasks[0];
    _mm512_storeu_si512(data + 4 * i, reinterpret_cast<__m512i>(x));
  }
  return i;
}

}  // namespace qel::checks

#endif
