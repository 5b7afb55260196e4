#pragma once
// Open files and folders, with share modes that hold between processes and inside one.
//
// A share mode is told to everybody who opens the file through CreateFileW: what one holder does
// (read, write, delete) must be shared by all others, and the other way round. It is kept as open
// file description locks on bytes far behind the end of any content, so it ends with its holder,
// however that dies; a forked child that has not started another program holds it too. Other
// programs do not see it. Removing a file (files.h) keeps to it.

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(-1);

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD GENERIC_EXECUTE = 0x20000000;
inline constexpr DWORD GENERIC_ALL = 0x10000000;
inline constexpr DWORD DELETE_ACCESS = 0x10000;

inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD FILE_SHARE_DELETE = 4;

inline constexpr DWORD CREATE_NEW = 1;         // fails with 80 if it exists
inline constexpr DWORD CREATE_ALWAYS = 2;      // cut to nothing if it exists
inline constexpr DWORD OPEN_EXISTING = 3;      //
inline constexpr DWORD OPEN_ALWAYS = 4;        // created if it does not exist
inline constexpr DWORD TRUNCATE_EXISTING = 5;  // needs the right to write

inline constexpr DWORD FILE_FLAG_BACKUP_SEMANTICS = 0x02000000;  // folders may be opened

// Opens or creates a file, or opens a folder; -1 with the last error on failure: 32 if access and
// sharing collide with those of another holder, 5 for a folder without the flag and for a read-only
// file opened for writing, 267 for a new file under a device's name. With CREATE_ALWAYS and
// OPEN_ALWAYS the last error is 183 after success if the file existed, else 0. A file needs to be
// readable, as its locks are a reader's. `attributes` may make a new file read-only. An open
// folder also has a shared flock, which makes the sweepers of a temporary folder pass it over; its
// share mode has no effect. `security` and `model` are not looked at. Safe on any thread.
[[nodiscard]] QELBASE_API HANDLE CreateFileW(const wchar_t* path, DWORD access, DWORD sharing,
                                             void* security, DWORD disposition, DWORD attributes,
                                             HANDLE model);

// 0 and 6 for what is no open handle.
QELBASE_API BOOL CloseHandle(HANDLE handle);

}  // namespace qel::sys
