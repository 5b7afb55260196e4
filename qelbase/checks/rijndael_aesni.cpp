// Rijndael by the AES instructions of 128 bits. They know blocks of four columns; larger blocks
// stand in two registers, and their bytes are put before each round where the rows' shifts of the
// instruction bring them to the right place (Gueron, "Intel Advanced Encryption Standard
// Instructions Set", 2010).
#if defined(__x86_64__)

#include <immintrin.h>

#include <array>
#include <cstring>

#include "qelbase/checks/rijndael_internal.h"

#define QEL_AESNI_TARGET __attribute__((target("sse4.1,aes")))
#define QEL_AESNI __attribute__((target("sse4.1,aes"), always_inline)) inline

namespace qel::checks {

namespace {

template <int Words>
constexpr std::size_t kSize = std::size_t{4} * Words;  // of a block, in bytes

constexpr int RegistersOf(int words) {
  return words == 4 ? 1 : 2;
}

using Shuffle = std::array<std::uint8_t, 16>;

// Takes the bytes of register `from` that belong into register `to`; zero for the others.
template <int Words, bool Forwards>
constexpr Shuffle MakeShuffle(int to, int from) {
  constexpr std::uint8_t kZero = 0x80;
  Shuffle shuffle{};
  for (int at = 0; at < 16; ++at) {
    const int row = at % 4;
    const int sign = Forwards ? 1 : -1;
    const int column = (at / 4 - sign * row + 8) % 4;  // where the instruction brings this byte
    const int source = (4 * to + column + sign * ShiftOf(Words, row) + 2 * Words) % Words;
    const bool here = source / 4 == from;
    shuffle[at] = here ? static_cast<std::uint8_t>(4 * (source % 4) + row) : kZero;
  }
  return shuffle;
}

template <int Words, bool Forwards>
struct Shuffles {
  alignas(16) static constexpr Shuffle k[2][2] = {
      {MakeShuffle<Words, Forwards>(0, 0), MakeShuffle<Words, Forwards>(0, 1)},
      {MakeShuffle<Words, Forwards>(1, 0), MakeShuffle<Words, Forwards>(1, 1)}};
};

template <int Words>
struct Block {
  __m128i part[RegistersOf(Words)];
};

QEL_AESNI __m128i Load(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

template <int Words>
QEL_AESNI Block<Words> LoadBlock(const std::uint8_t* from) {
  Block<Words> block;
  block.part[0] = Load(from);
  if constexpr (Words == 6) {
    block.part[1] = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from + 16));
  }
  if constexpr (Words == 8) block.part[1] = Load(from + 16);
  return block;
}

template <int Words>
QEL_AESNI void StoreBlock(std::uint8_t* to, const Block<Words>& block) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), block.part[0]);
  auto* rest = reinterpret_cast<__m128i*>(to + 16);
  if constexpr (Words == 6) _mm_storel_epi64(rest, block.part[1]);
  if constexpr (Words == 8) _mm_storeu_si128(rest, block.part[1]);
}

template <int Words>
QEL_AESNI Block<Words> LoadKey(const std::uint32_t* row) {
  const __m128i turn = _mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3);
  Block<Words> key;
  for (int i = 0; i < RegistersOf(Words); ++i) {
    key.part[i] = _mm_shuffle_epi8(Load(row + std::ptrdiff_t{4} * i), turn);
  }
  return key;
}

template <int Words>
QEL_AESNI Block<Words> Xor(const Block<Words>& a, const Block<Words>& b) {
  Block<Words> result;
  for (int i = 0; i < RegistersOf(Words); ++i) {
    result.part[i] = _mm_xor_si128(a.part[i], b.part[i]);
  }
  return result;
}

template <int Words, bool Forwards>
QEL_AESNI Block<Words> Place(const Block<Words>& block) {
  if constexpr (Words == 4) {
    return block;
  } else {
    Block<Words> placed;
    for (int to = 0; to < 2; ++to) {
      const auto& shuffles = Shuffles<Words, Forwards>::k[to];
      placed.part[to] = _mm_or_si128(_mm_shuffle_epi8(block.part[0], Load(&shuffles[0])),
                                     _mm_shuffle_epi8(block.part[1], Load(&shuffles[1])));
    }
    return placed;
  }
}

template <int Words, bool Forwards>
QEL_AESNI void Round(Block<Words>& block, const Block<Words>& key) {
  block = Place<Words, Forwards>(block);
  for (int i = 0; i < RegistersOf(Words); ++i) {
    block.part[i] = Forwards ? _mm_aesenc_si128(block.part[i], key.part[i])
                             : _mm_aesdec_si128(block.part[i], key.part[i]);
  }
}

template <int Words, bool Forwards>
QEL_AESNI void LastRound(Block<Words>& block, const Block<Words>& key) {
  block = Place<Words, Forwards>(block);
  for (int i = 0; i < RegistersOf(Words); ++i) {
    block.part[i] = Forwards ? _mm_aesenclast_si128(block.part[i], key.part[i])
                             : _mm_aesdeclast_si128(block.part[i], key.part[i]);
  }
}

template <int Words, bool Forwards, int Count>
QEL_AESNI void Cipher(const RijndaelJob& job, Block<Words> (&blocks)[Count]) {
  const Block<Words> first = LoadKey<Words>(job.keys[0]);
  for (auto& block : blocks) block = Xor(block, first);
  for (int round = 1; round < job.rounds; ++round) {
    const Block<Words> key = LoadKey<Words>(job.keys[round]);
    for (auto& block : blocks) Round<Words, Forwards>(block, key);
  }
  const Block<Words> last = LoadKey<Words>(job.keys[job.rounds]);
  for (auto& block : blocks) LastRound<Words, Forwards>(block, last);
}

// `Count` blocks of a task that isn't chained; `before` is the ciphertext before them.
template <int Words, Task What, int Count>
QEL_AESNI void Together(const RijndaelJob& job, const std::uint8_t* in, std::uint8_t* out,
                        Block<Words>& before) {
  Block<Words> given[Count];
  Block<Words> state[Count];
  for (int i = 0; i < Count; ++i) given[i] = LoadBlock<Words>(in + kSize<Words> * i);
  for (int i = 0; i < Count; ++i) {
    state[i] = What != Task::CfbDecrypt ? given[i] : i == 0 ? before : given[i - 1];
  }
  Cipher<Words, RunsForwards(What)>(job, state);
  for (int i = 0; i < Count; ++i) {
    if constexpr (What == Task::CbcDecrypt)
      state[i] = Xor(state[i], i == 0 ? before : given[i - 1]);
    if constexpr (What == Task::CfbDecrypt) state[i] = Xor(state[i], given[i]);
    StoreBlock(out + kSize<Words> * i, state[i]);
  }
  before = given[Count - 1];
}

template <int Words, Task What>
QEL_AESNI_TARGET void RunTogether(const RijndaelJob& job) {
  constexpr int kCount = Words == 4 ? 8 : 4;
  const std::uint8_t* in = job.in;
  std::uint8_t* out = job.out;
  std::size_t left = job.blocks;
  Block<Words> before = LoadBlock<Words>(job.chain);
  for (; left >= kCount;
       left -= kCount, in += kCount * kSize<Words>, out += kCount * kSize<Words>) {
    Together<Words, What, kCount>(job, in, out, before);
  }
  if (left >= kCount / 2) {
    Together<Words, What, kCount / 2>(job, in, out, before);
    left -= kCount / 2;
    in += kCount / 2 * kSize<Words>;
    out += kCount / 2 * kSize<Words>;
  }
  for (; left != 0; --left, in += kSize<Words>, out += kSize<Words>) {
    Together<Words, What, 1>(job, in, out, before);
  }
  if constexpr (What == Task::CbcDecrypt || What == Task::CfbDecrypt) {
    StoreBlock(job.chain, before);
  }
}

// The chain is the only thing that a block waits for, so nothing stands in it but the rounds: the
// last one's key brings in what the next first round needs.
template <int Words, Task What>
QEL_AESNI_TARGET void RunChained(const RijndaelJob& job) {
  constexpr bool kCbc = What == Task::CbcEncrypt;
  const Block<Words> first = LoadKey<Words>(job.keys[0]);
  const Block<Words> last = LoadKey<Words>(job.keys[job.rounds]);
  const std::uint8_t* const end = job.in + kSize<Words> * job.blocks;
  std::uint8_t* out = job.out;

  Block<Words> state = Xor(LoadBlock<Words>(job.chain), first);
  if constexpr (kCbc) state = Xor(state, LoadBlock<Words>(job.in));
  for (const std::uint8_t* in = job.in; in != end; in += kSize<Words>, out += kSize<Words>) {
    for (int round = 1; round < job.rounds; ++round) {
      Round<Words, true>(state, LoadKey<Words>(job.keys[round]));
    }
    // CBC: the result is the ciphertext XOR `added`, its next plaintext; CFB: the ciphertext
    // itself.
    Block<Words> added = first;
    if constexpr (kCbc) {
      if (in + kSize<Words> != end) added = Xor(added, LoadBlock<Words>(in + kSize<Words>));
      LastRound<Words, true>(state, Xor(last, added));
    } else {
      LastRound<Words, true>(state, Xor(last, Xor(added, LoadBlock<Words>(in))));
    }
    StoreBlock(out, Xor(state, added));
  }
  StoreBlock(job.chain, Xor(state, first));
}

template <int Words>
void Run(const RijndaelJob& job) {
  switch (job.task) {
    case Task::EcbEncrypt:
      return RunTogether<Words, Task::EcbEncrypt>(job);
    case Task::EcbDecrypt:
      return RunTogether<Words, Task::EcbDecrypt>(job);
    case Task::CbcDecrypt:
      return RunTogether<Words, Task::CbcDecrypt>(job);
    case Task::CfbDecrypt:
      return RunTogether<Words, Task::CfbDecrypt>(job);
    case Task::CbcEncrypt:
      return RunChained<Words, Task::CbcEncrypt>(job);
    case Task::CfbEncrypt:
      return RunChained<Words, Task::CfbEncrypt>(job);
  }
}

}  // namespace

void RunAesni(const RijndaelJob& job) {
  switch (job.block_size) {
    case 16:
      return Run<4>(job);
    case 24:
      return Run<6>(job);
    default:
      return Run<8>(job);
  }
}

}  // namespace qel::checks

#endif
