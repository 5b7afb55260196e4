#include "qelbase/text/resource_strings.h"

#include <atomic>

namespace {
constinit std::atomic<IResStringWrapper*> string_wrapper = nullptr;
}

void SetMResStringWrapper(IResStringWrapper* wrapper) {
  string_wrapper = wrapper;
}

std::wstring QelResLoadStringEx(unsigned id) {
  std::wstring text;
  QelResLoadStringEx(text, id);
  return text;
}

bool QelResLoadStringEx(CStringW& text, unsigned id) {
  std::wstring loaded;
  if (!QelResLoadStringEx(loaded, id)) return false;
  text = loaded;
  return true;
}

bool QelResLoadStringEx(std::wstring& text, unsigned id) {
  if (IResStringWrapper* wrapper = string_wrapper) return wrapper->LoadStringEx(text, id);
  text.clear();
  return false;
}

std::int32_t QelResLoadCharEx(wchar_t* buffer, unsigned first, unsigned second) {
  if (IResStringWrapper* wrapper = string_wrapper)
    return wrapper->LoadCharEx(buffer, first, second);
  *buffer = 0;
  return 0;
}
