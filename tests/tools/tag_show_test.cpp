// qel tag ls, tree, cat, dump, diff, extract: what a user sees of sound and of foreign files.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Tool.h"

using namespace qeltest;
using nlohmann::json;

namespace {

// Two records of one name, a nested one, a raw one of version 1, and odd names.
const std::string sample = head + tag("NAME", raw("Spider")) +
                           tag("MESH", tag("POINTS", raw("ppp")) + tag("TRIS", raw(""))) +
                           tag("OLD", "0123456789ABCDEF", 1, 0) + tag("NAME", raw("Fly")) +
                           tag("a/[\xFF", "raw") + tag("..", raw("dots"));

struct Row {
  const char* name;
  std::vector<std::string> words;
  int exit_code;
  std::string out;  // the whole of it
  std::string err;  // a part of it; empty: nothing at all
};
std::ostream& operator<<(std::ostream& stream, const Row& row) {
  return stream << row.name;
}

class TagShow : public testing::TestWithParam<Row> {};

TEST_P(TagShow, PrintsAndEndsAsTold) {
  const Tool tool;
  tool.write("a.abc", sample);
  tool.write("b.abc", head + tag("NAME", raw("Spiker")) + tag("MESH", tag("POINTS", raw("ppp"))) +
                          tag("OLD", "0123456789ABCDEF", 1, 1) + tag("NEW", ""));
  tool.write("cut.abc", head + tag("NAME", raw("x")) + "tail");
  tool.write("text", "just a text of some length");
  tool.write("empty", "");
  mkfifo((tool.folder() / "pipe").c_str(), 0600);
  const Outcome outcome = tool.run(GetParam().words);
  EXPECT_EQ(outcome.exit_code, GetParam().exit_code) << outcome;
  EXPECT_EQ(outcome.out, GetParam().out);
  EXPECT_NE(outcome.err.find(GetParam().err), std::string::npos) << outcome.err;
  EXPECT_EQ(outcome.err.empty(), GetParam().err.empty()) << outcome.err;
}

const std::string columns = "    position         size  version  name\n";

const Row rows[] = {
    {"ls",
     {"ls", "a.abc"},
     0,
     columns + "           0               2.1      QELCOM\n"
               "          12           18  2.1      NAME\n"
               "          42           51  2.1      MESH\n"
               "         105           16  1.0      OLD\n"
               "         133           15  2.1      NAME\n"
               "         160            3  2.1      a\\x2f\\x5b\\xff\n"
               "         175           16  2.1      ..\n",
     ""},
    {"tree_hex",
     {"tree", "--hex", "cut.abc"},
     1,
     columns + "         0x0               2.1      QELCOM\n"
               "         0xc          0xd  2.1      NAME\n"
               "        0x18          0x1  2.1        DATA\n",
     "qel: cut.abc: position 0x25: trailing-bytes: 0x4 bytes are left"},
    {"cat",
     {"cat", "a.abc", "NAME[2]/DATA", "MESH/POINTS/DATA", "a\\x2F\\x5b\\xff"},
     0,
     "Flypppraw",
     ""},
    {"cat_body_with_tags", {"cat", "a.abc", "NAME"}, 0, raw("Spider"), ""},
    {"cat_nothing", {"cat", "a.abc", "NAME[3]"}, 2, "", "a.abc: there is no record NAME[3]"},
    {"cat_bad_path", {"cat", "a.abc", "TOOLONG"}, 2, "", "at most 6 bytes"},
    {"cat_bad_index", {"cat", "a.abc", "NAME[0]"}, 2, "", "a number from 1"},
    {"cat_from_another_level", {"cat", "a.abc", "MESH/NAME"}, 2, "", "no record MESH/NAME"},
    {"cat_behind_raw", {"cat", "a.abc", "OLD/DATA"}, 2, "", "no record OLD/DATA"},
    {"dump",
     {"dump", "a.abc", "MESH/POINTS/DATA", "OLD", "--limit", "4"},
     0,
     "MESH/POINTS/DATA  version 2.1, 3 bytes\n"
     "          66  44 41 54 41 00 00 02 01 03 00 00 00              |DATA........|\n"
     "          78  70 70 70                                         |ppp|\n"
     "OLD  version 1.0, 16 bytes\n"
     "         105  4f 4c 44 00 00 00 01 00 10 00 00 00              |OLD.........|\n"
     "         117  30 31 32 33                                      |0123|\n"
     "              ... 12 bytes more\n",
     ""},
    {"diff",
     {"diff", "a.abc", "b.abc"},
     1,
     "~ NAME/DATA  6 bytes -> 6 bytes, differ from byte 3 of the body on\n"
     "- MESH/TRIS  12 bytes\n- MESH/TRIS/DATA  0 bytes\n"
     "~ OLD  version 1.0 -> 1.1\n- NAME[2]  15 bytes\n- NAME[2]/DATA  3 bytes\n"
     "- a\\x2f\\x5b\\xff  3 bytes\n- ..  16 bytes\n- ../DATA  4 bytes\n+ NEW  0 bytes\n",
     ""},
    {"diff_same", {"diff", "a.abc", "a.abc"}, 0, "", ""},
    {"not_there", {"ls", "nowhere"}, 2, "", "qel: nowhere: No such file"},
    {"folder", {"ls", "."}, 2, "", "qel: .: Is a directory"},
    {"pipe", {"ls", "pipe"}, 2, "", "pipe: no regular file"},
    {"foreign", {"tree", "text"}, 2, "", "text: no tagged file"},
    {"empty", {"cat", "empty", "A"}, 2, "", "empty: no tagged file"},
    {"good_one_after_bad_one",
     {"check", "nowhere", "a.abc"},
     2,
     "a.abc: sound, 13 records\n",
     "nowhere: No such file"},
    {"no_command", {}, 2, "", "subcommand"},
    {"no_file", {"ls"}, 2, "", "FILE"},
};
INSTANTIATE_TEST_SUITE_P(Rows, TagShow, testing::ValuesIn(rows), testing::PrintToStringParamName());

TEST(TagJson, ListsAndChecksForPrograms) {
  const Tool tool;
  tool.write("a.abc", sample);
  tool.write("cut\xFF.abc", head + tag("AB", "x").substr(0, 12));
  const json tree = json::parse(tool.run({"tree", "--json", "a.abc"}).out);
  ASSERT_EQ(tree.size(), 1U);
  EXPECT_EQ(tree[0]["records"].size(), 13U);
  EXPECT_EQ(tree[0]["records"][3], json({{"name", "POINTS"},
                                         {"version", "2.1"},
                                         {"position", 54},
                                         {"size", 15},
                                         {"depth", 1},
                                         {"holds_tags", true}}));
  const json check = json::parse(tool.run({"check", "--json", "cut\xFF.abc", "a.abc"}).out);
  ASSERT_EQ(check.size(), 2U);
  EXPECT_EQ(check[0]["findings"][0]["rule"], "cut-body");
  EXPECT_EQ(check[0]["findings"][0]["position"], 12);
  EXPECT_EQ(check[1]["sound"], true);
}

TEST(TagExtract, WritesRecordsBelowTheFolderAndNowhereElse) {
  const Tool tool;
  tool.write("a.abc", sample);
  ASSERT_EQ(tool.run({"extract", "a.abc", "-C", "out"}).exit_code, 0);
  EXPECT_EQ(tool.read("out/NAME[2]/DATA"), "Fly");
  EXPECT_EQ(tool.read("out/a\\x2f\\x5b\\xff"), "raw");
  EXPECT_EQ(tool.read("out/\\x2e./DATA"), "dots");
  EXPECT_EQ(tool.files(), 2U);

  const Outcome again = tool.run({"extract", "a.abc", "NAME", "-C", "out"});
  EXPECT_EQ(again.exit_code, 2);
  EXPECT_NE(again.err.find("out/NAME/DATA: File exists"), std::string::npos) << again.err;
  EXPECT_EQ(tool.run({"extract", "a.abc", "OLD", "-o", "-"}).out, "0123456789ABCDEF");
  EXPECT_EQ(tool.run({"extract", "a.abc", "OLD", "NAME", "-o", "-"}).exit_code, 2);
}

TEST(TagMessages, NamesInAnyBytesAreReachedAndPrintedSafely) {
  const Tool tool;
  const std::string name = "\xF0\x9F\x95\xB7\x1B[31m\xFE.abc";
  tool.write(name, sample);
  EXPECT_EQ(tool.run({"cat", name, "NAME/DATA"}).out, "Spider");
  EXPECT_EQ(tool.run({"check", name}).out,
            "\xF0\x9F\x95\xB7\\x1b[31m\\xfe.abc: sound, 13 records\n");
  EXPECT_EQ(tool.run({"put", name, "NAME/DATA"}, "Bee").exit_code, 0);
  EXPECT_EQ(tool.run({"cat", name, "NAME/DATA"}).out, "Bee");
  EXPECT_EQ(tool.files(), 1U);
}

TEST(TagMessages, OutputThatCannotBeWrittenIsTold) {
  const Tool tool;
  tool.write("a.abc", sample);
  const Outcome outcome = tool.run({"tree", "a.abc"}, {}, [] {
    const int full = open("/dev/full", O_WRONLY);
    dup2(full, STDOUT_FILENO);
  });
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_NE(outcome.err.find("standard output: No space left"), std::string::npos) << outcome.err;
}

TEST(TagMessages, FileWithoutPermissionIsTold) {
  if (geteuid() != 0) GTEST_SKIP() << "takes another user";
  const Tool tool;
  tool.write("a.abc", sample);
  std::filesystem::permissions(tool.folder() / "a.abc", std::filesystem::perms::none);
  std::filesystem::permissions(tool.folder().path(), std::filesystem::perms::all);
  const Outcome outcome = tool.run({"ls", "a.abc"}, {}, [] {
    if (setuid(65534) != 0) _exit(126);
  });
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_NE(outcome.err.find("a.abc: Permission denied"), std::string::npos) << outcome.err;
}

// 4 GiB with a body of nothing, then 200,000 records and nesting 50,000 deep: the program may have
// no more memory than a small file takes.
TEST(TagWalk, HugeFileIsListedAndCheckedInLittleMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer reserves memory of its own";
#endif
  const Tool tool;
  std::string small;
  for (int i = 0; i < 200000; ++i) small += tag("S", "abc");
  std::string deep;
  for (int i = 50000; i > 0; --i)
    deep += header("N", 2, 1, static_cast<std::uint32_t>(12 * (i - 1)));
  const std::string name = "huge.abc";
  constexpr std::uint32_t big = 0x7FFFFFFF;
  tool.write(name, head + header("DATA", 2, 1, big));
  std::int64_t end = 24 + std::int64_t{big};
  for (int i = 0; i < 2; ++i) {
    std::filesystem::resize_file(tool.folder() / name, static_cast<std::uintmax_t>(end));
    const std::string next = i == 0 ? header("OLD", 1, 0, big) : small + deep;
    std::ofstream(tool.folder() / name, std::ios::binary | std::ios::app) << next;
    end += i == 0 ? 12 + std::int64_t{big} : 0;
  }
  const auto little = [] {
    const rlimit limit{64 << 20, 64 << 20};
    if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(126);
  };
  EXPECT_EQ(tool.run({"check", name}, {}, little).out, "huge.abc: sound, 250002 records\n");
  const Outcome list = tool.run({"ls", name}, {}, little);
  EXPECT_EQ(list.exit_code, 0) << list.err;
  EXPECT_EQ(std::count(list.out.begin(), list.out.end(), '\n'), 200005);
}

}  // namespace
