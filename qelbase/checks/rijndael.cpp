// The portable form: four tables a direction, see FIPS 197 and the AES submission for its blocks of
// 24 and 32 bytes.
#include <cstring>

#include "qelbase/checks/bytes_internal.h"
#include "qelbase/checks/processor_internal.h"
#include "qelbase/checks/rijndael_internal.h"
#include "qelbase/checks/rijndael_tables_internal.h"

namespace qel::checks {

namespace {

using Word = std::uint32_t;

constexpr std::uint8_t ByteOf(Word word, int row) {
  return static_cast<std::uint8_t>(word >> (24 - 8 * row));
}

// The column of the state from which row `row` of column `column` comes.
template <int Words, bool Forwards>
constexpr int SourceOf(int column, int row) {
  const int shift = ShiftOf(Words, row);
  return (column + (Forwards ? shift : Words - shift)) % Words;
}

template <int Words, bool Forwards>
__attribute__((always_inline)) inline Word MixedColumn(const Word* state, int column) {
  const auto& tables = Forwards ? kRijndael.encrypt : kRijndael.decrypt;
  Word result = 0;
#pragma GCC unroll 4
  for (int row = 0; row < 4; ++row) {
    result ^= tables[row][ByteOf(state[SourceOf<Words, Forwards>(column, row)], row)];
  }
  return result;
}

// The last round does not mix columns.
template <int Words, bool Forwards>
__attribute__((always_inline)) inline Word LastColumn(const Word* state, int column) {
  const auto& box = Forwards ? kRijndael.sbox : kRijndael.inverse_sbox;
  Word result = 0;
  for (int row = 0; row < 4; ++row) {
    result = result << 8 | box[ByteOf(state[SourceOf<Words, Forwards>(column, row)], row)];
  }
  return result;
}

template <int Words, bool Forwards>
__attribute__((always_inline)) inline void Round(const Word (&state)[Words], const Word* key,
                                                 Word (&next)[Words]) {
#pragma GCC unroll 8
  for (int i = 0; i < Words; ++i) next[i] = MixedColumn<Words, Forwards>(state, i) ^ key[i];
}

// The number of rounds is even with every size: they are run in pairs.
template <int Words, bool Forwards>
void Cipher(const RijndaelJob& job, const std::uint8_t* in, std::uint8_t* out) {
  Word state[Words];
  Word next[Words];
  for (int i = 0; i < Words; ++i) state[i] = LoadBig32(in + 4 * i) ^ job.keys[0][i];
  for (int round = 1; round < job.rounds - 1; round += 2) {
    Round<Words, Forwards>(state, job.keys[round], next);
    Round<Words, Forwards>(next, job.keys[round + 1], state);
  }
  Round<Words, Forwards>(state, job.keys[job.rounds - 1], next);
#pragma GCC unroll 8
  for (int i = 0; i < Words; ++i) {
    StoreBig32(out + 4 * i, LastColumn<Words, Forwards>(next, i) ^ job.keys[job.rounds][i]);
  }
}

template <int Words>
void Xor(std::uint8_t* into, const std::uint8_t* from) {
  for (int i = 0; i < 4 * Words; ++i) into[i] ^= from[i];
}

template <int Words>
void RunPortable(const RijndaelJob& job) {
  constexpr std::size_t kSize = 4 * Words;
  auto* const block = reinterpret_cast<std::uint8_t*>(job.work);
  const std::uint8_t* in = job.in;
  std::uint8_t* out = job.out;
  for (std::size_t i = 0; i < job.blocks; ++i, in += kSize, out += kSize) {
    switch (job.task) {
      case Task::EcbEncrypt:
        Cipher<Words, true>(job, in, out);
        break;
      case Task::EcbDecrypt:
        Cipher<Words, false>(job, in, out);
        break;
      case Task::CbcEncrypt:
        Xor<Words>(job.chain, in);
        Cipher<Words, true>(job, job.chain, out);
        std::memcpy(job.chain, out, kSize);
        break;
      case Task::CbcDecrypt:
        std::memcpy(block, in, kSize);
        Cipher<Words, false>(job, in, out);
        Xor<Words>(out, job.chain);
        std::memcpy(job.chain, block, kSize);
        break;
      case Task::CfbEncrypt:
        Cipher<Words, true>(job, job.chain, block);
        Xor<Words>(block, in);
        std::memcpy(out, block, kSize);
        std::memcpy(job.chain, block, kSize);
        break;
      case Task::CfbDecrypt:
        Cipher<Words, true>(job, job.chain, block);
        std::memcpy(job.chain, in, kSize);
        Xor<Words>(block, job.chain);
        std::memcpy(out, block, kSize);
        break;
    }
  }
}

}  // namespace

void RunRijndael(const RijndaelJob& job) {
#if defined(__x86_64__)
  if (Has(kAes | kSse41)) {
    constexpr std::size_t kWorthWide = 8;
    const bool wide =
        !IsChained(job.task) && job.blocks >= kWorthWide && Has(kVaes | kAvx512 | kVbmi);
    return wide ? RunVaes(job) : RunAesni(job);
  }
#endif
  switch (job.block_size) {
    case 16:
      return RunPortable<4>(job);
    case 24:
      return RunPortable<6>(job);
    default:
      return RunPortable<8>(job);
  }
}

}  // namespace qel::checks
