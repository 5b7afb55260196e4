// qel sum: values, lists, and what it says of files that changed.

#include <gtest/gtest.h>

#include "Tool.h"

using namespace qeltest;
using namespace std::string_literals;

namespace {

Outcome sum(const Tool& tool, std::vector<std::string> words) {
  words.insert(words.begin(), {QEL_PROGRAM, "sum"});
  return tool.runProgram(words);
}

}  // namespace

// The check values of "123456789": FIPS 180-1 code, CRC-32/JAMCRC, CRC-16/CCITT-FALSE; the sums are
// 477 and a start value of all ones.
TEST(Sum, GivesThePublishedValues) {
  const Tool tool;
  tool.write("nine", "123456789");
  const struct {
    const char* option;
    const char* value;
  } rows[] = {{"--sha1", "f7c3bc1d808e04732adf679965ccc34ca7ae3441"},
              {"--crc32", "340bc6d9"},
              {"--crc16", "29b1"},
              {"--sum8", "dc"},
              {"--sum16", "01dc"},
              {"--sum32", "000001dc"}};
  for (const auto& row : rows) {
    EXPECT_EQ(sum(tool, {row.option, "nine"}).out, row.value + "  nine\n"s) << row.option;
  }
  EXPECT_EQ(sum(tool, {"--sha1", "--crc32", "nine"}).exit_code, 2);
  EXPECT_EQ(sum(tool, {"nine", "none"}).exit_code, 2);
  EXPECT_EQ(sum(tool, {"--json", "--crc16", "nine"}).out,
            "[\n{\"algorithm\":\"crc16\",\"file\":\"nine\",\"sum\":\"29b1\"}\n]\n");
}

TEST(Sum, ChecksAListThatOtherProgramsUnderstand) {
  const Tool tool;
  tool.write("a", "one");
  tool.write("b\\ \n\xFF", std::string(3 << 20, 'x'));
  const std::string list = sum(tool, {"a", "b\\ \n\xFF"}).out;
  tool.write("list", list);
  EXPECT_EQ(tool.runProgram({"sha1sum", "--check", "--status", "list"}).exit_code, 0) << list;
  EXPECT_EQ(sum(tool, {"--check", "list"}).exit_code, 0);

  tool.write("a", "two");
  const Outcome changed = sum(tool, {"-c", "list"});
  EXPECT_EQ(changed.exit_code, 1);
  EXPECT_NE(changed.out.find("a: FAILED\n"), std::string::npos) << changed;
  tool.write("list", "nonsense\n" + list);
  EXPECT_NE(sum(tool, {"-c", "list"}).err.find("list: line 1 "), std::string::npos);
  EXPECT_EQ(sum(tool, {"-c", "--crc32", "list"}).exit_code, 2);
}
