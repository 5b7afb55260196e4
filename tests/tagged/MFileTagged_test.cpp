#include "qelbase/tagged/MFileTagged.h"

#include <gtest/gtest.h>

#include "tests/tagged/tagged_bytes.h"

using qeltest::header;
using qeltest::headTag;
using qeltest::namesOf;
using qeltest::readBytes;
using qeltest::record;
using qeltest::writeBytes;
using qeltest::writeTag;
using namespace std::literals;
using Names = std::vector<std::string>;

namespace {

class FileTagged : public testing::Test {
 protected:
  qeltest::TaggedFolder at;
  MFileTagged file;

  const std::string a = record("A", 2, 0, "first");
  const std::string b = record("B", 1, 7, std::string(300000, 'b'));
  const std::string c = record("C", 2, 1, "third");

  void putABC() { at.put(headTag() + a + b + c); }
  bool openWrite() { return file.OPEN_WRITE(at.name.c_str()); }
  bool openRead() { return file.OPEN_READ(at.name.c_str()); }
  std::string listed() {
    EXPECT_TRUE(openRead());
    return namesOf(file);
  }
  void closeSound() {
    file.CLOSE();
    EXPECT_EQ(file.GET_RESULT(), 0U);
  }
};

}  // namespace

TEST_F(FileTagged, WritesANewFileWithoutABackup) {
  ASSERT_TRUE(openWrite());
  EXPECT_EQ(at.files(), Names{"part.abc"});
  MTag outer("PART"), inner("DATA"), empty("EMPTY");
  file.WRITE_TAG_BEGIN(outer);
  file.WRITE_TAG_BEGIN(inner);
  file.WRITE("xyz", 3);
  EXPECT_TRUE(file.WRITE_TAG_END(inner) && file.WRITE_TAG_END(outer));
  file.WRITE_TAG_BEGIN(empty);
  EXPECT_TRUE(file.WRITE_TAG_END(empty));
  EXPECT_EQ(at.files(), Names{"part.abc"});
  closeSound();
  EXPECT_EQ(at.bytes(),
            "QELCOM\2\1\0\0\0\0PART\0\0\2\1\17\0\0\0DATA\0\0\2\1\3\0\0\0xyzEMPTY\0\2\1\0\0\0\0"s);
  EXPECT_EQ(listed(), "PART EMPTY");
}

TEST_F(FileTagged, KeepsTagsThatWereNotRewritten) {
  putABC();
  std::filesystem::permissions(at.file, std::filesystem::perms(0400));
  ASSERT_TRUE(openWrite());
  EXPECT_EQ(at.files(), (Names{"part.abc", "part.bak"}));
  writeTag(file, MTag("B", 1, 9), "new");
  closeSound();
  EXPECT_EQ(std::filesystem::status(at.file).permissions(), std::filesystem::perms(0600));
  EXPECT_EQ(at.bytes(), headTag() + record("B", 1, 9, "new") + a + c);
  EXPECT_EQ(at.files(), Names{"part.abc"});

  at.put(headTag(1, 3) + a + b + c);
  ASSERT_TRUE(openWrite());
  closeSound();
  EXPECT_EQ(at.bytes(), headTag() + a + b + c);

  ASSERT_TRUE(openWrite());
  EXPECT_TRUE(file.REMOVE_TAGS(MTag("A", 2, 9), 1));
  EXPECT_FALSE(file.REMOVE_TAGS(MTag("A", 2, 9), 0));
  writeTag(file, MTag("C", 3, 0), "of another major version");
  MTag written("C", 3, 0);
  EXPECT_EQ(file.FIND_TAG(nullptr, written, 1, false), nullptr);
  EXPECT_NE(file.FIND_TAG(nullptr, written, 0, false), nullptr);
  EXPECT_EQ(namesOf(file), "B C C");
  closeSound();
  EXPECT_EQ(at.bytes(), headTag() + record("C", 3, 0, "of another major version") + b + c);
}

TEST_F(FileTagged, CopiesChangedHeadersAndOddOnes) {
  // Bytes behind the name's zero, a second head tag with a skip, tags before any head.
  const std::string odd = "OD\0Z!\0\2\1\2\0\0\0..."s;
  at.put(a + headTag(9, 9).replace(8, 1, 1, '\5') + odd.substr(0, 14) + c);
  ASSERT_TRUE(openWrite());
  closeSound();
  EXPECT_EQ(at.bytes(), headTag() + a + odd.substr(0, 14) + c);

  ASSERT_TRUE(openWrite());
  file.NEXT_TAG(file.NEXT_TAG(nullptr, false), false)->VERSION()[1] = 99;
  closeSound();
  EXPECT_EQ(at.bytes(), headTag() + a + std::string(odd).replace(7, 1, 1, 99).substr(0, 14) + c);
}

TEST_F(FileTagged, ListsWhatIsWholeAndStandsBehindIt) {
  const std::string sound = headTag() + a + b + c;
  for (std::size_t size = 0; size <= 12 + 17 + 12; ++size) {
    at.put(sound.substr(0, size));
    EXPECT_EQ(listed(), size < 29 ? "" : "A") << size;
  }
  putABC();
  at.cut(sound.size() - 1);
  EXPECT_EQ(listed(), "A B");
  putABC();
  at.nudge(23, -1);  // A's skip is negative
  EXPECT_EQ(listed(), "");
  putABC();
  ASSERT_TRUE(file.OPEN_UPDATE(at.name.c_str()));
  writeTag(file, MTag("D"), "added");
  closeSound();
  EXPECT_EQ(at.bytes(), sound + record("D", 2, 1, "added"));
}

TEST_F(FileTagged, FindsAndWalks) {
  at.put(headTag() + a + record("A", 1, 0, "old") + c + record("A", 2, 5, "again"));
  ASSERT_TRUE(openRead());
  MTag tag("A", 2, 0);
  MTag* first = file.FIND_TAG(nullptr, tag, 1, true);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(file.TELL(), 24);
  EXPECT_EQ(qeltest::bodyOf(file, tag), "first");
  const MTag copy = *first;
  EXPECT_STREQ(file.NEXT_TAG(&copy, false)->m_name, "A");
  ASSERT_NE(file.FIND_TAG(&copy, tag, 0, false), nullptr);
  EXPECT_EQ(tag.m_version[1], 5);
  EXPECT_EQ(file.FIND_TAG(nullptr, tag, 2, false), nullptr);
  // A node as the tag to look for: the list stays what it was.
  EXPECT_NE(file.FIND_TAG(first, *first, 0, false), nullptr);
  EXPECT_EQ(namesOf(file), "A A C A");
  EXPECT_TRUE(file.REMOVE_TAGS(*first, 0));
  EXPECT_EQ(namesOf(file), "A C");
}

TEST_F(FileTagged, SeesWrittenTagsInModeZeroOnly) {
  putABC();
  ASSERT_TRUE(openWrite());
  writeTag(file, MTag("A", 2, 0), "");
  MTag tag("A", 2, 0);
  EXPECT_EQ(file.FIND_TAG(nullptr, tag, 1, false), nullptr);
  EXPECT_NE(file.FIND_TAG(nullptr, tag, 0, false), nullptr);
  EXPECT_EQ(tag.m_skip, 0);
  writeTag(file, MTag("NEWTAG"), "");
  MTag added("NEWTAG");
  EXPECT_NE(file.FIND_TAG(nullptr, added, 0, false), nullptr);
  writeTag(file, MTag("GONE"), "");
  EXPECT_TRUE(file.REMOVE_TAGS(MTag("GONE"), 0));
  writeTag(file, MTag("LAST"), "");
  EXPECT_EQ(namesOf(file), "A B C NEWTAG LAST");
  closeSound();
}

TEST_F(FileTagged, TakesUsedTagsAndUsedObjects) {
  putABC();
  ASSERT_TRUE(openRead());
  MTag used("A", 2, 0);
  ASSERT_NE(file.FIND_TAG(nullptr, used, 0, false), nullptr);  // it leads on to B and C

  const std::wstring other = at.folder.wide("other.abc");
  ASSERT_TRUE(file.OPEN_WRITE(other.c_str()));  // nothing of part.abc may come along
  file.WRITE_TAG_BEGIN(used);
  EXPECT_EQ(used.m_next, nullptr);
  file.WRITE("copy", 4);
  EXPECT_TRUE(file.WRITE_TAG_END(used));
  EXPECT_EQ(namesOf(file), "A");
  EXPECT_EQ(file.NEXT_TAG(&used, false), nullptr);
  closeSound();
  EXPECT_EQ(readBytes(at.folder / "other.abc"), headTag() + record("A", 2, 0, "copy"));
  EXPECT_EQ(at.bytes(), headTag() + a + b + c);

  // A save that is given up, then a file that doesn't exist: the old backup is none of its
  // business.
  ASSERT_TRUE(openWrite());
  const std::wstring fresh = at.folder.wide("fresh.abc");
  ASSERT_TRUE(file.OPEN_WRITE(fresh.c_str()));
  closeSound();
  EXPECT_EQ(readBytes(at.folder / "fresh.abc"), headTag());
  EXPECT_EQ(readBytes(at.bak), headTag() + a + b + c);
}

TEST_F(FileTagged, RewritesTheNodeThatIsGiven) {
  at.put(headTag() + record("A", 2, 0, "one") + record("A", 2, 0, "two") + c);
  ASSERT_TRUE(openWrite());
  MTag* second = file.NEXT_TAG(file.NEXT_TAG(nullptr, false), false);
  file.WRITE_TAG_BEGIN(*second);
  file.WRITE("2", 1);
  second->m_updated = true;
  EXPECT_TRUE(file.WRITE_TAG_END(*second) && !second->m_updated);
  closeSound();
  EXPECT_EQ(at.bytes(), headTag() + record("A", 2, 0, "2") + record("A", 2, 0, "one") + c);
}

TEST_F(FileTagged, RewritesManyRecordsEachInItsTurn) {
  constexpr int count = 100;
  const auto nameOf = [](int i) { return std::string("R") + std::to_string(i % 50); };
  std::string old = headTag();
  for (int i = 0; i < count; ++i) old += record(nameOf(i), 2, i, "old");
  at.put(old);
  ASSERT_TRUE(openWrite());
  std::string expected = headTag();
  const auto write = [&](int i, unsigned char minor) {
    MTag tag(nameOf(i).c_str(), 2, minor);
    writeTag(file, tag, "new");
    expected += record(nameOf(i), 2, minor, "new");
  };
  for (int i = count - 1; i > 0; --i) write(i, 7);  // R0 is left once
  write(48, 6);                                     // a third one, which the file didn't have
  EXPECT_TRUE(file.REMOVE_TAGS(MTag("R0", 2, 0), 0));
  for (int i = 0; i < 3; ++i) write(i, 8);
  MTag again("R0", 2, 0);
  EXPECT_NE(file.FIND_TAG(nullptr, again, 0, false), nullptr);
  write(0, 9);
  closeSound();
  EXPECT_EQ(at.bytes(), expected);
  EXPECT_EQ(listed().substr(0, 12), "R49 R48 R47 ");
}

TEST_F(FileTagged, RefusesALengthThatThirtyOneBitsCannotTell) {
  ASSERT_TRUE(openWrite());
  MTag tag("BIG"), never_begun("X");
  file.WRITE_TAG_BEGIN(tag);
  file.SEEK(0x80000000LL, 1);
  EXPECT_FALSE(file.WRITE_TAG_END(tag) || file.WRITE_TAG_END(never_begun));
  file.CLOSE();
  EXPECT_EQ(at.bytes(), headTag() + header("BIG", 2, 1, 0));
}

TEST_F(FileTagged, WalksASparseFileOfGigabytes) {
  at.put(headTag());
  MFile plain;
  ASSERT_TRUE(plain.OPEN_UPDATE(at.name.c_str()) && plain.SEEK(0, 2));
  for (int i = 0; i < 3; ++i) {
    plain.WRITE(header("BIG", 2, 1, 0x70000000).data(), 12);
    plain.SEEK(0x70000000, 1);
  }
  plain.WRITE(a.data(), a.size());
  plain.CLOSE();
  EXPECT_EQ(listed(), "BIG BIG BIG A");
  MTag tag("A", 2, 0);
  ASSERT_NE(file.FIND_TAG(nullptr, tag, 0, true), nullptr);
  EXPECT_EQ(qeltest::bodyOf(file, tag), "first");
}

TEST_F(FileTagged, LeavesTheOldFileAloneWhenItCannotBeSetAside) {
  putABC();
  std::filesystem::create_directory(at.bak);
  EXPECT_FALSE(openWrite());
  const std::uint32_t first_error = file.GET_RESULT();
  EXPECT_NE(first_error, 0U);
  EXPECT_EQ(at.bytes(), headTag() + a + b + c);
  std::filesystem::remove(at.bak);
  std::filesystem::rename(at.file, at.bak);  // which can't be its own backup
  EXPECT_FALSE(file.OPEN_WRITE(at.folder.wide("part.bak").c_str()) || file.IS_OPEN());
  EXPECT_EQ(readBytes(at.bak), headTag() + a + b + c);
  EXPECT_FALSE(file.OPEN_READ(at.folder.wide("missing").c_str()));
  EXPECT_TRUE(file.OPEN_WRITE(at.folder.wide("sound").c_str()));
  EXPECT_EQ(file.GET_RESULT(), first_error);
  EXPECT_FALSE(file.OPEN_READ(at.folder.wide().c_str()) ||
               file.OPEN_WRITE(at.folder.wide().c_str()));
  struct Opener : MFileTagged {
    using MFileTagged::_OPEN;
  } opener;
  EXPECT_FALSE(opener._OPEN(at.folder.wide("part.bak").c_str(), 4) || opener.IS_OPEN());
}

TEST_F(FileTagged, RemovesAnOlderBackupUnlessItHoldsMore) {
  struct Row {
    std::string backup;
    bool kept;
  };
  const Row rows[] = {
      {"no tagged file", false},
      {headTag(), false},
      {headTag() + c + record("A", 2, 5, "another body"), false},
      {headTag() + c + record("D", 2, 1, ""), true},
      {headTag() + record("A", 1, 0, ""), true},
      {headTag() + a + a, true},
      {headTag() + record("D", 2, 1, "cut").substr(0, 14), false},
      {a + record("D", 2, 1, ""), false},
  };
  Names aside;
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.backup));
    putABC();
    writeBytes(at.bak, row.backup);
    if (row.kept) aside.push_back("part.bak" + std::to_string(aside.size() + 1));
    ASSERT_TRUE(openWrite());
    closeSound();
    Names expected{"part.abc"};
    expected.insert(expected.end(), aside.begin(), aside.end());
    EXPECT_EQ(at.files(), expected);
    if (row.kept) {
      EXPECT_EQ(readBytes(at.folder / aside.back()), row.backup);
    }
    EXPECT_EQ(at.bytes(), headTag() + a + b + c);
  }
  // A file that ends within a record has lost that record, whatever its header says.
  at.put(headTag() + a + c.substr(0, 13));
  writeBytes(at.bak, headTag() + a);
  ASSERT_TRUE(openWrite());
  closeSound();
  EXPECT_EQ(readBytes(at.folder / "part.bak4"), headTag() + a);
}

TEST_F(FileTagged, KeepsTheBackupBesideTheFileUnderEveryFormOfName) {
  const auto save = [&](const std::wstring& name) {
    putABC();
    ASSERT_TRUE(file.OPEN_WRITE(name.c_str()));
    EXPECT_EQ(at.files(), (Names{"part.abc", "part.bak"}));
    writeTag(file, MTag("A", 2, 0), "x");
    closeSound();
    EXPECT_EQ(at.bytes(), headTag() + record("A", 2, 0, "x") + b + c);
  };
  std::wstring slashes = at.name;
  std::replace(slashes.begin(), slashes.end(), L'\\', L'/');
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(at.folder.path());
  const std::wstring upwards = L"..\\" + at.folder.path().filename().wstring() + L"\\part.abc";
  for (const std::wstring& name : {slashes, L"\\\\?\\" + at.name, at.name.substr(2), upwards,
                                   L"part.abc"s, L".\\part.abc"s, L"C:part.abc"s}) {
    save(name);
  }
  std::filesystem::current_path(before);

  // The link stays one, and its target is saved.
  writeBytes(at.folder / "t", headTag() + a);
  std::filesystem::remove(at.file);
  std::filesystem::create_symlink("t", at.file);
  ASSERT_TRUE(openWrite());
  writeTag(file, MTag("N"), "");
  closeSound();
  EXPECT_TRUE(std::filesystem::is_symlink(at.file));
  EXPECT_EQ(readBytes(at.folder / "t"), headTag() + record("N", 2, 1, "") + a);
}
