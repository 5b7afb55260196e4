// The portable form of the compression function: 80 rounds, the words of a block worked out as
// they are needed.
#include <bit>
#include <cstring>
#include <utility>

#include "qelbase/checks/bytes_internal.h"
#include "qelbase/checks/processor_internal.h"
#include "qelbase/checks/sha1_internal.h"

namespace qel::checks {

namespace {

using Word = std::uint32_t;

constexpr Word kConstants[4] = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC, 0xCA62C1D6};

template <int Phase>
constexpr Word Mix(Word b, Word c, Word d) {
  if constexpr (Phase == 0) return d ^ (b & (c ^ d));        // choose
  if constexpr (Phase == 2) return (b & c) + (d & (b ^ c));  // majority
  return b ^ c ^ d;                                          // parity
}

// The five words change their names from round to round instead of their places.
template <int Round>
__attribute__((always_inline)) constexpr void OneRound(Word (&lane)[5], Word (&words)[16],
                                                       const std::uint8_t* block) {
  constexpr int kPhase = Round / 20;
  constexpr auto kAt = [](int i) { return (i + 80 - Round) % 5; };
  Word& word = words[Round % 16];
  if constexpr (Round < 16) {
    word = LoadBig32(block + 4 * Round);
  } else {
    word = std::rotl(
        words[(Round + 13) % 16] ^ words[(Round + 8) % 16] ^ words[(Round + 2) % 16] ^ word, 1);
  }
  Word& b = lane[kAt(1)];
  lane[kAt(4)] += std::rotl(lane[kAt(0)], 5) + Mix<kPhase>(b, lane[kAt(2)], lane[kAt(3)]) +
                  kConstants[kPhase] + word;
  b = std::rotl(b, 30);
}

template <int... Round>
__attribute__((always_inline)) constexpr void AllRounds(Word (&lane)[5], const std::uint8_t* block,
                                                        std::integer_sequence<int, Round...>) {
  Word words[16] = {};
  (OneRound<Round>(lane, words, block), ...);
}

constexpr void CompressPortable(Word* state, const std::uint8_t* data, std::size_t blocks) {
  for (; blocks != 0; --blocks, data += kSha1Block) {
    Word lane[5] = {state[0], state[1], state[2], state[3], state[4]};
    AllRounds(lane, data, std::make_integer_sequence<int, 80>{});
    for (int i = 0; i < 5; ++i) state[i] += lane[i];
  }
}

void FinishPortable(Word* state, std::uint8_t* buffer, std::size_t fill, std::uint64_t bits) {
  buffer[fill++] = 0x80;
  if (fill > kSha1LengthAt) {
    std::memset(buffer + fill, 0, kSha1Block - fill);
    CompressPortable(state, buffer, 1);
    fill = 0;
  }
  std::memset(buffer + fill, 0, kSha1LengthAt - fill);
  StoreBig32(buffer + kSha1LengthAt, static_cast<Word>(bits >> 32));
  StoreBig32(buffer + kSha1LengthAt + 4, static_cast<Word>(bits));
  CompressPortable(state, buffer, 1);
}

constexpr std::array<Word, 5> CompressZeros() {
  constexpr std::uint8_t kZeros[kSha1Block] = {};
  std::array<Word, 5> state = {};
  CompressPortable(state.data(), kZeros, 1);
  return state;
}

}  // namespace

constinit const std::array<Word, 5> kSha1Wiped = CompressZeros();

void Sha1Compress(Word* state, const std::uint8_t* data, std::size_t blocks) {
#if defined(__x86_64__)
  if (Has(kSha | kSse41)) return Sha1CompressSha(state, data, blocks);
#endif
  CompressPortable(state, data, blocks);
}

void Sha1Finish(Word* state, std::uint8_t* buffer, std::size_t fill, std::uint64_t bits) {
#if defined(__x86_64__)
  if (Has(kSha | kSse41)) return Sha1FinishSha(state, buffer, fill, bits);
#endif
  FinishPortable(state, buffer, fill, bits);
}

}  // namespace qel::checks
