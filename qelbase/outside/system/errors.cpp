#include "qelbase/outside/system/errors.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/syscalls_internal.h"

namespace qel::sys {

namespace {

thread_local DWORD last_error = ERROR_SUCCESS;

struct ErrnoRow {
  int error;
  DWORD code;
};

constexpr std::array errno_table = {
    ErrnoRow{0, ERROR_SUCCESS},
    ErrnoRow{ENOENT, ERROR_FILE_NOT_FOUND},
    ErrnoRow{ENOTDIR, ERROR_FILE_NOT_FOUND},
    ErrnoRow{EACCES, ERROR_ACCESS_DENIED},
    ErrnoRow{EPERM, ERROR_ACCESS_DENIED},
    ErrnoRow{EISDIR, ERROR_ACCESS_DENIED},
    ErrnoRow{EEXIST, ERROR_ALREADY_EXISTS},
    ErrnoRow{ENOTEMPTY, ERROR_DIR_NOT_EMPTY},
    ErrnoRow{EMFILE, ERROR_TOO_MANY_OPEN_FILES},
    ErrnoRow{ENFILE, ERROR_TOO_MANY_OPEN_FILES},
    ErrnoRow{ENOSPC, ERROR_DISK_FULL},
    ErrnoRow{EDQUOT, ERROR_DISK_FULL},
    ErrnoRow{EROFS, ERROR_WRITE_PROTECT},
    ErrnoRow{ENAMETOOLONG, ERROR_FILENAME_EXCED_RANGE},
    ErrnoRow{EWOULDBLOCK, ERROR_SHARING_VIOLATION},
    ErrnoRow{EBUSY, ERROR_SHARING_VIOLATION},
    ErrnoRow{ETXTBSY, ERROR_SHARING_VIOLATION},
    ErrnoRow{ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
    ErrnoRow{EINVAL, ERROR_INVALID_PARAMETER},
    ErrnoRow{EBADF, ERROR_INVALID_HANDLE},
    ErrnoRow{EXDEV, ERROR_NOT_SAME_DEVICE},
    ErrnoRow{EIO, ERROR_IO_DEVICE},
    ErrnoRow{EINTR, ERROR_OPERATION_ABORTED},
    ErrnoRow{EFBIG, ERROR_FILE_TOO_LARGE},
    ErrnoRow{ELOOP, ERROR_CANT_RESOLVE_FILENAME},
    ErrnoRow{EPIPE, ERROR_BROKEN_PIPE},
    ErrnoRow{ENOTSUP, ERROR_NOT_SUPPORTED},
    ErrnoRow{ENOSYS, ERROR_NOT_SUPPORTED},
};

bool isFolder(const std::string& native) {
  struct stat status {};
  return Calls().stat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

DWORD GetLastError() {
  return last_error;
}

void SetLastError(DWORD code) {
  last_error = code;
}

DWORD ErrorFromErrno(int error) {
  const auto* row = std::ranges::find(errno_table, error, &ErrnoRow::error);
  return row == errno_table.end() ? ERROR_GEN_FAILURE : row->code;
}

DWORD ErrorOfPath(int error, const std::string& native) {
  if (error != ENOENT && error != ENOTDIR) return ErrorFromErrno(error);
  const LastErrorKeeper keeper;
  return isFolder(ParentOf(native)) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

LastErrorKeeper::LastErrorKeeper() : m_code(last_error), m_errno(errno) {}

LastErrorKeeper::~LastErrorKeeper() {
  last_error = m_code;
  errno = m_errno;
}

}  // namespace qel::sys
