// SHA-1 by the processor's SHA instructions: four rounds and four message words a step
// (Gulley, Gopal and others, "Intel SHA Extensions", 2013).
#if defined(__x86_64__)

#include <immintrin.h>

#include <utility>

#include "qelbase/checks/sha1_internal.h"

#define QEL_SHA_TARGET __attribute__((target("sse4.1,sha")))
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

// The five words of the state, as the instructions want them.
struct State {
  __m128i abcd;
  __m128i e;
};

QEL_SHA State LoadState(const std::uint32_t* state) {
  const __m128i abcd = _mm_loadu_si128(reinterpret_cast<const __m128i*>(state));
  return {_mm_shuffle_epi32(abcd, 0x1B), _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0)};
}

QEL_SHA void StoreState(std::uint32_t* state, const State& now) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state), _mm_shuffle_epi32(now.abcd, 0x1B));
  state[4] = static_cast<std::uint32_t>(_mm_extract_epi32(now.e, 3));
}

QEL_SHA __m128i LoadBytes(const std::uint8_t* from) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

// The bytes of four words turned round, the first word at the top.
QEL_SHA __m128i Turn(__m128i bytes) {
  return _mm_shuffle_epi8(bytes,
                          _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

QEL_SHA void OneBlock(State& state, __m128i (&words)[4]) {
  const State before = state;
  AllRounds(state.abcd, state.e, words, std::make_integer_sequence<int, 20>{});
  state.e = _mm_sha1nexte_epu32(state.e, before.e);
  state.abcd = _mm_add_epi32(state.abcd, before.abcd);
}

}  // namespace

QEL_SHA_TARGET void Sha1CompressSha(std::uint32_t* state, const std::uint8_t* data,
                                    std::size_t blocks) {
  State now = LoadState(state);
  for (; blocks != 0; --blocks, data += kSha1Block) {
    __m128i words[4];
    for (int i = 0; i < 4; ++i) words[i] = Turn(LoadBytes(data + 16 * i));
    OneBlock(now, words);
  }
  StoreState(state, now);
}

// Everything is put together in registers: a block written byte by byte could not be loaded before
// its stores are through.
QEL_SHA_TARGET void Sha1FinishSha(std::uint32_t* state, const std::uint8_t* buffer,
                                  std::size_t fill, std::uint64_t bits) {
  State now = LoadState(state);
  const __m128i end = _mm_set1_epi8(static_cast<char>(fill));
  __m128i at = _mm_set_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
  __m128i words[4];
  for (int i = 0; i < 4; ++i, at = _mm_add_epi8(at, _mm_set1_epi8(16))) {
    const __m128i held = _mm_and_si128(LoadBytes(buffer + 16 * i), _mm_cmpgt_epi8(end, at));
    const __m128i mark = _mm_and_si128(_mm_cmpeq_epi8(end, at), _mm_set1_epi8(-0x80));
    words[i] = Turn(_mm_or_si128(held, mark));
  }
  if (fill >= kSha1LengthAt) {
    OneBlock(now, words);
    for (__m128i& four : words) four = _mm_setzero_si128();
  }
  words[3] = _mm_insert_epi64(words[3], static_cast<long long>(bits), 0);
  OneBlock(now, words);
  StoreState(state, now);
}

}  // namespace qel::checks

#endif
