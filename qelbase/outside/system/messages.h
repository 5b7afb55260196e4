#pragma once
// Windows as message targets, one message queue a thread, and a descriptor of that queue for the
// event loop of any toolkit.

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

inline constexpr UINT WM_QUIT = 0x12;
inline constexpr UINT PM_NOREMOVE = 0;
inline constexpr UINT PM_REMOVE = 1;

// Messages that a queue takes before it refuses more.
inline constexpr std::size_t kQueueLimit = 10000;

struct MSG {
  HWND hwnd;  // null: a message to the thread itself
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
};

// Runs on the thread that made the window, with no lock held: it may call anything here, and may
// destroy its own window. It must not throw.
using WindowProcedure = std::function<LRESULT(HWND, UINT message, WPARAM, LPARAM)>;

// Makes a window of the calling thread; nothing is shown. The window lives until DestroyWindow, or
// until its thread ends. Handles are never used twice.
[[nodiscard]] QELBASE_API HWND CreateMessageWindow(WindowProcedure procedure);

// 0 and 1400 for a window that is gone, 5 for another thread's. What was posted to the window goes
// with it; who waits in SendMessageW for it gets 0.
QELBASE_API BOOL DestroyWindow(HWND window);

[[nodiscard]] QELBASE_API BOOL IsWindow(HWND window);

// The thread that owns the window, as GetCurrentThreadId gives it there; 0 and 1400 for a window
// that is gone. `process`, if not null, gets the process.
QELBASE_API DWORD GetWindowThreadProcessId(HWND window, DWORD* process);

// The kernel's number of the calling thread. The kernel may give it again once the thread has
// ended.
[[nodiscard]] QELBASE_API DWORD GetCurrentThreadId();

// Runs the window's procedure and gives its result: at once for a window of the calling thread,
// otherwise when the owner next takes messages. Who waits handles what is sent to it meanwhile.
// 0 and 1400 if the window is gone, before or during the wait.
QELBASE_API LRESULT SendMessageW(HWND window, UINT message, WPARAM first, LPARAM second);

// Appends to the queue of the window's thread, or of the calling thread if `window` is null.
// 0 and 1400 if the window is gone, 1816 if the queue is full.
QELBASE_API BOOL PostMessageW(HWND window, UINT message, WPARAM first, LPARAM second);

// As PostMessageW, with the address of the zero-terminated text as second word. The text lives
// until DispatchMessageW has returned for this message, or, when it isn't dispatched, until its
// thread takes the next message.
QELBASE_API BOOL PostTextMessageW(HWND window, UINT message, WPARAM first,
                                  std::shared_ptr<const std::wstring> text);

// Lets what other threads sent to windows of this thread run, then gives the oldest posted message
// for `window` (null: any) between `first` and `last` (both 0: any). PM_NOREMOVE leaves it in the
// queue. 0 if there is none; also 1400 if `window` is gone. WM_QUIT comes after all others.
QELBASE_API BOOL PeekMessageW(MSG* message, HWND window, UINT first, UINT last, UINT flags);

// As PeekMessageW with PM_REMOVE, but waits for a message. 0 for WM_QUIT, -1 (and 1400) if `window`
// is gone, otherwise 1.
QELBASE_API int GetMessageW(MSG* message, HWND window, UINT first, UINT last);

// Calls the window's procedure with the message and gives its result. 0 if the message has no
// window; 0 and 1400 if the window is gone or another thread's.
QELBASE_API LRESULT DispatchMessageW(const MSG* message);

// Ends the calling thread's loop: its GetMessageW gives WM_QUIT once nothing else is waiting.
QELBASE_API void PostQuitMessage(int exit_code);

// A descriptor that is readable as long as the calling thread's queue holds anything, for poll,
// epoll or a toolkit's loop; when it is, call PeekMessageW with PM_REMOVE until it gives 0. It
// belongs to the queue: never read it, never close it. -1 and the last error if the system has none
// left.
[[nodiscard]] QELBASE_API int GetMessageQueueDescriptor();

// The types and answers of a message box.
inline constexpr UINT MB_OK = 0;
inline constexpr UINT MB_OKCANCEL = 1;
inline constexpr UINT MB_YESNOCANCEL = 3;
inline constexpr UINT MB_YESNO = 4;
inline constexpr int IDOK = 1;
inline constexpr int IDCANCEL = 2;
inline constexpr int IDYES = 6;
inline constexpr int IDNO = 7;

using MessageBoxHandler =
    std::function<int(HWND owner, const wchar_t* text, const wchar_t* caption, UINT type)>;

// Hands the question to the handler in force, on the calling thread, and gives its answer. Without
// a handler the texts go to standard error, and the answer is the one that changes nothing: cancel
// or no where there is one, else ok. Null texts count as empty.
QELBASE_API int MessageBoxW(HWND owner, const wchar_t* text, const wchar_t* caption, UINT type);

// For the whole process; an empty handler brings the default back. Returns the one before. Safe on
// any thread.
QELBASE_API MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler);

}  // namespace qel::sys
