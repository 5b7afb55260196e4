#include "terminal/ProgressDisplay.h"

#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "qelbase/outside/system/messages.h"
#include "qelbase/progress/MProgress.h"

#include "terminal/progress_view.h"

namespace qel::terminal {

namespace {

constexpr std::pair<std::string_view, Mode> kModes[] = {{"auto", Mode::automatic},
                                                        {"bars", Mode::bars},
                                                        {"lines", Mode::lines},
                                                        {"json", Mode::json},
                                                        {"none", Mode::off}};
constexpr std::size_t kLevels = 16;
constexpr int kTickMilliseconds = 100;

std::atomic<int> width_descriptor{2};

int Columns() {
  winsize size{};
  const bool known = ::ioctl(width_descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : 80;
}

std::unique_ptr<View> MakeView(Mode mode, int descriptor) {
  if (mode == Mode::automatic) mode = ::isatty(descriptor) == 1 ? Mode::bars : Mode::lines;
  width_descriptor = descriptor;
  switch (mode) {
    case Mode::bars:
      return MakeBars(Columns);
    case Mode::json:
      return MakeJsonLines();
    default:
      return MakeLines();
  }
}

// What can't be written is not shown; the operation goes on.
void WriteAll(int descriptor, const std::string& bytes) {
  std::size_t written = 0;
  while (written < bytes.size()) {
    const auto count = ::write(descriptor, bytes.data() + written, bytes.size() - written);
    if (count < 0 && errno != EINTR) return;
    if (count > 0) written += static_cast<std::size_t>(count);
  }
}

extern "C" void OnInterrupt(int) {
  MProgressManager::SetAbortFlag(true);
}

}  // namespace

bool ParseMode(std::string_view name, Mode& mode) {
  for (const auto& [known, value] : kModes) {
    if (name != known) continue;
    mode = value;
    return true;
  }
  return false;
}

// Turns the first Ctrl-C into the abort flag, unless Ctrl-C is ignored.
class ProgressDisplay::Interrupt {
 public:
  Interrupt() {
    MProgressManager::ResetAbortFlag();  // the manager exists before a signal can come
    struct sigaction action {};
    action.sa_handler = OnInterrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    ::sigaction(SIGINT, nullptr, &m_before);
    if (m_before.sa_handler != SIG_IGN) ::sigaction(SIGINT, &action, nullptr);
  }
  ~Interrupt() { ::sigaction(SIGINT, &m_before, nullptr); }
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

 private:
  struct sigaction m_before {};
};

// The windows of all levels, with the thread that owns and pumps them.
class ProgressDisplay::Windows {
 public:
  Windows(Mode mode, int descriptor)
      : m_descriptor(descriptor), m_view(MakeView(mode, descriptor)), m_thread([this] { Run(); }) {
    m_ready.wait(false);
    MProgressManager::ResetUITargets();
    for (HWND window : m_windows) MProgressManager::AttachUITarget(window);
    MProgressManager::SetProcessOnlyCurrentThreadWindows(false);
  }

  ~Windows() {
    MProgressManager::SetProcessOnlyCurrentThreadWindows(true);
    MProgressManager::ResetUITargets();
    m_stop = true;
    // Behind all that was reported. A full queue is emptied by the tick.
    sys::PostMessageW(m_windows.front(), sys::WM_QUIT, 0, 0);
    m_thread.join();
  }

  Windows(const Windows&) = delete;
  Windows& operator=(const Windows&) = delete;

 private:
  LRESULT Handle(UINT message, WPARAM level, LPARAM value) {
    const auto now = Clock::now();
    switch (message) {
      case MProgressMessage::kBegin:
        m_view->Begin(level, now);
        break;
      case MProgressMessage::kPercent:
        m_view->Percent(level, static_cast<long>(value), now);
        break;
      case MProgressMessage::kEnd:
        m_view->End(level, now);
        break;
      case MProgressMessage::kText:
        m_view->Text(level, reinterpret_cast<const wchar_t*>(value), now);
        break;
      default:
        break;
    }
    return 0;
  }

  void Run() {
    for (std::size_t i = 0; i < kLevels; ++i) {
      m_windows.push_back(
          sys::CreateMessageWindow([this](HWND, UINT message, WPARAM level, LPARAM value) {
            return Handle(message, level, value);
          }));
    }
    pollfd queue{sys::GetMessageQueueDescriptor(), POLLIN, 0};
    m_ready = true;
    m_ready.notify_all();
    bool stopped = false;
    while (!stopped) {
      const bool idle = ::poll(&queue, 1, kTickMilliseconds) == 0;
      stopped = !HandleAll() || (idle && m_stop);
      m_view->Tick(Clock::now());
      if (stopped) m_view->Close();
      WriteAll(m_descriptor, m_view->Take());
    }
  }

  // False once the end has been told.
  bool HandleAll() {
    sys::MSG message;
    while (sys::PeekMessageW(&message, nullptr, 0, 0, sys::PM_REMOVE)) {
      if (message.message == sys::WM_QUIT) return false;
      sys::DispatchMessageW(&message);
    }
    return true;
  }

  const int m_descriptor;
  std::unique_ptr<View> m_view;
  std::vector<HWND> m_windows;  // written by the thread before m_ready
  std::atomic<bool> m_ready{false};
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

ProgressDisplay::ProgressDisplay(Mode mode, int descriptor)
    : m_interrupt(std::make_unique<Interrupt>()) {
  if (mode != Mode::off) m_windows = std::make_unique<Windows>(mode, descriptor);
}

ProgressDisplay::~ProgressDisplay() = default;

}  // namespace qel::terminal
