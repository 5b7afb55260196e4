#include "terminal/ProgressDisplay.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "qelbase/progress/MProgress.h"

#include "terminal/progress_view.h"

using namespace qel::terminal;

namespace {

// Calls `half_way` in the middle.
template <typename Step>
void save(int steps, Step half_way) {
  MProgress scope(0, steps, false);
  scope.SetText(L"Saving \x1b[2J part");
  scope.Begin(0, steps);
  for (int i = 0; i < steps; ++i) {
    if (i == steps / 2) half_way();
    scope.Increment();
  }
}

// What the display writes to `writer` while an operation runs on another thread, which waits in the
// middle for the first bytes if `wait` is set.
std::string shown(Mode mode, int reader, int writer, bool wait = false) {
  std::string bytes;
  std::atomic<bool> began = false;
  std::thread collector([&] {
    char block[4096];
    for (ssize_t count; (count = ::read(reader, block, sizeof block)) > 0;) {
      bytes.append(block, static_cast<std::size_t>(count));
      began = true;
      began.notify_all();
    }
  });
  {
    const ProgressDisplay display(mode, writer);
    std::thread([&] {
      save(100, [&] {
        if (wait) began.wait(false);
      });
    }).join();
  }
  ::close(writer);
  collector.join();
  ::close(reader);
  return bytes;
}

std::string shownInAPipe(Mode mode) {
  int ends[2];
  EXPECT_EQ(::pipe(ends), 0);
  return shown(mode, ends[0], ends[1]);
}

}  // namespace

TEST(ProgressDisplay, InAPipeItWritesALineForEachTenth) {
  std::istringstream lines(shownInAPipe(Mode::automatic));
  std::vector<std::string> found;
  for (std::string line; std::getline(lines, line);) found.push_back(line);
  ASSERT_EQ(found.size(), 11u);
  EXPECT_EQ(found[0], "Saving  [2J part: 10 %");
  EXPECT_EQ(found[9], "Saving  [2J part: 100 %");
  EXPECT_EQ(found[10].substr(0, 23), "Saving  [2J part: 100 %");
}

TEST(ProgressDisplay, JsonHasOneObjectForEachEvent) {
  std::istringstream lines(shownInAPipe(Mode::json));
  std::vector<nlohmann::json> events;
  for (std::string line; std::getline(lines, line);) events.push_back(nlohmann::json::parse(line));
  ASSERT_EQ(events.size(), 102u);
  EXPECT_EQ(events.front()["event"], "begin");
  EXPECT_EQ(events.front()["text"], "Saving  [2J part");
  EXPECT_EQ(events[50]["percent"], 50);
  EXPECT_EQ(events.back()["event"], "end");
}

TEST(ProgressDisplay, OnATerminalItDrawsBarsAndTakesThemAway) {
  int main_end;
  int terminal;
  winsize size{24, 60, 0, 0};
  ASSERT_EQ(::openpty(&main_end, &terminal, nullptr, nullptr, &size), 0);
  const std::string bytes = shown(Mode::automatic, main_end, terminal, true);
  EXPECT_NE(bytes.find("----]"), std::string::npos) << bytes;
  EXPECT_NE(bytes.find("\x1b[1A\x1b[J"), std::string::npos);
  EXPECT_EQ(bytes.find("\x1b[2J"), std::string::npos);
  EXPECT_NE(bytes.find("part: 100 %"), std::string::npos);
}

TEST(ProgressDisplay, TheFirstInterruptSetsTheAbortFlagAndTheHandlerIsPutBack) {
  struct sigaction before {};
  ::sigaction(SIGINT, nullptr, &before);
  {
    const ProgressDisplay display(Mode::off);
    EXPECT_FALSE(MProgressManager::GetAbortFlag());
    ::raise(SIGINT);
    EXPECT_TRUE(MProgressManager::GetAbortFlag());
    struct sigaction second {};
    ::sigaction(SIGINT, nullptr, &second);
    EXPECT_EQ(second.sa_handler, SIG_DFL);
  }
  struct sigaction after {};
  ::sigaction(SIGINT, nullptr, &after);
  EXPECT_EQ(after.sa_handler, before.sa_handler);
  MProgressManager::ResetAbortFlag();
}

TEST(ProgressView, ABarTellsPercentRateAndTimeLeftWithinTheWidth) {
  Level level;
  level.open = true;
  level.text = "Größe";
  level.percent = 25;
  const auto now = level.start + std::chrono::seconds(100);
  EXPECT_EQ(DrawBar(level, 1, 80, now),
            "  Größe              [######------------------]  25 %    0.2 %/s  5:00 left    ");
  for (int columns : {0, 9, 20, 40}) {
    EXPECT_LE(DrawBar(level, 50, columns, now).size(), 60u) << columns;
  }
}

TEST(ProgressView, LostMessagesDoNoHarm) {
  const auto view = MakeLines();
  const Clock::time_point now;
  view->End(3, now);
  view->Percent(2, 250, now);
  view->Percent(2, -5, now);
  view->Begin(1000, now);
  view->Text(0, L"", now);
  view->End(2, now);
  EXPECT_EQ(view->Take(), "    100 %\n");
}
