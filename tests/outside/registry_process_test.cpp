// The registry under several processes and threads, dying writers, and fork.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <thread>
#include <vector>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/events.h"
#include "qelbase/outside/system/registry.h"

#include "tests/support/RegistryFolder.h"

using namespace qel::sys;
using namespace qeltest;

namespace {

pid_t inChild(const std::function<int()>& run) {
  const pid_t child = fork();
  if (child == 0) _exit(run());
  return child;
}

int exitCode(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

HKEY make(const wchar_t* path) {
  HKEY key = nullptr;
  return RegCreateKeyW(HKEY_CURRENT_USER, path, &key) == 0 ? key : nullptr;
}

std::uint32_t number(HKEY key, const wchar_t* name) {
  std::uint32_t value = 0;
  DWORD size = sizeof value;
  return RegQueryValueExW(key, name, nullptr, nullptr, &value, &size) == 0 ? value : 0;
}

LSTATUS setNumber(HKEY key, const wchar_t* name, std::uint32_t value) {
  return RegSetValueExW(key, name, 0, REG_DWORD, &value, sizeof value);
}

class RegistryProcesses : public testing::Test {
 protected:
  RegistryFolder m_registry;
};

TEST_F(RegistryProcesses, LoseNoUpdateWhenEightWriteTheSameKeys) {
  constexpr std::uint32_t kRounds = 60;
  std::vector<pid_t> children;
  for (int i = 0; i < 8; ++i) {
    children.push_back(inChild([i] {
      const std::wstring own = L"Software\\Race\\" + std::to_wstring(i);
      const HKEY shared = make(L"Software\\Race"), mine = make(own.c_str());
      for (std::uint32_t round = 1; round <= kRounds; ++round) {
        if (setNumber(mine, L"round", round) != 0) return 1;
        if (setNumber(shared, std::to_wstring(i).c_str(), round) != 0) return 2;
        if (number(mine, L"round") != round) return 3;  // never an older one
        HKEY passing = nullptr;
        if (RegCreateKeyW(shared, L"passing", &passing) != 0) return 4;
        const LSTATUS gone = RegDeleteKeyW(shared, L"passing");
        if (gone != 0 && gone != 2) return 5;
        RegCloseKey(passing);
      }
      return 0;
    }));
  }
  for (const pid_t child : children) EXPECT_EQ(exitCode(child), 0);
  const HKEY shared = make(L"Software\\Race");
  for (int i = 0; i < 8; ++i) EXPECT_EQ(number(shared, std::to_wstring(i).c_str()), kRounds);
}

TEST_F(RegistryProcesses, KeepWhatAKilledWriterWasToldIsWritten) {
  const HKEY key = make(L"Software\\Kill");
  for (int round = 0; round < 40; ++round) {
    int told[2];
    ASSERT_EQ(pipe(told), 0);
    const pid_t writer = inChild([&] {
      const HKEY own = make(L"Software\\Kill");
      for (std::uint32_t i = number(own, L"a") + 1;; ++i) {
        if (setNumber(own, L"a", i) != 0 || setNumber(own, L"b", i) != 0) return 1;
        if (write(told[1], &i, sizeof i) != sizeof i) return 2;
      }
    });
    close(told[1]);
    std::uint32_t last = 0, next = 0;
    // The moment of death differs from round to round, with no clock at work.
    for (int i = 0; i <= round && read(told[0], &next, sizeof next) == sizeof next; ++i) {
      last = next;
    }
    kill(writer, SIGKILL);
    EXPECT_EQ(exitCode(writer), 128 + SIGKILL);
    while (read(told[0], &next, sizeof next) == sizeof next) last = next;
    close(told[0]);
    const std::uint32_t a = number(key, L"a"), b = number(key, L"b");
    EXPECT_GE(b, last);
    EXPECT_TRUE(a == b || a == b + 1) << a << ' ' << b;
    EXPECT_EQ(setNumber(key, L"after", last), 0);
    EXPECT_EQ(number(key, L"after"), last);
  }
}

TEST_F(RegistryProcesses, SeeAtOnceWhatAnotherWrote) {
  const HKEY key = make(L"Software\\Cache");
  for (std::uint32_t i = 1; i <= 20; ++i) {
    EXPECT_EQ(number(key, L"v"), i - 1);  // remembered from here on
    EXPECT_EQ(number(key, L"v"), i - 1);
    EXPECT_EQ(exitCode(inChild([&] { return setNumber(make(L"Software\\Cache"), L"v", i); })), 0);
    EXPECT_EQ(number(key, L"v"), i);
  }
  EXPECT_EQ(exitCode(inChild([] { return RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\Cache"); })),
            0);
  DWORD size = 0;
  EXPECT_EQ(RegQueryValueExW(key, L"v", nullptr, nullptr, nullptr, &size), 1018);
}

TEST_F(RegistryProcesses, GoOnWithOpenKeysAfterFork) {
  const HKEY key = make(L"Software\\Fork");
  ASSERT_EQ(setNumber(key, L"v", 1), 0);
  const pid_t child = inChild([&] {
    if (number(key, L"v") != 1) return 1;
    for (std::uint32_t i = 0; i < 100; ++i) {
      if (setNumber(key, L"child", i + 1) != 0) return 2;
    }
    return 0;
  });
  for (std::uint32_t i = 0; i < 100; ++i) EXPECT_EQ(setNumber(key, L"parent", i + 1), 0);
  EXPECT_EQ(exitCode(child), 0);
  EXPECT_EQ(number(key, L"child"), 100U);
  EXPECT_EQ(number(key, L"parent"), 100U);
}

TEST_F(RegistryProcesses, ForkWhileThreadsReadAndWrite) {
  std::atomic<bool> stop = false;
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      const std::wstring path = L"Software\\Threads\\" + std::to_wstring(i);
      for (std::uint32_t round = 1; !stop; ++round) {
        const HKEY key = make(path.c_str());
        if (setNumber(key, L"v", round) != 0 || number(key, L"v") != round) ++wrong;
        RegCloseKey(key);
      }
    });
  }
  for (std::uint32_t i = 0; i < 10; ++i) {
    EXPECT_EQ(exitCode(inChild([&] { return setNumber(make(L"Software\\Child"), L"v", i); })), 0);
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(number(make(L"Software\\Child"), L"v"), 9U);
}

TEST_F(RegistryProcesses, SignalChangesOfAnother) {
  constexpr DWORD kLong = 20'000;
  const HKEY key = make(L"Software\\Notice");
  make(L"Software\\Notice\\sub");
  struct {
    BOOL subtree;
    DWORD filter;
    std::function<int()> change;
  } const rows[] = {
      {0, 4, [] { return setNumber(make(L"Software\\Notice"), L"v", 1); }},
      {0, 1, [] { return make(L"Software\\Notice\\new") ? 0 : 1; }},
      {1, 4, [] { return setNumber(make(L"Software\\Notice\\sub"), L"v", 1); }},
      {1, 1, [] { return RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\Notice\\new"); }},
  };
  const HANDLE event = CreateEventW(0, 0), marker = CreateEventW(0, 0);
  const HKEY aside = make(L"Software\\Aside");
  for (const auto& row : rows) {
    ASSERT_EQ(RegNotifyChangeKeyValue(key, row.subtree, row.filter, event, 1), 0);
    // Changes that were not asked about. The watcher goes through the notices in turn, so behind
    // the second marker it has looked at all of them.
    if (!row.subtree) setNumber(make(L"Software\\Notice\\sub"), L"aside", 1);
    for (int pass = 0; pass < 2; ++pass) {
      ASSERT_EQ(RegNotifyChangeKeyValue(aside, 0, 4, marker, 1), 0);
      EXPECT_EQ(exitCode(inChild([] { return setNumber(make(L"Software\\Aside"), L"v", 1); })), 0);
      EXPECT_EQ(WaitForSingleObject(marker, kLong), WAIT_OBJECT_0);
    }
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    EXPECT_EQ(exitCode(inChild(row.change)), 0);
    EXPECT_EQ(WaitForSingleObject(event, kLong), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);  // one shot
  }
  ASSERT_EQ(RegNotifyChangeKeyValue(key, 0, 4, event, 1), 0);
  EXPECT_EQ(RegCloseKey(key), 0);
  EXPECT_EQ(WaitForSingleObject(event, kLong), WAIT_OBJECT_0);
  std::thread([&] { RegNotifyChangeKeyValue(HKEY_CURRENT_USER, 0, 4, event, 1); }).join();
  EXPECT_EQ(WaitForSingleObject(event, kLong), WAIT_OBJECT_0);
  std::thread waits(
      [&] { EXPECT_EQ(RegNotifyChangeKeyValue(HKEY_CURRENT_USER, 1, 4, nullptr, 0), 0); });
  const pid_t writer = inChild([] {
    for (std::uint32_t i = 0;; ++i) setNumber(make(L"Software\\Wake"), L"v", i);
    return 0;
  });
  waits.join();
  kill(writer, SIGKILL);
  exitCode(writer);
  CloseEvent(marker);
  CloseEvent(event);
}

}  // namespace
