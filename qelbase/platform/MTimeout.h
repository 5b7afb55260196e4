#pragma once
// Whether a time of inactivity has run out, by two clocks that must agree.

#include <cstdint>

#include "qelbase/export.h"

// The ticks go on while the wall clock is set, and the wall clock goes on where the ticks begin
// anew: one of them alone would now and then end a session too early. An object belongs to one
// thread at a time.
class QELBASE_API MTimeout {
 public:
  explicit MTimeout(unsigned long milliseconds);  // 0: never

  std::uint32_t GetTimeout() const { return m_timeout_ms; }
  std::int64_t GetLastActivityTime() const { return m_last_time_s; }  // seconds since 1970, UTC

  // Both clocks are past the timeout, of which at most 72 hours count. The wall clock counts in
  // whole seconds and either way: set back by more than the timeout, it is past it.
  bool IsTimeout() const;

 protected:
  void _UpdateLastAliveTime();  // now
  // Later by that many milliseconds; by whole seconds on the wall clock.
  void _ShiftLastAliveTime(unsigned long milliseconds);

 private:
  std::uint32_t m_last_tick_ms = 0;
  std::int64_t m_last_time_s = 0;
  std::uint32_t m_timeout_ms;
};
