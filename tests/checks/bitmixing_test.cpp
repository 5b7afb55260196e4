// The bit mixing against a slow model that walks through its steps one by one.
#include "qelbase/checks/bitmixing.h"

#include <gtest/gtest.h>

#include <cstring>

#include "qelbase/checks/bitmixing_internal.h"

#include "tests/checks/Ways.h"

namespace {

using qeltest::byEachWay;
using qeltest::Bytes;
using qeltest::noise;
using u64 = std::uint64_t;

// The steps of one width: what is XORed, multiplied and added, in their order.
struct Model {
  unsigned bits;
  u64 masks[4];
  u64 multiplier;
  u64 addend;
  u64 key;  // odd

  u64 cut(u64 x) const { return x & ((u64{1} << bits) - 1); }
  u64 reverse(u64 x) const {
    u64 result = 0;
    for (unsigned i = 0; i < bits; ++i) result |= (x >> i & 1) << (bits - 1 - i);
    return result;
  }
  u64 divide(u64 y, u64 factor) const {
    u64 sum = 0;
    u64 term = cut(y);
    for (int i = 0; term != 0; ++i) {
      sum = i % 2 == 0 ? sum + term : sum - term;
      term = cut(term * cut(factor - 1));
    }
    return cut(sum);
  }
  u64 encrypt(u64 x) const {
    x = reverse(cut(cut(x ^ masks[0]) * multiplier + addend));
    x = cut(x ^ masks[1]);
    x = cut(x * key + addend);
    x = cut(x ^ masks[2]);
    return cut(reverse(cut(x * multiplier + addend)) ^ masks[3]);
  }
  u64 decrypt(u64 x) const {
    x = divide(reverse(cut(x ^ masks[3])) - addend, multiplier);
    x = divide((x ^ masks[2]) - addend, key);
    x = divide(reverse(cut(x ^ masks[1])) - addend, multiplier);
    return cut(x ^ masks[0]);
  }
};

template <typename Key>
Key odd(Key key) {
  return key % 2 ? key : static_cast<Key>(key + 1664525);
}

Model model8(std::uint32_t key) {
  return {8, {0x87, 0x58, 0x2C, 0xC3}, 13, 185, odd(key) & 0xFF};
}
Model model16(std::uint32_t key) {
  return {16, {0x6887, 0x3B58, 0xD32C, 0xF0C3}, 26125, 46923, odd(key) & 0xFFFF};
}
Model model32(std::uint32_t key) {
  return {32, {0xBAA96887, 0x4B0F3B58, 0x1E17D32C, 0x0874F0C3}, 1664525, 1013904223, odd(key)};
}
Model modelOf(unsigned bits, u64 key) {
  Model model{bits, {0, 0xBAA968874B0F3B58, 0x01E17D32C874F0C3, 0}, 1664525, 46923, odd(key)};
  model.multiplier = model.cut(model.multiplier);
  model.key = model.cut(model.key);
  return model;
}

constexpr std::uint32_t kKeys[] = {0,       1,          2,          256,       1664525,
                                   1664526, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};

TEST(BitMixing, GivesTheFixedValues) {
  EXPECT_EQ(StringToULong(""), 0x4B0F3B58u);
  EXPECT_EQ(StringToULong("abc"), 0x49ACE804u);
  // A byte above 0x7F lowers the sum.
  EXPECT_EQ(StringToULong("\xE9"), model32(0xBAA96887u * 256 - 23).encrypt(0x4B0F3B58));
  ulong128 value;
  for (int i = 0; i < 16; ++i) value.bytes[i] = static_cast<std::uint8_t>(i);
  const ulong128 mixed = Encrypt(value);
  const Bytes expected = qeltest::fromHex("ffc7636a5cf111298a23fb03c7a08b2a");
  EXPECT_EQ(Bytes(mixed.bytes, mixed.bytes + 16), expected);
  const ulong128 back = Decrypt(mixed);
  EXPECT_EQ(std::memcmp(back.bytes, value.bytes, 16), 0);
}

TEST(BitMixing, FollowsItsStepsForEveryValueOf8And16Bits) {
  for (std::uint32_t key : kKeys) {
    const Model small = model8(key);
    const Model large = model16(key);
    for (std::uint32_t v = 0; v < 65536; ++v) {
      const auto v16 = static_cast<std::uint16_t>(v);
      ASSERT_EQ(qel::checks::Encrypt16(v16, key), large.encrypt(v));
      ASSERT_EQ(qel::checks::Decrypt16(v16, key), large.decrypt(v));
      if (v > 255) continue;
      const auto v8 = static_cast<std::uint8_t>(v);
      ASSERT_EQ(Encrypt(v8, key), small.encrypt(v));
      ASSERT_EQ(qel::checks::Decrypt8(v8, key), small.decrypt(v));
      ASSERT_EQ(small.decrypt(small.encrypt(v)), v);
    }
  }
}

TEST(BitMixing, FollowsItsStepsAtEveryWidth) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 20'000; ++i) {
    const u64 value = random();
    const u64 key = i < 9 ? kKeys[i] : random();
    const auto key32 = static_cast<std::uint32_t>(key);
    const auto value32 = static_cast<std::uint32_t>(value);
    ASSERT_EQ(Encrypt(value32, key32), model32(key32).encrypt(value32));
    ASSERT_EQ(Decrypt(value32, key32), model32(key32).decrypt(value32));
    const unsigned bits = 1 + i % 63;
    const Model model = modelOf(bits, key);
    ASSERT_EQ(Encrypt(value, bits, key), model.encrypt(value)) << bits;
    ASSERT_EQ(Decrypt(value, bits, key), model.decrypt(value)) << bits;
    ASSERT_EQ(Decrypt(Encrypt(value, bits, key), bits, key), model.cut(value));
  }
  for (unsigned bits : {0u, 64u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Encrypt(u64{5}, bits, u64{3}), 0u);
    EXPECT_EQ(Decrypt(u64{5}, bits, u64{3}), 0u);
  }
}

Bytes cutIntoPieces(Bytes bytes, std::uint32_t key) {
  std::size_t at = 0;
  while (at < bytes.size()) {
    const std::size_t left = bytes.size() - at;
    const std::size_t size = left >= 4 ? 4 : left >= 2 ? 2 : 1;
    u64 value = 0;
    std::memcpy(&value, &bytes[at], size);
    value = (size == 4 ? model32(key) : size == 2 ? model16(key) : model8(key)).encrypt(value);
    std::memcpy(&bytes[at], &value, size);
    at += size;
  }
  return bytes;
}

TEST(BitMixing, CutsBuffersInTheSameWayAtEveryAddress) {
  byEachWay([] {
    for (std::size_t size : {0, 1, 2, 3, 4, 5, 31, 32, 33, 63, 64, 67, 511, 512, 513, 1030}) {
      for (std::uint32_t key : {0u, 1u, 0xDEADBEEFu}) {
        const Bytes plain = noise(size);
        const Bytes mixed = cutIntoPieces(plain, key);
        for (std::size_t address = 0; address < 5; ++address) {
          Bytes room(size + 10, 0xEE);
          std::uint8_t* at = room.data() + address;
          std::copy(plain.begin(), plain.end(), at);
          Encrypt(at, size, key);
          ASSERT_EQ(Bytes(at, at + size), mixed) << size << " at " << address;
          Decrypt(at, size, key);
          ASSERT_EQ(Bytes(at, at + size), plain) << size << " at " << address;
          ASSERT_EQ(at[size], 0xEE);
        }
      }
    }
  });
}

}  // namespace
