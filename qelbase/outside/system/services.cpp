#include "qelbase/outside/system/services.h"

#include <map>
#include <mutex>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/services_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

namespace services {

namespace {

// --- handles -----------------------------------------------------------------------------------

struct Table {
  std::mutex mutex;
  std::map<std::uintptr_t, ObjectPointer> open;
  std::uintptr_t last = 0;
};

// Never destroyed: objects that close their handle may outlive this file's statics.
Table& table() {
  static Lasting<Table> kept;
  return *kept;
}

// Far from small numbers and addresses, so that a mistaken handle is found out.
constexpr std::uintptr_t kFirst = 0x53430000'00000000;

SC_HANDLE enter(Object object) {
  const std::scoped_lock lock(table().mutex);
  const std::uintptr_t handle = kFirst + ++table().last;
  table().open[handle] = std::make_shared<const Object>(std::move(object));
  return reinterpret_cast<SC_HANDLE>(handle);
}

ObjectPointer remove(SC_HANDLE handle) {
  const std::scoped_lock lock(table().mutex);
  const auto node = table().open.extract(reinterpret_cast<std::uintptr_t>(handle));
  return node ? node.mapped() : nullptr;
}

SC_HANDLE fail(DWORD code) {
  SetLastError(code);
  return nullptr;
}

// --- access masks ------------------------------------------------------------------------------

constexpr DWORD kReadControl = 0x20000;

struct Masks {
  DWORD read;
  DWORD write;
  DWORD execute;
  DWORD all;
  DWORD changes;  // what needs a registry that can be written
};

constexpr Masks manager_masks = {.read = kReadControl | SC_MANAGER_ENUMERATE_SERVICE | 0x10,
                                 .write = kReadControl | SC_MANAGER_CREATE_SERVICE | 0x20,
                                 .execute = kReadControl | SC_MANAGER_CONNECT | 0x8,
                                 .all = SC_MANAGER_ALL_ACCESS,
                                 .changes = SC_MANAGER_CREATE_SERVICE};

constexpr Masks service_masks = {.read = kReadControl | SERVICE_QUERY_CONFIG |
                                         SERVICE_QUERY_STATUS | SERVICE_INTERROGATE |
                                         SERVICE_ENUMERATE_DEPENDENTS,
                                 .write = kReadControl | SERVICE_CHANGE_CONFIG,
                                 .execute = kReadControl | SERVICE_START | SERVICE_STOP |
                                            SERVICE_PAUSE_CONTINUE | SERVICE_USER_DEFINED_CONTROL,
                                 .all = SERVICE_ALL_ACCESS,
                                 .changes = SERVICE_CHANGE_CONFIG | DELETE_ACCESS | 0xC0000};

// The rights that a mask asks for. 5 if it asks for what does not exist, or for changes to a
// registry that is read-only.
DWORD mapAccess(const std::wstring& name, const Masks& masks, REGSAM to_change, DWORD& access) {
  const std::pair<DWORD, DWORD> generic[] = {{GENERIC_READ, masks.read},
                                             {GENERIC_WRITE, masks.write},
                                             {GENERIC_EXECUTE, masks.execute},
                                             {GENERIC_ALL, masks.all}};
  for (const auto& [bit, rights] : generic) {
    if ((access & bit) != 0) access = (access & ~bit) | rights;
  }
  const bool takes_what_there_is = (access & MAXIMUM_ALLOWED) != 0;
  access &= ~MAXIMUM_ALLOWED;
  if ((access & ~masks.all) != 0) return ERROR_ACCESS_DENIED;
  DWORD code = CheckRegistry(name, KEY_READ);
  if (code != ERROR_SUCCESS) return code;
  const bool changes = (access & masks.changes) != 0;
  if (changes || takes_what_there_is) code = CheckRegistry(name, to_change);
  if (takes_what_there_is) access |= code == 0 ? masks.all : masks.all & ~masks.changes;
  return changes ? code : ERROR_SUCCESS;
}

// --- services ----------------------------------------------------------------------------------

// Under the DatabaseLock.
SC_HANDLE enterService(const std::wstring& name, DWORD access) {
  DWORD code = ERROR_SUCCESS;
  auto file = StatusFile::open(name, true, code);
  if (file) code = file->holdHandle();
  if (code != ERROR_SUCCESS) return fail(code);
  return enter({.is_manager = false, .access = access, .name = name, .file = std::move(file)});
}

bool isThisMachine(const wchar_t* machine) {
  if (!machine || !*machine) return true;
  const std::wstring_view name(machine);
  wchar_t own[64];
  DWORD size = 64;
  return GetComputerNameW(own, &size) &&
         CompareNoCase(name.substr(name.starts_with(L"\\\\") ? 2 : 0), own) == 0;
}

bool isEmpty(const wchar_t* text) {
  return !text || !*text;
}

std::vector<std::wstring> textsOf(const wchar_t* list) {
  std::vector<std::wstring> texts;
  for (; !isEmpty(list); list += texts.back().size() + 1) texts.emplace_back(list);
  return texts;
}

// 0, 87, 123, 1057, 1059.
DWORD checkNewRecord(const std::wstring& name, const Record& record) {
  constexpr DWORD worst_error_control = 3;
  const bool sound = (record.type & ~SERVICE_INTERACTIVE_PROCESS) == SERVICE_WIN32_OWN_PROCESS &&
                     record.start >= SERVICE_AUTO_START && record.start <= SERVICE_DISABLED &&
                     record.error_control <= worst_error_control && !record.path.empty();
  if (!sound) return ERROR_INVALID_PARAMETER;
  if (record.display_name.size() > kLongestDisplayName) return ERROR_INVALID_NAME;
  for (const std::wstring& dependency : record.dependencies) {
    if (dependency[0] == L'+' || !IsServiceName(dependency)) return ERROR_INVALID_PARAMETER;
    if (CompareNoCase(dependency, name) == 0) return ERROR_CIRCULAR_DEPENDENCY;
  }
  return ERROR_SUCCESS;
}

// 0, 1072, 1073, 1078.
DWORD checkNames(const std::wstring& name, const std::wstring& display_name) {
  Record taken;
  const DWORD code = ReadRecord(name, taken);
  if (code == ERROR_SUCCESS) {
    return taken.marked ? ERROR_SERVICE_MARKED_FOR_DELETE : ERROR_SERVICE_EXISTS;
  }
  if (code != ERROR_SERVICE_DOES_NOT_EXIST) return code;
  bool is_double = false;
  ForEachRecord([&](const std::wstring& other, const Record& record) {
    is_double = CompareNoCase(other, display_name) == 0 ||
                CompareNoCase(record.display_name, display_name) == 0;
    return !is_double;
  });
  return is_double ? ERROR_DUPLICATE_SERVICE_NAME : ERROR_SUCCESS;
}

SC_HANDLE create(const std::wstring& name, const Record& record, DWORD access) {
  const DatabaseLock lock;
  if (lock.code() != ERROR_SUCCESS) return fail(lock.code());
  SweepService(name);
  if (const DWORD code = checkNames(name, record.display_name)) return fail(code);
  const SC_HANDLE handle = enterService(name, access);
  if (!handle) return nullptr;
  if (const DWORD code = WriteRecord(name, record)) {
    remove(handle);
    return fail(code);
  }
  return handle;
}

// A handle's record that may be changed: 1060, 1072.
DWORD checkUnmarked(const Object& service) {
  Record record;
  if (const DWORD code = ReadRecord(service.name, record)) return code;
  return record.marked ? ERROR_SERVICE_MARKED_FOR_DELETE : ERROR_SUCCESS;
}

}  // namespace

DWORD ObjectOfHandle(SC_HANDLE handle, bool is_manager, DWORD access, ObjectPointer& out) {
  const std::scoped_lock lock(table().mutex);
  const auto found = table().open.find(reinterpret_cast<std::uintptr_t>(handle));
  if (found == table().open.end() || found->second->is_manager != is_manager) {
    return ERROR_INVALID_HANDLE;
  }
  if ((found->second->access & access) != access) return ERROR_ACCESS_DENIED;
  out = found->second;
  return ERROR_SUCCESS;
}

SERVICE_STATUS StatusOf(const Object& service) {
  if (const std::optional<Run> run = service.file->run()) return run->status;
  Record record;
  if (ReadRecord(service.name, record) != ERROR_SUCCESS) record.type = SERVICE_WIN32_OWN_PROCESS;
  return {.dwServiceType = record.type,
          .dwCurrentState = SERVICE_STOPPED,
          .dwControlsAccepted = 0,
          .dwWin32ExitCode = ERROR_SERVICE_NEVER_STARTED,
          .dwServiceSpecificExitCode = 0,
          .dwCheckPoint = 0,
          .dwWaitHint = 0};
}

BOOL Give(DWORD code) {
  if (code != ERROR_SUCCESS) SetLastError(code);
  return code == ERROR_SUCCESS;
}

}  // namespace services

using namespace services;

SC_HANDLE OpenSCManagerW(const wchar_t* machine, const wchar_t* database, DWORD access) {
  if (!isThisMachine(machine)) return fail(RPC_S_SERVER_UNAVAILABLE);
  if (!isEmpty(database) && CompareNoCase(database, L"ServicesActive") != 0) {
    return fail(ERROR_DATABASE_DOES_NOT_EXIST);
  }
  if (const DWORD code = mapAccess({}, manager_masks, KEY_WRITE, access)) return fail(code);
  return enter({.is_manager = true, .access = access | SC_MANAGER_CONNECT, .name = {}, .file = {}});
}

SC_HANDLE OpenServiceW(SC_HANDLE handle, const wchar_t* text, DWORD access) {
  ObjectPointer manager;
  if (const DWORD code = ObjectOfHandle(handle, true, SC_MANAGER_CONNECT, manager)) {
    return fail(code);
  }
  const std::wstring name(text ? text : L"");
  if (!IsServiceName(name)) return fail(ERROR_INVALID_NAME);
  if (const DWORD code = mapAccess(name, service_masks, KEY_WRITE, access)) return fail(code);
  const DatabaseLock lock;
  if (lock.code() != ERROR_SUCCESS) return fail(lock.code());
  SweepService(name);
  Record record;
  if (const DWORD code = ReadRecord(name, record)) return fail(code);
  return enterService(name, access);
}

SC_HANDLE CreateServiceW(SC_HANDLE handle, const wchar_t* text, const wchar_t* display_name,
                         DWORD access, DWORD type, DWORD start_type, DWORD error_control,
                         const wchar_t* path, const wchar_t* group, DWORD* tag,
                         const wchar_t* dependencies, const wchar_t* account,
                         const wchar_t* password) {
  ObjectPointer manager;
  if (const DWORD code = ObjectOfHandle(handle, true, SC_MANAGER_CREATE_SERVICE, manager)) {
    return fail(code);
  }
  const std::wstring name(text ? text : L"");
  if (!IsServiceName(name)) return fail(ERROR_INVALID_NAME);
  const bool own_account = isEmpty(account) || CompareNoCase(account, L"LocalSystem") == 0;
  if (!own_account) return fail(ERROR_INVALID_SERVICE_ACCOUNT);
  if (!isEmpty(group) || tag || !isEmpty(password)) return fail(ERROR_INVALID_PARAMETER);
  const Record record{.type = type,
                      .start = start_type,
                      .error_control = error_control,
                      .path = path ? path : L"",
                      .display_name = isEmpty(display_name) ? name : display_name,
                      .dependencies = textsOf(dependencies)};
  if (const DWORD code = checkNewRecord(name, record)) return fail(code);
  if (const DWORD code = mapAccess({}, service_masks, KEY_WRITE, access)) return fail(code);
  return create(name, record, access);
}

BOOL ChangeServiceConfig2W(SC_HANDLE handle, DWORD level, const void* info) {
  ObjectPointer service;
  if (const DWORD code = ObjectOfHandle(handle, false, SERVICE_CHANGE_CONFIG, service)) {
    return Give(code);
  }
  if (level != SERVICE_CONFIG_DESCRIPTION) return Give(ERROR_INVALID_LEVEL);
  const DatabaseLock lock;
  if (lock.code() != ERROR_SUCCESS) return Give(lock.code());
  if (const DWORD code = checkUnmarked(*service)) return Give(code);
  const auto* const description = static_cast<const SERVICE_DESCRIPTIONW*>(info);
  if (!description || !description->lpDescription) return 1;
  return Give(WriteDescription(service->name, description->lpDescription));
}

BOOL QueryServiceStatus(SC_HANDLE handle, SERVICE_STATUS* status) {
  ObjectPointer service;
  if (const DWORD code = ObjectOfHandle(handle, false, SERVICE_QUERY_STATUS, service)) {
    return Give(code);
  }
  if (!status) return Give(ERROR_INVALID_PARAMETER);
  *status = StatusOf(*service);
  return 1;
}

BOOL DeleteService(SC_HANDLE handle) {
  ObjectPointer service;
  if (const DWORD code = ObjectOfHandle(handle, false, DELETE_ACCESS, service)) return Give(code);
  const DatabaseLock lock;
  if (lock.code() != ERROR_SUCCESS) return Give(lock.code());
  const DWORD code = checkUnmarked(*service);
  return Give(code == ERROR_SUCCESS ? MarkRecord(service->name) : code);
}

BOOL CloseServiceHandle(SC_HANDLE handle) {
  ObjectPointer object = remove(handle);
  if (!object) return Give(ERROR_INVALID_HANDLE);
  const std::wstring name = object->name;
  const bool is_manager = object->is_manager;
  object.reset();
  Record record;
  if (is_manager || ReadRecord(name, record) != ERROR_SUCCESS || !record.marked) return 1;
  const DatabaseLock lock;
  if (lock.code() == ERROR_SUCCESS) SweepService(name);
  return 1;
}

}  // namespace qel::sys
