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

}  // namespace qel::sys
