// The clipboard of an X11 desktop, beside a program that knows nothing of this library.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <thread>

#include "qelbase/outside/system/clipboard.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/memory.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/platform/clipboard.h"

#include "tests/platform/processes.h"
#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

using namespace qel::sys;
using namespace qeltest;

namespace {

class DesktopClipboard : public testing::Test {
 protected:
  void SetUp() override {
    if (runLine("command -v Xvfb xclip >/dev/null").exit_code != 0) {
      GTEST_SKIP() << "Xvfb or xclip is not installed";
    }
    m_variables.set("XDG_RUNTIME_DIR", m_folder.path().c_str());
    m_variables.set("QEL_HELPERS", HELPERS);
    startServer();
  }
  void TearDown() override {
    if (m_server > 0) kill(m_server, SIGTERM);
    if (m_server > 0) waitpid(m_server, nullptr, 0);
  }

  static std::wstring text() {
    CStringW text(L"unchanged");
    const int got = GetTextFromClipboard(text);
    return got ? std::wstring(text.GetString()) : L"none, " + std::wstring(text.GetString());
  }
  static Output paste(const std::string& options = "") {
    return runLine("timeout 60 xclip -o -selection clipboard " + options + " 2>/dev/null");
  }
  void copy(const std::string& bytes, const std::string& options = "") {
    writeBytes(m_folder / "copied", bytes);
    const std::string file = (m_folder / "copied").string();
    ASSERT_EQ(
        runLine("xclip -selection clipboard " + options + " <" + file + " >/dev/null").exit_code,
        0);
  }
  // xclip takes the clipboard some time after its start, and loses it some time after its end.
  static void expectText(const std::wstring& wanted) {
    std::wstring last = text();
    for (int i = 0; i < 500 && last != wanted; ++i) {
      usleep(10000);
      last = text();
    }
    EXPECT_TRUE(last == wanted) << Narrow(last.substr(0, 100));
  }
  // The process that owns the clipboard by xclip.
  pid_t copyStaying(const std::string& bytes) {
    writeBytes(m_folder / "copied", bytes);
    const pid_t owner = fork();
    if (owner == 0) {
      const int file = open((m_folder / "copied").c_str(), O_RDONLY);
      dup2(file, STDIN_FILENO);
      execlp("xclip", "xclip", "-quiet", "-selection", "clipboard", nullptr);
      _exit(127);
    }
    expectText(Widen(bytes));
    return owner;
  }
  static DWORD readingCode() {
    if (!OpenClipboard(nullptr)) return GetLastError();
    SetLastError(0);
    const DWORD code = GetClipboardData(13) ? 0 : GetLastError();
    CloseClipboard();
    return code;
  }

  Variables m_variables;
  TempFolder m_folder;

 private:
  void startServer() {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    m_server = fork();
    if (m_server == 0) {
      const int nowhere = open("/dev/null", O_RDWR);
      dup2(nowhere, STDERR_FILENO);
      const std::string end = std::to_string(ends[1]);
      execlp("Xvfb", "Xvfb", "-displayfd", end.c_str(), "-nolisten", "tcp", "-noreset", nullptr);
      _exit(127);
    }
    close(ends[1]);
    std::string number;
    char c = 0;
    while (read(ends[0], &c, 1) == 1 && c != '\n') number += c;
    close(ends[0]);
    ASSERT_FALSE(number.empty());
    m_variables.set("DISPLAY", (":" + number).c_str());
  }

  pid_t m_server = 0;
};

TEST_F(DesktopClipboard, PassesTextToOtherProgramsAfterItsOwnEnd) {
  EXPECT_EQ(text(), L"none, unchanged");
  EXPECT_EQ(
      runInChild([] { _exit(CopyStringToClipboard(L"W\xF6rk \x20AC\r\nnext") ? 0 : 1); }).exit_code,
      0);
  EXPECT_EQ(paste("-t UTF8_STRING").text, "W\xC3\xB6rk \xE2\x82\xAC\nnext");
  EXPECT_EQ(paste("-t text/plain\\;charset=utf-8").text, "W\xC3\xB6rk \xE2\x82\xAC\nnext");
  EXPECT_EQ(paste("-t STRING").text, "W\xF6rk ?\nnext");
  EXPECT_NE(paste("-t TARGETS").text.find("TIMESTAMP"), std::string::npos);
  EXPECT_EQ(text(), L"W\xF6rk \x20AC\r\nnext");
  EXPECT_TRUE(CopyStringToClipboard(L"lone \xD800 \n"));
  EXPECT_EQ(text(), L"lone \xD800 \n");
  EXPECT_TRUE(CopyStringToClipboard(""));
  EXPECT_FALSE(IsClipboardFormatAvailable(13));
  EXPECT_EQ(text(), L"");
  ASSERT_TRUE(OpenClipboard(nullptr));
  EXPECT_TRUE(EmptyClipboard());
  CloseClipboard();
  EXPECT_NE(paste().exit_code, 0);
}

TEST_F(DesktopClipboard, TakesTextFromOtherPrograms) {
  struct Row {
    std::string bytes;
    const char* target;
    const wchar_t* text;
  };
  const Row rows[] = {{"W\xC3\xB6rk\nnext\r\n", "UTF8_STRING", L"W\xF6rk\r\nnext\r\n"},
                      {"bad \xFF\xC3 end", "UTF8_STRING", L"bad \xFFFD\xFFFD end"},
                      {std::string("cut\0here", 8), "text/plain\\;charset=utf-8", L"cut"},
                      {"W\xF6rk", "STRING", L"W\xF6rk"},
                      {"<b>", "text/html", L"none, unchanged"}};
  for (const Row& row : rows) {
    ASSERT_TRUE(CopyStringToClipboard(L"mine"));
    copy(row.bytes, std::string("-t ") + row.target);
    expectText(row.text);
    EXPECT_FALSE(IsClipboardFormatAvailable(1));
  }
}

TEST_F(DesktopClipboard, PassesLargeTextsInPieces) {
#ifdef __SANITIZE_THREAD__  // under which each byte takes its time
  constexpr std::size_t size = 4 << 20;
#else
  constexpr std::size_t size = 64 << 20;
#endif
  std::string bytes;
  while (bytes.size() < size) bytes += "0123456789 abcdef W\xC3\xB6rk\n";
  const std::wstring wide = Widen(bytes);
  ASSERT_TRUE(CopyStringToClipboard(wide.c_str()));
  EXPECT_TRUE(paste("-t UTF8_STRING").text == bytes);
  EXPECT_TRUE(text() == wide);
  copy(bytes);
  std::wstring lines;
  for (const wchar_t c : wide) lines += c == L'\n' ? L"\r\n" : std::wstring(1, c);
  expectText(lines);
}

TEST_F(DesktopClipboard, OutlivesOwnersThatDieOrKeepSilent) {
  pid_t owner = copyStaying("text");
  kill(owner, SIGKILL);
  waitpid(owner, nullptr, 0);
  expectText(L"none, unchanged");
  EXPECT_EQ(readingCode(), 2u);
  owner = copyStaying("text");
  kill(owner, SIGSTOP);
  EXPECT_FALSE(IsClipboardFormatAvailable(13));
  EXPECT_EQ(readingCode(), 1460u);
  std::thread killer([owner] {
    usleep(300000);
    kill(owner, SIGKILL);
  });
  EXPECT_EQ(readingCode(), 109u);
  killer.join();
  waitpid(owner, nullptr, 0);
  EXPECT_TRUE(CopyStringToClipboard(L"again"));
  EXPECT_EQ(text(), L"again");
}

TEST_F(DesktopClipboard, IsOpenedByOneProgram) {
  ASSERT_TRUE(OpenClipboard(nullptr));
  const auto openElsewhere = [] {
    return runInChild([] { _exit(OpenClipboard(nullptr) ? 0 : static_cast<int>(GetLastError())); })
        .exit_code;
  };
  EXPECT_EQ(openElsewhere(), 5);
  // The fork's end must not cut the connection of the opener.
  EXPECT_TRUE(EmptyClipboard());
  CloseClipboard();
  EXPECT_EQ(openElsewhere(), 0);
}

TEST_F(DesktopClipboard, FailsClearlyWithoutItsHelper) {
  m_variables.set("QEL_HELPERS", "/nowhere");
  EXPECT_FALSE(CopyStringToClipboard(L"text"));
  ASSERT_TRUE(OpenClipboard(nullptr));
  const HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 4);
  EXPECT_EQ(SetClipboardData(13, block), nullptr);
  EXPECT_EQ(GetLastError(), 2u);
  EXPECT_EQ(GlobalFree(block), nullptr);
  CloseClipboard();
  m_variables.set("DISPLAY", ":not a display");  // then it is that of the user's programs
  EXPECT_TRUE(CopyStringToClipboard(L"text"));
  EXPECT_EQ(text(), L"text");
}

}  // namespace
