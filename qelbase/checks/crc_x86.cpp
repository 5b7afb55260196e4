// Remainders by carry-less multiplication: every register holds pieces of the block, and is carried
// over the distance to the next piece of its own. The last ones are all carried to the end at once.
#if defined(__x86_64__)

#include <immintrin.h>

#include <algorithm>

#include "qelbase/checks/crc_internal.h"

#define QEL_PCLMUL_TARGET __attribute__((target("sse4.1,pclmul")))
#define QEL_PCLMUL __attribute__((target("sse4.1,pclmul"), always_inline)) inline
#define QEL_VPCLMUL_TARGET __attribute__((target("avx2,pclmul,vpclmulqdq")))
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

constexpr std::size_t kPiece = 16;

// The pairs of `pieces` pieces at the end of the block.
const FoldPair* LastPairs(const FoldPairs& folds, std::size_t pieces) {
  return folds.to_end.data() + FoldPairs::kPieces - pieces;
}

// --- 128 bits ------------------------------------------------------------------------------------

QEL_PCLMUL __m128i LoadPair(const FoldPair& pair) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(&pair));
}

// Polynomials whose first bit is the most significant one have their bytes turned round.
QEL_PCLMUL __m128i Turns() {
  return _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
}

template <bool Reversed>
QEL_PCLMUL __m128i Turn(__m128i piece) {
  return Reversed ? piece : _mm_shuffle_epi8(piece, Turns());
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

// What whole pieces at the end of the block add to the sum.
template <bool Reversed>
QEL_PCLMUL __m128i AddPieces(__m128i sum, const FoldPairs& folds, const std::uint8_t* data,
                             std::size_t size) {
  const FoldPair* pair = LastPairs(folds, size / kPiece);
  for (; size != 0; data += kPiece, size -= kPiece) {
    sum = Carry(Load<Reversed>(data), LoadPair(*pair++), sum);
  }
  return sum;
}

template <bool Reversed>
QEL_PCLMUL SixteenBytes Result(__m128i sum) {
  sum = Turn<Reversed>(sum);
  return {static_cast<std::uint64_t>(_mm_cvtsi128_si64(sum)),
          static_cast<std::uint64_t>(_mm_extract_epi64(sum, 1))};
}

// --- 256 bits ------------------------------------------------------------------------------------

template <bool Reversed>
QEL_VPCLMUL __m256i Load256(const std::uint8_t* data) {
  const __m256i piece = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data));
  return Reversed ? piece : _mm256_shuffle_epi8(piece, _mm256_broadcastsi128_si256(Turns()));
}

QEL_VPCLMUL __m256i Carry256(__m256i piece, __m256i pair, __m256i onto) {
  const __m256i low = _mm256_clmulepi64_epi128(piece, pair, 0x00);
  const __m256i high = _mm256_clmulepi64_epi128(piece, pair, 0x11);
  return _mm256_xor_si256(_mm256_xor_si256(low, onto), high);
}

QEL_VPCLMUL __m128i Joined256(__m256i sum) {
  return _mm_xor_si128(_mm256_castsi256_si128(sum), _mm256_extracti128_si256(sum, 1));
}

// --- 512 bits ------------------------------------------------------------------------------------

template <bool Reversed>
QEL_AVX512 __m512i Turn512(__m512i piece) {
  return Reversed ? piece : _mm512_shuffle_epi8(piece, _mm512_broadcast_i32x4(Turns()));
}

template <bool Reversed>
QEL_AVX512 __m512i Load512(const std::uint8_t* data) {
  return Turn512<Reversed>(_mm512_loadu_si512(data));
}

QEL_AVX512 __m512i Carry512(__m512i piece, __m512i pair, __m512i onto) {
  constexpr int kXorOfThree = 0x96;
  const __m512i low = _mm512_clmulepi64_epi128(piece, pair, 0x00);
  const __m512i high = _mm512_clmulepi64_epi128(piece, pair, 0x11);
  return _mm512_ternarylogic_epi64(low, high, onto, kXorOfThree);
}

QEL_AVX512 __m128i Joined512(__m512i sum) {
  return Joined256(
      _mm256_xor_si256(_mm512_castsi512_si256(sum), _mm512_extracti64x4_epi64(sum, 1)));
}

// --- blocks --------------------------------------------------------------------------------------

template <bool Reversed>
QEL_PCLMUL_TARGET SixteenBytes Fold(const FoldPairs& folds, std::uint32_t first,
                                    const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kStep = 64;
  __m128i pieces[4];
#pragma GCC unroll 4
  for (int i = 0; i < 4; ++i) pieces[i] = Load<Reversed>(data + 16 * i);
  pieces[0] = _mm_xor_si128(pieces[0], First<Reversed>(first));
  const __m128i far = LoadPair(folds.over_512);
  for (data += kStep, size -= kStep; size >= kStep; data += kStep, size -= kStep) {
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) pieces[i] = Carry(pieces[i], far, Load<Reversed>(data + 16 * i));
  }
  __m128i sum = _mm_setzero_si128();
  const FoldPair* const pairs = LastPairs(folds, (kStep + size) / kPiece);
#pragma GCC unroll 4
  for (int i = 0; i < 4; ++i) sum = Carry(pieces[i], LoadPair(pairs[i]), sum);
  return Result<Reversed>(AddPieces<Reversed>(sum, folds, data, size));
}

template <bool Reversed>
QEL_VPCLMUL_TARGET SixteenBytes Fold256(const FoldPairs& folds, std::uint32_t first,
                                        const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kStep = 256;
  if (size < kStep) return Fold<Reversed>(folds, first, data, size);

  __m256i pieces[8];
#pragma GCC unroll 8
  for (int i = 0; i < 8; ++i) pieces[i] = Load256<Reversed>(data + 32 * i);
  pieces[0] = _mm256_xor_si256(pieces[0], _mm256_zextsi128_si256(First<Reversed>(first)));
  const __m256i far = _mm256_broadcastsi128_si256(LoadPair(folds.over_2048));
  for (data += kStep, size -= kStep; size >= kStep; data += kStep, size -= kStep) {
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) {
      pieces[i] = Carry256(pieces[i], far, Load256<Reversed>(data + 32 * i));
    }
  }
  const auto* pairs = reinterpret_cast<const __m256i*>(LastPairs(folds, (kStep + size) / kPiece));
  __m256i sum = _mm256_setzero_si256();
#pragma GCC unroll 8
  for (const __m256i& piece : pieces) sum = Carry256(piece, _mm256_loadu_si256(pairs++), sum);
  return Result<Reversed>(AddPieces<Reversed>(Joined256(sum), folds, data, size));
}

template <bool Reversed>
QEL_AVX512_TARGET SixteenBytes Fold512(const FoldPairs& folds, std::uint32_t first,
                                       const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kStep = 256;
  __m512i start = _mm512_zextsi128_si512(First<Reversed>(first));
  __m512i sum = _mm512_setzero_si512();
  if (size >= kStep) {
    __m512i pieces[4];
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) pieces[i] = Load512<Reversed>(data + 64 * i);
    pieces[0] = _mm512_xor_si512(pieces[0], start);
    start = _mm512_setzero_si512();
    const __m512i far = _mm512_broadcast_i32x4(LoadPair(folds.over_2048));
    for (data += kStep, size -= kStep; size >= kStep; data += kStep, size -= kStep) {
#pragma GCC unroll 4
      for (int i = 0; i < 4; ++i) {
        pieces[i] = Carry512(pieces[i], far, Load512<Reversed>(data + 64 * i));
      }
    }
    const FoldPair* const pairs = LastPairs(folds, (kStep + size) / kPiece);
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) {
      sum = Carry512(pieces[i], _mm512_loadu_si512(pairs + 4 * i), sum);
    }
  }
  for (; size >= 64; data += 64, size -= 64) {
    const __m512i piece = _mm512_xor_si512(Load512<Reversed>(data), start);
    start = _mm512_setzero_si512();
    sum = Carry512(piece, _mm512_loadu_si512(LastPairs(folds, size / kPiece)), sum);
  }
  return Result<Reversed>(AddPieces<Reversed>(Joined512(sum), folds, data, size));
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
