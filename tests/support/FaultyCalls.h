#pragma once
// Faults in the table of system calls (outside/system/syscalls_internal.h), for the fault and kill
// tests of every room.
//
// A scope. While a FaultyCalls lives, the calls of the library pass through it; it counts those
// that its fault could strike, and strikes the n-th:
//
//   FaultyCalls faulty({.kind = Fault::fail_once, .n = 3, .error = ENOSPC});
//   const bool saved = save(file);
//   EXPECT_TRUE(saved || faulty.struck());
//
// All faults of a run. forEachFault raises n until a run is not struck any more, for each error
// that a changing call can meet, once and for good, and with each transfer cut short. It checks
// that no descriptor leaks, and names the fault in every failure:
//
//   forEachFault([&] { prepare(); },                     // plain set-up, without faults
//                [&] { saved = save(file); },            // the run
//                [&](const Fault& fault) {               // looks at results and at the disk
//                  EXPECT_TRUE(isOld(file) || isNew(file));
//                  if (saved) EXPECT_TRUE(isNew(file));
//                });
//
// The last check of each series gets a fault with struck == false: the run went through unharmed.
//
// All kills of a run. forEachKill runs it in child processes that die before the n-th changing call
// and in the middle of the n-th write; the check runs in the parent:
//
//   forEachKill([&] { prepare(); }, [&] { save(file); }, [&](const Fault&) { reopen(file); });
//
// What counts. Changing calls are: open for writing or creating, close of what was open for
// writing, write, pwrite, copy_file_range, ftruncate, fsync, fdatasync, rename, rename_noreplace,
// link, unlink, unlinkat, mkdir, rmdir, chmod, fchmod, fchown, futimens, setxattr, fsetxattr. With
// `reading` also open for reading, read, pread, stat, opendir and the rest of the table. A call
// counts for a failure only where the error can occur: ENOSPC never strikes unlink, EMFILE only
// open and opendir. A failed close has closed.
//
// One FaultyCalls at a time in a process; calls may come from any thread.

#include <atomic>
#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "qelbase/outside/system/syscalls_internal.h"

namespace qeltest {

struct Fault {
  enum Kind {
    none,           // only counts the changing calls
    fail_once,      // the n-th call fails, those behind it work
    fail_for_good,  // the n-th and all behind it fail
    cut_once,       // the n-th read, write or copy moves only half of its bytes (one at least)
    cut_for_good,   // that one and all behind it
    kill_before,    // SIGKILL in place of the n-th call
    kill_inside,    // the n-th write or copy moves half of its bytes, then SIGKILL
  };
  Kind kind = none;
  long n = 1;            // from 1
  int error = EIO;       // of the failing kinds
  bool reading = false;  // calls that change nothing count too
  // Filled in before a check sees the fault:
  bool struck = false;
  std::string call = {};  // the name of the first call that was struck
};

// "fail_once of call 3 (write) with No space left on device"
std::string describe(const Fault& fault);

class FaultyCalls {
 public:
  explicit FaultyCalls(Fault fault = {});
  ~FaultyCalls();  // puts the table back
  FaultyCalls(const FaultyCalls&) = delete;
  FaultyCalls& operator=(const FaultyCalls&) = delete;

  long counted() const;  // calls so far that the fault could strike
  bool struck() const;
  Fault fault() const;  // with `struck` and `call` filled in
};

// Descriptors that this process holds open.
int openDescriptors();

struct ChildEnd {
  int exit_code = -1;   // of an exit; 1 if an expectation failed in the child
  int signal = 0;       // that ended it, or 0
  bool killed() const;  // by SIGKILL
};

// Forks, runs `fn` in the child, and waits for its end. The child runs no destructors or exit
// handlers of the parent; an exception out of `fn` is exit code 3.
ChildEnd runInChild(const std::function<void()>& fn);

using Step = std::function<void()>;
using Check = std::function<void(const Fault&)>;

// ENOSPC, EIO, EACCES and EMFILE, once and for good; EINTR once; transfers cut once and for good.
std::vector<Fault> usualFaults();

void forEachFault(const Step& prepare, const Step& run, const Check& check,
                  const std::vector<Fault>& faults = usualFaults());
inline void forEachFault(const Step& run, const Check& check) {
  forEachFault([] {}, run, check);
}

void forEachKill(const Step& prepare, const Step& run, const Check& check);

}  // namespace qeltest
