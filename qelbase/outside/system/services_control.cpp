// Starting a service, and sending it controls.

#include <algorithm>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/services_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

namespace services {

namespace {

bool isStopped(const std::optional<Run>& run) {
  return !run || run->status.dwCurrentState == SERVICE_STOPPED;
}

// --- starting ----------------------------------------------------------------------------------

using Names = std::vector<std::wstring>;

bool contains(const Names& names, const std::wstring& wanted) {
  return std::ranges::any_of(
      names, [&](const std::wstring& name) { return CompareNoCase(name, wanted) == 0; });
}

// Whether the service may be started now: 1060, 1072, 1058, 1056.
DWORD readStartable(const std::wstring& name, const StatusFile& file, Record& record) {
  if (const DWORD code = ReadRecord(name, record)) return code;
  if (record.marked) return ERROR_SERVICE_MARKED_FOR_DELETE;
  if (record.start == SERVICE_DISABLED) return ERROR_SERVICE_DISABLED;
  const std::optional<Run> run = file.run();
  return isStopped(run) || run->isOverdue() ? ERROR_SUCCESS : ERROR_SERVICE_ALREADY_RUNNING;
}

// Ends a program that never called its dispatcher. Under the DatabaseLock.
void endSilent(const StatusFile& file, Run run) {
  Kill(run.process);
  run.status.dwCurrentState = SERVICE_STOPPED;
  run.status.dwWin32ExitCode = ERROR_SERVICE_REQUEST_TIMEOUT;
  run.status.dwWaitHint = 0;
  file.publish(run);
}

DWORD launchStopped(const std::wstring& name, const StatusFile& file, const Names& arguments,
                    Process& launched) {
  const DatabaseLock lock;
  if (lock.code() != ERROR_SUCCESS) return lock.code();
  Record record;
  if (const DWORD code = readStartable(name, file, record)) return code;
  CommandLine command;
  if (const DWORD code = ParseCommandLine(record.path, command)) return code;
  if (const auto run = file.run(); !isStopped(run)) endSilent(file, *run);
  if (const DWORD code = file.writeArguments(arguments)) return code;
  if (const DWORD code = Launch(name, command, file, record.type)) return code;
  if (const auto run = file.lastRun()) launched = run->process;
  return ERROR_SUCCESS;
}

DWORD giveUp(const StatusFile& file, const Process& launched) {
  const DatabaseLock lock;
  if (lock.code() != ERROR_SUCCESS) return lock.code();
  const std::optional<Run> run = file.run();
  const bool is_silent = run && run->process == launched && run->dispatcher == Dispatcher::none;
  if (!is_silent) return ERROR_SUCCESS;  // just in time
  endSilent(file, *run);
  return ERROR_SERVICE_REQUEST_TIMEOUT;
}

DWORD waitForDispatcher(const StatusFile& file, const Process& launched) {
  for (const Limit limit;;) {
    const std::uint32_t seen = file.shared().number.load(std::memory_order_acquire);
    const std::optional<Run> run = file.run();
    const bool has_served = !run || run->process != launched || run->dispatcher != Dispatcher::none;
    if (has_served) return ERROR_SUCCESS;
    if (isStopped(run)) return ERROR_SERVICE_REQUEST_TIMEOUT;
    if (limit.isOver()) return giveUp(file, launched);
    file.waitForRun(seen);
  }
}

DWORD start(const std::wstring& name, const StatusFile& file, const Names& arguments, Names& way);

// True when the service runs; it is given kLimit for each report that it makes on the way.
bool waitUntilItRuns(const StatusFile& file) {
  std::uint32_t seen = file.shared().number.load(std::memory_order_acquire);
  for (Limit limit;;) {
    const std::optional<Run> run = file.run();
    const DWORD state = run ? run->status.dwCurrentState : SERVICE_STOPPED;
    if (state == SERVICE_RUNNING || state == SERVICE_PAUSED) return true;
    if (state == SERVICE_STOPPED || state == SERVICE_STOP_PENDING || limit.isOver()) return false;
    file.waitForRun(seen);
    const std::uint32_t number = file.shared().number.load(std::memory_order_acquire);
    if (number != seen) limit = Limit();
    seen = number;
  }
}

DWORD startDependency(const std::wstring& name, Names& way) {
  if (contains(way, name)) return ERROR_CIRCULAR_DEPENDENCY;
  Record record;
  if (ReadRecord(name, record) != ERROR_SUCCESS) return ERROR_SERVICE_DEPENDENCY_DELETED;
  DWORD code = ERROR_SUCCESS;
  std::shared_ptr<StatusFile> file;
  {
    const DatabaseLock lock;
    code = lock.code();
    if (code == ERROR_SUCCESS) file = StatusFile::open(name, true, code);
  }
  if (!file) return code;
  code = start(name, *file, {}, way);
  if (code == ERROR_CIRCULAR_DEPENDENCY || code == ERROR_SERVICE_DEPENDENCY_DELETED) return code;
  const bool under_way = code == ERROR_SUCCESS || code == ERROR_SERVICE_ALREADY_RUNNING;
  return under_way && waitUntilItRuns(*file) ? ERROR_SUCCESS : ERROR_SERVICE_DEPENDENCY_FAIL;
}

// `way` holds those that wait for this one.
DWORD start(const std::wstring& name, const StatusFile& file, const Names& arguments, Names& way) {
  Record record;
  if (const DWORD code = readStartable(name, file, record)) return code;
  way.push_back(name);
  for (const std::wstring& dependency : record.dependencies) {
    if (const DWORD code = startDependency(dependency, way)) return code;
  }
  way.pop_back();
  Process launched;
  if (const DWORD code = launchStopped(name, file, arguments, launched)) return code;
  return waitForDispatcher(file, launched);
}

// --- controls ----------------------------------------------------------------------------------

struct ControlRow {
  DWORD first;
  DWORD last;
  DWORD right;    // that the handle needs
  DWORD accepts;  // what the service must have said it accepts; 0: nothing
};

constexpr DWORD kAcceptNetworkBinding = 0x10;
constexpr std::array control_table = {
    ControlRow{SERVICE_CONTROL_STOP, SERVICE_CONTROL_STOP, SERVICE_STOP, SERVICE_ACCEPT_STOP},
    ControlRow{SERVICE_CONTROL_PAUSE, SERVICE_CONTROL_CONTINUE, SERVICE_PAUSE_CONTINUE,
               SERVICE_ACCEPT_PAUSE_CONTINUE},
    ControlRow{SERVICE_CONTROL_INTERROGATE, SERVICE_CONTROL_INTERROGATE, SERVICE_INTERROGATE, 0},
    ControlRow{SERVICE_CONTROL_PARAMCHANGE, SERVICE_CONTROL_PARAMCHANGE, SERVICE_PAUSE_CONTINUE,
               SERVICE_ACCEPT_PARAMCHANGE},
    ControlRow{7, 10, SERVICE_PAUSE_CONTINUE, kAcceptNetworkBinding},
    ControlRow{128, 255, SERVICE_USER_DEFINED_CONTROL, 0},
};

const ControlRow* findRow(DWORD control) {
  const auto* row = std::ranges::find_if(control_table, [control](const ControlRow& each) {
    return control >= each.first && control <= each.last;
  });
  return row == control_table.end() ? nullptr : row;
}

// 0, or why the service as it stands takes no such control.
DWORD refusalOf(const std::optional<Run>& run, const ControlRow& row) {
  if (isStopped(run)) return ERROR_SERVICE_NOT_ACTIVE;
  const SERVICE_STATUS& status = run->status;
  const bool is_between = status.dwCurrentState == SERVICE_START_PENDING ||
                          status.dwCurrentState == SERVICE_STOP_PENDING;
  if (is_between || run->dispatcher != Dispatcher::serving) {
    return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
  }
  const bool accepts = row.accepts == 0 || (status.dwControlsAccepted & row.accepts) != 0;
  return accepts ? ERROR_SUCCESS : ERROR_INVALID_SERVICE_CONTROL;
}

bool hasRunningDependents(const std::wstring& name) {
  bool found = false;
  const DatabaseLock lock;
  ForEachRecord([&](const std::wstring& other, const Record& record) {
    if (!contains(record.dependencies, name)) return true;
    DWORD code = ERROR_SUCCESS;
    const auto file = StatusFile::open(other, false, code);
    found = file && !isStopped(file->run());
    return !found;
  });
  return found;
}

// Waits until every control has been answered. 1053 if that takes too long, 1062 if this run of the
// service ends before.
DWORD waitForAnswer(const StatusFile& file, const Process& process, const Limit& limit) {
  SharedStatus& shared = file.shared();
  const std::uint32_t wanted = shared.control_number.load(std::memory_order_acquire);
  while (true) {
    // Looked at first: a run that is over may have answered before.
    const std::optional<Run> run = file.run();
    const std::uint32_t answered = shared.answer_number.load(std::memory_order_acquire);
    if (answered == wanted) return ERROR_SUCCESS;
    const bool is_over = !run || run->process != process ||
                         run->dispatcher != Dispatcher::serving ||
                         (run->status.dwCurrentState == SERVICE_STOPPED && !IsAlive(process));
    if (is_over) return ERROR_SERVICE_NOT_ACTIVE;
    if (limit.isOver()) return ERROR_SERVICE_REQUEST_TIMEOUT;
    constexpr int slice_ms = 10;
    WaitOnWord(shared.answer_number, answered, slice_ms);
  }
}

DWORD sendControl(const Object& service, DWORD control, const ControlRow& row) {
  DWORD code = ERROR_SUCCESS;
  const auto own = service.file->reopen(code);
  if (!own) return code;
  SharedStatus& shared = own->shared();
  const Limit limit;
  while (!own->tryLockControls()) {
    if (limit.isOver()) return ERROR_SERVICE_REQUEST_TIMEOUT;
    own->waitForRun(shared.number.load(std::memory_order_acquire));
  }
  std::optional<Run> run = own->run();
  if ((code = refusalOf(run, row)) != ERROR_SUCCESS) return code;
  if (control == SERVICE_CONTROL_STOP && hasRunningDependents(service.name)) {
    return ERROR_DEPENDENT_SERVICES_RUNNING;
  }
  // One that was sent by a program that has died since.
  if ((code = waitForAnswer(*own, run->process, limit)) != ERROR_SUCCESS) return code;
  run = own->run();
  if ((code = refusalOf(run, row)) != ERROR_SUCCESS) return code;

  shared.control.store(control, std::memory_order_relaxed);
  shared.control_number.fetch_add(1, std::memory_order_release);
  shared.bell.fetch_add(1, std::memory_order_release);
  WakeWord(shared.bell);
  if ((code = waitForAnswer(*own, run->process, limit)) != ERROR_SUCCESS) return code;
  return shared.answer.load(std::memory_order_relaxed);
}

}  // namespace

}  // namespace services

using namespace services;

BOOL StartServiceW(SC_HANDLE handle, DWORD count, const wchar_t** arguments) {
  ObjectPointer service;
  if (const DWORD code = ObjectOfHandle(handle, false, SERVICE_START, service)) return Give(code);
  Names texts;
  for (DWORD i = 0; i < count; ++i) {
    if (!arguments || !arguments[i]) return Give(ERROR_INVALID_PARAMETER);
    texts.emplace_back(arguments[i]);
  }
  Names way;
  return Give(start(service->name, *service->file, texts, way));
}

BOOL ControlService(SC_HANDLE handle, DWORD control, SERVICE_STATUS* status) {
  const ControlRow* const row = findRow(control);
  if (!row) return Give(ERROR_INVALID_PARAMETER);
  ObjectPointer service;
  if (const DWORD code = ObjectOfHandle(handle, false, row->right, service)) return Give(code);
  const DWORD code = sendControl(*service, control, *row);
  const bool tells = code == ERROR_SUCCESS || code == ERROR_INVALID_SERVICE_CONTROL ||
                     code == ERROR_SERVICE_CANNOT_ACCEPT_CTRL || code == ERROR_SERVICE_NOT_ACTIVE;
  if (status && tells) *status = StatusOf(*service);
  return Give(code);
}

}  // namespace qel::sys
