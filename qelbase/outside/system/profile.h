#pragma once
// Profiles: ini files that are read and written one entry at a time.
//
// A file is UTF-8, or UTF-16 behind a byte order mark, with lines `[section]`, `entry=value` and
// `;comment`. Names count without regard to case; of an entry that comes twice the first counts.
// Blanks around names and values do not count, nor does one pair of quotes around a value. A file
// name without a folder lies in $XDG_CONFIG_HOME, else ~/.config. Files above 64 MB are not read.
//
// A write replaces the file as a whole, so that readers and a crash see the old or the new one; it
// keeps all other lines, the encoding, the line ends and the file's mode, and waits for other
// writers on the machine. Safe on any thread. A null text among the names counts as missing.

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// Copies the value, or `otherwise` (null: empty) where there is none, cut to size - 1 characters
// and terminated, and gives the number of characters copied.
QELBASE_API DWORD GetPrivateProfileStringW(const wchar_t* section, const wchar_t* entry,
                                           const wchar_t* otherwise, wchar_t* buffer, DWORD size,
                                           const wchar_t* file);

// The number that the value begins with, decimal with or without sign, or hexadecimal behind 0x; 0
// if there is none, `otherwise` if there is no value or an empty one. Its low 32 bits.
[[nodiscard]] QELBASE_API UINT GetPrivateProfileIntW(const wchar_t* section, const wchar_t* entry,
                                                     int otherwise, const wchar_t* file);

// Sets the value and makes file, section and entry where they are missing. A null text removes the
// entry, a null entry the section; what is not there is removed too. 0 and the last error on
// failure: 87 for a name or text with a line break, a section with `]`, and an entry that is empty,
// has a `=` or begins with `[` or `;`; 5 for a read-only file.
QELBASE_API BOOL WritePrivateProfileStringW(const wchar_t* section, const wchar_t* entry,
                                            const wchar_t* text, const wchar_t* file);

}  // namespace qel::sys
