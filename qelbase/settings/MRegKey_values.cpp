#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/registry.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/settings/MRegKey.h"

using namespace qel::sys;

namespace {

bool isEmpty(const wchar_t* text) {
  return !text || !*text;
}

// The whole text is one number in range.
template <typename Number>
bool toNumber(const CStringW& text, Number (*parse)(const wchar_t*, const wchar_t**, int),
              Number& out) {
  const wchar_t* const begin = text;
  const wchar_t* end = nullptr;
  errno = 0;
  out = parse(begin, &end, 10);
  return end != begin && *end == 0 && errno != ERANGE;
}

}  // namespace

// --- one value ---

int MRegKey::wrongForm(std::int32_t code) {
  m_last_error = code;
  return 0;
}

int MRegKey::findValue(const wchar_t* name, std::uint32_t expected, std::uint32_t& size) {
  if (!begin(0)) return 0;
  DWORD type = 0;
  m_last_error = RegQueryValueExW(m_handle, name, nullptr, &type, nullptr, &size);
  if (m_last_error != 0) return 0;
  return type == expected ? 1 : wrongForm();
}

int MRegKey::readValue(const wchar_t* name, void* data, std::uint32_t& size) {
  m_last_error = RegQueryValueExW(m_handle, name, nullptr, nullptr, data, &size);
  return m_last_error == 0;
}

int MRegKey::writeValue(const wchar_t* name, std::uint32_t type, const void* data,
                        std::size_t size) {
  if (!begin(1)) return 0;
  m_last_error = RegSetValueExW(m_handle, name, 0, type, data, static_cast<DWORD>(size));
  return m_last_error == 0;
}

int MRegKey::DeleteValue(const wchar_t* name) {
  if (!begin(0)) return 0;
  m_last_error = RegDeleteValueW(m_handle, name);
  return m_last_error == 0 || m_last_error == static_cast<LONG>(ERROR_FILE_NOT_FOUND);
}

// --- text ---

int MRegKey::GetRegStr(const wchar_t* name, CStringW& value) {
  std::uint32_t size = 0;
  if (!findValue(name, REG_SZ, size)) return 0;
  std::string bytes(size, '\0');
  if (!readValue(name, bytes.data(), size)) return 0;
  bytes.resize(size);
  value = FromUtf16Le(bytes).c_str();  // up to its zero
  return 1;
}

CStringW MRegKey::GetRegStrD(const wchar_t* name, const CStringW& otherwise) {
  CStringW value;
  return GetRegStr(name, value) ? value : otherwise;
}

int MRegKey::_SetRegStr(const wchar_t* name, const wchar_t* value) {
  const std::string units = ToUtf16Le(std::wstring(value ? value : L"") + L'\0');
  return writeValue(name, REG_SZ, units.data(), units.size());
}

int MRegKey::SetRegStr(const wchar_t* name, const wchar_t* value, int remove) {
  return remove ? DeleteValue(name) : _SetRegStr(name, value);
}

int MRegKey::SetRegStrE(const wchar_t* name, const wchar_t* value) {
  return SetRegStr(name, value, isEmpty(value));
}

int MRegKey::UpdRegStr(const wchar_t* name, const wchar_t* value, int remove) {
  if (remove) return DeleteValue(name);
  CStringW present;
  if (GetRegStr(name, present) && CompareNoCase(present.GetString(), value ? value : L"") == 0) {
    return 1;
  }
  return _SetRegStr(name, value);
}

int MRegKey::UpdRegStrE(const wchar_t* name, const wchar_t* value) {
  return UpdRegStr(name, value, isEmpty(value));
}

// --- numbers ---

int MRegKey::GetRegDWORD(const wchar_t* name, std::uint32_t& value) {
  std::uint32_t size = 0, stored = 0;
  if (!findValue(name, REG_DWORD, size)) return 0;
  if (size != sizeof stored) return wrongForm();
  if (!readValue(name, &stored, size)) return 0;
  value = stored;
  return 1;
}

std::uint32_t MRegKey::GetRegDWORDD(const wchar_t* name, std::uint32_t otherwise) {
  GetRegDWORD(name, otherwise);
  return otherwise;
}

int MRegKey::_SetRegDWORD(const wchar_t* name, std::uint32_t value) {
  return writeValue(name, REG_DWORD, &value, sizeof value);
}

int MRegKey::SetRegDWORD(const wchar_t* name, std::uint32_t value, int remove) {
  return remove ? DeleteValue(name) : _SetRegDWORD(name, value);
}

int MRegKey::GetRegLong(const wchar_t* name, long& value) {
  CStringW text;
  LONG number = 0;
  if (!GetRegStr(name, text)) return 0;
  if (!toNumber(text, qel::sys::wcstol, number)) return wrongForm();
  value = number;
  return 1;
}

long MRegKey::GetRegLongD(const wchar_t* name, long otherwise) {
  GetRegLong(name, otherwise);
  return otherwise;
}

int MRegKey::_SetRegLong(const wchar_t* name, long value) {
  return _SetRegStr(name, std::to_wstring(static_cast<std::int32_t>(value)).c_str());
}

int MRegKey::SetRegLong(const wchar_t* name, long value, int remove) {
  return remove ? DeleteValue(name) : _SetRegLong(name, value);
}

int MRegKey::GetRegInt(const wchar_t* name, int& value) {
  long number = 0;
  if (!GetRegLong(name, number)) return 0;
  value = static_cast<int>(number);
  return 1;
}

int MRegKey::GetRegIntD(const wchar_t* name, int otherwise) {
  GetRegInt(name, otherwise);
  return otherwise;
}

int MRegKey::SetRegInt(const wchar_t* name, int value, int remove) {
  return SetRegLong(name, value, remove);
}

int MRegKey::GetRegULong(const wchar_t* name, unsigned long& value) {
  CStringW text;
  ULONG number = 0;
  if (!GetRegStr(name, text)) return 0;
  if (!toNumber(text, qel::sys::wcstoul, number)) return wrongForm();
  value = number;
  return 1;
}

unsigned long MRegKey::GetRegULongD(const wchar_t* name, unsigned long otherwise) {
  GetRegULong(name, otherwise);
  return otherwise;
}

int MRegKey::_SetRegULong(const wchar_t* name, unsigned long value) {
  return _SetRegStr(name, std::to_wstring(static_cast<std::uint32_t>(value)).c_str());
}

int MRegKey::SetRegULong(const wchar_t* name, unsigned long value, int remove) {
  return remove ? DeleteValue(name) : _SetRegULong(name, value);
}

// --- bytes ---

int MRegKey::GetRegBinary(const wchar_t* name, std::uint8_t*& data, std::uint32_t& size) {
  data = nullptr;
  size = 0;
  std::uint32_t stored = 0;
  if (!findValue(name, REG_BINARY, stored)) return 0;
  auto* const bytes = new (std::nothrow) std::uint8_t[stored];
  if (!bytes) return wrongForm();
  if (!readValue(name, bytes, stored)) {
    delete[] bytes;
    return 0;
  }
  data = bytes;
  size = stored;
  return 1;
}

int MRegKey::GetRegBinary(const wchar_t* name, CByteArray& value) {
  value.RemoveAll();
  std::uint32_t size = 0;
  if (!findValue(name, REG_BINARY, size)) return 0;
  value.SetSize(size);
  const int done = readValue(name, value.GetData(), size);
  value.SetSize(done ? size : 0);
  return done;
}

int MRegKey::_SetRegBinary(const wchar_t* name, const std::uint8_t* data, std::uint32_t size) {
  return writeValue(name, REG_BINARY, data, size);
}

int MRegKey::SetRegBinary(const wchar_t* name, const std::uint8_t* data, std::uint32_t size,
                          int remove) {
  return remove ? DeleteValue(name) : _SetRegBinary(name, data, size);
}

int MRegKey::SetRegBinary(const wchar_t* name, const CByteArray& value, int remove) {
  return SetRegBinary(name, value.GetData(), static_cast<std::uint32_t>(value.GetSize()), remove);
}

int MRegKey::GetRegStruct(const wchar_t* name, void* data, std::uint32_t size) {
  std::uint32_t stored = 0;
  if (!findValue(name, REG_BINARY, stored)) {
    return m_last_error == WRONG_FORM ? wrongForm(WRONG_STRUCT) : 0;
  }
  m_last_error = WRONG_STRUCT;  // stays for who only asks
  if (stored != size) return 0;
  if (!data) return 1;
  std::memset(data, 0, size);
  return readValue(name, data, stored);
}

int MRegKey::SetRegStruct(const wchar_t* name, const void* data, std::uint32_t size, int remove) {
  return SetRegBinary(name, static_cast<const std::uint8_t*>(data), size, remove);
}
