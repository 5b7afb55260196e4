// The calls on keys.

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/registry_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

using namespace registry;

namespace {

constexpr REGSAM kWritingRights = 0xD0026;  // set, create, link, delete, change permissions, owner
constexpr REGSAM kGenericRead = 0x80000000;
constexpr REGSAM kGenericWrite = 0x40000000;
constexpr REGSAM kGenericAll = 0x10000000;
constexpr REGSAM kViewFlags = 0x300;  // of 32-bit and 64-bit programs, the same here

REGSAM specificRights(REGSAM access) {
  if (access & kGenericRead) access |= KEY_READ;
  if (access & kGenericWrite) access |= KEY_WRITE;
  if (access & kGenericAll) access |= KEY_ALL_ACCESS;
  return access & ~(kGenericRead | kGenericWrite | kGenericAll | kViewFlags);
}

// What is granted of what is asked for.
DWORD grantAccess(bool writable, REGSAM asked, REGSAM& granted) {
  asked = specificRights(asked);
  if (asked & MAXIMUM_ALLOWED) asked = writable ? KEY_ALL_ACCESS : KEY_READ;
  granted = asked;
  return writable || !(asked & kWritingRights) ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

bool isWritable(const OpenKey& key) {
  return key.is_classes ? UserHive().isWritable() || MachineHive().isWritable()
                        : key.place.hive->isWritable();
}

LSTATUS handOver(OpenKey& key, REGSAM access, HKEY* result) {
  if (const DWORD code = grantAccess(isWritable(key), access, key.access)) return LSTATUS(code);
  *result = AddKey(key);
  return LSTATUS(*result ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
}

std::wstring joined(const std::wstring& path, std::wstring_view subkey) {
  while (!subkey.empty() && subkey.back() == L'\\') subkey.remove_suffix(1);
  return path.empty() || subkey.empty() ? path + std::wstring(subkey)
                                        : path + L'\\' + std::wstring(subkey);
}

// The key of `subkey` below an open one, into a new object; 2 if there is none.
DWORD findBelow(const OpenKey& from, std::wstring_view subkey, OpenKey& out) {
  if (!from.is_classes) return FindPlace(from.place, subkey, out.place);
  std::vector<std::wstring> names;
  if (const DWORD code = SplitPath(subkey, names)) return code;
  out.is_classes = true;
  out.path = joined(from.path, subkey);
  Layers layers;
  const DWORD code = FindLayers(out, layers);
  return code == ERROR_KEY_DELETED ? ERROR_FILE_NOT_FOUND : code;
}

DWORD makeBelow(const OpenKey& from, std::wstring_view subkey, const NewKey& key, OpenKey& out,
                bool& made) {
  if (!from.is_classes) return MakeKey(from.place, subkey, key, out.place, made);
  made = false;
  const DWORD found = findBelow(from, subkey, out);
  if (found != ERROR_FILE_NOT_FOUND) return found;
  Hive& hive = MachineHive().isWritable() ? MachineHive() : UserHive();
  Place place;
  return MakeKey({&hive, kRoot}, joined(L"Software\\Classes", out.path), key, place, made);
}

// Text into a caller's buffer: 234 if it does not fit.
DWORD putText(std::wstring_view text, wchar_t* buffer, DWORD* size) {
  if (!buffer && !size) return ERROR_SUCCESS;
  if (!size) return ERROR_INVALID_PARAMETER;
  const bool fits = buffer && text.size() < *size;
  if (buffer && !fits) return ERROR_MORE_DATA;
  if (buffer) std::wmemcpy(buffer, std::wstring(text).c_str(), text.size() + 1);
  *size = static_cast<DWORD>(text.size());
  return ERROR_SUCCESS;
}

FILETIME fileTime(std::uint64_t time) {
  return {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

template <typename T>
void put(T* out, T value) {
  if (out) *out = value;
}

DWORD longest(const std::vector<Child>& children, std::wstring Child::*text) {
  std::size_t length = 0;
  for (const Child& child : children) length = std::max(length, (child.*text).size());
  return static_cast<DWORD>(length);
}

}  // namespace

LSTATUS RegOpenKeyExW(HKEY handle, const wchar_t* subkey, DWORD, REGSAM access, HKEY* result) {
  if (!result) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  if (!FindKey(handle, key)) return ERROR_INVALID_HANDLE;
  if (IsPredefined(handle) && (!subkey || (!*subkey && key.is_classes))) {
    *result = handle;
    return ERROR_SUCCESS;
  }
  if (!subkey) return ERROR_INVALID_PARAMETER;
  OpenKey found;
  if (const DWORD code = findBelow(key, subkey, found)) return LSTATUS(code);
  return handOver(found, access, result);
}

LSTATUS RegOpenKeyW(HKEY handle, const wchar_t* subkey, HKEY* result) {
  if (!result) return ERROR_INVALID_PARAMETER;
  if (subkey && *subkey) return RegOpenKeyExW(handle, subkey, 0, MAXIMUM_ALLOWED, result);
  if (OpenKey key; !FindKey(handle, key)) return ERROR_INVALID_HANDLE;
  *result = handle;
  return ERROR_SUCCESS;
}

LSTATUS RegOpenKeyExA(HKEY handle, const char* subkey, DWORD options, REGSAM access, HKEY* result) {
  if (!subkey) return RegOpenKeyExW(handle, nullptr, options, access, result);
  return RegOpenKeyExW(handle, Widen(subkey).c_str(), options, access, result);
}

LSTATUS RegCreateKeyExW(HKEY handle, const wchar_t* subkey, DWORD, const wchar_t* class_name,
                        DWORD options, REGSAM access, const SECURITY_ATTRIBUTES* security,
                        HKEY* result, DWORD* disposition) {
  if (!result || !subkey) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  if (!FindKey(handle, key)) return ERROR_INVALID_HANDLE;
  NewKey wanted{class_name ? class_name : L"", {}, (options & REG_OPTION_VOLATILE) != 0};
  if (security && security->lpSecurityDescriptor) {
    wanted.security = SelfRelative(security->lpSecurityDescriptor, 0xF);
    if (wanted.security.empty()) return ERROR_INVALID_SECURITY_DESCR;
  }
  OpenKey found;
  bool made = false;
  if (const DWORD code = makeBelow(key, subkey, wanted, found, made)) return LSTATUS(code);
  const LSTATUS code = handOver(found, access, result);
  if (code == ERROR_SUCCESS) {
    put(disposition, made ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY);
  }
  return code;
}

LSTATUS RegCreateKeyW(HKEY handle, const wchar_t* subkey, HKEY* result) {
  if (!subkey || !*subkey) return RegOpenKeyW(handle, subkey, result);
  return RegCreateKeyExW(handle, subkey, 0, nullptr, 0, MAXIMUM_ALLOWED, nullptr, result, nullptr);
}

LSTATUS RegCloseKey(HKEY handle) {
  if (IsPredefined(handle)) return ERROR_SUCCESS;
  if (!RemoveKey(handle)) return ERROR_INVALID_HANDLE;
  SignalClosedKey(handle);
  return ERROR_SUCCESS;
}

LSTATUS RegDeleteKeyW(HKEY handle, const wchar_t* subkey) {
  if (!subkey || !*subkey) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  if (!FindKey(handle, key)) return ERROR_INVALID_HANDLE;
  std::vector<std::wstring> names;
  if (const DWORD code = SplitPath(subkey, names)) return LSTATUS(code);
  OpenKey gone, parent;
  if (const DWORD code = findBelow(key, subkey, gone)) return LSTATUS(code);
  if (gone.is_classes) {  // one layer may hold subkeys that the other does not
    std::shared_ptr<const Listing> listing;
    const DWORD code = ReadListing(gone, listing);
    if (code == ERROR_KEY_DELETED) return ERROR_FILE_NOT_FOUND;
    if (code != ERROR_SUCCESS) return LSTATUS(code);
    if (!listing->children.empty()) return ERROR_ACCESS_DENIED;
  }
  const std::wstring leaf = names.back();
  std::wstring above;
  for (std::size_t i = 0; i + 1 < names.size(); ++i) above = joined(above, names[i]);
  if (const DWORD code = findBelow(key, above, parent)) return LSTATUS(code);
  Layers layers;
  if (const DWORD code = FindLayers(parent, layers)) return LSTATUS(code);
  // From all layers, so that what is deleted is gone.
  DWORD result = ERROR_FILE_NOT_FOUND;
  for (const Place& place : layers) {
    const DWORD code = DeleteKey(place, leaf);
    if (result != ERROR_SUCCESS && code != ERROR_FILE_NOT_FOUND) result = code;
  }
  return LSTATUS(result);
}

LSTATUS RegEnumKeyExW(HKEY handle, DWORD index, wchar_t* name, DWORD* name_size, DWORD*,
                      wchar_t* class_name, DWORD* class_size, FILETIME* written) {
  if (!name || !name_size) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  if (const DWORD code = KeyOfHandle(handle, KEY_ENUMERATE_SUB_KEYS, key)) return LSTATUS(code);
  std::shared_ptr<const Listing> listing;
  if (const DWORD code = ReadListing(key, listing)) return LSTATUS(code);
  if (index >= listing->children.size()) return ERROR_NO_MORE_ITEMS;
  const Child& child = listing->children[index];
  if (const DWORD code = putText(child.name, name, name_size)) return LSTATUS(code);
  if (const DWORD code = putText(child.class_name, class_name, class_size)) return LSTATUS(code);
  put(written, fileTime(child.written));
  return ERROR_SUCCESS;
}

LSTATUS RegEnumKeyW(HKEY handle, DWORD index, wchar_t* name, DWORD name_size) {
  return RegEnumKeyExW(handle, index, name, &name_size, nullptr, nullptr, nullptr, nullptr);
}

LSTATUS RegQueryInfoKeyW(HKEY handle, wchar_t* class_name, DWORD* class_size, DWORD*,
                         DWORD* subkeys, DWORD* longest_subkey, DWORD* longest_class, DWORD* values,
                         DWORD* longest_value, DWORD* longest_data, DWORD* descriptor_size,
                         FILETIME* written) {
  OpenKey key;
  if (const DWORD code = KeyOfHandle(handle, KEY_QUERY_VALUE, key)) return LSTATUS(code);
  std::shared_ptr<const Listing> listing;
  if (const DWORD code = ReadListing(key, listing)) return LSTATUS(code);
  if (const DWORD code = putText(listing->class_name, class_name, class_size)) {
    return LSTATUS(code);
  }
  std::size_t longest_name = 0, longest_bytes = 0;
  for (const Listing::Head& value : listing->values) {
    longest_name = std::max(longest_name, value.name.size());
    longest_bytes = std::max(longest_bytes, value.data_size);
  }
  if (descriptor_size) {
    std::string descriptor;
    Layers layers;
    if (const DWORD code = FindLayers(key, layers)) return LSTATUS(code);
    if (layers.count > 0) {
      if (const DWORD code = ReadSecurity(layers.places[0], descriptor)) return LSTATUS(code);
    }
    *descriptor_size = static_cast<DWORD>(PickDescriptor(descriptor, 0xF).size());
  }
  put(subkeys, static_cast<DWORD>(listing->children.size()));
  put(longest_subkey, longest(listing->children, &Child::name));
  put(longest_class, longest(listing->children, &Child::class_name));
  put(values, static_cast<DWORD>(listing->values.size()));
  put(longest_value, static_cast<DWORD>(longest_name));
  put(longest_data, static_cast<DWORD>(longest_bytes));
  put(written, fileTime(listing->written));
  return ERROR_SUCCESS;
}

LSTATUS RegFlushKey(HKEY handle) {
  OpenKey key;
  if (!FindKey(handle, key)) return ERROR_INVALID_HANDLE;
  if (!key.is_classes) return LSTATUS(key.place.hive->flush());
  const DWORD user = UserHive().flush();
  const DWORD machine = MachineHive().flush();
  return LSTATUS(user != ERROR_SUCCESS ? user : machine);
}

LSTATUS RegConnectRegistryW(const wchar_t* machine, HKEY handle, HKEY* result) {
  if (!result) return ERROR_INVALID_PARAMETER;
  if (!IsPredefined(handle)) return ERROR_INVALID_HANDLE;
  std::wstring_view name = machine ? machine : L"";
  if (name.starts_with(L"\\\\")) name.remove_prefix(2);
  wchar_t own[16] = L"";
  DWORD size = 16;
  if (!name.empty() && (!GetComputerNameW(own, &size) || CompareNoCase(name, own) != 0)) {
    return ERROR_BAD_NETPATH;
  }
  *result = handle;
  return ERROR_SUCCESS;
}

LSTATUS RegGetKeySecurity(HKEY handle, DWORD parts, void* descriptor, DWORD* size) {
  constexpr REGSAM kReadControl = 0x20000;
  if (!size) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  if (const DWORD code = KeyOfHandle(handle, kReadControl, key)) return LSTATUS(code);
  Layers layers;
  if (const DWORD code = FindLayers(key, layers)) return LSTATUS(code);
  std::string whole;
  if (layers.count > 0) {
    if (const DWORD code = ReadSecurity(layers.places[0], whole)) return LSTATUS(code);
  }
  const std::string picked = PickDescriptor(whole, parts);
  const bool fits = descriptor && *size >= picked.size();
  *size = static_cast<DWORD>(picked.size());
  if (!fits) return ERROR_INSUFFICIENT_BUFFER;
  std::memcpy(descriptor, picked.data(), picked.size());
  return ERROR_SUCCESS;
}

LSTATUS RegSetKeySecurity(HKEY handle, DWORD parts, const void* descriptor) {
  constexpr REGSAM kWritePermissions = 0x40000;
  constexpr REGSAM kWriteOwner = 0x80000;
  const REGSAM rights = (parts & 3 ? kWriteOwner : 0) | (parts & 12 ? kWritePermissions : 0);
  OpenKey key;
  if (const DWORD code = KeyOfHandle(handle, rights, key)) return LSTATUS(code);
  const std::string change = SelfRelative(descriptor, parts);
  if (change.empty()) return ERROR_INVALID_SECURITY_DESCR;
  Place place;
  if (const DWORD code = FindWritten(key, place)) return LSTATUS(code);
  return LSTATUS(WriteSecurity(
      place, [&](const std::string& old) { return MergeDescriptor(old, change, parts); }));
}

BOOL GetComputerNameW(wchar_t* buffer, DWORD* size) {
  constexpr std::size_t kLongest = 15;
  char host[256] = "";
  if (!size || gethostname(host, sizeof host - 1) != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  std::wstring name = Widen(std::string_view(host).substr(0, std::strcspn(host, ".")));
  name.resize(std::min(name.size(), kLongest));
  for (wchar_t& c : name) c = ToUpper(c);
  const bool fits = buffer && name.size() < *size;
  *size = static_cast<DWORD>(fits ? name.size() : name.size() + 1);
  if (!fits) {
    SetLastError(ERROR_BUFFER_OVERFLOW);
    return 0;
  }
  std::wmemcpy(buffer, name.c_str(), name.size() + 1);
  return 1;
}

}  // namespace qel::sys
