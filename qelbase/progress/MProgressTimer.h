#pragma once
// Durations of an operation and of its steps, in the log.

#include <cstdint>
#include <string>

#include "qelbase/export.h"

// Writes information lines to the default logger while it is enabled. Times are wall-clock seconds
// since construction, exact to a millisecond, within 24 days. An object belongs to one thread at a
// time.
class QELBASE_API MProgressTimer {
 public:
  explicit MProgressTimer(const bool& enabled);
  MProgressTimer(const MProgressTimer&) = default;
  MProgressTimer& operator=(const MProgressTimer&) = default;
  ~MProgressTimer() = default;

  void Enable();  // for good; the start stays that of the construction

  void StepStarted(const std::wstring& step);    // tells the time; measures nothing
  void StepComplete(const std::wstring& step);   // tells the time since the last StepComplete
  void Complete(const std::wstring& operation);  // tells the whole time

 private:
  double Seconds() const;

  std::int32_t m_start;  // milliseconds of the ground floor's clock
  double m_last_step = 0.0;
  bool m_enabled;
};
