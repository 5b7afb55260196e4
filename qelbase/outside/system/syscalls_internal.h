#pragma once
// The one table of replaceable system calls. Everything in the library that changes or reads the
// file system goes through it, so that a test can fail the n-th call, cut a transfer short, or kill
// the process between two calls. The entries have the names and the contracts of the Linux calls:
// -1 and errno on failure. Outside of tests the table is never written.

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>

struct statx;

namespace qel::sys {

struct SystemCalls {
  int (*open)(const char* path, int flags, mode_t mode);
  int (*openat)(int folder, const char* path, int flags, mode_t mode);
  int (*close)(int fd);
  ssize_t (*read)(int fd, void* data, size_t size);
  ssize_t (*write)(int fd, const void* data, size_t size);
  ssize_t (*pread)(int fd, void* data, size_t size, off_t offset);
  ssize_t (*pwrite)(int fd, const void* data, size_t size, off_t offset);
  ssize_t (*copy_file_range)(int from, off_t* from_offset, int to, off_t* to_offset, size_t size,
                             unsigned flags);
  int (*ftruncate)(int fd, off_t size);
  int (*fsync)(int fd);
  int (*fdatasync)(int fd);
  int (*fstat)(int fd, struct stat* out);
  int (*stat)(const char* path, struct stat* out);
  int (*lstat)(const char* path, struct stat* out);
  int (*fstatat)(int folder, const char* path, struct stat* out, int flags);
  int (*statx)(int folder, const char* path, int flags, unsigned mask, struct statx* out);
  int (*faccessat)(int folder, const char* path, int mode, int flags);
  int (*rename)(const char* from, const char* to);
  int (*rename_noreplace)(const char* from, const char* to);  // renameat2, RENAME_NOREPLACE
  int (*link)(const char* from, const char* to);
  int (*unlink)(const char* path);
  int (*unlinkat)(int folder, const char* path, int flags);
  int (*mkdir)(const char* path, mode_t mode);
  int (*rmdir)(const char* path);
  DIR* (*opendir)(const char* path);
  DIR* (*fdopendir)(int fd);
  struct dirent* (*readdir)(DIR* folder);
  int (*closedir)(DIR* folder);
  ssize_t (*readlink)(const char* path, char* out, size_t size);
  int (*fchmod)(int fd, mode_t mode);
  int (*fchown)(int fd, uid_t owner, gid_t group);
  int (*flock)(int fd, int operation);
  int (*lock)(int fd, int command, struct flock* range);  // fcntl with F_OFD_...
  ssize_t (*fgetxattr)(int fd, const char* name, void* value, size_t size);
  int (*fsetxattr)(int fd, const char* name, const void* value, size_t size, int flags);
  int (*chmod)(const char* path, mode_t mode);
  ssize_t (*getxattr)(const char* path, const char* name, void* value, size_t size);
  int (*setxattr)(const char* path, const char* name, const void* value, size_t size, int flags);
  ssize_t (*flistxattr)(int fd, char* names, size_t size);
  int (*futimens)(int fd, const struct timespec times[2]);
  char* (*getcwd)(char* out, size_t size);
  char* (*realpath)(const char* path, char* out);
  void* (*mmap)(void* address, size_t size, int protection, int flags, int fd, off_t offset);
  pid_t (*fork)();
  int (*mutex_init)(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);  // gives errno
  void* (*malloc)(size_t size);  // of the blocks of memory.h
};

// Calls again for as long as a call fails with EINTR.
template <class Call>
auto UntilNotInterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

// The table in force. A test copies it, puts its own functions in, and puts the copy back.
SystemCalls& Calls();

}  // namespace qel::sys
