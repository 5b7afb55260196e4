#pragma once
// What happens to whole files while a tagged file is rewritten. Names are Windows paths.

#include <string>

#include "qelbase/outside/system/descriptor_internal.h"

class MFileName;

namespace qel::tagged {

// The name of what a symbolic link leads to, or `name` itself if it is none.
[[nodiscard]] std::wstring FollowLinks(const std::wstring& name);

// Waits until renames and new names in the file's folder are on the storage. False, with the last
// error, if that failed. A folder that this user can't open counts as done.
[[nodiscard]] bool SyncFolderOf(const std::wstring& name);

// Whether both names lead to the same entry of a folder.
[[nodiscard]] bool IsSameEntry(const std::wstring& a, const std::wstring& b);

// Gives a file that the user has no other copy of a free name in the temporary folder, and no
// archive attribute, so that no sweep of that folder takes it; where attributes can't be kept, a
// free name beside itself. True when that is on the storage. False, and the file as it was, if it
// can't be moved.
[[nodiscard]] bool MoveOnlyCopy(const std::wstring& file, MFileName& temporary);

// Creates an empty file with the owner and the rights of another, as far as the system lets, so
// that what is written to it is for nobody else's eyes. The owner may always write to it.
void CreateLike(const std::wstring& model, const std::wstring& name);

// Keeps a file to one conversion at a time, between processes and between threads. Where the file
// system knows no locks, or nothing can be opened under the name, it does nothing.
class FileLock {
 public:
  enum Kind { Try, Wait };
  FileLock(const std::wstring& name, Kind kind);
  bool isTaken() const { return m_is_taken; }  // by another

 private:
  sys::Descriptor m_file;
  bool m_is_taken = false;
};

}  // namespace qel::tagged
