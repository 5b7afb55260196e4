#include "qelbase/platform/MTimeout.h"

#include <algorithm>

#include "qelbase/outside/system/clock.h"

namespace {

constexpr std::uint32_t longest_ms = 72 * 60 * 60 * 1000;

// Added to a tick count that has begun anew. Less than the whole circle of 2^32: after a wrap the
// elapsed time is too short by 60762496 ms, never too long.
constexpr std::uint32_t wrap_ms = 4234204800;

// The distance of the low 32 bits as a signed number, without its sign.
std::uint32_t secondsBetween(std::int64_t a, std::int64_t b) {
  const std::uint32_t distance = static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b);
  return static_cast<std::int32_t>(distance) < 0 ? 0 - distance : distance;
}

}  // namespace

MTimeout::MTimeout(unsigned long milliseconds)
    : m_timeout_ms(static_cast<std::uint32_t>(milliseconds)) {
  _UpdateLastAliveTime();
}

bool MTimeout::IsTimeout() const {
  if (m_timeout_ms == 0) return false;
  const std::uint32_t timeout_ms = std::min(m_timeout_ms, longest_ms);
  if (secondsBetween(qel::sys::_time64(nullptr), m_last_time_s) < timeout_ms / 1000) return false;
  std::uint32_t tick_ms = qel::sys::GetTickCount();
  if (tick_ms < m_last_tick_ms) tick_ms += wrap_ms;
  return tick_ms - m_last_tick_ms > timeout_ms;
}

void MTimeout::_UpdateLastAliveTime() {
  m_last_tick_ms = qel::sys::GetTickCount();
  m_last_time_s = qel::sys::_time64(nullptr);
}

void MTimeout::_ShiftLastAliveTime(unsigned long milliseconds) {
  const auto by_ms = static_cast<std::uint32_t>(milliseconds);
  m_last_tick_ms += by_ms;
  m_last_time_s += by_ms / 1000;
}
