// qel ini: both forms of ini files, as a user types the commands.

#include <gtest/gtest.h>

#include "Tool.h"

using namespace qeltest;
using namespace std::string_literals;

namespace {

std::string wide(std::u16string_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * 2};
}

class IniTool : public testing::Test {
 protected:
  Outcome ini(std::vector<std::string> words, const std::string& input = {}) const {
    words.insert(words.begin(), {QEL_PROGRAM, "ini"});
    return m_tool.runProgram(words, input);
  }
  Tool m_tool;
};

const std::string narrow_text = "; a comment\n[S]\nk = \xC3\xA4 1\nl = two\n= lines\n\n[]\ne=\n\n";
const std::string wide_bytes =
    wide(u"; a comment\r\n[S]\r\nk = \u00E4 1\r\nl = two\r\n= lines\r\n\r\n[]\r\ne=\r\n\r\n");

TEST_F(IniTool, ListsAndGetsFromEitherFormUnderEitherName) {
  const std::string listed = "[S]\nk = \xC3\xA4 1\nl = two\\x0a lines\n[]\ne = \n";
  m_tool.write("n.ini", narrow_text);
  m_tool.write("w_u.ini", wide_bytes);
  m_tool.write("w.ini", "[other]\nk=1\n");
  m_tool.write("plain_u.ini", narrow_text);  // a narrow file that happens to be called so
  for (const char* name : {"n.ini", "w.ini", "w_u.ini", "plain_u.ini"}) {
    EXPECT_EQ(ini({"ls", name}).out, listed) << name;
    EXPECT_EQ(ini({"get", name, "s", "K"}).out, "\xC3\xA4 1\n") << name;
    EXPECT_EQ(ini({"get", name, "", "e"}).out, "\n") << name;
  }
  for (const std::string& bytes : {narrow_text, wide_bytes, "\xFF\xFE" + wide_bytes}) {
    EXPECT_EQ(ini({"ls", "-"}, bytes).out, listed);
  }
  EXPECT_EQ(ini({"ls", "w.ini", "s", "--json"}).out,
            "[\n{\"entries\":[{\"name\":\"k\",\"value\":\"\xC3\xA4 1\"},"
            "{\"name\":\"l\",\"value\":\"two\\n lines\"}],\"section\":\"S\"}\n]\n");
}

TEST_F(IniTool, TellsWhatIsMissingOrDamaged) {
  m_tool.write("n.ini", narrow_text);
  m_tool.write("bad.ini", "[S]\na=1\n\nb=\xFF\nc=3\n");
  const struct {
    std::vector<std::string> words;
    std::string told;
  } rows[] = {{{"ls", "none.ini"}, "none.ini: No such file"},
              {{"ls", "n.ini", "T"}, "n.ini: no section [T]"},
              {{"get", "n.ini", "S", "x"}, "n.ini: no entry x in section [S]"},
              {{"get", "n.ini", "S"}, "NAME"},
              {{"set", "no/a.ini", "S", "k", "v"}, "no/a_u.ini"},
              {{"set", "bad.ini", "S", "k", "v"}, "bad.ini: line 4: bytes that are no text"},
              {{"ls", "bad.ini"}, "bad.ini: line 4: bytes that are no text"}};
  for (const auto& row : rows) {
    const Outcome outcome = ini(row.words);
    EXPECT_EQ(outcome.exit_code, 2) << row.told;
    EXPECT_NE(outcome.err.find(row.told), std::string::npos) << outcome;
  }
  EXPECT_EQ(ini({"ls", "bad.ini"}).out, "[S]\na = 1\n");
  EXPECT_FALSE(m_tool.has("bad_u.ini"));
}

TEST_F(IniTool, SetsInTheWideFileAndLeavesTheNarrowOne) {
  m_tool.write("a.ini", "[S]\nk=1\nj=2\n");
  EXPECT_EQ(ini({"set", "a.ini", "s", "K", "new\nline"}).exit_code, 0);
  EXPECT_EQ(m_tool.read("a.ini"), "[S]\nk=1\nj=2\n");
  EXPECT_EQ(m_tool.read("a_u.ini"), wide(u"[S]\r\nk = new\r\n=line\r\nj = 2\r\n\r\n"));
  EXPECT_EQ(ini({"set", "a_u.ini", "T", "t", "3"}).exit_code, 0);
  EXPECT_EQ(ini({"get", "a.ini", "T", "t"}).out, "3\n");
  EXPECT_EQ(m_tool.files(), 2u);
  EXPECT_EQ(ini({"set", "fresh.ini", "S", "k", "v"}).exit_code, 0);
  EXPECT_EQ(m_tool.read("fresh_u.ini"), wide(u"[S]\r\nk = v\r\n\r\n"));
}

TEST_F(IniTool, ConvertsBothWaysWithCommentsAndOrder) {
  EXPECT_EQ(ini({"convert"}, narrow_text).out, wide_bytes);
  EXPECT_EQ(ini({"convert", "-", "-"}, wide_bytes).out, narrow_text);
  EXPECT_EQ(ini({"convert"}, "\xEF\xBB\xBF" + narrow_text).out, wide_bytes);
  EXPECT_EQ(ini({"convert"}, "\xFF\xFE" + wide_bytes).out, narrow_text);
  EXPECT_EQ(ini({"convert"}, wide(u"k=\U0001F600\r\n")).out, "k=\xF0\x9F\x98\x80\n");
  EXPECT_EQ(ini({"convert"}, "a=\r1\r\nb=2").out, wide(u"a=\r1\r\nb=2"));
  m_tool.write("a.txt", narrow_text);
  m_tool.write("a_u.ini", "old");
  EXPECT_EQ(ini({"convert", "a.txt", "a_u.ini"}).exit_code, 0);
  EXPECT_EQ(m_tool.read("a_u.ini"), wide_bytes);
  EXPECT_EQ(ini({"convert", "none", "a_u.ini"}).exit_code, 2);
  EXPECT_EQ(m_tool.read("a_u.ini"), wide_bytes);
}

TEST_F(IniTool, ConvertsDamagedTextAndTellsTheLines) {
  const struct {
    std::string bytes, out, told;
  } rows[] = {{"a=1\nb=\xFF\n", wide(u"a=1\r\nb=\uFFFD\r\n"), "-: line 2: no text"},
              {wide(u"a=1\r\nb=\xD83D\r\n"), "a=1\nb=\xEF\xBF\xBD\n", "-: line 2: no text"},
              {wide(u"a=1\r\n") + "b", "a=1\n\xEF\xBF\xBD", "-: line 2: no text"}};
  for (const auto& row : rows) {
    const Outcome outcome = ini({"convert"}, row.bytes);
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.out, row.out);
    EXPECT_NE(outcome.err.find(row.told), std::string::npos) << outcome;
  }
}

}  // namespace
