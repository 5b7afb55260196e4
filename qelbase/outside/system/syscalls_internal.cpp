#include "qelbase/outside/system/syscalls_internal.h"

#include <sys/file.h>
#include <sys/mman.h>
#include <sys/xattr.h>

#include <cstdio>
#include <cstdlib>

namespace qel::sys {

namespace {

int openFile(const char* path, int flags, mode_t mode) {
  return ::open(path, flags, mode);
}

int openFileAt(int folder, const char* path, int flags, mode_t mode) {
  return ::openat(folder, path, flags, mode);
}

int lockRange(int fd, int command, struct flock* range) {
  return ::fcntl(fd, command, range);
}

int renameNoReplace(const char* from, const char* to) {
  return ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
}

constinit SystemCalls calls = {
    .open = openFile,
    .openat = openFileAt,
    .close = ::close,
    .read = ::read,
    .write = ::write,
    .pread = ::pread,
    .pwrite = ::pwrite,
    .copy_file_range = ::copy_file_range,
    .ftruncate = ::ftruncate,
    .fsync = ::fsync,
    .fdatasync = ::fdatasync,
    .fstat = ::fstat,
    .stat = ::stat,
    .lstat = ::lstat,
    .fstatat = ::fstatat,
    .statx = ::statx,
    .faccessat = ::faccessat,
    .rename = ::rename,
    .rename_noreplace = renameNoReplace,
    .link = ::link,
    .unlink = ::unlink,
    .unlinkat = ::unlinkat,
    .mkdir = ::mkdir,
    .rmdir = ::rmdir,
    .opendir = ::opendir,
    .fdopendir = ::fdopendir,
    .readdir = ::readdir,
    .closedir = ::closedir,
    .readlink = ::readlink,
    .fchmod = ::fchmod,
    .fchown = ::fchown,
    .flock = ::flock,
    .lock = lockRange,
    .fgetxattr = ::fgetxattr,
    .fsetxattr = ::fsetxattr,
    .chmod = ::chmod,
    .getxattr = ::getxattr,
    .setxattr = ::setxattr,
    .flistxattr = ::flistxattr,
    .futimens = ::futimens,
    .getcwd = ::getcwd,
    .realpath = ::realpath,
    .mmap = ::mmap,
    .fork = ::fork,
    .mutex_init = ::pthread_mutex_init,
    .malloc = ::malloc,
};

}  // namespace

SystemCalls& Calls() {
  return calls;
}

}  // namespace qel::sys
