#include "qelbase/progress/MProgress.h"

#include <limits>
#include <mutex>

#include "qelbase/text/resource_strings.h"

namespace {

// Towards zero; the lowest number for what is no number or doesn't fit, which no percentage is
// below.
std::int32_t Truncate(double value) {
  const bool fits = value > -2147483649.0 && value < 2147483648.0;
  return fits ? static_cast<std::int32_t>(value) : std::numeric_limits<std::int32_t>::min();
}

}  // namespace

MProgress::MProgress(double lower, double upper, bool begin) {
  const auto lock = LockThis();  // from the begin on, other threads see the scope
  _SetRange(lower, upper);
  if (begin) _Begin();
}

MProgress::~MProgress() {
  try {
    const auto lock = LockThis();
    if (m_begun) _End();
  } catch (...) {  // out of memory: the front-end misses the end
  }
  MProgressManager::Instance().Forget(this);
}

void MProgress::Begin(double lower, double upper) {
  // An update that is still on its way here came from a scope that is now above this one.
  if (!IsLockedHere()) MProgressManager::AwaitUnpinned(this);
  const auto lock = LockThis();
  if (m_begun) return;
  _SetRange(lower, upper);
  _Begin();
}

void MProgress::End() {
  const auto lock = LockThis();
  _End();
}

void MProgress::SetCurrentPosition(double position) {
  const auto lock = LockThis();
  m_position = position;
  _SendMessageUpdate(Truncate(m_position * m_scaler + 0.5));
}

void MProgress::Count(double position) {
  SetCurrentPosition(position);
}

// The hot path of every operation that reports: a step that shows nothing must cost next to
// nothing. The amount is read when the sink has been told, since the sink may set the child weight.
inline void MProgress::StepBy(const double& amount) {
  MProgressManager::Instance()._NotifySink();
  m_position += amount;
  if (m_position < m_quiet_below) {
    m_child_weight = 1.0;
    return;
  }
  const double product = m_position * m_scaler;
  if (product > 0.0) _SendMessageUpdate(Truncate(product + 0.5));
  m_child_weight = 1.0;
}

void MProgress::Increment() {
  const std::lock_guard lock(ThisLock());
  StepBy(m_child_weight);
}

void MProgress::Increment(double amount) {
  const std::lock_guard lock(ThisLock());
  StepBy(amount);
}

void MProgress::SetChildWeight(double weight) {
  const auto lock = LockThis();
  m_child_weight = weight;
}

void MProgress::SetNextIncrement(double weight) {
  SetChildWeight(weight);
}

void MProgress::SetNextPosition(double position) {
  const auto lock = LockThis();
  m_child_weight = position - m_position;
}

void MProgress::SetAdjustByLowerLevels(bool adjust) {
  const auto lock = LockThis();
  m_adjust.store(adjust, std::memory_order_relaxed);
}

bool MProgress::SetText(const wchar_t* text) {
  {
    const auto lock = LockThis();
    m_text = text ? text : L"";
  }
  MProgressManager::SetText(this);
  return true;
}

bool MProgress::SetText(unsigned int id) {
  const auto lock = LockThis();
  return SetText(QelResLoadStringEx(id).c_str());
}

const std::wstring& MProgress::GetText() const {
  const auto lock = LockThis();
  return m_text;
}

void MProgress::_Begin() {
  const std::size_t level = MProgressManager::Begin(this);
  m_level = level;
  _SetScaler();
  m_position = 0.0;
  m_begun = true;
}

void MProgress::_End() {
  m_level = MProgressManager::End(this);
  m_begun = false;
}

void MProgress::_SetRange(double a, double b) {
  const bool ordered = b > a || a == b;
  m_lower = ordered ? a : b;
  m_upper = ordered ? b : a;
  m_extent = a == b ? 1.0 : m_upper - m_lower;
  if (m_level != MProgressManager::kNoLevel) _SetScaler();
}

void MProgress::_SetScaler() {
  m_scaler = 100.0 / m_extent;
  SetQuietBelow();
}

// The next figure is shown from (figure - 0.5) / scaler on; a little less, for the rounding.
void MProgress::SetQuietBelow() {
  const double next = (m_high_water + 0.5) / m_scaler * (1.0 - 1e-9);
  const bool known = m_high_water >= 0 && m_scaler > 0.0;
  m_quiet_below = known ? next : -std::numeric_limits<double>::infinity();
}

void MProgress::_SendMessageUpdate(long percent) {
  const auto figure = static_cast<std::int32_t>(percent);
  if (figure <= m_high_water) return;
  m_high_water = figure;
  SetQuietBelow();
  MProgressManager::SendMessageUpdate(figure, this);
  _OnActualUpdate(figure);
}

void MProgress::_OnActualUpdate(long) {}

long MProgress::FigureFromChild(long percent) const {
  const double share = static_cast<double>(percent) * m_child_weight / 100.0;
  return Truncate((share + m_position) * m_scaler);
}

void MProgress::SetAbortFlag(bool abort) {
  MProgressManager::SetAbortFlag(abort);
}
bool MProgress::GetAbortFlag() {
  return MProgressManager::GetAbortFlag();
}
void MProgress::ResetAbortFlag() {
  MProgressManager::ResetAbortFlag();
}
void MProgress::ResetUITargets() {
  MProgressManager::ResetUITargets();
}
MProgressManager::vector_facade MProgress::GetProgressPointers() {
  return MProgressManager::GetProgressPointers();
}
void MProgress::EnableAbortButton(bool enable) {
  MProgressManager::EnableAbortButton(enable);
}
void MProgress::SetProcessOnlyCurrentThreadWindows(bool only) {
  MProgressManager::SetProcessOnlyCurrentThreadWindows(only);
}
void MProgress::IncrementLast(double amount) {
  MProgressManager::IncrementLast(amount);
}
void MProgress::AttachUITarget(long, HWND window) {
  MProgressManager::AttachUITarget(window);
}
