#pragma once
// Installs, starts, stops and removes a service.

#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/system/services.h"

// One named service, seen from outside. Operations give 1 on success; 0 on failure, and
// GetLastError() then tells why. What is a success or failure otherwise is said where it is.
// Without a manager (operator!) every operation that needs one does nothing. An object belongs to
// one thread at a time.
class QELBASE_API CNTServiceMgr {
 public:
  // `service_name` is not copied: it outlives the object. `access` is the mask for the manager
  // (SC_MANAGER_...).
  explicit CNTServiceMgr(const wchar_t* service_name,
                         std::uint32_t access = qel::sys::SC_MANAGER_ALL_ACCESS);
  // Copies share the manager handle, and each would close it: only one of them may reach its end
  // with it.
  CNTServiceMgr(const CNTServiceMgr& other) = default;
  CNTServiceMgr& operator=(const CNTServiceMgr& other) = default;
  virtual ~CNTServiceMgr();

  bool operator!() const { return !m_manager; }
  std::uint32_t GetLastError() const { return m_last_error; }

  // `path` is a command line; a path with blanks needs quotation marks. `dependencies` is a list of
  // services, each ended by a zero and the list by a second one, or null. A description that can't
  // be written does not count as a failure.
  int RegisterService(const wchar_t* path, const wchar_t* display_name, int auto_start,
                      int interactive, const wchar_t* dependencies, const wchar_t* description);

  // Stops and deletes it; 1 too if it can't be opened, as there is nothing to remove. A service
  // that doesn't stop stays.
  int UnregisterService();

  // Without arguments. With `wait`, returns once the service is no longer starting.
  int StartServiceW(bool wait);

  // Waits up to ten seconds until the service has stopped (1460), without pause, and dispatches the
  // calling thread's messages meanwhile. 1 too, and 1062, if it wasn't running.
  int StopService();

  // 1 for a service that may not be opened, too.
  int IsInstalled();
  int IsInstalledAndRunning();

 protected:
  SC_HANDLE _OpenService(std::uint32_t access);
  int _StopService(SC_HANDLE service);

 private:
  SC_HANDLE m_manager;
  const wchar_t* m_service_name;
  std::uint32_t m_last_error = 0;
};
