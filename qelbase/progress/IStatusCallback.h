#pragma once
// The process-wide receiver of status calls.

#include <atomic>
#include <cstdarg>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

// Code that has something to report calls the static functions; they forward to the one receiver,
// on the caller's thread, and do nothing if there is none. The receiver must take calls from any
// thread, and must live until no thread can be inside a forwarder.
//
// A text or identifier that is followed by a list of arguments is a printf format (see
// outside/system/text.h). Forms that end in V take the list ready-made, and use it up. The
// identifiers are those of string resources; in the QelResString operations, of the strings behind
// the installed string wrapper.
class QELBASE_API IStatusCallback {
 public:
  IStatusCallback() = default;
  IStatusCallback(const IStatusCallback&) = default;
  IStatusCallback& operator=(const IStatusCallback&) = default;

  // What a receiver implements, in slot order.
  virtual ~IStatusCallback() = 0;
  virtual void StartListen() = 0;
  virtual void StopListen() = 0;
  virtual void Status(unsigned int id, va_list args) = 0;
  virtual void Status(const wchar_t* text, va_list args) = 0;
  virtual void StatusTemp(unsigned int id, va_list args) = 0;
  virtual bool StatusCount(double position) = 0;
  virtual bool StatusInc(double amount) = 0;
  virtual void StatusInit(unsigned int id, va_list args) = 0;
  virtual void StatusInit(const wchar_t* text, va_list args) = 0;
  virtual void StatusInitText(const wchar_t* text) = 0;
  virtual void StatusInitQelResString(unsigned int id, va_list args) = 0;
  virtual void StatusInitQelResString(const wchar_t* text, va_list args) = 0;
  virtual void StatusMode(unsigned long mode, unsigned short value, bool on) = 0;
  virtual HWND StatusParent(HWND parent) = 0;
  virtual void StatusStop() = 0;
  virtual bool StatusGetAbort() = 0;
  virtual void StatusBegin(double from, double to, unsigned int id, va_list args) = 0;
  virtual void StatusBegin(double from, double to, const wchar_t* text, va_list args) = 0;
  virtual void StatusEnd() = 0;
  virtual bool StatusText(short level, const wchar_t* text, va_list args) = 0;
  virtual void StatusBeginQelResString(double from, double to, unsigned int id, va_list args) = 0;
  virtual bool StatusTextInfo(const wchar_t* text, va_list args) = 0;
  virtual bool StatusTextWarning(const wchar_t* text, va_list args) = 0;
  virtual bool StatusTextError(const wchar_t* text, va_list args) = 0;
  virtual void StatusTextMode(unsigned short mode, unsigned short value) = 0;
  virtual void TooltipText(const wchar_t* text) = 0;
  virtual void TooltipShow(bool show) = 0;
  virtual void StatusError(unsigned int id, va_list args) = 0;
  virtual void StatusError(const wchar_t* text, va_list args) = 0;
  virtual void StatusMessage(unsigned int id, va_list args) = 0;
  virtual void StatusMessage(const wchar_t* text, va_list args) = 0;
  virtual void StatusWarning(unsigned int id, va_list args) = 0;
  virtual void StatusWarning(const wchar_t* text, va_list args) = 0;

  // Whether there is a receiver.
  [[nodiscard]] static bool HasInstance();

  // Without a receiver these give true, STATUS_GET_ABORT false, STATUS_PARENT null.
  static void STATUS(unsigned int id, ...);
  static void STATUSV(unsigned int id, va_list args);
  static void STATUS(const wchar_t* text, ...);
  static void STATUSV(const wchar_t* text, va_list args);
  static void STATUS_TEMP(unsigned int id, ...);
  static void STATUS_TEMPV(unsigned int id, va_list args);
  static bool STATUS_COUNT(double position);
  static bool STATUS_INC(double amount);
  static void STATUS_INIT(unsigned int id, ...);
  static void STATUS_INITV(unsigned int id, va_list args);
  static void STATUS_INIT(const wchar_t* text, ...);
  static void STATUS_INITV(const wchar_t* text, va_list args);
  static void STATUS_INIT_TEXT(const wchar_t* text);
  static void STATUS_INIT_QEL_RES_STRING(unsigned int id, ...);
  static void STATUS_INIT_QEL_RES_STRINGV(unsigned int id, va_list args);
  static void STATUS_INIT_QEL_RES_STRING(const wchar_t* text, ...);
  static void STATUS_INIT_QEL_RES_STRINGV(const wchar_t* text, va_list args);
  static void STATUS_MODE(unsigned long mode, unsigned short value, bool on);
  static HWND STATUS_PARENT(HWND parent);
  static void STATUS_STOP();
  static bool STATUS_GET_ABORT();
  static void STATUS_BEGIN(double from, double to, unsigned int id, ...);
  static void STATUS_BEGINV(double from, double to, unsigned int id, va_list args);
  static void STATUS_BEGIN(double from, double to, const wchar_t* text, ...);
  static void STATUS_BEGINV(double from, double to, const wchar_t* text, va_list args);
  static void STATUS_END();
  static bool STATUS_TEXT(short level, const wchar_t* text, ...);
  static bool STATUS_TEXTV(short level, const wchar_t* text, va_list args);
  static void STATUS_BEGIN_QEL_RES_STRING(double from, double to, unsigned int id, ...);
  static void STATUS_BEGIN_QEL_RES_STRINGV(double from, double to, unsigned int id, va_list args);
  static bool STATUS_TEXT_INFO(const wchar_t* text, ...);
  static bool STATUS_TEXT_INFOV(const wchar_t* text, va_list args);
  static bool STATUS_TEXT_WARNING(const wchar_t* text, ...);
  static bool STATUS_TEXT_WARNINGV(const wchar_t* text, va_list args);
  static bool STATUS_TEXT_ERROR(const wchar_t* text, ...);
  static bool STATUS_TEXT_ERRORV(const wchar_t* text, va_list args);
  static void STATUS_TEXT_MODE(unsigned short mode, unsigned short value);
  static void TOOLTIP_TEXT(const wchar_t* text);
  static void TOOLTIP_SHOW(bool show);
  static void STATUS_ERROR(unsigned int id, ...);
  static void STATUS_ERRORV(unsigned int id, va_list args);
  static void STATUS_ERROR(const wchar_t* text, ...);
  static void STATUS_ERRORV(const wchar_t* text, va_list args);
  static void STATUS_MESSAGE(unsigned int id, ...);
  static void STATUS_MESSAGEV(unsigned int id, va_list args);
  static void STATUS_MESSAGE(const wchar_t* text, ...);
  static void STATUS_MESSAGEV(const wchar_t* text, va_list args);
  static void STATUS_WARNING(unsigned int id, ...);
  static void STATUS_WARNINGV(unsigned int id, va_list args);
  static void STATUS_WARNING(const wchar_t* text, ...);
  static void STATUS_WARNINGV(const wchar_t* text, va_list args);

  // Begins a range, and ends it when it goes. The text is a format without arguments. The end goes
  // to the receiver of that moment, whoever heard the begin.
  class QELBASE_API Session {
   public:
    Session(double from, double to, const wchar_t* text);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();
  };

 protected:
  // The receiver; not owned. The last one who writes it wins.
  static std::atomic<IStatusCallback*> mp_instance;
};
