#pragma once
// Listings of folders. A name may hold `*` and `?` in its last component (`*` is any text, `?` one
// character, at the end also none, `*.*` matches every name; without regard to case); without them
// it stands for that one entry. Entries come sorted by upper-cased name, `.` and `..` first where
// they match, save in a drive's root. What a link leads to is what is listed; a link that leads
// nowhere counts as a file.
//
// A listing is taken when it begins. An entry that is gone when its turn comes is passed over.

#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

struct WIN32_FIND_DATAW {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;  // the last change of status: no earlier time is kept here
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;
  DWORD dwReserved1;
  wchar_t cFileName[260];
  wchar_t cAlternateFileName[14];  // always empty
};

// -1 and the last error if the listing can't begin: 2 nothing matches, 3 no such folder, 5 it can't
// be read. FindNextFileW gives 0 and 18 at the end. Handles are closed with FindClose (0 and 6 for
// what is none) and belong to one thread at a time.
[[nodiscard]] QELBASE_API HANDLE FindFirstFileW(const wchar_t* path, WIN32_FIND_DATAW* data);
[[nodiscard]] QELBASE_API BOOL FindNextFileW(HANDLE listing, WIN32_FIND_DATAW* data);
QELBASE_API BOOL FindClose(HANDLE listing);

inline constexpr unsigned _A_RDONLY = 1;
inline constexpr unsigned _A_HIDDEN = 2;
inline constexpr unsigned _A_SYSTEM = 4;
inline constexpr unsigned _A_SUBDIR = 16;
inline constexpr unsigned _A_ARCH = 32;

struct _wfinddata64i32_t {
  unsigned attrib;
  std::int64_t time_create;  // seconds since 1970, UTC
  std::int64_t time_access;
  std::int64_t time_write;
  ULONG size;  // its low 32 bits
  wchar_t name[260];
};

// The same as calls of the C run-time library: -1 with errno, ENOENT for 2, 3 and 18, else EINVAL.
[[nodiscard]] QELBASE_API std::intptr_t _wfindfirst64i32(const wchar_t* path,
                                                         _wfinddata64i32_t* data);
[[nodiscard]] QELBASE_API int _wfindnext64i32(std::intptr_t listing, _wfinddata64i32_t* data);
QELBASE_API int _findclose(std::intptr_t listing);

}  // namespace qel::sys
