#include "qelbase/outside/system/resources.h"

#include <link.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/resources_internal.h"

namespace qel::sys {

namespace {

// Collects the notes of one module while the loader's list is held.
struct ModuleSearch {
  std::uintptr_t address;  // within the module; 0: the program
  std::vector<Bytes> notes;
};

bool IsWithin(const dl_phdr_info& info, std::uintptr_t address) {
  const std::span segments(info.dlpi_phdr, info.dlpi_phnum);
  return std::any_of(segments.begin(), segments.end(), [&](const ElfW(Phdr) & segment) {
    const std::uintptr_t begin = info.dlpi_addr + segment.p_vaddr;
    return segment.p_type == PT_LOAD && address >= begin && address - begin < segment.p_memsz;
  });
}

int VisitModule(dl_phdr_info* info, std::size_t, void* data) {
  auto& search = *static_cast<ModuleSearch*>(data);
  // The program comes first in the list.
  if (search.address != 0 && !IsWithin(*info, search.address)) return 0;
  for (const auto& segment : std::span(info->dlpi_phdr, info->dlpi_phnum)) {
    if (segment.p_type != PT_NOTE) continue;
    const auto* begin = reinterpret_cast<const std::byte*>(info->dlpi_addr + segment.p_vaddr);
    search.notes.emplace_back(begin, segment.p_memsz);
  }
  return 1;
}

std::vector<Bytes> ResourceFilesOf(HINSTANCE module) {
  ModuleSearch search{reinterpret_cast<std::uintptr_t>(module), {}};
  ::dl_iterate_phdr(VisitModule, &search);
  std::vector<Bytes> files;
  for (Bytes segment : search.notes) {
    for (Bytes file; NextResourceNote(segment, file);) files.push_back(file);
  }
  return files;
}

std::optional<ResourceEntry> Find(HINSTANCE module, const ResourceName& type,
                                  const ResourceName& name) {
  DWORD error = ERROR_RESOURCE_DATA_NOT_FOUND;
  for (const Bytes file : ResourceFilesOf(module)) {
    DWORD file_error = error;
    if (auto found = ChooseResource(file, type, name, file_error)) return found;
    error = std::max(error, file_error);
  }
  SetLastError(error);
  return std::nullopt;
}

HRSRC HandleOf(const ResourceEntry& entry) {
  return reinterpret_cast<HRSRC>(entry.header);
}

// The entry behind a handle, if it is one of the module's.
std::optional<ResourceEntry> EntryOf(HINSTANCE module, HRSRC resource) {
  for (const Bytes file : ResourceFilesOf(module)) {
    ResourceReader reader(file);
    for (ResourceEntry entry; reader.Next(entry);) {
      if (HandleOf(entry) == resource) return entry;
    }
  }
  SetLastError(ERROR_INVALID_PARAMETER);
  return std::nullopt;
}

// One copy of each text that was asked for by address.
const wchar_t* KeepForever(std::wstring text) {
  struct Kept {
    std::mutex lock;
    std::set<std::wstring> texts;
  };
  static Lasting<Kept> kept;
  std::lock_guard guard((*kept).lock);
  return (*kept).texts.insert(std::move(text)).first->c_str();
}

}  // namespace

HRSRC FindResourceW(HINSTANCE module, const wchar_t* name, const wchar_t* type) {
  const auto found = Find(module, ResourceName::FromCaller(type), ResourceName::FromCaller(name));
  return found ? HandleOf(*found) : nullptr;
}

HRSRC FindResourceExW(HINSTANCE module, const wchar_t* type, const wchar_t* name, WORD language) {
  const auto wanted_type = ResourceName::FromCaller(type);
  const auto wanted_name = ResourceName::FromCaller(name);
  for (const Bytes file : ResourceFilesOf(module)) {
    ResourceReader reader(file);
    for (ResourceEntry entry; reader.Next(entry);) {
      const bool same = entry.language == language && entry.type.Matches(wanted_type) &&
                        entry.name.Matches(wanted_name);
      if (same) return HandleOf(entry);
    }
  }
  // Which of the three codes it is, the search through all languages knows; found there means that
  // the language alone is missing.
  if (Find(module, wanted_type, wanted_name)) SetLastError(ERROR_RESOURCE_LANG_NOT_FOUND);
  return nullptr;
}

HGLOBAL LoadResource(HINSTANCE module, HRSRC resource) {
  const auto entry = EntryOf(module, resource);
  return entry ? reinterpret_cast<HGLOBAL>(entry->data.data()) : nullptr;
}

DWORD SizeofResource(HINSTANCE module, HRSRC resource) {
  const auto entry = EntryOf(module, resource);
  return entry ? static_cast<DWORD>(entry->data.size()) : 0;
}

const void* LockResource(HGLOBAL resource) {
  return resource;
}

bool LoadStringW(HINSTANCE module, UINT id, std::wstring& text) {
  static constexpr UINT kStringsPerBlock = 16;
  ResourceName block;
  block.number = static_cast<WORD>(id / kStringsPerBlock + 1);
  const auto found = Find(module, ResourceName{RT_STRING, {}}, block);
  if (!found) return false;
  std::wstring string = StringOfBlock(found->data, id % kStringsPerBlock);
  if (string.empty()) return false;
  text = std::move(string);
  return true;
}

int LoadStringW(HINSTANCE module, UINT id, wchar_t* buffer, int size) {
  if (size < 0 || !buffer) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  if (size > 0) *buffer = 0;
  std::wstring text;
  if (!LoadStringW(module, id, text)) return 0;
  if (size == 0) {
    const wchar_t* const whole = KeepForever(text);
    std::memcpy(buffer, &whole, sizeof whole);
    return static_cast<int>(text.size());
  }
  const std::size_t count = std::min(text.size(), static_cast<std::size_t>(size) - 1);
  std::copy_n(text.data(), count, buffer);
  buffer[count] = 0;
  return static_cast<int>(count);
}

}  // namespace qel::sys
