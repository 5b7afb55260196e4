#include "qelbase/checks/CRijndael.h"

#include <string.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>

#include "qelbase/checks/bytes_internal.h"
#include "qelbase/checks/rijndael_internal.h"
#include "qelbase/checks/rijndael_tables_internal.h"

using qel::checks::kRijndael;
using qel::checks::LoadBig32;
using qel::checks::RijndaelJob;
using qel::checks::Task;

namespace {

using Word = std::uint32_t;

constexpr std::uint8_t ByteOf(Word word, int row) {
  return static_cast<std::uint8_t>(word >> (24 - 8 * row));
}

bool IsSize(std::int32_t bytes) {
  return bytes == 16 || bytes == 24 || bytes == 32;
}

Word SubstituteWord(Word word) {
  Word result = 0;
  for (int row = 0; row < 4; ++row) result = result << 8 | kRijndael.sbox[ByteOf(word, row)];
  return result;
}

Word InverseMix(Word word) {
  Word result = 0;
  for (int row = 0; row < 4; ++row) result ^= kRijndael.inverse_mix[row][ByteOf(word, row)];
  return result;
}

}  // namespace

CRijndael::CRijndael() {
  Wipe();
}  // NOLINT: clears every field
CRijndael::CRijndael(const CRijndael& other) = default;
CRijndael& CRijndael::operator=(const CRijndael& other) = default;
CRijndael::~CRijndael() {
  Wipe();
}

void CRijndael::Wipe() {
  const auto wipe = [](auto&... fields) { (explicit_bzero(&fields, sizeof fields), ...); };
  wipe(m_has_key, m_encrypt_keys, m_decrypt_keys, m_key_length, m_block_size, m_rounds,
       m_initial_chain, m_chain, m_key_work, m_block_work);
}

void CRijndael::MakeKey(const void* key, const void* chain, std::int32_t key_length,
                        std::int32_t block_size) {
  if (!key) throw std::runtime_error("Empty key");
  if (!IsSize(key_length)) throw std::runtime_error("Incorrect key length");
  if (!IsSize(block_size)) throw std::runtime_error("Incorrect block length");

  Wipe();
  m_block_size = block_size;
  m_key_length = key_length;
  std::memcpy(m_initial_chain, chain, block_size);
  std::memcpy(m_chain, chain, block_size);
  m_rounds = std::max(key_length, block_size) / 4 + 6;
  ExpandKey(static_cast<const std::uint8_t*>(key));
  m_has_key = true;
}

void CRijndael::ExpandKey(const std::uint8_t* key) {
  const int key_words = m_key_length / 4;
  const int block_words = m_block_size / 4;
  const int all_words = (m_rounds + 1) * block_words;
  for (int i = 0; i < key_words; ++i) m_key_work[i] = LoadBig32(key + std::ptrdiff_t{4} * i);

  std::uint8_t round_constant = 1;
  for (int i = 0; i < all_words; ++i) {
    const int at = i % key_words;
    if (i >= key_words) {
      Word previous = m_key_work[(at + key_words - 1) % key_words];
      if (at == 0) {
        previous = SubstituteWord(std::rotl(previous, 8)) ^ Word { round_constant } << 24;
        round_constant = qel::checks::rijndael::Double(round_constant);
      } else if (key_words == 8 && at == 4) {
        previous = SubstituteWord(previous);
      }
      m_key_work[at] ^= previous;
    }
    const int round = i / block_words;
    const bool inner = round != 0 && round != m_rounds;
    m_encrypt_keys[round][i % block_words] = m_key_work[at];
    m_decrypt_keys[m_rounds - round][i % block_words] =
        inner ? InverseMix(m_key_work[at]) : m_key_work[at];
  }
}

void CRijndael::RequireKey() const {
  if (!m_has_key) throw std::runtime_error("Object not Initialized");
}

void CRijndael::EncryptBlock(const void* in, void* out) {
  RequireKey();
  EncryptBlocks(in, out, 1, ECB);
}

void CRijndael::DecryptBlock(const void* in, void* out) {
  RequireKey();
  DecryptBlocks(in, out, 1, ECB);
}

void CRijndael::Encrypt(const void* in, void* out, std::uint64_t length, std::int32_t mode) {
  RequireKey();
  EncryptBlocks(in, out, CountBlocks(length), mode);
}

void CRijndael::Decrypt(const void* in, void* out, std::uint64_t length, std::int32_t mode) {
  RequireKey();
  DecryptBlocks(in, out, CountBlocks(length), mode);
}

std::size_t CRijndael::CountBlocks(std::uint64_t length) const {
  if (length == 0 || length % static_cast<std::uint64_t>(m_block_size) != 0) {
    throw std::runtime_error("Data not multiple of Block Size");
  }
  const auto bytes = static_cast<std::int32_t>(length);
  return bytes > 0 ? static_cast<std::size_t>(bytes / m_block_size) : 0;
}

void CRijndael::EncryptBlocks(const void* in, void* out, std::size_t blocks, std::int32_t mode) {
  const Task task = mode == CBC   ? Task::CbcEncrypt
                    : mode == CFB ? Task::CfbEncrypt
                                  : Task::EcbEncrypt;
  qel::checks::RunRijndael({.task = task,
                            .block_size = m_block_size,
                            .rounds = m_rounds,
                            .keys = m_encrypt_keys,
                            .in = static_cast<const std::uint8_t*>(in),
                            .out = static_cast<std::uint8_t*>(out),
                            .blocks = blocks,
                            .chain = m_chain,
                            .work = m_block_work});
}

void CRijndael::DecryptBlocks(const void* in, void* out, std::size_t blocks, std::int32_t mode) {
  const Task task = mode == CBC   ? Task::CbcDecrypt
                    : mode == CFB ? Task::CfbDecrypt
                                  : Task::EcbDecrypt;
  qel::checks::RunRijndael({.task = task,
                            .block_size = m_block_size,
                            .rounds = m_rounds,
                            .keys = mode == CFB ? m_encrypt_keys : m_decrypt_keys,
                            .in = static_cast<const std::uint8_t*>(in),
                            .out = static_cast<std::uint8_t*>(out),
                            .blocks = blocks,
                            .chain = m_chain,
                            .work = m_block_work});
}
