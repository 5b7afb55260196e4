#pragma once
// The stream cipher RC4.

#include <cstdint>

#include "qelbase/export.h"

// The generator's permutation and its two indexes. The caller guards it against other threads, and
// wipes it when it is done (`explicit_bzero`).
struct rc4_key {
  std::uint8_t state[256];
  std::uint8_t x;
  std::uint8_t y;
};

// Makes `out` ready from a key of 1 to 65535 bytes, of which the first 256 count.
QELBASE_API void prepare_key(const unsigned char* key, std::uint16_t key_length, rc4_key* out);

// Enciphers or deciphers `length` bytes in place, and moves `key` on: a stream may be split over
// calls at any place. The time depends on key and data, by way of the processor's cache.
QELBASE_API void rc4(unsigned char* data, std::uint64_t length, rc4_key* key);
