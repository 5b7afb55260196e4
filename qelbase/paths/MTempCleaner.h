#pragma once
// A private temporary folder for each run of a program.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/paths/MFolderLocker.h"

// Init creates a folder below the temporary folder, for this user alone, points TMP and TEMP (and
// with them TMPDIR) at it, and deletes what earlier runs of the same entry name have left. Finish,
// or the destructor, puts the variables back and deletes the folder. A run holds its folder by a
// lock file, so that others tell it from what is left of a dead one.
//
//   root        TMP, or the file name given
//   folder      root + entry name + "_14_05_09_" + attempt, from 1: the local time at Init
//
// With a file name the environment is left alone: its text is the root, and where the variables
// would be set, the object's own copy is, which is read with GetCurPath.
//
// What is deleted: what begins with the entry name below the root, that no run holds, and that
// belongs to this user: folders with their content, and files. With an empty entry name, only
// folders named like those of runs. Links are never followed, other mounted file systems never
// entered; a folder that another run holds stays, wherever it lies. Files that are read-only or
// lack the archive attribute stay, and so do the folders that they lie in. What can't be deleted
// stays for a later run, silently.
//
// The environment belongs to the whole process and has no lock: Init, Finish and pauses belong on
// one thread, before and after the other threads use the temporary folder.
class QELBASE_API MTempCleaner {
 public:
  class MPauser;

  // `name` is the entry name as it stands, null an empty one; `file` may be null and is copied.
  explicit MTempCleaner(const wchar_t* name, const MFileName* file = nullptr);
  explicit MTempCleaner(const CStringW& name, const MFileName* file = nullptr);
  virtual ~MTempCleaner();  // Finish; a paused run leaves its folder to a later one
  MTempCleaner(const MTempCleaner&) = delete;
  MTempCleaner& operator=(const MTempCleaner&) = delete;

  // Takes the file part of `name`, with unsafe characters replaced. Ignored while active, and for
  // null.
  void SetEntryName(const wchar_t* name);
  void SetEntryName(const CStringW& name);
  void SetFileName(const MFileName* file);  // ignored for null

  // Starts the run; ignored while active. If no folder can be had for a reason that another attempt
  // does not cure, the object stays inactive, the environment is left alone, GetCurPath is empty,
  // and the reason is logged.
  void Init();
  void Finish();  // ignored if not active

  const CStringW& GetOldPath() const { return m_old_tmp; }  // the root, closed by a backslash
  const CStringW& GetCurPath() const { return m_cur_path; }
  // Folders below the root whose names begin with the entry name, this run's own among them. 0 if
  // not active, -1 if the root can't be listed.
  std::int32_t EnumerateRootTempFolders();

  // For programs that tidy up between runs. The entry name of a run's folder, "abc" of
  // "abc_14_05_09_1"; nothing for another name.
  [[nodiscard]] static std::optional<std::wstring> EntryNameOf(std::wstring_view folder);
  // Deletes the folder of a dead run with all its content. 0, or how many files could not be
  // deleted; -1 if a run holds the folder, or it is no folder of this user's, and nothing was
  // touched.
  [[nodiscard]] static std::int32_t DeleteDeadRun(const wchar_t* path);

 protected:
  enum EPathOperation { OPERATION_DELETE = 0, OPERATION_COUNT = 1 };

  void Pause();
  void Resume();
  std::int32_t _SetTmpPath(const wchar_t* path, bool tmp);  // else TEMP; 1
  std::int32_t _DeletePath(const wchar_t* path, const wchar_t* pattern);
  // Deletes or counts what answers to `pattern` in `path`; with a null pattern, `path` itself. The
  // count, or 1 less the files right there that could not be deleted; 0 if not active; -1 if the
  // listing can't begin.
  std::int32_t _DoOperationOnPath(EPathOperation operation, const wchar_t* path,
                                  const wchar_t* pattern);

 private:
  bool _TakeFolder();
  bool _IsOurs(const wchar_t* entry) const;

  CStringW m_old_tmp;   // TMP at Init, with closing backslash: the root
  CStringW m_old_temp;  // TEMP at Init, as it was
  CStringW m_entry_name;
  CStringW m_cur_path;  // the run's folder
  MFolderLocker m_lock;
  MFolderLocker m_probe_lock;  // tries the folders of other runs
  bool m_active = false;       // Init ran, and no pause is on
  MFileName m_file_name;       // stands in for the environment
  bool m_use_file = false;     // m_file_name is in use
};

// While it lives, the variables point to the old folders; the run keeps its folder. Pausers must
// not overlap. A null cleaner has no effect.
class QELBASE_API MTempCleaner::MPauser {
 public:
  explicit MPauser(MTempCleaner* cleaner);
  ~MPauser();
  MPauser(const MPauser&) = delete;
  MPauser& operator=(const MPauser& other);  // copies the pointer

 private:
  MTempCleaner* m_cleaner;  // not owned
};
