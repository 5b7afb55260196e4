// SHA-1 by the processor's SHA instructions: four rounds and four message words a step
// (Gulley, Gopal and others, "Intel SHA Extensions", 2013).
#if defined(__x86_64__)

#include <immintrin.h>

#include <utility>

#include "qelbase/checks/sha1_internal.h"

#define QEL_SHA __attribute__((target("sse4.1,sha"), always_inline)) inline

namespace qel::checks {

namespace {

// Four rounds. `e` takes part as the fifth word of the state before them and becomes the one after.
template <int Step>
QEL_SHA void FourRounds(__m128i& abcd, __m128i& e, __m128i (&words)[4]) {
  __m128i& now = words[Step % 4];
  e = Step == 0 ? _mm_add_epi32(e, now) : _mm_sha1nexte_epu32(e, now);
  const __m128i before = abcd;
  abcd = _mm_sha1rnds4_epu32(abcd, e, Step / 5);
  e = before;
  // The words are worked on three steps ahead, in three parts.
  if constexpr (Step >= 3 && Step < 19) {
    words[(Step + 1) % 4] = _mm_sha1msg2_epu32(words[(Step + 1) % 4], now);
  }
  if constexpr (Step >= 1 && Step < 17) {
    words[(Step + 3) % 4] = _mm_sha1msg1_epu32(words[(Step + 3) % 4], now);
  }
  if constexpr (Step >= 2 && Step < 18) {
    words[(Step + 2) % 4] = _mm_xor_si128(words[(Step + 2) % 4], now);
  }
}

template <int... Step>
QEL_SHA void AllRounds(__m128i& abcd, __m128i& e, __m128i (&words)[4],
                       std::integer_sequence<int, Step...>) {
  (FourRounds<Step>(abcd, e, words), ...);
}

}  // namespace

__attribute__((target("sse4.1,sha"))) void Sha1CompressSha(std::uint32_t* state,
                                                           const std::uint8_t* data,
                                                           std::size_t blocks) {
  const __m128i turn = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  auto* abcd_in_memory = reinterpret_cast<__m128i*>(state);
  __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(abcd_in_memory), 0x1B);
  __m128i e = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);
  for (; blocks != 0; --blocks, data += kSha1Block) {
    const __m128i abcd_before = abcd;
    const __m128i e_before = e;
    __m128i words[4];
    for (int i = 0; i < 4; ++i) {
      const auto* at = reinterpret_cast<const __m128i*>(data + 16 * i);
      words[i] = _mm_shuffle_epi8(_mm_loadu_si128(at), turn);
    }
    AllRounds(abcd, e, words, std::make_integer_sequence<int, 20>{});
    e = _mm_sha1nexte_epu32(e, e_before);
    abcd = _mm_add_epi32(abcd, abcd_before);
  }
  _mm_storeu_si128(abcd_in_memory, _mm_shuffle_epi32(abcd, 0x1B));
  state[4] = static_cast<std::uint32_t>(_mm_extract_epi32(e, 3));
}

}  // namespace qel::checks

#endif
