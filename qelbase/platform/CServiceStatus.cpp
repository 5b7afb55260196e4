#include "qelbase/platform/CServiceStatus.h"

#include "qelbase/outside/components/logging.h"

namespace {

using namespace qel::sys;
using namespace QelSDK::Common::Logging;

ILogger& GetLibraryLogger() {
  static ILogger& logger = GetLogger(L"lib.qelbase");
  return logger;
}

}  // namespace

CServiceStatus::CServiceStatus() {
  m_status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  m_status.dwCurrentState = SERVICE_STOPPED;
}

void CServiceStatus::UpdateControlsAcceptedOnRun(std::uint32_t controls, int add) {
  if (add) {
    m_controls_accepted_on_run |= controls;
  } else {
    m_controls_accepted_on_run &= ~controls;
  }
}

int CServiceStatus::ReportStatusToSCMgr(std::uint32_t state, std::uint32_t wait_hint,
                                        std::uint32_t exit_code) {
  if (!m_handle) return 0;
  const CSingleLock lock(&m_section, 1);
  m_status.dwServiceSpecificExitCode = 0;
  m_status.dwControlsAccepted = state == SERVICE_START_PENDING ? 0 : m_controls_accepted_on_run;
  m_status.dwCurrentState = state;
  m_status.dwWin32ExitCode = exit_code;
  m_status.dwWaitHint = wait_hint;
  const bool is_settled = state == SERVICE_RUNNING || state == SERVICE_STOPPED;
  m_status.dwCheckPoint = is_settled ? 0 : m_check_point++;
  const int result = SetServiceStatus(m_handle, &m_status);
  if (!result) {
    LogMessage message(
        L"In CServiceStatus::ReportStatusToSCMgr() : SetServiceStatus() failed with argument ");
    message << state;
    GetLibraryLogger().LogFailure(message);
  }
  return result;
}
