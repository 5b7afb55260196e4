#pragma once
// String tables and custom resources of the program and of loaded modules. They are written in .rc
// files, compiled by llvm-rc, and put into the module by the CMake function qelbase_add_resources.

#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// Where a resource is found. It lives as long as the module is loaded, and so does what it holds.
using HRSRC = const struct HRSRC__*;

// A number in the place of a name. Names below 65536 are numbers, and so is L"#12". Case doesn't
// count in the others.
inline const wchar_t* MakeIntResource(WORD number) {
  return reinterpret_cast<const wchar_t*>(static_cast<std::uintptr_t>(number));
}
inline constexpr WORD RT_STRING = 6;
inline constexpr WORD RT_RCDATA = 10;
inline constexpr WORD RT_VERSION = 16;

// Modules: null is the program; others are handles as GetModuleHandleW and LoadLibraryW give them.
//
// Where a resource exists in several languages, the neutral one is taken, else the user's, else US
// English (0x409), else any. The user's language is that of LC_ALL, LC_MESSAGES or LANG at first
// use, or what was set here since (0: of the environment). For the whole process.
QELBASE_API void SetUserLanguage(WORD language);

// Null, and 1812 for a module without resources, 1813 without this type, 1814 without this name.
[[nodiscard]] QELBASE_API HRSRC FindResourceW(HINSTANCE module, const wchar_t* name,
                                              const wchar_t* type);
// In one language alone.
[[nodiscard]] QELBASE_API HRSRC FindResourceExW(HINSTANCE module, const wchar_t* type,
                                                const wchar_t* name, WORD language);

// Null, or 0, and 87 for a resource that isn't the module's. The size is in bytes.
[[nodiscard]] QELBASE_API HGLOBAL LoadResource(HINSTANCE module, HRSRC resource);
[[nodiscard]] QELBASE_API DWORD SizeofResource(HINSTANCE module, HRSRC resource);

// The resource's bytes; null for null.
[[nodiscard]] QELBASE_API const void* LockResource(HGLOBAL resource);

// Copies the string, cut to `size` - 1 characters and terminated, and gives the number copied; 0 if
// the string is missing or empty. With size 0 `buffer` is taken for a pointer to a
// `const wchar_t*`, which gets the address of the whole string, valid until the process ends. A
// negative size: 0 and 87.
QELBASE_API int LoadStringW(HINSTANCE module, UINT id, wchar_t* buffer, int size);

// The whole string. False, and `text` as it was, if it is missing or empty.
QELBASE_API bool LoadStringW(HINSTANCE module, UINT id, std::wstring& text);

}  // namespace qel::sys
