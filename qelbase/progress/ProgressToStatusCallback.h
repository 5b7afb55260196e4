#pragma once
// The delegate that turns what reporters tell into status calls, the factory that offers it to
// them, and the base of objects that report through a delegate.

#include <memory>
#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/components/progress.h"

namespace ProgressToStatusCallback {

// Without a receiver of status calls nothing happens, and nothing is aborted. A total of 0 shows
// position 0. What nests below a delegate isn't shown.
class QELBASE_API ProgressDelegate : public QelSDK::Common::IProgressDelegate {
 public:
  ~ProgressDelegate() override;
  void OnBegin(const QelSDK::Common::IProgressInfo& info) override;
  void OnUpdate(const QelSDK::Common::IProgressInfo& info) override;
  void OnEnd() override;
  bool IsAborted() override;
  std::shared_ptr<QelSDK::Common::IProgressDelegate> GetChildDelegate() override;  // the stub
  // Shows the text of the step's key.
  void OnNotification(const std::string& key, const boost::any& value) override;
};

// Its one instance provides new delegates to all reporters while the library is loaded.
class QELBASE_API ProgressDelegateFactory {
 public:
  ProgressDelegateFactory(const ProgressDelegateFactory&) = delete;
  ProgressDelegateFactory& operator=(const ProgressDelegateFactory&) = delete;

 private:
  ProgressDelegateFactory();
  ~ProgressDelegateFactory();
  std::shared_ptr<QelSDK::Common::IProgressDelegate> Create(
      const QelSDK::Common::IProgressInfo& info) const;

  static ProgressDelegateFactory mg_instance;
};

}  // namespace ProgressToStatusCallback

// An object that reports through a delegate, which may be missing. The delegate doesn't travel with
// a copy: a copy has none, and an assignment keeps the target's.
class QELBASE_API IProgressAble {
 public:
  IProgressAble() = default;
  IProgressAble(const IProgressAble&) {}
  // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): nothing is assigned
  IProgressAble& operator=(const IProgressAble&) { return *this; }
  virtual ~IProgressAble();

  void SetProgressDelegate(const std::shared_ptr<QelSDK::Common::IProgressDelegate>& delegate);

 protected:
  std::shared_ptr<QelSDK::Common::IProgressDelegate> m_delegate;
};

// Sends the text, as UTF-8, as the reporter's notification.
QELBASE_API void SetProgressText(QelSDK::Common::IncrementalProgressReporter& reporter,
                                 const std::wstring& text);
