#pragma once
// Environment variables. The real environment is in force, so that child processes and every other
// library of the process see what is set here.
//
// Names are looked up without regard to case where no variable has the very name. Values are wide
// text; those of TMP and TEMP are native names in the environment and Windows paths here. When the
// library is loaded, TMP and TEMP are supplied where they are missing: from each other, from
// TMPDIR, or as /tmp. TMPDIR follows when TMP is set or removed, because other libraries look there
// first, and is what it was before when TMP gets its first value back.
//
// The calls are safe among themselves on any thread. A getenv elsewhere at the moment of a change
// is a race that the platform's C library does not guard against.

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// The length of the value without its terminator; if it does not fit in `size` characters, the
// needed size with it. 0 for a missing variable (203), and for an empty one (last error 0).
QELBASE_API DWORD GetEnvironmentVariableW(const wchar_t* name, wchar_t* buffer, DWORD size);

// "NAME=value" sets, "NAME=" removes. The text is copied. 0, or -1 and errno for a text without
// name or `=`, and for a TMP or TEMP that reaches nothing.
QELBASE_API int _wputenv(const wchar_t* assignment);

// Copies a text in the default code page and puts values in the place of %NAME%; what is no
// variable stays as it is. Gives the size with terminator; nothing is written if `size` is less.
QELBASE_API DWORD ExpandEnvironmentStringsA(const char* text, char* buffer, DWORD size);

}  // namespace qel::sys
