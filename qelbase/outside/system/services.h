#pragma once
// Services: programs that run by themselves, and their manager.
//
// A service is a record in the registry, at System\CurrentControlSet\Services\NAME of the local
// machine. Starting it runs its program in a session of its own, with nothing of the starting
// program but the environment; it outlives that program. Names are found without regard to case.
//
// There is no manager process. What runs is told in one file a service, in the folder that
// docs/formats/service-status.md names: the processes of one user on one machine see the same
// services run, and whatever dies, service or manager, leaves nothing that has to be cleared away.
// A service whose process has died is seen as stopped, with the exit code 1067.
//
// All calls but the dispatcher's are safe on any thread. They give 1, a handle or a status on
// success and leave the last error alone; 0 or null with the last error on failure. A handle that
// is not open gives 6, a missing access right 5, among the codes of any call.

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// --- constants ---

// Rights of a manager handle.
inline constexpr DWORD SC_MANAGER_CONNECT = 0x1;
inline constexpr DWORD SC_MANAGER_CREATE_SERVICE = 0x2;
inline constexpr DWORD SC_MANAGER_ENUMERATE_SERVICE = 0x4;
inline constexpr DWORD SC_MANAGER_ALL_ACCESS = 0xF003F;

// Rights of a service handle. The generic masks (handles.h) are mapped: reading is configuration,
// status, interrogation and dependants; neither starting nor stopping.
inline constexpr DWORD SERVICE_QUERY_CONFIG = 0x1;
inline constexpr DWORD SERVICE_CHANGE_CONFIG = 0x2;
inline constexpr DWORD SERVICE_QUERY_STATUS = 0x4;
inline constexpr DWORD SERVICE_ENUMERATE_DEPENDENTS = 0x8;
inline constexpr DWORD SERVICE_START = 0x10;
inline constexpr DWORD SERVICE_STOP = 0x20;
inline constexpr DWORD SERVICE_PAUSE_CONTINUE = 0x40;
inline constexpr DWORD SERVICE_INTERROGATE = 0x80;
inline constexpr DWORD SERVICE_USER_DEFINED_CONTROL = 0x100;
inline constexpr DWORD SERVICE_ALL_ACCESS = 0xF01FF;

inline constexpr DWORD SERVICE_WIN32_OWN_PROCESS = 0x10;
inline constexpr DWORD SERVICE_INTERACTIVE_PROCESS = 0x100;

inline constexpr DWORD SERVICE_AUTO_START = 2;    // with the machine, see docs/guides/services.md
inline constexpr DWORD SERVICE_DEMAND_START = 3;  //
inline constexpr DWORD SERVICE_DISABLED = 4;

inline constexpr DWORD SERVICE_ERROR_NORMAL = 1;
inline constexpr DWORD SERVICE_CONFIG_DESCRIPTION = 1;  // an information level

inline constexpr DWORD SERVICE_STOPPED = 1;
inline constexpr DWORD SERVICE_START_PENDING = 2;
inline constexpr DWORD SERVICE_STOP_PENDING = 3;
inline constexpr DWORD SERVICE_RUNNING = 4;
inline constexpr DWORD SERVICE_CONTINUE_PENDING = 5;
inline constexpr DWORD SERVICE_PAUSE_PENDING = 6;
inline constexpr DWORD SERVICE_PAUSED = 7;

inline constexpr DWORD SERVICE_CONTROL_STOP = 1;
inline constexpr DWORD SERVICE_CONTROL_PAUSE = 2;
inline constexpr DWORD SERVICE_CONTROL_CONTINUE = 3;
inline constexpr DWORD SERVICE_CONTROL_INTERROGATE = 4;
inline constexpr DWORD SERVICE_CONTROL_PARAMCHANGE = 6;

inline constexpr DWORD SERVICE_ACCEPT_STOP = 0x1;
inline constexpr DWORD SERVICE_ACCEPT_PAUSE_CONTINUE = 0x2;
inline constexpr DWORD SERVICE_ACCEPT_SHUTDOWN = 0x4;
inline constexpr DWORD SERVICE_ACCEPT_PARAMCHANGE = 0x8;

struct SERVICE_STATUS {
  DWORD dwServiceType;
  DWORD dwCurrentState;
  DWORD dwControlsAccepted;
  DWORD dwWin32ExitCode;
  DWORD dwServiceSpecificExitCode;
  DWORD dwCheckPoint;
  DWORD dwWaitHint;  // milliseconds
};

struct SERVICE_DESCRIPTIONW {
  const wchar_t* lpDescription;  // null leaves the description, an empty one takes it away
};

// --- the manager's side ---

// `machine` is null, empty, or this machine's name (1722); `database` null or "ServicesActive"
// (1065). The right to connect is always there. 5 for the right to create on a registry that is
// read-only.
[[nodiscard]] QELBASE_API SC_HANDLE OpenSCManagerW(const wchar_t* machine, const wchar_t* database,
                                                   DWORD access);

// 1060 if there is no such service, 123 for a name that is empty, longer than 255 characters, or
// has a slash. 5 for the right to change or delete on a registry that is read-only. Deletes what
// waits for nothing but its deletion.
[[nodiscard]] QELBASE_API SC_HANDLE OpenServiceW(SC_HANDLE manager, const wchar_t* name,
                                                 DWORD access);

// Records a service; nothing is started. The display name is the name where it is null, and is
// taken (1078) if another service has it as either. `type` is a process of its own, with or without
// the interactive bit, which has no effect. `path` is a command line: a program's path, in
// quotation marks if it has blanks, and arguments; not looked at here. `dependencies` is a list of
// services, each ended by a zero and the list by a second one. There are no groups, tags and
// accounts: `group`, `account` and `password` are null or empty (1057 for an account other than
// "LocalSystem"), `tag` is null. 1073 if the name is taken, 1072 by a service that is marked for
// deletion; 1059 for a dependency on itself.
[[nodiscard]] QELBASE_API SC_HANDLE CreateServiceW(
    SC_HANDLE manager, const wchar_t* name, const wchar_t* display_name, DWORD access, DWORD type,
    DWORD start_type, DWORD error_control, const wchar_t* path, const wchar_t* group, DWORD* tag,
    const wchar_t* dependencies, const wchar_t* account, const wchar_t* password);

// Level 1: `info` is a SERVICE_DESCRIPTIONW; null changes nothing. 124 for another level.
QELBASE_API BOOL ChangeServiceConfig2W(SC_HANDLE service, DWORD level, const void* info);

// Runs the program, and returns as soon as it has called its dispatcher; the state then is 2 until
// the service reports. Services that it depends on are started first and waited for. The arguments
// are handed to the service's main function behind its name. 1056 if it isn't stopped, 3 for a
// program that does not exist, 5 for one that may not be run, 193 for one that cannot be, 1058 if
// disabled, 1072 if marked for deletion; 1053 if the program ends, or 30 seconds pass (it is then
// killed), without a call of the dispatcher; 1075 if a dependency does not exist, 1068 if one does
// not come to run, 1059 if they go in a circle.
QELBASE_API BOOL StartServiceW(SC_HANDLE service, DWORD count, const wchar_t** arguments);

// Has the service's handler run, and returns when it did, at most 30 seconds later (1053). The
// codes 2, 3 and 6 to 10 need the right 0x40, 128 to 255 the right 0x100; 5, and any other, are 87.
// 1062 if it is stopped, 1061 if it is starting or stopping, 1052 if it does not accept the code,
// 1051 for a stop while a service that depends on it runs; what an extended handler gives. `status`
// may be null; it is filled for success and the first three.
QELBASE_API BOOL ControlService(SC_HANDLE service, DWORD control, SERVICE_STATUS* status);

// Costs a look into shared memory and one at the process, so that it may be polled.
QELBASE_API BOOL QueryServiceStatus(SC_HANDLE service, SERVICE_STATUS* status);

// Marks the service for deletion (1072 if it is). It goes when it is stopped and the last handle to
// it, of any process, is closed or has died; where nobody closes one after that, when its name is
// next asked for.
QELBASE_API BOOL DeleteService(SC_HANDLE service);

QELBASE_API BOOL CloseServiceHandle(SC_HANDLE handle);

// --- the service's side ---

using ServiceMain = void (*)(DWORD count, wchar_t** arguments);
using ServiceHandler = void (*)(DWORD control);
using ServiceHandlerEx = DWORD (*)(DWORD control, DWORD event_type, void* event_data,
                                   void* context);

struct SERVICE_TABLE_ENTRYW {
  const wchar_t* lpServiceName;  // not looked at: the process is one service's
  ServiceMain lpServiceProc;
};

// Makes the calling process the service that it was started as: runs the table's first function on
// a thread that the call makes for it, and the handler on the calling one, until the service has
// reported that it stopped; then returns, and the program is to end. 1063 if the process was not
// started as a service, 1056 for a second call, 13 for a table without a function.
QELBASE_API BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table);

// Sets the handler of this process's service. The handle stays valid as long as the process, and
// isn't closed. 87 without a handler, 1083 outside of a dispatcher's call. An extended handler's
// result, 0 for success, is that of ControlService.
[[nodiscard]] QELBASE_API SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(const wchar_t* name,
                                                                            ServiceHandler handler);
[[nodiscard]] QELBASE_API SERVICE_STATUS_HANDLE
RegisterServiceCtrlHandlerExW(const wchar_t* name, ServiceHandlerEx handler, void* context);

// Reports the service's state to everybody. 13 for a state, type or control bit that does not
// exist. A stopped service stays stopped: 6 from then on.
QELBASE_API BOOL SetServiceStatus(SERVICE_STATUS_HANDLE service, const SERVICE_STATUS* status);

}  // namespace qel::sys
