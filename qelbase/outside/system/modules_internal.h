#pragma once
// Modules by what the loader and the file system know of them.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "qelbase/outside/system/types.h"

namespace qel::sys {

struct Module {
  HMODULE handle = nullptr;
  std::uintptr_t base = 0;  // what the addresses in the file are counted from
  std::string file;         // as the loader knows it; empty for the program
};

// The loaded module that `wanted` accepts; null handle if there is none. The program comes first.
// `wanted` is asked while the loader's list is held: it must not load or free.
[[nodiscard]] Module FindModule(const std::function<bool(const Module&)>& wanted);

// The absolute native path of a module's file; empty if there is none.
[[nodiscard]] std::string FileOf(const Module& module);

// `.dll` behind a name without extension. A closing dot means no extension.
[[nodiscard]] std::wstring WithExtension(std::wstring_view name);

// The native file that LoadLibraryW would load for a name, if it is one that can be named: for a
// path that file, for a bare name the file of the loaded module or the one beside the program.
// Empty if there is none.
[[nodiscard]] std::string LibraryFile(const wchar_t* name);

}  // namespace qel::sys
