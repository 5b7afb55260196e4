#include "qelbase/outside/components/MInternalUnits.h"

#include <cmath>

#include "qelbase/outside/system/lasting_internal.h"

namespace QelSDK::Common {

void IInternalUnitsObserver::_OnInternalUnitsChange(const double&, const double&, const bool&) {}

MInternalUnitsObserver::MInternalUnitsObserver() {
  _Enter([](MInternalUnitsObserver& observer, const double& old_units, const double& new_units,
            const bool& convert) noexcept {
    observer._OnInternalUnitsChange(old_units, new_units, convert);
  });
}

MInternalUnitsObserver::~MInternalUnitsObserver() {
  _Leave();
}

void MInternalUnitsObserver::_Enter(Teller teller) {
  MInternalUnits::GetInstance().Enter(*this, teller);
}

// Only its own thread takes an observer in or out, so that a copy, which never was in, is known
// without the lock.
void MInternalUnitsObserver::_Leave() {
  if (m_place.load(std::memory_order_relaxed) == outside) return;
  MInternalUnits::GetInstance().Leave(*this);
}

// Never destroyed: values that are static objects leave it at the very end of the process.
MInternalUnits& MInternalUnits::GetInstance() {
  static qel::sys::Lasting<MInternalUnits> instance([] { return MInternalUnits(); });
  return *instance;
}

bool MInternalUnits::Set(double units, bool convert) {
  const std::lock_guard lock(m_mutex);
  if (!CanChange() || !std::isfinite(units) || units <= 0) return false;
  if (units == Get()) return true;
  m_changes.fetch_add(1);
  m_old_units = Get();
  m_units.store(units, std::memory_order_release);
  Tell(units, convert);
  m_changes.fetch_add(1);
  return true;
}

bool MInternalUnits::CanChange() const {
  const std::lock_guard lock(m_mutex);
  return m_holds == 0 && !IsChanging();
}

// An observer may enter and leave others, so that the list can grow and move under the loop.
void MInternalUnits::Tell(double new_units, bool convert) {
  m_to_tell = m_entries.size();
  for (m_told = 0; m_told < m_to_tell; ++m_told) {
    const Entry entry = m_entries[m_told];
    if (entry.observer) entry.tell(*entry.observer, m_old_units, new_units, convert);
  }
  if (m_has_gaps) CloseGaps();
}

void MInternalUnits::Enter(MInternalUnitsObserver& observer,
                           MInternalUnitsObserver::Teller teller) {
  const std::lock_guard lock(m_mutex);
  if (observer.m_place != MInternalUnitsObserver::outside) return;
  m_entries.push_back({&observer, teller});
  observer.m_place.store(m_entries.size() - 1, std::memory_order_relaxed);
}

// The last entry takes the free place; during a change it might then be passed over, so that the
// place stays empty until the end of the change.
void MInternalUnits::Leave(MInternalUnitsObserver& observer) {
  const std::lock_guard lock(m_mutex);
  const std::size_t place =
      observer.m_place.exchange(MInternalUnitsObserver::outside, std::memory_order_relaxed);
  if (IsChanging()) {
    m_entries[place].observer = nullptr;
    m_has_gaps = true;
    return;
  }
  m_entries[place] = m_entries.back();
  m_entries.pop_back();
  if (place < m_entries.size()) {
    m_entries[place].observer->m_place.store(place, std::memory_order_relaxed);
  }
}

void MInternalUnits::CloseGaps() {
  std::erase_if(m_entries, [](const Entry& entry) { return !entry.observer; });
  for (std::size_t place = 0; place < m_entries.size(); ++place) {
    m_entries[place].observer->m_place.store(place, std::memory_order_relaxed);
  }
  m_has_gaps = false;
}

double MInternalUnits::UnitsOf(const MInternalUnitsObserver& observer) const {
  const std::size_t place = observer.m_place.load(std::memory_order_relaxed);
  const bool waits = IsChanging() && place > m_told && place < m_to_tell;
  return waits ? m_old_units : Get();
}

MInternalUnits::Hold::Hold() {
  MInternalUnits& units = GetInstance();
  const std::lock_guard lock(units.m_mutex);
  ++units.m_holds;
}

MInternalUnits::Hold::~Hold() {
  MInternalUnits& units = GetInstance();
  const std::lock_guard lock(units.m_mutex);
  --units.m_holds;
}

}  // namespace QelSDK::Common
