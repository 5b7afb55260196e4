#pragma once
// The folders of runs, as the cleaner sees them.

#include <cstdint>

#include "qelbase/paths/MFolderLocker.h"

namespace qel::paths {

// Whether what stands under the name belongs to this user; a link counts itself.
[[nodiscard]] bool IsOwn(const wchar_t* path);

// Takes the lock of a dead run's folder with `probe`, and deletes the folder with all its content;
// it stays locked until the content is gone. 0, or how many files could not be deleted; -1 if
// somebody holds the folder, or it is not this user's, and nothing was touched. The lock is
// released in any case.
[[nodiscard]] std::int32_t DeleteRunFolder(const wchar_t* path, MFolderLocker& probe);

// Puts a line for people into the lock file of a folder that this process holds: process, program,
// host, time.
void DescribeHolder(const wchar_t* folder);

}  // namespace qel::paths
