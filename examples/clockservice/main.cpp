// A service from both sides. It keeps the time of day in a file.
//
//   clockservice install FILE    records the service; FILE is an absolute path
//   clockservice start | stop    returns when it runs, or has stopped
//   clockservice status          exit code 0 if it runs, 1 if not
//   clockservice remove          stops it and takes the record away
//   clockservice run FILE        is the service; started by hand, or by another supervisor, it runs
//                                in the foreground until it gets a signal

#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "qelbase/qelbase.h"

namespace {

using namespace qel::sys;

constexpr const wchar_t* service_name = L"QelClock";
std::string clock_file;

// --- the service's side ------------------------------------------------------------------------

CServiceStatus status;
HANDLE stop_event = nullptr;

bool writeTime() {
  const std::tm now = LocalTime();
  char text[16];
  std::strftime(text, sizeof text, "%H:%M:%S", &now);
  return bool(std::ofstream(clock_file, std::ios::trunc) << text << '\n' << std::flush);
}

// Until the event is signalled; false if the file can't be written.
bool tickUntilStopped() {
  do {
    if (!writeTime()) return false;
  } while (WaitForSingleObject(stop_event, 1000) == WAIT_TIMEOUT);
  return true;
}

void handleControl(DWORD control) {
  if (control != SERVICE_CONTROL_STOP) return;
  status.ReportStatusToSCMgr(SERVICE_STOP_PENDING, 2000, 0);
  SetEvent(stop_event);
}

void serviceMain(DWORD, wchar_t**) {
  status.Attach(RegisterServiceCtrlHandlerW(service_name, handleControl));
  status.ReportStatusToSCMgr(SERVICE_START_PENDING, 2000, 0);
  const bool can_write = writeTime();
  if (can_write) status.ReportStatusToSCMgr(SERVICE_RUNNING, 0, 0);
  const bool sound = can_write && tickUntilStopped();
  status.ReportStatusToSCMgr(SERVICE_STOPPED, 0, sound ? 0 : ERROR_IO_DEVICE);
}

// Without a manager: until SIGTERM or SIGINT.
int runInForeground() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  sigprocmask(SIG_BLOCK, &ends, nullptr);
  const timespec second{.tv_sec = 1, .tv_nsec = 0};
  do {
    if (!writeTime()) {
      std::fprintf(stderr, "clockservice: cannot write %s\n", clock_file.c_str());
      return 1;
    }
  } while (sigtimedwait(&ends, nullptr, &second) < 0);
  return 0;
}

int run() {
  stop_event = CreateEventW(1, 0);
  const SERVICE_TABLE_ENTRYW table[] = {{service_name, serviceMain}, {nullptr, nullptr}};
  if (StartServiceCtrlDispatcherW(table)) return 0;
  if (GetLastError() == ERROR_FAILED_SERVICE_CONTROLLER_CONNECT) return runInForeground();
  std::fprintf(stderr, "clockservice: error %u\n", GetLastError());
  return 1;
}

// --- the manager's side ------------------------------------------------------------------------

int tell(const CNTServiceMgr& manager, int result, const char* done) {
  if (result) {
    std::printf("%s\n", done);
  } else {
    std::fprintf(stderr, "clockservice: error %u\n", manager.GetLastError());
  }
  return result ? 0 : 2;
}

int install(CNTServiceMgr& manager, const std::string& file) {
  wchar_t program[4096];
  if (GetModuleFileNameW(nullptr, program, 4096) == 0) return 2;
  const std::wstring path = L"\"" + std::wstring(program) + L"\" run \"" + Widen(file) + L"\"";
  return tell(manager,
              manager.RegisterService(path.c_str(), L"Clock in a file", 0, 0, nullptr,
                                      L"Keeps the time of day in a file."),
              "installed");
}

int manage(const std::string& command, const std::string& file) {
  const bool reads = command == "status";
  CNTServiceMgr manager(service_name, reads ? SC_MANAGER_CONNECT : SC_MANAGER_ALL_ACCESS);
  if (!manager) return tell(manager, 0, "");
  if (command == "install") return install(manager, file);
  if (command == "start") return tell(manager, manager.StartServiceW(true), "started");
  if (command == "stop") return tell(manager, manager.StopService(), "stopped");
  if (command == "remove") return tell(manager, manager.UnregisterService(), "removed");
  const bool runs = manager.IsInstalledAndRunning() != 0;
  std::puts(runs ? "running" : manager.IsInstalled() ? "stopped" : "not installed");
  return runs ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  const bool takes_file = command == "install" || command == "run";
  bool known = takes_file;
  for (const char* other : {"start", "stop", "status", "remove"}) known |= command == other;
  const bool sound_file = argc == 3 && argv[2][0] == '/' && !std::strchr(argv[2], '"');
  if (!known || (takes_file ? !sound_file : argc != 2)) {
    std::fputs("usage: clockservice install FILE | start | status | stop | remove | run FILE\n",
               stderr);
    return 2;
  }
  if (command != "run") return manage(command, takes_file ? argv[2] : "");
  clock_file = argv[2];
  return run();
}
