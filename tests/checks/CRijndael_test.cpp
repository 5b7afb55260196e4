// Rijndael against FIPS 197, SP 800-38A and libmcrypt, which knows the larger blocks.
#include "qelbase/checks/CRijndael.h"

#include <gtest/gtest.h>
#include <mcrypt.h>

#include <cstring>
#include <new>
#include <stdexcept>

#include "tests/checks/Ways.h"

namespace {

using qeltest::byEachWay;
using qeltest::Bytes;
using qeltest::fromHex;
using qeltest::noise;

constexpr std::int32_t kSizes[] = {16, 24, 32};
constexpr std::int32_t kModes[] = {CRijndael::ECB, CRijndael::CBC, CRijndael::CFB};

struct Setting {
  std::int32_t key_length;
  std::int32_t block_size;
  std::int32_t mode;

  Bytes key() const { return noise(key_length, 3); }
  Bytes chain() const { return noise(block_size, 4); }
  CRijndael made() const {
    CRijndael cipher;
    cipher.MakeKey(key().data(), chain().data(), key_length, block_size);
    return cipher;
  }
};

void PrintTo(const Setting& s, std::ostream* out) {
  *out << "key " << s.key_length << " block " << s.block_size << " mode " << s.mode;
}

Bytes oracle(const Setting& s, const Bytes& plain) {
  char algorithm[32];
  std::snprintf(algorithm, sizeof algorithm, "rijndael-%d", 8 * s.block_size);
  char mode[][5] = {"ecb", "cbc", "ncfb"};
  const MCRYPT module = mcrypt_module_open(algorithm, nullptr, mode[s.mode], nullptr);
  if (module == MCRYPT_FAILED) throw std::runtime_error("no such cipher in libmcrypt");
  Bytes key = s.key();
  Bytes chain = s.chain();
  mcrypt_generic_init(module, key.data(), s.key_length, chain.data());
  Bytes result = plain;
  mcrypt_generic(module, result.data(), static_cast<int>(result.size()));
  mcrypt_generic_deinit(module);
  mcrypt_module_close(module);
  return result;
}

class RijndaelSetting : public testing::TestWithParam<Setting> {};

std::vector<Setting> allSettings() {
  std::vector<Setting> settings;
  for (auto key : kSizes) {
    for (auto block : kSizes) {
      for (auto mode : kModes) settings.push_back({key, block, mode});
    }
  }
  return settings;
}

INSTANTIATE_TEST_SUITE_P(All, RijndaelSetting, testing::ValuesIn(allSettings()));

// Every number of blocks around what is done at once, in one call and in two, in place and not.
TEST_P(RijndaelSetting, AgreesWithLibmcryptForAnyNumberOfBlocksAndSplit) {
  const Setting s = GetParam();
  byEachWay([&] {
    for (int blocks = 1; blocks < 80; blocks += blocks < 40 ? 1 : 13) {
      const std::size_t size = static_cast<std::size_t>(blocks) * s.block_size;
      const std::size_t split = static_cast<std::size_t>(blocks / 3) * s.block_size;
      const Bytes plain = noise(size);
      const Bytes expected = oracle(s, plain);
      Bytes mixed(size + 1, 0xEE);
      CRijndael(s.made()).Encrypt(plain.data(), mixed.data(), size, s.mode);
      ASSERT_EQ(mixed.back(), 0xEE);
      mixed.pop_back();
      ASSERT_EQ(mixed, expected) << blocks;

      CRijndael forth = s.made();
      CRijndael back = s.made();
      Bytes in_place = plain;
      if (split != 0) forth.Encrypt(in_place.data(), in_place.data(), split, s.mode);
      forth.Encrypt(in_place.data() + split, in_place.data() + split, size - split, s.mode);
      ASSERT_EQ(in_place, expected) << blocks;
      if (split != 0) back.Decrypt(in_place.data(), in_place.data(), split, s.mode);
      back.Decrypt(in_place.data() + split, in_place.data() + split, size - split, s.mode);
      ASSERT_EQ(in_place, plain) << blocks;
    }
  });
}

TEST_P(RijndaelSetting, MayWriteBeforeAnOverlappingInput) {
  const Setting s = GetParam();
  byEachWay([&] {
    const std::size_t size = 70 * s.block_size;
    Bytes room(size + 5);
    Bytes mixed = oracle(s, noise(size));
    std::copy(mixed.begin(), mixed.end(), room.begin() + 5);
    s.made().Decrypt(room.data() + 5, room.data(), size, s.mode);
    EXPECT_EQ(Bytes(room.begin(), room.end() - 5), noise(size));
  });
}

TEST_P(RijndaelSetting, CarriesTheChainFromCallToCall) {
  const Setting s = GetParam();
  const Bytes plain = noise(4 * s.block_size);
  CRijndael cipher = s.made();
  Bytes first(plain.size());
  Bytes second(plain.size());
  cipher.Encrypt(plain.data(), first.data(), plain.size(), s.mode);
  CRijndael copy(cipher);
  cipher.Encrypt(plain.data(), second.data(), plain.size(), s.mode);
  EXPECT_EQ(first == second, s.mode == CRijndael::ECB);
  Bytes by_copy(plain.size());
  copy.Encrypt(plain.data(), by_copy.data(), plain.size(), s.mode);
  EXPECT_EQ(by_copy, second);
}

TEST(CRijndael, GivesThePublishedBlocks) {
  struct Row {
    const char* key;
    const char* chain;
    std::int32_t mode;
    const char* plain;
    const char* mixed;
  };
  const Row rows[] = {
      {"000102030405060708090a0b0c0d0e0f", "", 0, "00112233445566778899aabbccddeeff",
       "69c4e0d86a7b0430d8cdb78070b4c55a"},
      {"000102030405060708090a0b0c0d0e0f1011121314151617", "", 3,
       "00112233445566778899aabbccddeeff", "dda97ca4864cdfe06eaf70a0ec0d7191"},
      {"000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f", "", -1,
       "00112233445566778899aabbccddeeff", "8ea2b7ca516745bfeafc49904b496089"},
      {"2b7e151628aed2a6abf7158809cf4f3c", "000102030405060708090a0b0c0d0e0f", 1,
       "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51",
       "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"},
      {"2b7e151628aed2a6abf7158809cf4f3c", "000102030405060708090a0b0c0d0e0f", 2,
       "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51",
       "3b3fd92eb72dad20333449f8e83cfb4ac8a64537a0b3a93fcde3cdad9f1ce58b"},
  };
  byEachWay([&] {
    for (const Row& row : rows) {
      const Bytes key = fromHex(row.key);
      Bytes chain = fromHex(row.chain);
      chain.resize(16);
      const Bytes plain = fromHex(row.plain);
      CRijndael cipher;
      cipher.MakeKey(key.data(), chain.data(), static_cast<std::int32_t>(key.size()), 16);
      Bytes mixed(plain.size());
      cipher.Encrypt(plain.data(), mixed.data(), plain.size(), row.mode);
      EXPECT_EQ(mixed, fromHex(row.mixed)) << row.key;
      if (plain.size() != 16) continue;
      cipher.EncryptBlock(plain.data(), mixed.data());
      EXPECT_EQ(mixed, fromHex(row.mixed));
      cipher.DecryptBlock(mixed.data(), mixed.data());
      EXPECT_EQ(mixed, plain);
    }
  });
}

template <typename Call>
std::string failureOf(Call call) {
  try {
    call();
  } catch (const std::exception& failure) {
    return failure.what();
  }
  return "none";
}

TEST(CRijndael, RefusesInTheToldOrderAndKeepsAnEarlierKey) {
  const Bytes room(64);
  Bytes out(64);
  CRijndael cipher;
  EXPECT_EQ(failureOf([&] { cipher.EncryptBlock(room.data(), out.data()); }),
            "Object not Initialized");
  EXPECT_EQ(failureOf([&] { cipher.DecryptBlock(room.data(), out.data()); }),
            "Object not Initialized");
  EXPECT_EQ(failureOf([&] { cipher.Encrypt(room.data(), out.data(), 0, 0); }),
            "Object not Initialized");
  EXPECT_EQ(failureOf([&] { cipher.Decrypt(room.data(), out.data(), 7, 1); }),
            "Object not Initialized");

  cipher = Setting{16, 16, 0}.made();
  cipher.EncryptBlock(room.data(), out.data());
  const Bytes before = out;
  struct Row {
    bool key;
    std::int32_t key_length;
    std::int32_t block_size;
    const char* text;
  };
  const Row rows[] = {
      {false, 17, 17, "Empty key"},
      {true, 40, 16, "Incorrect key length"},
      {true, 8, 16, "Incorrect key length"},
      {true, 17, 17, "Incorrect key length"},
      {true, -16, 16, "Incorrect key length"},
      {true, 16, 8, "Incorrect block length"},
      {true, 16, 40, "Incorrect block length"},
      {true, 32, 0, "Incorrect block length"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(failureOf([&] {
                cipher.MakeKey(row.key ? room.data() : nullptr, room.data(), row.key_length,
                               row.block_size);
              }),
              row.text);
  }
  for (std::uint64_t length : {0, 24, 15, 17}) {
    for (std::int32_t mode : kModes) {
      EXPECT_EQ(failureOf([&] { cipher.Encrypt(room.data(), out.data(), length, mode); }),
                "Data not multiple of Block Size");
      EXPECT_EQ(failureOf([&] { cipher.Decrypt(room.data(), out.data(), length, mode); }),
                "Data not multiple of Block Size");
    }
  }
  cipher.EncryptBlock(room.data(), out.data());
  EXPECT_EQ(out, before);
}

// The length is cut to 32 bits, signed: nothing is done from 2 GiB on.
TEST(CRijndael, DoesNothingWithLengthsThatAreNegativeIn32Bits) {
  CRijndael cipher = Setting{16, 16, 0}.made();
  Bytes room(16, 0xEE);
  cipher.Encrypt(room.data(), room.data(), std::uint64_t{1} << 31, 0);
  EXPECT_EQ(room, Bytes(16, 0xEE));
}

TEST(CRijndael, LeavesNothingOfAKeyBehind) {
  alignas(CRijndael) unsigned char memory[sizeof(CRijndael)] = {};  // also between its members
  auto* cipher = new (memory) CRijndael(Setting{32, 32, 0}.made());
  cipher->~CRijndael();
  // Volatile, so that the compiler can't conclude what a dead object holds.
  const volatile unsigned char* bytes = memory;
  std::size_t left = 0;
  for (std::size_t i = sizeof(void*); i < sizeof memory; ++i) left += bytes[i] != 0;
  EXPECT_EQ(left, 0u);
}

}  // namespace
