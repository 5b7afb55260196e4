// Starts the program that owns the desktop's clipboard for this library: the library has no thread
// to answer with, and the text must outlive its program.

#include <dlfcn.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>

#include "qelbase/outside/system/clipboard_internal.h"
#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"

namespace qel::sys::clipboard {

namespace {

constexpr int kStartLimit = 5000;  // ms

// The folder `qelbase` beside the module that this code is in, or what QEL_HELPERS names.
std::string helperFolder() {
  std::string own = NativeEnvironmentValue("QEL_HELPERS");
  if (!own.empty()) return own;
  Dl_info info{};
  dladdr(reinterpret_cast<const void*>(&StartOwner), &info);
  std::wstring path(32768, L'\0');
  std::string native;
  const DWORD length = GetModuleFileNameW(static_cast<HMODULE>(info.dli_fbase), path.data(),
                                          static_cast<DWORD>(path.size()));
  path.resize(length);
  return ToNative(path, native) ? ParentOf(native) + "/qelbase" : std::string();
}

// All offers behind each other in memory that has no name. Equal neighbours share their bytes.
Descriptor contentOf(const std::vector<Offer>& offers, std::vector<std::string>& arguments) {
  Descriptor content(memfd_create("clipboard", MFD_CLOEXEC));
  std::size_t begin = 0;
  std::size_t end = 0;
  const std::string* last = nullptr;
  for (const Offer& offer : offers) {
    if (!last || *last != offer.bytes) {
      if (!content || !WriteAll(content.get(), offer.bytes.data(), offer.bytes.size())) return {};
      begin = end;
      end += offer.bytes.size();
      last = &offer.bytes;
    }
    arguments.insert(arguments.end(), {offer.target, offer.type, std::to_string(begin),
                                       std::to_string(offer.bytes.size())});
  }
  return content;
}

struct Actions {
  Actions() { posix_spawn_file_actions_init(&actions); }
  ~Actions() { posix_spawn_file_actions_destroy(&actions); }
  Actions(const Actions&) = delete;
  Actions& operator=(const Actions&) = delete;
  posix_spawn_file_actions_t actions{};
};

struct Attributes {
  Attributes() { posix_spawnattr_init(&attributes); }
  ~Attributes() { posix_spawnattr_destroy(&attributes); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  posix_spawnattr_t attributes{};
};

// Starts it with no signal blocked or ignored, and with no open file of this process but the two.
int spawn(std::vector<std::string>& arguments, int content, int report, pid_t& process) {
  Actions files;
  posix_spawn_file_actions_adddup2(&files.actions, content, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&files.actions, report, STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&files.actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addclosefrom_np(&files.actions, STDERR_FILENO + 1);
  Attributes start;
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&start.attributes, &none);
  posix_spawnattr_setsigdefault(&start.attributes, &all);
  posix_spawnattr_setflags(&start.attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  return posix_spawn(&process, pointers[0], &files.actions, &start.attributes, pointers.data(),
                     environ);
}

// A byte comes when the program owns the clipboard; the end of the pipe means that it failed.
DWORD awaitReport(int report) {
  pollfd waiting{report, POLLIN, 0};
  int ready = 0;
  do {
    ready = poll(&waiting, 1, kStartLimit);
  } while (ready < 0 && errno == EINTR);
  if (ready == 0) return ERROR_TIMEOUT;
  char owned = 0;
  return ReadUpTo(report, &owned, 1) == 1 ? ERROR_SUCCESS : ERROR_BROKEN_PIPE;
}

}  // namespace

DWORD StartOwner(const std::vector<Offer>& offers) {
  std::vector<std::string> arguments{helperFolder() + "/clipboard-owner"};
  const Descriptor content = contentOf(offers, arguments);
  if (!content) return ErrorFromErrno(errno);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return ErrorFromErrno(errno);
  const Descriptor report(ends[0]);
  Descriptor other_end(ends[1]);
  pid_t process = 0;
  const int error = spawn(arguments, content.get(), other_end.get(), process);
  other_end = {};
  if (error != 0) return ErrorFromErrno(error);
  const DWORD code = awaitReport(report.get());
  // The program goes into the background by a child; the one started here ends at once.
  while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
  }
  return code;
}

}  // namespace qel::sys::clipboard
