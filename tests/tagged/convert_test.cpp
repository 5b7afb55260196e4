#include <gtest/gtest.h>

#include "qelbase/outside/system/files.h"

#include "tests/support/FaultyCalls.h"
#include "tests/tagged/tagged_bytes.h"

using qeltest::header;
using qeltest::headTag;
using qeltest::record;
using namespace std::literals;

namespace {

class Convert : public testing::Test {
 protected:
  qeltest::TaggedFolder at;
  qeltest::PassingFolder temporary;
  const MFileName name{at.name.c_str(), false};
  qeltest::LoggedLines log;

  bool convert(unsigned char major, unsigned char minor) {
    log.lines.clear();
    MTagList list;
    return list.CONVERT(name, major, minor);
  }
  bool isClean() const { return std::filesystem::is_empty(temporary.path()); }
  std::wstring place() const { return L"'" + at.name + L"'"; }
};

}  // namespace

TEST_F(Convert, PutsOldBodiesIntoDataTags) {
  at.put("QELCOM\1\0\0\0\0\0X\0\0\0\0\0\1\3\2\0\0\0xxABCDEF\1\0\0\0\0\0"s);
  std::filesystem::permissions(at.file, std::filesystem::perms(0640));
  EXPECT_TRUE(convert(0, 0));
  EXPECT_EQ(std::filesystem::status(at.file).permissions(), std::filesystem::perms(0640));
  EXPECT_EQ(at.bytes(),
            "QELCOM\2\1\0\0\0\0"
            "X\0\0\0\0\0\2\1\16\0\0\0DATA\0\0\1\3\2\0\0\0xx"
            "ABCDEF\2\1\14\0\0\0DATA\0F\1\0\0\0\0\0"s);
  EXPECT_TRUE(log.lines.empty() && isClean());
  EXPECT_TRUE(convert(0, 0));
  EXPECT_EQ(log.lines, (std::vector{L"In MTagList::CONVERT() : File " + place() +
                                    L" already contains version V2.1"}));
}

TEST_F(Convert, LooksAtMajorVersionsOnly) {
  struct Row {
    int had_major, had_minor;
    unsigned char major, minor;
    bool done;
    int has_major, has_minor;
    const wchar_t* logged;
  };
  const Row rows[] = {
      {2, 0, 2, 1, true, 2, 0, L" already contains version V2.0"},
      {2, 0, 0, 0, true, 2, 0, L" already contains version V2.0"},
      {1, 0, 2, 0, true, 2, 0, nullptr},
      {0, 9, 1, 0, true, 1, 0, nullptr},
      {2, 1, 1, 0, false, 2, 1, L" contains a newer version number V2.1, cannot process !"},
      {1, 0, 0, 5, false, 1, 0, L" contains a newer version number V1.0, cannot process !"},
  };
  for (const Row& row : rows) {
    at.put(headTag(row.had_major, row.had_minor));
    EXPECT_EQ(convert(row.major, row.minor), row.done);
    EXPECT_EQ(at.bytes(), headTag(row.has_major, row.has_minor));
    std::vector<std::wstring> expected;
    if (row.logged) expected.push_back(L"In MTagList::CONVERT() : File " + place() + row.logged);
    EXPECT_EQ(log.lines, expected);
    EXPECT_TRUE(isClean());
  }
}

TEST_F(Convert, TellsWhatItCannotRead) {
  EXPECT_FALSE(convert(0, 0));
  EXPECT_EQ(log.lines, (std::vector{L"In MTagList::CONVERT() : Could not open file " + place()}));
  at.put("QELCOM\1\0\0\0\0");
  EXPECT_FALSE(convert(0, 0));
  EXPECT_EQ(log.lines,
            (std::vector{L"In MTagList::CONVERT() : Could not read header tag from " + place()}));

  // Neither a foreign file nor one with a cut body is lost: the old bytes are in the temporary
  // file.
  for (const auto& [bytes, line] :
       {std::pair{"no tagged file"s, L"Could not build tag list of given file "s},
        std::pair{headTag(1, 0) + header("CUT", 1, 0, 9) + "x", L"Error writing to file "s}}) {
    at.put(bytes);
    EXPECT_FALSE(convert(255, 0));
    EXPECT_EQ(log.lines, (std::vector{L"In MTagList::CONVERT() : " + line + place()}));
    ASSERT_FALSE(isClean());
    const auto kept = std::filesystem::directory_iterator(temporary.path())->path();
    EXPECT_EQ(qeltest::readBytes(kept), bytes);
    EXPECT_EQ(qel::sys::GetFileAttributesW(qeltest::TempFolder::wideName(kept).c_str()) &
                  qel::sys::FILE_ATTRIBUTE_ARCHIVE,
              0U);
    std::filesystem::remove(kept);
  }
}

TEST_F(Convert, KeepsAnOldFileThatHoldsMoreThanItsTags) {
  const std::string damaged =
      headTag(1, 0) + record("A", 1, 0, "a") + header("BAD", 1, 0, ~0U) + record("LOST", 1, 0, "");
  at.put(damaged);
  EXPECT_TRUE(convert(0, 0));
  EXPECT_EQ(at.bytes(), headTag() + record("A", 2, 1, record("DATA", 1, 0, "a")));
  ASSERT_FALSE(isClean());
  EXPECT_EQ(qeltest::readBytes(std::filesystem::directory_iterator(temporary.path())->path()),
            damaged);
}

TEST_F(Convert, LeavesAFileAloneThatCannotBeMoved) {
  at.put(headTag(1, 0));
  qeltest::FaultyCalls faulty({.kind = qeltest::Fault::fail_for_good, .n = 1, .error = EACCES});
  EXPECT_FALSE(convert(0, 0));
  EXPECT_EQ(at.bytes(), headTag(1, 0));
  ASSERT_EQ(log.lines.size(), 1U);
  EXPECT_EQ(log.lines[0].rfind(L"In MTagList::CONVERT() : Could not read the tagged file 'C:", 0),
            0U);
  EXPECT_TRUE(log.lines[0].ends_with(L".tmp."));
  EXPECT_NE(qel::sys::GetFileAttributesW(at.name.c_str()) & qel::sys::FILE_ATTRIBUTE_ARCHIVE, 0U);
}

TEST_F(Convert, WorksBesideAFileThatASweepWouldFindInTheTemporaryFolder) {
  at.put(headTag(1, 0));
  qeltest::FaultyCalls faulty({.kind = qeltest::Fault::fail_once, .n = 1, .error = EACCES});
  EXPECT_TRUE(convert(0, 0));
  EXPECT_EQ(faulty.fault().call, "setxattr");  // what was to mark it as nothing to sweep
  EXPECT_EQ(at.bytes(), headTag());
  EXPECT_TRUE(isClean() && at.files().size() == 1);
}

TEST_F(Convert, FollowsALink) {
  qeltest::writeBytes(at.folder / "target", headTag(1, 0));
  std::filesystem::create_symlink("target", at.file);
  EXPECT_TRUE(convert(0, 0));
  EXPECT_TRUE(std::filesystem::is_symlink(at.file));
  EXPECT_EQ(qeltest::readBytes(at.folder / "target"), headTag());
}
