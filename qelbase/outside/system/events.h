#pragma once
// Events: something that happened, for threads and event loops to wait for.

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD INFINITE = 0xFFFFFFFF;

// A new event of this process. `manual_reset` 0: each signal lets one waiter through; else all,
// until ResetEvent. Null and 4 when the process has no descriptor left.
[[nodiscard]] QELBASE_API HANDLE CreateEventW(BOOL manual_reset, BOOL signalled);

// 1, or 0 and 6 for a handle that is no event. Safe on any thread.
QELBASE_API BOOL SetEvent(HANDLE event);
QELBASE_API BOOL ResetEvent(HANDLE event);
QELBASE_API BOOL CloseEvent(HANDLE event);

// Waits for a signal, at most that many milliseconds: WAIT_OBJECT_0, WAIT_TIMEOUT, or WAIT_FAILED
// and 6 for a handle that is no event.
QELBASE_API DWORD WaitForSingleObject(HANDLE event, DWORD milliseconds);

// A descriptor that is readable while the event is signalled, for the event loop of any toolkit; it
// stays the event's, and nothing is to be read from it. -1 and 6 for a handle that is no event.
[[nodiscard]] QELBASE_API int EventDescriptor(HANDLE event);

}  // namespace qel::sys
