#include "qelbase/outside/components/formatting.h"

#include "qelbase/outside/system/text.h"

namespace QelStdBase {

std::wstring FormatString(const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  std::wstring text = FormatStringV(format, args);
  va_end(args);
  return text;
}

std::wstring FormatStringV(const wchar_t* format, va_list args) {
  std::wstring text;
  qel::sys::AppendFormatV(text, format, args);
  return text;
}

std::wstring ConvertAnsiToUnicode(const char* text) {
  return text ? ConvertAnsiToUnicode(std::string(text)) : std::wstring();
}

std::wstring ConvertAnsiToUnicode(const std::string& text) {
  return qel::sys::Widen(text, qel::sys::CP_UTF8);
}

}  // namespace QelStdBase
