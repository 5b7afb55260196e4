#include "qelbase/progress/MStatusCallbackToMProgressImpl.h"

#include <memory>
#include <string>

#include "qelbase/outside/framework/CString.h"
#include "qelbase/outside/system/messages.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/text/CQelResource.h"

using Impl = MStatusCallbackToMProgressImpl;

Impl::MStatusCallbackToMProgressImpl(bool listen) {
  if (listen) mp_instance = this;
}

Impl::~MStatusCallbackToMProgressImpl() {
  mp_instance = nullptr;
}

void Impl::StartListen() {
  mp_instance = this;
}
void Impl::StopListen() {
  mp_instance = nullptr;
}

unsigned long Impl::GetThreadId() {
  return qel::sys::GetCurrentThreadId();
}

Impl::Stack& Impl::OwnStack() {
  return m_stacks[static_cast<DWORD>(GetThreadId())];
}

void Impl::StatusBegin(double from, double to, const wchar_t* text, va_list args) {
  const auto lock = LockThis();
  auto& stack = OwnStack();
  stack.push_back(std::make_unique<MProgress>(from, to, false).release());
  MProgress& scope = *stack.back();
  if (text) {
    std::wstring formatted;
    qel::sys::AppendFormatV(formatted, text, args);
    scope.SetText(formatted.c_str());
  }
  scope.Begin(from, to);
}

void Impl::StatusBegin(double from, double to, unsigned int id, va_list args) {
  CStringW text;
  if (id != 0) text.LoadStringW(CQelResource::GetResInstance(), id);
  if (IStatusCallback* receiver = mp_instance) receiver->StatusBegin(from, to, text, args);
}

void Impl::StatusEnd() {
  const auto lock = LockThis();
  auto& stack = OwnStack();
  if (stack.empty()) return;
  const std::unique_ptr<MProgress> innermost(stack.back());
  stack.pop_back();
}

bool Impl::StatusInc(double amount) {
  const auto lock = LockThis();
  const auto& stack = OwnStack();
  if (stack.empty()) return false;
  stack.back()->Increment(amount);
  return true;
}

bool Impl::StatusCount(double position) {
  const auto lock = LockThis();
  const auto& stack = OwnStack();
  if (stack.empty()) return false;
  stack.back()->SetCurrentPosition(position);
  return true;
}

bool Impl::StatusText(short, const wchar_t* text, va_list) {
  const auto lock = LockThis();
  const auto& stack = OwnStack();
  if (stack.size() != 1) return false;
  return stack.back()->SetText(text);
}

bool Impl::StatusGetAbort() {
  return MProgressManager::GetAbortFlag();
}
HWND Impl::StatusParent(HWND) {
  return nullptr;
}
bool Impl::StatusTextInfo(const wchar_t*, va_list) {
  return false;
}
bool Impl::StatusTextWarning(const wchar_t*, va_list) {
  return false;
}
bool Impl::StatusTextError(const wchar_t*, va_list) {
  return false;
}

// What this receiver doesn't show.
void Impl::Status(unsigned int, va_list) {}
void Impl::Status(const wchar_t*, va_list) {}
void Impl::StatusTemp(unsigned int, va_list) {}
void Impl::StatusInit(unsigned int, va_list) {}
void Impl::StatusInit(const wchar_t*, va_list) {}
void Impl::StatusInitText(const wchar_t*) {}
void Impl::StatusInitQelResString(unsigned int, va_list) {}
void Impl::StatusInitQelResString(const wchar_t*, va_list) {}
void Impl::StatusMode(unsigned long, unsigned short, bool) {}
void Impl::StatusStop() {}
void Impl::StatusBeginQelResString(double, double, unsigned int, va_list) {}
void Impl::StatusTextMode(unsigned short, unsigned short) {}
void Impl::TooltipText(const wchar_t*) {}
void Impl::TooltipShow(bool) {}
void Impl::StatusError(unsigned int, va_list) {}
void Impl::StatusError(const wchar_t*, va_list) {}
void Impl::StatusMessage(unsigned int, va_list) {}
void Impl::StatusMessage(const wchar_t*, va_list) {}
void Impl::StatusWarning(unsigned int, va_list) {}
void Impl::StatusWarning(const wchar_t*, va_list) {}
