#pragma once
// The receiver of status calls that turns them into progress scopes.

#include <map>
#include <vector>

#include "qelbase/export.h"
#include "qelbase/outside/components/locking.h"
#include "qelbase/progress/IStatusCallback.h"
#include "qelbase/progress/MProgress.h"

// Each thread has a stack of scopes of its own here, though all of them stand in the one list of
// MProgressManager, in the order of their begins. Any thread may call; the object's lock is held
// over each call that looks at a stack, and is taken before a scope's. A window procedure must not
// come back here from a message of a scope that was not moved through here.
class QELBASE_API MStatusCallbackToMProgressImpl : public IStatusCallback,
                                                   private StdBase::LocalLocking {
 public:
  explicit MStatusCallbackToMProgressImpl(bool listen = true);
  MStatusCallbackToMProgressImpl(const MStatusCallbackToMProgressImpl&) = delete;
  MStatusCallbackToMProgressImpl& operator=(const MStatusCallbackToMProgressImpl&) = delete;
  // Leaves no receiver, whichever was registered. Scopes that are still open stay in the manager's
  // list for good.
  ~MStatusCallbackToMProgressImpl() override;

  void StartListen() override;
  void StopListen() override;  // leaves no receiver, whichever was registered

  // What has no line of its own here does nothing.
  void Status(unsigned int id, va_list args) override;
  void Status(const wchar_t* text, va_list args) override;
  void StatusTemp(unsigned int id, va_list args) override;

  // Move the calling thread's innermost scope; false if it has none.
  bool StatusCount(double position) override;
  bool StatusInc(double amount) override;

  void StatusInit(unsigned int id, va_list args) override;
  void StatusInit(const wchar_t* text, va_list args) override;
  void StatusInitText(const wchar_t* text) override;
  void StatusInitQelResString(unsigned int id, va_list args) override;
  void StatusInitQelResString(const wchar_t* text, va_list args) override;
  void StatusMode(unsigned long mode, unsigned short value, bool on) override;
  HWND StatusParent(HWND parent) override;
  void StatusStop() override;

  // The manager's abort flag.
  bool StatusGetAbort() override;

  // Opens a scope with the formatted text, which is in place before the begin is told. The form
  // with an identifier (0: an empty text) hands the resource string on to the registered receiver,
  // not to this object, and does nothing if there is none.
  void StatusBegin(double from, double to, unsigned int id, va_list args) override;
  void StatusBegin(double from, double to, const wchar_t* text, va_list args) override;
  // Ends the innermost scope, if any.
  void StatusEnd() override;

  // Sets the text, as it comes, if the calling thread has exactly one open scope; else false, and
  // nothing changes.
  bool StatusText(short level, const wchar_t* text, va_list args) override;

  void StatusBeginQelResString(double from, double to, unsigned int id, va_list args) override;

  // These three give false, and do nothing.
  bool StatusTextInfo(const wchar_t* text, va_list args) override;
  bool StatusTextWarning(const wchar_t* text, va_list args) override;
  bool StatusTextError(const wchar_t* text, va_list args) override;

  void StatusTextMode(unsigned short mode, unsigned short value) override;
  void TooltipText(const wchar_t* text) override;
  void TooltipShow(bool show) override;
  void StatusError(unsigned int id, va_list args) override;
  void StatusError(const wchar_t* text, va_list args) override;
  void StatusMessage(unsigned int id, va_list args) override;
  void StatusMessage(const wchar_t* text, va_list args) override;
  void StatusWarning(unsigned int id, va_list args) override;
  void StatusWarning(const wchar_t* text, va_list args) override;

 protected:
  unsigned long GetThreadId();

 private:
  using Stack = std::vector<MProgress*>;  // owned, innermost last
  Stack& OwnStack();

  std::map<DWORD, Stack> m_stacks;  // by thread
};
