#pragma once
// Loaded modules: the program and its shared objects. A module's handle is the address at which it
// begins in memory.

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// The Windows path of a module's file, of the program's for null. Gives the length without the
// terminator. A path that does not fit is cut to size - 1 characters and terminated: the result is
// `size`, the last error 122. 0 and 126 for a handle that is no loaded module.
QELBASE_API DWORD GetModuleFileNameW(HMODULE module, wchar_t* buffer, DWORD size);

// The handle of a loaded module, which stays loaded as long as it would have without the call; of
// the program for null. A path must be the module's own; a bare name is its file name without
// regard to case. `.dll` is added to a name without extension, and `x.dll` also finds `libx.so` and
// `libx.so.1`. A closing dot means no extension. Null and 126 if no such module is loaded.
QELBASE_API HMODULE GetModuleHandleW(const wchar_t* name);

// --- loading -------------------------------------------------------------------------------------

// Loads a module, or counts one that is loaded once more; null and 126 for a file that is missing
// or needs one that is, 193 for a file that is no module of this machine, a cut one too. The name
// is looked for as GetModuleHandleW takes it: a path reaches that file, and `x.dll` also `libx.so`
// and `x.so` beside it; a bare name is a loaded module, then a file beside the program, then one
// that the system's loader finds. What the module needs is bound, and its own start runs, before
// this returns. Safe on any thread.
[[nodiscard]] QELBASE_API HMODULE LoadLibraryW(const wchar_t* name);

inline constexpr DWORD LOAD_WITH_ALTERED_SEARCH_PATH = 0x8;
inline constexpr DWORD LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR = 0x100;
inline constexpr DWORD LOAD_LIBRARY_SEARCH_APPLICATION_DIR = 0x200;
inline constexpr DWORD LOAD_LIBRARY_SEARCH_USER_DIRS = 0x400;
inline constexpr DWORD LOAD_LIBRARY_SEARCH_SYSTEM32 = 0x800;
inline constexpr DWORD LOAD_LIBRARY_SEARCH_DEFAULT_DIRS = 0x1000;

// The same for a name in the default code page. `file` must be null. Where the files that a module
// needs are looked for is the module's own affair here (its run path), so that the flags above
// change nothing; any other flag asks for what is no loading, and gives null and 87.
[[nodiscard]] QELBASE_API HMODULE LoadLibraryExA(const char* name, HANDLE file, DWORD flags);

// Takes one count back; with the last one the module goes. 0 and 126 for a handle that LoadLibrary
// did not give, or that was given back as often as it was given.
QELBASE_API BOOL FreeLibrary(HMODULE module);

using FARPROC = void (*)();

// What a module exports under a name; null and 127 if it exports no such thing itself, 126 for a
// handle that is no loaded module. Null is the program. A pointer below 65536 is an ordinal: number
// 15 is the symbol `ordinal_15`.
[[nodiscard]] QELBASE_API FARPROC GetProcAddress(HMODULE module, const char* name);

}  // namespace qel::sys
