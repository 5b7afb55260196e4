#include <sys/utsname.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <deque>

#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/folder_walk_internal.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/shares_internal.h"
#include "qelbase/paths/folder_functions.h"
#include "qelbase/paths/run_folders_internal.h"

namespace qel::paths {

namespace {

using namespace sys;

const std::string& LockFileName() {
  static Lasting<std::string> name([] { return NativeText(MFolderLocker::mgp_lock_file_name); });
  return *name;
}

std::string NativeOf(const wchar_t* folder, const wchar_t* tail) {
  CStringW path = folder;
  AssurePathAppend(path, tail);
  std::string native;
  return ToNative(path.GetString(), native) ? native : std::string();
}

bool LinkStatus(const wchar_t* path, struct stat& status) {
  std::string native;
  return ToNative(path, native) && Calls().lstat(native.c_str(), &status) == 0;
}

bool IsLink(const std::string& native) {
  struct stat status {};
  return Calls().lstat(native.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

bool IsOwnFolder(const wchar_t* path) {
  struct stat status {};
  return LinkStatus(path, status) && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

// The content of one folder whose lock is held, without the lock file and the folder itself. Runs
// that live further down keep what is theirs.
class Sweep {
 public:
  explicit Sweep(const std::string& native) : m_native(native) {}

  // How many files stayed; -1 if the folder can't be entered or is not this user's.
  std::int32_t Run() {
    FolderWalk walk;
    struct stat status {};
    if (walk.begin(m_native) != 0) return -1;
    if (Calls().fstat(walk.folder(), &status) != 0 || status.st_uid != geteuid()) return -1;
    for (FolderWalk::Step step = walk.next(); step != FolderWalk::ended; step = walk.next()) {
      if (step == FolderWalk::entered && walk.depth() > 1) Enter(walk);
      if (step == FolderWalk::left && walk.depth() > 0) Leave(walk);
      if (step == FolderWalk::file) RemoveFile(walk);
      if (step == FolderWalk::failed) ++m_stayed;
    }
    return m_stayed;
  }

 private:
  void Enter(FolderWalk& walk) {
    Descriptor lock =
        Descriptor::openIn(walk.folder(), LockFileName(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    const bool may_pass = lock ? TakeShare(lock.get(), GENERIC_READ, 0) == 0 : errno == ENOENT;
    m_locks.push_back(std::move(lock));
    if (!may_pass) walk.passOver();
  }

  void Leave(const FolderWalk& walk) {
    const Descriptor lock = std::move(m_locks.back());
    m_locks.pop_back();
    Calls().unlinkat(walk.folder(), walk.name().c_str(), AT_REMOVEDIR);
  }

  // A lock file that appeared behind the sweep's back is its maker's.
  bool IsForeignLock(const FolderWalk& walk) const {
    return walk.name() == LockFileName() && (m_locks.empty() || !m_locks.back());
  }

  void RemoveFile(const FolderWalk& walk) {
    if (IsForeignLock(walk)) return;
    if (walk.name() == LockFileName()) {
      Calls().unlinkat(walk.folder(), walk.name().c_str(), 0);
      return;
    }
    if (!HasArchive(walk)) return;
    const DWORD code = RemoveFileIn(walk.folder(), walk.name());
    if (code != ERROR_SUCCESS && code != ERROR_FILE_NOT_FOUND) ++m_stayed;
  }

  // What is no regular file, which only this system has, goes as well.
  bool HasArchive(const FolderWalk& walk) const {
    struct stat status {};
    const int found =
        Calls().fstatat(walk.folder(), walk.name().c_str(), &status, AT_SYMLINK_NOFOLLOW);
    if (found != 0 || !S_ISREG(status.st_mode)) return true;
    const Descriptor file =
        Descriptor::openIn(walk.folder(), walk.name(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    return !file || (AttributesOfOpen(file.get(), status) & FILE_ATTRIBUTE_ARCHIVE) != 0;
  }

  std::string m_native;
  std::deque<Descriptor> m_locks;  // of the folders below the first one
  std::int32_t m_stayed = 0;
};

}  // namespace

bool IsOwn(const wchar_t* path) {
  struct stat status {};
  return LinkStatus(path, status) && status.st_uid == geteuid();
}

std::int32_t DeleteRunFolder(const wchar_t* path, MFolderLocker& probe) {
  const std::string native = NativeOf(path, L"");
  const std::string lock_file = NativeOf(path, MFolderLocker::mgp_lock_file_name);
  if (native.empty() || !IsOwnFolder(path) || IsLink(lock_file)) return -1;
  if (probe.Lock(path) != 0) return -1;
  const std::int32_t stayed = Sweep(native).Run();
  if (stayed >= 0) Calls().unlink(lock_file.c_str());
  probe.Unlock();
  if (stayed >= 0) RemoveDirectoryW(path);
  return stayed;
}

void DescribeHolder(const wchar_t* folder) {
  const LastErrorKeeper keeper;
  wchar_t program[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  utsname machine{};
  uname(&machine);
  const std::tm now = LocalTime();
  char time[32] = {};
  std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", &now);
  const std::string line = std::to_string(getpid()) + " " + NativeText(program) + " " +
                           machine.nodename + " " + time + "\n";
  const Descriptor file = Descriptor::open(NativeOf(folder, MFolderLocker::mgp_lock_file_name),
                                           O_WRONLY | O_NOFOLLOW | O_TRUNC);
  if (file) (void)!WriteAll(file.get(), line.data(), line.size());
}

}  // namespace qel::paths
