#include "qelbase/outside/components/locking.h"

#include <linux/futex.h>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>

namespace StdBase {

namespace locking {

constinit thread_local std::uint32_t own_number = 0;

std::uint32_t NumberThisThread() noexcept {
  static constinit std::atomic<std::uint32_t> last{0};
  do {
    own_number = last.fetch_add(1, std::memory_order_relaxed) + 1;
  } while (own_number == 0);
  return own_number;
}

}  // namespace locking

namespace {

constexpr std::uint32_t kNobody = 0xFFFFFFFF;

bool HasBarrier() noexcept {
  static const bool registered =
      ::syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
  return registered;
}

// Makes every running thread of the process pass a barrier; false where the kernel has none. A
// forked child has to register anew.
bool PassBarrierEverywhere() noexcept {
  if (!HasBarrier()) return false;
  const auto pass = [] {
    return ::syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0;
  };
  if (pass()) return true;
  ::syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0);
  return pass() || ::syscall(SYS_membarrier, MEMBARRIER_CMD_GLOBAL, 0, 0) == 0;
}

// Sleeps while `word` holds `value`; looks again every millisecond where a wake-up can be missed.
void Sleep(std::atomic<std::uint32_t>& word, std::uint32_t value, bool barrier_passed) {
  const timespec again{0, 1000000};
  ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, barrier_passed ? nullptr : &again, nullptr,
            0);
}

void Wake(std::atomic<std::uint32_t>& word) {
  ::syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

bool Claim(std::atomic<std::uint32_t>& owner, std::uint32_t self) {
  std::uint32_t free = 0;
  return owner.compare_exchange_strong(free, self, std::memory_order_acquire,
                                       std::memory_order_relaxed);
}

}  // namespace

void RecursiveLock::LockByOwner(std::uint32_t self) noexcept {
  if (!Claim(m_owner, self)) Wait(self);
  SettleLeaning(self);
  while (const std::uint32_t holder = m_leaning_owner.load(std::memory_order_acquire)) {
    Sleep(m_leaning_owner, holder, false);
  }
}

bool RecursiveLock::TryLockByOwner(std::uint32_t self) noexcept {
  if (!Claim(m_owner, self)) return false;
  SettleLeaning(self);
  if (m_leaning_owner.load(std::memory_order_acquire) == 0) return true;
  UnlockByOwner();
  return false;
}

// Runs under m_owner. The first owner makes the lock lean towards it; another one ends that, and
// has then to wait until the thread it leaned towards is out.
void RecursiveLock::SettleLeaning(std::uint32_t self) noexcept {
  const std::uint32_t leaning = m_leaning.load(std::memory_order_relaxed);
  if (leaning == kNobody) return;
  const bool is_first = leaning == 0 && HasBarrier();
  m_leaning.store(is_first ? self : kNobody, std::memory_order_relaxed);
  if (leaning != 0) PassBarrierEverywhere();
}

void RecursiveLock::UnlockByOwner() noexcept {
  m_owner.store(0, std::memory_order_release);
  KeepOrder();
  if (m_waiters.load(std::memory_order_relaxed) != 0) Wake(m_owner);
}

void RecursiveLock::WakeRevoker() noexcept {
  Wake(m_leaning_owner);
}

void RecursiveLock::Wait(std::uint32_t self) noexcept {
  for (int spin = 0; spin < 100; ++spin) {
    if (m_owner.load(std::memory_order_relaxed) == 0 && Claim(m_owner, self)) return;
  }
  m_waiters.fetch_add(1, std::memory_order_seq_cst);
  const bool barrier_passed = PassBarrierEverywhere();
  while (!Claim(m_owner, self)) {
    const std::uint32_t owner = m_owner.load(std::memory_order_relaxed);
    if (owner != 0) Sleep(m_owner, owner, barrier_passed);
  }
  m_waiters.fetch_sub(1, std::memory_order_relaxed);
}

}  // namespace StdBase
