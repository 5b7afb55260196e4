#include "qelbase/units/MUserUnit.h"

#include <vector>

#include "qelbase/outside/components/MInternalUnits.h"
#include "qelbase/outside/components/MUnit.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/text/resource_strings.h"

namespace {

struct Unit {
  unsigned name_id;
  unsigned abbreviation_id;
  const wchar_t* format;
  double factor;
};

constexpr Unit units[] = {{673, 672, L"%5.2g", 1.0}, {675, 674, L"%5.3g", 25.4}};

}  // namespace

IUserUnitDependent::IUserUnitDependent() {
  MUserUnit::GetInstance().AddUserUnitListener(this);
}

IUserUnitDependent::~IUserUnitDependent() {
  MUserUnit::GetInstance().RemoveUserUnitListener(this);
}

// One listener's call, as long as it runs.
class MUserUnit::Call {
 public:
  Call(MUserUnit& unit, std::unique_lock<std::mutex>& lock, IUserUnitDependent* listener)
      : m_unit(unit), m_lock(lock) {
    m_unit.m_calls.push_front({listener, std::this_thread::get_id()});
    m_place = m_unit.m_calls.begin();
    m_lock.unlock();
  }
  ~Call() {
    m_lock.lock();
    m_unit.m_calls.erase(m_place);
    m_unit.m_call_ended.notify_all();
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

 private:
  MUserUnit& m_unit;
  std::unique_lock<std::mutex>& m_lock;
  std::list<Running>::iterator m_place;
};

MUserUnit::MUserUnit(UNIT_TYPE unit)
    : m_unit(unit), m_format(units[0].format), m_factor(units[0].factor) {
  SetUnit(unit);
}

MUserUnit::~MUserUnit() = default;

void MUserUnit::SetUnit(UNIT_TYPE type) {
  const UNIT_TYPE old = m_unit.exchange(type);
  if (type != UNIT_MILLIMETRE && type != UNIT_INCH) return;
  const Unit& unit = units[type];
  std::wstring name = QelResLoadStringEx(unit.name_id);
  std::wstring abbreviation = QelResLoadStringEx(unit.abbreviation_id);
  {
    const std::lock_guard lock(m_mutex);
    m_name.swap(name);
    m_abbreviation.swap(abbreviation);
    m_format = unit.format;
    m_factor = unit.factor;
  }
  if (this == &mg_user_unit) {
    QelSDK::Common::MInternalUnits::GetInstance().SetConversionFactor(unit.factor);
  }
  if (type != old) _OnUserUnitChanged();
}

const wchar_t* MUserUnit::GetName() const {
  const std::lock_guard lock(m_mutex);
  return m_name.c_str();
}

const wchar_t* MUserUnit::GetAbbreviation() const {
  const std::lock_guard lock(m_mutex);
  return m_abbreviation.c_str();
}

void MUserUnit::AddUserUnitListener(IUserUnitDependent* listener) {
  const std::lock_guard lock(m_mutex);
  m_listeners.insert(listener);
}

void MUserUnit::RemoveUserUnitListener(IUserUnitDependent* listener) {
  std::unique_lock lock(m_mutex);
  m_listeners.erase(listener);
  m_call_ended.wait(lock, [&] { return !IsCalledElsewhere(listener); });
}

// Whether a listener that is gone must be waited for: not by itself, from within its own call.
bool MUserUnit::IsCalledElsewhere(const IUserUnitDependent* listener) const {
  bool elsewhere = false;
  for (const Running& call : m_calls) {
    if (call.listener != listener) continue;
    if (call.thread == std::this_thread::get_id()) return false;
    elsewhere = true;
  }
  return elsewhere;
}

void MUserUnit::_OnUserUnitChanged() {
  std::unique_lock lock(m_mutex);
  const std::vector<IUserUnitDependent*> listeners(m_listeners.begin(), m_listeners.end());
  for (IUserUnitDependent* listener : listeners) {
    if (!m_listeners.contains(listener)) continue;
    const Call call(*this, lock, listener);
    listener->OnUserUnitChanged();
  }
}

void MUserUnit::PrintMmInUI(wchar_t* buffer, std::size_t size, double mm, bool with_unit) const {
  const std::lock_guard lock(m_mutex);
  if (qel::sys::swprintf_s(buffer, size, m_format, mm / m_factor) < 0 || !with_unit) return;
  if (qel::sys::wcscat_s(buffer, size, L" ") != 0) return;
  qel::sys::wcscat_s(buffer, size, m_abbreviation.c_str());
}

void MUserUnit::PrintStlUnitsInUI(wchar_t* buffer, std::size_t size, std::int32_t stl,
                                  bool with_unit) const {
  PrintMmInUI(buffer, size, MUnit::_ConvertStlUnitsToMm(stl), with_unit);
}

double MUserUnit::ConvertFromMmToUI(double mm) const {
  return mm / m_factor;
}

double MUserUnit::ConvertFromUIToMm(double value) const {
  return value * m_factor;
}

double MUserUnit::ConvertFromMmSquareToUI(double mm2) const {
  const double f = m_factor;
  return mm2 / f / f;
}

double MUserUnit::ConvertFromUIToMmSquare(double value) const {
  const double f = m_factor;
  return f * value * f;
}

double MUserUnit::ConvertFromMmCubedToUI(double mm3) const {
  const double f = m_factor;
  return mm3 / f / f / f;
}

double MUserUnit::ConvertFromUIToMmCubed(double value) const {
  const double f = m_factor;
  return f * value * f * f;
}

double MUserUnit::_ConvertFromStlUnitsToUI(double stl) const {
  return MUnit::_ConvertStlUnitsToMm(stl) / m_factor;
}

double MUserUnit::_ConvertFromUIToStlUnits(double value) const {
  return MUnit::_ConvertMmToStlUnits(value * m_factor);
}

double MUserUnit::ConvertFromStlUnitsToUI(std::int32_t stl) const {
  return _ConvertFromStlUnitsToUI(stl);
}

std::int32_t MUserUnit::ConvertFromUIToStlUnits(double value) const {
  return MUnit::ConvertFromMmToStlUnits(value * m_factor);
}

double MUserUnit::ConvertFromStlUnitsSquareToUI(double stl2) const {
  return _ConvertFromStlUnitsToUI(_ConvertFromStlUnitsToUI(stl2));
}

double MUserUnit::ConvertFromUIToStlUnitsSquare(double value) const {
  return _ConvertFromUIToStlUnits(_ConvertFromUIToStlUnits(value));
}

double MUserUnit::ConvertFromStlUnitsCubedToUI(double stl3) const {
  return _ConvertFromStlUnitsToUI(ConvertFromStlUnitsSquareToUI(stl3));
}

double MUserUnit::ConvertFromUIToStlUnitsCubed(double value) const {
  return _ConvertFromUIToStlUnits(ConvertFromUIToStlUnitsSquare(value));
}
