#include "tests/support/FaultyCalls.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <stdexcept>

namespace qeltest {

namespace {

using qel::sys::Calls;
using qel::sys::SystemCalls;

// What a fault needs to know of a call, as a set of bits.
enum Trait : unsigned {
  changes = 1,
  takes_space = 2,       // ENOSPC, EDQUOT
  takes_descriptor = 4,  // EMFILE, ENFILE
  checks_access = 8,     // EACCES, EPERM, EROFS
  interruptible = 16,    // EINTR
  transfers = 32,
};

// The fault in force. Plain functions in the table reach it here.
struct State {
  SystemCalls original{};
  Fault fault;
  std::atomic<long> counted = 0;
  std::atomic<bool> struck = false;
  std::atomic<const char*> call = nullptr;
};
State state;
std::atomic<bool> in_force = false;

bool errorIsPossible(unsigned traits, int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
      return (traits & takes_space) != 0;
    case EMFILE:
    case ENFILE:
      return (traits & takes_descriptor) != 0;
    case EACCES:
    case EPERM:
    case EROFS:
      return (traits & checks_access) != 0;
    case EINTR:
      return (traits & interruptible) != 0;
    default:
      return true;
  }
}

bool counts(unsigned traits) {
  const Fault& fault = state.fault;
  const bool changing = (traits & changes) != 0;
  const bool transferring = (traits & transfers) != 0;
  switch (fault.kind) {
    case Fault::none:
    case Fault::kill_before:
      return changing || fault.reading;
    case Fault::fail_once:
    case Fault::fail_for_good:
      return (changing || fault.reading) && errorIsPossible(traits, fault.error);
    case Fault::cut_once:
    case Fault::cut_for_good:
      return transferring;
    case Fault::kill_inside:
      return transferring && changing;
  }
  return false;
}

// Whether this call is struck.
bool strikes(const char* call, unsigned traits) {
  if (!counts(traits)) return false;
  const long n = ++state.counted;
  const Fault& fault = state.fault;
  const bool lasting = fault.kind == Fault::fail_for_good || fault.kind == Fault::cut_for_good;
  if (fault.kind == Fault::none || n < fault.n || (n > fault.n && !lasting)) return false;
  if (fault.kind == Fault::kill_before) raise(SIGKILL);
  if (!state.struck.exchange(true)) state.call = call;
  return true;
}

template <class Result>
Result failure() {
  errno = state.fault.error;
  if constexpr (std::is_pointer_v<Result>) {
    return nullptr;
  } else {
    return -1;
  }
}

// One entry of the table: counts, fails or passes on.
template <auto Member>
struct Entry;
template <class Result, class... Args, Result (*SystemCalls::*Member)(Args...)>
struct Entry<Member> {
  static inline const char* name;
  static inline unsigned traits;
  static Result call(Args... args) {
    if (strikes(name, traits)) return failure<Result>();
    return (state.original.*Member)(args...);
  }
};

template <auto Member>
void put(const char* name, unsigned traits) {
  Entry<Member>::name = name;
  Entry<Member>::traits = traits;
  Calls().*Member = Entry<Member>::call;
}

// A transfer is cut rather than failed by the cutting kinds; `size` is the argument with its size.
template <class Move>
ssize_t transfer(const char* name, unsigned traits, size_t size, Move move) {
  const Fault::Kind kind = state.fault.kind;
  const bool failing = kind == Fault::fail_once || kind == Fault::fail_for_good;
  if (!failing && size < 2 && kind != Fault::none && kind != Fault::kill_before) return move(size);
  if (!strikes(name, traits)) return move(size);
  if (failing) return failure<ssize_t>();
  const ssize_t moved = move(size / 2);
  if (kind == Fault::kill_inside) raise(SIGKILL);
  return moved;
}

constexpr unsigned reading_traits = transfers | interruptible;
constexpr unsigned writing_traits = reading_traits | changes | takes_space;

ssize_t readCut(int fd, void* data, size_t size) {
  return transfer("read", reading_traits, size,
                  [=](size_t part) { return state.original.read(fd, data, part); });
}
ssize_t preadCut(int fd, void* data, size_t size, off_t offset) {
  return transfer("pread", reading_traits, size,
                  [=](size_t part) { return state.original.pread(fd, data, part, offset); });
}
ssize_t writeCut(int fd, const void* data, size_t size) {
  return transfer("write", writing_traits, size,
                  [=](size_t part) { return state.original.write(fd, data, part); });
}
ssize_t pwriteCut(int fd, const void* data, size_t size, off_t offset) {
  return transfer("pwrite", writing_traits, size,
                  [=](size_t part) { return state.original.pwrite(fd, data, part, offset); });
}
ssize_t copyCut(int from, off_t* from_offset, int to, off_t* to_offset, size_t size,
                unsigned flags) {
  return transfer("copy_file_range", writing_traits, size, [=](size_t part) {
    return state.original.copy_file_range(from, from_offset, to, to_offset, part, flags);
  });
}

int openCounted(const char* path, int flags, mode_t mode) {
  const bool writing = (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
  unsigned traits = takes_descriptor | checks_access | interruptible;
  if (writing) traits |= changes;
  if ((flags & O_CREAT) != 0) traits |= takes_space;
  if (strikes("open", traits)) return failure<int>();
  return state.original.open(path, flags, mode);
}

int openAtCounted(int folder, const char* path, int flags, mode_t mode) {
  const bool writing = (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
  unsigned traits = takes_descriptor | checks_access | interruptible;
  if (writing) traits |= changes | takes_space;
  if (strikes("openat", traits)) return failure<int>();
  return state.original.openat(folder, path, flags, mode);
}

int closeReally(int fd) {
  const bool written = (fcntl(fd, F_GETFL) & O_ACCMODE) != O_RDONLY;
  const int result = state.original.close(fd);
  const bool failed = strikes("close", written ? changes | takes_space : 0U);
  return failed ? failure<int>() : result;
}

int closeFolderReally(DIR* folder) {
  const int result = state.original.closedir(folder);
  return strikes("closedir", 0) ? failure<int>() : result;
}

void putAll() {
  SystemCalls& calls = Calls();
  calls.open = openCounted;
  calls.openat = openAtCounted;
  calls.close = closeReally;
  calls.closedir = closeFolderReally;
  calls.read = readCut;
  calls.pread = preadCut;
  calls.write = writeCut;
  calls.pwrite = pwriteCut;
  calls.copy_file_range = copyCut;
  constexpr unsigned looking = checks_access;
  constexpr unsigned changing = changes | checks_access;
  put<&SystemCalls::ftruncate>("ftruncate", changes | takes_space | interruptible);
  put<&SystemCalls::fsync>("fsync", changes | takes_space | interruptible);
  put<&SystemCalls::fdatasync>("fdatasync", changes | takes_space | interruptible);
  put<&SystemCalls::fstat>("fstat", 0);
  put<&SystemCalls::stat>("stat", looking);
  put<&SystemCalls::lstat>("lstat", looking);
  put<&SystemCalls::fstatat>("fstatat", looking);
  put<&SystemCalls::statx>("statx", looking);
  put<&SystemCalls::faccessat>("faccessat", looking);
  put<&SystemCalls::rename>("rename", changing | takes_space);
  put<&SystemCalls::rename_noreplace>("rename_noreplace", changing | takes_space);
  put<&SystemCalls::link>("link", changing | takes_space);
  put<&SystemCalls::unlink>("unlink", changing);
  put<&SystemCalls::unlinkat>("unlinkat", changing);
  put<&SystemCalls::mkdir>("mkdir", changing | takes_space);
  put<&SystemCalls::rmdir>("rmdir", changing);
  put<&SystemCalls::opendir>("opendir", looking | takes_descriptor);
  put<&SystemCalls::fdopendir>("fdopendir", 0);
  put<&SystemCalls::readdir>("readdir", 0);
  put<&SystemCalls::readlink>("readlink", looking);
  put<&SystemCalls::fchmod>("fchmod", changing);
  put<&SystemCalls::fchown>("fchown", changing);
  put<&SystemCalls::flock>("flock", interruptible);
  put<&SystemCalls::lock>("lock", interruptible);
  put<&SystemCalls::fgetxattr>("fgetxattr", looking);
  put<&SystemCalls::fsetxattr>("fsetxattr", changing | takes_space);
  put<&SystemCalls::chmod>("chmod", changing);
  put<&SystemCalls::getxattr>("getxattr", looking);
  put<&SystemCalls::setxattr>("setxattr", changing | takes_space);
  put<&SystemCalls::flistxattr>("flistxattr", looking);
  put<&SystemCalls::futimens>("futimens", changing);
  put<&SystemCalls::getcwd>("getcwd", looking);
  put<&SystemCalls::realpath>("realpath", looking);
}

const char* kindName(Fault::Kind kind) {
  constexpr std::array names = {"none",         "fail_once",   "fail_for_good", "cut_once",
                                "cut_for_good", "kill_before", "kill_inside"};
  return names[kind];
}

}  // namespace

std::string describe(const Fault& fault) {
  std::string text = std::string(kindName(fault.kind)) + " of call " + std::to_string(fault.n);
  if (!fault.call.empty()) text += " (" + fault.call + ")";
  const bool failing = fault.kind == Fault::fail_once || fault.kind == Fault::fail_for_good;
  if (failing) text += std::string(" with ") + std::strerror(fault.error);
  return text + (fault.struck ? "" : ", not struck");
}

FaultyCalls::FaultyCalls(Fault fault) {
  if (in_force.exchange(true)) throw std::logic_error("two FaultyCalls at once");
  state.original = Calls();
  state.fault = std::move(fault);
  state.counted = 0;
  state.struck = false;
  state.call = nullptr;
  putAll();
}

FaultyCalls::~FaultyCalls() {
  Calls() = state.original;
  in_force = false;
}

long FaultyCalls::counted() const {
  return state.counted;
}
bool FaultyCalls::struck() const {
  return state.struck;
}

Fault FaultyCalls::fault() const {
  Fault fault = state.fault;
  fault.struck = struck();
  if (fault.struck) fault.call = state.call;
  return fault;
}

int openDescriptors() {
  std::filesystem::directory_iterator folder("/proc/self/fd");
  return static_cast<int>(std::distance(begin(folder), end(folder))) - 1;  // without its own
}

bool ChildEnd::killed() const {
  return signal == SIGKILL;
}

ChildEnd runInChild(const std::function<void()>& fn) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("cannot fork");
  if (child == 0) {
    int code = 3;
    try {
      fn();
      code = testing::Test::HasFailure() ? 1 : 0;
    } catch (const std::exception& error) {
      std::fprintf(stderr, "in the child: %s\n", error.what());
    }
    std::fflush(nullptr);
    _exit(code);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) throw std::runtime_error("cannot wait for the child");
  }
  if (WIFSIGNALED(status)) return {-1, WTERMSIG(status)};
  return {WEXITSTATUS(status), 0};
}

std::vector<Fault> usualFaults() {
  std::vector<Fault> faults;
  for (const int error : {ENOSPC, EIO, EACCES, EMFILE}) {
    faults.push_back({.kind = Fault::fail_once, .error = error});
    faults.push_back({.kind = Fault::fail_for_good, .error = error});
  }
  faults.push_back({.kind = Fault::fail_once, .error = EINTR});
  faults.push_back({.kind = Fault::cut_once});
  faults.push_back({.kind = Fault::cut_for_good});
  return faults;
}

void forEachFault(const Step& prepare, const Step& run, const Check& check,
                  const std::vector<Fault>& faults) {
  for (Fault fault : faults) {
    for (bool struck = true; struck && !testing::Test::HasFatalFailure(); ++fault.n) {
      prepare();
      const int descriptors = openDescriptors();
      Fault seen;
      {
        const FaultyCalls faulty(fault);
        run();
        seen = faulty.fault();
      }
      SCOPED_TRACE(describe(seen));
      EXPECT_EQ(openDescriptors(), descriptors) << "descriptors were left open";
      check(seen);
      struck = seen.struck;
    }
  }
}

void forEachKill(const Step& prepare, const Step& run, const Check& check) {
  for (const Fault::Kind kind : {Fault::kill_before, Fault::kill_inside}) {
    Fault fault{.kind = kind};
    for (bool struck = true; struck && !testing::Test::HasFatalFailure(); ++fault.n) {
      prepare();
      const ChildEnd end = runInChild([&] {
        const FaultyCalls faulty(fault);
        run();
      });
      Fault seen = fault;
      seen.struck = struck = end.killed();
      SCOPED_TRACE(describe(seen));
      EXPECT_TRUE(struck || end.exit_code == 0)
          << "exit code " << end.exit_code << ", signal " << end.signal;
      check(seen);
    }
  }
}

}  // namespace qeltest
