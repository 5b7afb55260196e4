// A service that tests lead step by step. `service_program MODE FOLDER`: it writes lines into
// FOLDER/told and does what the characters in FOLDER/asked say; both are FIFOs.
//
//   plain    reports that it runs, and stops when told to; needs no FOLDER
//   steps    reports only what it is asked to: P start pending, R running, Q stop pending,
//            S stopped, E stopped with exit code 42, D kills itself
//   deaf     as steps, but its handler never comes back
//   silent   never calls the dispatcher
//   exits    ends at once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

#include "qelbase/outside/system/events.h"
#include "qelbase/outside/system/services.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/platform/CServiceStatus.h"

namespace {

using namespace qel::sys;

std::string mode, folder;
int told = -1;
HANDLE stop = nullptr;
std::mutex answering;  // a step is answered before the end is told

CServiceStatus& status() {
  static CServiceStatus& kept = *new CServiceStatus;
  return kept;
}

void tell(const std::string& line) {
  std::string text = line;
  text.push_back('\n');
  if (told >= 0 && write(told, text.data(), text.size()) < 0) _exit(9);
}

DWORD handle(DWORD control, DWORD, void*, void*) {
  tell("control " + std::to_string(control));
  while (mode == "deaf") pause();
  if (control == SERVICE_CONTROL_STOP) SetEvent(stop);
  return control == 200 ? 120 : 0;
}

void runPlain() {
  status().ReportStatusToSCMgr(SERVICE_RUNNING, 0, 0);
  WaitForSingleObject(stop, INFINITE);
  status().ReportStatusToSCMgr(SERVICE_STOPPED, 0, 0);
}

int report(char step) {
  switch (step) {
    case 'P':
      return status().ReportStatusToSCMgr(SERVICE_START_PENDING, 3000, 0);
    case 'R':
      return status().ReportStatusToSCMgr(SERVICE_RUNNING, 0, 0);
    case 'Q':
      return status().ReportStatusToSCMgr(SERVICE_STOP_PENDING, 3000, 0);
    case 'S':
      return status().ReportStatusToSCMgr(SERVICE_STOPPED, 0, 0);
    case 'E':
      return status().ReportStatusToSCMgr(SERVICE_STOPPED, 0, 42);
    case 'D':
      return raise(SIGKILL);
    default:
      return status().ReportStatusToSCMgr(99, 0, 0);
  }
}

void runSteps() {
  const int asked = open((folder + "/asked").c_str(), O_RDWR | O_CLOEXEC);
  for (char step = 0; read(asked, &step, 1) == 1;) {
    const std::scoped_lock lock(answering);
    const char line[] = {step, ' ', report(step) ? '1' : '0', 0};
    tell(line);
  }
}

int openFiles() {
  int count = -3;  // itself and the two dots
  DIR* const files = opendir("/proc/self/fd");
  while (readdir(files)) ++count;
  closedir(files);
  return count;
}

void serviceMain(DWORD count, wchar_t** arguments) {
  std::string line("main");
  for (DWORD i = 0; i < count; ++i) line.append(1, ' ').append(Narrow(arguments[i]));
  tell(line);
  status().UpdateControlsAcceptedOnRun(SERVICE_ACCEPT_PARAMCHANGE | SERVICE_ACCEPT_PAUSE_CONTINUE,
                                       1);
  status().UpdateControlsAcceptedOnRun(SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_PAUSE_CONTINUE, 0);
  status().Attach(RegisterServiceCtrlHandlerExW(L"", handle, nullptr));
  mode == "plain" ? runPlain() : runSteps();
}

// What the process looks like to itself: whose child, which session, which streams.
std::string describeSelf(int files) {
  char stream[64] = {}, current[64] = {};
  if (readlink("/proc/self/fd/1", stream, 63) < 0 || !getcwd(current, 63)) return {};
  sigset_t blocked;
  sigprocmask(SIG_BLOCK, nullptr, &blocked);
  struct sigaction pipe_action {};
  sigaction(SIGPIPE, nullptr, &pipe_action);
  char text[256];
  std::snprintf(text, sizeof text, "self %d leader %d %s %s blocked %d default %d files %d",
                getpid(), getsid(0) == getpid(), stream, current, sigismember(&blocked, SIGTERM),
                pipe_action.sa_handler == SIG_DFL, files);
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) mode = argv[1];
  if (argc > 2) folder = argv[2];
  const int files = openFiles();
  if (mode == "exits") return 7;
  if (!folder.empty()) told = open((folder + "/told").c_str(), O_WRONLY | O_CLOEXEC);
  tell(describeSelf(files));
  while (mode == "silent") pause();
  stop = CreateEventW(1, 0);
  const SERVICE_TABLE_ENTRYW table[] = {{L"", serviceMain}, {nullptr, nullptr}};
  const BOOL served = StartServiceCtrlDispatcherW(table);
  const std::scoped_lock lock(answering);
  tell("end " + std::to_string(served));
  // A service may go on for a while after it has said that it stopped.
  return served ? 0 : 8;
}
