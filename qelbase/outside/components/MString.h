#pragma once
// The wide string of the file component.

#include <cstdarg>
#include <string>

#include "qelbase/export.h"

// An object belongs to one thread at a time.
class QELBASE_API MString {
 public:
  MString();
  MString(const wchar_t* text);  // null gives an empty text
  MString(const std::wstring& text);
  ~MString();
  MString(const MString& other);
  MString& operator=(const MString& other);

  const wchar_t* C_STR() const;  // zero-terminated; until the next change of the object

  // printf-style, with the letters as outside/system/text.h tells them. A null or refused format
  // gives an empty text.
  void VFORMAT(const wchar_t* format, va_list args);

  // Takes the value of `key` in `[section]` of an ini file: names in either case, blanks around the
  // value and one pair of quotes around that taken off. The first match counts. The file is narrow
  // (UTF-8, with or without byte order mark) or little- or big-endian 16-bit text with byte order
  // mark. False, and the old text kept, if the file cannot be read or has no such key.
  bool LOAD_INI_STRING(const wchar_t* file, const wchar_t* section, const wchar_t* key);

 private:
  std::wstring m_text;
};
