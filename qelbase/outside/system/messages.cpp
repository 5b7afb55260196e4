#include "qelbase/outside/system/messages.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

namespace {

using Text = std::shared_ptr<const std::wstring>;

class Queue;

struct Window {
  WindowProcedure procedure;
  std::shared_ptr<Queue> queue;  // of the thread that made the window
  bool gone = false;             // under the queue's lock
};

// One SendMessageW between threads. The sender waits on its own queue's condition.
struct Call {
  MSG message;
  std::shared_ptr<Queue> sender;
  LRESULT result = 0;
  bool refused = false;
  bool done = false;  // under the sender's lock
};

// What is waiting for one thread. Any thread appends, the owner takes.
class Queue {
 public:
  Queue() : m_thread(GetCurrentThreadId()) {}
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;
  ~Queue() {
    if (m_descriptor >= 0) ::close(m_descriptor);
  }

  DWORD thread() const { return m_thread; }

  DWORD Post(const MSG& message, const Window* window, Text text) {
    std::unique_lock lock(m_lock);
    if (m_closed || (window && window->gone)) return ERROR_INVALID_WINDOW_HANDLE;
    if (m_posted.size() >= kQueueLimit) return ERROR_NOT_ENOUGH_QUOTA;
    m_posted.push_back({message, std::move(text)});
    Signal(lock);
    return ERROR_SUCCESS;
  }

  bool PushCall(const std::shared_ptr<Call>& call, const Window& window) {
    std::unique_lock lock(m_lock);
    if (m_closed || window.gone) return false;
    m_calls.push_back(call);
    Signal(lock);
    return true;
  }

  void Finish(Call& call, LRESULT result, bool refused) {
    std::unique_lock lock(m_lock);
    call.result = result;
    call.refused = refused;
    call.done = true;
    lock.unlock();
    m_changed.notify_all();
  }

  void Quit(int exit_code) {
    std::unique_lock lock(m_lock);
    m_quit = true;
    m_exit_code = exit_code;
    Signal(lock);
  }

  // For the owner: the next call of another thread, or null.
  std::shared_ptr<Call> TakeCall() {
    std::lock_guard lock(m_lock);
    return TakeCallLocked();
  }

  // For the owner: waits until `call` is done (then gives null) or a call of another thread comes.
  std::shared_ptr<Call> AwaitAnswer(const Call& call) {
    std::unique_lock lock(m_lock);
    m_changed.wait(lock, [&] { return call.done || !m_calls.empty(); });
    return call.done ? nullptr : TakeCallLocked();
  }

  bool Take(MSG& message, HWND window, UINT first, UINT last, bool remove);
  void AwaitMessage(HWND window, UINT first, UINT last);
  void Forget(HWND handle, Window& window);
  void Close();
  int Descriptor();

  // The text of a message that the owner took and has not yet dispatched.
  Text TakenText(LPARAM second) const {
    const bool same = m_taken && m_taken->c_str() == reinterpret_cast<const wchar_t*>(second);
    return same ? m_taken : nullptr;
  }

 private:
  struct Posted {
    MSG message;
    Text text;
  };
  using Position = std::deque<Posted>::iterator;

  static bool Matches(const MSG& message, HWND window, UINT first, UINT last) {
    const bool any = first == 0 && last == 0;
    return (!window || message.hwnd == window) &&
           (any || (message.message >= first && message.message <= last));
  }

  Position Find(HWND window, UINT first, UINT last) {
    auto at = m_posted.begin();
    while (at != m_posted.end() && !Matches(at->message, window, first, last)) ++at;
    return at;
  }

  std::shared_ptr<Call> TakeCallLocked() {
    if (m_calls.empty()) return nullptr;
    auto call = std::move(m_calls.front());
    m_calls.pop_front();
    Settle();
    return call;
  }

  // Wakes the owner, in whichever way it waits: without the lock, which it takes first of all.
  void Signal(std::unique_lock<std::mutex>& lock) {
    MakeReadable();
    lock.unlock();
    m_changed.notify_all();
  }

  void MakeReadable() {
    if (m_descriptor < 0 || m_readable) return;
    const std::uint64_t one = 1;
    m_readable = ::write(m_descriptor, &one, sizeof one) == sizeof one;
  }

  // Makes the descriptor unreadable once nothing is left.
  void Settle() {
    if (!m_readable || m_quit || !m_posted.empty() || !m_calls.empty()) return;
    std::uint64_t count;
    m_readable = ::read(m_descriptor, &count, sizeof count) != sizeof count;
  }

  const DWORD m_thread;
  std::mutex m_lock;
  std::condition_variable m_changed;
  std::deque<Posted> m_posted;
  std::deque<std::shared_ptr<Call>> m_calls;
  Text m_taken;  // only the owner looks at it
  int m_descriptor = -1;
  bool m_readable = false;
  bool m_quit = false;
  bool m_closed = false;
  int m_exit_code = 0;
};

bool Queue::Take(MSG& message, HWND window, UINT first, UINT last, bool remove) {
  Text dropped;  // freed outside the lock
  std::lock_guard lock(m_lock);
  const auto at = Find(window, first, last);
  if (at != m_posted.end()) {
    message = at->message;
    if (!remove) return true;
    dropped = std::exchange(m_taken, std::move(at->text));
    m_posted.erase(at);
    Settle();
    return true;
  }
  if (!m_quit || !Matches({nullptr, WM_QUIT, 0, 0}, window, first, last)) return false;
  message = {nullptr, WM_QUIT, static_cast<WPARAM>(m_exit_code), 0};
  if (remove) m_quit = false;
  Settle();
  return true;
}

// A sender that is at work has more to say as a rule: it gets the processor once before the owner
// sleeps, since each sleep costs the sender a call of the system to end it.
void Queue::AwaitMessage(HWND window, UINT first, UINT last) {
  const auto has_come = [&] {
    return !m_calls.empty() || Find(window, first, last) != m_posted.end() ||
           (m_quit && Matches({nullptr, WM_QUIT, 0, 0}, window, first, last));
  };
  std::this_thread::yield();
  std::unique_lock lock(m_lock);
  m_changed.wait(lock, has_come);
}

void Queue::Forget(HWND handle, Window& window) {
  std::vector<Posted> dropped;
  std::vector<std::shared_ptr<Call>> refused;
  {
    std::lock_guard lock(m_lock);
    window.gone = true;
    std::erase_if(m_posted, [&](Posted& posted) {
      if (posted.message.hwnd != handle) return false;
      dropped.push_back(std::move(posted));
      return true;
    });
    std::erase_if(m_calls, [&](std::shared_ptr<Call>& call) {
      if (call->message.hwnd != handle) return false;
      refused.push_back(std::move(call));
      return true;
    });
    Settle();
  }
  for (const auto& call : refused) call->sender->Finish(*call, 0, true);
}

void Queue::Close() {
  std::deque<Posted> dropped;
  std::deque<std::shared_ptr<Call>> refused;
  {
    std::lock_guard lock(m_lock);
    m_closed = true;
    dropped.swap(m_posted);
    refused.swap(m_calls);
  }
  for (const auto& call : refused) call->sender->Finish(*call, 0, true);
}

int Queue::Descriptor() {
  std::lock_guard lock(m_lock);
  if (m_descriptor >= 0) return m_descriptor;
  m_descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (m_descriptor < 0) {
    SetLastError(ErrorFromErrno(errno));
    return -1;
  }
  if (m_quit || !m_posted.empty() || !m_calls.empty()) MakeReadable();
  return m_descriptor;
}

// All windows of the process. It outlives every thread and every static object.
class WindowTable {
 public:
  static WindowTable& Get() {
    static Lasting<WindowTable> table;
    return *table;
  }

  HWND Add(std::shared_ptr<Window> window) {
    std::unique_lock lock(m_lock);
    const auto handle = reinterpret_cast<HWND>(m_next += 4);
    m_windows.emplace(handle, std::move(window));
    return handle;
  }

  // Null, and the last error, if the window is gone.
  std::shared_ptr<Window> Find(HWND handle) const {
    {
      std::shared_lock lock(m_lock);
      const auto found = m_windows.find(handle);
      if (found != m_windows.end()) return found->second;
    }
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return nullptr;
  }

  void Remove(HWND handle) {
    std::unordered_map<HWND, std::shared_ptr<Window>>::node_type removed;
    std::unique_lock lock(m_lock);
    removed = m_windows.extract(handle);
    lock.unlock();
  }

  void RemoveAllOf(const Queue& queue) {
    std::vector<std::shared_ptr<Window>> removed;
    std::unique_lock lock(m_lock);
    std::erase_if(m_windows, [&](auto& entry) {
      if (entry.second->queue.get() != &queue) return false;
      removed.push_back(std::move(entry.second));
      return true;
    });
    lock.unlock();
  }

 private:
  mutable std::shared_mutex m_lock;
  std::unordered_map<HWND, std::shared_ptr<Window>> m_windows;
  std::uintptr_t m_next = 0x10000;
};

// The calling thread's queue. A pointer, as exit handlers may call when the main thread's own
// objects are gone; the queue that they get then stays.
constinit thread_local std::shared_ptr<Queue>* own_queue = nullptr;
constinit thread_local bool has_ended = false;

// The end of a queue is the end of its thread's windows.
struct ThreadEnd {
  ~ThreadEnd() {
    WindowTable::Get().RemoveAllOf(**own_queue);
    (*own_queue)->Close();
    delete std::exchange(own_queue, nullptr);
    has_ended = true;
  }
};

const std::shared_ptr<Queue>& OwnQueue() {
  if (!own_queue) own_queue = new std::shared_ptr<Queue>(std::make_shared<Queue>());
  if (!has_ended) thread_local const ThreadEnd end;
  return *own_queue;
}

bool IsOwn(const Window& window) {
  return window.queue->thread() == GetCurrentThreadId();
}

LRESULT Run(const Window& window, const MSG& message) {
  return window.procedure(message.hwnd, message.message, message.wParam, message.lParam);
}

// Runs what another thread sent to a window of this one, and answers.
void Answer(const std::shared_ptr<Call>& call) {
  const auto window = WindowTable::Get().Find(call->message.hwnd);
  const LRESULT result = window ? Run(*window, call->message) : 0;
  call->sender->Finish(*call, result, !window);
}

void AnswerAll(Queue& queue) {
  LastErrorKeeper keeper;
  while (const auto call = queue.TakeCall()) Answer(call);
}

LRESULT SendToOtherThread(const Window& window, const MSG& message) {
  const auto& own = OwnQueue();
  const auto call = std::make_shared<Call>(Call{message, own});
  if (!window.queue->PushCall(call, window)) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return 0;
  }
  while (const auto other = own->AwaitAnswer(*call)) Answer(other);
  if (call->refused) SetLastError(ERROR_INVALID_WINDOW_HANDLE);
  return call->result;
}

BOOL Post(const MSG& message, Text text) {
  std::shared_ptr<Window> window;
  if (message.hwnd) {
    window = WindowTable::Get().Find(message.hwnd);
    if (!window) return 0;
  }
  Queue& queue = window ? *window->queue : *OwnQueue();
  const DWORD error = queue.Post(message, window.get(), std::move(text));
  if (error != ERROR_SUCCESS) SetLastError(error);
  return error == ERROR_SUCCESS;
}

constinit thread_local DWORD own_thread = 0;

struct BoxHandler {
  std::mutex lock;
  MessageBoxHandler handler;
  static BoxHandler& Get() {
    static Lasting<BoxHandler> handler;
    return *handler;
  }
};

int TellOnStandardError(const wchar_t* text, const wchar_t* caption, UINT type) {
  const std::string line = Narrow(std::wstring(caption) + L": " + text + L"\n");
  std::fputs(line.c_str(), stderr);
  switch (type & 0xF) {
    case MB_OKCANCEL:
    case MB_YESNOCANCEL:
      return IDCANCEL;
    case MB_YESNO:
      return IDNO;
    default:
      return IDOK;
  }
}

}  // namespace

HWND CreateMessageWindow(WindowProcedure procedure) {
  return WindowTable::Get().Add(std::make_shared<Window>(Window{std::move(procedure), OwnQueue()}));
}

BOOL DestroyWindow(HWND window) {
  const auto found = WindowTable::Get().Find(window);
  if (!found) return 0;
  if (!IsOwn(*found)) {
    SetLastError(ERROR_ACCESS_DENIED);
    return 0;
  }
  WindowTable::Get().Remove(window);
  found->queue->Forget(window, *found);
  return 1;
}

BOOL IsWindow(HWND window) {
  LastErrorKeeper keeper;
  return WindowTable::Get().Find(window) != nullptr;
}

DWORD GetWindowThreadProcessId(HWND window, DWORD* process) {
  const auto found = WindowTable::Get().Find(window);
  if (!found) return 0;
  if (process) *process = static_cast<DWORD>(::getpid());
  return found->queue->thread();
}

DWORD GetCurrentThreadId() {
  if (own_thread != 0) return own_thread;
  // A forked child is another thread under the same address.
  static const int registered = ::pthread_atfork(nullptr, nullptr, [] { own_thread = 0; });
  static_cast<void>(registered);
  own_thread = static_cast<DWORD>(::gettid());
  return own_thread;
}

LRESULT SendMessageW(HWND window, UINT message, WPARAM first, LPARAM second) {
  const auto found = WindowTable::Get().Find(window);
  if (!found) return 0;
  const MSG sent{window, message, first, second};
  return IsOwn(*found) ? Run(*found, sent) : SendToOtherThread(*found, sent);
}

BOOL PostMessageW(HWND window, UINT message, WPARAM first, LPARAM second) {
  return Post({window, message, first, second}, nullptr);
}

BOOL PostTextMessageW(HWND window, UINT message, WPARAM first,
                      std::shared_ptr<const std::wstring> text) {
  const auto second = reinterpret_cast<LPARAM>(text ? text->c_str() : nullptr);
  return Post({window, message, first, second}, std::move(text));
}

BOOL PeekMessageW(MSG* message, HWND window, UINT first, UINT last, UINT flags) {
  Queue& queue = *OwnQueue();
  AnswerAll(queue);
  if (window && !WindowTable::Get().Find(window)) return 0;
  return queue.Take(*message, window, first, last, (flags & PM_REMOVE) != 0);
}

int GetMessageW(MSG* message, HWND window, UINT first, UINT last) {
  Queue& queue = *OwnQueue();
  for (;;) {
    AnswerAll(queue);
    if (window && !WindowTable::Get().Find(window)) return -1;
    if (queue.Take(*message, window, first, last, true)) return message->message != WM_QUIT;
    queue.AwaitMessage(window, first, last);
  }
}

LRESULT DispatchMessageW(const MSG* message) {
  if (!message->hwnd) return 0;
  const auto found = WindowTable::Get().Find(message->hwnd);
  if (!found) return 0;
  if (!IsOwn(*found)) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return 0;
  }
  const Text kept = found->queue->TakenText(message->lParam);
  return Run(*found, *message);
}

void PostQuitMessage(int exit_code) {
  OwnQueue()->Quit(exit_code);
}

int GetMessageQueueDescriptor() {
  return OwnQueue()->Descriptor();
}

int MessageBoxW(HWND owner, const wchar_t* text, const wchar_t* caption, UINT type) {
  if (!text) text = L"";
  if (!caption) caption = L"";
  MessageBoxHandler handler;
  {
    auto& current = BoxHandler::Get();
    std::lock_guard lock(current.lock);
    handler = current.handler;
  }
  return handler ? handler(owner, text, caption, type) : TellOnStandardError(text, caption, type);
}

MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler) {
  auto& current = BoxHandler::Get();
  std::lock_guard lock(current.lock);
  return std::exchange(current.handler, std::move(handler));
}

}  // namespace qel::sys
