#include <algorithm>
#include <memory>
#include <new>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/settings/COXRegistry.h"

using namespace qel::sys;

namespace {

constexpr DWORD kLongestName = 2047;
constexpr DWORD kTextBuffer = 4096;  // bytes, of which the first half is offered

}  // namespace

int COXRegistry::DeleteValue(const wchar_t* name) {
  return outcome(RegDeleteValueW(m_key, name),
                 L"In COXRegistry::DeleteValue() : Value deletion failed (error code ");
}

int COXRegistry::EnumerateValues(std::uint32_t index, CStringW& name, KeyValueTypes& type,
                                 std::uint8_t* data, std::uint32_t& size) {
  wchar_t names[kLongestName + 1] = L"";
  DWORD name_size = kLongestName + 1, stored = 0;
  const int done =
      outcome(RegEnumValueW(m_key, index, names, &name_size, nullptr, &stored, data, &size),
              L"In COXRegistry::EnumerateValues() : Enumeration failed (error code ");
  if (!done) return 0;
  name = names;
  type = static_cast<KeyValueTypes>(stored);
  return 1;
}

int COXRegistry::QueryValue(const wchar_t* name, KeyValueTypes& type, std::uint8_t* data,
                            std::uint32_t& size) {
  DWORD stored = 0;
  const int done = outcome(RegQueryValueExW(m_key, name, nullptr, &stored, data, &size),
                           L"In COXRegistry::QueryValue() : QueryValue failed (error code ");
  if (done) type = static_cast<KeyValueTypes>(stored);
  return done;
}

int COXRegistry::GetBinaryValue(const wchar_t* name, CByteArray& value) {
  const std::unique_ptr<std::uint8_t[]> buffer(new (std::nothrow) std::uint8_t[m_longest_data]);
  if (!buffer) return outcome(ERROR_NOT_ENOUGH_MEMORY);
  KeyValueTypes type = typeBinary;
  std::uint32_t size = m_longest_data;
  if (!QueryValue(name, type, buffer.get(), size) || type != typeBinary) return 0;
  value.RemoveAll();
  value.SetSize(size);
  std::copy_n(buffer.get(), size, value.GetData());
  return 1;
}

int COXRegistry::GetDoubleWordValue(const wchar_t* name, std::uint32_t& value) {
  KeyValueTypes type = typeDoubleWord;
  std::uint32_t size = sizeof value, stored = 0;
  const int done = QueryValue(name, type, reinterpret_cast<std::uint8_t*>(&stored), size);
  if (!done || type != typeDoubleWord) return 0;
  value = stored;
  return 1;
}

int COXRegistry::GetStringValue(const wchar_t* name, CStringW& value) {
  std::uint8_t buffer[kTextBuffer] = {};
  KeyValueTypes type = typeString;
  std::uint32_t size = kTextBuffer / 2;
  value.Empty();
  if (!QueryValue(name, type, buffer, size) || type != typeString) return 0;
  value = FromUtf16Le({reinterpret_cast<const char*>(buffer), size}).c_str();  // up to its zero
  return 1;
}

int COXRegistry::GetValue(const wchar_t* name, CStringW& value) {
  return GetStringValue(name, value);
}
int COXRegistry::GetValue(const wchar_t* name, std::uint32_t& value) {
  return GetDoubleWordValue(name, value);
}
int COXRegistry::GetValue(const wchar_t* name, CByteArray& value) {
  return GetBinaryValue(name, value);
}

int COXRegistry::SetValue(const wchar_t* name, KeyValueTypes type, const std::uint8_t* data,
                          std::uint64_t size) {
  if (!name || !data || size > UINT32_MAX) {
    return refuse(L"In COXRegistry::SetValue() : Invalid parameter");
  }
  return outcome(RegSetValueExW(m_key, name, 0, type, data, static_cast<DWORD>(size)));
}

int COXRegistry::SetBinaryValue(const wchar_t* name, const CByteArray& value) {
  const auto size = static_cast<std::size_t>(value.GetSize());
  const auto copy = std::make_unique<std::uint8_t[]>(size + 1);
  std::copy_n(value.GetData(), size, copy.get());
  return SetValue(name, typeBinary, copy.get(), size);
}

int COXRegistry::SetDoubleWordValue(const wchar_t* name, std::uint32_t value) {
  return SetValue(name, typeDoubleWord, reinterpret_cast<const std::uint8_t*>(&value),
                  sizeof value);
}

int COXRegistry::SetStringValue(const wchar_t* name, const wchar_t* value) {
  if (!value) return SetValue(name, typeString, nullptr, 0);
  const std::string units = ToUtf16Le(std::wstring(value) + L'\0');
  return SetValue(name, typeString, reinterpret_cast<const std::uint8_t*>(units.data()),
                  units.size());
}

int COXRegistry::SetValue(const wchar_t* name, const wchar_t* value) {
  return SetStringValue(name, value);
}
int COXRegistry::SetValue(const wchar_t* name, std::uint32_t value) {
  return SetDoubleWordValue(name, value);
}
int COXRegistry::SetValue(const wchar_t* name, const CByteArray& value) {
  return SetBinaryValue(name, value);
}
