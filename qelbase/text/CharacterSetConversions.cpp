#include "qelbase/text/CharacterSetConversions.h"

#include <algorithm>

#include "qelbase/outside/system/text.h"

namespace CharacterSetConversions {

namespace {

template <typename T>
bool copyPlain(T*& dest, std::size_t& length, const T* text) {
  const std::size_t elements = std::char_traits<T>::length(text) + 1;
  dest = new T[elements];
  std::copy_n(text, elements, dest);
  length = elements;
  return true;
}

template <typename T>
T* plainCopy(const T* text) {
  T* copy = nullptr;
  std::size_t length = 0;
  copyPlain(copy, length, text);
  return copy;
}

char* narrowed(const wchar_t* text, const char* default_char) {
  char* copy = nullptr;
  std::size_t length = 0;
  CopyToNewMBCS(copy, length, text, default_char);
  return copy;
}

}  // namespace

// --- narrow ------------------------------------------------------------------------------------

String<char>::String(const CStringW& text) : m_text(narrowed(text.GetString(), nullptr)) {}
String<char>::String(const MString& text) : m_text(narrowed(text.C_STR(), nullptr)) {}
String<char>::String(const std::wstring& text) : m_text(narrowed(text.c_str(), nullptr)) {}
String<char>::String(const char* text) : m_text(plainCopy(text)) {}
String<char>::String(const wchar_t* text, char default_char)
    : m_text(narrowed(text, &default_char)) {}
String<char>::~String() {
  delete[] m_text;
}

bool CopyToNewMBCS(char*& dest, std::size_t& length, const wchar_t* text,
                   const char* default_char) {
  using qel::sys::WideCharToMultiByte;
  const int bytes =
      WideCharToMultiByte(qel::sys::CP_ACP, 0, text, -1, nullptr, 0, default_char, nullptr);
  if (bytes == 0) return false;
  dest = new char[static_cast<std::size_t>(bytes)];
  length = static_cast<std::size_t>(bytes);
  WideCharToMultiByte(qel::sys::CP_ACP, 0, text, -1, dest, bytes, default_char, nullptr);
  return true;
}
bool CopyToNewMBCS(char*& dest, std::size_t& length, const CStringW& text) {
  return CopyToNewMBCS(dest, length, text.GetString(), nullptr);
}
bool CopyToNewMBCS(char*& dest, std::size_t& length, const MString& text) {
  return CopyToNewMBCS(dest, length, text.C_STR(), nullptr);
}
bool CopyToNewMBCS(char*& dest, std::size_t& length, const std::wstring& text) {
  return CopyToNewMBCS(dest, length, text.c_str(), nullptr);
}
bool CopyToNewMBCS(char*& dest, std::size_t& length, const char* text) {
  return copyPlain(dest, length, text);
}

// --- wide --------------------------------------------------------------------------------------

String<wchar_t>::String(const CStringW& text) : m_text(plainCopy(text.GetString())) {}
String<wchar_t>::String(const MString& text) : m_text(plainCopy(text.C_STR())) {}
String<wchar_t>::String(const std::wstring& text) : m_text(plainCopy(text.c_str())) {}
String<wchar_t>::String(const wchar_t* text, char /*ignored*/) : m_text(plainCopy(text)) {}
String<wchar_t>::String(const char* text) {
  std::size_t length = 0;
  CopyToNewWCS(m_text, length, text);
}
String<wchar_t>::~String() {
  delete[] m_text;
}

bool CopyToNewWCS(wchar_t*& dest, std::size_t& length, const char* text) {
  using qel::sys::MultiByteToWideChar;
  const int elements = MultiByteToWideChar(qel::sys::CP_ACP, 0, text, -1, nullptr, 0);
  if (elements == 0) return false;
  dest = new wchar_t[static_cast<std::size_t>(elements)];
  length = static_cast<std::size_t>(elements);
  MultiByteToWideChar(qel::sys::CP_ACP, 0, text, -1, dest, elements);
  return true;
}
bool CopyToNewWCS(wchar_t*& dest, std::size_t& length, const wchar_t* text) {
  return copyPlain(dest, length, text);
}
bool CopyToNewWCS(wchar_t*& dest, std::size_t& length, const CStringW& text) {
  return copyPlain(dest, length, text.GetString());
}
bool CopyToNewWCS(wchar_t*& dest, std::size_t& length, const MString& text) {
  return copyPlain(dest, length, text.C_STR());
}
bool CopyToNewWCS(wchar_t*& dest, std::size_t& length, const std::wstring& text) {
  return copyPlain(dest, length, text.c_str());
}

bool CopyToNewTCS(wchar_t*& dest, std::size_t& length, const wchar_t* text) {
  return CopyToNewWCS(dest, length, text);
}
bool CopyToNewTCS(wchar_t*& dest, std::size_t& length, const char* text) {
  return CopyToNewWCS(dest, length, text);
}

}  // namespace CharacterSetConversions

MString CStringToMString(const CStringW& text) {
  const CharacterSetConversions::String<wchar_t> plain(text);
  return MString(plain);
}
