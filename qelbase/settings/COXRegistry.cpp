#include "qelbase/settings/COXRegistry.h"

#include "qelbase/outside/components/logging.h"
#include "qelbase/outside/system/errors.h"

using namespace qel::sys;

namespace {

using QelSDK::Common::Logging::GetLogger;
using QelSDK::Common::Logging::LogMessage;

constexpr DWORD kLongestName = 2047;  // of keys, classes and values that are read
constexpr int kLongestComputerName = 260;

void logLine(const wchar_t* text) {
  LogMessage line(text);
  GetLogger(L"lib.qelbase").LogFailure(line);
}

void logFailure(const wchar_t* text, std::int32_t code) {
  LogMessage line(text);
  line << code << L")";
  GetLogger(L"lib.qelbase").LogFailure(line);
}

HKEY predefined(std::uint32_t number) {
  return reinterpret_cast<HKEY>(PredefinedKey(number));
}

}  // namespace

CRuntimeClass COXRegistry::classCOXRegistry{"COXRegistry", sizeof(COXRegistry), 0xFFFF, nullptr,
                                            &CObject::classCObject};
const HKEY COXRegistry::keyCurrentConfig = predefined(0x80000005);
const HKEY COXRegistry::keyDynamicData = predefined(0x80000006);
const char COXRegistry::m_separator_char = '\\';

HKEY COXRegistry::keyLocalMachine() {
  return HKEY_LOCAL_MACHINE;
}
HKEY COXRegistry::keyClassesRoot() {
  return HKEY_CLASSES_ROOT;
}
HKEY COXRegistry::keyUsers() {
  return HKEY_USERS;
}
HKEY COXRegistry::keyCurrentUser() {
  return HKEY_CURRENT_USER;
}

COXRegistry::COXRegistry() = default;

COXRegistry::~COXRegistry() {
  COXRegistry::Disconnect();
}

CRuntimeClass* COXRegistry::GetThisClass() {
  return &classCOXRegistry;
}

CRuntimeClass* COXRegistry::GetRuntimeClass() const {
  return &classCOXRegistry;
}

// --- outcomes ---

int COXRegistry::outcome(std::int32_t code) {
  m_error = code;
  return code == 0 ? 1 : 0;
}

int COXRegistry::outcome(std::int32_t code, const wchar_t* text) {
  if (code != 0) logFailure(text, code);
  return outcome(code);
}

int COXRegistry::refuse(const wchar_t* text) {
  logLine(text);
  return outcome(ERROR_INVALID_PARAMETER);
}

void COXRegistry::closeKey() {
  if (m_key) RegCloseKey(m_key);
  m_key = nullptr;
}

void COXRegistry::clear() {
  m_key = m_root = nullptr;
  m_error = 0;
  for (CStringW* text : {&m_class_name, &m_computer_name, &m_key_name, &m_registry_name}) {
    text->Empty();
  }
  m_subkeys = m_values = 0;
  m_longest_subkey = m_longest_class = m_longest_value = m_longest_data = m_descriptor_size = 0;
  m_written = {0, 0};
}

// --- connection ---

int COXRegistry::Disconnect() {
  if (!m_root) return 1;
  closeKey();
  if (!outcome(RegCloseKey(m_root))) return 0;
  clear();
  return 1;
}

int COXRegistry::Connect(HKEY root, const wchar_t* computer) {
  if (m_root) {
    logLine(
        L"In COXRegistry::Connect() : Trying to connect while previous registry still connected");
    logLine(L"In COXRegistry::Connect() : Disconnecting previous registry connection");
    if (!Disconnect()) return 0;
  }
  HKEY connected = nullptr;
  if (root != HKEY_CLASSES_ROOT && root != HKEY_CURRENT_USER) {
    m_error = RegConnectRegistryW(computer, root, &connected);
  } else {
    m_error = computer ? LSTATUS(ERROR_INVALID_HANDLE) : 0;
    connected = root;
  }
  if (m_error != 0) {
    logFailure(L"In COXRegistry::Connect() : Registry connection failed (error code ", m_error);
    return 0;
  }
  m_root = connected;
  wchar_t name[kLongestComputerName] = L"";
  DWORD size = kLongestComputerName;
  if (computer) {
    m_computer_name = computer;
  } else {
    m_computer_name = qel::sys::GetComputerNameW(name, &size) ? name : L"";
  }
  const struct {
    HKEY root;
    const wchar_t* name;
  } known[] = {{HKEY_LOCAL_MACHINE, L"HKEY_LOCAL_MACHINE"},
               {HKEY_CLASSES_ROOT, L"HKEY_CLASSES_ROOT"},
               {HKEY_USERS, L"HKEY_USERS"},
               {HKEY_CURRENT_USER, L"HKEY_CURRENT_USER"}};
  for (const auto& row : known) {
    if (row.root != root) continue;
    m_registry_name = row.name;
    return 1;
  }
  logLine(L"In COXRegistry::Connect() : Registry name unknown");
  m_registry_name = L"Unknown";
  return 1;
}

// --- keys ---

int COXRegistry::CreateKey(const wchar_t* subkey, const wchar_t* class_name, CreateOptions options,
                           CreatePermissions permissions, const SECURITY_ATTRIBUTES* security,
                           CreationDisposition* disposition) {
  if (!subkey) return refuse(L"In COXRegistry::CreateKey() : Invalid parameter");
  HKEY key = nullptr;
  DWORD made = 0;
  const int done = outcome(RegCreateKeyExW(m_root, subkey, 0, class_name ? class_name : L"",
                                           options, permissions, security, &key, &made),
                           L"In COXRegistry::CreateKey() : Subkey creation failed (error code ");
  if (!done) return 0;
  closeKey();
  m_key = key;
  if (disposition) *disposition = static_cast<CreationDisposition>(made);
  m_key_name = subkey;
  return 1;
}

int COXRegistry::DeleteKey(const wchar_t* subkey) {
  constexpr const wchar_t* kFailed =
      L"In COXRegistry::DeleteKey() : Subkey deletion failed (error code ";
  if (!subkey) return refuse(L"In COXRegistry::DeleteKey() : Invalid parameter");
  CStringW leaf = subkey;
  const int cut = leaf.ReverseFind(L'\\');
  if (cut >= 0) {
    const CStringW name = m_key_name;
    if (!OpenKey(leaf.Left(cut), permissionAllAccess)) {
      logFailure(kFailed, m_error);
      m_key_name = name;
      return 0;
    }
    leaf = leaf.Mid(cut + 1);
  }
  return outcome(RegDeleteKeyW(m_key, leaf), kFailed);
}

int COXRegistry::EnumerateKeys(std::uint32_t index, CStringW& name, CStringW& class_name) {
  wchar_t names[kLongestName + 1] = L"", classes[kLongestName + 1] = L"";
  DWORD name_size = kLongestName + 1, class_size = kLongestName + 1;
  const int done = outcome(
      RegEnumKeyExW(m_key, index, names, &name_size, nullptr, classes, &class_size, &m_written),
      L"In COXRegistry::EnumerateKeys() : Enumeration failed (error code ");
  if (!done) return 0;
  name = names;
  class_name = classes;
  return 1;
}

int COXRegistry::OpenKey(const wchar_t* subkey, CreatePermissions permissions) {
  closeKey();
  const int done = outcome(RegOpenKeyExW(m_root, subkey, 0, permissions, &m_key),
                           L"In COXRegistry::OpenKey() : Open failed (error code ");
  if (!done) {
    m_key = nullptr;
    return 0;
  }
  QueryInfo();
  m_key_name = subkey;
  return 1;
}

int COXRegistry::OpenPath(const wchar_t* path, HKEY root) {
  return OpenPath(path, root, permissionAllAccess);
}

int COXRegistry::OpenPath(const wchar_t* path, HKEY root, CreatePermissions permissions) {
  if (const int connected = Connect(root, nullptr); !connected) return connected;
  return openLevels(path, permissions);
}

int COXRegistry::openLevels(const CStringW& path, CreatePermissions permissions) {
  const bool make = permissions == permissionAllAccess;
  for (int at = path.Find(L'\\'); at >= 0; at = path.Find(L'\\', at + 1)) {
    const CStringW prefix = path.Left(at);
    if (OpenKey(prefix, permissions)) continue;
    if (!make) return 0;
    CreateKey(prefix, nullptr, optionNonVolatile, permissions, nullptr, nullptr);
  }
  if (OpenKey(path, permissions)) return 1;
  if (!make) return 0;
  return CreateKey(path, nullptr, optionNonVolatile, permissions, nullptr, nullptr);
}

int COXRegistry::CheckAndOpenKeyForWrite(const wchar_t* subkey) {
  if (OpenKey(subkey, permissionAllAccess)) return 1;
  if (OpenKey(subkey, permissionRead)) return 0;
  return CreateKey(subkey, nullptr, optionNonVolatile, permissionAllAccess, nullptr, nullptr);
}

int COXRegistry::QueryInfo() {
  wchar_t classes[kLongestName + 1] = L"";
  DWORD class_size = kLongestName + 1;
  const int done =
      outcome(RegQueryInfoKeyW(m_key, classes, &class_size, nullptr, &m_subkeys, &m_longest_subkey,
                               &m_longest_class, &m_values, &m_longest_value, &m_longest_data,
                               &m_descriptor_size, &m_written),
              L"In COXRegistry::QueryInfo() : QueryInfo failed (error code ");
  if (done) m_class_name = classes;
  return done;
}

int COXRegistry::FlushRegistry() {
  return outcome(RegFlushKey(m_key), L"In COXRegistry::Flush() : Flush failed (error code ");
}

int COXRegistry::NotifyChange(HANDLE event, NotifyChangeFilter filter, int subtree,
                              int asynchronous) {
  return outcome(RegNotifyChangeKeyValue(m_key, subtree, filter, event, asynchronous));
}

// --- fields ---

void COXRegistry::GetClassNameW(CStringW& name) {
  name = m_class_name;
}
void COXRegistry::GetComputerNameW(CStringW& name) {
  name = m_computer_name;
}
void COXRegistry::GetKeyName(CStringW& name) {
  name = m_key_name;
}
void COXRegistry::GetRegistryName(CStringW& name) {
  name = m_registry_name;
}
std::int32_t COXRegistry::GetErrorCode() {
  return m_error;
}
std::uint32_t COXRegistry::GetNumberOfSubkeys() {
  return m_subkeys;
}
std::uint32_t COXRegistry::GetNumberOfValues() {
  return m_values;
}

// --- descriptors and files ---

int COXRegistry::GetSecurity(std::uint32_t parts, void* descriptor, std::uint32_t& size) {
  if (!descriptor) return refuse(L"In COXRegistry::GetSecurity() : Invalid parameter");
  return outcome(RegGetKeySecurity(m_key, parts, descriptor, &size));
}

int COXRegistry::SetSecurity(const std::uint32_t& parts, void* descriptor) {
  if (!descriptor) return refuse(L"In COXRegistry::SetSecurity() : Invalid parameter");
  return outcome(RegSetKeySecurity(m_key, parts, descriptor));
}

int COXRegistry::LoadFromFile(const wchar_t* subkey, const wchar_t* file) {
  if (!subkey || !file) return refuse(L"In COXRegistry::LoadFromFile() : Invalid parameter");
  return outcome(RegLoadKeyW(m_root, subkey, file),
                 L"In COXRegistry::LoadFromFile() : Load failed (error code ");
}

int COXRegistry::ReplaceFileW(const wchar_t* subkey, const wchar_t* new_file,
                              const wchar_t* old_file) {
  if (!subkey || !new_file || !old_file) {
    return refuse(L"In COXRegistry::ReplaceFile() : Invalid parameter");
  }
  return outcome(RegReplaceKeyW(m_key, subkey, new_file, old_file),
                 L"In COXRegistry::ReplaceFile() : Key replacing failed (error code ");
}

int COXRegistry::RestoreFromFile(const wchar_t* file, std::uint32_t flags) {
  if (!file) return refuse(L"In COXRegistry::RestoreFromFile() : Invalid parameter");
  return outcome(RegRestoreKeyW(m_key, file, flags),
                 L"In COXRegistry::RestoreFromFile() : Restore failed (error code ");
}

int COXRegistry::SaveToFile(const wchar_t* file, const SECURITY_ATTRIBUTES* security) {
  if (!file) return refuse(L"In COXRegistry::SaveToFile() : Invalid parameter");
  return outcome(RegSaveKeyW(m_key, file, security),
                 L"In COXRegistry::SaveToFile() : Save failed (error code ");
}

int COXRegistry::UnLoadKey(const wchar_t* subkey) {
  if (!subkey) return refuse(L"In COXRegistry::UnLoadKey() : Invalid parameter");
  return outcome(RegUnLoadKeyW(m_key, subkey),
                 L"In COXRegistry::UnLoadKey() : Unload failed (error code ");
}
