#include "qelbase/tagged/MFileTagReplacer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/TempFolder.h"

namespace {

constexpr bool kLast = true;
constexpr bool kKeep = true;

struct Rule {
  const char* search;
  const char* replacement;
  bool last;
  bool keep;
};

struct Row {
  const char* name;
  std::string source;
  std::vector<Rule> rules;
  std::string result;
};
void append(MFileTagReplacer& file, const std::vector<Rule>& rules) {
  for (const Rule& rule : rules) {
    file.Append(new MReplaceTag{rule.search, rule.replacement, rule.last, rule.keep});
  }
}

std::string fillIn(const std::string& text, const std::vector<Rule>& rules) {
  const qeltest::TempFolder folder;
  qeltest::writeBytes(folder / "template", text);
  MFile source;
  EXPECT_TRUE(source.OPEN_READ(folder.wide("template").c_str()));
  MFileTagReplacer file;
  append(file, rules);
  EXPECT_TRUE(file.OPEN_WRITE(folder.wide("result").c_str()));
  EXPECT_TRUE(file.ReplaceAllTagsInFile(source));
  file.CLOSE();
  return qeltest::readBytes(folder / "result");
}

std::string lineOf(std::size_t length) {
  return std::string(length - 3, '.') + "$V=";
}

}  // namespace

TEST(MFileTagReplacer, FillsInTemplates) {
  const Row rows[] = {
      {"Nothing", "", {}, ""},
      {"NoRules", std::string("a\r\nb\rc\0d\r\n", 10), {}, std::string("a\r\nb\rc\0d\r\n", 10)},
      {"AList",
       "x=$V\rend\r$V\r",
       {{"$V", "1", !kLast, !kKeep}, {"$V", "2", kLast, !kKeep}},
       "x=1\rx=2\rend\r$V\r"},
      {"EachLine", "$V$V\r$V\r", {{"$V", "1", kLast, kKeep}}, "11\r1\r"},
      {"LaterRulesSeeEarlierResults",
       "$A\r",
       {{"$A", "<$B>", kLast, kKeep}, {"$B", "b", kLast, kKeep}},
       "<b>\r"},
      {"AKeptRuleIsAppliedUntilItsMarkerIsGone", "aaaaa\r", {{"aa", "a", kLast, kKeep}}, "a\r"},
      {"AKeptRuleThatIsNotLastCountsAsLast",
       "$K $V\r$K\r",
       {{"$K", "k", !kLast, kKeep}, {"$V", "1", !kLast, !kKeep}, {"$V", "2", kLast, !kKeep}},
       "k 1\rk 2\rk\r"},
      {"AReplacementThatHoldsItsMarkerIsPutInOnce",
       "$V,$V\r",
       {{"$V", "<$V>", kLast, kKeep}},
       "<$V>,<$V>\r"},
      {"AnEmptyMarkerFiresAndReplacesNothing",
       "a\rb\r",
       {{"", "x", kLast, kKeep}, {"", "x", !kLast, !kKeep}},
       "a\ra\rb\r"},
      {"BehindTheLastLineNothingIsReplaced",
       "$V\r$V\n$V",
       {{"$V", "1", kLast, kKeep}},
       "1\r$V\n$V"},
      {"WithoutALineEndTheFirst4096BytesAreCopied",
       std::string(5000, '.'),
       {},
       std::string(4096, '.')},
      {"LongLinesAreReplacedWhole",
       lineOf(4095) + "\r" + lineOf(4096) + "\r" + lineOf(300000) + "\r$V",
       {{"$V", "", kLast, kKeep}},
       std::string(4092, '.') + "=\r" + std::string(4093, '.') + "=\r" + std::string(299997, '.') +
           "=\r$V"},
  };
  for (const Row& row : rows) EXPECT_EQ(fillIn(row.source, row.rules), row.result) << row.name;
}

TEST(MFileTagReplacer, RewritingWithoutEndIsCutShort) {
  // "ab" becomes "bbaa": each pass makes more of the marker.
  const std::string result =
      fillIn(std::string(40, 'a') + "b\rx\r", {{"ab", "bbaa", kLast, kKeep}});
  EXPECT_LT(result.size(), std::size_t{4} << 20);
  EXPECT_EQ(result.substr(result.size() - 3), "\rx\r");
}

TEST(MFileTagReplacer, StringsUseUpTheWorkingCopies) {
  MFileTagReplacer file;
  append(file, {{"$V", "1", !kLast, !kKeep}, {"$K", "k", !kLast, kKeep}});
  CStringA result;
  EXPECT_TRUE(file.ReplaceAllTagsInString("$V", result));
  EXPECT_STREQ(result, "$V");
  file.ResetTagList();
  file.ClearTags();
  EXPECT_FALSE(file.ReplaceAllTagsInString("$V", result));
  EXPECT_STREQ(result, "1");
  EXPECT_TRUE(file.ReplaceAllTagsInString("$V", result));
  EXPECT_STREQ(result, "$V");
  EXPECT_FALSE(file.ReplaceAllTagsInString("$K", result));
  file.ResetTagList();
  EXPECT_TRUE(file.ReplaceAllTagsInString("$K", result));
  EXPECT_TRUE(file.ReplaceAllTagsInString(nullptr, result));
  EXPECT_TRUE(result.IsEmpty());
}
