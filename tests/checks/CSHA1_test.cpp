// SHA-1 against FIPS 180 and OpenSSL; hashing of files, sound and failing.
#include "qelbase/checks/CSHA1.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <sys/stat.h>

#include <cstring>
#include <thread>

#include "tests/checks/Ways.h"
#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

using qeltest::byEachWay;
using qeltest::Bytes;
using qeltest::noise;

std::string textOf(const CSHA1& hash, unsigned char type = 0) {
  char text[200] = "";
  hash.ReportHash(text, type);
  return text;
}

std::string digestOf(const std::string& message) {
  CSHA1 hash;
  hash.Update(reinterpret_cast<const unsigned char*>(message.data()),
              static_cast<std::uint32_t>(message.size()));
  hash.Final();
  return textOf(hash);
}

Bytes oracle(const Bytes& message) {
  Bytes digest(20);
  SHA1(message.data(), message.size(), digest.data());
  return digest;
}

Bytes finish(CSHA1& hash) {
  Bytes digest(20);
  hash.Final();
  hash.GetHash(digest.data());
  return digest;
}

TEST(CSHA1, GivesThePublishedDigests) {
  byEachWay([] {
    EXPECT_EQ(digestOf("abc"), "A9 99 3E 36 47 06 81 6A BA 3E 25 71 78 50 C2 6C 9C D0 D8 9D");
    EXPECT_EQ(digestOf(""), "DA 39 A3 EE 5E 6B 4B 0D 32 55 BF EF 95 60 18 90 AF D8 07 09");
    EXPECT_EQ(digestOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "84 98 3E 44 1C 3B D2 6E BA AE 4A A1 F9 51 29 E5 E5 46 70 F1");
    EXPECT_EQ(digestOf(std::string(1'000'000, 'a')),
              "34 AA 97 3C D4 C4 DA A4 F6 1E EB 2B DB AD 27 31 65 34 01 6F");
  });
}

TEST(CSHA1, AgreesWithOpenSslHoweverTheMessageIsSplit) {
  const Bytes data = noise(1000);
  byEachWay([&] {
    for (std::uint32_t length = 0; length < 300; ++length) {
      const Bytes message(data.begin() + length % 17, data.begin() + length % 17 + length);
      const Bytes expected = oracle(message);
      for (std::uint32_t piece : {1u, 3u, 55u, 64u, 65u, 1000u}) {
        CSHA1 hash;
        for (std::uint32_t at = 0; at < length; at += piece) {
          hash.Update(message.data() + at, std::min(piece, length - at));
          hash.Update(nullptr, 0);
        }
        ASSERT_EQ(finish(hash), expected) << length << " by " << piece;
        hash.Reset();
        hash.Update(message.data(), length);
        CSHA1 copy(hash);
        copy.Update(data.data(), 1);
        ASSERT_EQ(finish(hash), expected);
      }
    }
  });
}

// The length in bits passes 32 bits here.
TEST(CSHA1, CountsMessagesAbove512Megabytes) {
  const Bytes piece(1 << 24, 0x5A);
  CSHA1 hash;
  EVP_MD_CTX* expected = EVP_MD_CTX_new();
  EVP_DigestInit_ex(expected, EVP_sha1(), nullptr);
  for (int i = 0; i < 33; ++i) {
    hash.Update(piece.data(), static_cast<std::uint32_t>(piece.size()));
    EVP_DigestUpdate(expected, piece.data(), piece.size());
  }
  Bytes digest(20);
  EVP_DigestFinal_ex(expected, digest.data(), nullptr);
  EVP_MD_CTX_free(expected);
  EXPECT_EQ(finish(hash), digest);
}

TEST(CSHA1, ReportsBehindTheTextThatIsThere) {
  CSHA1 hash;
  hash.Update(reinterpret_cast<const unsigned char*>("abc"), 3);
  hash.Final();
  char text[200] = "x:";
  hash.ReportHash(text, 1);
  EXPECT_STREQ(text, "x:169 153 62 54 71 6 129 106 186 62 37 113 120 80 194 108 156 208 216 157");
  hash.ReportHash(text, 0);
  EXPECT_EQ(std::string(text).substr(73),
            "A9 99 3E 36 47 06 81 6A BA 3E 25 71 78 50 C2 6C 9C D0 D8 9D");
  hash.ReportHash(text, 2);
  EXPECT_STREQ(text, "Error: Unknown report type!");
}

class CSHA1File : public testing::Test {
 protected:
  void put(const Bytes& bytes) {
    qeltest::writeBytes(m_folder / m_name,
                        {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }
  bool hashFile(CSHA1& hash) {
    std::string name = (m_folder / m_name).string();
    return hash.HashFile(name.data());
  }

  qeltest::TempFolder m_folder;
  std::string m_name = "größe \xFF.bin";  // not all of it is UTF-8
};

TEST_F(CSHA1File, HashesFilesAroundThePieceSizeLikeOneUpdate) {
  for (std::size_t size : {0u, 1u, 7999u, 8000u, 8001u, 16000u, 100'003u}) {
    const Bytes bytes = noise(size);
    put(bytes);
    CSHA1 hash;
    ASSERT_TRUE(hashFile(hash));
    EXPECT_EQ(finish(hash), oracle(bytes)) << size;
  }
}

TEST_F(CSHA1File, LeavesTheHashAloneIfTheFileCannotBeOpened) {
  CSHA1 hash;
  const Bytes bytes = noise(100);
  hash.Update(bytes.data(), 50);
  EXPECT_FALSE(hashFile(hash));
  std::string folder = m_folder.path().string();
  EXPECT_FALSE(hash.HashFile(folder.data()));
  hash.Update(bytes.data() + 50, 50);
  EXPECT_EQ(finish(hash), oracle(bytes));
}

TEST_F(CSHA1File, FeedsInAsManyBytesAsTheFileHadWhenItFails) {
  put(noise(20'000));
  Bytes expected = noise(20'000);
  std::fill(expected.begin(), expected.begin() + 8000, std::uint8_t{0});  // never came
  qeltest::FaultyCalls faulty({.kind = qeltest::Fault::fail_once, .n = 3, .reading = true});
  CSHA1 hash;
  ASSERT_TRUE(hashFile(hash));
  ASSERT_TRUE(faulty.struck());
  EXPECT_EQ(faulty.fault().call, "read");
  // The failed piece was not read, so that the next one begins where it would have begun.
  const Bytes whole = noise(20'000);
  std::copy(whole.begin(), whole.begin() + 12'000, expected.begin() + 8000);
  EXPECT_EQ(finish(hash), oracle(expected));
}

TEST_F(CSHA1File, ReadsAPipeToItsEnd) {
  const std::string name = (m_folder / m_name).string();
  ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
  const Bytes bytes = noise(200'000);
  std::thread writer([&] { put(bytes); });
  CSHA1 hash;
  const bool done = hashFile(hash);
  writer.join();
  ASSERT_TRUE(done);
  EXPECT_EQ(finish(hash), oracle(bytes));
}

}  // namespace
