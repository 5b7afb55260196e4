#include "qelbase/progress/ProgressToStatusCallback.h"

#include <boost/any.hpp>
#include <boost/bind/bind.hpp>

#include "qelbase/outside/system/text.h"
#include "qelbase/progress/IStatusCallback.h"
#include "qelbase/progress/ProgressLocalizer.h"

using QelSDK::Common::IProgressDelegate;
using QelSDK::Common::IProgressInfo;
namespace Provider = QelSDK::Common::ProgressDelegateProvider;

namespace ProgressToStatusCallback {

ProgressDelegate::~ProgressDelegate() = default;

void ProgressDelegate::OnBegin(const IProgressInfo& info) {
  IStatusCallback::STATUS_BEGIN(0.0, static_cast<double>(info.GetTotal()), L"");
}

void ProgressDelegate::OnUpdate(const IProgressInfo& info) {
  const bool empty = info.GetTotal() == 0;
  IStatusCallback::STATUS_COUNT(empty ? 0.0 : static_cast<double>(info.GetCurrent()));
}

void ProgressDelegate::OnEnd() {
  IStatusCallback::STATUS_END();
}

bool ProgressDelegate::IsAborted() {
  return IStatusCallback::STATUS_GET_ABORT();
}

std::shared_ptr<IProgressDelegate> ProgressDelegate::GetChildDelegate() {
  return Provider::GetStubDelegate();
}

void ProgressDelegate::OnNotification(const std::string& key, const boost::any&) {
  IStatusCallback::STATUS_TEXT(0, QelBase::ProgressLocalizer::Localize(key).c_str());
}

ProgressDelegateFactory::ProgressDelegateFactory() {
  Provider::SetSharedProvider(
      boost::bind(&ProgressDelegateFactory::Create, &mg_instance, boost::placeholders::_1));
}

ProgressDelegateFactory::~ProgressDelegateFactory() {
  Provider::SetSharedProvider({});
}

std::shared_ptr<IProgressDelegate> ProgressDelegateFactory::Create(const IProgressInfo&) const {
  return std::make_shared<ProgressDelegate>();
}

}  // namespace ProgressToStatusCallback

IProgressAble::~IProgressAble() = default;

void IProgressAble::SetProgressDelegate(const std::shared_ptr<IProgressDelegate>& delegate) {
  m_delegate = delegate;
}

void SetProgressText(QelSDK::Common::IncrementalProgressReporter& reporter,
                     const std::wstring& text) {
  using qel::sys::CP_UTF8;
  using qel::sys::WideCharToMultiByte;
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
  if (size == 0) return;
  std::string narrow(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, narrow.data(), size, nullptr, nullptr);
  narrow.pop_back();  // the terminator
  reporter.SendNotification(narrow, boost::any());
}
