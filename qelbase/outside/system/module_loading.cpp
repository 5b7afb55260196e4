// Loading and freeing of modules, and the entries that they export.

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/outside/system/modules_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

namespace {

// --- which file ----------------------------------------------------------------------------------

bool isFile(const std::string& native) {
  struct stat status {};
  return Calls().stat(native.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// The names that a library may bear here: `x.dll`, `libx.so`, `x.so`.
std::vector<std::string> fileNames(const std::string& name) {
  constexpr std::string_view extension = ".dll";
  std::vector<std::string> names{name};
  if (name.size() <= extension.size()) return names;
  const std::string_view end = std::string_view(name).substr(name.size() - extension.size());
  if (CompareNoCase(Widen(end, CP_UTF8), L".dll") != 0) return names;
  const std::string stem = name.substr(0, name.size() - extension.size());
  names.push_back("lib" + stem + ".so");
  names.push_back(stem + ".so");
  return names;
}

std::string fileIn(const std::string& folder, const std::string& name) {
  for (const std::string& candidate : fileNames(name)) {
    std::string native = folder;
    native += "/" + candidate;
    if (isFile(native)) return native;
  }
  return {};
}

bool isPath(std::wstring_view name) {
  return name.find_first_of(L"\\/:") != std::wstring_view::npos;
}

// --- whether it can be loaded --------------------------------------------------------------------

// This library's own header.
const Elf64_Ehdr& ownHeader() {
  Dl_info info{};
  ::dladdr(reinterpret_cast<const void*>(&LoadLibraryW), &info);
  return *static_cast<const Elf64_Ehdr*>(info.dli_fbase);
}

// Looks at the headers alone. The loader would map what they tell without a look at the file's end,
// and a cut file would end the process at the first touch.
bool isModule(const std::string& native) {
  const Descriptor file = Descriptor::open(native, O_RDONLY | O_NONBLOCK);
  struct stat status {};
  if (!file || Calls().fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  const auto read = [&](std::uint64_t at, void* data, std::size_t size) {
    return Calls().pread(file.get(), data, size, static_cast<off_t>(at)) ==
           static_cast<ssize_t>(size);
  };
  Elf64_Ehdr header{};
  const Elf64_Ehdr& own = ownHeader();
  if (!read(0, &header, sizeof header) ||
      std::memcmp(header.e_ident, own.e_ident, EI_VERSION + 1) != 0 || header.e_type != ET_DYN ||
      header.e_machine != own.e_machine || header.e_phentsize != sizeof(Elf64_Phdr)) {
    return false;
  }
  const auto size = static_cast<std::uint64_t>(status.st_size);
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    Elf64_Phdr segment{};
    if (header.e_phoff > size ||
        !read(header.e_phoff + i * sizeof segment, &segment, sizeof segment))
      return false;
    const bool is_inside = segment.p_offset <= size && segment.p_filesz <= size - segment.p_offset;
    if (segment.p_type == PT_LOAD && !is_inside) return false;
  }
  return true;
}

// --- what was loaded -----------------------------------------------------------------------------

// The loader's own handles, one for each count. A plain lock is enough: no code of a module runs
// while it is held.
struct Table {
  std::mutex lock;
  std::map<HMODULE, std::vector<void*>> handles;
};

Table& table() {
  static Lasting<Table> one;  // modules are freed by static objects too
  return *one;
}

HMODULE keep(void* loader_handle) {
  link_map* map = nullptr;
  ::dlinfo(loader_handle, RTLD_DI_LINKMAP, &map);
  const Module module =
      FindModule([map](const Module& loaded) { return loaded.base == map->l_addr; });
  const std::lock_guard guard(table().lock);
  table().handles[module.handle].push_back(loader_handle);
  return module.handle;
}

// The loader's handle of a module that is loaded, counted once more; null if it is not.
void* loaderHandle(HMODULE handle) {
  const Module module =
      FindModule([handle](const Module& loaded) { return !handle || loaded.handle == handle; });
  if (!module.handle) return nullptr;
  const char* name = module.file.empty() ? nullptr : module.file.c_str();
  return ::dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
}

HMODULE fail(DWORD error) {
  SetLastError(error);
  return nullptr;
}

HMODULE open(const std::string& native) {
  void* const handle = ::dlopen(native.c_str(), RTLD_NOW | RTLD_LOCAL);
  return handle ? keep(handle) : fail(ERROR_MOD_NOT_FOUND);
}

HMODULE openByLoader(const std::string& name) {
  for (const std::string& candidate : fileNames(name)) {
    if (const HMODULE module = open(candidate)) return module;
  }
  return nullptr;
}

}  // namespace

std::string LibraryFile(const wchar_t* name) {
  const std::wstring wanted = WithExtension(name);
  std::string native;
  if (!ToNative(wanted, native)) return {};
  if (isPath(wanted)) return fileIn(ParentOf(native), NameOf(native));
  if (const HMODULE loaded = GetModuleHandleW(name)) {
    return FileOf(FindModule([loaded](const Module& module) { return module.handle == loaded; }));
  }
  return fileIn(ParentOf(FileOf(FindModule([](const Module&) { return true; }))), native);
}

HMODULE LoadLibraryW(const wchar_t* name) {
  if (!name || !*name) return fail(ERROR_INVALID_PARAMETER);
  const DWORD before = GetLastError();
  if (const HMODULE loaded = GetModuleHandleW(name)) {
    if (void* const handle = loaderHandle(loaded)) return keep(handle);
  }
  SetLastError(before);
  const std::string file = LibraryFile(name);
  if (file.empty()) {
    const std::wstring wanted = WithExtension(name);
    std::string native;
    if (isPath(wanted) || !ToNative(wanted, native) || native.empty())
      return fail(ERROR_MOD_NOT_FOUND);
    return openByLoader(native);
  }
  return isModule(file) ? open(file) : fail(ERROR_BAD_EXE_FORMAT);
}

HMODULE LoadLibraryExA(const char* name, HANDLE file, DWORD flags) {
  constexpr DWORD known = LOAD_WITH_ALTERED_SEARCH_PATH | LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR |
                          LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_USER_DIRS |
                          LOAD_LIBRARY_SEARCH_SYSTEM32 | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS;
  if (!name || file || (flags & ~known) != 0) return fail(ERROR_INVALID_PARAMETER);
  return LoadLibraryW(Widen(name).c_str());
}

BOOL FreeLibrary(HMODULE module) {
  void* handle = nullptr;
  {
    const std::lock_guard guard(table().lock);
    const auto found = table().handles.find(module);
    if (found != table().handles.end()) {
      handle = found->second.back();
      found->second.pop_back();
      if (found->second.empty()) table().handles.erase(found);
    }
  }
  if (!handle) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return 0;
  }
  ::dlclose(handle);
  return 1;
}

FARPROC GetProcAddress(HMODULE module, const char* name) {
  void* const handle = loaderHandle(module);
  if (!handle) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  }
  const auto number = reinterpret_cast<std::uintptr_t>(name);
  const std::string symbol = number < 0x10000 ? "ordinal_" + std::to_string(number) : name;
  void* address = ::dlsym(handle, symbol.c_str());
  link_map* own = nullptr;
  link_map* owner = nullptr;
  Dl_info info{};
  ::dlinfo(handle, RTLD_DI_LINKMAP, &own);
  // The loader also looks into what the module needs; an export is the module's own.
  const bool is_own =
      address && ::dladdr1(address, &info, reinterpret_cast<void**>(&owner), RTLD_DL_LINKMAP) &&
      owner == own;
  ::dlclose(handle);
  if (is_own) return reinterpret_cast<FARPROC>(address);
  SetLastError(ERROR_PROC_NOT_FOUND);
  return nullptr;
}

}  // namespace qel::sys
