#pragma once
// Nested progress scopes, and the process-wide stack of those that have begun, which drives the
// front-end's windows.

#include <atomic>
#include <cstddef>
#include <limits>
#include <list>
#include <string>
#include <vector>

#include "qelbase/export.h"
#include "qelbase/outside/components/locking.h"
#include "qelbase/outside/system/types.h"

class MProgress;

// The messages that go to the window of a scope's level. The first word is the level.
namespace MProgressMessage {
inline constexpr UINT kBegin = 2024;
inline constexpr UINT kPercent = 2025;  // second word: the percentage
inline constexpr UINT kEnd = 2026;
inline constexpr UINT kText = 2027;         // second word: address of the zero-terminated wide text
inline constexpr UINT kAbortButton = 2028;  // both words: level 0; 1 to enable, 0 to disable
}  // namespace MProgressMessage

// What a front-end implements to be called before each step. Runs on the thread that steps, with
// the scope's lock held: it must return soon, and must not wait for another thread that reports.
class IProgressSink {
 public:
  virtual void Notify() = 0;

 protected:
  ~IProgressSink() = default;
};

// The stack of begun scopes and what it reports to. All static operations act on the one instance
// and are safe on any thread. No lock of the manager is held while a message is sent or the sink
// notified.
//
// A message goes by SendMessageW to a window of the calling thread. To another thread's window it
// is posted, or dropped while SetProcessOnlyCurrentThreadWindows is on, which it is at start.
class QELBASE_API MProgressManager : public StdBase::GlobalLocking<MProgressManager> {
 public:
  static constexpr std::size_t kNoLevel = static_cast<std::size_t>(-1);

  MProgressManager() = default;
  MProgressManager(const MProgressManager& other);
  MProgressManager& operator=(const MProgressManager& other);
  ~MProgressManager() = default;

  // A list of scopes for the callers' own use; nothing here fills or reads it. Pointers are not
  // owned. `back` of an empty list is null, `pop_back` does nothing.
  struct QELBASE_API vector_facade {
    MProgressManager* m_manager;
    [[nodiscard]] std::size_t size() const;
    [[nodiscard]] MProgress* back() const;
    void pop_back();
    void push_back(MProgress* progress);
  };

  // The front-end's wish that the operation end. It stays set until it is reset; nothing here acts
  // on it. SetAbortFlag may be called from a signal handler once the flag has been read.
  static void SetAbortFlag(bool abort);
  [[nodiscard]] static bool GetAbortFlag();
  static void ResetAbortFlag();

  // Appends a window: it gets the next free level, from 0.
  static void AttachUITarget(HWND window);
  static void ResetUITargets();
  // Goes to the window of level 0, if there is one.
  static void EnableAbortButton(bool enable);
  static void SetProcessOnlyCurrentThreadWindows(bool only);

  // Not owned; null takes it away. It must live until no thread can be inside Notify.
  static void SetSink(IProgressSink* sink);
  static void NotifySink();

  // Moves the scope that began last, if any.
  static void IncrementLast(double amount);

  static vector_facade GetProgressPointers();
  [[nodiscard]] static MProgress* back();
  static void pop_back();
  static void push_back(MProgress* progress);

  // For MProgress. Begin gives the level; a scope that stands in the list already keeps its entry.
  // End gives kNoLevel. A null scope counts as one that isn't in the list.
  static std::size_t Begin(MProgress* progress);
  static std::size_t End(MProgress* progress);
  static void SetText(MProgress* progress);
  static void SendMessageUpdate(long percent, MProgress* progress);

 private:
  friend class MProgress;
  class Pin;
  struct Shown {
    std::size_t level = kNoLevel;
    std::wstring text;
  };

  static MProgressManager& Instance() {
    MProgressManager* instance = s_instance.load(std::memory_order_acquire);
    return instance ? *instance : MakeInstance();
  }
  static MProgressManager& MakeInstance();

  void _SetAbortFlag(bool abort) { m_abort.store(abort, std::memory_order_relaxed); }
  bool _GetAbortFlag() const { return m_abort.load(std::memory_order_relaxed); }
  void _ResetAbortFlag() { _SetAbortFlag(false); }
  void _AttachUITarget(HWND window);
  void _ResetUITargets();
  void _EnableAbortButton(bool enable);
  void _SetProcessOnlyCurrentThreadWindows(bool only);
  void _SetSink(IProgressSink* sink) { m_sink.store(sink, std::memory_order_release); }
  void _NotifySink() {
    if (IProgressSink* sink = m_sink.load(std::memory_order_acquire)) sink->Notify();
  }
  void _IncrementLast(double amount);
  std::size_t _Begin(MProgress* progress);
  std::size_t _End(MProgress* progress);
  void _SetText(MProgress* progress);
  void _SendMessageUpdate(long percent, MProgress* progress);

  HWND TargetOf(std::size_t level) const;  // null if it has none
  bool IsListed(const MProgress* progress) const;
  bool PinEntryBefore(const MProgress* progress, Pin& pin) const;  // false if there is none
  static Shown ShownBy(const MProgress& progress);
  void SendText(const Shown& shown) const;
  void _MProgressSendMessage(HWND window, unsigned int message, std::uint64_t first,
                             std::int64_t second) const;
  void Forget(const MProgress* progress);
  static void AwaitUnpinned(const MProgress* progress);

  static std::atomic<MProgressManager*> s_instance;

  std::atomic<bool> m_abort{false};
  std::list<MProgress*> m_scopes;  // begun, oldest first; not owned
  std::vector<HWND> m_targets;     // index: level
  std::atomic<IProgressSink*> m_sink{nullptr};
  std::vector<MProgress*> m_progress_pointers;
  std::atomic<bool> m_only_current_thread{true};
};

// A scope of an operation: positions in units of the caller's choice become whole percentages. Any
// thread may call any operation; each runs under the scope's own recursive lock, so that a window
// procedure that a report reaches on the same thread may come back to the same scope. Locks are
// taken child first: a window procedure or an override must not report to a scope that began later
// than the one it is called for, unless its thread got there through that one.
//
// Positions count from 0, whatever the lower bound: the percentage is position * 100 / extent +
// 0.5, cut to an integer. It is not limited to 100. A figure that is no number, or that 32 bits
// can't hold, is not reported. A percentage goes out only if it is above the last one, so there is
// at most one message for each whole percent.
class QELBASE_API MProgress : private StdBase::LocalLocking {
 public:
  explicit MProgress(double lower = 0.0, double upper = 100.0, bool begin = true);
  MProgress(const MProgress&) = delete;
  MProgress& operator=(const MProgress&) = delete;
  // Ends the scope. It may run while another thread's update of a nested scope is on its way here.
  // A class that overrides _OnActualUpdate ends the scope in its own destructor.
  virtual ~MProgress();

  // Bounds in the wrong order change places; equal ones give an extent of 1. Does nothing at all if
  // the scope has begun. The last percentage that went out still counts.
  void Begin(double lower, double upper);
  void End();

  void SetCurrentPosition(double position);
  void Count(double position);    // the same
  void Increment();               // by the child weight
  void Increment(double amount);  // either form sets the child weight to 1

  // The size of the next step, and the share of a scope that nests in this one.
  void SetChildWeight(double weight);
  void SetNextIncrement(double weight);   // the same
  void SetNextPosition(double position);  // the next Increment() lands there
  // Whether this scope's percentage follows the scope nested in it.
  void SetAdjustByLowerLevels(bool adjust);

  // Null counts as empty. Both give true.
  bool SetText(const wchar_t* text);
  bool SetText(unsigned int id);  // through the installed string wrapper
  // Read it only while no other thread sets the text.
  [[nodiscard]] const std::wstring& GetText() const;

  // As in MProgressManager; the number of AttachUITarget has no effect.
  static void SetAbortFlag(bool abort);
  [[nodiscard]] static bool GetAbortFlag();
  static void ResetAbortFlag();
  static void ResetUITargets();
  static MProgressManager::vector_facade GetProgressPointers();
  static void EnableAbortButton(bool enable);
  static void SetProcessOnlyCurrentThreadWindows(bool only);
  static void IncrementLast(double amount);
  static void AttachUITarget(long, HWND window);

 protected:
  void _Begin();
  void _End();
  void _SetRange(double a, double b);
  void _SetScaler();
  void _SendMessageUpdate(long percent);
  // Runs when the percentage has risen, after the front-end was told, under the scope's lock, on
  // the thread that reported here or in a nested scope.
  virtual void _OnActualUpdate(long percent);

 private:
  friend class MProgressManager;
  inline void StepBy(const double& amount);  // in MProgress.cpp
  void SetQuietBelow();
  // The figure that this scope shows when the one nested in it is at `percent`.
  long FigureFromChild(long percent) const;

  bool m_begun = false;
  std::atomic<bool> m_adjust{false};  // read without the lock from nested scopes
  std::size_t m_level = MProgressManager::kNoLevel;
  double m_lower = 0.0;
  double m_upper = 0.0;
  double m_extent = 1.0;
  double m_scaler = -1.0;
  double m_position = 0.0;
  double m_child_weight = 1.0;
  std::int32_t m_high_water = -1;
  std::wstring m_text;
  // Positions below this one show nothing new, for certain.
  double m_quiet_below = -std::numeric_limits<double>::infinity();
};
