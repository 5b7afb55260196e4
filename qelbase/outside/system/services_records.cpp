// The records of services in the registry.

#include <utility>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/registry_key_internal.h"
#include "qelbase/outside/system/services_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys::services {

namespace {

constexpr const wchar_t* kServices = L"System\\CurrentControlSet\\Services";

std::wstring pathOf(const std::wstring& name) {
  return name.empty() ? kServices : std::wstring(kServices) + L"\\" + name;
}

// --- keys and values ---------------------------------------------------------------------------

using Key = RegistryKey;

DWORD openKey(const std::wstring& path, REGSAM access, Key& out) {
  return static_cast<DWORD>(RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, access, out.out()));
}

DWORD makeKey(const std::wstring& path, REGSAM access, Key& out) {
  return static_cast<DWORD>(RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, access,
                                            nullptr, out.out(), nullptr));
}

struct Value {
  DWORD type = REG_NONE;
  std::string data;
};

DWORD readValue(const Key& key, const wchar_t* name, Value& out) {
  DWORD size = 256;
  LSTATUS result = ERROR_MORE_DATA;
  while (result == ERROR_MORE_DATA) {  // again if it grew meanwhile
    out.data.resize(size);
    result = RegQueryValueExW(key.get(), name, nullptr, &out.type, out.data.data(), &size);
  }
  out.data.resize(result == ERROR_SUCCESS ? size : 0);
  return static_cast<DWORD>(result);
}

// False for a missing value and for one of another type.
bool readNumber(const Key& key, const wchar_t* name, DWORD& out) {
  Value value;
  const bool fits = readValue(key, name, value) == ERROR_SUCCESS && value.type == REG_DWORD &&
                    value.data.size() == sizeof out;
  if (fits) value.data.copy(reinterpret_cast<char*>(&out), sizeof out);
  return fits;
}

std::wstring upToZero(const std::wstring& text) {
  return text.substr(0, text.find(L'\0'));
}

bool readText(const Key& key, const wchar_t* name, std::wstring& out) {
  Value value;
  if (readValue(key, name, value) != ERROR_SUCCESS) return false;
  if (value.type != REG_SZ && value.type != REG_EXPAND_SZ) return false;
  out = upToZero(FromUtf16Le(value.data));
  return true;
}

std::vector<std::wstring> readList(const Key& key, const wchar_t* name) {
  std::vector<std::wstring> list;
  Value value;
  if (readValue(key, name, value) != ERROR_SUCCESS || value.type != REG_MULTI_SZ) return list;
  const std::wstring texts = FromUtf16Le(value.data);
  for (std::size_t at = 0; at < texts.size();) {
    std::wstring text = upToZero(texts.substr(at));
    at += text.size() + 1;
    if (!text.empty()) list.push_back(std::move(text));
  }
  return list;
}

DWORD writeValue(const Key& key, const wchar_t* name, DWORD type, const std::string& data) {
  return static_cast<DWORD>(
      RegSetValueExW(key.get(), name, 0, type, data.data(), static_cast<DWORD>(data.size())));
}

DWORD writeNumber(const Key& key, const wchar_t* name, DWORD number) {
  return static_cast<DWORD>(RegSetValueExW(key.get(), name, 0, REG_DWORD, &number, sizeof number));
}

DWORD writeText(const Key& key, const wchar_t* name, DWORD type, std::wstring text) {
  text.push_back(L'\0');
  return writeValue(key, name, type, ToUtf16Le(text));
}

DWORD removeValue(const Key& key, const wchar_t* name) {
  const LSTATUS result = RegDeleteValueW(key.get(), name);
  return result == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : static_cast<DWORD>(result);
}

DWORD writeList(const Key& key, const wchar_t* name, const std::vector<std::wstring>& list) {
  if (list.empty()) return removeValue(key, name);
  std::wstring texts;
  for (const std::wstring& text : list) texts.append(text).push_back(L'\0');
  return writeText(key, name, REG_MULTI_SZ, texts);
}

// The program's path makes a key a record: it is written last, and taken away first.
constexpr const wchar_t* kPath = L"ImagePath";

DWORD missingIfGone(DWORD code) {
  const bool gone = code == ERROR_FILE_NOT_FOUND || code == ERROR_KEY_DELETED;
  return gone ? ERROR_SERVICE_DOES_NOT_EXIST : code;
}

DWORD deleteTree(const std::wstring& path) {
  Key key;
  if (const DWORD code = openKey(path, KEY_READ, key)) return code;
  wchar_t child[kLongestName + 1];
  while (RegEnumKeyW(key.get(), 0, child, kLongestName + 1) == ERROR_SUCCESS) {
    if (const DWORD code = deleteTree(path + L"\\" + child)) return code;
  }
  return static_cast<DWORD>(RegDeleteKeyW(HKEY_LOCAL_MACHINE, path.c_str()));
}

}  // namespace

bool IsServiceName(std::wstring_view name) {
  return !name.empty() && name.size() <= kLongestName &&
         name.find_first_of(L"/\\") == std::wstring_view::npos;
}

DWORD CheckRegistry(const std::wstring& name, REGSAM access) {
  Key key;
  const bool may_make = name.empty() && (access & KEY_CREATE_SUB_KEY) != 0;
  const DWORD code =
      may_make ? makeKey(pathOf(name), access, key) : openKey(pathOf(name), access, key);
  return name.empty() && code == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : missingIfGone(code);
}

DWORD ReadRecord(const std::wstring& name, Record& out) {
  Key key;
  if (const DWORD code = openKey(pathOf(name), KEY_READ, key)) return missingIfGone(code);
  Record record;
  const bool whole = readText(key, kPath, record.path) && readNumber(key, L"Type", record.type) &&
                     readNumber(key, L"Start", record.start);
  if (!whole) return ERROR_SERVICE_DOES_NOT_EXIST;
  readNumber(key, L"ErrorControl", record.error_control);
  if (!readText(key, L"DisplayName", record.display_name)) record.display_name = name;
  record.dependencies = readList(key, L"DependOnService");
  DWORD marked = 0;
  record.marked = readNumber(key, L"DeleteFlag", marked) && marked != 0;
  out = std::move(record);
  return ERROR_SUCCESS;
}

DWORD WriteRecord(const std::wstring& name, const Record& record) {
  Key key;
  if (const DWORD code = makeKey(pathOf(name), KEY_READ | KEY_WRITE, key)) return code;
  for (const wchar_t* left_over : {kPath, L"DeleteFlag", L"Description"}) {
    if (const DWORD code = removeValue(key, left_over)) return code;
  }
  const std::pair<const wchar_t*, DWORD> numbers[] = {
      {L"Type", record.type}, {L"Start", record.start}, {L"ErrorControl", record.error_control}};
  for (const auto& [value, number] : numbers) {
    if (const DWORD code = writeNumber(key, value, number)) return code;
  }
  const std::pair<const wchar_t*, std::wstring> texts[] = {{L"DisplayName", record.display_name},
                                                           {L"ObjectName", L"LocalSystem"}};
  for (const auto& [value, text] : texts) {
    if (const DWORD code = writeText(key, value, REG_SZ, text)) return code;
  }
  if (const DWORD code = writeList(key, L"DependOnService", record.dependencies)) return code;
  return writeText(key, kPath, REG_EXPAND_SZ, record.path);
}

DWORD WriteDescription(const std::wstring& name, std::wstring_view text) {
  Key key;
  if (const DWORD code = openKey(pathOf(name), KEY_WRITE, key)) return missingIfGone(code);
  if (text.empty()) return removeValue(key, L"Description");
  return writeText(key, L"Description", REG_SZ, std::wstring(text));
}

DWORD MarkRecord(const std::wstring& name) {
  Key key;
  if (const DWORD code = openKey(pathOf(name), KEY_WRITE, key)) return missingIfGone(code);
  return writeNumber(key, L"DeleteFlag", 1);
}

DWORD DeleteRecord(const std::wstring& name) {
  {
    Key key;
    DWORD code = openKey(pathOf(name), KEY_WRITE, key);
    if (code == ERROR_SUCCESS) code = removeValue(key, kPath);
    if (code != ERROR_SUCCESS) return missingIfGone(code);
  }
  return deleteTree(pathOf(name));
}

void ForEachRecord(const std::function<bool(const std::wstring&, const Record&)>& visit) {
  std::vector<std::wstring> names;
  {
    Key key;
    if (openKey(kServices, KEY_READ, key) != ERROR_SUCCESS) return;
    wchar_t name[kLongestName + 1];
    for (DWORD i = 0; RegEnumKeyW(key.get(), i, name, kLongestName + 1) == ERROR_SUCCESS; ++i) {
      names.emplace_back(name);
    }
  }
  for (const std::wstring& name : names) {
    Record record;
    if (ReadRecord(name, record) == ERROR_SUCCESS && !visit(name, record)) return;
  }
}

}  // namespace qel::sys::services
