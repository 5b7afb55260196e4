#pragma once
// Files and folders by name. Names are Windows paths (names.h); whatever a call says of a path that
// reaches nothing holds for every call here: it fails with the code of ToNative.
//
// The read-only attribute is the absence of every write bit in the file's mode, never a question of
// who asks: an administrator's process is told the same. All calls are safe on any thread.

#include <cstdio>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 1;
inline constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 2;
inline constexpr DWORD FILE_ATTRIBUTE_SYSTEM = 4;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 16;
inline constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 32;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 128;
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;

inline constexpr DWORD MAX_PATH = 260;  // characters of a path with its terminator

// --- calls of the C run-time library: 0, or -1 with errno and the last error ---------------------

// Whether the file or folder exists (mode 0) and may be written (2), read (4) or both (6), as far
// as its read-only attribute tells; a folder may always.
[[nodiscard]] QELBASE_API int _waccess(const wchar_t* path, int mode);

// Renames or moves a file or folder. Never replaces: an existing target is EEXIST and nothing has
// changed. A regular file also moves to another file system: it is copied under a passing name
// beside the target with mode, owner, times and extended attributes, flushed to the disk, named,
// and only then is the source removed; whatever fails on the way leaves the source whole and no
// target. Anything else does not move there (EXDEV). A name given twice is a success.
[[nodiscard]] QELBASE_API int _wrename(const wchar_t* from, const wchar_t* to);

// Removes a file or a link. A folder, a read-only file, and one that is open without sharing its
// deletion, are EACCES.
[[nodiscard]] QELBASE_API int _wremove(const wchar_t* path);

// Removes an empty folder. ENOTEMPTY also for a file and for the current folder.
[[nodiscard]] QELBASE_API int _wrmdir(const wchar_t* path);

// Opens a stream: mode r, w or a, then perhaps +, b or t (text, also without a letter) and x (with
// w: a new file alone); other letters of the mode mean nothing, an unknown one is EINVAL. Others
// may read and write the file meanwhile, unless they have forbidden it (EACCES, last error 32). A
// folder and a read-only file opened for writing are EACCES. A stream that reads text gives CR LF
// as LF and ends at Ctrl-Z, which a+ takes away at the end of the file; it has no buffer for
// writing, so that one fwrite is one write. Writing leaves line ends as they are. Null, errno and
// the last error on failure; fclose closes it.
[[nodiscard]] QELBASE_API std::FILE* _wfopen(const wchar_t* path, const wchar_t* mode);

// --- calls of the system: 1, or 0 with the last error --------------------------------------------

// 183 if anything exists under the name, 3 if the parent is missing, 267 for the name of a device.
// `security` is not looked at: the folder's mode comes from the process's mask.
QELBASE_API BOOL CreateDirectoryW(const wchar_t* path, void* security);

// 145 if not empty, 267 if no folder, 32 for the current folder. A link to a folder is removed
// itself.
QELBASE_API BOOL RemoveDirectoryW(const wchar_t* path);

// 5 for a folder and for a read-only file, 32 for one that somebody has open without sharing its
// deletion (handles.h). A link is removed itself.
QELBASE_API BOOL DeleteFileW(const wchar_t* path);

// The attributes, or 0xFFFFFFFF with the last error. A regular file has the archive attribute
// unless the extended attribute user.DOSATTRIB says otherwise. A name that begins with a dot is
// hidden.
[[nodiscard]] QELBASE_API DWORD GetFileAttributesW(const wchar_t* path);

// Sets the read-only attribute in the mode (taking it away gives the owner the right to write) and
// hidden, system and archive in user.DOSATTRIB, which is written only if that changes something; 50
// where the file system does not hold it, and nothing has changed then. Other bits are ignored.
QELBASE_API BOOL SetFileAttributesW(const wchar_t* path, DWORD attributes);

// --- folders and passing names: the length without the terminator, or the needed size with it
// ------

// The folder in TMP, else in TEMP, else /tmp; ends in a backslash. Whether it exists is not asked.
QELBASE_API DWORD GetTempPathW(DWORD size, wchar_t* buffer);

QELBASE_API DWORD GetCurrentDirectoryW(DWORD size, wchar_t* buffer);

// The folder that the system is installed in: /usr.
QELBASE_API DWORD GetWindowsDirectoryW(DWORD size, wchar_t* buffer);

// Puts a name made of the folder, up to three characters of `prefix`, the low 16 bits of `number`
// in hexadecimal digits, and ".tmp" into `name`, which has room for 260 characters. Number 0 takes
// one from the clock, counts on until a name is free, and creates the empty file for the owner
// alone; two callers never get the same one. Gives the number, or 0: 267 bad folder, 111 folder
// over 246 characters, 80 no name is free.
QELBASE_API UINT GetTempFileNameW(const wchar_t* folder, const wchar_t* prefix, UINT number,
                                  wchar_t* name);

}  // namespace qel::sys
