#pragma once
// Narrow and wide text as plain, zero-terminated heap buffers, for interfaces that know no string
// class. The narrow side is the process's default code page (outside/system/text.h).
//
// Buffers come from new[] and are freed with delete[]. A source ends at its first zero, also a
// string object with zeros inside. A null source is a fault of the caller, but for the conversions,
// where it counts as a text that cannot be converted. All functions may run on any thread.

#include <cstddef>
#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/components/MString.h"
#include "qelbase/outside/framework/CString.h"

namespace CharacterSetConversions {

// The scope-bound owner of one buffer. It reads as null if the conversion failed.
template <typename T>
class String;

template <>
class QELBASE_API String<char> {
 public:
  // Characters without a narrow form become the system's default character.
  explicit String(const CStringW& text);
  explicit String(const MString& text);
  explicit String(const std::wstring& text);
  explicit String(const char* text);  // a plain copy
  // `default_char` replaces what has no narrow form; 0 too, which ends the text there.
  String(const wchar_t* text, char default_char);
  ~String();
  String(const String&) = delete;
  String& operator=(const String&) = delete;

  operator const char*() const { return m_text; }

 private:
  char* m_text = nullptr;
};

template <>
class QELBASE_API String<wchar_t> {
 public:
  explicit String(const CStringW& text);
  explicit String(const MString& text);
  explicit String(const std::wstring& text);
  String(const wchar_t* text, char ignored);
  explicit String(const char* text);  // converted
  ~String();
  String(const String&) = delete;
  String& operator=(const String&) = delete;

  operator const wchar_t*() const { return m_text; }

 private:
  wchar_t* m_text = nullptr;
};

// Each gives the caller a new buffer in `dest` and its elements, terminator included, in `length`.
// False, and both untouched, for a text that cannot be converted; a plain copy is always true.
// `default_char` points at the replacement for what has no narrow form; null takes the system's.
QELBASE_API bool CopyToNewMBCS(char*& dest, std::size_t& length, const wchar_t* text,
                               const char* default_char);
QELBASE_API bool CopyToNewMBCS(char*& dest, std::size_t& length, const CStringW& text);
QELBASE_API bool CopyToNewMBCS(char*& dest, std::size_t& length, const MString& text);
QELBASE_API bool CopyToNewMBCS(char*& dest, std::size_t& length, const std::wstring& text);
QELBASE_API bool CopyToNewMBCS(char*& dest, std::size_t& length, const char* text);

QELBASE_API bool CopyToNewWCS(wchar_t*& dest, std::size_t& length, const char* text);
QELBASE_API bool CopyToNewWCS(wchar_t*& dest, std::size_t& length, const wchar_t* text);
QELBASE_API bool CopyToNewWCS(wchar_t*& dest, std::size_t& length, const CStringW& text);
QELBASE_API bool CopyToNewWCS(wchar_t*& dest, std::size_t& length, const MString& text);
QELBASE_API bool CopyToNewWCS(wchar_t*& dest, std::size_t& length, const std::wstring& text);

QELBASE_API bool CopyToNewTCS(wchar_t*& dest, std::size_t& length, const wchar_t* text);
QELBASE_API bool CopyToNewTCS(wchar_t*& dest, std::size_t& length, const char* text);

}  // namespace CharacterSetConversions

QELBASE_API MString CStringToMString(const CStringW& text);
