#include "qelbase/outside/system/modules.h"

#include <link.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/modules_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"

namespace qel::sys {

namespace {

std::uintptr_t startOf(const dl_phdr_info& info) {
  const auto* end = info.dlpi_phdr + info.dlpi_phnum;
  const auto* load = std::find_if(info.dlpi_phdr, end,
                                  [](const auto& header) { return header.p_type == PT_LOAD; });
  return load == end ? 0 : info.dlpi_addr + load->p_vaddr;
}

}  // namespace

Module FindModule(const std::function<bool(const Module&)>& wanted) {
  struct Search {
    const std::function<bool(const Module&)>& wanted;
    Module found;
  } search{wanted, {}};
  const auto look = [](dl_phdr_info* info, std::size_t, void* data) {
    auto& [accepts, found] = *static_cast<Search*>(data);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): an address is what the handle is
    Module module{reinterpret_cast<HMODULE>(startOf(*info)), info->dlpi_addr, info->dlpi_name};
    if (!module.handle || !accepts(module)) return 0;
    found = std::move(module);
    return 1;
  };
  dl_iterate_phdr(look, &search);
  return search.found;
}

namespace {

std::string readAll(const char* native) {
  const Descriptor file = Descriptor::open(native, O_RDONLY);
  std::string text;
  std::array<char, 16384> part;
  while (file) {
    const ssize_t size = ReadUpTo(file.get(), part.data(), part.size());
    if (size <= 0) break;
    text.append(part.data(), static_cast<std::size_t>(size));
  }
  return text;
}

// The path of the file that is mapped at `start`: the loader knows a module that was loaded by a
// relative name by that name only.
std::string mappedFile(std::uintptr_t start) {
  std::array<char, 20> key{'\n'};
  *std::to_chars(key.begin() + 1, key.end() - 2, start, 16).ptr = '-';
  std::string maps = readAll("/proc/self/maps");
  maps.insert(maps.begin(), '\n');
  const std::size_t line = maps.find(key.data());
  if (line == std::string::npos) return {};
  const std::size_t end = maps.find('\n', line + 1);
  const std::size_t path = maps.find('/', line);
  return path < end ? maps.substr(path, end - path) : std::string();
}

std::string programFile() {
  std::array<char, PATH_MAX> path;
  const ssize_t size = Calls().readlink("/proc/self/exe", path.data(), path.size());
  return {path.data(), size < 0 ? 0 : static_cast<std::size_t>(size)};
}

}  // namespace

std::string FileOf(const Module& module) {
  std::string file = module.file;
  if (file.empty()) {
    file = programFile();
  } else if (!file.starts_with('/')) {
    file = mappedFile(reinterpret_cast<std::uintptr_t>(module.handle));
  }
  constexpr std::string_view deleted = " (deleted)";
  if (file.ends_with(deleted)) file.resize(file.size() - deleted.size());
  return file;
}

namespace {

std::string lowerName(std::string_view path) {
  std::string name(path.substr(path.rfind('/') + 1));
  for (char& c : name) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
  }
  return name;
}

// `x.dll` for the file name `libx.so` or `x.so`, with any version behind it; empty for another one.
std::string dllName(std::string_view name) {
  const std::size_t extension = name.find(".so");
  if (extension == std::string_view::npos) return {};
  const std::string_view behind = name.substr(extension + 3);
  if (!behind.empty() && behind[0] != '.') return {};
  name = name.substr(0, extension);
  if (name.starts_with("lib")) name.remove_prefix(3);
  return std::string(name) + ".dll";
}

bool isSameFile(const std::string& a, const std::string& b) {
  struct stat first {};
  struct stat second {};
  return Calls().stat(a.c_str(), &first) == 0 && Calls().stat(b.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

bool bearsName(const Module& module, const std::string& wanted) {
  const std::string name = lowerName(FileOf(module));
  return !name.empty() && (name == wanted || dllName(name) == wanted);
}

}  // namespace

std::wstring WithExtension(std::wstring_view name) {
  const std::size_t start = name.find_last_of(L"\\/:") + 1;
  const bool has_extension = name.find(L'.', start) != std::wstring_view::npos;
  return std::wstring(name) + (has_extension ? L"" : L".dll");
}

namespace {

DWORD cutInto(std::wstring_view text, wchar_t* buffer, DWORD size) {
  if (text.size() < size) return HandOut(text, buffer, size);
  SetLastError(ERROR_INSUFFICIENT_BUFFER);
  if (size > 0) HandOut(text.substr(0, size - 1), buffer, size);
  return size;
}

}  // namespace

DWORD GetModuleFileNameW(HMODULE module, wchar_t* buffer, DWORD size) {
  const Module found =
      FindModule([module](const Module& loaded) { return !module || loaded.handle == module; });
  const std::string file = found.handle ? FileOf(found) : std::string();
  if (file.empty()) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return 0;
  }
  return cutInto(FromNative(file), buffer, size);
}

HMODULE GetModuleHandleW(const wchar_t* name) {
  if (!name) return FindModule([](const Module&) { return true; }).handle;
  const std::wstring wanted = WithExtension(name);
  std::string native;
  HMODULE found = nullptr;
  if (ToNative(wanted, native)) {
    const bool is_path = wanted.find_first_of(L"\\/") != std::wstring::npos;
    const std::string bare = lowerName(native);
    found = FindModule([&](const Module& module) {
              return is_path ? isSameFile(FileOf(module), native) : bearsName(module, bare);
            }).handle;
  }
  if (!found) SetLastError(ERROR_MOD_NOT_FOUND);
  return found;
}

}  // namespace qel::sys
