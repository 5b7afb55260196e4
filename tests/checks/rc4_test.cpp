// RC4 against RFC 6229 and nettle.
#include "qelbase/checks/rc4.h"

#include <gtest/gtest.h>
#include <nettle/arcfour.h>

#include "tests/checks/Ways.h"

namespace {

using qeltest::Bytes;
using qeltest::fromHex;
using qeltest::noise;

Bytes streamOf(const Bytes& key, std::size_t size) {
  rc4_key state;
  prepare_key(key.data(), static_cast<std::uint16_t>(key.size()), &state);
  Bytes stream(size, 0);
  rc4(stream.data(), size, &state);
  return stream;
}

TEST(rc4, GivesTheStreamsOfRfc6229) {
  struct Row {
    const char* key;
    std::size_t offset;
    const char* stream;
  };
  const Row rows[] = {
      {"0102030405", 0, "b2396305f03dc027ccc3524a0a1118a8"},
      {"0102030405", 4096, "ff25b58995996707e51fbdf08b34d875"},
      {"0102030405060708090a0b0c0d0e0f10", 0, "9ac7cc9a609d1ef7b2932899cde41b97"},
      {"0102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f20", 0,
       "eaa6bd25880bf93d3f5d1e4ca2611d91"},
  };
  for (const Row& row : rows) {
    const Bytes stream = streamOf(fromHex(row.key), row.offset + 16);
    EXPECT_EQ(Bytes(stream.end() - 16, stream.end()), fromHex(row.stream)) << row.key;
  }
}

TEST(rc4, AgreesWithNettleHoweverTheStreamIsSplit) {
  for (std::size_t key_length : {1u, 5u, 16u, 255u, 256u}) {
    const Bytes key = noise(key_length);
    const Bytes data = noise(20'000, 2);
    arcfour_ctx oracle;
    arcfour_set_key(&oracle, key.size(), key.data());
    Bytes expected(data.size());
    arcfour_crypt(&oracle, data.size(), expected.data(), data.data());

    rc4_key state;
    prepare_key(key.data(), static_cast<std::uint16_t>(key.size()), &state);
    Bytes mine = data;
    for (std::size_t at = 0, size = 0; at < mine.size(); at += size, size = size * 2 + 1) {
      size = std::min(size, mine.size() - at);
      rc4(mine.data() + at, size, &state);
    }
    EXPECT_EQ(mine, expected);
    EXPECT_EQ(Bytes(state.state, state.state + 256), Bytes(oracle.S, oracle.S + 256));
    EXPECT_EQ(state.x, oracle.i);
    EXPECT_EQ(state.y, oracle.j);
  }
}

TEST(rc4, TakesTheFirst256BytesOfALongerKey) {
  const Bytes key = noise(1000);
  EXPECT_EQ(streamOf(key, 64), streamOf(Bytes(key.begin(), key.begin() + 256), 64));
}

}  // namespace
