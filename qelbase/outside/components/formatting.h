#pragma once
// Formatting into wide text, and narrow text made wide.

#include <cstdarg>
#include <string>

#include "qelbase/export.h"

namespace QelStdBase {

// printf-style, with the letters as outside/system/text.h tells them: `%s` is wide text here. A
// null or refused format gives an empty text.
QELBASE_API std::wstring FormatString(const wchar_t* format, ...);
QELBASE_API std::wstring FormatStringV(const wchar_t* format, va_list args);

// From UTF-8, whatever the default code page is; null gives an empty text.
QELBASE_API std::wstring ConvertAnsiToUnicode(const char* text);
QELBASE_API std::wstring ConvertAnsiToUnicode(const std::string& text);

}  // namespace QelStdBase
