#pragma once
// A lock on a folder, between processes: a lock file in it, held open without sharing.

#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/outside/system/types.h"

// Two objects never hold one folder at once, in one process or in two; the lock ends with its
// holder, however that dies. While it is held, sweepers of temporary folders that keep to flock
// pass the folder over too. An object belongs to one thread at a time.
class QELBASE_API MFolderLocker {
 public:
  static const wchar_t* const mgp_lock_file_name;  // "__fold__.lock"

  explicit MFolderLocker(const wchar_t* path = nullptr);  // takes the lock if `path` is not null
  ~MFolderLocker();
  MFolderLocker(const MFolderLocker&) = delete;
  MFolderLocker& operator=(const MFolderLocker&) = delete;

  // Takes the lock of the folder; one that is held on another folder is released first. 0, also for
  // the folder already held; 32 if somebody else holds it; 87 for a path that is not absolute while
  // a lock is held, which then stays; else the system's code.
  std::uint32_t Lock(const wchar_t* path);
  // 0, also without a lock; else the system's code. The lock file stays on the disk.
  std::uint32_t Unlock();
  bool IsLocked() const { return m_handle != nullptr; }

 private:
  HANDLE m_handle = nullptr;  // the open lock file; null if no lock is held
  CStringW m_path;            // full name of the lock file held
  HANDLE m_folder = nullptr;  // the folder itself, for sweepers to see
};
