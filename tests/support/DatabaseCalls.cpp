#include "tests/support/DatabaseCalls.h"

#include <sqlite3.h>

#include <map>
#include <mutex>

#include "qelbase/outside/system/syscalls_internal.h"

namespace qeltest {

namespace {

using qel::sys::Calls;

struct Row {
  const char* name;
  sqlite3_syscall_ptr call;
};

template <typename Function>
sqlite3_syscall_ptr plain(Function* function) {
  return reinterpret_cast<sqlite3_syscall_ptr>(function);
}

int openFile(const char* path, int flags, int mode) {
  return Calls().open(path, flags, static_cast<mode_t>(mode));
}
int closeFile(int fd) {
  return Calls().close(fd);
}
ssize_t readFile(int fd, void* data, size_t size) {
  return Calls().read(fd, data, size);
}
ssize_t readAt(int fd, void* data, size_t size, off_t offset) {
  return Calls().pread(fd, data, size, offset);
}
ssize_t writeFile(int fd, const void* data, size_t size) {
  return Calls().write(fd, data, size);
}
ssize_t writeAt(int fd, const void* data, size_t size, off_t offset) {
  return Calls().pwrite(fd, data, size, offset);
}
int truncate(int fd, off_t size) {
  return Calls().ftruncate(fd, size);
}
int removeFile(const char* path) {
  return Calls().unlink(path);
}

// Syncing is no entry of SQLite's own table, so the methods of a file are replaced; all of the unix
// VFS sync alike.
int (*sync_really)(sqlite3_file*, int);

// How a file of the unix VFS begins.
struct UnixFile {
  const sqlite3_io_methods* methods;
  void* vfs;
  void* inode;
  int fd;
};

int syncFile(sqlite3_file* file, int flags) {
  if (Calls().fdatasync(reinterpret_cast<UnixFile*>(file)->fd) != 0) return SQLITE_IOERR_FSYNC;
  return sync_really(file, flags);
}

const sqlite3_io_methods* replaced(const sqlite3_io_methods* real) {
  static std::mutex& mutex = *new std::mutex;
  static auto& kept = *new std::map<const sqlite3_io_methods*, sqlite3_io_methods>;
  const std::scoped_lock lock(mutex);
  sync_really = real->xSync;
  sqlite3_io_methods& ours = kept.try_emplace(real, *real).first->second;
  ours.xSync = syncFile;
  return &ours;
}

sqlite3_vfs* unixVfs() {
  static sqlite3_vfs* const found = sqlite3_vfs_find("unix");
  return found;
}

int openDatabaseFile(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out) {
  const int result = unixVfs()->xOpen(unixVfs(), name, file, flags, out);
  if (result == SQLITE_OK && file->pMethods) file->pMethods = replaced(file->pMethods);
  return result;
}

}  // namespace

void leadDatabaseThroughTable() {
  [[maybe_unused]] static const bool kOnce = [] {
    sqlite3_initialize();
    const Row rows[] = {{"open", plain(openFile)},      {"close", plain(closeFile)},
                        {"read", plain(readFile)},      {"pread", plain(readAt)},
                        {"pread64", plain(readAt)},     {"write", plain(writeFile)},
                        {"pwrite", plain(writeAt)},     {"pwrite64", plain(writeAt)},
                        {"ftruncate", plain(truncate)}, {"unlink", plain(removeFile)}};
    for (const Row& row : rows) unixVfs()->xSetSystemCall(unixVfs(), row.name, row.call);
    static sqlite3_vfs vfs = *unixVfs();
    vfs.zName = "through-table";
    vfs.xOpen = openDatabaseFile;
    return sqlite3_vfs_register(&vfs, 1) == SQLITE_OK;
  }();
}

}  // namespace qeltest
