// Rijndael in 512-bit registers, for tasks that can have many blocks in flight: four blocks of 16
// bytes a register, or two larger ones, each in a half of its own.
#if defined(__x86_64__)

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "qelbase/checks/rijndael_internal.h"

// g++ 12 takes the undefined registers inside its own intrinsics for a fault.
#pragma GCC diagnostic ignored "-Wuninitialized"
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#define QEL_VAES_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,vaes")))
#define QEL_VAES \
  __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,vaes"), always_inline)) inline

namespace qel::checks {

namespace {

template <int Words>
constexpr std::size_t kBlocksInRegister = Words == 4 ? 4 : 2;

template <int Words>
constexpr std::size_t kBytesInRegister = kBlocksInRegister<Words> * 4 * Words;

// Puts the bytes of larger blocks where the rows' shifts of the instructions, which know four
// columns, bring them to the right place.
template <int Words, bool Forwards>
constexpr std::array<std::uint8_t, 64> MakeShuffle() {
  std::array<std::uint8_t, 64> shuffle{};
  for (int at = 0; at < 64; ++at) {
    const int row = at % 4;
    const int sign = Forwards ? 1 : -1;
    const int quarter = at / 16 % 2;
    const int column = 4 * quarter + (at / 4 % 4 - sign * row + 8) % 4;
    const int source = (column + sign * ShiftOf(Words, row) + 2 * Words) % Words;
    shuffle[at] = static_cast<std::uint8_t>(at / 32 * 32 + 4 * source + row);
  }
  return shuffle;
}

template <int Words, bool Forwards>
alignas(64) constexpr std::array<std::uint8_t, 64> kShuffle = MakeShuffle<Words, Forwards>();

// The blocks of 24 bytes move apart into their halves, and together again.
alignas(64) constexpr std::uint64_t kApart[8] = {0, 1, 2, 7, 3, 4, 5, 7};
alignas(64) constexpr std::uint64_t kJoined[8] = {0, 1, 2, 4, 5, 6, 7, 7};

QEL_VAES __mmask64 MaskOf(std::size_t bytes) {
  return ~__mmask64{0} >> (64 - bytes);
}

template <int Words>
QEL_VAES __m512i LoadBlocks(const std::uint8_t* from, std::size_t bytes) {
  const __m512i blocks = _mm512_maskz_loadu_epi8(MaskOf(bytes), from);
  if constexpr (Words == 6) return _mm512_permutexvar_epi64(_mm512_load_si512(kApart), blocks);
  return blocks;
}

template <int Words>
QEL_VAES void StoreBlocks(std::uint8_t* to, __m512i blocks, std::size_t bytes) {
  if constexpr (Words == 6) {
    blocks = _mm512_permutexvar_epi64(_mm512_load_si512(kJoined), blocks);
  }
  _mm512_mask_storeu_epi8(to, MaskOf(bytes), blocks);
}

// A register whose last block is the one at `from`.
template <int Words>
QEL_VAES __m512i LoadLast(const std::uint8_t* from) {
  const __m512i block = _mm512_maskz_loadu_epi8(MaskOf(4 * Words), from);
  return Words == 4 ? _mm512_shuffle_i64x2(block, block, 0x00)
                    : _mm512_shuffle_i64x2(block, block, 0x44);
}

// What stood one block before each block of `blocks`.
template <int Words>
QEL_VAES __m512i OneBefore(__m512i blocks, __m512i before) {
  return _mm512_alignr_epi64(blocks, before, Words == 4 ? 6 : 4);
}

template <int Words>
QEL_VAES __m512i LoadKey(const std::uint32_t* row) {
  const __m512i turn =
      _mm512_broadcast_i32x4(_mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3));
  __m512i key;
  if constexpr (Words == 4) {
    key = _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(row)));
  } else {
    key = _mm512_broadcast_i64x4(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(row)));
  }
  return _mm512_shuffle_epi8(key, turn);
}

template <int Words, bool Forwards>
QEL_VAES __m512i Place(__m512i state) {
  if constexpr (Words == 4) return state;
  const __m512i shuffle = _mm512_load_si512(kShuffle<Words, Forwards>.data());
  return _mm512_permutexvar_epi8(shuffle, state);
}

template <int Words, bool Forwards, int Count>
QEL_VAES void Cipher(const RijndaelJob& job, __m512i (&states)[Count]) {
  const __m512i first = LoadKey<Words>(job.keys[0]);
  for (auto& state : states) state = _mm512_xor_si512(state, first);
  for (int round = 1; round < job.rounds; ++round) {
    const __m512i key = LoadKey<Words>(job.keys[round]);
    for (auto& state : states) {
      state = Place<Words, Forwards>(state);
      state = Forwards ? _mm512_aesenc_epi128(state, key) : _mm512_aesdec_epi128(state, key);
    }
  }
  const __m512i last = LoadKey<Words>(job.keys[job.rounds]);
  for (auto& state : states) {
    state = Place<Words, Forwards>(state);
    state =
        Forwards ? _mm512_aesenclast_epi128(state, last) : _mm512_aesdeclast_epi128(state, last);
  }
}

// `Count` registers of blocks, each of `bytes` bytes; `before` ends with the ciphertext before
// them.
template <int Words, Task What, int Count>
QEL_VAES void Together(const RijndaelJob& job, const std::uint8_t* in, std::uint8_t* out,
                       std::size_t bytes, __m512i& before) {
  constexpr std::size_t kStep = kBytesInRegister<Words>;
  __m512i given[Count];
  __m512i state[Count];
  for (int i = 0; i < Count; ++i) given[i] = LoadBlocks<Words>(in + kStep * i, bytes);
  for (int i = 0; i < Count; ++i) {
    const __m512i left = i == 0 ? before : given[i - 1];
    state[i] = What == Task::CfbDecrypt ? OneBefore<Words>(given[i], left) : given[i];
  }
  Cipher<Words, RunsForwards(What)>(job, state);
  for (int i = 0; i < Count; ++i) {
    const __m512i left = i == 0 ? before : given[i - 1];
    if constexpr (What == Task::CbcDecrypt) {
      state[i] = _mm512_xor_si512(state[i], OneBefore<Words>(given[i], left));
    }
    if constexpr (What == Task::CfbDecrypt) state[i] = _mm512_xor_si512(state[i], given[i]);
    StoreBlocks<Words>(out + kStep * i, state[i], bytes);
  }
  before = given[Count - 1];
}

template <int Words, Task What>
QEL_VAES_TARGET void RunTogether(const RijndaelJob& job) {
  constexpr int kCount = 8;
  constexpr std::size_t kStep = kBytesInRegister<Words>;
  const std::uint8_t* in = job.in;
  std::uint8_t* out = job.out;
  std::size_t left = job.blocks * 4 * Words;
  std::uint8_t last[4 * Words];
  std::memcpy(last, in + left - sizeof last, sizeof last);
  __m512i before = LoadLast<Words>(job.chain);
  for (; left >= kCount * kStep;
       left -= kCount * kStep, in += kCount * kStep, out += kCount * kStep) {
    Together<Words, What, kCount>(job, in, out, kStep, before);
  }
  while (left != 0) {
    const std::size_t bytes = std::min(left, kStep);
    Together<Words, What, 1>(job, in, out, bytes, before);
    left -= bytes;
    in += bytes;
    out += bytes;
  }
  if constexpr (What == Task::CbcDecrypt || What == Task::CfbDecrypt) {
    std::memcpy(job.chain, last, sizeof last);
  }
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
    case Task::CfbEncrypt:
      return RunAesni(job);
  }
}

}  // namespace

void RunVaes(const RijndaelJob& job) {
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
