#pragma once
// Base classes that give an object, or a class, a recursive lock of its own.

#include <atomic>
#include <boost/thread/lock_types.hpp>
#include <cstdint>

#include "qelbase/export.h"

namespace StdBase {

namespace locking {
// A number for each thread, from 1; never given twice in a process.
extern QELBASE_API constinit thread_local std::uint32_t own_number
    __attribute__((tls_model("initial-exec")));
QELBASE_API std::uint32_t NumberThisThread() noexcept;
inline std::uint32_t OwnNumber() {
  return own_number != 0 ? own_number : NumberThisThread();
}
}  // namespace locking

// A recursive lock that its first thread takes and gives back with plain loads and stores. It leans
// towards that thread until another one wants it; from then on taking it is one compare-and-swap,
// and the kernel is asked only when two threads meet. It is not fair. Only its owner may unlock it.
//
// Plain stores are enough because it is the other side that pays: who takes the leaning away, or is
// about to sleep, first says so and then makes every running thread pass a barrier (membarrier). So
// an owner either sees what was said, or has already shown its own store. Where the kernel has no
// such barrier nothing leans, and sleepers look up every millisecond.
class QELBASE_API RecursiveLock {
 public:
  constexpr RecursiveLock() = default;
  RecursiveLock(const RecursiveLock&) = delete;
  RecursiveLock& operator=(const RecursiveLock&) = delete;

  void lock() noexcept {
    const std::uint32_t self = locking::OwnNumber();
    if (IsOwnedBy(self)) {
      ++m_depth;
      return;
    }
    if (!LockLeaning(self)) LockByOwner(self);
    m_depth = 1;
  }

  bool try_lock() noexcept {
    const std::uint32_t self = locking::OwnNumber();
    if (IsOwnedBy(self)) {
      ++m_depth;
      return true;
    }
    if (!LockLeaning(self) && !TryLockByOwner(self)) return false;
    m_depth = 1;
    return true;
  }

  void unlock() noexcept {
    if (--m_depth != 0) return;
    const std::uint32_t self = locking::OwnNumber();
    if (m_leaning_owner.load(std::memory_order_relaxed) != self) return UnlockByOwner();
    m_leaning_owner.store(0, std::memory_order_release);
    KeepOrder();
    if (m_leaning.load(std::memory_order_relaxed) != self) WakeRevoker();
  }

  // Whether the calling thread holds the lock.
  bool IsOwned() const { return IsOwnedBy(locking::OwnNumber()); }

 private:
  // Keeps the compiler, and nothing else, from moving a load before a store.
  static void KeepOrder() { std::atomic_signal_fence(std::memory_order_seq_cst); }

  bool IsOwnedBy(std::uint32_t self) const {
    return m_leaning_owner.load(std::memory_order_relaxed) == self ||
           m_owner.load(std::memory_order_relaxed) == self;
  }

  bool LockLeaning(std::uint32_t self) {
    if (m_leaning.load(std::memory_order_relaxed) != self) return false;
    m_leaning_owner.store(self, std::memory_order_relaxed);
    KeepOrder();
    if (m_leaning.load(std::memory_order_relaxed) == self) return true;
    m_leaning_owner.store(0, std::memory_order_release);
    WakeRevoker();
    return false;
  }

  void LockByOwner(std::uint32_t self) noexcept;
  bool TryLockByOwner(std::uint32_t self) noexcept;
  void UnlockByOwner() noexcept;
  void SettleLeaning(std::uint32_t self) noexcept;
  void Wait(std::uint32_t self) noexcept;
  void WakeRevoker() noexcept;

  // Numbers of threads. The kernel waits on the first two.
  std::atomic<std::uint32_t> m_owner{0};          // 0 when free
  std::atomic<std::uint32_t> m_leaning_owner{0};  // only the thread it leans towards writes it
  std::atomic<std::uint32_t> m_leaning{0};        // 0: not yet; kNobody: no more
  std::atomic<std::uint32_t> m_waiters{0};
  std::uint32_t m_depth = 0;  // only the owner looks at it
};

// Gives each object a recursive lock. A copy has a lock of its own.
class QELBASE_API LocalLocking {
 public:
  using Lock = boost::unique_lock<RecursiveLock>;

  LocalLocking() = default;
  LocalLocking(const LocalLocking&) {}
  LocalLocking& operator=(const LocalLocking&) { return *this; }

 protected:
  ~LocalLocking() = default;
  [[nodiscard]] Lock LockThis() const { return Lock(m_lock); }
  [[nodiscard]] RecursiveLock& ThisLock() const { return m_lock; }
  [[nodiscard]] bool IsLockedHere() const { return m_lock.IsOwned(); }

 private:
  mutable RecursiveLock m_lock;
};

// Gives a class one recursive lock for all its objects. It needs no construction, and works from
// before the first static object to after the last.
template <class T>
class GlobalLocking {
 public:
  using Lock = boost::unique_lock<RecursiveLock>;

  [[nodiscard]] static Lock LockClass() { return Lock(s_lock); }
  [[nodiscard]] static RecursiveLock& ClassLock() noexcept { return s_lock; }

 protected:
  ~GlobalLocking() = default;

 private:
  static constinit inline RecursiveLock s_lock;
};

}  // namespace StdBase
