// Blocks of the check family against Boost.CRC, zlib and plain sums.
#include <gtest/gtest.h>
#include <zlib.h>

#include <atomic>
#include <boost/crc.hpp>
#include <functional>
#include <numeric>
#include <thread>

#include "qelbase/checks/COXCRC.h"
#include "qelbase/checks/COXCheckSum.h"

#include "tests/checks/Ways.h"

namespace {

using qeltest::byEachWay;
using qeltest::Bytes;
using qeltest::noise;

DWORD sizeOf(const Bytes& bytes) {
  return static_cast<DWORD>(bytes.size());
}

DWORD reversed(DWORD value) {
  DWORD result = 0;
  for (int i = 0; i < 32; ++i) result |= (value >> i & 1) << (31 - i);
  return result;
}

struct Known {
  const char* name;
  std::function<std::unique_ptr<COXCheckBase>()> make;
  DWORD abc;
  DWORD digits;
  DWORD mask;
};

const Known kKnown[] = {
    {"sum8", [] { return std::make_unique<COXCheckSum8>(); }, 0x25, 0xDC, 0xFF},
    {"sum16", [] { return std::make_unique<COXCheckSum16>(); }, 0x125, 0x1DC, 0xFFFF},
    {"sum32", [] { return std::make_unique<COXCheckSum32>(); }, 0x125, 0x1DC, 0xFFFFFFFF},
    {"crc16", [] { return std::make_unique<COXCRC16>(); }, 0x514A, 0x29B1, 0xFFFF},
    {"crc32", [] { return std::make_unique<COXCRC32>(); }, 0xCADBBE3D, 0x340BC6D9, 0xFFFFFFFF},
};

TEST(CheckFamily, GivesThePublishedValuesAndGoesOnUntilReset) {
  for (const Known& known : kKnown) {
    SCOPED_TRACE(known.name);
    byEachWay([&] {
      const auto check = known.make();
      EXPECT_EQ(check->CalculateBlock("abc", 3), known.abc);
      check->Reset();
      const DWORD half = check->CalculateBlock("12345", 5);
      EXPECT_EQ(check->CalculateBlock("", 0), half);
      EXPECT_EQ(check->CalculateBlock("6789", 4), known.digits);
      EXPECT_EQ(check->CalculateBlock("abc", 3, 0xFFFFFFFF), known.abc);
      EXPECT_EQ(check->CalculateBlock(nullptr, 0, 0x89ABCDEF), 0x89ABCDEF & known.mask);
      EXPECT_EQ(check->CalculateBlock(nullptr, 0), 0x89ABCDEF & known.mask);
    });
  }
}

// All lengths around the sizes of the steps, at every address within a register.
TEST(CheckFamily, AgreesWithOtherLibrariesAtEveryLengthAndAddress) {
  const Bytes data = noise(5000);
  byEachWay([&] {
    for (DWORD length = 0; length < 4700; length += length < 700 ? 1 : 37) {
      const BYTE* from = data.data() + length % 67;
      const DWORD start = length * 0x9E3779B1u;
      ASSERT_EQ(COXCRC32().CalculateBlock(from, length, start),
                static_cast<DWORD>(~crc32(~start, from, length)))
          << length;
      boost::crc_basic<16> crc16(0x1021, static_cast<WORD>(start));
      crc16.process_bytes(from, length);
      ASSERT_EQ(COXCRC16().CalculateBlock(from, length, start), crc16.checksum()) << length;
      const DWORD sum = std::accumulate(from, from + length, start);
      ASSERT_EQ(COXCheckSum32().CalculateBlock(from, length, start), sum);
      ASSERT_EQ(COXCheckSum16().CalculateBlock(from, length, start), sum & 0xFFFF);
      ASSERT_EQ(COXCheckSum8().CalculateBlock(from, length, start), sum & 0xFF);
    }
  });
}

TEST(CheckFamily, SumsDoNotOverflowInTheirLanes) {
  const Bytes data(3'000'000, 0xFF);
  byEachWay([&] {
    EXPECT_EQ(COXCheckSum32().CalculateBlock(data.data(), sizeOf(data), 0), 765'000'000u);
  });
}

// Polynomials without the lowest or the highest bit are no less polynomials.
TEST(CheckFamily, TakesAnyPolynomial) {
  const Bytes data = noise(1999);
  for (DWORD polynomial : {0xEDB88320u, 0x82F63B78u, 0xEB31D82Eu, 0u, 1u, 0x80000000u, 0xFFFFFFFFu,
                           0x00010000u, 0x7FFFFFFEu}) {
    boost::crc_basic<32> whole(reversed(polynomial), 0x12345678, 0, true, true);
    boost::crc_basic<32> part = whole;
    whole.process_bytes(data.data(), data.size());
    part.process_bytes(data.data(), 100);
    const auto low = static_cast<WORD>(polynomial ^ polynomial >> 16);
    boost::crc_basic<16> whole16(low, 0x1234);
    whole16.process_bytes(data.data(), data.size());
    byEachWay([&] {
      COXCRC32 crc(polynomial);
      // Boost keeps the register of a reversed CRC turned round.
      const DWORD start = reversed(0x12345678);
      ASSERT_EQ(crc.CalculateBlock(data.data(), 100, start), part.checksum()) << polynomial;
      ASSERT_EQ(crc.CalculateBlock(data.data() + 100, sizeOf(data) - 100), whole.checksum());
      ASSERT_EQ(COXCRC16(low).CalculateBlock(data.data(), sizeOf(data), 0x1234),
                whole16.checksum());
    });
  }
}

template <typename List>
int countTables(const List& list) {
  int count = 0;
  for (auto* table = list.m_head; table; table = table->m_next) ++count;
  return count;
}

struct OpenCrc32 : COXCRC32 {
  using COXCRC32::COXCRC32;
  using COXCRC32::m_table;
};

struct OpenCrc16 : COXCRC16 {
  using COXCRC16::COXCRC16;
  using COXCRC16::m_table;
};

TEST(COXCRC32, SharesOneTableForEachPolynomial) {
  const OpenCrc32 first(0xA0000001);
  const int tables = countTables(COXCRC32::m_tableList);
  OpenCrc32 second(0xA0000001);
  EXPECT_EQ(countTables(COXCRC32::m_tableList), tables);
  EXPECT_EQ(first.m_table, second.m_table);
  EXPECT_EQ(OpenCrc32(0xA0000002).m_table->m_polynomial, 0xA0000002);
  EXPECT_EQ(countTables(COXCRC32::m_tableList), tables + 1);

  second.CalculateBlock("12345", 5);
  OpenCrc32 copy(second);
  EXPECT_EQ(copy.m_table, second.m_table);
  EXPECT_EQ(copy.CalculateBlock("6789", 4), second.CalculateBlock("6789", 4));
}

TEST(COXCRC16, IsMadeByManyThreadsAtOnceWithOneTableForEachPolynomial) {
  constexpr int kThreads = 2;
  constexpr int kPolynomials = 300;
  const int tables = countTables(COXCRC16::m_tableList);
  std::atomic<int> arrived = 0;
  std::vector<std::pair<DWORD, const void*>> results[kThreads];
  std::vector<std::thread> threads;
  for (auto& mine : results) {
    threads.emplace_back([&mine, &arrived] {
      for (int i = 0; i < kPolynomials; ++i) {
        ++arrived;  // no sleep: both go on at the same moment
        while (arrived < kThreads * (i + 1)) std::this_thread::yield();
        OpenCrc16 crc(static_cast<WORD>(0x4001 + 2 * i));
        mine.emplace_back(crc.CalculateBlock("123456789", 9), crc.m_table);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(countTables(COXCRC16::m_tableList), tables + kPolynomials);
  for (const auto& mine : results) EXPECT_EQ(mine, results[0]);
}

}  // namespace
