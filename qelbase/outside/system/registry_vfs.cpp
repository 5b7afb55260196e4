// SQLite's way to the files of a hive that is to be written. By itself it opens what the system
// refuses for reading instead, and a write that fails later cannot tell why; and it takes a disk
// that cannot be read for a damaged database.

#include <cerrno>
#include <map>

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

const sqlite3_io_methods* withOwn(const sqlite3_io_methods* real) {
  static std::mutex& mutex = *new std::mutex;
  static auto& kept = *new std::map<const sqlite3_io_methods*, Methods>;
  const std::scoped_lock lock(mutex);
  Methods& methods = kept.try_emplace(real, Methods{*real, real}).first->second;
  methods.ours.xRead = readPart;
  methods.ours.xShmMap = mapIndex;
  return &methods.ours;
}

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
  file->pMethods = withOwn(file->pMethods);
  return SQLITE_OK;
}

}  // namespace

const char* WritingVfs() {
  static const char* const kName = [] {
    static sqlite3_vfs vfs = *sqlite3_vfs_find("unix");
    vfs.zName = "qelbase-hive";
    vfs.xOpen = openFile;
    sqlite3_vfs_register(&vfs, 0);
    return vfs.zName;
  }();
  return kName;
}

}  // namespace qel::sys::registry
