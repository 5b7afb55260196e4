// Check values over files: what is read, and what remains after a failure.
#include <gtest/gtest.h>
#include <zlib.h>

#include "qelbase/checks/COXCRC.h"
#include "qelbase/checks/COXCheckSum.h"

#include "tests/checks/Ways.h"
#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

using qeltest::Bytes;
using qeltest::noise;

DWORD crcOf(const Bytes& bytes) {
  return ~static_cast<DWORD>(crc32(0, bytes.data(), static_cast<uInt>(bytes.size())));
}

// A file in memory that counts its reads, and can end short or fail at the n-th.
class CountingFile : public CFile {
 public:
  explicit CountingFile(Bytes bytes) : m_bytes(std::move(bytes)) {}

  UINT Read(void* data, UINT count) override {
    m_counts.push_back(count);
    if (m_counts.size() == m_fails_at) CFileException::ThrowOsError(1117, L"counted");
    const UINT got = std::min(count, static_cast<UINT>(m_bytes.size() - m_at));
    std::copy_n(m_bytes.begin() + m_at, got, static_cast<BYTE*>(data));
    m_at += got;
    return got;
  }

  Bytes m_bytes;
  std::size_t m_at = 0;
  std::size_t m_fails_at = 0;
  std::vector<UINT> m_counts;
};

TEST(CalculateFile, ReadsByBlocksAndEndsAtAShortRead) {
  struct Row {
    std::size_t size;
    DWORD length;
    DWORD block;
    std::vector<UINT> counts;
  };
  const Row rows[] = {
      {9000, 5000, 2048, {2048, 2048, 904}},
      {9000, 4096, 2048, {2048, 2048}},
      {9000, 100, 2048, {100}},
      {3000, 0xFFFFFFFF, 2048, {2048, 2048}},
      {4096, 0xFFFFFFFF, 2048, {2048, 2048, 2048}},
      {0, 0xFFFFFFFF, 2048, {2048}},
      {9000, 0, 2048, {0}},
  };
  for (const Row& row : rows) {
    CountingFile file(noise(row.size));
    COXCRC32 crc;
    const DWORD result = crc.CalculateFile(&file, row.length, row.block);
    EXPECT_EQ(file.m_counts, row.counts) << row.size << ' ' << row.length;
    EXPECT_EQ(result, crcOf(noise(std::min<std::size_t>(row.size, row.length))));
  }
}

TEST(CalculateFile, GivesTheBlocksToAnOverriddenCalculateBlock) {
  struct Counting : COXCheckSum32 {
    using COXCheckSum32::CalculateBlock;
    DWORD CalculateBlock(const void* data, DWORD length, DWORD initial) override {
      lengths.push_back(length);
      return COXCheckSum32::CalculateBlock(data, length, initial);
    }
    std::vector<DWORD> lengths;
  };
  qeltest::TempFolder folder;
  qeltest::writeBytes(folder / "f", std::string(5000, '\1'));
  Counting sum;
  EXPECT_EQ(sum.CalculateFile(folder.wide("f")), 4999u);
  EXPECT_EQ(sum.lengths, (std::vector<DWORD>{2048, 2048, 904}));
}

TEST(CalculateFile, PutsTheValueBackWhenAReadFails) {
  CountingFile file(noise(9000));
  file.m_fails_at = 3;
  COXCRC32 crc;
  crc.CalculateBlock("abc", 3);
  try {
    crc.CalculateFile(&file, 0xFFFFFFFF, 2048);
    FAIL() << "nothing thrown";
  } catch (CFileException* failure) {
    EXPECT_EQ(failure->m_lOsError, 1117);
    failure->Delete();
  }
  EXPECT_EQ(crc.CalculateBlock("", 0), 0xCADBBE3D);
}

class NamedFile : public testing::Test {
 protected:
  void put(const Bytes& bytes) {
    qeltest::writeBytes(m_folder / "f",
                        {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }
  qeltest::TempFolder m_folder;
};

TEST_F(NamedFile, GoesOnFromTheRunningValue) {
  // Around the block size and around what the file object reads ahead.
  for (std::size_t size : {0, 1, 2047, 2048, 2049, 131071, 131072, 131073, 500'001}) {
    const Bytes bytes = noise(size);
    put(bytes);
    COXCRC32 crc;
    EXPECT_EQ(crc.CalculateFile(m_folder.wide("f")), crcOf(bytes)) << size;
    Bytes twice = bytes;
    twice.insert(twice.end(), bytes.begin(), bytes.end());
    EXPECT_EQ(crc.CalculateFile(m_folder.wide("f")), crcOf(twice)) << size;
  }
}

TEST_F(NamedFile, GivesNarrowValuesOfNarrowClasses) {
  put({'a', 'b', 'c'});
  EXPECT_EQ(COXCheckSum8().CalculateFile(m_folder.wide("f")), 0x25u);
  EXPECT_EQ(COXCheckSum16().CalculateFile(m_folder.wide("f")), 0x125u);
  EXPECT_EQ(COXCRC16().CalculateFile(m_folder.wide("f")), 0x514Au);
}

TEST_F(NamedFile, ThrowsWhatTheOpeningReported) {
  struct Row {
    std::wstring name;
    int cause;
    LONG code;
  };
  put({});
  const Row rows[] = {
      {m_folder.wide("none"), CFileException::fileNotFound, 2},
      {m_folder.wide("no\\f"), CFileException::badPath, 3},
      {m_folder.wide(), CFileException::accessDenied, 5},
      {m_folder.wide("f") + L"?", CFileException::genericException, 123},
  };
  COXCheckSum8 sum;
  sum.CalculateBlock("abc", 3);
  for (const Row& row : rows) {
    try {
      sum.CalculateFile(row.name);
      ADD_FAILURE() << "nothing thrown";
    } catch (CFileException* failure) {
      EXPECT_EQ(failure->m_cause, row.cause);
      EXPECT_EQ(failure->m_lOsError, row.code);
      EXPECT_EQ(failure->m_strFileName, row.name);
      failure->Delete();
    }
  }
  EXPECT_EQ(sum.CalculateBlock("", 0), 0x25u);
}

// Each call on the way fails in turn: the value of the file, or an exception and the value of
// before.
TEST_F(NamedFile, KeepsTheValueAtEveryFaultAndLeaksNothing) {
  const Bytes bytes = noise(300'000);
  put(bytes);
  const int open = qeltest::openDescriptors();
  bool struck = true;
  for (long n = 1; struck; ++n) {
    for (const auto kind : {qeltest::Fault::fail_once, qeltest::Fault::cut_once}) {
      COXCRC32 crc;
      bool thrown = false;
      {
        qeltest::FaultyCalls faulty({.kind = kind, .n = n, .reading = true});
        try {
          EXPECT_EQ(crc.CalculateFile(m_folder.wide("f")), crcOf(bytes));
        } catch (CFileException* failure) {
          thrown = true;
          EXPECT_EQ(failure->m_lOsError, 1117);
          failure->Delete();
        }
        if (kind == qeltest::Fault::fail_once) struck = faulty.struck();
        // Without its turn (flock) an opener only may stand back for another.
        const bool is_failure = faulty.struck() && faulty.fault().call != "flock";
        EXPECT_EQ(thrown, kind == qeltest::Fault::fail_once && is_failure) << n;
      }
      EXPECT_EQ(crc.CalculateBlock("", 0), thrown ? 0xFFFFFFFF : crcOf(bytes));
      EXPECT_EQ(qeltest::openDescriptors(), open);
    }
  }
}

// The file loses its end after the first read: what remains is all there is.
TEST_F(NamedFile, EndsWhereAShrinkingFileEnds) {
  put(noise(10'000));
  CFile file(m_folder.wide("f").c_str(), CFile::modeRead | CFile::shareDenyNone);
  COXCRC32 crc;
  crc.CalculateFile(&file, 2048, 2048);
  std::filesystem::resize_file(m_folder / "f", 3000);
  EXPECT_EQ(crc.CalculateFile(&file, 0xFFFFFFFF, 2048), crcOf(noise(3000)));
}

}  // namespace
