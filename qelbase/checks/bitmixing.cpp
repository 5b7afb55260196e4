#include "qelbase/checks/bitmixing.h"

#include <cstddef>
#include <utility>

#include "qelbase/checks/bitmixing_internal.h"
#include "qelbase/checks/bytes_internal.h"
#include "qelbase/checks/processor_internal.h"

using namespace qel::checks;  // NOLINT: this file is the outside of that arithmetic

namespace {

// The form of any width.
constexpr std::uint64_t kAddend = 46923;
constexpr std::uint64_t kMasks[2] = {0xBAA968874B0F3B58, 0x01E17D32C874F0C3};
constexpr std::uint32_t kMaxBits = 63;

constexpr std::pair<int, int> kSwaps[] = {{1, 7}, {5, 10}, {8, 15}, {2, 13}};

ulong128 SwapBytes(ulong128 value) {
  for (const auto& [a, b] : kSwaps) std::swap(value.bytes[a], value.bytes[b]);
  return value;
}

std::uint32_t WordOf(const ulong128& value, int i) {
  return LoadLittle32(value.bytes + std::ptrdiff_t{4} * i);
}

void SetWord(ulong128& value, int i, std::uint32_t word) {
  StoreLittle32(value.bytes + std::ptrdiff_t{4} * i, word);
}

std::size_t EncryptRegisters(std::uint8_t* data, std::size_t words, std::uint32_t factor) {
#if defined(__x86_64__)
  if (Has(kAvx512 | kGfni)) return MixForwardsAvx512(data, words, factor);
  if (Has(kAvx2)) return MixForwardsAvx2(data, words, factor);
#endif
  return 0;
}

std::size_t DecryptRegisters(std::uint8_t* data, std::size_t words, std::uint32_t inverse) {
#if defined(__x86_64__)
  if (Has(kAvx512 | kGfni)) return MixBackwardsAvx512(data, words, inverse);
  if (Has(kAvx2)) return MixBackwardsAvx2(data, words, inverse);
#endif
  return 0;
}

// The last 0 to 3 bytes of a buffer: a piece of 16 bits, then one of 8.
template <typename Mix16, typename Mix8>
void MixRest(std::uint8_t* data, std::size_t length, std::uint32_t key, Mix16 mix16, Mix8 mix8) {
  if (length >= 2) {
    const std::uint16_t mixed = mix16(static_cast<std::uint16_t>(data[0] | data[1] << 8), key);
    data[0] = static_cast<std::uint8_t>(mixed);
    data[1] = static_cast<std::uint8_t>(mixed >> 8);
    data += 2;
  }
  if (length % 2 != 0) *data = mix8(*data, key);
}

}  // namespace

namespace qel::checks {

std::uint8_t Decrypt8(std::uint8_t value, std::uint32_t key) {
  return MixBackwards(value, MixKey<std::uint8_t>(key).inverse);
}

std::uint16_t Encrypt16(std::uint16_t value, std::uint32_t key) {
  return MixForwards(value, MixKey<std::uint16_t>(key).factor);
}

std::uint16_t Decrypt16(std::uint16_t value, std::uint32_t key) {
  return MixBackwards(value, MixKey<std::uint16_t>(key).inverse);
}

}  // namespace qel::checks

std::uint8_t Encrypt(std::uint8_t value, std::uint32_t key) {
  return MixForwards(value, MixKey<std::uint8_t>(key).factor);
}

std::uint32_t Encrypt(std::uint32_t value, std::uint32_t key) {
  return MixForwards(value, MixKey<std::uint32_t>(key).factor);
}

std::uint32_t Decrypt(std::uint32_t value, std::uint32_t key) {
  return MixBackwards(value, MixKey<std::uint32_t>(key).inverse);
}

std::uint64_t Encrypt(std::uint64_t value, std::uint32_t bits, std::uint64_t key) {
  if (bits > kMaxBits) return 0;
  const std::uint64_t mask = (std::uint64_t{1} << bits) - 1;
  std::uint64_t x = (value & mask) * kMultiplier + kAddend;
  x = ReverseBits(x, bits);
  x = (x ^ kMasks[0]) & mask;
  x = (x * MakeOdd(key) + kAddend) & mask;
  x = (x ^ kMasks[1]) & mask;
  x = x * kMultiplier + kAddend;
  return ReverseBits(x, bits);
}

std::uint64_t Decrypt(std::uint64_t value, std::uint32_t bits, std::uint64_t key) {
  if (bits > kMaxBits) return 0;
  const std::uint64_t mask = (std::uint64_t{1} << bits) - 1;
  std::uint64_t x = ReverseBits(value, bits);
  x = SeriesDivide(x - kAddend, kMultiplier - 1);
  x = (x ^ kMasks[1]) & mask;
  x = SeriesDivide(x - kAddend, MakeOdd(key) - 1);
  x = (x ^ kMasks[0]) & mask;
  x = ReverseBits(x, bits);
  return SeriesDivide(x - kAddend, kMultiplier - 1) & mask;
}

void Encrypt(std::uint8_t* data, std::uint64_t length, std::uint32_t key) {
  const MixKey<std::uint32_t> word_key(key);
  const std::size_t words = length / 4;
  for (std::size_t i = EncryptRegisters(data, words, word_key.factor); i < words; ++i) {
    StoreLittle32(data + 4 * i, MixForwards(LoadLittle32(data + 4 * i), word_key.factor));
  }
  MixRest(data + 4 * words, length % 4, key, Encrypt16,
          [](std::uint8_t value, std::uint32_t k) { return Encrypt(value, k); });
}

void Decrypt(std::uint8_t* data, std::uint64_t length, std::uint32_t key) {
  const MixKey<std::uint32_t> word_key(key);
  const std::size_t words = length / 4;
  for (std::size_t i = DecryptRegisters(data, words, word_key.inverse); i < words; ++i) {
    StoreLittle32(data + 4 * i, MixBackwards(LoadLittle32(data + 4 * i), word_key.inverse));
  }
  MixRest(data + 4 * words, length % 4, key, Decrypt16, Decrypt8);
}

ulong128 Encrypt(ulong128 value) {
  value = SwapBytes(value);
  std::uint32_t key = 0;
  for (int i = 3; i >= 0; --i) {
    key = Encrypt(WordOf(value, i), key);
    SetWord(value, i, key);
  }
  return value;
}

ulong128 Decrypt(ulong128 value) {
  for (int i = 0; i <= 3; ++i) {
    const std::uint32_t key = i < 3 ? WordOf(value, i + 1) : 0;
    SetWord(value, i, Decrypt(WordOf(value, i), key));
  }
  return SwapBytes(value);
}

std::uint32_t StringToULong(const char* text) {
  std::uint32_t hash = 0x4B0F3B58;
  std::uint32_t last_bytes = 0xBAA96887;
  for (; *text != '\0'; ++text) {
    last_bytes = last_bytes * 256 + static_cast<std::uint32_t>(static_cast<signed char>(*text));
    hash = Encrypt(hash, last_bytes);
  }
  return hash;
}
