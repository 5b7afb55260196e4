#pragma once
// How a service tells the manager its state.

#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CSync.h"
#include "qelbase/outside/system/services.h"

// The record that a service reports, with the right check points and accepted controls. Begins as a
// stopped service in a process of its own that accepts the stop control.
//
// Threads of the service may report at once; the other operations take no lock.
class QELBASE_API CServiceStatus {
 public:
  CServiceStatus();  // throws a CResourceException by pointer if the system has no lock left

  // The handle that registering the control handler gave. Not owned.
  void Attach(SERVICE_STATUS_HANDLE handle) { m_handle = handle; }
  bool operator!() const { return !m_handle; }
  std::uint32_t GetCurrentState() const { return m_status.dwCurrentState; }

  // Adds bits (SERVICE_ACCEPT_...) to those accepted in any state but START_PENDING, or takes them
  // away. Told by the next report.
  void UpdateControlsAcceptedOnRun(std::uint32_t controls, int add);

  // Reports a state (SERVICE_...). `wait_hint` is in milliseconds until the next report of a
  // pending state. A pending or paused state gets the next check point; they rise from 1 as long as
  // the object lives. What SetServiceStatus gives (a failure is logged); 0 without a handle, and
  // then nothing is changed.
  int ReportStatusToSCMgr(std::uint32_t state, std::uint32_t wait_hint, std::uint32_t exit_code);

 private:
  qel::sys::SERVICE_STATUS m_status{};
  SERVICE_STATUS_HANDLE m_handle = nullptr;
  std::uint32_t m_check_point = 1;
  CCriticalSection m_section;
  std::uint32_t m_controls_accepted_on_run = qel::sys::SERVICE_ACCEPT_STOP;
};
