#pragma once
// Durations by the high-resolution counter.

#include <cstdint>

#include "qelbase/export.h"

// All times in milliseconds. An object belongs to one thread at a time.
class QELBASE_API CTimeCount {
 public:
  CTimeCount();  // starts
  CTimeCount(const CTimeCount& other) = default;
  CTimeCount& operator=(const CTimeCount& other) = default;
  virtual ~CTimeCount();

  void Reset();           // starts anew
  double Poll();          // since the start
  double PollAndReset();  // since the start, which is now

 private:
  std::int64_t m_start;
  std::int64_t m_current = 0;
  double m_scale = 0;
};
