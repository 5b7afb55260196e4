#include "qelbase/tagged/MTagList.h"

#include <gtest/gtest.h>

#include "tests/tagged/tagged_bytes.h"

using qeltest::header;
using qeltest::headTag;
using qeltest::namesOf;
using qeltest::record;
using qeltest::TaggedFolder;
using namespace std::literals;

namespace {

// Head, "ABC" 2.1 holding "DATA" with the body xyz, "EMPTY" without a body, "OLD" 1.0 with raw
// bytes.
constexpr std::string_view sound =
    "QELCOM\2\1\0\0\0\0"
    "ABC\0\0\0\2\1\17\0\0\0"
    "DATA\0\0\2\1\3\0\0\0xyz"
    "EMPTY\0\2\1\0\0\0\0"
    "OLD\0\0\0\1\0\2\0\0\0!!"sv;

class TagList : public testing::Test {
 protected:
  TaggedFolder at;
  MFile file;
  MTagList list;

  void open(std::string_view bytes) {
    at.put(bytes);
    ASSERT_TRUE(file.OPEN_READ(at.name.c_str()));
  }
  std::string listed() { return namesOf(list, file); }
};

}  // namespace

TEST_F(TagList, ListsTopLevelTagsAndKeepsThePosition) {
  open(sound);
  file.SEEK(7, 0);
  EXPECT_TRUE(list.BUILD_TAG_LIST(file));
  EXPECT_EQ(file.TELL(), 7);
  EXPECT_EQ(listed(), "ABC EMPTY OLD");
  EXPECT_EQ(list.GET_HEAD_TAG().m_version[0], 2);
  MTag* abc = list.NEXT_TAG(file, nullptr, true);
  EXPECT_EQ(file.TELL(), 24);
  EXPECT_EQ(abc->m_skip, 15);
  EXPECT_TRUE(list.BUILD_TAG_LIST(file, *abc, true));  // the table gives way to the tag's own tags
  EXPECT_EQ(listed(), "DATA");
  EXPECT_EQ(qeltest::bodyOf(file, *list.NEXT_TAG(file, nullptr, false)), "xyz");
}

TEST_F(TagList, ListsTheTreeDepthFirst) {
  open(sound);
  list.BUILD_TAG_TREE(file, 0, -1);
  EXPECT_EQ(listed(), "ABC DATA EMPTY OLD");
  list.BUILD_TAG_TREE(file, 24, 39);
  EXPECT_EQ(listed(), "DATA");
  list.BUILD_TAG_TREE(file, -5, -1);
  EXPECT_EQ(listed(), "");
  // By name alone: a tag of version 1 is looked into, "MUID" of version 2.0 is not.
  open(headTag() + record("V1", 1, 0, record("IN", 1, 0, "")) +
       record("MUID", 2, 0, record("IN", 2, 0, "")) + record("DATA", 2, 1, headTag()) +
       record("P", 2, 1, record("Q", 2, 1, record("R", 2, 1, "")) + record("S", 2, 1, "")));
  list.BUILD_TAG_TREE(file, 0, -1);
  EXPECT_EQ(listed(), "V1 IN MUID DATA P Q R S");
}

TEST_F(TagList, OnlyLooksIntoTagsThatHoldTags) {
  open(headTag() + record("A", 2, 1, record("IN", 2, 1, "")));
  struct Row {
    const char* name;
    unsigned char major, minor;
    std::int64_t skip;
    bool holds;
  };
  for (const Row& row :
       {Row{"A", 2, 0, 12, true}, Row{"A", 1, 9, 12, false}, Row{"A", 2, 0, 11, false},
        Row{"A", 2, 0, 0, false}, Row{"DATA", 2, 1, 12, false}, Row{"DATAX", 2, 1, 12, true},
        Row{"MUID", 2, 0, 12, true}, Row{"MUID", 2, 1, 12, false}, Row{"MUID", 3, 0, 12, false}}) {
    MTag tag(row.name, row.major, row.minor);
    tag.m_data_position = 24;
    tag.m_skip = row.skip;
    ASSERT_TRUE(list.BUILD_TAG_LIST(file));
    EXPECT_EQ(list.BUILD_TAG_LIST(file, tag, true), row.holds) << row.name;
    EXPECT_EQ(listed(), row.holds ? "IN" : "A") << row.name;
  }
  MTag unplaced("A");
  unplaced.m_skip = 12;
  unplaced.m_data_position = -1;
  EXPECT_FALSE(list.BUILD_TAG_LIST(file, unplaced, true));
  file.CLOSE();
  unplaced.m_data_position = 24;
  EXPECT_FALSE(list.BUILD_TAG_LIST(file) || list.BUILD_TAG_LIST(file, 100) ||
               list.BUILD_TAG_LIST(file, unplaced, false));
}

TEST_F(TagList, StopsTheRunAtItsLimit) {
  open(sound);
  struct Row {
    std::uint64_t limit;
    const char* names;
  };
  for (const Row& row : {Row{0, ""}, Row{12, ""}, Row{13, "ABC"}, Row{39, "ABC"},
                         Row{40, "ABC EMPTY"}, Row{~std::uint64_t{0}, "ABC EMPTY OLD"}}) {
    file.REWIND();
    EXPECT_TRUE(list.BUILD_TAG_LIST(file, row.limit));
    EXPECT_EQ(listed(), row.names) << row.limit;
  }
  EXPECT_EQ(list.GET_HEAD_TAG().m_position, 0);
}

TEST_F(TagList, TurnsDownAWrongHeadAndKeepsTheTable) {
  open(sound);
  ASSERT_TRUE(list.BUILD_TAG_LIST(file));
  for (std::string_view wrong : {""sv, "QELCOM\2\1\0\0\0"sv, "QELCON\2\1\0\0\0\0ABC"sv}) {
    open(wrong);
    EXPECT_FALSE(list.BUILD_TAG_LIST(file));
    EXPECT_EQ(listed(), "ABC EMPTY OLD");
  }
}

TEST_F(TagList, KeepsWhatStandsBeforeTheDamage) {
  const auto listedAfter = [&](auto damage) {
    at.put(sound);
    damage();
    EXPECT_TRUE(file.OPEN_READ(at.name.c_str()) && list.BUILD_TAG_LIST(file));
    std::string names = listed() + "/";
    list.BUILD_TAG_TREE(file, 0, -1);
    return names + listed();
  };
  // A cut body stays in a list but not in a tree.
  EXPECT_EQ(listedAfter([&] { at.cut(sound.size() - 1); }), "ABC EMPTY OLD/ABC DATA EMPTY");
  EXPECT_EQ(listedAfter([&] { at.cut(sound.size() - 3); }), "ABC EMPTY/ABC DATA EMPTY");
  EXPECT_EQ(listedAfter([&] { at.cut(30); }), "ABC/");
  EXPECT_EQ(listedAfter([&] { at.nudge(23, -1); }), "/");                  // ABC's skip negative
  EXPECT_EQ(listedAfter([&] { at.nudge(50, 1); }), "ABC EMPTY/ABC DATA");  // EMPTY's far too long
  EXPECT_EQ(listedAfter([&] { at.nudge(47, 1); }), "ABC EMPTY LD/ABC DATA EMPTY");  // and by one
  EXPECT_EQ(listedAfter([&] { at.nudge(35, -128); }), "ABC EMPTY OLD/ABC EMPTY OLD");
}

TEST_F(TagList, EndsOnHostileNesting) {
  constexpr std::uint32_t depth = 300000;
  std::string deep = headTag();
  for (std::uint32_t left = depth; left > 0; --left) deep += header("N", 2, 1, (left - 1) * 12);
  open(deep);
  list.BUILD_TAG_TREE(file, 0, -1);
  EXPECT_EQ(list.SIZE(), depth);

  // Each second tag overruns its parent, so that what lies below is reached on many ways.
  std::string woven = headTag();
  for (int i = 0; i < 2000; ++i) woven += header("W", 2, 1, i % 2 == 0 ? 48 : 12);
  open(woven);
  list.BUILD_TAG_TREE(file, 0, -1);
  EXPECT_LE(list.SIZE(), 2001U);
}

TEST_F(TagList, FindsByNameVersionAndMode) {
  open(headTag() + record("A", 1, 0, "1") + record("B", 2, 1, "") + record("A", 2, 1, "22") +
       record("A", 3, 0, ""));
  ASSERT_TRUE(list.BUILD_TAG_LIST(file));
  list.NEXT_TAG(file, nullptr, false)->m_written = true;  // the first A
  const auto found = [&](std::uint32_t version_test, std::uint32_t mode) {
    std::string versions;
    MTag tag("A", 2, 0);
    for (MTag* at_tag = nullptr; versions.size() < 9;) {
      tag.INIT("A", 2, 0);
      at_tag = list.FIND_TAG_EX(file, at_tag, tag, version_test, mode, true);
      if (!at_tag) break;
      EXPECT_EQ(file.TELL(), tag.m_data_position);
      versions += std::to_string(tag.m_version[0]);
    }
    return versions;
  };
  EXPECT_EQ(found(0, 0), "123");
  EXPECT_EQ(found(1, 0), "12");
  EXPECT_EQ(found(2, 0), "2");
  EXPECT_EQ(found(7, 0), "2");
  EXPECT_EQ(found(0, 1), "23");
  EXPECT_EQ(found(0, 2), "");

  MTag tag("A", 2, 0);
  MTag* hit = list.FIND_TAG(file, nullptr, tag, 0, false);
  ASSERT_NE(hit, nullptr);
  const MTag copy = *hit;
  EXPECT_EQ(list.NEXT_TAG(file, &copy, false), nullptr);
  EXPECT_EQ(list.FIND_TAG_EX(file, &copy, tag, 0, 0, false), nullptr);
  MTag nameless("", 2, 0);
  EXPECT_EQ(list.FIND_TAG_EX(file, nullptr, nameless, 0, 0, false), nullptr);
  EXPECT_TRUE(list.REMOVE_TAGS(*list.NEXT_TAG(file, nullptr, false), 0));  // an entry of its own
  EXPECT_FALSE(list.REMOVE_TAGS(MTag("B", 2, 0), 2));
  EXPECT_EQ(listed(), "B A A");
}

TEST_F(TagList, RewritesEntriesInTheirOrder) {
  constexpr int count = 100;
  const auto nameOf = [](int i) { return std::string("R") + std::to_string(i % 50); };
  std::string old = headTag();
  for (int i = 0; i < count; ++i) old += record(nameOf(i), 2, i, "");
  open(old);
  ASSERT_TRUE(list.BUILD_TAG_LIST(file));
  ASSERT_TRUE(file.OPEN_WRITE(at.name.c_str()));
  const auto minorOf = [&](int i) {
    MTag tag(nameOf(i).c_str(), 2, 200);
    EXPECT_EQ(list.WRITE_TAG_BEGIN(file, tag), file.IS_OPEN_WRITE());
    file.WRITE("x", 1);
    EXPECT_EQ(list.WRITE_TAG_END(file, tag) && tag.m_skip == 1, file.IS_OPEN_WRITE());
    return tag.m_version[1];
  };
  for (int i = 49; i > 0; --i) EXPECT_EQ(minorOf(i), i);
  EXPECT_TRUE(list.REMOVE_TAGS(MTag("R7", 2, 0), 1));  // the second R7: all behind it move
  for (int i = 49; i > 0; --i) EXPECT_EQ(minorOf(i), i == 7 ? 200 : i + 50);
  ASSERT_TRUE(file.OPEN_READ(at.name.c_str()));
  minorOf(0);  // fails, so that the entry is still to be written
  ASSERT_TRUE(file.OPEN_WRITE(at.name.c_str()));
  EXPECT_EQ(minorOf(0), 0);
  EXPECT_EQ(minorOf(0), 50);
  MTag* const entry = list.NEXT_TAG(file, nullptr, false);  // which is written: a new one follows
  EXPECT_TRUE(list.WRITE_TAG_BEGIN(file, *entry));
  EXPECT_EQ(list.NEXT_TAG(file, nullptr, false)->m_position, 26);
  EXPECT_EQ(list.SIZE(), static_cast<std::size_t>(count) + 1);
  file.CLOSE();
  EXPECT_EQ(at.bytes().substr(0, 26), record("R0", 2, 0, "x") + record("R0", 2, 50, "x"));
}

TEST_F(TagList, PassesAFailedWriteOn) {
  open(sound);
  ASSERT_TRUE(list.BUILD_TAG_LIST(file));
  MTag tag("ABC", 2, 1);
  EXPECT_FALSE(list.WRITE_TAG_BEGIN(file, tag));  // open for reading
  ASSERT_TRUE(file.OPEN_WRITE(at.name.c_str()));
  EXPECT_TRUE(list.WRITE_TAG_BEGIN(file, tag));
  EXPECT_EQ(list.SIZE(), 3U);
}
