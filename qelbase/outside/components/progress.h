#pragma once
// How sibling libraries tell their progress: reporters, the delegates that hear them, and the
// provider that gives a reporter its delegate.

#include <boost/any.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "qelbase/export.h"

namespace QelSDK::Common {

// The state of one range: a count that runs from 0 to a total.
class IProgressInfo {
 public:
  virtual std::uint64_t GetTotal() const = 0;
  virtual std::uint64_t GetCurrent() const = 0;

 protected:
  ~IProgressInfo() = default;
};

// Hears one reporter, on the reporter's thread. Each OnBegin is followed by one OnEnd.
class QELBASE_API IProgressDelegate {
 public:
  virtual ~IProgressDelegate() = default;
  virtual void OnBegin(const IProgressInfo& info) = 0;
  virtual void OnUpdate(const IProgressInfo& info) = 0;
  virtual void OnEnd() = 0;
  virtual bool IsAborted() = 0;  // whether the work is to end
  // The delegate for a range within this one; never null.
  virtual std::shared_ptr<IProgressDelegate> GetChildDelegate() = 0;
  // A step's name: a key, or a plain sentence, in UTF-8.
  virtual void OnNotification(const std::string& key, const boost::any& value) = 0;
};

// Safe on any thread.
namespace ProgressDelegateProvider {

using Provider = std::function<std::shared_ptr<IProgressDelegate>(const IProgressInfo&)>;

// What gives each new reporter its delegate, for the whole process; an empty one takes it away.
QELBASE_API void SetSharedProvider(Provider provider);

// What the provider gives; the stub if there is none or it gives null. Never null.
[[nodiscard]] QELBASE_API std::shared_ptr<IProgressDelegate> GetSharedDelegate(
    const IProgressInfo& info);

// A delegate that does nothing, is never aborted and is its own child.
[[nodiscard]] QELBASE_API std::shared_ptr<IProgressDelegate> GetStubDelegate();

}  // namespace ProgressDelegateProvider

// Begins a range at its delegate when it is made, and ends it when it goes. An object belongs to
// one thread at a time.
class QELBASE_API BaseProgressReporter : protected IProgressInfo {
 public:
  BaseProgressReporter(const BaseProgressReporter&) = delete;
  BaseProgressReporter& operator=(const BaseProgressReporter&) = delete;
  virtual ~BaseProgressReporter();

  std::uint64_t GetTotal() const override { return m_total; }
  std::uint64_t GetCurrent() const override { return m_current; }

  [[nodiscard]] bool IsAborted() const;
  void SendNotification(const std::string& key, const boost::any& value);
  // For a reporter of a range within this one.
  [[nodiscard]] std::shared_ptr<IProgressDelegate> GetChildDelegate() const;

 protected:
  // A null delegate stands for the shared provider's.
  BaseProgressReporter(std::uint64_t total, std::shared_ptr<IProgressDelegate> delegate);
  // Counts are cut to the total, unless that is 0 (unknown). The delegate hears of about a thousand
  // steps of the whole range, of each step back, and of the total.
  void MoveTo(std::uint64_t current);

 private:
  std::uint64_t m_total;
  std::uint64_t m_current = 0;
  std::uint64_t m_next_update = 0;
  std::shared_ptr<IProgressDelegate> m_delegate;
};

// A reporter that counts up.
class QELBASE_API IncrementalProgressReporter : public BaseProgressReporter {
 public:
  explicit IncrementalProgressReporter(std::uint64_t total,
                                       std::shared_ptr<IProgressDelegate> delegate = nullptr);
  void Increment(std::uint64_t count = 1);
  void SetCurrent(std::uint64_t current) { MoveTo(current); }
};

}  // namespace QelSDK::Common
