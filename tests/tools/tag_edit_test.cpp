// qel tag put, rm and convert: the right bytes, and the old ones whenever something speaks against.

#include "tag_edit.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "qelbase/paths/MFileName.h"
#include "qelbase/tagged/MTagList.h"

#include "Tool.h"
#include "session.h"

using namespace qeltest;

namespace {

const std::string a = tag("A", raw("aaa"));
const std::string b = tag("B", tag("P", raw("ppp")) + tag("Q", raw("")));
const std::string sound = head + a + b;

struct Row {
  const char* name;
  std::string before;  // "-" for none
  std::vector<std::string> words;
  std::string input;
  int exit_code;
  std::string after;  // "=" for as before
  std::string err;
};
std::ostream& operator<<(std::ostream& stream, const Row& row) {
  return stream << row.name;
}

class TagEdit : public testing::TestWithParam<Row> {};

TEST_P(TagEdit, ChangesWhatWasAskedAndNothingElse) {
  const Row& row = GetParam();
  const Tool tool;
  if (row.before != "-") tool.write("a.abc", row.before);
  const Outcome outcome = tool.run(row.words, row.input);
  EXPECT_EQ(outcome.exit_code, row.exit_code) << outcome;
  EXPECT_NE(outcome.err.find(row.err), std::string::npos) << outcome.err;
  const std::string& after = row.after == "=" ? row.before : row.after;
  EXPECT_EQ(tool.has("a.abc"), after != "-");
  if (after != "-") {
    EXPECT_EQ(tool.read("a.abc"), after);
  }
  EXPECT_EQ(tool.files(), after == "-" ? 0U : 1U);
}

const std::string cut = sound.substr(0, sound.size() - 1);
const std::string v1 = old_head + tag("A", "aaa", 1, 3) + tag("LETTER", "", 1, 0);

const Row rows[] = {
    {"longer_body",
     sound,
     {"put", "a.abc", "A/DATA"},
     "longer than before",
     0,
     head + tag("A", raw("longer than before")) + b,
     ""},
    {"empty_body_deep_inside",
     sound,
     {"put", "a.abc", "B/P/DATA", "-"},
     "",
     0,
     head + a + tag("B", tag("P", raw("")) + tag("Q", raw(""))),
     ""},
    {"new_record", sound, {"put", "a.abc", "C/DATA"}, "c", 0, sound + tag("C", raw("c")), ""},
    {"next_of_a_name",
     sound,
     {"put", "a.abc", "A[2]/DATA"},
     "a2",
     0,
     sound + tag("A", raw("a2")),
     ""},
    {"new_sub_record",
     sound,
     {"put", "a.abc", "B/R/DATA", "--version", "2.7"},
     "r",
     0,
     head + a +
         tag("B",
             tag("P", raw("ppp")) + tag("Q", raw("")) + tag("R", tag("DATA", "r", 2, 7), 2, 7)),
     ""},
    {"new_file", "-", {"put", "a.abc", "A/DATA"}, "aaa", 0, head + a, ""},
    {"whole_run_of_tags",
     sound,
     {"put", "a.abc", "A"},
     raw("x") + raw("y"),
     0,
     head + tag("A", raw("x") + raw("y")) + b,
     ""},
    {"raw_in_old_file",
     v1,
     {"put", "a.abc", "NEW"},
     "0123456789ABCDEF",
     0,
     v1 + tag("NEW", "0123456789ABCDEF", 1, 0),
     ""},
    {"raw_where_tags_belong",
     sound,
     {"put", "a.abc", "A"},
     "0123456789ABCDEF",
     2,
     "=",
     "would not be sound any more: position 24: overrun"},
    {"gap_in_numbers",
     sound,
     {"put", "a.abc", "A[3]/DATA"},
     "x",
     2,
     "=",
     "there is no A[3], only 1"},
    {"inside_raw", sound, {"put", "a.abc", "A/DATA/X"}, "x", 2, "=", "cannot hold tags"},
    {"inside_version_1",
     v1,
     {"put", "a.abc", "A/DATA"},
     "x",
     2,
     "=",
     "A of version 1.3 has raw bytes"},
    {"no_input", sound, {"put", "a.abc", "A/DATA", "nowhere"}, "", 2, "=", "nowhere: No such file"},
    {"bad_version", sound, {"put", "a.abc", "C", "--version", "2.300"}, "", 2, "=", "MAJOR.MINOR"},
    {"damaged", cut, {"put", "a.abc", "A/DATA"}, "x", 2, "=", "position 39: cut-body"},
    {"damaged_by_force",
     cut,
     {"put", "-f", "a.abc", "A/DATA"},
     "x",
     0,
     head + tag("A", raw("x")) + cut.substr(39),
     ""},
    {"append_before_trailing",
     sound + "junk",
     {"put", "-f", "a.abc", "C"},
     "",
     0,
     sound + tag("C", "") + "junk",
     ""},
    {"foreign_by_force", "text that is no file", {"put", "-f", "a.abc", "A"}, "", 2, "=", "head"},
    {"rm_record", sound, {"rm", "a.abc", "A"}, "", 0, head + b, ""},
    {"rm_inside_and_twice",
     sound,
     {"rm", "a.abc", "B/Q", "A/DATA", "B/Q/DATA", "B/Q"},
     "",
     0,
     head + tag("A", "") + tag("B", tag("P", raw("ppp"))),
     ""},
    {"rm_nothing", sound, {"rm", "a.abc", "A", "X"}, "", 2, "=", "there is no X"},
    {"rm_damaged", cut, {"rm", "a.abc", "A"}, "", 2, "=", "--force goes on"},
    {"convert",
     v1,
     {"convert", "a.abc"},
     "",
     0,
     head + tag("A", tag("DATA", "aaa", 1, 3)) +
         tag("LETTER", tag(std::string("DATA\0R", 6), "", 1, 0)),
     ""},
    {"convert_to",
     v1,
     {"convert", "--to", "2.0", "a.abc"},
     "",
     0,
     header("QELCOM", 2, 0, 0) + tag("A", tag("DATA", "aaa", 1, 3), 2, 0) +
         tag("LETTER", tag(std::string("DATA\0R", 6), "", 1, 0), 2, 0),
     ""},
    {"convert_again", sound, {"convert", "a.abc"}, "", 0, "=", ""},
    {"convert_back",
     sound,
     {"convert", "--to", "1.0", "a.abc"},
     "",
     2,
     "=",
     "has version 2.1, newer than 1.0"},
    {"convert_damaged", v1 + "junk", {"convert", "a.abc"}, "", 2, "=", "trailing-bytes"},
    {"convert_damaged_by_force",
     old_head + tag("A", "aaa", 1, 0) + "junk",
     {"convert", "-f", "a.abc"},
     "",
     1,
     head + tag("A", tag("DATA", "aaa", 1, 0)),
     "left out: position 27: trailing-bytes"},
};
INSTANTIATE_TEST_SUITE_P(Rows, TagEdit, testing::ValuesIn(rows), testing::PrintToStringParamName());

TEST(TagConvert, GivesTheBytesThatTheLibrarysConversionGives) {
  const Tool tool;
  const std::string old = old_head + tag("A", std::string(300000, 'x'), 1, 3) +
                          tag("SIXLET", raw("kept as raw bytes"), 2, 0) + tag("", "", 1, 0);
  tool.write("a.abc", old);
  tool.write("b.abc", old);
  ASSERT_EQ(tool.run({"convert", "a.abc"}).exit_code, 0);
  MTagList list;
  ASSERT_TRUE(list.CONVERT(MFileName(tool.folder().wide("b.abc").c_str(), false), 0, 0));
  EXPECT_EQ(tool.read("a.abc"), tool.read("b.abc"));
}

TEST(TagRewrite, KeepsModeOwnerAndLink) {
  const Tool tool;
  std::filesystem::create_directory(tool.folder() / "real");
  tool.write("real/a.abc", sound);
  const auto real = tool.folder() / "real/a.abc";
  chmod(real.c_str(), 0640);
  if (geteuid() == 0) {
    ASSERT_EQ(chown(real.c_str(), 1234, 2345), 0);
  }
  std::filesystem::create_symlink("real/a.abc", tool.folder() / "link.abc");
  ASSERT_EQ(tool.run({"rm", "link.abc", "A"}).exit_code, 0);
  struct stat status {};
  ASSERT_EQ(lstat(real.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0640U);
  if (geteuid() == 0) {
    EXPECT_EQ(status.st_uid, 1234U);
    EXPECT_EQ(status.st_gid, 2345U);
  }
  EXPECT_EQ(tool.read("real/a.abc"), head + b);
  EXPECT_TRUE(std::filesystem::is_symlink(tool.folder() / "link.abc"));
}

TEST(TagRewrite, LeavesAloneWhatMayNotBeWritten) {
  if (geteuid() != 0) GTEST_SKIP() << "takes another user";
  const Tool tool;
  tool.write("a.abc", sound);
  std::filesystem::permissions(tool.folder() / "a.abc", std::filesystem::perms(0444));
  std::filesystem::permissions(tool.folder().path(), std::filesystem::perms::all);
  const auto nobody = [] {
    if (setuid(65534) != 0) _exit(126);
  };
  const Outcome outcome = tool.run({"rm", "a.abc", "A"}, {}, nobody);
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_NE(outcome.err.find("a.abc: Permission denied"), std::string::npos) << outcome.err;
  std::filesystem::permissions(tool.folder() / "a.abc", std::filesystem::perms(0666));
  EXPECT_NE(tool.run({"rm", "a.abc", "A"}, {}, nobody).err.find("cannot keep its owner"),
            std::string::npos);
  EXPECT_EQ(tool.read("a.abc"), sound);
  EXPECT_EQ(tool.files(), 1U);
}

TEST(TagRewrite, GivesWayToAnotherProgramThatChangesTheFile) {
  const Tool tool;
  tool.write("a.abc", v1 + "junk");
  const std::string file = (tool.folder() / "a.abc").string();
  const auto interfere = [&](const qel::tool::Finding&) { tool.write("a.abc", v1 + "more"); };
  EXPECT_THROW(qel::tool::ConvertFile(file, {2, 1}, {.force = true}, interfere),
               qel::tool::Trouble);
  EXPECT_EQ(tool.read("a.abc"), v1 + "more");
  EXPECT_EQ(tool.files(), 1U);
}

TEST(TagRewrite, RefusesAFileWithABackupOfAnInterruptedWrite) {
  const Tool tool;
  tool.write("a.abc", sound);
  tool.write("a.bak", head + a);
  EXPECT_EQ(tool.run({"rm", "a.abc", "A"}).exit_code, 2);
  EXPECT_EQ(tool.run({"rm", "-f", "a.abc", "A"}).exit_code, 0);
  EXPECT_EQ(tool.read("a.abc"), head + b);
  EXPECT_EQ(tool.read("a.bak"), head + a);
}

}  // namespace
