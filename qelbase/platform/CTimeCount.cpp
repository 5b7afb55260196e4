#include "qelbase/platform/CTimeCount.h"

#include "qelbase/outside/system/clock.h"

namespace {

std::int64_t counter() {
  std::int64_t value = 0;
  qel::sys::QueryPerformanceCounter(&value);
  return value;
}

// Milliseconds for each step, in single precision.
double scale() {
  std::int64_t frequency = 0;
  qel::sys::QueryPerformanceFrequency(&frequency);
  return 1000.0F / static_cast<float>(frequency);
}

}  // namespace

CTimeCount::CTimeCount() {
  try {
    m_scale = scale();
  } catch (...) {  // a trapped division: the count goes on without a scale
  }
  m_start = counter();
}

CTimeCount::~CTimeCount() = default;

void CTimeCount::Reset() {
  m_start = counter();
}

double CTimeCount::Poll() {
  m_current = counter();
  return static_cast<double>(m_current - m_start) * m_scale;
}

double CTimeCount::PollAndReset() {
  const double elapsed = Poll();
  m_start = m_current;
  return elapsed;
}
