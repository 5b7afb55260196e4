#include "qelbase/outside/components/MString.h"

#include <optional>
#include <utility>

#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/profile_internal.h"
#include "qelbase/outside/system/text.h"

MString::MString() = default;
MString::MString(const wchar_t* text) : m_text(text ? text : L"") {}
MString::MString(const std::wstring& text) : m_text(text) {}
MString::~MString() = default;
MString::MString(const MString& other) = default;
MString& MString::operator=(const MString& other) = default;

const wchar_t* MString::C_STR() const {
  return m_text.c_str();
}

void MString::VFORMAT(const wchar_t* format, va_list args) {
  std::wstring text;  // apart, since the arguments may point into this one
  qel::sys::AppendFormatV(text, format, args);
  m_text = std::move(text);
}

bool MString::LOAD_INI_STRING(const wchar_t* file, const wchar_t* section, const wchar_t* key) {
  std::string native;
  if (!file || !section || !key || !qel::sys::ToNative(file, native)) return false;
  std::optional<std::wstring> value = qel::sys::ProfileValueIn(native, section, key);
  if (!value) return false;
  m_text = std::move(*value);
  return true;
}
