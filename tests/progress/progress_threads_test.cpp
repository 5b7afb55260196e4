// Meant for the thread sanitizer: reports, texts, begins and ends from many threads while windows
// come and go.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <cwchar>
#include <string>
#include <thread>
#include <vector>

#include "qelbase/outside/components/locking.h"
#include "qelbase/outside/system/messages.h"
#include "qelbase/progress/IStatusCallback.h"
#include "qelbase/progress/MProgress.h"
#include "qelbase/progress/MStatusCallbackToMProgressImpl.h"

namespace sys = qel::sys;

namespace {

constexpr int kWorkers = 8;
constexpr int kRounds = 150;

// Nests three scopes, moves and names them, through the class or through the bridge.
void reportDirectly(int round) {
  MProgress outer(0, 10);
  outer.SetAdjustByLowerLevels(round % 2 == 0);
  outer.SetChildWeight(5);
  MProgress middle(0, 4, false);
  middle.SetText(L"a text that no small buffer would hold, round after round");
  middle.Begin(0, 4);
  middle.SetAdjustByLowerLevels(true);
  for (int i = 0; i < 4; ++i) {
    MProgress inner(0, 3);
    inner.SetText(std::to_wstring(i).c_str());
    for (int k = 0; k < 3; ++k) inner.Increment();
    MProgress::IncrementLast(0.5);
    middle.Increment();
  }
  middle.End();
  middle.Begin(1, 2);
  outer.Increment();
}

void reportThroughTheBridge(int round) {
  const IStatusCallback::Session session(0, 20, L"session");
  for (int i = 0; i < 20 && !IStatusCallback::STATUS_GET_ABORT(); ++i) {
    IStatusCallback::STATUS_COUNT(i);
    IStatusCallback::STATUS_TEXT(0, i % 2 == 0 ? L"%s%n" : L"");
    const IStatusCallback::Session nested(0, round, L"%d nested");
    IStatusCallback::STATUS_INC(1);
  }
}

// Shows texts until told to stop; takes its window away and brings a new one now and then.
void showUntil(const std::atomic<bool>& stop, std::atomic<std::size_t>& handled) {
  const auto procedure = [&](HWND, UINT message, WPARAM, LPARAM value) -> LRESULT {
    if (message == MProgressMessage::kText) {
      handled += std::wcslen(reinterpret_cast<const wchar_t*>(value)) + 1;
    } else {
      ++handled;
    }
    MProgress::SetAbortFlag(handled % 64 == 0);
    return 0;
  };
  while (!stop) {
    const HWND window = sys::CreateMessageWindow(procedure);
    MProgressManager::AttachUITarget(window);
    MProgressManager::EnableAbortButton(true);
    sys::MSG message;
    for (int i = 0; i < 200 && !stop; ++i) {
      while (sys::PeekMessageW(&message, nullptr, 0, 0, sys::PM_REMOVE)) {
        sys::DispatchMessageW(&message);
      }
      std::this_thread::yield();
    }
    if (handled % 3 == 0) MProgressManager::ResetUITargets();
    sys::DestroyWindow(window);
  }
}

}  // namespace

TEST(ProgressThreads, WorkersReportWhileWindowsComeAndGo) {
  MProgress::SetProcessOnlyCurrentThreadWindows(false);
  const MStatusCallbackToMProgressImpl bridge;
  std::atomic<bool> stop{false};
  std::atomic<std::size_t> handled{0};
  std::vector<std::thread> windows;
  for (int i = 0; i < 2; ++i) windows.emplace_back([&] { showUntil(stop, handled); });
  while (handled == 0) MProgressManager::EnableAbortButton(true);
  std::vector<std::thread> workers;
  for (int i = 0; i < kWorkers; ++i) {
    workers.emplace_back([i] {
      for (int round = 0; round < kRounds; ++round) {
        (i + round) % 2 == 0 ? reportDirectly(round) : reportThroughTheBridge(round);
      }
    });
  }
  for (auto& worker : workers) worker.join();
  stop = true;
  for (auto& window : windows) window.join();
  MProgressManager::ResetUITargets();
  MProgressManager::ResetAbortFlag();
  MProgress::SetProcessOnlyCurrentThreadWindows(true);
  // The list is empty again: a new scope has level 0.
  MProgress probe(0, 1, false);
  EXPECT_EQ(MProgressManager::Begin(&probe), 0u);
  MProgressManager::End(&probe);
}

TEST(ProgressThreads, AParentMayGoWhileItsChildReports) {
  for (int round = 0; round < 300; ++round) {
    auto parent = std::make_unique<MProgress>();
    parent->SetAdjustByLowerLevels(true);
    std::barrier start(2);
    std::thread child([&] {
      MProgress scope;
      start.arrive_and_wait();
      for (int i = 0; i < 100; ++i) scope.Increment();
    });
    start.arrive_and_wait();
    if (round % 2 == 0) parent->End();
    if (round % 4 == 0) parent->Begin(0, 1);
    parent->Increment();
    parent.reset();
    child.join();
  }
}

TEST(RecursiveLock, KeepsThreadsApartAndLosesNoWakeUp) {
  StdBase::RecursiveLock lock;
  long count = 0;  // guarded
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < 20000; ++k) {
        lock.lock();
        ASSERT_TRUE(lock.try_lock());
        ++count;
        lock.unlock();
        ASSERT_TRUE(lock.IsOwned());
        lock.unlock();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(count, 80000);
  lock.lock();
  std::thread([&] { EXPECT_FALSE(lock.try_lock()); }).join();
  lock.unlock();
  EXPECT_FALSE(lock.IsOwned());
}
