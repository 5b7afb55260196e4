// Services that run: both sides, in step by FIFOs, and dying at every moment.
#include <sys/mman.h>
#include <sys/wait.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "qelbase/outside/system/messages.h"
#include "qelbase/outside/system/text.h"

#include "tests/platform/services_support.h"
#include "tests/support/FaultyCalls.h"

using namespace qeltest;

namespace {

class ServiceProcesses : public ServiceTest {
 protected:
  // Starts a led service that has been created; its process.
  pid_t startLed(SC_HANDLE service) const {
    EXPECT_EQ(start(service), 0U);
    m_self = line();
    EXPECT_TRUE(line().starts_with("main"));
    return pidOf(m_self);
  }
  pid_t runLed(SC_HANDLE service) const {
    const pid_t process = startLed(service);
    EXPECT_EQ(ask('R'), "R 1");
    return process;
  }
  static services::Process lastProcess(const std::wstring& name) {
    DWORD code = 0;
    const auto file = services::StatusFile::open(name, false, code);
    return file ? file->lastRun().value_or(services::Run()).process : services::Process();
  }
  // The result of a call that waits, while the replaced clock is moved on.
  static DWORD underClock(const std::function<bool()>& is_waiting,
                          const std::function<DWORD()>& call) {
    ClockOverride clock;
    clock.setTickCount(1000);
    std::atomic<bool> done = false;
    DWORD result = 0;
    std::thread caller([&] {
      result = call();
      done = true;
    });
    while (!done && !is_waiting()) sched_yield();
    while (!done) {
      clock.advance(1000);
      sched_yield();
    }
    caller.join();
    return result;
  }
  static std::vector<std::thread> many(int count, const std::function<void()>& run) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) threads.emplace_back(run);
    return threads;
  }

  mutable std::string m_self;
};

TEST_F(ServiceProcesses, AreManagedFromInstallationToRemoval) {
  CNTServiceMgr manager(L"plain"), other(L"PLAIN");
  ASSERT_EQ(manager.RegisterService(program(L"plain").c_str(), L"Plain", 0, 0, nullptr, L"d"), 1);
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(manager.StartServiceW(true), 1);
    EXPECT_EQ(other.IsInstalledAndRunning(), 1);
    EXPECT_EQ(other.StartServiceW(false), 0);
    EXPECT_EQ(other.GetLastError(), 1056U);
    EXPECT_EQ(other.StopService(), 1);
    EXPECT_EQ(manager.IsInstalledAndRunning(), 0);
  }
  EXPECT_EQ(manager.StartServiceW(false), 1);
  while (!other.IsInstalledAndRunning()) sched_yield();
  EXPECT_EQ(manager.UnregisterService(), 1);
  EXPECT_EQ(other.IsInstalled(), 0);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // nothing left to wait for
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(ServiceProcesses, HaveNothingOfTheirStarter) {
  const int leaking = dup(0);
  ASSERT_GE(leaking, 0);
  signal(SIGPIPE, SIG_IGN);
  const wchar_t* arguments[] = {L"first", L"\u00e9 \U0001F570", L""};
  const SC_HANDLE straight = create(L"straight", led(L"steps"));
  ASSERT_EQ(codeOf(StartServiceW(straight, 3, arguments)), 0U);
  EXPECT_EQ(statusOf(straight).dwCurrentState, 2U);
  EXPECT_EQ(statusOf(straight).dwWaitHint, 2000U);
  const std::string self = line();
  EXPECT_TRUE(self.ends_with(" leader 1 /dev/null / blocked 0 default 1 files 3")) << self;
  EXPECT_EQ(line(), "main straight first \u00e9 \U0001F570 ");
  signal(SIGPIPE, SIG_DFL);
  close(leaking);
}

TEST_F(ServiceProcesses, ReportToEveryProcess) {
  const SC_HANDLE service = create(L"led", led(L"steps"));
  startLed(service);
  const auto seen = [&] {
    const SERVICE_STATUS s = statusOf(service);
    return std::vector<DWORD>{s.dwCurrentState, s.dwControlsAccepted, s.dwWin32ExitCode,
                              s.dwCheckPoint, s.dwWaitHint};
  };
  using Seen = std::vector<DWORD>;
  const struct {
    char step;
    Seen expected;
  } rows[] = {{'P', {2, 0, 0, 1, 3000}}, {'P', {2, 0, 0, 2, 3000}}, {'R', {4, 9, 0, 0, 0}},
              {'P', {2, 0, 0, 3, 3000}}, {'R', {4, 9, 0, 0, 0}},    {'Q', {3, 9, 0, 4, 3000}},
              {'E', {1, 9, 42, 0, 0}}};
  for (const auto& row : rows) {
    EXPECT_EQ(ask(row.step), std::string(1, row.step) + " 1");
    EXPECT_EQ(seen(), row.expected) << row.step;
    EXPECT_TRUE(runInChild([&] {
                  CNTServiceMgr other(L"led");
                  EXPECT_EQ(other.IsInstalledAndRunning(), row.step == 'R');
                }).exit_code == 0);
  }
  EXPECT_EQ(line(), "end 1");  // stopped: the dispatcher returns, and the process ends
  EXPECT_EQ(seen(), rows[6].expected);
}

TEST_F(ServiceProcesses, AreSeenStoppedWhenTheyDie) {
  const SC_HANDLE service = create(L"led", led(L"steps"));
  for (const char* way : {"starting", "running", "stopping"}) {
    const pid_t process = startLed(service);
    if (*way == 'r') ask('R');
    if (way[2] == 'o') ask('Q');
    EXPECT_EQ(kill(process, SIGKILL), 0);
    awaitState(service, 1);
    EXPECT_EQ(statusOf(service).dwWin32ExitCode, 1067U) << way;
    EXPECT_EQ(control(service, 1), 1062U);
  }
  runLed(service);             // and starts again
  EXPECT_EQ(ask('X'), "X 0");  // no such state: refused, nothing told
  EXPECT_EQ(stateOf(service), 4U);
  EXPECT_EQ(ask('S'), "S 1");
  EXPECT_EQ(stateOf(service), 1U);
}

TEST_F(ServiceProcesses, AreRefusedWhenTheirProgramIsNone) {
  writeBytes(m_registry.file("text"), "no program");
  writeBytes(m_registry.file("script"), "#!/missing/interpreter\n");
  chmod(m_registry.file("script").c_str(), 0700);
  writeBytes(m_registry.file("noise"),
             "\x7f"
             "ELF and nothing else");
  chmod(m_registry.file("noise").c_str(), 0700);
  const std::wstring base = m_registry.folder().wide() + L"\\";
  const struct {
    std::wstring path;
    DWORD expected;
  } rows[] = {{base + L"missing", 3},   {base + L"no\\folder", 3},
              {base + L"text", 5},      {L"\"" + base + L"services\"", 5},
              {base + L"script", 3},    {base + L"noise", 193},
              {program(L"exits"), 1053}};
  int number = 0;
  for (const auto& row : rows) {
    const std::wstring name = L"s" + std::to_wstring(++number);
    const SC_HANDLE service = create(name.c_str(), row.path);
    EXPECT_EQ(start(service), row.expected) << Narrow(row.path);
    EXPECT_EQ(stateOf(service), 1U) << Narrow(row.path);
    EXPECT_EQ(start(service), row.expected);  // nothing of the first try is in the way
    EXPECT_EQ(codeOf(DeleteService(service)), 0U);
    CloseServiceHandle(service);
  }
  const SC_HANDLE disabled = create(L"disabled", program(L"plain"), 4);
  EXPECT_EQ(start(disabled), 1058U);
}

TEST_F(ServiceProcesses, HaveThirtySecondsToCallTheirDispatcher) {
  const SC_HANDLE service = create(L"silent", led(L"silent"));
  const DWORD code =
      underClock([&] { return stateOf(service) == 2; }, [&] { return start(service); });
  EXPECT_EQ(code, 1053U);
  EXPECT_EQ(stateOf(service), 1U);
  line();
  while (services::IsAlive(lastProcess(L"silent"))) sched_yield();

  // Its starter died while it waited: whoever starts it next ends the old one.
  const ChildEnd end = runInChild([&] {
    std::thread([&] { (void)start(service); }).detach();
    awaitState(service, 2);
    raise(SIGKILL);
  });
  EXPECT_TRUE(end.killed());
  const pid_t orphan = pidOf(line());
  EXPECT_EQ(stateOf(service), 2U);
  EXPECT_EQ(start(service), 1056U);
  EXPECT_EQ(control(service, 1), 1061U);
  ClockOverride clock;
  clock.setTickCount(GetTickCount() + 31'000);
  std::thread next([&] { EXPECT_EQ(start(service), 1053U); });
  const pid_t second = pidOf(line());
  EXPECT_NE(second, orphan);
  EXPECT_EQ(kill(second, SIGKILL), 0);
  next.join();
}

TEST_F(ServiceProcesses, TakeTheControlsThatTheyAccept) {
  const SC_HANDLE service = create(L"led", led(L"steps"));
  startLed(service);
  ask('P');
  EXPECT_EQ(control(service, 1), 1061U);
  ask('R');
  SERVICE_STATUS status{};
  EXPECT_EQ(codeOf(ControlService(service, 2, &status)), 1052U);
  EXPECT_EQ(status.dwCurrentState, 4U);
  const struct { DWORD control, expected; } rows[] = {{4, 0}, {6, 0}, {128, 0}, {200, 120}, {1, 0}};
  for (const auto& row : rows) {
    EXPECT_EQ(control(service, row.control), row.expected) << row.control;
    EXPECT_EQ(line(), "control " + std::to_string(row.control));
  }
  EXPECT_EQ(stateOf(service), 4U);  // returns when the handler did, not when it has stopped
  ask('Q');
  EXPECT_EQ(control(service, 4), 1061U);
  ask('S');
}

TEST_F(ServiceProcesses, ThatDoNotStopInTimeStay) {
  CNTServiceMgr manager(L"led");
  ASSERT_EQ(manager.RegisterService(led(L"steps").c_str(), L"Led", 0, 0, nullptr, nullptr), 1);
  const SC_HANDLE service = open(L"led");
  runLed(service);
  std::atomic<bool> told = false;
  const auto sawControl = [&] {
    if (!told) told = line() == "control 1";
    return told.load();
  };
  EXPECT_EQ(underClock(sawControl, [&] { return DWORD(manager.StopService()); }), 0U);
  EXPECT_EQ(manager.GetLastError(), 1460U);
  told = false;
  EXPECT_EQ(underClock(sawControl, [&] { return DWORD(manager.UnregisterService()); }), 0U);
  EXPECT_EQ(manager.GetLastError(), 1460U);
  EXPECT_EQ(manager.IsInstalledAndRunning(), 1);

  // The messages of the waiting thread are dispatched meanwhile, again and again, up to the last
  // millisecond, and wherever else the clock is set.
  ClockOverride clock;
  clock.setTickCount(20000);
  int seen = 0;
  const HWND window = CreateMessageWindow([&](HWND, UINT, WPARAM, LPARAM) -> LRESULT {
    clock.setTickCount(++seen == 1 ? 30000 : 11000);
    EXPECT_TRUE(seen != 3 || write(m_asked.get(), "S", 1) == 1);
    return 0;
  });
  PostMessageW(window, 1, 0, 0);
  EXPECT_EQ(manager.StopService(), 1);
  EXPECT_GE(seen, 3);
  DestroyWindow(window);
}

TEST_F(ServiceProcesses, AreWaitedForUntilTheyHaveStarted) {
  const SC_HANDLE service = create(L"led", led(L"steps"));
  DWORD state_after = 0;
  std::thread starter([&] {
    EXPECT_EQ(CNTServiceMgr(L"led").StartServiceW(true), 1);
    state_after = stateOf(service);
  });
  for (int lines = 0; lines < 2; ++lines) EXPECT_NE(line(), "");
  EXPECT_EQ(ask('P'), "P 1");
  EXPECT_EQ(ask('R'), "R 1");
  starter.join();
  EXPECT_EQ(state_after, 4U);
}

TEST_F(ServiceProcesses, WhoseHandlerHangsAreWaitedForThirtySeconds) {
  const SC_HANDLE service = create(L"led", led(L"deaf"));
  const pid_t process = runLed(service);
  const auto hangs = [&] { return line() == "control 4"; };
  EXPECT_EQ(underClock(hangs, [&] { return control(service, 4); }), 1053U);
  EXPECT_EQ(underClock([] { return true; }, [&] { return control(service, 4); }), 1053U);
  std::atomic<DWORD> result = 0;
  std::thread stopper([&] { result = control(service, 1); });
  EXPECT_EQ(kill(process, SIGKILL), 0);
  stopper.join();
  EXPECT_EQ(result, 1062U);  // it died before it could be told
}

TEST_F(ServiceProcesses, StartAfterWhatTheyDependOn) {
  const SC_HANDLE base = create(L"base", program(L"plain"));
  const SC_HANDLE middle = create(L"middle", program(L"plain"), 3, L"BASE\0");
  const SC_HANDLE top = create(L"top", program(L"plain"), 3, L"middle\0base\0");
  EXPECT_EQ(start(top), 0U);
  EXPECT_EQ(stateOf(base), 4U);
  EXPECT_EQ(stateOf(middle), 4U);
  awaitState(top, 4);
  EXPECT_EQ(control(base, 1), 1051U);
  for (const SC_HANDLE service : {top, middle, base}) {
    EXPECT_EQ(control(service, 1), 0U);
    awaitState(service, 1);
  }
  EXPECT_EQ(start(create(L"lonely", program(L"plain"), 3, L"nobody\0")), 1075U);
  create(L"broken", L"C:\\missing");
  EXPECT_EQ(start(create(L"failing", program(L"plain"), 3, L"broken\0")), 1068U);
  create(L"hen", program(L"plain"), 3, L"egg\0");
  EXPECT_EQ(start(create(L"egg", program(L"plain"), 3, L"hen\0")), 1059U);
  EXPECT_EQ(stateOf(open(L"hen")), 1U);
}

TEST_F(ServiceProcesses, RunOnceHoweverManyStartAndStopThem) {
  CloseServiceHandle(create(L"plain", program(L"plain")));
  for (int round = 0; round < 5; ++round) {
    std::atomic<int> started = 0, running = 0, other = 0;
    const auto begin = [&] {
      const SC_HANDLE service = open(L"plain");
      const DWORD code = start(service);
      ++(code == 0 ? started : code == 1056 ? running : other);
      CloseServiceHandle(service);
    };
    for (std::thread& thread : many(4, begin)) thread.join();
    EXPECT_EQ(started, 1);
    EXPECT_EQ(running, 3);
    const SC_HANDLE service = open(L"plain");
    awaitState(service, 4);
    // From other processes, where 0, 1061 and 1062 are what a second one may meet.
    std::vector<pid_t> children;
    for (int i = 0; i < 4; ++i) {
      const pid_t child = fork();
      if (child == 0) {
        CNTServiceMgr manager(L"plain");
        const int stopped = manager.StopService();
        _exit(stopped || manager.GetLastError() == 1061 ? stopped : 9);
      }
      children.push_back(child);
    }
    int stopped = 0;
    for (const pid_t child : children) {
      int status = 0;
      waitpid(child, &status, 0);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) <= 1) << status;
      stopped += WEXITSTATUS(status);
    }
    EXPECT_GE(stopped, 1);
    awaitState(service, 1);
    CloseServiceHandle(service);
  }
}

TEST_F(ServiceProcesses, SurviveTheirManagerAtEveryStep) {
  // What a manager does in its life; killed before each of its calls, and within each write.
  const auto live = [] {
    CNTServiceMgr manager(L"plain");
    if (!manager.RegisterService(program(L"plain").c_str(), L"Plain", 0, 0, nullptr, L"d")) {
      _exit(0);
    }
    manager.StartServiceW(true);
    manager.StopService();
    manager.UnregisterService();
  };
  int runs = 0;
  forEachKill([] {}, live,
              [&](const Fault&) {
                CNTServiceMgr manager(L"plain");
                ASSERT_FALSE(!manager);
                if (manager.IsInstalled()) {
                  const SC_HANDLE service = open(L"plain");
                  ASSERT_NE(service, nullptr);
                  while (stateOf(service) == 2 || stateOf(service) == 3) sched_yield();
                  runs += stateOf(service) == 4;
                  const DWORD code = start(service);
                  EXPECT_TRUE(code == 0 || code == 1056 || code == 1072) << code;
                  while (code != 1072 && stateOf(service) != 4) sched_yield();
                  CloseServiceHandle(service);
                }
                EXPECT_EQ(manager.UnregisterService(), 1);
                EXPECT_EQ(manager.IsInstalled(), 0);
              });
  EXPECT_GT(runs, 0);  // some managers died while their service ran
}

TEST_F(ServiceProcesses, AndManagersDieTogether) {
  const SC_HANDLE service = create(L"led", led(L"deaf"));
  for (int round = 0; round < 3; ++round) {
    const pid_t process = runLed(service);
    // A manager that waits for the handler, then both, in either order.
    const pid_t manager = fork();
    if (manager == 0) _exit(static_cast<int>(control(service, 4)));
    EXPECT_EQ(line(), "control 4");
    kill(round == 0 ? manager : process, SIGKILL);
    kill(round == 0 ? process : manager, SIGKILL);
    waitpid(manager, nullptr, 0);
    awaitState(service, 1);
    EXPECT_EQ(control(service, 1), 1062U);
  }
  // The control that was under way is nobody's now: the next service is not asked it.
  runLed(service);
  EXPECT_EQ(ask('S'), "S 1");
}

TEST_F(ServiceProcesses, StartOrFailWholeWhenTheSystemRefuses) {
  CloseServiceHandle(create(L"plain", program(L"plain")));
  DWORD code = 0;
  const auto run = [&] {
    const SC_HANDLE service = open(L"plain");
    code = service ? start(service) : qel::sys::GetLastError();
    if (service) CloseServiceHandle(service);
  };
  const auto check = [&](const Fault& fault) {
    const SC_HANDLE service = open(L"plain");
    ASSERT_NE(service, nullptr);
    EXPECT_TRUE(code == 0 || fault.struck) << code;
    EXPECT_EQ(stateOf(service) != 1, code == 0) << code;
    if (code == 0) {
      awaitState(service, 4);
      EXPECT_EQ(control(service, 1), 0U);
      awaitState(service, 1);
    }
    CloseServiceHandle(service);
  };
  for (int i = 0; i < 2; ++i) {  // the registry's descriptors settle
    run();
    check({});
  }
  forEachFault(run, check);
  const SystemCalls before = Calls();
  Calls().fork = [] {
    errno = EAGAIN;
    return pid_t{-1};
  };
  run();
  EXPECT_NE(code, 0U);
  Calls() = before;
  Calls().mmap = [](void*, size_t, int, int, int, off_t) {
    errno = ENOMEM;
    return MAP_FAILED;
  };
  run();
  EXPECT_EQ(code, 8U);
  Calls() = before;
}

}  // namespace
