#pragma once
// The library's own reversible mixing of integers and bytes, with a key.

#include <cstdint>

#include "qelbase/export.h"

// Sixteen bytes, seen as bytes from the lowest address on or as four little-endian words.
union ulong128 {
  std::uint8_t bytes[16];
  std::uint32_t words[4];
};

// The mixing keeps a glance out, not an attacker: it is no published cipher. All operations are
// pure functions, report no error, and may run on any thread at once. `Decrypt` undoes the
// `Encrypt` of the same form under the same key. A key is made odd first: an even key means key +
// 1664525.

QELBASE_API std::uint8_t Encrypt(std::uint8_t value, std::uint32_t key);

QELBASE_API std::uint32_t Encrypt(std::uint32_t value, std::uint32_t key);
QELBASE_API std::uint32_t Decrypt(std::uint32_t value, std::uint32_t key);

// The low `bits` bits of `value`, for a width of 1 to 63; higher bits play no part. Widths of 8, 16
// and 32 are other functions than the forms above. A width of 0, or above 63, gives 0.
QELBASE_API std::uint64_t Encrypt(std::uint64_t value, std::uint32_t bits, std::uint64_t key);
QELBASE_API std::uint64_t Decrypt(std::uint64_t value, std::uint32_t bits, std::uint64_t key);

// In place: little-endian words of 32 bits from the start on, each for itself, then a piece of 16
// and one of 8 bits as far as bytes remain. The address plays no part. Equal words give equal
// words.
QELBASE_API void Encrypt(std::uint8_t* data, std::uint64_t length, std::uint32_t key);
QELBASE_API void Decrypt(std::uint8_t* data, std::uint64_t length, std::uint32_t key);

// Without a key: each word is the key of the next lower one.
QELBASE_API ulong128 Encrypt(ulong128 value);
QELBASE_API ulong128 Decrypt(ulong128 value);

// A hash of zero-terminated text: "" gives 0x4B0F3B58, "abc" 0x49ACE804.
QELBASE_API std::uint32_t StringToULong(const char* text);
