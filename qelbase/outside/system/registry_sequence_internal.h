#pragma once
// What the processes that share a hive tell each other beside its database: a small mapped file.

#include <atomic>
#include <cstdint>
#include <string>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys::registry {

// The file's content. The counter is odd while a writer is at work, or died at it; it moves with
// every write. As long as it is even and stays the same, the hive did not change.
struct SharedCounters {
  std::uint64_t magic;
  std::uint64_t counter;
  std::uint64_t last_stamp;  // the time of the last write, 100 ns since 1601, always rising
  std::uint64_t writes;      // written by a system call, so that watchers of the file wake up
};

// Locks are byte ranges of open file descriptions: they die with the process, and a forked child
// must call close() before it uses the object.
class Sequence {
 public:
  static constexpr std::uint64_t kUnknown = 1;  // odd: nothing may be remembered

  Sequence();
  ~Sequence();
  Sequence(const Sequence&) = delete;
  Sequence& operator=(const Sequence&) = delete;

  // False and errno on failure. `writable` false maps an existing file for reading alone.
  [[nodiscard]] bool open(const std::string& file, bool writable, mode_t mode);
  void close();

  // The counter while it is even, else kUnknown. At any time, also while another thread closes.
  std::uint64_t read() const {
    const std::uint64_t counter = std::atomic_ref(m_shared->counter).load();
    return counter % 2 == 0 && counter != 0 ? counter : kUnknown;
  }
  std::uint64_t lastStamp() const;
  // The counter is odd, and nobody is at work: the next write makes it even again.
  bool hasDeadWriter() const;

  // Waits for the other processes' writers; threads of this process exclude each other before.
  // Gives the time of this write.
  std::uint64_t beginWrite();
  void endWrite();

  // Held while this process has the hive open; alone() succeeds if no other process does.
  void share();
  bool alone();

 private:
  Descriptor m_file;
  // One address for good; zeros stand there while no file is open.
  SharedCounters* m_shared;
  bool m_writable = false;
};

std::uint64_t FileTimeNow();

}  // namespace qel::sys::registry
