#include "qelbase/tagged/MTag.h"

#include <gtest/gtest.h>

#include "tests/tagged/tagged_bytes.h"

using qeltest::TaggedFolder;
using namespace std::literals;

TEST(MTag, StandsInTwelveBytes) {
  struct Row {
    MTag tag;
    std::int64_t skip;
    std::string_view bytes;
    const char* name_read;
  };
  const Row rows[] = {
      {MTag("ABCDEFGH", 2, 1), 0, "ABCDEF\2\1\0\0\0\0"sv, "ABCDEF"},
      {MTag("AB"), 3, "AB\0\0\0\0\2\1\3\0\0\0"sv, "AB"},
      {MTag(), 0x01020304, "\0\0\0\0\0\0\1\0\4\3\2\1"sv, ""},
      {MTag(nullptr, 255, 7), 0x7fffffff, "\0\0\0\0\0\0\377\7\377\377\377\177"sv, ""},
      {MTag("\xc3\x84", 1, 0), -1, "\xc3\x84\0\0\0\0\1\0\377\377\377\377"sv, "\xc3\x84"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.bytes));
    const TaggedFolder at;
    MTag tag = row.tag;
    EXPECT_TRUE(tag.m_position == -1 && tag.m_data_position == -1);
    tag.m_skip = row.skip;
    MFile file;
    ASSERT_TRUE(file.OPEN_WRITE(at.name.c_str()) && file.WRITE("xyz", 3) && tag.WRITE(file));
    file.CLOSE();
    EXPECT_EQ(at.bytes(), "xyz" + std::string(row.bytes));
    MTag read("OTHERX", 9, 9);
    read.m_written = read.m_updated = true;
    ASSERT_TRUE(file.OPEN_READ(at.name.c_str()) && file.SEEK(3, 0) && read.READ(file));
    EXPECT_STREQ(read.m_name, row.name_read);
    EXPECT_EQ(read.m_version[0], row.tag.m_version[0]);
    EXPECT_EQ(read.m_version[1], row.tag.m_version[1]);
    EXPECT_EQ(read.m_skip, row.skip);
    EXPECT_FALSE(read.m_written || read.m_updated);
    EXPECT_EQ(read.m_position, 3);
    EXPECT_EQ(read.m_data_position, 15);
    EXPECT_FALSE(read.READ(file));  // and knows where it tried
    EXPECT_EQ(read.m_position, 15);
    EXPECT_EQ(read.m_data_position, 27);
  }
}

TEST(MTag, PatchesItsSkipOnceUntilThatIsUndone) {
  const TaggedFolder at;
  MFile file;
  MTag tag("A", 2, 1);
  ASSERT_TRUE(file.OPEN_WRITE(at.name.c_str()) && tag.WRITE(file));
  file.WRITE("12345", 5);
  EXPECT_TRUE(tag.UPDATE_SKIP(file));
  EXPECT_EQ(file.TELL(), 17);
  file.WRITE("6", 1);
  EXPECT_TRUE(tag.UPDATE_SKIP(file));
  EXPECT_EQ(tag.m_skip, 5);
  tag.UNDO_UPDATE();
  EXPECT_TRUE(tag.UPDATE_SKIP(file));
  file.CLOSE();
  EXPECT_EQ(at.bytes(), "A\0\0\0\0\0\2\1\6\0\0\000123456"s);
}

TEST(MTag, RefusesALengthThatThirtyOneBitsCannotTell) {
  struct Row {
    std::int64_t end;
    bool told;
    std::uint32_t skip_on_disk;
  };
  for (const Row& row :
       {Row{12 + 0x7fffffffLL, true, 0x7fffffff}, Row{12 + 0x80000000LL, false, 77},
        Row{5LL << 30, false, 77}, Row{11, false, 77}}) {
    const TaggedFolder at;
    MFile file;
    MTag tag("A", 2, 1);
    tag.m_skip = 77;
    ASSERT_TRUE(file.OPEN_WRITE(at.name.c_str()) && tag.WRITE(file) && file.SEEK(row.end, 0));
    EXPECT_EQ(tag.UPDATE_SKIP(file), row.told) << row.end;
    EXPECT_EQ(file.TELL(), row.end);
    file.CLOSE();
    EXPECT_EQ(at.bytes(), qeltest::header("A", 2, 1, row.skip_on_disk));
  }
  MTag unplaced("A");
  const TaggedFolder at;
  MFile file;
  ASSERT_TRUE(file.OPEN_WRITE(at.name.c_str()) && file.WRITE("0123456789", 10));
  EXPECT_FALSE(unplaced.UPDATE_SKIP(file));
  file.CLOSE();
  EXPECT_EQ(at.bytes(), "0123456789");
}

TEST(MTag, ComparesByNameAndMajorVersion) {
  struct Row {
    MTag a, b;
    bool equal, mode0, mode1, mode2;
  };
  const Row rows[] = {
      {MTag("A", 2, 0), MTag("A", 2, 1), true, true, true, true},
      {MTag("A", 1, 0), MTag("A", 2, 0), false, true, false, false},
      {MTag("A", 2, 0), MTag("A", 1, 0), false, true, true, false},
      {MTag("A", 2, 0), MTag("a", 2, 0), false, false, false, false},
      {MTag("A", 2, 0), MTag("AB", 2, 0), false, false, false, false},
      {MTag("ABCDEF", 2, 0), MTag("ABCDEFX", 2, 0), true, true, true, true},
      {MTag("", 1, 0), MTag(nullptr, 1, 0), true, true, true, true},
      {MTag("\x84", 1, 0), MTag("\4", 1, 0), false, false, false, false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(row.a == row.b, row.equal) << row.a.m_name << row.b.m_name;
    EXPECT_EQ(row.a.COMPARE(row.b, 0), row.mode0);
    EXPECT_EQ(row.a.COMPARE(row.b, 1), row.mode1);
    EXPECT_EQ(row.a.COMPARE(row.b, 2), row.mode2);
  }
  MTag junk("B", 2, 0);
  junk.m_name[3] = 'Z';  // behind the zero, as a foreign writer may leave it
  EXPECT_TRUE(junk == MTag("B", 2, 0));
}

TEST(MTag, CopiesAllButWhetherItWasUpdated) {
  MTag from("ABCDEF", 3, 4);
  from.m_written = from.m_updated = true;
  from.m_position = 5;
  from.m_next = &from;
  const MTag copy = from;
  EXPECT_TRUE(copy.m_written && !copy.m_updated && copy.m_position == 5 && copy.m_next == &from);
  MTag target;
  from.m_updated = false;
  target.m_updated = true;
  target = from;
  EXPECT_TRUE(target.m_updated && target == from && target.m_version[1] == 4);
  target.INIT("A");
  EXPECT_FALSE(target.m_updated || target.m_written || target.m_next);
}
