// Timeouts, counted times and the logging of a test run, by clocks of the test's own.
#include <gtest/gtest.h>

#include <boost/filesystem/exception.hpp>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "qelbase/outside/components/logging.h"
#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/debug.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/platform/CTimeCountOutput.h"
#include "qelbase/platform/MTimeout.h"
#include "qelbase/platform/TestingUtility.h"

#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

using namespace qel::sys;
using namespace qeltest;
namespace logging = QelSDK::Common::Logging;

namespace {

// --- MTimeout ---

class Session : public MTimeout {
 public:
  using MTimeout::_ShiftLastAliveTime;
  using MTimeout::_UpdateLastAliveTime;
  using MTimeout::MTimeout;
};

struct TimeoutRow {
  const char* name;
  unsigned long timeout_ms;
  DWORD first_tick;
  DWORD tick;
  std::int64_t seconds;  // on the wall clock since then
  bool expected;
};

void PrintTo(const TimeoutRow& row, std::ostream* out) {
  *out << row.name;
}

class Timeout : public testing::TestWithParam<TimeoutRow> {};

TEST_P(Timeout, NeedsBothClocks) {
  const TimeoutRow& row = GetParam();
  constexpr std::int64_t start = 0x7FFFFFF0;  // the wall clock's low word turns negative
  ClockOverride clock;
  clock.setTickCount(row.first_tick).setTime(start);
  const MTimeout timeout(row.timeout_ms);
  clock.setTickCount(row.tick).setTime(start + row.seconds);
  EXPECT_EQ(timeout.IsTimeout(), row.expected);
}

constexpr DWORD last_tick = 0xFFFFFFFF;
constexpr DWORD hole = 60762496;  // what a wrap loses
constexpr DWORD three_days = 259200000;
constexpr TimeoutRow timeout_rows[] = {
    {"Never", 0, 0, 1000000000, 1000000, false},
    {"Both", 5000, 100, 5101, 5, true},
    {"NotYetByTicks", 5000, 100, 5100, 5, false},
    {"NotYetByTime", 5000, 100, 50000, 4, false},
    {"SetBack", 5000, 100, 5101, -5, true},
    {"SetBackALittle", 5000, 100, 5101, -4, false},
    {"PartsOfASecond", 5999, 100, 6100, 5, true},
    {"LongestAsTold", 500000000, 0, three_days + 1, 259200, true},
    {"LongestNotYet", 500000000, 0, three_days, 259200, false},
    {"WrappedALittle", 5000, last_tick - 10, 6000, 6, true},  // the difference is below zero
    {"WrappedFar", 5000, last_tick - 10, hole + 4988, 6, false},
    {"WrappedFarther", 5000, last_tick - 10, hole + 4990, 6, true},
    {"TimeWithoutHighWord", 5000, 100, 5101, std::int64_t{1} << 32, false},
};
INSTANTIATE_TEST_SUITE_P(Each, Timeout, testing::ValuesIn(timeout_rows),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(TimeoutActivity, IsUpdatedAndShifted) {
  ClockOverride clock;
  clock.setTickCount(0).setTime(1000);
  Session session(5000);
  clock.advance(6000);
  EXPECT_TRUE(session.IsTimeout());
  session._ShiftLastAliveTime(2999);  // two whole seconds
  EXPECT_EQ(session.GetLastActivityTime(), 1002);
  EXPECT_FALSE(session.IsTimeout());
  clock.advance(10000);
  EXPECT_TRUE(session.IsTimeout());
  session._UpdateLastAliveTime();
  EXPECT_FALSE(session.IsTimeout());
  EXPECT_EQ(session.GetLastActivityTime(), 1016);
}

// --- CTimeCount, CTimeCountOutput ---

TEST(TimeCount, CountsFromTheStartOrTheLastReading) {
  ClockOverride clock;
  clock.setPerformanceCounter(5'000'000'000);
  const double step = 1000.0F / 10'000'000.0F;  // single precision
  CTimeCount count;
  clock.advance(3);
  EXPECT_EQ(count.Poll(), 30000 * step);
  clock.advance(4);
  CTimeCount copy = count;
  EXPECT_EQ(count.PollAndReset(), 70000 * step);
  clock.advance(5);
  EXPECT_EQ(count.PollAndReset(), 50000 * step);
  EXPECT_EQ(copy.Poll(), 120000 * step);
  copy.Reset();
  EXPECT_EQ(copy.Poll(), 0);
}

class TimeCountOutput : public testing::Test {
 protected:
  TimeCountOutput() {
    m_clock.setPerformanceCounter(0);
    m_sink = SetDebugSink([this](std::wstring_view text) { m_debug += text; });
    CTimeCountOutput::SetOutputFileName(m_folder.wide("times.txt").c_str());
  }
  ~TimeCountOutput() override {
    CTimeCountOutput::SetOutputFileName(L"");
    SetDebugSink(m_sink);
  }
  std::string written() const { return readBytes(m_folder / "times.txt"); }

  TempFolder m_folder;
  ClockOverride m_clock;
  DebugSink m_sink;
  std::wstring m_debug;
};

TEST_F(TimeCountOutput, PutsItsTimeOutOnceByItself) {
  {
    CTimeCountOutput output(L"slicing");
    m_clock.advance(2);
    EXPECT_NEAR(output.PollAndReset(), 2, 1e-6);  // moves the start of what is told
    m_clock.advance(7);
  }
  EXPECT_EQ(written(), "slicing, 7.000 ms\n");
  EXPECT_EQ(m_debug, L"slicing, 7.000 ms\n");
  {
    CTimeCountOutput output(L"L\u00e4nge");
    m_clock.advance(1);
    output.FlushAndDisable();
    m_clock.advance(50);
    output.FlushAndDisable();  // the same time
  }
  EXPECT_EQ(written(), "slicing, 7.000 ms\nL\u00e4nge, 1.000 ms\nL\u00e4nge, 1.000 ms\n");
}

TEST_F(TimeCountOutput, IsSilentWithoutFileAndDebugger) {
  CTimeCountOutput::SetOutputFileName(L"");
  CTimeCountOutput(L"nobody").FlushAndDisable();
  EXPECT_EQ(m_debug, L"");
  CTimeCountOutput::SetOutputFileName(m_folder.wide("no/such/folder.txt").c_str());
  CTimeCountOutput(L"somebody").FlushAndDisable();
  EXPECT_EQ(m_debug, L"somebody, 0.000 ms\n");
}

TEST_F(TimeCountOutput, KeepsTheAnswerAboutTheDebugger) {
  std::FILE* const out = popen(USER_PROGRAM " x time", "r");
  std::string lines(100, '\0');
  lines.resize(std::fread(lines.data(), 1, lines.size(), out));
  EXPECT_EQ(lines, "first, 0.000 ms\nsecond, 0.000 ms\n");
  EXPECT_EQ(pclose(out), 0);
}

TEST_F(TimeCountOutput, LinesOfManyThreadsStayWhole) {
  constexpr int threads = 8;
  constexpr int lines = 50;
  const std::wstring label(300, L'x');
  {
    std::vector<std::jthread> all;
    all.reserve(threads);
    for (int i = 0; i < threads; ++i) {
      all.emplace_back([&] {
        for (int line = 0; line < lines; ++line) {
          CTimeCountOutput(label.c_str()).FlushAndDisable();
        }
      });
    }
  }
  const std::string line = std::string(300, 'x') + ", 0.000 ms\n";
  std::string expected;
  for (int i = 0; i < threads * lines; ++i) expected += line;
  EXPECT_EQ(written(), expected);
  EXPECT_EQ(m_debug, std::wstring(expected.begin(), expected.end()));

  long calls = 0;
  const CTimeCountOutput last(L"x");
  {
    const FaultyCalls counted({.kind = Fault::none});
    CTimeCountOutput(label.c_str()).FlushAndDisable();
    calls = counted.counted();
  }
  EXPECT_LE(calls, 4);  // open, create, one write, close: nothing gets in between
}

// --- streams ---

TEST(WideStreams, OpenByModeAndKeepToShares) {
  const TempFolder folder;
  const std::wstring name = folder.wide("text.txt");
  writeBytes(folder / "text.txt", "one\r\ntwo\x1A");
  std::FILE* file = _wfopen(name.c_str(), L"a+");
  ASSERT_TRUE(file);
  EXPECT_GT(std::fputs("three\n", file), 0);
  std::rewind(file);
  std::string text;
  for (int c = 0; (c = std::fgetc(file)) != EOF;) text += static_cast<char>(c);
  EXPECT_EQ(text, "one\ntwothree\n");
  std::fseek(file, 4, SEEK_SET);
  EXPECT_EQ(std::fgetc(file), '\n');
  EXPECT_EQ(std::ftell(file), 5);
  EXPECT_EQ(std::fclose(file), 0);
  EXPECT_EQ(readBytes(folder / "text.txt"), "one\r\ntwothree\n");

  file = _wfopen(name.c_str(), L"rb");
  char bytes[5] = {};
  EXPECT_EQ(std::fread(bytes, 1, 5, file), 5U);
  EXPECT_EQ(std::string(bytes, 5), "one\r\n");
  std::fclose(file);

  file = _wfopen(name.c_str(), L"wb");
  std::fputs("x", file);
  std::fclose(file);
  EXPECT_EQ(readBytes(folder / "text.txt"), "x");

  const auto fails = [&](const wchar_t* path, const wchar_t* mode) {
    std::FILE* const opened = _wfopen(path, mode);
    if (opened) std::fclose(opened);
    return opened ? 0 : errno;
  };
  EXPECT_EQ(fails(name.c_str(), L"wx"), EEXIST);
  EXPECT_EQ(fails(name.c_str(), L"q"), EINVAL);
  EXPECT_EQ(fails(nullptr, L"r"), EINVAL);
  EXPECT_EQ(fails(folder.wide("missing").c_str(), L"r+"), ENOENT);
  EXPECT_EQ(fails(folder.wide().c_str(), L"r"), EACCES);
  const HANDLE held =
      CreateFileW(name.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(fails(name.c_str(), L"r"), EACCES);
  EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
  CloseHandle(held);
  EXPECT_EQ(fails(name.c_str(), L"r"), 0);
}

// --- TestingUtility ---

class TestLogging : public testing::Test {
 protected:
  TestLogging() {
    m_sink = SetDebugSink([](std::wstring_view) {});
    m_clock.setTime(1709647749).setZone(3600);  // 2024-03-05 14:09:09 UTC
  }
  ~TestLogging() override {
    TestingUtility::EndLoggingForTesting();
    logging::GetLoggerConfiguration().RemoveHandlers();
    SetDebugSink(m_sink);
  }
  static std::size_t handlers() { return logging::GetLoggerConfiguration().GetHandlerCount(); }

  TempFolder m_folder;
  ClockOverride m_clock;
  DebugSink m_sink;
};

TEST_F(TestLogging, LogsIntoAFolderNamedByTheLocalTime) {
  TestingUtility::EndLoggingForTesting();
  std::wstring run_folder;
  const std::wstring base = m_folder.wide();
  EXPECT_TRUE(TestingUtility::SetupLoggingForTesting(run_folder, base, L"gears"));
  EXPECT_EQ(run_folder, base + L"/2024-Mar-05 15_09_09_gears");
  EXPECT_EQ(handlers(), 2U);
  logging::LogMessage message(L"a line");
  logging::GetLogger(L"channel").LogFailure(message);
  EXPECT_TRUE(TestingUtility::SetupLoggingForTesting(run_folder, base, L"gears"));
  EXPECT_EQ(handlers(), 2U);  // those of the first set-up are gone
  TestingUtility::EndLoggingForTesting();
  EXPECT_EQ(handlers(), 0U);
  const std::string log = readBytes(m_folder / "2024-Mar-05 15_09_09_gears/log.txt");
  EXPECT_NE(log.find("a line"), std::string::npos);
  const std::string told = "RigProbe: logging to file = " + std::string(base.begin(), base.end()) +
                           "/2024-Mar-05 15_09_09_gears/log.txt.\n";
  const std::size_t first = log.find(told);
  EXPECT_NE(first, std::string::npos) << log;
  EXPECT_NE(log.find(told, first + 1), std::string::npos);
}

TEST_F(TestLogging, TellsWhatItCannotSetUp) {
  std::wstring run_folder = L"as it was";
  EXPECT_FALSE(TestingUtility::SetupLoggingForTesting(run_folder, m_folder.wide("no"), L""));
  EXPECT_EQ(run_folder, L"as it was");
  EXPECT_EQ(handlers(), 1U);  // the debugger's
  EXPECT_FALSE(TestingUtility::SetupLoggingForTesting());
  EXPECT_EQ(TestingUtility::GetDefaultPathForTesting(), L"Z:/RigProbeOut");

  writeBytes(m_folder / "file", "");  // anything counts as a base, not everything holds folders
  for (const wchar_t* base : {L"file", L""}) {
    EXPECT_THROW(TestingUtility::SetupLoggingForTesting(
                     run_folder, m_folder.wide() + (*base ? L"\\" : L"") + base,
                     *base ? L"" : L"no/parents"),
                 boost::filesystem::filesystem_error);
  }
}

}  // namespace
