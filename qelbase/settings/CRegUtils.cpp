#include "qelbase/settings/CRegUtils.h"

#include <string>

#include "qelbase/outside/system/registry_key_internal.h"
#include "qelbase/outside/system/text.h"

using namespace qel::sys;

namespace {

constexpr DWORD kTextBuffer = 520;  // bytes

bool save(const wchar_t* path, const wchar_t* name, DWORD type, const void* data, DWORD size) {
  RegistryKey key;
  return RegCreateKeyW(HKEY_CURRENT_USER, path, key.out()) == 0 &&
         RegSetValueExW(key.get(), name, 0, type, data, size) == 0;
}

bool load(const wchar_t* path, const wchar_t* name, void* data, DWORD& size) {
  RegistryKey key;
  return RegOpenKeyW(HKEY_CURRENT_USER, path, key.out()) == 0 &&
         RegQueryValueExW(key.get(), name, nullptr, nullptr, data, &size) == 0;
}

}  // namespace

namespace CRegUtils {

bool SaveRegKey(const wchar_t* path, const wchar_t* name, const void* data, std::uint32_t size) {
  return save(path, name, REG_BINARY, data, size);
}

bool SaveRegKey(const wchar_t* path, const wchar_t* name, const wchar_t* text) {
  const std::string units = ToUtf16Le(std::wstring(text ? text : L"") + L'\0');
  return save(path, name, REG_SZ, units.data(), static_cast<DWORD>(units.size()));
}

bool LoadRegKey(const wchar_t* path, const wchar_t* name, void* data, std::uint32_t size) {
  return load(path, name, data, size);
}

bool LoadRegKey(const wchar_t* path, const wchar_t* name, CStringW& text) {
  char buffer[kTextBuffer] = "";
  DWORD size = kTextBuffer;
  if (!load(path, name, buffer, size)) return false;
  text = FromUtf16Le({buffer, size}).c_str();  // up to its zero
  return true;
}

std::int32_t GetRegKeySize(const wchar_t* path, const wchar_t* name) {
  DWORD size = 0;
  return load(path, name, nullptr, size) ? static_cast<std::int32_t>(size) : -1;
}

}  // namespace CRegUtils
