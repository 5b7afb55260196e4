#pragma once
// The desktop's trash can, in the freedesktop.org trash layout, version 1.0.

#include <string>

namespace qel::sys {

// Moves a file, link or folder with an absolute native name into the trash can of its file system:
// the user's own ($XDG_DATA_HOME/Trash) where that lies on the same one, else $topdir/.Trash/UID or
// $topdir/.Trash-UID. 0; or -1 and errno, and nothing has moved.
[[nodiscard]] int MoveToTrash(const std::string& native);

}  // namespace qel::sys
