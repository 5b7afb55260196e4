#include "qelbase/progress/MProgressTimer.h"

#include "qelbase/outside/components/formatting.h"
#include "qelbase/outside/components/logging.h"
#include "qelbase/outside/system/clock.h"

namespace {

void Log(const std::wstring& text) {
  QelSDK::Common::Logging::LogMessage message(text.c_str());
  QelSDK::Common::Logging::GetLogger().LogInformation(message);
}

}  // namespace

MProgressTimer::MProgressTimer(const bool& enabled)
    : m_start(qel::sys::clock()), m_enabled(enabled) {}

void MProgressTimer::Enable() {
  m_enabled = true;
}

double MProgressTimer::Seconds() const {
  const auto now = static_cast<std::uint32_t>(qel::sys::clock());
  return static_cast<std::int32_t>(now - static_cast<std::uint32_t>(m_start)) / 1000.0;
}

void MProgressTimer::StepStarted(const std::wstring& step) {
  if (!m_enabled) return;
  Log(QelStdBase::FormatString(L"Started %s, t = %f.", step.c_str(), Seconds()));
}

void MProgressTimer::StepComplete(const std::wstring& step) {
  if (!m_enabled) return;
  const double now = Seconds();
  Log(QelStdBase::FormatString(L"Done %s in %f s.", step.c_str(), now - m_last_step));
  m_last_step = now;
}

void MProgressTimer::Complete(const std::wstring& operation) {
  if (!m_enabled) return;
  Log(QelStdBase::FormatString(L"Done %s in %f s.", operation.c_str(), Seconds()));
}
