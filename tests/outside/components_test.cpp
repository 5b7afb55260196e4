// MString and logging.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "qelbase/outside/components/MString.h"
#include "qelbase/outside/components/logging.h"
#include "qelbase/outside/system/debug.h"
#include "qelbase/outside/system/text.h"

#include "tests/support/TempFolder.h"

namespace {

using qeltest::TempFolder;
using qeltest::writeBytes;
using namespace QelSDK::Common::Logging;

void format(MString& text, const wchar_t* how, ...) {
  va_list args;
  va_start(args, how);
  text.VFORMAT(how, args);
  va_end(args);
}

TEST(MString, FormatsWideTextIntoItself) {
  MString text(L"a");
  format(text, L"%s%s %d", text.C_STR(), L"b", 7);
  EXPECT_STREQ(text.C_STR(), L"ab 7");
}

TEST(MString, FindsAKeyOfAnIniFile) {
  TempFolder folder;
  const std::string narrow =
      "Key=outside\r\n; [Sorvic]\n[Other]\nKey=other\n\n [ sorvic ] \r\n;Key=comment\nKeyword=x\n"
      " KEY = \"C:\\W\xC3\xB6rk \" \r\nKey=second\n[Sorvic]\nLate='q'\nBare\nEmpty=";
  const std::wstring wide = qel::sys::Widen(narrow);
  std::string big_endian = "\xFE\xFF";
  for (const wchar_t c : wide) big_endian += {static_cast<char>(c >> 8), static_cast<char>(c)};
  writeBytes(folder / "narrow", narrow);
  writeBytes(folder / "marked", "\xEF\xBB\xBF" + narrow);
  writeBytes(folder / "little", "\xFF\xFE" + qel::sys::ToUtf16Le(wide));
  writeBytes(folder / "big", big_endian);
  for (const char* name : {"narrow", "marked", "little", "big"}) {
    const std::wstring file = folder.wide(name);
    MString value(L"old");
    EXPECT_FALSE(value.LOAD_INI_STRING(file.c_str(), L"Sorvic", L"Missing")) << name;
    EXPECT_FALSE(value.LOAD_INI_STRING(file.c_str(), L"Sorvic", L"Bare")) << name;
    EXPECT_STREQ(value.C_STR(), L"old");
    EXPECT_TRUE(value.LOAD_INI_STRING(file.c_str(), L"SORVIC", L"key")) << name;
    EXPECT_STREQ(value.C_STR(), L"C:\\W\xF6rk ") << name;
    EXPECT_TRUE(value.LOAD_INI_STRING(file.c_str(), L"Sorvic", L"Late")) << name;
    EXPECT_STREQ(value.C_STR(), L"q");
    EXPECT_TRUE(value.LOAD_INI_STRING(file.c_str(), L"Sorvic", L"Empty")) << name;
    EXPECT_STREQ(value.C_STR(), L"");
  }
  EXPECT_FALSE(MString().LOAD_INI_STRING(folder.wide("none").c_str(), L"Sorvic", L"Key"));
}

class Logging : public testing::Test {
 protected:
  ~Logging() override {
    GetLoggerConfiguration().RemoveHandlers();
    GetLoggerConfiguration().SetLowest(0);
    GetLoggerConfiguration().SetEnabled(true);
  }
  void listen(std::uint32_t lowest, bool enabled = true) {
    GetLoggerConfiguration().AddHandler(
        lowest,
        [this](const LogInfo& info) {
          m_lines.push_back(std::wstring(info.channel) + (info.is_failure ? L"!" : L":") +
                            info.text);
        },
        enabled);
  }
  static void say(ILogger& logger, const wchar_t* text, bool failure) {
    LogMessage message(text);
    message << L' ' << 5;
    failure ? logger.LogFailure(message) : logger.LogInformation(message);
  }
  std::vector<std::wstring> m_lines;
};

TEST_F(Logging, LinesReachTheHandlersThatWantThem) {
  ILogger& logger = GetLogger(L"lib.test");
  EXPECT_EQ(&logger, &GetLogger(L"lib.test"));
  say(logger, L"nobody", true);
  listen(1);
  listen(0, false);
  say(logger, L"f\x2603", true);
  say(GetLogger(), L"i", false);
  EXPECT_EQ(m_lines, (std::vector<std::wstring>{L"lib.test!f\x2603 5"}));
  GetLoggerConfiguration().RemoveHandlers();
  GetLoggerConfiguration().RemoveHandlers();
  listen(0);
  say(GetLogger(), L"i", false);
  GetLoggerConfiguration().SetLowest(1);
  say(GetLogger(), L"j", false);
  GetLoggerConfiguration().SetEnabled(false);
  say(GetLogger(), L"k", true);
  EXPECT_EQ(m_lines.back(), L":i 5");
}

TEST_F(Logging, HandlersMayThrowLogAndDetach) {
  ILoggerConfiguration& configuration = GetLoggerConfiguration();
  configuration.AddHandler(
      0, [](const LogInfo&) { throw std::runtime_error("no"); }, true);
  configuration.AddHandler(
      0,
      [&](const LogInfo&) {
        say(GetLogger(), L"again", true);
        configuration.RemoveHandlers();
      },
      true);
  listen(0);
  say(GetLogger(), L"once", true);
  say(GetLogger(), L"twice", true);
  EXPECT_EQ(m_lines, (std::vector<std::wstring>{L"!once 5"}));
}

TEST_F(Logging, TheDebuggerGetsWholeLines) {
  std::wstring output;
  const auto before = qel::sys::SetDebugSink([&output](std::wstring_view text) { output += text; });
  GetLoggerConfiguration().AddHandler(0, DebugOutputHandler(), true);
  say(GetLogger(L"lib.test"), L"\x2603", true);
  qel::sys::SetDebugSink(before);
  EXPECT_EQ(output.substr(output.find(L" error")), L" error [lib.test] \x2603 5\n");
}

TEST_F(Logging, FilesGetWholeLinesFromAllThreads) {
  TempFolder folder;
  writeBytes(folder / "log.txt", "kept\n");
  const FileOutputHandler handler(folder.wide("log.txt"), true, true);
  GetLoggerConfiguration().AddHandler(0, handler, true);
  GetLoggerConfiguration().AddHandler(0, FileOutputHandler(folder.wide("no\\log"), true, true),
                                      true);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 250; ++i) {
        LogMessage message(L"thread \x2603 ");
        message << t << L" line " << i << L'.';
        GetLogger(L"channel" + std::to_wstring(i % 7)).LogFailure(message);
        if (i % 50 == 0)
          GetLoggerConfiguration().AddHandler(
              0, [](const LogInfo&) {}, true);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::string text = qeltest::readBytes(folder / "log.txt");
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1001);
  EXPECT_EQ(text.rfind("kept\n", 0), 0U);
  for (int t = 0; t < 4; ++t) {
    const std::string last = "[channel4] thread \xE2\x98\x83 " + std::to_string(t) + " line 249.\n";
    EXPECT_NE(text.find(last), text.npos) << last;
  }
}

}  // namespace
