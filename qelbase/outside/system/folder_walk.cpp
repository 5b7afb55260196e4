#include <linux/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <utility>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/folder_walk_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"

namespace qel::sys {

namespace {

// So many folders of a chain are open at once. Those further up are opened again by way of `..`,
// and must still be the same.
constexpr std::size_t most_open = 32;
constexpr int folder_flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;

}  // namespace

int FolderWalk::identify(int folder, Identity& identity) {
  struct statx status {};
  const unsigned wanted = STATX_INO | STATX_MNT_ID;
  if (Calls().statx(folder, "", AT_EMPTY_PATH, wanted, &status) != 0) return errno;
  identity.device = std::uint64_t{status.stx_dev_major} << 32 | status.stx_dev_minor;
  identity.inode = status.stx_ino;
  identity.mount = (status.stx_mask & STATX_MNT_ID) != 0 ? status.stx_mnt_id : 0;
  return 0;
}

// Makes the open folder `m_name` the one that is walked through.
int FolderWalk::enter(Descriptor folder) {
  Level level;
  if (const int error = identify(folder.get(), level.identity); error != 0) return error;
  if (!m_levels.empty()) {
    const Identity& above = m_levels.back().identity;
    const bool same = above.device == level.identity.device && above.mount == level.identity.mount;
    if (!same) return EXDEV;
  }
  if (const int error = ListOpenFolder(folder.get(), level.entries); error != 0) return error;
  if (!m_levels.empty()) m_path = path();
  level.folder = std::move(folder);
  level.path_length = m_path.size();
  level.name = m_name;
  m_levels.push_back(std::move(level));
  if (m_levels.size() > most_open) m_levels[m_levels.size() - 1 - most_open].folder = Descriptor();
  return 0;
}

int FolderWalk::begin(const std::string& native) {
  m_levels.clear();
  m_path.clear();
  m_step = ended;
  m_name = native;
  Descriptor folder = Descriptor::open(native, folder_flags);
  if (!folder) return errno;
  if (const int error = enter(std::move(folder)); error != 0) return error;
  m_begins = true;
  return 0;
}

FolderWalk::Step FolderWalk::fail(int error) {
  m_error = error;
  return m_step = failed;
}

std::wstring FolderWalk::path() const {
  const bool is_level = m_step == entered || (m_levels.empty() && m_step != failed);
  if (is_level) return m_path;
  return (m_path.empty() ? L"" : m_path + L'\\') + FromNative(m_name);
}

FolderWalk::Step FolderWalk::descend() {
  Descriptor folder = Descriptor::openIn(m_levels.back().folder.get(), m_name, folder_flags);
  if (!folder && (errno == ENOTDIR || errno == ELOOP)) return m_step = file;  // it was replaced
  if (!folder) return fail(errno);
  const int error = enter(std::move(folder));
  return error == 0 ? m_step = entered : fail(error);
}

// Back from the last level, whose folder is still open, to its parent.
int FolderWalk::reopen(const Descriptor& child, Level& parent) {
  if (parent.folder) return 0;
  Descriptor folder = Descriptor::openIn(child.get(), "..", folder_flags);
  if (!folder) return errno;
  Identity identity;
  if (const int error = identify(folder.get(), identity); error != 0) return error;
  if (identity.device != parent.identity.device || identity.inode != parent.identity.inode) {
    return EBUSY;
  }
  parent.folder = std::move(folder);
  return 0;
}

FolderWalk::Step FolderWalk::ascend() {
  Level done = std::move(m_levels.back());
  m_levels.pop_back();
  m_path.resize(m_levels.empty() ? 0 : m_levels.back().path_length);
  m_name = std::move(done.name);
  if (m_levels.empty()) return m_step = left;
  const int error = reopen(done.folder, m_levels.back());
  if (error == 0) return m_step = left;
  m_levels.clear();  // the tree was taken apart: nothing above can be found again
  return fail(error);
}

FolderWalk::Step FolderWalk::next() {
  if (m_levels.empty()) return m_step = ended;
  if (std::exchange(m_begins, false)) return m_step = entered;
  Level& level = m_levels.back();
  if (level.next == level.entries.size()) return ascend();
  const Entry entry = level.entries[level.next++];
  m_name = entry.native;
  m_is_regular = entry.is_regular;
  m_step = file;
  return entry.is_folder ? descend() : m_step;
}

void FolderWalk::passOver() {
  m_levels.back().next = m_levels.back().entries.size();
}

int FolderWalk::folder() const {
  return m_levels.empty() ? AT_FDCWD : m_levels.back().folder.get();
}

int FolderWalk::remove() {
  const int flags = m_step == left ? AT_REMOVEDIR : 0;
  return Calls().unlinkat(folder(), m_name.c_str(), flags) == 0 ? 0 : errno;
}

DWORD RemoveTree(const std::string& native, FolderWalk& walk,
                 const std::function<DWORD(bool is_folder)>& remove) {
  if (const int error = walk.begin(native); error != 0) return ErrorOfPath(error, native);
  for (FolderWalk::Step step = walk.next(); step != FolderWalk::ended; step = walk.next()) {
    DWORD code = ERROR_SUCCESS;
    if (step == FolderWalk::file || step == FolderWalk::left) code = remove(step == walk.left);
    const bool is_gone = step == FolderWalk::failed && walk.error() == ENOENT;
    if (step == FolderWalk::failed && !is_gone) code = ErrorFromErrno(walk.error());
    if (code != ERROR_SUCCESS) return code;
  }
  return ERROR_SUCCESS;
}

DWORD RemoveTree(const std::string& native) {
  struct stat status {};
  if (Calls().lstat(native.c_str(), &status) != 0) return ErrorOfPath(errno, native);
  if (!S_ISDIR(status.st_mode)) {
    return Calls().unlink(native.c_str()) == 0 ? ERROR_SUCCESS : ErrorOfPath(errno, native);
  }
  FolderWalk walk;
  return RemoveTree(native, walk, [&walk](bool) {
    const int error = walk.remove();
    return error == 0 || error == ENOENT ? ERROR_SUCCESS : ErrorFromErrno(error);
  });
}

}  // namespace qel::sys
