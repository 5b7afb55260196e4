#include "qelbase/settings/CRegUtils.h"

#include <string>

#include "qelbase/outside/system/registry.h"
#include "qelbase/outside/system/text.h"

using namespace qel::sys;

namespace {

constexpr DWORD kTextBuffer = 520;  // bytes

class Key {
 public:
  Key(const wchar_t* path, bool create) {
    const LSTATUS code = create ? RegCreateKeyW(HKEY_CURRENT_USER, path, &m_handle)
                                : RegOpenKeyW(HKEY_CURRENT_USER, path, &m_handle);
    if (code != 0) m_handle = nullptr;
  }
  ~Key() {
    if (m_handle) RegCloseKey(m_handle);
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;

  bool save(const wchar_t* name, DWORD type, const void* data, DWORD size) const {
    return m_handle && RegSetValueExW(m_handle, name, 0, type, data, size) == 0;
  }
  bool load(const wchar_t* name, void* data, DWORD& size) const {
    return m_handle && RegQueryValueExW(m_handle, name, nullptr, nullptr, data, &size) == 0;
  }

 private:
  HKEY m_handle = nullptr;
};

}  // namespace

namespace CRegUtils {

bool SaveRegKey(const wchar_t* path, const wchar_t* name, const void* data, std::uint32_t size) {
  return Key(path, true).save(name, REG_BINARY, data, size);
}

bool SaveRegKey(const wchar_t* path, const wchar_t* name, const wchar_t* text) {
  const std::string units = ToUtf16Le(std::wstring(text ? text : L"") + L'\0');
  return Key(path, true).save(name, REG_SZ, units.data(), static_cast<DWORD>(units.size()));
}

bool LoadRegKey(const wchar_t* path, const wchar_t* name, void* data, std::uint32_t size) {
  return Key(path, false).load(name, data, size);
}

bool LoadRegKey(const wchar_t* path, const wchar_t* name, CStringW& text) {
  char buffer[kTextBuffer] = "";
  DWORD size = kTextBuffer;
  if (!Key(path, false).load(name, buffer, size)) return false;
  text = FromUtf16Le({buffer, size}).c_str();  // up to its zero
  return true;
}

std::int32_t GetRegKeySize(const wchar_t* path, const wchar_t* name) {
  DWORD size = 0;
  return Key(path, false).load(name, nullptr, size) ? static_cast<std::int32_t>(size) : -1;
}

}  // namespace CRegUtils
