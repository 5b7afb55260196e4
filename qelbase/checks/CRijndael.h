#pragma once
// The block cipher Rijndael with all its key and block sizes, in three chaining modes.

#include <cstddef>
#include <cstdint>

#include "qelbase/export.h"

// Keys and blocks of 16, 24 or 32 bytes; with blocks of 16 bytes this is AES (FIPS 197). Call
// `MakeKey`, then any number of block and data calls. Failures are thrown as `std::runtime_error`,
// with the texts told below.
//
// One object belongs to one thread at a time: even `EncryptBlock` writes to it. Keys and work areas
// are wiped by the destructor and before a new key. Nothing is allocated. On a processor with AES
// instructions the time of the block and data calls does not depend on key and data; without them,
// and in `MakeKey` always, tables are looked up.
class QELBASE_API CRijndael {
 public:
  // Of `Encrypt` and `Decrypt`; any other mode is ECB. In CFB a whole block is fed back.
  enum Mode : std::int32_t { ECB = 0, CBC = 1, CFB = 2 };

  CRijndael();
  CRijndael(const CRijndael& other);
  CRijndael& operator=(const CRijndael& other);
  virtual ~CRijndael();

  // `chain` is the initial chain block, of `block_size` bytes, and is not tested. Throws, in this
  // order, "Empty key", "Incorrect key length", "Incorrect block length"; an earlier key then
  // stays in force.
  void MakeKey(const void* key, const void* chain, std::int32_t key_length,
               std::int32_t block_size);

  // One block. `in` and `out` may be the same. Throw "Object not Initialized" before `MakeKey`.
  void EncryptBlock(const void* in, void* out);
  void DecryptBlock(const void* in, void* out);

  // Whole blocks, no padding; the chain goes on from the call before. `in` and `out` may be the
  // same, and `out` may begin before an overlapping `in`; it must not begin inside it. Throw
  // "Object not Initialized" and then "Data not multiple of Block Size", for a length of 0 too. The
  // number of blocks comes from the length cut to a signed 32-bit number: give less than 2 GiB at a
  // time.
  void Encrypt(const void* in, void* out, std::uint64_t length, std::int32_t mode = ECB);
  void Decrypt(const void* in, void* out, std::uint64_t length, std::int32_t mode = ECB);

 private:
  void ExpandKey(const std::uint8_t* key);
  void RequireKey() const;
  std::size_t CountBlocks(std::uint64_t length) const;
  void EncryptBlocks(const void* in, void* out, std::size_t blocks, std::int32_t mode);
  void DecryptBlocks(const void* in, void* out, std::size_t blocks, std::int32_t mode);
  void Wipe();

  static constexpr int kMaxRounds = 14;
  static constexpr int kMaxWords = 8;

  bool m_has_key;
  std::uint32_t m_encrypt_keys[kMaxRounds + 1][kMaxWords];
  std::uint32_t m_decrypt_keys[kMaxRounds + 1][kMaxWords];
  std::int32_t m_key_length;  // bytes
  std::int32_t m_block_size;  // bytes
  std::int32_t m_rounds;
  std::uint8_t m_initial_chain[32];
  std::uint8_t m_chain[32];
  std::uint32_t m_key_work[kMaxWords];
  std::uint32_t m_block_work[2][kMaxWords];
};
