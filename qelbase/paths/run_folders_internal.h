#pragma once
// The folders of runs, as the cleaner and the tool see them.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "qelbase/export.h"
#include "qelbase/paths/MFolderLocker.h"

namespace qel::paths {

// The entry name of a run's folder, "abc" of "abc_14_05_09_1"; nothing for another name.
[[nodiscard]] QELBASE_API std::optional<std::wstring> EntryNameOf(std::wstring_view folder);

// Whether what stands under the name belongs to this user; a link counts itself.
[[nodiscard]] bool IsOwn(const wchar_t* path);

// Whether the folder is a real one (no link), and belongs to this user.
[[nodiscard]] QELBASE_API bool IsOwnFolder(const wchar_t* path);

// Takes the lock of a dead run's folder with `probe`, and deletes the folder with all its content;
// it stays locked until the content is gone. 0, or how many files could not be deleted; -1 if
// somebody holds the folder, or it is not this user's, and nothing was touched. The lock is
// released in any case.
[[nodiscard]] QELBASE_API std::int32_t DeleteRunFolder(const wchar_t* path, MFolderLocker& probe);

// Puts a line for people into the lock file of a folder that this process holds: process, program,
// host, time.
void DescribeHolder(const wchar_t* folder);

}  // namespace qel::paths
