#pragma once
// A front-end for tests: one window a level, and what reached them, in order.
#include <string>
#include <tuple>
#include <vector>

#include "qelbase/outside/system/messages.h"
#include "qelbase/progress/MProgress.h"

namespace qeltest {

// Message, level and second word; a text message has the text in place of the word.
struct Told {
  UINT message;
  WPARAM level;
  LPARAM value = 0;
  std::wstring text = {};
  bool operator==(const Told&) const = default;
};

inline Told begun(WPARAM level) {
  return {2024, level};
}
inline Told percent(WPARAM level, LPARAM value) {
  return {2025, level, value};
}
inline Told ended(WPARAM level) {
  return {2026, level};
}
inline Told text(WPARAM level, std::wstring text) {
  return {2027, level, 0, std::move(text)};
}

inline std::ostream& operator<<(std::ostream& out, const Told& told) {
  out << told.message << '@' << told.level << ':' << told.value << ' ';
  for (wchar_t c : told.text) out << static_cast<char>(c);
  return out;
}

class FrontEnd {
 public:
  explicit FrontEnd(int levels = 3) {
    for (int i = 0; i < levels; ++i) {
      m_windows.push_back(qel::sys::CreateMessageWindow(
          [this](HWND, UINT message, WPARAM level, LPARAM value) -> LRESULT {
            note(message, level, value);
            return 0;
          }));
      MProgress::AttachUITarget(0, m_windows.back());
    }
  }
  ~FrontEnd() {
    MProgressManager::ResetUITargets();
    MProgressManager::ResetAbortFlag();
    MProgressManager::SetProcessOnlyCurrentThreadWindows(true);
    for (HWND window : m_windows) qel::sys::DestroyWindow(window);
  }
  FrontEnd(const FrontEnd&) = delete;
  FrontEnd& operator=(const FrontEnd&) = delete;

  // What came since the last call.
  std::vector<Told> take() { return std::exchange(m_told, {}); }
  std::vector<LPARAM> takePercents() {
    std::vector<LPARAM> figures;
    for (const Told& told : take()) {
      if (told.message == 2025) figures.push_back(told.value);
    }
    return figures;
  }
  std::vector<Told> pump() {
    qel::sys::MSG message;
    while (qel::sys::PeekMessageW(&message, nullptr, 0, 0, qel::sys::PM_REMOVE)) {
      qel::sys::DispatchMessageW(&message);
    }
    return take();
  }

 private:
  void note(UINT message, WPARAM level, LPARAM value) {
    if (message == 2027) {
      m_told.push_back({message, level, 0, reinterpret_cast<const wchar_t*>(value)});
    } else {
      m_told.push_back({message, level, value});
    }
  }

  std::vector<HWND> m_windows;
  std::vector<Told> m_told;
};

}  // namespace qeltest
