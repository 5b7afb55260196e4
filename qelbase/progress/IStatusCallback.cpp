#include "qelbase/progress/IStatusCallback.h"

IStatusCallback::~IStatusCallback() = default;

bool IStatusCallback::HasInstance() {
  return mp_instance != nullptr;
}

IStatusCallback::Session::Session(double from, double to, const wchar_t* text) {
  STATUS_BEGIN(from, to, text);
}

IStatusCallback::Session::~Session() {
  STATUS_END();
}

void IStatusCallback::STATUS(unsigned int id, ...) {
  va_list args;
  va_start(args, id);
  STATUSV(id, args);
  va_end(args);
}

void IStatusCallback::STATUSV(unsigned int id, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->Status(id, args);
}

void IStatusCallback::STATUS(const wchar_t* text, ...) {
  va_list args;
  va_start(args, text);
  STATUSV(text, args);
  va_end(args);
}

void IStatusCallback::STATUSV(const wchar_t* text, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->Status(text, args);
}

void IStatusCallback::STATUS_TEMP(unsigned int id, ...) {
  va_list args;
  va_start(args, id);
  STATUS_TEMPV(id, args);
  va_end(args);
}

void IStatusCallback::STATUS_TEMPV(unsigned int id, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusTemp(id, args);
}

bool IStatusCallback::STATUS_COUNT(double position) {
  IStatusCallback* receiver = mp_instance;
  return receiver ? receiver->StatusCount(position) : true;
}

bool IStatusCallback::STATUS_INC(double amount) {
  IStatusCallback* receiver = mp_instance;
  return receiver ? receiver->StatusInc(amount) : true;
}

void IStatusCallback::STATUS_INIT(unsigned int id, ...) {
  va_list args;
  va_start(args, id);
  STATUS_INITV(id, args);
  va_end(args);
}

void IStatusCallback::STATUS_INITV(unsigned int id, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusInit(id, args);
}

void IStatusCallback::STATUS_INIT(const wchar_t* text, ...) {
  va_list args;
  va_start(args, text);
  STATUS_INITV(text, args);
  va_end(args);
}

void IStatusCallback::STATUS_INITV(const wchar_t* text, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusInit(text, args);
}

void IStatusCallback::STATUS_INIT_TEXT(const wchar_t* text) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusInitText(text);
}

void IStatusCallback::STATUS_INIT_QEL_RES_STRING(unsigned int id, ...) {
  va_list args;
  va_start(args, id);
  STATUS_INIT_QEL_RES_STRINGV(id, args);
  va_end(args);
}

void IStatusCallback::STATUS_INIT_QEL_RES_STRINGV(unsigned int id, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusInitQelResString(id, args);
}

void IStatusCallback::STATUS_INIT_QEL_RES_STRING(const wchar_t* text, ...) {
  va_list args;
  va_start(args, text);
  STATUS_INIT_QEL_RES_STRINGV(text, args);
  va_end(args);
}

void IStatusCallback::STATUS_INIT_QEL_RES_STRINGV(const wchar_t* text, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusInitQelResString(text, args);
}

void IStatusCallback::STATUS_MODE(unsigned long mode, unsigned short value, bool on) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusMode(mode, value, on);
}

HWND IStatusCallback::STATUS_PARENT(HWND parent) {
  IStatusCallback* receiver = mp_instance;
  return receiver ? receiver->StatusParent(parent) : nullptr;
}

void IStatusCallback::STATUS_STOP() {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusStop();
}

bool IStatusCallback::STATUS_GET_ABORT() {
  IStatusCallback* receiver = mp_instance;
  return receiver ? receiver->StatusGetAbort() : false;
}

void IStatusCallback::STATUS_BEGIN(double from, double to, unsigned int id, ...) {
  va_list args;
  va_start(args, id);
  STATUS_BEGINV(from, to, id, args);
  va_end(args);
}

void IStatusCallback::STATUS_BEGINV(double from, double to, unsigned int id, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusBegin(from, to, id, args);
}

void IStatusCallback::STATUS_BEGIN(double from, double to, const wchar_t* text, ...) {
  va_list args;
  va_start(args, text);
  STATUS_BEGINV(from, to, text, args);
  va_end(args);
}

void IStatusCallback::STATUS_BEGINV(double from, double to, const wchar_t* text, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusBegin(from, to, text, args);
}

void IStatusCallback::STATUS_END() {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusEnd();
}

bool IStatusCallback::STATUS_TEXT(short level, const wchar_t* text, ...) {
  va_list args;
  va_start(args, text);
  const bool result = STATUS_TEXTV(level, text, args);
  va_end(args);
  return result;
}

bool IStatusCallback::STATUS_TEXTV(short level, const wchar_t* text, va_list args) {
  IStatusCallback* receiver = mp_instance;
  return receiver ? receiver->StatusText(level, text, args) : true;
}

void IStatusCallback::STATUS_BEGIN_QEL_RES_STRING(double from, double to, unsigned int id, ...) {
  va_list args;
  va_start(args, id);
  STATUS_BEGIN_QEL_RES_STRINGV(from, to, id, args);
  va_end(args);
}

void IStatusCallback::STATUS_BEGIN_QEL_RES_STRINGV(double from, double to, unsigned int id,
                                                   va_list args) {
  if (IStatusCallback* receiver = mp_instance)
    receiver->StatusBeginQelResString(from, to, id, args);
}

bool IStatusCallback::STATUS_TEXT_INFO(const wchar_t* text, ...) {
  va_list args;
  va_start(args, text);
  const bool result = STATUS_TEXT_INFOV(text, args);
  va_end(args);
  return result;
}

bool IStatusCallback::STATUS_TEXT_INFOV(const wchar_t* text, va_list args) {
  IStatusCallback* receiver = mp_instance;
  return receiver ? receiver->StatusTextInfo(text, args) : true;
}

bool IStatusCallback::STATUS_TEXT_WARNING(const wchar_t* text, ...) {
  va_list args;
  va_start(args, text);
  const bool result = STATUS_TEXT_WARNINGV(text, args);
  va_end(args);
  return result;
}

bool IStatusCallback::STATUS_TEXT_WARNINGV(const wchar_t* text, va_list args) {
  IStatusCallback* receiver = mp_instance;
  return receiver ? receiver->StatusTextWarning(text, args) : true;
}

bool IStatusCallback::STATUS_TEXT_ERROR(const wchar_t* text, ...) {
  va_list args;
  va_start(args, text);
  const bool result = STATUS_TEXT_ERRORV(text, args);
  va_end(args);
  return result;
}

bool IStatusCallback::STATUS_TEXT_ERRORV(const wchar_t* text, va_list args) {
  IStatusCallback* receiver = mp_instance;
  return receiver ? receiver->StatusTextError(text, args) : true;
}

void IStatusCallback::STATUS_TEXT_MODE(unsigned short mode, unsigned short value) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusTextMode(mode, value);
}

void IStatusCallback::TOOLTIP_TEXT(const wchar_t* text) {
  if (IStatusCallback* receiver = mp_instance) receiver->TooltipText(text);
}

void IStatusCallback::TOOLTIP_SHOW(bool show) {
  if (IStatusCallback* receiver = mp_instance) receiver->TooltipShow(show);
}

void IStatusCallback::STATUS_ERROR(unsigned int id, ...) {
  va_list args;
  va_start(args, id);
  STATUS_ERRORV(id, args);
  va_end(args);
}

void IStatusCallback::STATUS_ERRORV(unsigned int id, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusError(id, args);
}

void IStatusCallback::STATUS_ERROR(const wchar_t* text, ...) {
  va_list args;
  va_start(args, text);
  STATUS_ERRORV(text, args);
  va_end(args);
}

void IStatusCallback::STATUS_ERRORV(const wchar_t* text, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusError(text, args);
}

void IStatusCallback::STATUS_MESSAGE(unsigned int id, ...) {
  va_list args;
  va_start(args, id);
  STATUS_MESSAGEV(id, args);
  va_end(args);
}

void IStatusCallback::STATUS_MESSAGEV(unsigned int id, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusMessage(id, args);
}

void IStatusCallback::STATUS_MESSAGE(const wchar_t* text, ...) {
  va_list args;
  va_start(args, text);
  STATUS_MESSAGEV(text, args);
  va_end(args);
}

void IStatusCallback::STATUS_MESSAGEV(const wchar_t* text, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusMessage(text, args);
}

void IStatusCallback::STATUS_WARNING(unsigned int id, ...) {
  va_list args;
  va_start(args, id);
  STATUS_WARNINGV(id, args);
  va_end(args);
}

void IStatusCallback::STATUS_WARNINGV(unsigned int id, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusWarning(id, args);
}

void IStatusCallback::STATUS_WARNING(const wchar_t* text, ...) {
  va_list args;
  va_start(args, text);
  STATUS_WARNINGV(text, args);
  va_end(args);
}

void IStatusCallback::STATUS_WARNINGV(const wchar_t* text, va_list args) {
  if (IStatusCallback* receiver = mp_instance) receiver->StatusWarning(text, args);
}
