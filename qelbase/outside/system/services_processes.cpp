// Where status files lie, who looks at them, and the processes that they speak of.

#include <linux/futex.h>
#include <sys/file.h>
#include <sys/syscall.h>

#include <cctype>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <ctime>

#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/services_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys::services {

namespace {

// FNV-1a, http://www.isthe.com/chongo/tech/comp/fnv/
std::uint64_t digest(std::string_view bytes) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  return hash;
}

// Nothing is allocated here: a child of fork calls it too. The bytes read, or -1 and errno.
ssize_t readSmallFile(const char* native, char* out, std::size_t size) {
  const int file = Calls().open(native, O_RDONLY | O_CLOEXEC, 0);
  if (file < 0) return -1;
  const ssize_t got = Calls().read(file, out, size);
  const int error = errno;
  Calls().close(file);
  errno = error;
  return got;
}

std::uint32_t bootDigest() {
  static const std::uint32_t kDigest = [] {
    std::array<char, 64> id{};
    const ssize_t size = readSmallFile("/proc/sys/kernel/random/boot_id", id.data(), id.size());
    return static_cast<std::uint32_t>(digest({id.data(), size > 0 ? std::size_t(size) : 0}));
  }();
  return kDigest;
}

// The kernel's line about a process, proc(5): "PID (NAME) STATE ...", the start at place 22. The
// name may hold anything.
bool parseStat(std::string_view line, char& state, std::uint64_t& started) {
  const std::size_t name_end = line.rfind(')');
  if (name_end == std::string_view::npos || name_end + 2 >= line.size()) return false;
  std::string_view rest = line.substr(name_end + 2);
  state = rest[0];
  constexpr int fields_between = 22 - 3;
  for (int i = 0; i < fields_between; ++i) {
    const std::size_t blank = rest.find(' ');
    if (blank == std::string_view::npos) return false;
    rest.remove_prefix(blank + 1);
  }
  return std::from_chars(rest.data(), rest.data() + rest.size(), started).ec == std::errc();
}

bool readStat(const char* native, char& state, std::uint64_t& started) {
  std::array<char, 1024> line;
  const ssize_t size = readSmallFile(native, line.data(), line.size());
  if (size < 0) return false;
  errno = 0;
  return parseStat({line.data(), static_cast<std::size_t>(size)}, state, started);
}

// --- folders -----------------------------------------------------------------------------------

bool isOwnFolder(const std::string& native) {
  struct stat status {};
  return Calls().lstat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

DWORD makeFolder(const std::string& native) {
  for (std::size_t at = 0; at != std::string::npos;) {
    at = native.find('/', at + 1);
    const std::string part = native.substr(0, at);
    if (Calls().mkdir(part.c_str(), 0700) == 0 || errno == EEXIST || errno == EROFS) continue;
    struct stat status {};
    if (Calls().stat(part.c_str(), &status) != 0) return ErrorFromErrno(errno);
  }
  // Nobody else may tell what runs here.
  return isOwnFolder(native) ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

std::string runtimeFolder() {
  if (geteuid() == 0) return "/run";
  if (std::string own = NativeEnvironmentValue("XDG_RUNTIME_DIR"); own.starts_with('/')) return own;
  const std::string user = std::to_string(geteuid());
  std::string usual = "/run/user/" + user;
  return isOwnFolder(usual) ? usual : "/tmp/qelbase-" + user;
}

}  // namespace

std::string ServiceFolder() {
  // A registry of its own has services of its own.
  if (std::string own = NativeEnvironmentValue("QEL_REGISTRY"); !own.empty()) {
    return own + "/services";
  }
  return runtimeFolder() + "/qelbase/services";
}

std::string StatusName(std::wstring_view name) {
  constexpr std::size_t longest_shown = 64;
  const std::string folded = NativeText(FoldCase(name));
  std::string shown = folded.substr(0, longest_shown);
  for (char& c : shown) {
    const bool is_plain = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
    if (!is_plain) c = '_';
  }
  std::array<char, 16> hex;
  const auto end = std::to_chars(hex.begin(), hex.end(), digest(folded), 16).ptr;
  return shown + "." + std::string(hex.begin(), end) + ".status";
}

DatabaseLock::DatabaseLock() {
  m_code = makeFolder(ServiceFolder());
  if (m_code != ERROR_SUCCESS) return;
  m_file = Descriptor::open(ServiceFolder() + "/lock", O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
  if (!m_file) {
    m_code = ErrorFromErrno(errno);
    return;
  }
  const Limit limit;
  while (Calls().flock(m_file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      m_code = ErrorFromErrno(errno);
      return;
    }
    if (limit.isOver()) {
      m_code = ERROR_SERVICE_DATABASE_LOCKED;
      return;
    }
    const timespec pause{.tv_sec = 0, .tv_nsec = 1'000'000};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr);
  }
}

DatabaseLock::~DatabaseLock() {
  const LastErrorKeeper keeper;
  // Said aloud: a child that another thread forked has the descriptor too.
  if (m_file && m_code == ERROR_SUCCESS) Calls().flock(m_file.get(), LOCK_UN);
}

// --- processes ---------------------------------------------------------------------------------

Process ThisProcess() {
  Process process{.id = static_cast<std::uint32_t>(getpid()), .boot = bootDigest()};
  char state = 0;
  if (!readStat("/proc/self/stat", state, process.started)) process.started = 0;
  return process;
}

bool IsAlive(const Process& process) {
  if (process.id == 0 || process.id > INT_MAX || process.boot != bootDigest()) return false;
  const std::string native = "/proc/" + std::to_string(process.id) + "/stat";
  char state = 0;
  std::uint64_t started = 0;
  if (readStat(native.c_str(), state, started)) {
    return started == process.started && state != 'Z' && state != 'X';
  }
  // No descriptor left, say: a wrong "dead" would be the worse mistake.
  const bool gone = errno == ENOENT || errno == ESRCH || errno == 0;
  return !gone && (kill(static_cast<pid_t>(process.id), 0) == 0 || errno == EPERM);
}

void Kill(const Process& process) {
  if (!IsAlive(process)) return;
  const Descriptor held(
      static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(process.id), 0)));
  // Held, it is either still that process or never again.
  if (held && IsAlive(process)) syscall(SYS_pidfd_send_signal, held.get(), SIGKILL, nullptr, 0);
}

// --- waiting -----------------------------------------------------------------------------------

static_assert(sizeof(std::atomic<std::uint32_t>) == 4 &&
              std::atomic<std::uint32_t>::is_always_lock_free);

void WaitOnWord(const std::atomic<std::uint32_t>& word, std::uint32_t seen, int milliseconds) {
  const timespec limit{.tv_sec = milliseconds / 1000,
                       .tv_nsec = std::int64_t{milliseconds % 1000} * 1'000'000};
  syscall(SYS_futex, &word, FUTEX_WAIT, seen, milliseconds < 0 ? nullptr : &limit, nullptr, 0);
}

void WakeWord(const std::atomic<std::uint32_t>& word) {
  syscall(SYS_futex, &word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

Limit::Limit() : m_start(GetTickCount()) {}

bool Limit::isOver() const {
  return GetTickCount() - m_start > kLimit;
}

}  // namespace qel::sys::services
