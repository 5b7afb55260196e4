#pragma once
// Runs of Rijndael blocks.

#include <cstddef>
#include <cstdint>

namespace qel::checks {

enum class Task { EcbEncrypt, EcbDecrypt, CbcEncrypt, CbcDecrypt, CfbEncrypt, CfbDecrypt };

// CFB runs the cipher forwards both ways.
constexpr bool RunsForwards(Task task) {
  return task != Task::EcbDecrypt && task != Task::CbcDecrypt;
}

// Chained tasks need the result of one block to begin the next.
constexpr bool IsChained(Task task) {
  return task == Task::CbcEncrypt || task == Task::CfbEncrypt;
}

// How far row `row` of the state is shifted in blocks of `words` words.
constexpr int ShiftOf(int words, int row) {
  return words == 8 && row >= 2 ? row + 1 : row;
}

// One run. `in` and `out` are the same, or `out` begins before `in` or behind its end.
struct RijndaelJob {
  Task task;
  int block_size;  // bytes
  int rounds;
  const std::uint32_t (*keys)[8];  // a row a round; words hold their first byte at the top
  const std::uint8_t* in;
  std::uint8_t* out;
  std::size_t blocks;
  std::uint8_t* chain;       // one block; holds the last ciphertext afterwards
  std::uint32_t (*work)[8];  // for a block on its way
};

// Runs the job by the fastest way that the processor has.
void RunRijndael(const RijndaelJob& job);

#if defined(__x86_64__)
// Blocks of 16 bytes by the AES instructions; larger ones too, in two registers a block.
void RunAesni(const RijndaelJob& job);
// Tasks that are not chained, in 512-bit registers.
void RunVaes(const RijndaelJob& job);
#endif

}  // namespace qel::checks
