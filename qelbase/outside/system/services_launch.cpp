// From a command line to a running program.

#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/services_internal.h"

namespace qel::sys::services {

namespace {

// --- command lines -----------------------------------------------------------------------------

// %NAME% becomes the variable's value; what names no variable stays.
std::wstring expandVariables(const std::wstring& line) {
  std::wstring result;
  std::size_t at = 0;
  while (at < line.size()) {
    const std::size_t begin = line.find(L'%', at);
    const std::size_t end = begin == std::wstring::npos ? begin : line.find(L'%', begin + 1);
    if (end == std::wstring::npos) break;
    const auto value = EnvironmentValue(line.substr(begin + 1, end - begin - 1));
    result.append(line, at, begin - at);
    if (value) result.append(*value);
    if (!value) result.append(line, begin, end - begin);  // the closing sign may open another
    at = value ? end + 1 : end;
  }
  return at < line.size() ? result.append(line, at) : result;
}

bool isBlank(wchar_t c) {
  return c == L' ' || c == L'\t';
}

// The file that a program's name reaches, as it stands or with ".exe"; 3 if there is none. A
// relative name lies below the root, where services run.
DWORD findProgram(const std::wstring& name, std::string& native) {
  for (const wchar_t* extension : {L"", L".exe"}) {
    std::string found;
    {
      const LastErrorKeeper keeper;
      if (!ToNative(name + extension, found)) return ERROR_PATH_NOT_FOUND;
    }
    if (!found.starts_with('/')) found = std::string("/").append(found);
    struct stat status {};
    if (Calls().stat(found.c_str(), &status) == 0) {
      native = std::move(found);
      return S_ISDIR(status.st_mode) ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    }
    if (errno != ENOENT && errno != ENOTDIR) return ErrorFromErrno(errno);
  }
  return ERROR_PATH_NOT_FOUND;
}

// Finds the program that the line begins with; `at` then is behind it.
DWORD takeProgram(const std::wstring& line, std::size_t& at, std::string& native) {
  if (at < line.size() && line[at] == L'"') {
    const std::size_t end = std::min(line.find(L'"', at + 1), line.size());
    const std::wstring name = line.substr(at + 1, end - at - 1);
    at = std::min(end + 1, line.size());
    return findProgram(name, native);
  }
  DWORD first_code = ERROR_SUCCESS;
  for (std::size_t end = at; end < line.size();) {
    end = std::find_if(line.begin() + static_cast<std::ptrdiff_t>(end) + 1, line.end(), isBlank) -
          line.begin();
    const DWORD code = findProgram(line.substr(at, end - at), native);
    if (code == ERROR_SUCCESS) {
      at = end;
      return code;
    }
    if (first_code == ERROR_SUCCESS) first_code = code;
  }
  return first_code == ERROR_SUCCESS ? ERROR_PATH_NOT_FOUND : first_code;
}

// One argument from `at` on, which then is behind it. A quotation mark begins and ends a part in
// which blanks stand for themselves, and stands for itself when doubled there; n pairs of
// backslashes before one are n backslashes, one more makes the mark stand for itself.
std::wstring takeArgument(const std::wstring& line, std::size_t& at) {
  std::wstring argument;
  bool quoted = false;
  while (at < line.size() && (quoted || !isBlank(line[at]))) {
    std::size_t slashes = 0;
    while (at < line.size() && line[at] == L'\\') {
      ++slashes;
      ++at;
    }
    const bool at_mark = at < line.size() && line[at] == L'"';
    argument.append(at_mark ? slashes / 2 : slashes, L'\\');
    if (!at_mark) {
      if (at < line.size() && (quoted || !isBlank(line[at]))) argument.push_back(line[at++]);
      continue;
    }
    const bool doubled = quoted && at + 1 < line.size() && line[at + 1] == L'"';
    if (slashes % 2 == 1 || doubled) {
      argument.push_back(L'"');
      if (slashes % 2 == 0) ++at;
    } else {
      quoted = !quoted;
    }
    ++at;
  }
  return argument;
}

// --- the child's side --------------------------------------------------------------------------
//
// Between fork and the program's start nothing is allocated, and no lock taken: other threads of
// the starting program may have held it.

struct Plan {
  std::vector<char*> arguments;
  std::vector<char*> environment;
  int null_device;
  int report;  // a pipe's end; gets the code if the program doesn't start
  const StatusFile* file;
  Run run;  // all but the process
};

DWORD codeOfStart(int error) {
  if (error == ENOENT || error == ENOTDIR) return ERROR_PATH_NOT_FOUND;
  return error == ENOEXEC ? ERROR_BAD_EXE_FORMAT : ErrorFromErrno(error);
}

void resetSignals() {
  struct sigaction plain {};
  plain.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; ++signal) sigaction(signal, &plain, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

void closeAtStart(unsigned first) {
  constexpr unsigned close_range_cloexec = 4;
  if (syscall(SYS_close_range, first, ~0U, close_range_cloexec) == 0) return;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const auto end = static_cast<int>(std::min<rlim_t>(limit.rlim_cur, 65536));
  for (int file = static_cast<int>(first); file < end; ++file) fcntl(file, F_SETFD, FD_CLOEXEC);
}

void tell(const Plan& plan, DWORD code) {
  while (write(plan.report, &code, sizeof code) < 0 && errno == EINTR) {
  }
}

// The service's process, up to its program.
[[noreturn]] void runProgram(const Plan& plan) {
  setsid();
  for (int standard = 0; standard <= 2; ++standard) dup2(plan.null_device, standard);
  closeAtStart(3);
  const bool at_root = chdir("/") == 0;
  umask(022);
  Run run = plan.run;
  run.process = ThisProcess();
  // From here on everybody sees it, whatever becomes of the program that started it.
  plan.file->publish(run);
  resetSignals();
  if (at_root) execve(plan.arguments[0], plan.arguments.data(), plan.environment.data());
  const DWORD code = codeOfStart(errno);
  run.status.dwCurrentState = SERVICE_STOPPED;
  run.status.dwWin32ExitCode = code;
  run.status.dwWaitHint = 0;
  plan.file->publish(run);
  tell(plan, code);
  _exit(127);
}

// A child that only makes another: the service is no child of the starting program, and nobody has
// to wait for it.
[[noreturn]] void runMiddle(const Plan& plan) {
  const pid_t child = _Fork();
  if (child == 0) runProgram(plan);
  if (child < 0) tell(plan, ErrorFromErrno(errno));
  _exit(0);
}

// --- the starting program's side ---------------------------------------------------------------

std::vector<std::string> environmentOf(const std::wstring& name) {
  const std::string prefix = std::string(kServiceVariable) + "=";
  std::vector<std::string> variables{prefix + NativeText(name)};
  for (char** variable = environ; variable && *variable; ++variable) {
    if (!std::string_view(*variable).starts_with(prefix)) variables.emplace_back(*variable);
  }
  return variables;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Above the standard streams, which the child replaces. Empty, and errno, on failure.
Descriptor lifted(Descriptor low) {
  if (!low || low.get() > 2) return low;
  return Descriptor(fcntl(low.get(), F_DUPFD_CLOEXEC, 3));
}

// 0, or the code that the child told; the pipe's other end is the children's alone.
DWORD readReport(const Descriptor& report) {
  DWORD code = ERROR_SUCCESS;
  const ssize_t size = ReadUpTo(report.get(), &code, sizeof code);
  return size == sizeof code ? code : ERROR_SUCCESS;
}

DWORD forkAndReport(Plan plan, const Descriptor& report, Descriptor told) {
  plan.report = told.get();
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // no handler of this program runs in a child
  const pid_t middle = Calls().fork();
  if (middle == 0) runMiddle(plan);
  const DWORD fork_code = middle < 0 ? ErrorFromErrno(errno) : ERROR_SUCCESS;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  told.close();
  if (middle < 0) return fork_code;
  while (waitpid(middle, nullptr, 0) < 0 && errno == EINTR) {
  }
  return readReport(report);
}

}  // namespace

DWORD ParseCommandLine(const std::wstring& line, CommandLine& out) {
  const std::wstring expanded = expandVariables(line);
  const auto skipBlanks = [&](std::size_t at) {
    while (at < expanded.size() && isBlank(expanded[at])) ++at;
    return at;
  };
  CommandLine result;
  std::size_t at = skipBlanks(0);
  if (const DWORD code = takeProgram(expanded, at, result.program)) return code;
  while ((at = skipBlanks(at)) < expanded.size()) {
    result.arguments.push_back(NativeText(takeArgument(expanded, at)));
  }
  out = std::move(result);
  return ERROR_SUCCESS;
}

DWORD Launch(const std::wstring& name, const CommandLine& command, const StatusFile& file,
             DWORD type) {
  std::vector<std::string> arguments{command.program};
  arguments.insert(arguments.end(), command.arguments.begin(), command.arguments.end());
  std::vector<std::string> environment = environmentOf(name);
  const Descriptor null_device = lifted(Descriptor::open("/dev/null", O_RDWR));
  int ends[2];
  if (!null_device || pipe2(ends, O_CLOEXEC) != 0) return ErrorFromErrno(errno);
  Descriptor read_end(ends[0]);
  Descriptor write_end = lifted(Descriptor(ends[1]));
  if (!write_end) return ErrorFromErrno(errno);

  constexpr DWORD hint_ms = 2000;
  Plan plan{.arguments = pointersTo(arguments),
            .environment = pointersTo(environment),
            .null_device = null_device.get(),
            .report = -1,
            .file = &file,
            .run = {.process = ThisProcess(),
                    .launched_at = GetTickCount(),
                    .status = {.dwServiceType = type,
                               .dwCurrentState = SERVICE_START_PENDING,
                               .dwControlsAccepted = 0,
                               .dwWin32ExitCode = 0,
                               .dwServiceSpecificExitCode = 0,
                               .dwCheckPoint = 0,
                               .dwWaitHint = hint_ms}}};
  const std::uint32_t before = file.shared().number.load(std::memory_order_acquire);
  const DWORD code = forkAndReport(std::move(plan), read_end, std::move(write_end));
  if (code != ERROR_SUCCESS) return code;
  // Killed on the way, say.
  const bool is_there = file.shared().number.load(std::memory_order_acquire) != before;
  return is_there ? ERROR_SUCCESS : ERROR_SERVICE_REQUEST_TIMEOUT;
}

}  // namespace qel::sys::services
