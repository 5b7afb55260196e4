#pragma once
// The system's own names for plain types, as far as exported interfaces speak of them. Widths are
// those of the told platform, not of this one: a LONG has 32 bits.

#include <cstdint>

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using UINT = std::uint32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;

// The two words of a window message and the answer to it.
using WPARAM = std::uint64_t;
using LPARAM = std::int64_t;
using LRESULT = std::int64_t;

namespace qel::sys {
// A moment: 100 ns since 1601, UTC.
struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};
// A place on the screen, in pixels from its upper left corner.
struct POINT {
  LONG x;
  LONG y;
};
// A block of memory (memory.h), or a resource that was found (resources.h).
using HGLOBAL = const struct HGLOBAL__*;
}  // namespace qel::sys

// Opaque handles: never dereferenced, looked up in the table of their kind at each use, so that a
// stale one is an error code and not a crash.
using HANDLE = void*;
using HINSTANCE = struct HINSTANCE__*;
using HMODULE = HINSTANCE;
using HWND = struct HWND__*;
using HKEY = struct HKEY__*;
using SC_HANDLE = struct SC_HANDLE__*;
using SERVICE_STATUS_HANDLE = struct SERVICE_STATUS_HANDLE__*;
using HDC = struct HDC__*;
