// SQLite's way to the files of a hive that is to be written. By itself it opens what the system
// refuses for reading instead, and a write that fails later cannot tell why; and it takes a disk
// that cannot be read for a damaged database.

#include <cerrno>
#include <map>

#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/registry_hive_internal.h"

namespace qel::sys::registry {

namespace {

// Files pass through the methods of the system's VFS.
struct Methods {
  sqlite3_io_methods ours;
  const sqlite3_io_methods* real;
};

const sqlite3_io_methods& realMethods(sqlite3_file* file) {
  return *reinterpret_cast<const Methods*>(file->pMethods)->real;
}

int readPart(sqlite3_file* file, void* data, int size, sqlite3_int64 offset) {
  const int result = realMethods(file).xRead(file, data, size, offset);
  return result == SQLITE_IOERR_CORRUPTFS ? SQLITE_IOERR_READ : result;
}

// Opens the index of the log as well.
int mapIndex(sqlite3_file* file, int page, int size, int extend, void volatile** out) {
  const int result = realMethods(file).xShmMap(file, page, size, extend, out);
  return (result & 0xFF) == SQLITE_READONLY ? SQLITE_CANTOPEN : result;
}

class WritingFiles {
 public:
  WritingFiles();
  ~WritingFiles() { sqlite3_vfs_unregister(&m_vfs); }
  WritingFiles(const WritingFiles&) = delete;
  WritingFiles& operator=(const WritingFiles&) = delete;

  static WritingFiles& get() {
    static Lasting<WritingFiles> kept;
    return *kept;
  }
  const char* name() const { return m_vfs.zName; }
  const sqlite3_io_methods* withOwn(const sqlite3_io_methods* real) {
    const std::scoped_lock lock(m_mutex);
    Methods& methods = m_methods.try_emplace(real, Methods{*real, real}).first->second;
    methods.ours.xRead = readPart;
    methods.ours.xShmMap = mapIndex;
    return &methods.ours;
  }

 private:
  sqlite3_vfs m_vfs = *sqlite3_vfs_find("unix");
  std::mutex m_mutex;
  std::map<const sqlite3_io_methods*, Methods> m_methods;
};

// SQLite asks errno for the cause of a failure afterwards.
int openFile(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out) {
  sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
  int given = 0;
  errno = 0;
  const int result = system->xOpen(system, name, file, flags, &given);
  if (out) *out = given;
  if (result != SQLITE_OK) return result;
  if ((flags & SQLITE_OPEN_READWRITE) != 0 && (given & SQLITE_OPEN_READWRITE) == 0) {
    const int refusal = errno;
    file->pMethods->xClose(file);
    file->pMethods = nullptr;
    errno = refusal;
    return SQLITE_CANTOPEN;
  }
  file->pMethods = WritingFiles::get().withOwn(file->pMethods);
  return SQLITE_OK;
}

WritingFiles::WritingFiles() {
  m_vfs.zName = "qelbase-hive";
  m_vfs.xOpen = openFile;
  sqlite3_vfs_register(&m_vfs, 0);
}

}  // namespace

const char* WritingVfs() {
  return WritingFiles::get().name();
}

}  // namespace qel::sys::registry
