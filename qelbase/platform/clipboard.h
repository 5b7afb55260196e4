#pragma once
// Text to and from the clipboard (outside/system/clipboard.h), without a window.

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"

// Puts the text up to its zero on the clipboard, wide or narrow (in the default code page), in the
// place of what was there. Null counts as empty. Non-zero, or 0: somebody has the clipboard open
// (the old content then stays), there is no memory, or it cannot be written to (the old content is
// gone). Safe on any thread.
[[nodiscard]] QELBASE_API int CopyStringToClipboard(const wchar_t* text);
[[nodiscard]] QELBASE_API int CopyStringToClipboard(const char* text);

// The clipboard's text, the wide one if there are both. 0, and `text` as it was, if there is none,
// or if somebody has the clipboard open. Does not wait for the clipboard; how long a program that
// holds it may take to answer is told with the calls of the system.
[[nodiscard]] QELBASE_API int GetTextFromClipboard(CStringW& text);
