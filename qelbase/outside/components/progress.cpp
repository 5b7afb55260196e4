#include "qelbase/outside/components/progress.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <utility>

#include "qelbase/outside/system/lasting_internal.h"

namespace QelSDK::Common {

namespace ProgressDelegateProvider {

namespace {

class StubDelegate : public IProgressDelegate {
 public:
  void OnBegin(const IProgressInfo&) override {}
  void OnUpdate(const IProgressInfo&) override {}
  void OnEnd() override {}
  bool IsAborted() override { return false; }
  std::shared_ptr<IProgressDelegate> GetChildDelegate() override { return GetStubDelegate(); }
  void OnNotification(const std::string&, const boost::any&) override {}
};

// Outlives every static object: one of them sets the provider as it comes and goes.
struct Shared {
  std::mutex lock;
  Provider provider;
  StubDelegate stub;

  // Nobody's: it needs no count, which would lie on the heap.
  std::shared_ptr<IProgressDelegate> Stub() { return {std::shared_ptr<void>(), &stub}; }

  static Shared& Get() {
    static qel::sys::Lasting<Shared> shared;
    return *shared;
  }
};

}  // namespace

void SetSharedProvider(Provider provider) {
  auto& shared = Shared::Get();
  std::lock_guard lock(shared.lock);
  shared.provider.swap(provider);
}

std::shared_ptr<IProgressDelegate> GetSharedDelegate(const IProgressInfo& info) {
  auto& shared = Shared::Get();
  Provider provider;
  {
    std::lock_guard lock(shared.lock);
    provider = shared.provider;
  }
  auto delegate = provider ? provider(info) : nullptr;
  return delegate ? delegate : shared.Stub();
}

std::shared_ptr<IProgressDelegate> GetStubDelegate() {
  return Shared::Get().Stub();
}

}  // namespace ProgressDelegateProvider

namespace {
constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
}

BaseProgressReporter::BaseProgressReporter(std::uint64_t total,
                                           std::shared_ptr<IProgressDelegate> delegate)
    : m_total(total),
      m_delegate(delegate ? std::move(delegate)
                          : ProgressDelegateProvider::GetSharedDelegate(*this)) {
  m_delegate->OnBegin(*this);
}

BaseProgressReporter::~BaseProgressReporter() {
  m_delegate->OnEnd();
}

bool BaseProgressReporter::IsAborted() const {
  return m_delegate->IsAborted();
}

void BaseProgressReporter::SendNotification(const std::string& key, const boost::any& value) {
  m_delegate->OnNotification(key, value);
}

std::shared_ptr<IProgressDelegate> BaseProgressReporter::GetChildDelegate() const {
  return m_delegate->GetChildDelegate();
}

void BaseProgressReporter::MoveTo(std::uint64_t current) {
  if (m_total != 0) current = std::min(current, m_total);
  if (current == m_current) return;
  const bool forward = current > m_current;
  m_current = current;
  if (forward && m_current < m_next_update && m_current != m_total) return;
  const std::uint64_t step = m_total / 1000 + 1;
  m_next_update = m_current + std::min(step, kMost - m_current);
  m_delegate->OnUpdate(*this);
}

IncrementalProgressReporter::IncrementalProgressReporter(
    std::uint64_t total, std::shared_ptr<IProgressDelegate> delegate)
    : BaseProgressReporter(total, std::move(delegate)) {}

void IncrementalProgressReporter::Increment(std::uint64_t count) {
  MoveTo(GetCurrent() + std::min(count, kMost - GetCurrent()));
}

}  // namespace QelSDK::Common
