#pragma once
// The internal scale of the process, and the observers that follow it.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "qelbase/export.h"

namespace QelSDK::Common {

class QELBASE_API IInternalUnitsObserver {
 protected:
  ~IInternalUnitsObserver() = default;

// Classes above this floor add an operation of the same name and hide this one.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
  // The scale has changed from `old_units` to `new_units`; with `convert` the observer is asked to
  // keep its physical size. The default does nothing.
  virtual void _OnInternalUnitsChange(const double& old_units, const double& new_units,
                                      const bool& convert);
#pragma GCC diagnostic pop
};

// Base of all that follows the internal scale. A constructor enters the list of observers, the
// destructor leaves it. A copy does not enter, and an assignment enters and leaves nobody.
//
// Threads. Observers enter and leave on any thread, also during a notification; what enters during
// a change is not told of it. A class whose objects come or go while another thread changes the
// scale must not be told before it is whole or when it is half destroyed: it takes the constructor
// with NotYet, calls _Enter last in its own constructor and _Leave first in its own destructor.
class QELBASE_API MInternalUnitsObserver : public IInternalUnitsObserver {
 protected:
  struct NotYet {};
  // How the observer is told. `convert` as above. Must not throw: what follows would be left
  // behind.
  using Teller = void (*)(MInternalUnitsObserver& observer, const double& old_units,
                          const double& new_units, const bool& convert) noexcept;

  MInternalUnitsObserver();  // enters; told through _OnInternalUnitsChange
  explicit MInternalUnitsObserver(NotYet) {}
  MInternalUnitsObserver(const MInternalUnitsObserver& other) : IInternalUnitsObserver(other) {}
  MInternalUnitsObserver& operator=(const MInternalUnitsObserver&) { return *this; }
  virtual ~MInternalUnitsObserver();

  void _Enter(Teller teller);  // does nothing when already in
  void _Leave();               // does nothing when not in

 private:
  friend class MInternalUnits;
  static constexpr std::size_t outside = SIZE_MAX;
  std::atomic<std::size_t> m_place{outside};  // in the list of observers; written under its lock
};

// The one internal scale: a number of internal units for a fixed length. 10000 at first.
//
// Threads. Everything here is safe on any thread. During a change, other threads that ask for a
// consistent view (At), enter or leave wait for its end; so an observer must not wait for them.
class QELBASE_API MInternalUnits {
 public:
  static MInternalUnits& GetInstance();  // valid until the process ends
  MInternalUnits(const MInternalUnits&) = delete;
  MInternalUnits& operator=(const MInternalUnits&) = delete;

  double Get() const { return m_units.load(std::memory_order_acquire); }

  // Sets the scale and tells all observers, in no stated order; with `convert` they keep their
  // physical size, without it their numbers. While they are told, Get gives the new scale already.
  // What observers answer is not looked at. False, and nothing changes: when `units` is not a
  // finite number above 0, when CanChange is false.
  bool Set(double units, bool convert = true);

  // False for an observer that is being told of a change, and while a Hold lives.
  bool CanChange() const;

  // Keeps the scale as it is for its lifetime, for a calculation that reads many values. Waits for
  // a change that is under way on another thread.
  class QELBASE_API Hold {
   public:
    Hold();
    ~Hold();
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;
  };

  // Millimetres per unit of the user, 1.0 at first; kept for whoever asks, and changes nothing
  // here.
  void SetConversionFactor(double factor) { m_factor.store(factor, std::memory_order_relaxed); }
  double GetConversionFactor() const { return m_factor.load(std::memory_order_relaxed); }

  // Runs `access(units)` with the scale that `observer` is in, and again if a change came between,
  // so that number and scale belong together. An observer that waits for its turn in a running
  // change still is in the old scale. `access` reads with acquire, and stores sequentially
  // consistently as its last step.
  template <class Access>
  auto At(const MInternalUnitsObserver& observer, Access access) const {
    const std::uint64_t before = m_changes.load(std::memory_order_acquire);
    if (before % 2 == 0) {
      const auto result = access(Get());
      if (m_changes.load() == before) return result;
    }
    const std::lock_guard lock(m_mutex);
    return access(UnitsOf(observer));
  }

 private:
  friend class MInternalUnitsObserver;
  struct Entry {
    MInternalUnitsObserver* observer;  // null when it left during a change
    MInternalUnitsObserver::Teller tell;
  };

  MInternalUnits() = default;
  void Enter(MInternalUnitsObserver& observer, MInternalUnitsObserver::Teller teller);
  void Leave(MInternalUnitsObserver& observer);
  void Tell(double new_units, bool convert);
  void CloseGaps();
  bool IsChanging() const { return m_changes.load(std::memory_order_relaxed) % 2 != 0; }
  double UnitsOf(const MInternalUnitsObserver& observer) const;

  std::atomic<double> m_units{10000.0};
  std::atomic<double> m_factor{1.0};
  std::atomic<std::uint64_t> m_changes{0};  // odd during a change
  mutable std::recursive_mutex m_mutex;     // held for a whole change; guards all below
  std::vector<Entry> m_entries;
  double m_old_units = 0;
  std::size_t m_told = 0;     // entries before this one know of the running change
  std::size_t m_to_tell = 0;  // entries from here on entered during it
  std::size_t m_holds = 0;
  bool m_has_gaps = false;
};

}  // namespace QelSDK::Common
