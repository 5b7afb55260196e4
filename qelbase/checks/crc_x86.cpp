// Remainders by carry-less multiplication: every register holds a piece of the block, and is
// carried over the distance to the next piece of its own, until all of it fits in 16 bytes.
#if defined(__x86_64__)

#include <immintrin.h>

#include "qelbase/checks/crc_internal.h"

#define QEL_PCLMUL __attribute__((target("sse4.1,pclmul"), always_inline)) inline
#define QEL_VPCLMUL __attribute__((target("avx2,pclmul,vpclmulqdq"), always_inline)) inline
#define QEL_AVX512_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,pclmul,vpclmulqdq")))
#define QEL_AVX512 \
  __attribute__((target("avx512f,avx512bw,avx512vl,pclmul,vpclmulqdq"), always_inline)) inline

// g++ 12 takes the undefined registers inside its own intrinsics for a fault.
#pragma GCC diagnostic ignored "-Wuninitialized"
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace qel::checks {

namespace {

enum Distance { k128, k256, k512, k1024, k2048 };  // into kFoldDistances

QEL_PCLMUL __m128i Pair(const FoldPairs& folds, Distance distance) {
  return _mm_set_epi64x(static_cast<long long>(folds[distance].high),
                        static_cast<long long>(folds[distance].low));
}

// Polynomials whose first bit is the most significant one have their bytes turned round.
template <bool Reversed>
QEL_PCLMUL __m128i Turn(__m128i piece) {
  if constexpr (Reversed) return piece;
  return _mm_shuffle_epi8(piece,
                          _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

template <bool Reversed>
QEL_PCLMUL __m128i Load(const std::uint8_t* data) {
  return Turn<Reversed>(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data)));
}

template <bool Reversed>
QEL_PCLMUL __m128i First(std::uint32_t value) {
  if constexpr (Reversed) return _mm_cvtsi32_si128(static_cast<int>(value));
  const std::uint64_t high = std::uint64_t{value} << 48;
  return _mm_set_epi64x(static_cast<long long>(high), 0);
}

QEL_PCLMUL __m128i Carry(__m128i piece, __m128i pair, __m128i onto) {
  const __m128i low = _mm_clmulepi64_si128(piece, pair, 0x00);
  const __m128i high = _mm_clmulepi64_si128(piece, pair, 0x11);
  return _mm_xor_si128(_mm_xor_si128(low, onto), high);
}

template <bool Reversed>
QEL_PCLMUL SixteenBytes Finish(__m128i piece, __m128i pair, const std::uint8_t* data,
                               std::size_t size) {
  for (; size >= 16; data += 16, size -= 16) piece = Carry(piece, pair, Load<Reversed>(data));
  piece = Turn<Reversed>(piece);
  return {static_cast<std::uint64_t>(_mm_cvtsi128_si64(piece)),
          static_cast<std::uint64_t>(_mm_extract_epi64(piece, 1))};
}

template <bool Reversed>
QEL_VPCLMUL __m256i Load256(const std::uint8_t* data) {
  const __m256i piece = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data));
  if constexpr (Reversed) return piece;
  return _mm256_shuffle_epi8(piece, _mm256_broadcastsi128_si256(_mm_set_epi8(
                                        0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15)));
}

QEL_VPCLMUL __m256i Pair256(const FoldPairs& folds, Distance distance) {
  return _mm256_broadcastsi128_si256(Pair(folds, distance));
}

QEL_VPCLMUL __m256i Carry256(__m256i piece, __m256i pair, __m256i onto) {
  const __m256i low = _mm256_clmulepi64_epi128(piece, pair, 0x00);
  const __m256i high = _mm256_clmulepi64_epi128(piece, pair, 0x11);
  return _mm256_xor_si256(_mm256_xor_si256(low, onto), high);
}

template <bool Reversed>
__attribute__((target("sse4.1,pclmul"))) SixteenBytes Fold(const FoldPairs& folds,
                                                           std::uint32_t first,
                                                           const std::uint8_t* data,
                                                           std::size_t size) {
  constexpr std::size_t kStep = 64;
  const __m128i next = Pair(folds, k128);
  __m128i piece = _mm_xor_si128(Load<Reversed>(data), First<Reversed>(first));
  if (size < kStep) return Finish<Reversed>(piece, next, data + 16, size - 16);

  const __m128i far = Pair(folds, k512);
  __m128i pieces[4] = {piece, Load<Reversed>(data + 16), Load<Reversed>(data + 32),
                       Load<Reversed>(data + 48)};
  for (data += kStep, size -= kStep; size >= kStep; data += kStep, size -= kStep) {
    for (int i = 0; i < 4; ++i) pieces[i] = Carry(pieces[i], far, Load<Reversed>(data + 16 * i));
  }
  const __m128i middle = Pair(folds, k256);
  for (int i = 0; i < 2; ++i) pieces[i] = Carry(pieces[i], middle, pieces[i + 2]);
  piece = Carry(pieces[0], next, pieces[1]);
  return Finish<Reversed>(piece, next, data, size);
}

template <bool Reversed>
__attribute__((target("avx2,pclmul,vpclmulqdq"))) SixteenBytes Fold256(const FoldPairs& folds,
                                                                       std::uint32_t first,
                                                                       const std::uint8_t* data,
                                                                       std::size_t size) {
  constexpr std::size_t kStep = 256;
  if (size < kStep) return Fold<Reversed>(folds, first, data, size);

  __m256i pieces[8];
  for (int i = 0; i < 8; ++i) pieces[i] = Load256<Reversed>(data + 32 * i);
  pieces[0] = _mm256_xor_si256(pieces[0], _mm256_zextsi128_si256(First<Reversed>(first)));
  const __m256i far = Pair256(folds, k2048);
  for (data += kStep, size -= kStep; size >= kStep; data += kStep, size -= kStep) {
    for (int i = 0; i < 8; ++i) {
      pieces[i] = Carry256(pieces[i], far, Load256<Reversed>(data + 32 * i));
    }
  }
  for (int i = 0; i < 4; ++i) pieces[i] = Carry256(pieces[i], Pair256(folds, k1024), pieces[i + 4]);
  for (int i = 0; i < 2; ++i) pieces[i] = Carry256(pieces[i], Pair256(folds, k512), pieces[i + 2]);
  const __m256i near = Pair256(folds, k256);
  __m256i last = Carry256(pieces[0], near, pieces[1]);
  for (; size >= 32; data += 32, size -= 32) last = Carry256(last, near, Load256<Reversed>(data));
  const __m128i next = Pair(folds, k128);
  const __m128i piece =
      Carry(_mm256_castsi256_si128(last), next, _mm256_extracti128_si256(last, 1));
  return Finish<Reversed>(piece, next, data, size);
}

template <bool Reversed>
QEL_AVX512 __m512i Load512(const std::uint8_t* data) {
  const __m512i piece = _mm512_loadu_si512(data);
  if constexpr (Reversed) return piece;
  return _mm512_shuffle_epi8(piece, _mm512_broadcast_i32x4(_mm_set_epi8(
                                        0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15)));
}

QEL_AVX512 __m512i Carry512(__m512i piece, __m512i pair, __m512i onto) {
  constexpr int kXorOfThree = 0x96;
  const __m512i low = _mm512_clmulepi64_epi128(piece, pair, 0x00);
  const __m512i high = _mm512_clmulepi64_epi128(piece, pair, 0x11);
  return _mm512_ternarylogic_epi64(low, high, onto, kXorOfThree);
}

QEL_AVX512 __m512i Pair512(const FoldPairs& folds, Distance distance) {
  return _mm512_broadcast_i32x4(Pair(folds, distance));
}

template <bool Reversed>
QEL_AVX512_TARGET SixteenBytes Fold512(const FoldPairs& folds, std::uint32_t first,
                                       const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kStep = 256;
  if (size < kStep) return Fold<Reversed>(folds, first, data, size);

  __m512i pieces[4];
  for (int i = 0; i < 4; ++i) pieces[i] = Load512<Reversed>(data + 64 * i);
  pieces[0] = _mm512_xor_si512(pieces[0], _mm512_zextsi128_si512(First<Reversed>(first)));
  const __m512i far = Pair512(folds, k2048);
  for (data += kStep, size -= kStep; size >= kStep; data += kStep, size -= kStep) {
    for (int i = 0; i < 4; ++i) {
      pieces[i] = Carry512(pieces[i], far, Load512<Reversed>(data + 64 * i));
    }
  }
  const __m512i middle = Pair512(folds, k1024);
  for (int i = 0; i < 2; ++i) pieces[i] = Carry512(pieces[i], middle, pieces[i + 2]);
  const __m512i near = Pair512(folds, k512);
  __m512i last = Carry512(pieces[0], near, pieces[1]);
  for (; size >= 64; data += 64, size -= 64) last = Carry512(last, near, Load512<Reversed>(data));
  const __m256i half = Carry256(_mm512_castsi512_si256(last), Pair256(folds, k256),
                                _mm512_extracti64x4_epi64(last, 1));
  const __m128i next = Pair(folds, k128);
  const __m128i piece =
      Carry(_mm256_castsi256_si128(half), next, _mm256_extracti128_si256(half, 1));
  return Finish<Reversed>(piece, next, data, size);
}

}  // namespace

SixteenBytes FoldPclmul(bool reversed, const FoldPairs& folds, std::uint32_t first,
                        const std::uint8_t* data, std::size_t size) {
  return reversed ? Fold<true>(folds, first, data, size) : Fold<false>(folds, first, data, size);
}

SixteenBytes FoldVpclmul(bool reversed, const FoldPairs& folds, std::uint32_t first,
                         const std::uint8_t* data, std::size_t size) {
  return reversed ? Fold256<true>(folds, first, data, size)
                  : Fold256<false>(folds, first, data, size);
}

SixteenBytes FoldVpclmul512(bool reversed, const FoldPairs& folds, std::uint32_t first,
                            const std::uint8_t* data, std::size_t size) {
  return reversed ? Fold512<true>(folds, first, data, size)
                  : Fold512<false>(folds, first, data, size);
}

}  // namespace qel::checks

#endif
