#pragma once
// The clocks, and waiting.

#include <cstdint>
#include <ctime>
#include <memory>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// Wall time since the library was loaded in milliseconds (not processor time); -1 from 2^31 on.
[[nodiscard]] QELBASE_API LONG clock();

// Milliseconds since the machine started, time asleep included; begins again at 2^32.
[[nodiscard]] QELBASE_API DWORD GetTickCount();

// Seconds since 1970, UTC; also into `out` if that is not null.
QELBASE_API std::int64_t _time64(std::int64_t* out);

// A counter of 10,000,000 a second that never goes back. Both never fail (1).
QELBASE_API BOOL QueryPerformanceCounter(LONGLONG* counter);
QELBASE_API BOOL QueryPerformanceFrequency(LONGLONG* frequency);

// Waits for at least that many milliseconds; 0 gives the processor to another thread, 0xFFFFFFFF
// waits for ever.
QELBASE_API void Sleep(DWORD milliseconds);

// The present time (_time64) in the user's time zone.
[[nodiscard]] QELBASE_API std::tm LocalTime();
// The same; false, and `local` untouched, for a time that has no local form.
[[nodiscard]] QELBASE_API bool LocalTime(std::tm& local);

struct ClockFacts;

// While it lives, the clocks that were set on it show what was set, for all threads; the others run
// on. Sleep returns at once and moves the clocks that were set on. An override inside another one
// begins with nothing set. The innermost one ends first.
class QELBASE_API ClockOverride {
 public:
  ClockOverride();
  ~ClockOverride();
  ClockOverride(const ClockOverride&) = delete;
  ClockOverride& operator=(const ClockOverride&) = delete;

  ClockOverride& setClock(std::int64_t milliseconds);
  ClockOverride& setTickCount(DWORD milliseconds);
  ClockOverride& setTime(std::int64_t seconds);
  ClockOverride& setPerformanceCounter(LONGLONG counter);
  ClockOverride& setZone(int seconds_east);  // of UTC, in place of the user's zone
  void advance(std::int64_t milliseconds);   // moves the clocks that were set

 private:
  std::unique_ptr<ClockFacts> m_facts;
};

}  // namespace qel::sys
