#pragma once
// A walk through a folder tree that may be changed under its feet, by descriptors: no link is
// followed, nothing outside of the folder that it began in is reached, and no mounted file system
// is entered. Depth costs neither stack nor descriptors.

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/listings_internal.h"

namespace qel::sys {

// Steps come in the order of ListEntries, the content of a folder before the folder:
//
//   FolderWalk walk;
//   walk.begin("/tmp/run");
//   while (true) switch (walk.next()) {
//     case FolderWalk::entered: ...  // a folder's content comes next; passOver() if it must not
//     case FolderWalk::file: ...     // remove(), or not
//     case FolderWalk::left: ...     // the folder itself, empty if all went; remove(), or not
//     case FolderWalk::ended: return;
//     case FolderWalk::failed: ...   // error() tells why
//   }
//
// After `failed` the walk goes on behind what failed: the folder that could not be entered, or the
// content of the one that is gone. The folder that the walk began with is entered and left as well.
class FolderWalk {
 public:
  enum Step { entered, file, left, ended, failed };

  // Opens the folder, which must not be a link. 0 or errno.
  [[nodiscard]] int begin(const std::string& native);
  [[nodiscard]] Step next();
  int error() const { return m_error; }  // errno of `failed`

  void passOver();  // after `entered`: the rest of the folder's content; `left` comes next

  // The open folder in which the entry of the last step lies (for `entered`: the folder itself);
  // for the first folder's `left`, AT_FDCWD.
  int folder() const;
  // The entry's name in that folder; its path from the folder where the walk began, "" for that
  // one, with components joined by `\`.
  const std::string& name() const { return m_name; }
  std::wstring path() const;
  bool isRegular() const { return m_is_regular; }  // after `file`, as the folder's listing told
  std::size_t depth() const { return m_levels.size(); }
  // Removes the entry of the last step. 0 or errno.
  [[nodiscard]] int remove();

 private:
  struct Identity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t mount = 0;
  };
  struct Level {
    Descriptor folder;
    Identity identity;
    EntryList entries;
    std::size_t next = 0;
    std::size_t path_length = 0;
    std::string name;
  };

  int enter(Descriptor folder);
  Step descend();
  Step ascend();
  static int identify(int folder, Identity& identity);
  static int reopen(const Descriptor& child, Level& parent);
  Step fail(int error);

  std::deque<Level> m_levels;
  std::string m_name;
  std::wstring m_path;  // of the last level
  Step m_step = ended;
  bool m_is_regular = false;
  bool m_begins = false;  // the first folder's `entered` comes next
  int m_error = 0;
};

// Walks through a folder and has `remove` take each entry away, a folder behind its content. Stops
// with the first code that is not 0, and `walk` then is where that came up. A folder that is gone
// when its turn comes is no failure.
[[nodiscard]] DWORD RemoveTree(const std::string& native, FolderWalk& walk,
                               const std::function<DWORD(bool is_folder)>& remove);

// The same with whatever stands under a name, read-only or not; of a link, the link. 0 or the code.
[[nodiscard]] DWORD RemoveTree(const std::string& native);

}  // namespace qel::sys
