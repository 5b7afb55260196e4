// qel tag check and recover on damaged files: one rule a row, and nothing whole is lost.

#include <gtest/gtest.h>

#include "Tool.h"

using namespace qeltest;

namespace {

const std::string sound = head + tag("A", raw("aaa")) + tag("B", raw("bbb"));
constexpr std::size_t b_at = 12 + 27;  // where B begins

// `bytes` with those from `at` on replaced.
std::string nudged(std::string bytes, std::size_t at, const std::string& by) {
  return bytes.replace(at, by.size(), by);
}

struct Damage {
  const char* name;
  std::string bytes;
  std::string finding;    // of check; empty: sound
  std::string recovered;  // what recover makes of it without a backup; empty: nothing
};
std::ostream& operator<<(std::ostream& stream, const Damage& row) {
  return stream << row.name;
}

const Damage damages[] = {
    {"sound", sound, "", sound},
    {"head_only", head, "", head},
    {"cut_body", sound.substr(0, sound.size() - 1),
     "position 39: cut-body: the body of \"B\" should have 15 bytes, the file has 14",
     head + tag("A", raw("aaa"))},
    {"cut_header", sound.substr(0, b_at + 11), "position 39: trailing-bytes: 11 bytes are left",
     head + tag("A", raw("aaa"))},
    {"trailing", sound + "x", "position 66: trailing-bytes: 1 bytes are left", sound},
    {"negative_skip", nudged(sound, b_at + 8, "\xFE\xFF\xFF\xFF"),
     "position 39: negative-skip: the skip of \"B\" is -2", head + tag("A", raw("aaa"))},
    {"skip_too_long", nudged(sound, 20, "\x7F"), "position 12: cut-body: the body of \"A\"",
     head + tag("B", raw("bbb"))},
    {"records_behind_damage",
     head + tag("A", raw("aaa")) + "\xFF\xFF\xFF\xFF some other bytes" + tag("C", raw("ccc")) +
         tag("D", raw("ddd")) + tag("E", raw("eee")) + "and again" + tag("F", "", 1, 0),
     "position 39: cut-body",
     head + tag("A", raw("aaa")) + tag("C", raw("ccc")) + tag("D", raw("ddd")) +
         tag("E", raw("eee")) + tag("F", "", 1, 0)},
    {"sub_tags_behind_damage",
     head + tag("A", raw("aaa") + header("X", 2, 1, 99) + "?" + tag("Y", raw("y")) + tag("Z", "")),
     "position 39: overrun", head + tag("A", raw("aaa") + tag("Y", raw("y")) + tag("Z", ""))},
    {"overrun", nudged(sound, 32, "\x04"),
     "position 24: overrun: the body of \"DATA\" should have 4 bytes, the enclosing tag has 3",
     head + tag("A", raw(raw("aaa").replace(8, 1, "\x04"))) + tag("B", raw("bbb"))},
    {"raw_bytes_for_tags", head + tag("A", "0123456789ABC") + tag("B", raw("bbb")),
     "position 24: overrun", head + tag("A", raw("0123456789ABC")) + tag("B", raw("bbb"))},
    {"second_sub_tag_overruns", head + tag("A", raw("aaa") + header("X", 2, 1, 9)),
     "position 39: overrun: the body of \"X\" should have 9 bytes, the enclosing tag has 0",
     head + tag("A", raw("aaa"))},
    {"trailing_in_body", head + tag("A", raw("aaa") + "zz") + tag("B", raw("bbb")),
     "position 39: trailing-bytes: 2 bytes are left", sound},
    {"deeper_damage", head + tag("A", tag("C", raw("aaa") + "zz") + raw("d")),
     "position 51: trailing-bytes", head + tag("A", tag("C", raw("aaa")) + raw("d"))},
    {"head_with_skip", nudged(sound, 8, "\x05"),
     "position 0: head-skip: the head tag tells a body of 5 bytes", sound},
    {"stray_head", head + tag("A", raw("aaa")) + head + tag("B", raw("bbb")),
     "position 39: stray-head", sound},
    {"stray_head_inside", head + tag("A", head + raw("aaa")) + tag("B", raw("bbb")),
     "position 24: stray-head", sound},
    {"wrong_head", nudged(sound, 0, "q"), "position 0: head: the file does not begin", sound},
    {"cut_head", head.substr(0, 11), "position 0: head", ""},
    {"empty", "", "position 0: head", ""},
    {"zeros", sound + std::string(4096, '\0'), "position 66: zero-header", sound},
    {"raw_leaves",
     head + tag("DATA", "0123456789ABC") + tag("MUID", "0123456789ABC") +
         tag("V1", "0123456789ABC", 1, 9) + tag("S", "0123456789A"),
     "", ""},
    {"muid_of_2_0_holds_tags", head + tag("MUID", "0123456789ABC", 2, 0), "position 24:", ""},
};

class TagDamage : public testing::TestWithParam<Damage> {};

TEST_P(TagDamage, IsToldByPositionAndRule) {
  const Tool tool;
  tool.write("a.abc", GetParam().bytes);
  const Outcome outcome = tool.run({"check", "a.abc"});
  EXPECT_EQ(outcome.exit_code, GetParam().finding.empty() ? 0 : 1) << outcome;
  EXPECT_EQ(
      outcome.out.find("a.abc: " + (GetParam().finding.empty() ? "sound" : GetParam().finding)), 0U)
      << outcome.out;
}

TEST_P(TagDamage, RecoversIntoASoundFileWithAllThatIsWhole) {
  const Tool tool;
  tool.write("a.abc", GetParam().bytes);
  const Outcome outcome = tool.run({"recover", "a.abc", "b.abc"});
  EXPECT_EQ(tool.read("a.abc"), GetParam().bytes);
  EXPECT_EQ(outcome.exit_code == 2, !tool.has("b.abc")) << outcome;
  if (!tool.has("b.abc")) return;
  EXPECT_EQ(tool.run({"check", "b.abc"}).exit_code, 0);
  if (!GetParam().recovered.empty()) {
    EXPECT_EQ(tool.read("b.abc"), GetParam().recovered) << outcome;
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, TagDamage, testing::ValuesIn(damages),
                         testing::PrintToStringParamName());

struct Pair {
  const char* name;
  std::string file;  // "-" for none
  std::string backup;
  std::string recovered;
  std::string told;
};
std::ostream& operator<<(std::ostream& stream, const Pair& row) {
  return stream << row.name;
}

const std::string a1 = tag("A", raw("old a"));
const std::string b1 = tag("B", raw("old b"));
const std::string c1 = tag("C", "old raw c", 1, 0);
const std::string b2 = tag("B", raw("new b, longer"));

const Pair pairs[] = {
    {"file_gone", "-", head + a1 + b1, head + a1 + b1, "kept  "},
    {"cut_between_records", head + b2, head + a1 + b1, head + b2 + a1, "kept  a.abc: position 12"},
    {"cut_in_a_record", head + b2 + tag("A", raw("new a")).substr(0, 20), head + a1 + b1,
     head + b2 + a1, "lost  a.abc: position 49"},
    {"begun_and_not_ended", head + b2 + header("A", 2, 1, 0) + header("DATA", 2, 1, 0) + "new",
     head + a1 + b1, head + b2 + a1, "outdated  a.abc: position 49"},
    {"damaged_inside", head + tag("A", header("DATA", 2, 1, 99) + "new a"), head + a1 + b1,
     head + a1 + b1, "damaged, and the backup's is whole"},
    {"raw_and_last", head + b2 + tag("C", "half", 1, 0), head + b1 + c1, head + b2 + c1,
     "maybe half written"},
    {"pairs_in_order", head + b2, head + b1 + tag("B", raw("2nd")) + tag("B", raw("v1"), 1, 0),
     head + b2 + tag("B", raw("2nd")) + tag("B", raw("v1"), 1, 0), "kept  "},
    {"foreign_file", "no tagged file at all", head + a1, head + a1, "lost  a.abc"},
};

class TagRecover : public testing::TestWithParam<Pair> {};

TEST_P(TagRecover, TakesTheNewestWholeRecordOfFileAndBackup) {
  const Tool tool;
  if (GetParam().file != "-") tool.write("a.abc", GetParam().file);
  tool.write("a.bak", GetParam().backup);
  EXPECT_NE(tool.run({"check", "a.abc"}).exit_code, 0);
  const Outcome outcome = tool.run({"recover", "a.abc", "b.abc"});
  ASSERT_NE(outcome.exit_code, 2) << outcome;
  EXPECT_EQ(tool.read("b.abc"), GetParam().recovered) << outcome;
  EXPECT_NE(outcome.out.find(GetParam().told), std::string::npos) << outcome.out;
  EXPECT_EQ(tool.read("a.bak"), GetParam().backup);
}

INSTANTIATE_TEST_SUITE_P(Rows, TagRecover, testing::ValuesIn(pairs),
                         testing::PrintToStringParamName());

TEST(TagRecoverRefusals, OverwritesNothingAndNeedsSomething) {
  const Tool tool;
  tool.write("a.abc", sound);
  tool.write("b.abc", "mine");
  EXPECT_EQ(tool.run({"recover", "a.abc", "b.abc"}).exit_code, 2);
  EXPECT_EQ(tool.read("b.abc"), "mine");
  EXPECT_EQ(tool.run({"recover", "b.abc", "c.abc"}).exit_code, 2);
  EXPECT_EQ(tool.run({"recover", "nowhere", "c.abc"}).exit_code, 2);
  EXPECT_EQ(tool.files(), 2U);
}

TEST(TagCheckBackup, OnlyATaggedFileCountsAsLeftBehind) {
  const Tool tool;
  tool.write("a.abc", sound);
  tool.write("a.bak", "of some other program");
  EXPECT_EQ(tool.run({"check", "a.abc"}).exit_code, 0);
  tool.write("a.bak", sound);
  const Outcome outcome = tool.run({"check", "a.abc", "a.bak"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out.find("a.abc: backup: an interrupted write has left its backup"), 0U);
  EXPECT_NE(outcome.out.find("a.bak: sound"), std::string::npos) << outcome.out;
}

}  // namespace
