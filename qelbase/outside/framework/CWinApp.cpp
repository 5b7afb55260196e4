#include "qelbase/outside/framework/CWinApp.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <optional>
#include <string>
#include <string_view>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/messages.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/outside/system/profile.h"
#include "qelbase/outside/system/profile_internal.h"
#include "qelbase/outside/system/registry_key_internal.h"
#include "qelbase/outside/system/text.h"

using namespace qel::sys;

namespace {

constinit std::atomic<CWinApp*> application = nullptr;

// --- texts -------------------------------------------------------------------------------------

const wchar_t* copyOf(std::wstring_view text) {
  return wcsdup(std::wstring(text).c_str());
}

void assign(const wchar_t*& member, std::wstring_view text) {
  const wchar_t* copy = copyOf(text);  // the old text may be what is copied
  std::free(const_cast<wchar_t*>(member));
  member = copy;
}

std::wstring programPath() {
  std::wstring path(260, L'\0');
  while (true) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length < path.size()) return path.substr(0, length);
    path.resize(path.size() * 2);
  }
}

// The path without its extension, which begins at the last point behind the last separator.
std::wstring withoutExtension(const std::wstring& path) {
  const std::size_t name = path.find_last_of(L"\\/:") + 1;
  const std::size_t point = path.rfind(L'.');
  return point != path.npos && point > name ? path.substr(0, point) : path;
}

// --- the registry ------------------------------------------------------------------------------

// An open key, or none and the last error.
RegistryKey makeKey(const std::wstring& path, REGSAM access) {
  RegistryKey key;
  const LSTATUS code = RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, access,
                                       nullptr, key.out(), nullptr);
  if (code != 0) SetLastError(static_cast<DWORD>(code));
  return key;
}

std::wstring applicationPath(const CWinApp& app) {
  std::wstring path = std::wstring(L"Software\\") + app.m_pszRegistryKey;
  if (app.m_pszProfileName) path += std::wstring(L"\\") + app.m_pszProfileName;
  return path;
}

RegistryKey sectionKey(const CWinApp& app, const wchar_t* section, REGSAM access) {
  return makeKey(applicationPath(app) + L'\\' + section, access);
}

// The bytes of a value of this type; nothing for another one.
std::optional<std::string> bytesOf(const RegistryKey& key, const wchar_t* entry, DWORD wanted) {
  DWORD type = 0;
  DWORD size = 0;
  std::string bytes;
  LSTATUS code = 0;
  do {  // another process may write a longer one meanwhile
    bytes.resize(size);
    code = RegQueryValueExW(key.get(), entry, nullptr, &type, size > 0 ? bytes.data() : nullptr,
                            &size);
  } while (code == static_cast<LSTATUS>(ERROR_MORE_DATA) || (code == 0 && size > bytes.size()));
  if (code != 0 || type != wanted) return std::nullopt;
  bytes.resize(size);
  return bytes;
}

BOOL outcome(LSTATUS code) {
  if (code == 0) return 1;
  SetLastError(static_cast<DWORD>(code));
  return 0;
}

BOOL setValue(const CWinApp& app, const wchar_t* section, const wchar_t* entry, DWORD type,
              const void* data, std::size_t size) {
  const RegistryKey key = sectionKey(app, section, KEY_SET_VALUE);
  if (!key) return 0;
  return outcome(RegSetValueExW(key.get(), entry, 0, type, data, static_cast<DWORD>(size)));
}

// What is not there is removed, too.
BOOL removed(LSTATUS code) {
  return outcome(code == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND) ? 0 : code);
}

BOOL removeSection(const CWinApp& app, const wchar_t* section) {
  const RegistryKey key = makeKey(applicationPath(app), KEY_WRITE);
  return key ? removed(RegDeleteKeyW(key.get(), section)) : 0;
}

BOOL removeEntry(const CWinApp& app, const wchar_t* section, const wchar_t* entry) {
  const RegistryKey key = sectionKey(app, section, KEY_SET_VALUE);
  return key ? removed(RegDeleteValueW(key.get(), entry)) : 0;
}

BOOL refuse() {
  SetLastError(ERROR_INVALID_PARAMETER);
  return 0;
}

}  // namespace

// --- the object ----------------------------------------------------------------------------------

CWinApp::CWinApp(const wchar_t* name) {
  const std::wstring path = withoutExtension(programPath());
  const std::wstring program = path.substr(path.find_last_of(L"\\/:") + 1);
  m_pszAppName = copyOf(name ? name : program);
  m_pszExeName = copyOf(program);
  m_pszHelpFilePath = copyOf(path + L".chm");
  m_pszProfileName = copyOf(program + L".ini");
  CWinApp* none = nullptr;
  application.compare_exchange_strong(none, this);
}

CWinApp::~CWinApp() {
  CWinApp* own = this;
  application.compare_exchange_strong(own, nullptr);
  for (const wchar_t* text :
       {m_pszAppName, m_pszRegistryKey, m_pszExeName, m_pszHelpFilePath, m_pszProfileName}) {
    std::free(const_cast<wchar_t*>(text));
  }
}

void CWinApp::SetRegistryKey(const wchar_t* key) {
  assign(m_pszRegistryKey, key ? key : L"");
  assign(m_pszProfileName, m_pszAppName ? m_pszAppName : L"");
}

UINT CWinApp::GetProfileInt(const wchar_t* section, const wchar_t* entry, int otherwise) {
  const UINT missing = static_cast<UINT>(otherwise);
  if (!section || !entry) return missing;
  if (!m_pszRegistryKey) {
    return m_pszProfileName ? GetPrivateProfileIntW(section, entry, otherwise, m_pszProfileName)
                            : missing;
  }
  const LastErrorKeeper keeper;
  const RegistryKey key = sectionKey(*this, section, KEY_READ);
  const auto bytes = key ? bytesOf(key, entry, REG_DWORD) : std::nullopt;
  UINT number = missing;
  if (bytes && bytes->size() == sizeof number) std::memcpy(&number, bytes->data(), sizeof number);
  return number;
}

CStringW CWinApp::GetProfileString(const wchar_t* section, const wchar_t* entry,
                                   const wchar_t* otherwise) {
  const LastErrorKeeper keeper;
  if (!section || !entry) return otherwise;
  if (!m_pszRegistryKey) {
    return m_pszProfileName ? CStringW(ProfileValue(m_pszProfileName, section, entry)
                                           .value_or(otherwise ? otherwise : L""))
                            : CStringW(otherwise);
  }
  const RegistryKey key = sectionKey(*this, section, KEY_READ);
  const auto bytes = key ? bytesOf(key, entry, REG_SZ) : std::nullopt;
  return bytes ? CStringW(FromUtf16Le(*bytes).c_str()) : CStringW(otherwise);
}

BOOL CWinApp::WriteProfileInt(const wchar_t* section, const wchar_t* entry, int value) {
  if (!section || !entry) return refuse();
  if (m_pszRegistryKey) return setValue(*this, section, entry, REG_DWORD, &value, sizeof value);
  return WriteProfileString(section, entry, std::to_wstring(value).c_str());
}

BOOL CWinApp::WriteProfileString(const wchar_t* section, const wchar_t* entry,
                                 const wchar_t* text) {
  if (!section) return refuse();
  if (!m_pszRegistryKey) {
    return m_pszProfileName ? WritePrivateProfileStringW(section, entry, text, m_pszProfileName)
                            : refuse();
  }
  if (!entry) return removeSection(*this, section);
  if (!text) return removeEntry(*this, section, entry);
  const std::string bytes = ToUtf16Le(std::wstring_view(text, std::wcslen(text) + 1));
  return setValue(*this, section, entry, REG_SZ, bytes.data(), bytes.size());
}

int CWinApp::DoMessageBox(const wchar_t* text, UINT type, UINT /*help_id*/) {
  return MessageBoxW(nullptr, text, m_pszAppName, type);
}

CWinApp* AfxGetApp() {
  return application.load();
}

int AfxMessageBox(const wchar_t* text, UINT type, UINT help_id) {
  CWinApp* app = AfxGetApp();
  return app ? app->DoMessageBox(text, type, help_id) : MessageBoxW(nullptr, text, L"", type);
}
