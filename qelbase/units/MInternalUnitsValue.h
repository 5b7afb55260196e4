#pragma once
// Numbers that live in the internal scale and follow it.

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "qelbase/export.h"
#include "qelbase/outside/components/MInternalUnits.h"

// The third virtual operation has the name of the first and hides it: the first is for those who
// derive from the component, the third for those who derive from here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"

// Base of what follows the internal scale in this library; MInternalUnitsObserver tells when an
// object enters and leaves, and the thread rules.
class QELBASE_API IInternalUnitsObserver : public QelSDK::Common::MInternalUnitsObserver {
 public:
  static const std::int32_t m_default_units = 10000;  // the scale that files and interfaces keep

  static double GetInternalUnits();  // the current scale
  static bool
  IsInternalUnitsChangeAllowed();  // false while observers are told, or the scale is held
  // Changes the scale; every observer keeps its physical size. False if the change is refused: see
  // QelSDK::Common::MInternalUnits::Set.
  static bool SetInternalUnits(double units);

  IInternalUnitsObserver(const IInternalUnitsObserver&) = default;  // the copy does not enter
  IInternalUnitsObserver& operator=(const IInternalUnitsObserver&) = default;

  // Called for each change of the scale, on the thread that makes it. Must not throw. The result
  // tells whether the observer rescaled itself; here false, and nothing is done.
  virtual bool _OnInternalUnitsChange(const double& old_units, const double& new_units,
                                      bool convert);

 protected:
  IInternalUnitsObserver();
  explicit IInternalUnitsObserver(NotYet not_yet) : MInternalUnitsObserver(not_yet) {}
  ~IInternalUnitsObserver() override;

  void _Enter();
};

// A number of internal units to the power N: a length, an area or a volume. 0 at first.
//
// All arithmetic is done in double and turned into T once, at the end: rounded for float, truncated
// towards zero for an integer, of which the low bits of its width are kept (infinity and
// not-a-number give 0). A long has 32 bits here. A scale of zero is refused by the component; one
// handed to _OnInternalUnitsChange follows the floating-point rules.
//
// A default-constructed value follows the scale for its whole life. A copy holds the number of its
// original and does not follow. An object belongs to one thread at a time, but the scale may change
// on another at any moment: number and scale always belong together in the operations that use
// both.
template <class T, int N>
class QELBASE_API MInternalUnitsValue : public IInternalUnitsObserver {
 public:
  MInternalUnitsValue();
  MInternalUnitsValue(const MInternalUnitsValue& other);
  MInternalUnitsValue& operator=(const MInternalUnitsValue& other);  // the number only
  ~MInternalUnitsValue() override;

  operator T() const { return m_value.load(std::memory_order_acquire); }  // in the current scale

  T GetInDefaultInternalUnits() const;
  void SetInDefaultInternalUnits(T value);

  // With `convert` the number is multiplied N times by new_units / old_units. Always true.
  bool _OnInternalUnitsChange(const double& old_units, const double& new_units,
                              bool convert) override;

 private:
  using Stored =
      std::conditional_t<std::is_same_v<T, long>, std::int32_t,
                         std::conditional_t<std::is_same_v<T, unsigned long>, std::uint32_t, T>>;

  std::atomic<Stored> m_value;
};

#pragma GCC diagnostic pop

extern template class MInternalUnitsValue<double, 1>;
extern template class MInternalUnitsValue<double, 2>;
extern template class MInternalUnitsValue<double, 3>;
extern template class MInternalUnitsValue<float, 1>;
extern template class MInternalUnitsValue<float, 2>;
extern template class MInternalUnitsValue<float, 3>;
extern template class MInternalUnitsValue<int, 1>;
extern template class MInternalUnitsValue<long, 1>;
extern template class MInternalUnitsValue<unsigned int, 1>;
extern template class MInternalUnitsValue<unsigned long, 1>;
extern template class MInternalUnitsValue<short, 1>;
extern template class MInternalUnitsValue<unsigned short, 1>;
