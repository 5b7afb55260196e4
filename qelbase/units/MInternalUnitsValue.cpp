#include "qelbase/units/MInternalUnitsValue.h"

#include "qelbase/units/truncate_internal.h"

using QelSDK::Common::MInternalUnits;

const std::int32_t IInternalUnitsObserver::m_default_units;

IInternalUnitsObserver::IInternalUnitsObserver() : MInternalUnitsObserver(NotYet{}) {
  _Enter();
}

IInternalUnitsObserver::~IInternalUnitsObserver() = default;

void IInternalUnitsObserver::_Enter() {
  MInternalUnitsObserver::_Enter([](MInternalUnitsObserver& observer, const double& old_units,
                                    const double& new_units, const bool& convert) noexcept {
    static_cast<IInternalUnitsObserver&>(observer)._OnInternalUnitsChange(old_units, new_units,
                                                                          convert);
  });
}

bool IInternalUnitsObserver::_OnInternalUnitsChange(const double&, const double&, bool) {
  return false;
}

double IInternalUnitsObserver::GetInternalUnits() {
  return MInternalUnits::GetInstance().Get();
}

bool IInternalUnitsObserver::IsInternalUnitsChangeAllowed() {
  return MInternalUnits::GetInstance().CanChange();
}

bool IInternalUnitsObserver::SetInternalUnits(double units) {
  return MInternalUnits::GetInstance().Set(units);
}

namespace {

template <class T>
T FromDouble(double value) {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(value);
  } else {
    return qel::units::Truncate<T>(value);
  }
}

template <class T, int N>
T Scaled(T value, double factor) {
  double scaled = static_cast<double>(value);
  for (int i = 0; i < N; ++i) scaled *= factor;
  return FromDouble<T>(scaled);
}

constexpr double default_units = IInternalUnitsObserver::m_default_units;

}  // namespace

// A value enters when it is whole and leaves before it is not, so that another thread's change
// never meets half a value.
template <class T, int N>
MInternalUnitsValue<T, N>::MInternalUnitsValue() : IInternalUnitsObserver(NotYet{}), m_value(0) {
  _Enter();
}

template <class T, int N>
MInternalUnitsValue<T, N>::MInternalUnitsValue(const MInternalUnitsValue& other)
    : IInternalUnitsObserver(other), m_value(other.m_value.load()) {}

template <class T, int N>
MInternalUnitsValue<T, N>& MInternalUnitsValue<T, N>::operator=(const MInternalUnitsValue& other) {
  if (this == &other) return *this;
  MInternalUnits::GetInstance().At(*this, [&](double) {
    m_value.store(other.m_value.load());
    return true;
  });
  return *this;
}

template <class T, int N>
MInternalUnitsValue<T, N>::~MInternalUnitsValue() {
  _Leave();
  m_value.store(0);
}

template <class T, int N>
T MInternalUnitsValue<T, N>::GetInDefaultInternalUnits() const {
  return MInternalUnits::GetInstance().At(*this, [&](double units) -> T {
    return Scaled<Stored, N>(m_value.load(), default_units / units);
  });
}

template <class T, int N>
void MInternalUnitsValue<T, N>::SetInDefaultInternalUnits(T value) {
  MInternalUnits::GetInstance().At(*this, [&](double units) {
    m_value.store(Scaled<Stored, N>(static_cast<Stored>(value), units / default_units));
    return true;
  });
}

template <class T, int N>
bool MInternalUnitsValue<T, N>::_OnInternalUnitsChange(const double& old_units,
                                                       const double& new_units, bool convert) {
  if (convert) {
    const Stored scaled = Scaled<Stored, N>(m_value.load(), new_units / old_units);
    m_value.store(scaled, std::memory_order_release);
  }
  return true;
}

template class MInternalUnitsValue<double, 1>;
template class MInternalUnitsValue<double, 2>;
template class MInternalUnitsValue<double, 3>;
template class MInternalUnitsValue<float, 1>;
template class MInternalUnitsValue<float, 2>;
template class MInternalUnitsValue<float, 3>;
template class MInternalUnitsValue<int, 1>;
template class MInternalUnitsValue<long, 1>;
template class MInternalUnitsValue<unsigned int, 1>;
template class MInternalUnitsValue<unsigned long, 1>;
template class MInternalUnitsValue<short, 1>;
template class MInternalUnitsValue<unsigned short, 1>;
