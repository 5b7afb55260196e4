#pragma once
// Files by native name, for the other rooms of the ground floor. 0, or -1 and errno.

#include <optional>
#include <string>
#include <vector>

#include "qelbase/outside/system/syscalls_internal.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// Renames within a file system, EEXIST if `to` exists. Where the file system cannot do that in one
// call, a link or an empty placeholder takes the name first.
[[nodiscard]] int RenameNoReplace(const std::string& from, const std::string& to);

// As RenameNoReplace, and a regular file also goes to another file system (see _wrename).
[[nodiscard]] int MoveNoReplace(const std::string& from, const std::string& to);

// Waits until the names in a folder are on the disk. A file system that cannot do that is no error.
[[nodiscard]] int SyncFolder(const std::string& folder);

// Copies a regular file with content, mode and times over what may be there: under a passing name
// beside `to`, renamed when it is whole.
[[nodiscard]] int CopyReplacing(const std::string& from, const std::string& to);

// Creates a folder for the owner alone, exclusively. 0 or the code; 183 if anything is there.
[[nodiscard]] DWORD CreatePrivateFolder(const wchar_t* path);

// DeleteFileW of a name in an open folder (AT_FDCWD: of a native name). 0 or the code. What a
// listing told to be a regular file is looked at when it is open, which saves a call.
[[nodiscard]] DWORD RemoveFileIn(int folder, const std::string& name, bool is_regular = false);

// The same for RemoveDirectoryW.
[[nodiscard]] DWORD RemoveFolderIn(int folder, const std::string& name);

// No write bit is set in the mode of a regular file.
[[nodiscard]] bool IsReadOnly(const struct stat& status);

// The names in a folder in no order, without `.` and `..`; nothing and errno on failure.
[[nodiscard]] std::optional<std::vector<std::string>> NamesIn(const std::string& folder);

// Whether a name answers to a pattern, without regard to case: `*` is any text, `?` one character
// (at the end also none), `*.*` matches every name.
[[nodiscard]] bool MatchesPattern(std::wstring_view name, std::wstring_view pattern);

// The Windows attributes of what `status` describes.
[[nodiscard]] DWORD AttributesOf(const std::string& native, const struct stat& status);

// Read-only and the stored attributes of an open file.
[[nodiscard]] DWORD AttributesOfOpen(int file, const struct stat& status);

// Sets the last error, and errno as the C run-time library would; gives -1.
int FailRunTime(DWORD code);

}  // namespace qel::sys
