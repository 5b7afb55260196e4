// The calls on values.

#include <cstring>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/registry_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

using namespace registry;

namespace {

std::wstring_view orEmpty(const wchar_t* name) {
  return name ? name : L"";
}

DWORD readValue(const OpenKey& key, std::wstring_view name, ReadCache::ValueResult& room,
                const Value*& out) {
  Layers layers;
  if (const DWORD code = FindLayers(key, layers)) return code;
  for (const Place& place : layers) {
    const DWORD code = ReadValue(place, name, room, out);
    if (code != ERROR_FILE_NOT_FOUND) return code;
  }
  return ERROR_FILE_NOT_FOUND;
}

LSTATUS putData(const Value& value, DWORD* type, void* data, DWORD* size) {
  if (type) *type = value.type;
  if (!size) return ERROR_SUCCESS;
  const bool fits = *size >= value.data.size();
  *size = static_cast<DWORD>(value.data.size());
  if (!data) return ERROR_SUCCESS;
  if (!fits) return ERROR_MORE_DATA;
  if (!value.data.empty()) std::memcpy(data, value.data.data(), value.data.size());
  return ERROR_SUCCESS;
}

bool isText(DWORD type) {
  return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

}  // namespace

LSTATUS RegQueryValueExW(HKEY handle, const wchar_t* name, DWORD*, DWORD* type, void* data,
                         DWORD* size) {
  if (data && !size) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  if (const DWORD code = KeyOfHandle(handle, KEY_QUERY_VALUE, key)) return LSTATUS(code);
  ReadCache::ValueResult room{};
  const Value* value = nullptr;
  if (const DWORD code = readValue(key, orEmpty(name), room, value)) return LSTATUS(code);
  return putData(*value, type, data, size);
}

LSTATUS RegQueryValueExA(HKEY handle, const char* name, DWORD*, DWORD* type, void* data,
                         DWORD* size) {
  if (data && !size) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  if (const DWORD code = KeyOfHandle(handle, KEY_QUERY_VALUE, key)) return LSTATUS(code);
  ReadCache::ValueResult room{};
  const Value* value = nullptr;
  if (const DWORD code = readValue(key, name ? Widen(name) : L"", room, value)) {
    return LSTATUS(code);
  }
  if (!isText(value->type)) return putData(*value, type, data, size);
  return putData({value->type, Narrow(FromUtf16Le(value->data))}, type, data, size);
}

LSTATUS RegSetValueExW(HKEY handle, const wchar_t* name, DWORD, DWORD type, const void* data,
                       DWORD size) {
  if (!data && size > 0) return ERROR_INVALID_PARAMETER;
  if (orEmpty(name).size() > kLongestValueName) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  if (const DWORD code = KeyOfHandle(handle, KEY_SET_VALUE, key)) return LSTATUS(code);
  Place place;
  if (const DWORD code = FindWritten(key, place)) return LSTATUS(code);
  const std::string_view bytes(static_cast<const char*>(data), size);
  return LSTATUS(WriteValue(place, orEmpty(name), type, bytes));
}

LSTATUS RegDeleteValueW(HKEY handle, const wchar_t* name) {
  OpenKey key;
  if (const DWORD code = KeyOfHandle(handle, KEY_SET_VALUE, key)) return LSTATUS(code);
  Layers layers;
  if (const DWORD code = FindLayers(key, layers)) return LSTATUS(code);
  for (const Place& place : layers) {
    const DWORD code = DeleteValue(place, orEmpty(name));
    if (code != ERROR_FILE_NOT_FOUND) return LSTATUS(code);
  }
  return ERROR_FILE_NOT_FOUND;
}

LSTATUS RegEnumValueW(HKEY handle, DWORD index, wchar_t* name, DWORD* name_size, DWORD*,
                      DWORD* type, void* data, DWORD* size) {
  constexpr int kTries = 100;
  if (!name || !name_size || (data && !size)) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  if (const DWORD code = KeyOfHandle(handle, KEY_QUERY_VALUE, key)) return LSTATUS(code);
  for (int tries = 0; tries < kTries; ++tries) {
    std::shared_ptr<const Listing> listing;
    if (const DWORD code = ReadListing(key, listing)) return LSTATUS(code);
    if (index >= listing->values.size()) return ERROR_NO_MORE_ITEMS;
    const std::wstring& found = listing->values[index].name;
    ReadCache::ValueResult room{};
    const Value* value = nullptr;
    const DWORD code = readValue(key, found, room, value);
    if (code == ERROR_FILE_NOT_FOUND) continue;  // deleted since it was listed
    if (code != ERROR_SUCCESS) return LSTATUS(code);
    if (found.size() >= *name_size) return ERROR_MORE_DATA;
    if (const LSTATUS small = putData(*value, type, data, size)) return small;
    std::wmemcpy(name, found.c_str(), found.size() + 1);
    *name_size = static_cast<DWORD>(found.size());
    return ERROR_SUCCESS;
  }
  return ERROR_BADDB;  // listed, and not to be found
}

}  // namespace qel::sys
