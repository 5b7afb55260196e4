// The service's side: the dispatcher, the handler, reports.

#include <unistd.h>

#include <mutex>
#include <system_error>
#include <thread>

#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/services_internal.h"

namespace qel::sys {

namespace services {

namespace {

// What this process is as a service. The handler is called with no lock held.
struct Self {
  std::mutex mutex;
  std::shared_ptr<StatusFile> file;  // from the dispatcher's call on
  Process process;
  ServiceHandlerEx handler = nullptr;
  void* context = nullptr;
  std::atomic<bool> stopped = false;
};

// Threads of the service may report while the process ends.
Self& self() {
  static Lasting<Self> kept;
  return *kept;
}

// Far from small numbers and addresses, so that a mistaken handle is found out.
const auto kStatusHandle = reinterpret_cast<SERVICE_STATUS_HANDLE>(0x53530000'00000001);

// --- connecting --------------------------------------------------------------------------------

// Finds the run that this process is, and makes it one that takes controls. 0, 1056, 1063.
DWORD connect(const std::wstring& name) {
  const std::scoped_lock once(self().mutex);
  if (self().file) return ERROR_SERVICE_ALREADY_RUNNING;
  const DatabaseLock lock;
  if (lock.code() != ERROR_SUCCESS) return lock.code();
  DWORD code = ERROR_SUCCESS;
  auto file = StatusFile::open(name, false, code);
  if (!file) return ERROR_FAILED_SERVICE_CONTROLLER_CONNECT;
  std::optional<Run> run = file->lastRun();
  const Process process = ThisProcess();
  const bool is_this = run && run->process == process && run->dispatcher == Dispatcher::none &&
                       run->status.dwCurrentState == SERVICE_START_PENDING;
  if (!is_this) return ERROR_FAILED_SERVICE_CONTROLLER_CONNECT;
  // What an earlier run was asked and could not answer is no longer waited for.
  SharedStatus& shared = file->shared();
  shared.answer_number.store(shared.control_number.load(std::memory_order_acquire),
                             std::memory_order_release);
  run->dispatcher = Dispatcher::serving;
  file->publish(*run);
  self().process = process;
  self().file = std::move(file);
  return ERROR_SUCCESS;
}

// From here on no control is taken, and nobody waits for an answer.
void disconnect(const StatusFile& file) {
  const DatabaseLock lock;
  std::optional<Run> run = file.lastRun();
  if (!run || run->process != self().process) return;
  run->dispatcher = Dispatcher::left;
  file.publish(*run);
}

// --- serving -----------------------------------------------------------------------------------

DWORD callHandler(DWORD control) {
  ServiceHandlerEx handler = nullptr;
  void* context = nullptr;
  {
    const std::scoped_lock lock(self().mutex);
    handler = self().handler;
    context = self().context;
  }
  return handler ? handler(control, 0, nullptr, context) : ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
}

void answer(SharedStatus& shared, std::uint32_t number, DWORD code) {
  shared.answer.store(code, std::memory_order_relaxed);
  shared.answer_number.store(number, std::memory_order_release);
  WakeWord(shared.answer_number);
}

void serveUntilStopped(SharedStatus& shared) {
  while (true) {
    const std::uint32_t bell = shared.bell.load(std::memory_order_acquire);
    const std::uint32_t number = shared.control_number.load(std::memory_order_acquire);
    const bool is_asked = number != shared.answer_number.load(std::memory_order_acquire);
    if (is_asked) {
      const DWORD control = shared.control.load(std::memory_order_relaxed);
      answer(shared, number, self().stopped ? ERROR_SERVICE_NOT_ACTIVE : callHandler(control));
    } else if (self().stopped) {
      return;
    } else {
      WaitOnWord(shared.bell, bell, -1);
    }
  }
}

void runMain(ServiceMain main, std::vector<std::wstring> arguments) {
  std::vector<wchar_t*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::wstring& argument : arguments) pointers.push_back(argument.data());
  const auto count = static_cast<DWORD>(pointers.size());
  pointers.push_back(nullptr);
  main(count, pointers.data());
}

DWORD handlerOfPlain(DWORD control, DWORD /*event_type*/, void* /*event_data*/, void* context) {
  reinterpret_cast<ServiceHandler>(context)(control);
  return ERROR_SUCCESS;
}

bool isReportable(const SERVICE_STATUS& status) {
  constexpr DWORD type_bits = 0x1FF;
  constexpr DWORD accept_bits = 0x1FFF;
  return status.dwCurrentState >= SERVICE_STOPPED && status.dwCurrentState <= SERVICE_PAUSED &&
         (status.dwServiceType & ~type_bits) == 0 &&
         (status.dwServiceType & SERVICE_WIN32_OWN_PROCESS) != 0 &&
         (status.dwControlsAccepted & ~accept_bits) == 0;
}

}  // namespace

}  // namespace services

using namespace services;

BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table) {
  if (!table || !table->lpServiceProc) return Give(ERROR_INVALID_DATA);
  const std::wstring name = WideText(NativeEnvironmentValue(kServiceVariable));
  if (name.empty()) return Give(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
  if (const DWORD code = connect(name)) return Give(code);
  const std::shared_ptr<StatusFile> file = self().file;
  std::vector<std::wstring> arguments = file->readArguments();
  arguments.insert(arguments.begin(), name);
  try {
    std::thread(runMain, table->lpServiceProc, std::move(arguments)).detach();
  } catch (const std::system_error&) {
    disconnect(*file);
    return Give(ERROR_NOT_ENOUGH_MEMORY);
  }
  serveUntilStopped(file->shared());
  disconnect(*file);
  return 1;
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerExW(const wchar_t* /*name*/,
                                                    ServiceHandlerEx handler, void* context) {
  const std::scoped_lock lock(self().mutex);
  const bool is_service = self().file != nullptr;
  if (!handler || !is_service) {
    SetLastError(handler ? ERROR_SERVICE_NOT_IN_EXE : ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  self().handler = handler;
  self().context = context;
  return kStatusHandle;
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(const wchar_t* name, ServiceHandler handler) {
  return RegisterServiceCtrlHandlerExW(name, handler ? handlerOfPlain : nullptr,
                                       reinterpret_cast<void*>(handler));
}

BOOL SetServiceStatus(SERVICE_STATUS_HANDLE handle, const SERVICE_STATUS* status) {
  std::shared_ptr<StatusFile> file;
  {
    const std::scoped_lock lock(self().mutex);
    if (self().handler && handle == kStatusHandle) file = self().file;
  }
  // A forked child is not the service.
  if (!file || self().process.id != static_cast<std::uint32_t>(getpid())) {
    return Give(ERROR_INVALID_HANDLE);
  }
  if (!status) return Give(ERROR_INVALID_PARAMETER);
  if (!isReportable(*status)) return Give(ERROR_INVALID_DATA);
  {
    const DatabaseLock lock;
    if (lock.code() != ERROR_SUCCESS) return Give(lock.code());
    std::optional<Run> run = file->lastRun();
    const bool is_over =
        !run || run->process != self().process || run->status.dwCurrentState == SERVICE_STOPPED;
    if (is_over) return Give(ERROR_INVALID_HANDLE);
    run->status = *status;
    file->publish(*run);
  }
  if (status->dwCurrentState == SERVICE_STOPPED) {
    self().stopped = true;
    file->shared().bell.fetch_add(1, std::memory_order_release);
    WakeWord(file->shared().bell);
  }
  return 1;
}

}  // namespace qel::sys
