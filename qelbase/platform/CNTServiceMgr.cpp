#include "qelbase/platform/CNTServiceMgr.h"

#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/outside/system/messages.h"

namespace {

using namespace qel::sys;

// A service's handle for the length of an operation; null if it couldn't be opened.
class ServiceHolder {
 public:
  explicit ServiceHolder(SC_HANDLE service) : m_service(service) {}
  ~ServiceHolder() {
    if (m_service) CloseServiceHandle(m_service);
  }
  ServiceHolder(const ServiceHolder&) = delete;
  ServiceHolder& operator=(const ServiceHolder&) = delete;

  explicit operator bool() const { return m_service != nullptr; }
  SC_HANDLE get() const { return m_service; }

 private:
  SC_HANDLE m_service;
};

// The message stays in the queue: its own thread's loop sees it again.
void DispatchWaitingMessage() {
  MSG message;
  if (PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE)) DispatchMessageW(&message);
}

// Milliseconds between two tick counts, whichever came first.
std::uint32_t TickDistance(std::uint32_t now, std::uint32_t start) {
  return now > start ? now - start : start - now;
}

}  // namespace

CNTServiceMgr::CNTServiceMgr(const wchar_t* service_name, std::uint32_t access)
    : m_manager(OpenSCManagerW(nullptr, nullptr, access)), m_service_name(service_name) {
  if (!m_manager) m_last_error = qel::sys::GetLastError();
}

CNTServiceMgr::~CNTServiceMgr() {
  if (m_manager) CloseServiceHandle(m_manager);
}

int CNTServiceMgr::RegisterService(const wchar_t* path, const wchar_t* display_name, int auto_start,
                                   int interactive, const wchar_t* dependencies,
                                   const wchar_t* description) {
  if (!m_manager) return 0;
  const DWORD type = SERVICE_WIN32_OWN_PROCESS | (interactive ? SERVICE_INTERACTIVE_PROCESS : 0);
  const DWORD start = auto_start ? SERVICE_AUTO_START : SERVICE_DEMAND_START;
  const ServiceHolder service(
      CreateServiceW(m_manager, m_service_name, display_name, SERVICE_ALL_ACCESS, type, start,
                     SERVICE_ERROR_NORMAL, path, nullptr, nullptr, dependencies, nullptr, nullptr));
  m_last_error = qel::sys::GetLastError();
  if (!service) return 0;
  if (description) {
    const SERVICE_DESCRIPTIONW info{description};
    ChangeServiceConfig2W(service.get(), SERVICE_CONFIG_DESCRIPTION, &info);
  }
  return 1;
}

int CNTServiceMgr::UnregisterService() {
  const ServiceHolder service(_OpenService(DELETE_ACCESS | SERVICE_STOP | SERVICE_QUERY_STATUS));
  if (!service) return 1;
  if (!_StopService(service.get())) return 0;
  const int result = DeleteService(service.get());
  m_last_error = qel::sys::GetLastError();
  return result;
}

int CNTServiceMgr::StartServiceW(bool wait) {
  const ServiceHolder service(_OpenService(SERVICE_START | SERVICE_QUERY_STATUS));
  if (!service) return 0;
  const int result = qel::sys::StartServiceW(service.get(), 0, nullptr);
  if (result && wait) {
    SERVICE_STATUS status{};
    do {
      if (!QueryServiceStatus(service.get(), &status)) break;
    } while (status.dwCurrentState == SERVICE_START_PENDING);
  }
  m_last_error = qel::sys::GetLastError();
  return result;
}

int CNTServiceMgr::StopService() {
  const ServiceHolder service(_OpenService(SERVICE_STOP | SERVICE_QUERY_STATUS));
  return service ? _StopService(service.get()) : 0;
}

int CNTServiceMgr::IsInstalled() {
  const ServiceHolder service(_OpenService(GENERIC_READ));
  return service || m_last_error != ERROR_SERVICE_DOES_NOT_EXIST;
}

int CNTServiceMgr::IsInstalledAndRunning() {
  const ServiceHolder service(_OpenService(GENERIC_READ));
  SERVICE_STATUS status{};
  return service && QueryServiceStatus(service.get(), &status) &&
         status.dwCurrentState == SERVICE_RUNNING;
}

SC_HANDLE CNTServiceMgr::_OpenService(std::uint32_t access) {
  if (!m_manager) return nullptr;
  const SC_HANDLE service = OpenServiceW(m_manager, m_service_name, access);
  m_last_error = qel::sys::GetLastError();
  return service;
}

int CNTServiceMgr::_StopService(SC_HANDLE service) {
  constexpr std::uint32_t kLimitMs = 10000;
  SERVICE_STATUS status{};
  if (!ControlService(service, SERVICE_CONTROL_STOP, &status)) {
    m_last_error = qel::sys::GetLastError();
    return m_last_error == ERROR_SERVICE_NOT_ACTIVE;
  }
  const std::uint32_t start = GetTickCount();
  do {
    DispatchWaitingMessage();
    if (TickDistance(GetTickCount(), start) > kLimitMs) {
      m_last_error = ERROR_TIMEOUT;
      return 0;
    }
    if (!QueryServiceStatus(service, &status)) {
      m_last_error = qel::sys::GetLastError();
      return 0;
    }
  } while (status.dwCurrentState != SERVICE_STOPPED);
  return 1;
}
