// qel reg: what applications keep in the registry, as a user types the commands.

#include <gtest/gtest.h>

#include "Tool.h"

using namespace qeltest;
using namespace std::string_literals;

namespace {

class RegTool : public testing::Test {
 protected:
  Outcome reg(std::vector<std::string> words, const std::string& input = {}) const {
    words.insert(words.begin(), {QEL_PROGRAM, "reg"});
    return m_tool.runProgram(words, input, [this] { useFolder(); });
  }
  void useFolder() const { setenv("QEL_REGISTRY", m_registry.path().c_str(), 1); }

  // Values of each kind, in two keys.
  void fill() const {
    const std::string key = R"(HKCU\Software\Company\Product)";
    reg({"set", key, "text", "say \"\\hi\""});
    reg({"set", key, "number", "dword:0000002a"});
    reg({"set", key, "", "hex(7):61,00,00,00,00,00"});
    reg({"set", key + R"(\Sub)", "bytes", "hex:01,ff"});
  }
  static std::string wide(std::u16string_view text) {
    return {reinterpret_cast<const char*>(text.data()), text.size() * 2};
  }

  const std::string m_key = R"(HKCU\Software\Company\Product)";
  const std::u16string m_exported =
      u"\uFEFFWindows Registry Editor Version 5.00\r\n\r\n"
      u"[HKEY_CURRENT_USER\\Software\\Company\\Product]\r\n"
      u"\"text\"=\"say \\\"\\\\hi\\\"\"\r\n\"number\"=dword:0000002a\r\n"
      u"@=hex(7):61,00,00,00,00,00\r\n\r\n"
      u"[HKEY_CURRENT_USER\\Software\\Company\\Product\\Sub]\r\n\"bytes\"=hex:01,ff\r\n\r\n";
  Tool m_tool;
  TempFolder m_registry;
};

TEST_F(RegTool, ListsAndGetsWhatWasSet) {
  fill();
  const std::string values =
      "text=\"say \\\"\\\\hi\\\"\"\nnumber=dword:0000002a\n"
      "@=hex(7):61,00,00,00,00,00\n";
  EXPECT_EQ(reg({"ls", m_key}).out, "Sub\\\n" + values);
  EXPECT_EQ(reg({"ls", R"(HKEY_CURRENT_USER\software\COMPANY\product\)"}).out, "Sub\\\n" + values);
  EXPECT_EQ(reg({"ls", "-r", m_key}).out,
            "[HKEY_CURRENT_USER\\\\Software\\\\Company\\\\Product]\n" + values +
                "[HKEY_CURRENT_USER\\\\Software\\\\Company\\\\Product\\\\Sub]\nbytes=hex:01,ff\n");
  EXPECT_EQ(reg({"ls", "--json", m_key + R"(\Sub)"}).out,
            R"([
{"key":"HKEY_CURRENT_USER\\Software\\Company\\Product\\Sub","subkeys":[],)"
            R"("values":[{"data":"hex:01,ff","name":"bytes","type":3}]}
]
)");
  EXPECT_EQ(reg({"get", m_key, "TEXT"}).out, "say \"\\hi\"\n");
  EXPECT_EQ(reg({"get", m_key, "number"}).out, "dword:0000002a\n");
  EXPECT_EQ(reg({"get", m_key}).out, "hex(7):61,00,00,00,00,00\n");
}

TEST_F(RegTool, RemovesAValueOrATree) {
  fill();
  EXPECT_EQ(reg({"rm", m_key, "number"}).exit_code, 0);
  EXPECT_EQ(reg({"get", m_key, "number"}).exit_code, 2);
  EXPECT_EQ(reg({"rm", m_key}).exit_code, 0);
  EXPECT_EQ(reg({"ls", m_key}).exit_code, 2);
  EXPECT_EQ(reg({"ls", R"(HKCU\Software\Company)"}).out, "");
}

TEST_F(RegTool, ExportsAndImportsTheTextThatPeopleKnow) {
  fill();
  EXPECT_EQ(reg({"export", m_key}).out, wide(m_exported));
  EXPECT_EQ(reg({"export", m_key, "kept.reg"}).exit_code, 0);
  EXPECT_EQ(m_tool.read("kept.reg"), wide(m_exported));
  reg({"rm", m_key});
  EXPECT_EQ(reg({"import", "kept.reg"}).exit_code, 0);
  EXPECT_EQ(reg({"export", m_key}).out, wide(m_exported));
  // Deletions, a long line, narrow text, from standard input.
  EXPECT_EQ(reg({"import"},
                "REGEDIT4\n; a comment\n[-HKEY_CURRENT_USER\\Software\\Company\\Product\\Sub]\n"
                "[HKEY_CURRENT_USER\\Software\\Company\\Product]\n\"number\"=-\n@=-\n"
                "\"text\"=hex:01,\\\n  02\n")
                .exit_code,
            0);
  EXPECT_EQ(reg({"ls", m_key}).out, "text=hex:01,02\n");
}

TEST_F(RegTool, TellsWhatItCannotDoAndChangesNothing) {
  fill();
  const struct {
    std::vector<std::string> words;
    std::string input, told;
  } rows[] = {
      {{"ls", R"(HKCU\None)"}, "", "HKCU\\\\None: does not exist"},
      {{"ls", R"(None\Software)"}, "", "no root"},
      {{"get", m_key, "none"}, "", "none: does not exist"},
      {{"rm", "HKCU"}, "", "a root stays"},
      {{"set", m_key, "x"}, "", "VALUE"},
      {{"import", "none.reg"}, "", "none.reg: cannot be read"},
      {{"export", m_key, "no/such.reg"}, "", "no/such.reg: cannot be written"},
      {{"import"}, "no header\n", "-: line 1: no registry text"},
      {{"import"},
       "REGEDIT4\n[HKEY_CURRENT_USER\\Software]\n\"new\"=dword:1\n\"bad\"\n",
       "-: line 4"},
  };
  for (const auto& row : rows) {
    const Outcome outcome = reg(row.words, row.input);
    EXPECT_EQ(outcome.exit_code, 2) << outcome;
    EXPECT_NE(outcome.err.find(row.told), std::string::npos) << row.told << '\n' << outcome;
  }
  EXPECT_EQ(reg({"ls", R"(HKCU\Software)"}).out, "Classes\\\nCompany\\\n");
  EXPECT_EQ(reg({"export", m_key}).out, wide(m_exported));
}

TEST_F(RegTool, WatchTellsAChangeBelow) {
  fill();
  const pid_t watcher = fork();
  if (watcher == 0) {
    useFolder();
    const int out = open((m_tool.folder() / "told").c_str(), O_WRONLY | O_CREAT, 0600);
    dup2(out, STDOUT_FILENO);
    execl(QEL_PROGRAM, "qel", "reg", "watch", "--once", m_key.c_str(), nullptr);
    _exit(127);
  }
  int status = 0;
  // It may begin to watch at any time: changes go on until it has told one.
  for (int i = 0; waitpid(watcher, &status, WNOHANG) == 0; ++i) {
    reg({"set", m_key + R"(\Sub)", "bytes", std::to_string(i)});
  }
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(m_tool.read("told"), m_key + ": changed\n");
}

}  // namespace
