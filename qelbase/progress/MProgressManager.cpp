#include <algorithm>
#include <iterator>
#include <memory>
#include <mutex>
#include <utility>

#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/messages.h"
#include "qelbase/progress/MProgress.h"

namespace sys = qel::sys;

namespace {

// Scopes that a thread is on its way to, without the class lock and perhaps not yet with theirs. A
// scope waits for its last pin before it goes or begins anew. Under the class lock, but for the
// count of changes that is waited on.
struct Pins {
  std::vector<const MProgress*> scopes;
  std::atomic<std::uint32_t> changes{0};

  static Pins& Get() {
    static qel::sys::Lasting<Pins> pins;
    return *pins;
  }
  bool Has(const MProgress* scope) const {
    return std::find(scopes.begin(), scopes.end(), scope) != scopes.end();
  }
};

}  // namespace

// Keeps a scope from being destroyed. Set under the class lock.
class MProgressManager::Pin {
 public:
  Pin() = default;
  Pin(const Pin&) = delete;
  Pin& operator=(const Pin&) = delete;
  ~Pin() {
    if (!m_scope) return;
    auto& pins = Pins::Get();
    {
      const std::lock_guard lock(ClassLock());
      pins.scopes.erase(std::find(pins.scopes.begin(), pins.scopes.end(), m_scope));
      pins.changes.fetch_add(1, std::memory_order_release);
    }
    pins.changes.notify_all();
  }

  void Set(MProgress* scope) {
    Pins::Get().scopes.push_back(scope);
    m_scope = scope;
  }
  MProgress* scope() const { return m_scope; }

 private:
  MProgress* m_scope = nullptr;
};

// Never destroyed: scopes among the static objects of a program may outlive all others.
constinit std::atomic<MProgressManager*> MProgressManager::s_instance = nullptr;

MProgressManager& MProgressManager::MakeInstance() {
  static qel::sys::Lasting<MProgressManager> instance;
  s_instance.store(&*instance, std::memory_order_release);
  return *instance;
}

MProgressManager::MProgressManager(const MProgressManager& other)
    : GlobalLocking(other),
      m_abort(other.m_abort.load()),
      m_scopes(other.m_scopes),
      m_targets(other.m_targets),
      m_sink(other.m_sink.load()),
      m_progress_pointers(other.m_progress_pointers),
      m_only_current_thread(other.m_only_current_thread.load()) {}

MProgressManager& MProgressManager::operator=(const MProgressManager& other) {
  if (this == &other) return *this;
  m_abort = other.m_abort.load();
  m_scopes = other.m_scopes;
  m_targets = other.m_targets;
  m_sink = other.m_sink.load();
  m_progress_pointers = other.m_progress_pointers;
  m_only_current_thread = other.m_only_current_thread.load();
  return *this;
}

// --- The list ----------------------------------------------------------------------------------

bool MProgressManager::IsListed(const MProgress* progress) const {
  const auto lock = LockClass();
  return std::find(m_scopes.begin(), m_scopes.end(), progress) != m_scopes.end();
}

bool MProgressManager::PinEntryBefore(const MProgress* progress, Pin& pin) const {
  const auto lock = LockClass();
  const auto found = std::find(m_scopes.begin(), m_scopes.end(), progress);
  if (found == m_scopes.end() || found == m_scopes.begin()) return false;
  pin.Set(*std::prev(found));
  return true;
}

void MProgressManager::AwaitUnpinned(const MProgress* progress) {
  auto& pins = Pins::Get();
  for (;;) {
    std::uint32_t changes;
    {
      const std::lock_guard lock(ClassLock());
      if (!pins.Has(progress)) return;
      changes = pins.changes.load(std::memory_order_acquire);
    }
    pins.changes.wait(changes, std::memory_order_acquire);
  }
}

void MProgressManager::Forget(const MProgress* progress) {
  {
    const std::lock_guard lock(ClassLock());
    std::erase(m_scopes, progress);
  }
  AwaitUnpinned(progress);
}

std::size_t MProgressManager::_Begin(MProgress* progress) {
  if (!progress) return kNoLevel;
  const auto scope_lock = progress->LockThis();
  std::size_t level;
  {
    const auto lock = LockClass();
    const auto found = std::find(m_scopes.begin(), m_scopes.end(), progress);
    if (found != m_scopes.end()) {
      const auto place = static_cast<std::size_t>(std::distance(m_scopes.begin(), found));
      return progress->m_level != kNoLevel ? progress->m_level : place;
    }
    m_scopes.push_back(progress);
    level = m_scopes.size() - 1;
  }
  SendText({level, progress->m_text});
  if (const HWND target = TargetOf(level)) {
    _MProgressSendMessage(target, MProgressMessage::kBegin, level, 0);
  }
  return level;
}

// The pin is given back before the text goes out: a window procedure may then end the entry before.
std::size_t MProgressManager::_End(MProgress* progress) {
  if (!progress) return kNoLevel;
  const auto scope_lock = progress->LockThis();
  if (!IsListed(progress)) return kNoLevel;
  if (const HWND target = TargetOf(progress->m_level)) {
    _MProgressSendMessage(target, MProgressMessage::kEnd, progress->m_level, 0);
  }
  Shown before;
  {
    Pin pin;
    if (PinEntryBefore(progress, pin)) before = ShownBy(*pin.scope());
  }
  SendText(before);
  const auto lock = LockClass();
  std::erase(m_scopes, progress);
  return kNoLevel;
}

// --- What goes out -----------------------------------------------------------------------------

void MProgressManager::_SetText(MProgress* progress) {
  _NotifySink();
  if (progress) SendText(ShownBy(*progress));
}

MProgressManager::Shown MProgressManager::ShownBy(const MProgress& progress) {
  const auto scope_lock = progress.LockThis();
  return {progress.m_level, progress.m_text};
}

void MProgressManager::_SendMessageUpdate(long percent, MProgress* progress) {
  if (!progress) return;
  const auto scope_lock = progress->LockThis();
  if (const HWND target = TargetOf(progress->m_level)) {
    _MProgressSendMessage(target, MProgressMessage::kPercent, progress->m_level,
                          static_cast<std::int32_t>(percent));
  }
  Pin before;
  if (!PinEntryBefore(progress, before)) return;
  MProgress* const parent = before.scope();
  if (!parent->m_adjust.load(std::memory_order_relaxed)) return;
  const auto parent_lock = parent->LockThis();
  const bool has_ended = parent->m_level == kNoLevel;
  if (!has_ended) parent->_SendMessageUpdate(parent->FigureFromChild(percent));
}

void MProgressManager::_IncrementLast(double amount) {
  Pin last;
  {
    const auto lock = LockClass();
    if (m_scopes.empty()) return;
    last.Set(m_scopes.back());
  }
  last.scope()->Increment(amount);
}

HWND MProgressManager::TargetOf(std::size_t level) const {
  const auto lock = LockClass();
  return level < m_targets.size() ? m_targets[level] : nullptr;
}

void MProgressManager::SendText(const Shown& shown) const {
  const HWND window = TargetOf(shown.level);
  if (!window) return;
  const auto copy = std::make_shared<const std::wstring>(shown.text.c_str());
  if (sys::GetWindowThreadProcessId(window, nullptr) == sys::GetCurrentThreadId()) {
    sys::SendMessageW(window, MProgressMessage::kText, shown.level,
                      reinterpret_cast<LPARAM>(copy->c_str()));
  } else if (!m_only_current_thread.load(std::memory_order_relaxed)) {
    sys::PostTextMessageW(window, MProgressMessage::kText, shown.level, copy);
  }
}

void MProgressManager::_MProgressSendMessage(HWND window, unsigned int message, std::uint64_t first,
                                             std::int64_t second) const {
  if (sys::GetWindowThreadProcessId(window, nullptr) == sys::GetCurrentThreadId()) {
    sys::SendMessageW(window, message, first, second);
  } else if (!m_only_current_thread.load(std::memory_order_relaxed)) {
    sys::PostMessageW(window, message, first, second);
  }
}

// --- The front-end's side ----------------------------------------------------------------------

void MProgressManager::_AttachUITarget(HWND window) {
  const auto lock = LockClass();
  m_targets.push_back(window);
}

void MProgressManager::_ResetUITargets() {
  const auto lock = LockClass();
  m_targets.clear();
}

void MProgressManager::_EnableAbortButton(bool enable) {
  if (const HWND target = TargetOf(0)) {
    _MProgressSendMessage(target, MProgressMessage::kAbortButton, 0, enable);
  }
}

void MProgressManager::_SetProcessOnlyCurrentThreadWindows(bool only) {
  m_only_current_thread.store(only, std::memory_order_relaxed);
}

std::size_t MProgressManager::vector_facade::size() const {
  const auto lock = LockClass();
  return m_manager->m_progress_pointers.size();
}

MProgress* MProgressManager::vector_facade::back() const {
  const auto lock = LockClass();
  const auto& pointers = m_manager->m_progress_pointers;
  return pointers.empty() ? nullptr : pointers.back();
}

void MProgressManager::vector_facade::pop_back() {
  const auto lock = LockClass();
  if (!m_manager->m_progress_pointers.empty()) m_manager->m_progress_pointers.pop_back();
}

void MProgressManager::vector_facade::push_back(MProgress* progress) {
  const auto lock = LockClass();
  m_manager->m_progress_pointers.push_back(progress);
}

// --- Forwarders --------------------------------------------------------------------------------

void MProgressManager::SetAbortFlag(bool abort) {
  Instance()._SetAbortFlag(abort);
}
bool MProgressManager::GetAbortFlag() {
  return Instance()._GetAbortFlag();
}
void MProgressManager::ResetAbortFlag() {
  Instance()._ResetAbortFlag();
}
void MProgressManager::AttachUITarget(HWND window) {
  Instance()._AttachUITarget(window);
}
void MProgressManager::ResetUITargets() {
  Instance()._ResetUITargets();
}
void MProgressManager::EnableAbortButton(bool enable) {
  Instance()._EnableAbortButton(enable);
}
void MProgressManager::SetProcessOnlyCurrentThreadWindows(bool only) {
  Instance()._SetProcessOnlyCurrentThreadWindows(only);
}
void MProgressManager::SetSink(IProgressSink* sink) {
  Instance()._SetSink(sink);
}
void MProgressManager::NotifySink() {
  Instance()._NotifySink();
}
void MProgressManager::IncrementLast(double amount) {
  Instance()._IncrementLast(amount);
}
MProgressManager::vector_facade MProgressManager::GetProgressPointers() {
  return {&Instance()};
}
MProgress* MProgressManager::back() {
  return GetProgressPointers().back();
}
void MProgressManager::pop_back() {
  GetProgressPointers().pop_back();
}
void MProgressManager::push_back(MProgress* progress) {
  GetProgressPointers().push_back(progress);
}
std::size_t MProgressManager::Begin(MProgress* progress) {
  return Instance()._Begin(progress);
}
std::size_t MProgressManager::End(MProgress* progress) {
  return Instance()._End(progress);
}
void MProgressManager::SetText(MProgress* progress) {
  Instance()._SetText(progress);
}
void MProgressManager::SendMessageUpdate(long percent, MProgress* progress) {
  Instance()._SendMessageUpdate(percent, progress);
}
