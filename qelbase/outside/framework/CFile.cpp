#include "qelbase/outside/framework/CFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/shares_internal.h"
#include "qelbase/outside/system/syscalls_internal.h"

using qel::sys::Calls;

namespace {

using namespace qel::sys;

constexpr int kClosed = -1;
constexpr UINT kAccessMask = 0x3;
constexpr UINT kShareMask = 0x70;
constexpr UINT kReadAheadSize = 131072;
constexpr LONG kNegativeSeek = 131;

int NativeFlags(UINT flags) {
  static constexpr int kAccess[] = {O_RDONLY, O_WRONLY, O_RDWR, O_RDWR};
  return kAccess[flags & kAccessMask] | (flags & CFile::modeCreate ? O_CREAT : 0);
}

DWORD AccessOf(UINT flags) {
  const UINT access = flags & kAccessMask;
  const DWORD reading = access != CFile::modeWrite ? GENERIC_READ : 0;
  return reading | (access != CFile::modeRead ? GENERIC_WRITE : 0);
}

// What others may do meanwhile. Nobody keeps a file from being deleted.
DWORD SharingOf(UINT flags) {
  const UINT share = flags & kShareMask;
  DWORD sharing = FILE_SHARE_DELETE;
  if (share != CFile::shareExclusive && share != CFile::shareDenyRead) sharing |= FILE_SHARE_READ;
  if (share != CFile::shareExclusive && share != CFile::shareDenyWrite) sharing |= FILE_SHARE_WRITE;
  return sharing;
}

// 0 or the code, 32 if another opener stands against it. A file system without locks grants
// everything. `helper` gets a second descriptor if `file` itself can't hold locks, as it is not for
// reading.
DWORD Share(int file, UINT flags, qel::sys::Descriptor& helper) {
  if ((AccessOf(flags) & GENERIC_READ) == 0) {
    helper = qel::sys::Descriptor::open("/proc/self/fd/" + std::to_string(file), O_RDONLY);
    if (!helper) return ERROR_SUCCESS;
    file = helper.get();
  }
  const int error = qel::sys::TakeShare(file, AccessOf(flags), SharingOf(flags));
  const bool has_no_locks = error == ENOLCK || error == EOPNOTSUPP || error == ENOSYS;
  return error == 0 || has_no_locks ? ERROR_SUCCESS : qel::sys::ErrorFromErrno(error);
}

// Moves `count` bytes by `transfer(done)`, which gives the bytes moved or -1; stops at 0. Gives the
// bytes moved, or -1 and errno.
template <typename Transfer>
ssize_t MoveAll(std::size_t count, Transfer transfer) {
  std::size_t done = 0;
  while (done < count) {
    const ssize_t moved = transfer(done);
    if (moved < 0 && errno == EINTR) continue;
    if (moved < 0) return -1;
    if (moved == 0) break;
    done += static_cast<std::size_t>(moved);
  }
  return static_cast<ssize_t>(done);
}

}  // namespace

// What was read of the file from `start` on.
struct CFile::ReadAhead {
  ULONGLONG start = 0;
  UINT size = 0;
  BYTE bytes[kReadAheadSize];
};

CFile::CFile() : m_fd(kClosed), m_share_fd(kClosed), m_position(0) {}

CFile::CFile(const wchar_t* name, UINT flags) : CFile() {
  CFileException failure;
  if (!CFile::Open(name, flags, &failure)) throw new CFileException(failure);
}

CFile::~CFile() {
  CFile::Abort();
}

bool CFile::Open(const wchar_t* name, UINT flags, CFileException* error) {
  Abort();
  const DWORD code = OpenNative(name ? name : L"", flags);
  if (code == qel::sys::ERROR_SUCCESS) return true;
  if (error) {
    error->m_lOsError = static_cast<LONG>(code);
    error->m_cause = CFileException::OsErrorToException(error->m_lOsError);
    error->m_strFileName = m_name;
  }
  qel::sys::SetLastError(code);
  return false;
}

DWORD CFile::OpenNative(const wchar_t* name, UINT flags) {
  m_name = name;
  std::string native;
  const bool reachable = flags & modeCreate ? qel::sys::ToNativeForCreation(m_name, native)
                                            : qel::sys::ToNative(m_name, native);
  if (!reachable) return qel::sys::GetLastError();

  qel::sys::Descriptor file = qel::sys::Descriptor::open(native, NativeFlags(flags));
  if (!file) return qel::sys::ErrorOfPath(errno, native);
  struct stat facts;
  if (Calls().fstat(file.get(), &facts) != 0) return qel::sys::ErrorFromErrno(errno);
  if (S_ISDIR(facts.st_mode)) return qel::sys::ERROR_ACCESS_DENIED;

  qel::sys::Descriptor share_file;
  if (S_ISREG(facts.st_mode)) {
    if (const DWORD code = Share(file.get(), flags, share_file); code != ERROR_SUCCESS) return code;
  }
  const bool empties = (flags & modeCreate) && !(flags & modeNoTruncate);
  if (empties && Calls().ftruncate(file.get(), 0) != 0) return qel::sys::ErrorFromErrno(errno);

  const bool may_change =
      (AccessOf(flags) & GENERIC_WRITE) != 0 || (SharingOf(flags) & FILE_SHARE_WRITE) != 0;
  if (S_ISREG(facts.st_mode) && !may_change) {
    m_ahead = std::make_unique_for_overwrite<ReadAhead>();
    m_ahead->start = m_ahead->size = 0;
  }
  m_fd = file.release();
  m_share_fd = share_file.release();
  return qel::sys::ERROR_SUCCESS;
}

UINT CFile::Read(void* data, UINT count) {
  RequireOpen();
  auto* bytes = static_cast<BYTE*>(data);
  const UINT got = m_ahead ? ReadBuffered(bytes, count) : ReadDirect(bytes, count, m_position);
  m_position += got;
  return got;
}

UINT CFile::ReadDirect(BYTE* data, UINT count, ULONGLONG at) const {
  const ssize_t got = MoveAll(count, [&](std::size_t done) {
    const ssize_t moved =
        Calls().pread(m_fd, data + done, count - done, static_cast<off_t>(at + done));
    // A pipe or a terminal has no positions.
    return moved < 0 && errno == ESPIPE ? Calls().read(m_fd, data + done, count - done) : moved;
  });
  if (got < 0) ThrowErrno(errno);
  return static_cast<UINT>(got);
}

UINT CFile::ReadBuffered(BYTE* data, UINT count) {
  UINT done = 0;
  while (done < count) {
    const ULONGLONG at = m_position + done;
    const UINT left = count - done;
    if (at >= m_ahead->start && at - m_ahead->start < m_ahead->size) {
      const UINT skip = static_cast<UINT>(at - m_ahead->start);
      const UINT taken = std::min(left, m_ahead->size - skip);
      std::memcpy(data + done, m_ahead->bytes + skip, taken);
      done += taken;
    } else if (left >= kReadAheadSize) {
      return done + ReadDirect(data + done, left, at);
    } else {
      m_ahead->size = 0;
      m_ahead->size = ReadDirect(m_ahead->bytes, kReadAheadSize, at);
      m_ahead->start = at;
      if (m_ahead->size == 0) break;
    }
  }
  return done;
}

void CFile::Write(const void* data, UINT count) {
  RequireOpen();
  const auto* bytes = static_cast<const BYTE*>(data);
  const ssize_t put = MoveAll(count, [&](std::size_t done) {
    const ssize_t moved =
        Calls().pwrite(m_fd, bytes + done, count - done, static_cast<off_t>(m_position + done));
    return moved < 0 && errno == ESPIPE ? Calls().write(m_fd, bytes + done, count - done) : moved;
  });
  if (put < 0) ThrowErrno(errno);
  m_position += static_cast<ULONGLONG>(put);
  if (static_cast<UINT>(put) != count) ThrowErrno(ENOSPC);
}

ULONGLONG CFile::Seek(LONGLONG offset, UINT from) {
  RequireOpen();
  LONGLONG base = 0;
  if (from == current) base = static_cast<LONGLONG>(m_position);
  if (from == end) base = static_cast<LONGLONG>(GetLength());
  LONGLONG target = 0;
  if (from > end || __builtin_add_overflow(base, offset, &target) || target < 0) {
    CFileException::ThrowOsError(kNegativeSeek, m_name);
  }
  return m_position = static_cast<ULONGLONG>(target);
}

ULONGLONG CFile::GetPosition() const {
  RequireOpen();
  return m_position;
}

ULONGLONG CFile::GetLength() const {
  RequireOpen();
  struct stat facts;
  if (Calls().fstat(m_fd, &facts) != 0) ThrowErrno(errno);
  return static_cast<ULONGLONG>(facts.st_size);
}

void CFile::SetLength(ULONGLONG length) {
  RequireOpen();
  if (Calls().ftruncate(m_fd, static_cast<off_t>(length)) != 0) ThrowErrno(errno);
  m_position = length;
}

void CFile::Flush() {
  // A pipe or a device cannot be synced (EINVAL): there is nothing to wait for.
  if (IsOpen() && Calls().fsync(m_fd) != 0 && errno != EINVAL) ThrowErrno(errno);
}

void CFile::Close() {
  if (!IsOpen()) return;
  m_ahead.reset();
  m_position = 0;
  const qel::sys::Descriptor share_file(std::exchange(m_share_fd, kClosed));
  qel::sys::Descriptor file(std::exchange(m_fd, kClosed));
  if (!file.close() && errno != EINTR) ThrowErrno(errno);
}

void CFile::Abort() {
  const qel::sys::LastErrorKeeper keeper;
  try {
    CFile::Close();
  } catch (CFileException* failure) {
    failure->Delete();
  }
}

bool CFile::IsOpen() const {
  return m_fd != kClosed;
}

const std::wstring& CFile::GetFilePath() const {
  return m_name;
}

void CFile::RequireOpen() const {
  if (!IsOpen()) {
    CFileException::ThrowOsError(static_cast<LONG>(qel::sys::ERROR_INVALID_HANDLE), m_name);
  }
}

void CFile::ThrowErrno(int error) const {
  CFileException::ThrowOsError(static_cast<LONG>(qel::sys::ErrorFromErrno(error)), m_name);
}
