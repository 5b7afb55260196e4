// The file class: modes, share modes, positions, and what failures tell.
#include "qelbase/outside/framework/CFile.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <functional>

#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

LONG codeOf(const std::function<void()>& call) {
  try {
    call();
  } catch (CFileException* failure) {
    const LONG code = failure->m_lOsError;
    failure->Delete();
    return code;
  }
  return 0;
}

class CFileTest : public testing::Test {
 protected:
  CFileTest() { qeltest::writeBytes(m_folder / "f", "0123456789"); }
  LONG openCode(CFile& file, UINT flags, const char* name = "f") {
    CFileException failure;
    return file.Open(m_folder.wide(name).c_str(), flags, &failure) ? 0 : failure.m_lOsError;
  }
  std::string content(const char* name = "f") { return qeltest::readBytes(m_folder / name); }

  qeltest::TempFolder m_folder;
};

TEST_F(CFileTest, ReadsWritesAndMovesOnePosition) {
  CFile file(m_folder.wide("f").c_str(), CFile::modeReadWrite | CFile::shareExclusive);
  char bytes[20] = {};
  EXPECT_EQ(file.Read(bytes, 3), 3u);
  file.Write("xy", 2);
  EXPECT_EQ(file.Read(bytes, 20), 5u);
  EXPECT_EQ(std::string(bytes, 5), "56789");
  EXPECT_EQ(file.Seek(-2, CFile::end), 8u);
  EXPECT_EQ(file.Seek(4, CFile::current), 12u);
  file.Write("!", 1);
  EXPECT_EQ(file.GetLength(), 13u);
  EXPECT_EQ(codeOf([&] { file.Seek(-1, CFile::begin); }), 131);
  EXPECT_EQ(file.GetPosition(), 13u);
  file.SetLength(6);
  file.Close();
  EXPECT_EQ(content(), "012xy5");
  EXPECT_EQ(codeOf([&] { file.Read(bytes, 1); }), 6);
  file.Close();
}

TEST_F(CFileTest, CreatesAndKeepsAsTold) {
  CFile file;
  EXPECT_EQ(openCode(file, CFile::modeWrite | CFile::modeCreate | CFile::modeNoTruncate), 0);
  file.Write("ab", 2);
  file.Close();
  EXPECT_EQ(content(), "ab23456789");
  EXPECT_EQ(openCode(file, CFile::modeWrite | CFile::modeCreate), 0);
  file.Close();
  EXPECT_EQ(content(), "");
  EXPECT_EQ(openCode(file, CFile::modeWrite, "new"), 2);
  EXPECT_EQ(openCode(file, CFile::modeWrite | CFile::modeCreate, "new"), 0);
  EXPECT_EQ(openCode(file, CFile::modeWrite | CFile::modeCreate, "no/new"), 3);
  EXPECT_FALSE(file.IsOpen());
}

constexpr UINT kRead = CFile::modeRead;
constexpr UINT kWrite = CFile::modeWrite;
constexpr UINT kBoth = CFile::modeReadWrite;

struct ShareRow {
  UINT first;
  UINT second;
  LONG code;
};

const ShareRow kShareRows[] = {
    {kRead | CFile::shareDenyWrite, kRead | CFile::shareDenyWrite, 0},
    {kRead | CFile::shareDenyWrite, kWrite | CFile::shareDenyNone, 32},
    {kWrite | CFile::shareDenyNone, kRead | CFile::shareDenyWrite, 32},
    {kRead | CFile::shareDenyNone, kBoth | CFile::shareDenyNone, 0},
    {kRead | CFile::shareExclusive, kRead | CFile::shareDenyNone, 32},
    {kRead | CFile::shareDenyNone, kRead | CFile::shareExclusive, 32},
    {kWrite | CFile::shareDenyRead, kWrite | CFile::shareDenyNone, 0},
    {kWrite | CFile::shareDenyRead, kBoth | CFile::shareDenyNone, 32},
    {kBoth | CFile::shareDenyWrite, kRead | CFile::shareDenyNone, 0},
    {kBoth | CFile::shareDenyWrite, kRead | CFile::shareDenyWrite, 32},
};

TEST_F(CFileTest, HoldsShareModesInOneProcessUntilClosed) {
  for (const ShareRow& row : kShareRows) {
    CFile first;
    CFile second;
    ASSERT_EQ(openCode(first, row.first), 0);
    EXPECT_EQ(openCode(second, row.second), row.code) << row.first << ' ' << row.second;
    first.Close();
    EXPECT_EQ(openCode(second, row.second), 0);
  }
}

TEST_F(CFileTest, HoldsShareModesAgainstAnotherProcess) {
  for (const ShareRow& row : kShareRows) {
    CFile first;
    ASSERT_EQ(openCode(first, row.first), 0);
    const pid_t child = fork();
    if (child == 0) {
      CFile second;
      _exit(static_cast<int>(openCode(second, row.second)));
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), row.code) << row.first << ' ' << row.second;
  }
}

TEST_F(CFileTest, IsNotEmptiedWhenSharingRefusesIt) {
  CFile reader;
  CFile writer;
  ASSERT_EQ(openCode(reader, kRead | CFile::shareDenyWrite), 0);
  EXPECT_EQ(openCode(writer, kWrite | CFile::modeCreate), 32);
  EXPECT_EQ(content().size(), 10u);
}

TEST_F(CFileTest, SeesEachWriteOfOthersUnlessItDeniesThem) {
  CFile reader(m_folder.wide("f").c_str(), kRead | CFile::shareDenyNone);
  CFile writer(m_folder.wide("f").c_str(), kWrite | CFile::shareDenyNone);
  char byte = 0;
  reader.Read(&byte, 1);
  writer.Seek(1, CFile::begin);
  writer.Write("X", 1);
  reader.Read(&byte, 1);
  EXPECT_EQ(byte, 'X');
}

TEST_F(CFileTest, TellsAFullDiskAndAnUnreadableOne) {
  CFile file(m_folder.wide("f").c_str(), kBoth | CFile::shareDenyNone);
  {
    qeltest::FaultyCalls full({.kind = qeltest::Fault::fail_for_good, .error = ENOSPC});
    EXPECT_EQ(codeOf([&] { file.Write("ab", 2); }), 112);
  }
  {
    qeltest::FaultyCalls broken({.kind = qeltest::Fault::fail_for_good, .reading = true});
    char bytes[4];
    EXPECT_EQ(codeOf([&] { file.Read(bytes, 4); }), 1117);
  }
  EXPECT_EQ(file.GetPosition(), 0u);
  qeltest::FaultyCalls cut({.kind = qeltest::Fault::cut_for_good, .reading = true});
  char bytes[10];
  EXPECT_EQ(file.Read(bytes, 10), 10u);
  file.Write("ab", 2);
  EXPECT_EQ(content(), "0123456789ab");
}

}  // namespace
