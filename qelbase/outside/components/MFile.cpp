#include "qelbase/outside/components/MFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/syscalls_internal.h"

using qel::sys::Calls;

namespace {

constexpr std::size_t largest_buffer = std::size_t{1} << 30;
// What a buffer takes from here on still has a position.
constexpr std::int64_t furthest =
    std::numeric_limits<std::int64_t>::max() - static_cast<std::int64_t>(largest_buffer);
// What one pread costs no more for than for a few bytes.
constexpr std::size_t first_read_ahead = 64;
// A step forward over fewer bytes than this is cheaper read through than jumped over.
constexpr std::int64_t near_jump = 4096;
// What the kernel takes in one transfer at the most, in whole pages.
constexpr std::int64_t largest_transfer = 0x7ffff000;
constexpr std::size_t copy_piece = 65536;

// The function behind a virtual operation of an object: the Itanium C++ ABI (sections 2.3
// and 2.5.2) keeps the operation's place in the table in the first word of its member pointer.
template <typename Member>
const void* slotOf(const MFile& file, Member member) {
  struct {
    std::uintptr_t place;
    std::ptrdiff_t adjustment;
  } raw{};
  static_assert(sizeof raw == sizeof member);
  std::memcpy(&raw, &member, sizeof raw);
  const char* table = nullptr;
  std::memcpy(&table, reinterpret_cast<const char*>(&file), sizeof table);
  const void* function = nullptr;
  std::memcpy(&function, table + (raw.place & ~std::uintptr_t{7}), sizeof function);
  return function;
}

template <typename Member>
bool isOverridden(const MFile& file, Member member) {
  static qel::sys::Lasting<MFile> plain([] { return MFile(0); });
  return slotOf(file, member) != slotOf(*plain, member);
}

// Either order of bytes; on a little-endian machine the loop is empty.
void swapIfBigEndian(std::int32_t* data, std::size_t count) {
  if constexpr (std::endian::native == std::endian::big) {
    for (std::size_t i = 0; i < count; ++i) {
      data[i] = static_cast<std::int32_t>(__builtin_bswap32(static_cast<std::uint32_t>(data[i])));
    }
  }
}

// No descriptor of a folder, of a file that has no write bit (whoever asks), or of nothing.
std::uint32_t refusalOf(const struct stat& facts, int mode) {
  if (S_ISDIR(facts.st_mode)) return qel::sys::ERROR_ACCESS_DENIED;
  const bool writable = (facts.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) != 0;
  if ((mode & 2) != 0 && !writable) return qel::sys::ERROR_ACCESS_DENIED;
  return qel::sys::ERROR_SUCCESS;
}

// Errors by which copy_file_range says that these two files are not for it.
bool isDeclined(int error) {
  return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}

int openFlags(int mode) {
  constexpr int access[] = {0, O_RDONLY, O_WRONLY, O_RDWR};
  return access[mode] | O_CLOEXEC | O_NOCTTY;
}

// The offset of the first of `terminators` in the text, or `size`.
std::size_t findFirstOf(const char* text, std::size_t size, const char* terminators) {
  if (terminators[0] != '\0' && terminators[1] == '\0') {
    const void* found = std::memchr(text, terminators[0], size);
    return found ? static_cast<std::size_t>(static_cast<const char*>(found) - text) : size;
  }
  const char* end = text + size;
  const char* last = terminators + std::strlen(terminators);
  return static_cast<std::size_t>(std::find_first_of(text, end, terminators, last) - text);
}

}  // namespace

MFile::MFile(std::size_t buffer_size) : m_capacity(std::min(buffer_size, largest_buffer)) {
  _UseBuffer(m_no_buffer, 0);
}

MFile::~MFile() {
  MFile::CLOSE();
}

// --- Opening and closing ---

bool MFile::OPEN_READ(const wchar_t* name) {
  return _OPEN(name, 1);
}
bool MFile::OPEN_WRITE(const wchar_t* name) {
  return _OPEN(name, 2);
}
bool MFile::OPEN_UPDATE(const wchar_t* name) {
  return _OPEN(name, 3);
}

bool MFile::_OPEN(const wchar_t* name, int mode) {
  MFile::CLOSE();
  if (!name || mode < 1 || mode > 3) return _Fail(qel::sys::ERROR_INVALID_PARAMETER);
  m_name = name;
  std::string native;
  // What may not come into being under this name may still be there.
  const bool create = mode == 2 && qel::sys::ToNativeForCreation(m_name, native);
  if (!create && !qel::sys::ToNative(m_name, native)) return _Fail(qel::sys::GetLastError());
  const int flags = openFlags(mode) | (create ? O_CREAT : 0);
  const int fd =
      qel::sys::UntilNotInterrupted([&] { return Calls().open(native.c_str(), flags, 0666); });
  if (fd < 0) return _Fail(qel::sys::ErrorOfPath(errno, native));
  return _Adopt(fd, mode);
}

// Takes over a fresh descriptor, or closes it and fails.
bool MFile::_Adopt(int fd, int mode) {
  struct stat facts = {};
  std::uint32_t code = 0;
  if (Calls().fstat(fd, &facts) != 0) {
    code = qel::sys::ErrorFromErrno(errno);
  } else {
    code = refusalOf(facts, mode);
  }
  if (code == 0 && mode == 2 && facts.st_size > 0 &&
      qel::sys::UntilNotInterrupted([&] { return Calls().ftruncate(fd, 0); }) != 0) {
    code = qel::sys::ErrorFromErrno(errno);
  }
  if (code != 0) {
    Calls().close(fd);
    return _Fail(code);
  }
  m_fd = fd;
  m_mode = mode;
  m_device = facts.st_dev;
  m_inode = facts.st_ino;
  const bool moves = !isOverridden(*this, &MFile::SEEK) && !isOverridden(*this, &MFile::TELL);
  m_inline_read = (mode & 1) != 0 && moves && !isOverridden(*this, &MFile::_READ);
  m_inline_write = (mode & 2) != 0 && moves && !isOverridden(*this, &MFile::_WRITE);
  m_write_failed = false;
  m_read_ahead = first_read_ahead / 2;
  m_window = m_origin = 0;
  _DropWindow();
  return true;
}

void MFile::CLOSE() {
  if (m_fd < 0) return;
  _FlushWindow();
  // The descriptor is gone even after an interruption, which says nothing about the content.
  if (Calls().close(m_fd) != 0 && errno != EINTR && (m_mode & 2) != 0) _FailErrno(errno, true);
  m_fd = -1;
  m_mode = 0;
  m_window = m_origin = 0;
  _DropWindow();
}

bool MFile::CHANGE_MODE(int mode) {
  if (m_fd < 0) return _Fail(qel::sys::ERROR_INVALID_HANDLE);
  if (mode != 1 && mode != 3) return _Fail(qel::sys::ERROR_INVALID_PARAMETER);
  if (!_FlushWindow()) return false;
  // By descriptor, so that a file renamed or replaced meanwhile stays the same one.
  const std::string native = "/proc/self/fd/" + std::to_string(m_fd);
  const int fd = qel::sys::UntilNotInterrupted(
      [&] { return Calls().open(native.c_str(), openFlags(mode), 0); });
  if (fd < 0) return _FailErrno(errno, false);
  const std::int64_t position = _Position();
  const bool failed = m_write_failed;
  const int old = m_fd;
  if (!_Adopt(fd, mode)) return false;
  Calls().close(old);
  m_write_failed = failed;
  _MoveTo(position);
  return true;
}

bool MFile::SYNC() {
  if (m_fd < 0) return _Fail(qel::sys::ERROR_INVALID_HANDLE);
  if (!_FlushWindow()) return false;
  if (qel::sys::UntilNotInterrupted([&] { return Calls().fsync(m_fd); }) != 0) {
    return _FailErrno(errno, true);
  }
  return !m_write_failed;
}

// --- State ---

bool MFile::IS_OPEN() const {
  return m_fd >= 0;
}
bool MFile::IS_OPEN_READ() const {
  return m_mode == 1;
}
bool MFile::IS_OPEN_WRITE() const {
  return m_mode == 2;
}
bool MFile::IS_OPEN_UPDATE() const {
  return m_mode == 3;
}
const wchar_t* MFile::GET_FILENAME() const {
  return m_name.c_str();
}
std::uint32_t MFile::GET_RESULT() const {
  return m_result;
}
void MFile::RESET_RESULT() {
  m_result = 0;
}

std::int64_t MFile::TELL() const {
  return m_fd < 0 ? -1 : _Position();
}

std::int64_t MFile::SIZE() const {
  struct stat facts = {};
  if (m_fd < 0 || Calls().fstat(m_fd, &facts) != 0) return -1;
  const std::int64_t waiting = m_dirty_begin < m_dirty_end ? m_window + (m_dirty_end - m_begin) : 0;
  return std::max<std::int64_t>(facts.st_size, waiting);
}

bool MFile::FEOF() const {
  if (m_fd < 0) return true;
  if (_InWindow() && m_cursor < _WindowEnd()) return false;
  return _Position() >= SIZE();
}

bool MFile::_Fail(std::uint32_t code) {
  if (m_result == 0) m_result = code;
  qel::sys::SetLastError(code);
  return false;
}

bool MFile::_FailErrno(int error, bool writing) {
  if (writing) m_write_failed = true;
  return _Fail(qel::sys::ErrorFromErrno(error));
}

// --- Position and window ---

bool MFile::SEEK(std::int64_t offset, int origin) {
  if (m_fd < 0) return _Fail(qel::sys::ERROR_INVALID_HANDLE);
  std::int64_t target = offset;
  if (origin != 0) {
    const std::int64_t base = origin == 1 ? _Position() : origin == 2 ? SIZE() : -1;
    if (base < 0 || __builtin_add_overflow(base, offset, &target)) target = -1;
  }
  if (target < 0 || target > furthest) return _Fail(qel::sys::ERROR_INVALID_PARAMETER);
  const std::int64_t inside = target - m_window;
  if (_InWindow() && inside >= 0 && inside <= _WindowEnd() - m_begin) {
    m_cursor = m_begin + inside;
  } else {
    _MoveTo(target);
  }
  return true;
}

void MFile::_MoveTo(std::int64_t position) {
  const std::int64_t inside = position - m_window;
  if (inside < 0 || inside > _WindowEnd() - m_begin) {
    m_origin = position;
    m_cursor = m_read_end = m_write_end = m_begin;
    return;
  }
  m_origin = m_window;
  m_cursor = m_begin + inside;
  m_filled = _WindowEnd();
  m_read_end = m_inline_read ? m_filled : m_begin;
  m_write_end = m_inline_write ? m_end : m_begin;
}

void MFile::_UseBuffer(char* begin, std::size_t bytes) {
  m_begin = begin;
  m_end = begin + bytes;
  m_origin = m_window = 0;
  m_cursor = m_filled = m_read_end = m_write_end = m_begin;
  _MarkClean();
}

bool MFile::SET_BUFFER_SIZE(std::size_t bytes) {
  if (!_FlushWindow()) return false;
  const std::int64_t position = _Position();
  m_buffer.reset();
  _UseBuffer(m_no_buffer, 0);
  m_capacity = std::min(bytes, largest_buffer);
  _MoveTo(position);
  return true;
}

// At first use. Where memory is short the file goes on without a buffer.
bool MFile::_AllocateBuffer() {
  if (m_buffer) return true;
  if (m_capacity == 0) return false;
  m_buffer.reset(new (std::nothrow) char[m_capacity + 1]);
  if (!m_buffer) {
    m_capacity = 0;
    return false;
  }
  const std::int64_t position = _Position();
  _UseBuffer(m_buffer.get(), m_capacity);
  m_window = position;
  _MoveTo(position);
  return true;
}

void MFile::_MarkClean() {
  m_dirty_begin = m_end + 1;
  m_dirty_end = m_begin;
}

void MFile::_DropWindow() {
  const std::int64_t position = _Position();
  m_filled = m_begin;
  _MarkClean();
  m_window = position;
  _MoveTo(position);
}

bool MFile::FLUSH() {
  if (m_fd < 0) return _Fail(qel::sys::ERROR_INVALID_HANDLE);
  return _FlushWindow();
}

// What could not be written stays dirty, for the next attempt.
bool MFile::_FlushWindow() {
  if (m_dirty_begin >= m_dirty_end) return true;
  const auto bytes = static_cast<std::size_t>(m_dirty_end - m_dirty_begin);
  const std::size_t done = _WriteAll(m_dirty_begin, bytes, m_window + (m_dirty_begin - m_begin));
  m_filled = _WindowEnd();
  if (done < bytes) {
    m_dirty_begin += done;
    return false;
  }
  _MarkClean();
  return true;
}

// Moves an empty window to the position.
bool MFile::_OpenWindow() {
  if (!_FlushWindow()) return false;
  _DropWindow();
  return true;
}

// Reads the window anew from the position on. After a jump little is read, since another jump is
// likely; reading on and on doubles it. False, and the window as it was, at the end and on failure.
bool MFile::_FillWindow(std::size_t wanted) {
  if (!_FlushWindow()) return false;
  const std::int64_t position = _Position();
  const std::int64_t held = m_filled - m_begin;
  const std::int64_t gap = position - (m_window + held);
  const bool onward = gap >= 0 && gap <= std::max(held, near_jump);
  const std::size_t ahead = onward ? m_read_ahead * 2 : first_read_ahead;
  const std::size_t size = std::min(std::max(ahead, wanted), m_capacity);
  const std::int64_t got = _ReadSome(m_begin, size, position);
  if (got <= 0) return false;
  m_read_ahead = std::min(ahead, m_capacity);
  m_window = position;
  m_filled = m_begin + got;
  _MoveTo(position);
  return true;
}

std::size_t MFile::_ThroughSize() const {
  // A copy: taken by reference it is a symbol, and the loader keeps a library with such ones.
  return std::min(m_capacity, std::size_t{through_size});
}

// --- Transfers ---

std::size_t MFile::_READ(void* data, std::size_t bytes) {
  if ((m_mode & 1) == 0) {
    _Fail(m_fd < 0 ? qel::sys::ERROR_INVALID_HANDLE : qel::sys::ERROR_ACCESS_DENIED);
    return 0;
  }
  char* to = static_cast<char*>(data);
  std::size_t done = 0;
  while (done < bytes) {
    const std::size_t moved = _ReadBuffered(to + done, bytes - done);
    if (moved == 0) break;
    done += moved;
  }
  return done;
}

// From the window, or past it when that is worth it; 0 at the end and on failure.
std::size_t MFile::_ReadBuffered(char* to, std::size_t bytes) {
  if (!_InWindow() || m_cursor >= _WindowEnd()) {
    if (bytes >= _ThroughSize() || !_AllocateBuffer()) return _ReadThrough(to, bytes);
    if (!_FillWindow(bytes)) return 0;
  }
  const std::size_t moved = std::min(bytes, static_cast<std::size_t>(_WindowEnd() - m_cursor));
  std::memcpy(to, m_cursor, moved);
  m_cursor += moved;
  m_read_end = m_inline_read ? (m_filled = _WindowEnd()) : m_begin;
  return moved;
}

std::size_t MFile::_ReadThrough(char* to, std::size_t bytes) {
  if (!_FlushWindow()) return 0;
  const std::int64_t position = _Position();
  const std::int64_t got = _ReadSome(to, bytes, position);
  if (got <= 0) return 0;
  _MoveTo(position + got);
  return static_cast<std::size_t>(got);
}

std::size_t MFile::_WRITE(const void* data, std::size_t bytes) {
  if ((m_mode & 2) == 0) {
    _Fail(m_fd < 0 ? qel::sys::ERROR_INVALID_HANDLE : qel::sys::ERROR_ACCESS_DENIED);
    return 0;
  }
  const char* from = static_cast<const char*>(data);
  if (bytes >= _ThroughSize() || !_AllocateBuffer()) return _WriteThrough(from, bytes);
  std::size_t done = 0;
  while (done < bytes) {
    const std::size_t moved = _WriteBuffered(from + done, bytes - done);
    if (moved == 0) break;
    done += moved;
  }
  return done;
}

std::size_t MFile::_WriteBuffered(const char* from, std::size_t bytes) {
  if ((!_InWindow() || m_cursor == m_end) && !_OpenWindow()) return 0;
  const std::size_t moved = std::min(bytes, static_cast<std::size_t>(m_end - m_cursor));
  std::memcpy(m_cursor, from, moved);
  m_dirty_begin = std::min(m_dirty_begin, m_cursor);
  m_cursor += moved;
  m_dirty_end = std::max(m_dirty_end, m_cursor);
  return moved;
}

// The window stays, dirty as it may be, so that a header in it can still be patched there.
std::size_t MFile::_WriteThrough(const char* from, std::size_t bytes) {
  const std::int64_t position = _Position();
  if (bytes == 0) return 0;
  const std::int64_t window_end = m_window + (_WindowEnd() - m_begin);
  const std::int64_t before_window = m_window - position;
  const bool apart = position >= window_end ||
                     (before_window >= 0 && static_cast<std::uint64_t>(before_window) >= bytes);
  if (!apart && !_OpenWindow()) return 0;
  const std::size_t done = _WriteAll(from, bytes, position);
  _MoveTo(position + static_cast<std::int64_t>(done));
  return done;
}

// One transfer; -1 on failure, 0 at the end.
std::int64_t MFile::_ReadSome(char* to, std::size_t bytes, std::int64_t position) {
  const ssize_t got =
      qel::sys::UntilNotInterrupted([&] { return Calls().pread(m_fd, to, bytes, position); });
  if (got < 0) _FailErrno(errno, false);
  return got;
}

// As many transfers as it takes; less than `bytes` only on failure.
std::size_t MFile::_WriteAll(const char* from, std::size_t bytes, std::int64_t position) {
  std::size_t done = 0;
  while (done < bytes) {
    const ssize_t moved = qel::sys::UntilNotInterrupted([&] {
      return Calls().pwrite(m_fd, from + done, bytes - done,
                            position + static_cast<std::int64_t>(done));
    });
    if (moved <= 0) {
      _FailErrno(moved < 0 ? errno : ENOSPC, true);
      break;
    }
    done += static_cast<std::size_t>(moved);
  }
  return done;
}

std::size_t MFile::_ReadLongs(std::int32_t* data, std::size_t count) {
  if (count > std::numeric_limits<std::size_t>::max() / 4) {
    _Fail(qel::sys::ERROR_INVALID_PARAMETER);
    return 0;
  }
  const std::size_t got = _Read(data, count * 4);
  if (got % 4 != 0) SEEK(-static_cast<std::int64_t>(got % 4), 1);
  swapIfBigEndian(data, got / 4);
  return got / 4;
}

std::size_t MFile::_WriteLongs(const std::int32_t* data, std::size_t count) {
  if (count > std::numeric_limits<std::size_t>::max() / 4) {
    _Fail(qel::sys::ERROR_INVALID_PARAMETER);
    return 0;
  }
  if constexpr (std::endian::native == std::endian::little) return _Write(data, count * 4) / 4;
  std::size_t done = 0;
  for (; done < count; ++done) {
    std::int32_t value = data[done];
    swapIfBigEndian(&value, 1);
    if (_Write(&value, 4) != 4) break;
  }
  return done;
}

bool MFile::_OverwriteElsewhere(std::int64_t position, const void* data, std::size_t bytes) {
  // What the window has left behind is patched in the file, so that the window stays where it is.
  if (m_inline_write && position >= 0 && position < m_window) {
    const std::size_t outside = std::min(bytes, static_cast<std::size_t>(m_window - position));
    const char* const from = static_cast<const char*>(data);
    return _WriteAll(from, outside, position) == outside &&
           (outside == bytes || OVERWRITE(m_window, from + outside, bytes - outside));
  }
  const std::int64_t before = TELL();
  const bool written = SEEK(position, 0) && _Write(data, bytes) == bytes;
  return before >= 0 && SEEK(before, 0) && written;
}

// --- Texts ---

std::size_t MFile::_FindInWindow(const char* terminators, std::size_t size) const {
  if (m_cursor >= m_read_end) return size;
  const std::size_t held = std::min(size, static_cast<std::size_t>(m_read_end - m_cursor));
  const std::size_t length = findFirstOf(m_cursor, held, terminators);
  return length < held ? length : size;
}

std::size_t MFile::READ_STRING_UNTIL(char* buffer, const char* terminators, std::size_t size) {
  constexpr auto none = static_cast<std::size_t>(-1);
  if (!buffer || !terminators || m_fd < 0) {
    _Fail(m_fd < 0 ? qel::sys::ERROR_INVALID_HANDLE : qel::sys::ERROR_INVALID_PARAMETER);
    return none;
  }
  const std::int64_t start = TELL();
  std::size_t length = _FindInWindow(terminators, size);
  if (length < size) {
    std::memcpy(buffer, m_cursor, length);
  } else {
    const std::size_t got = _Read(buffer, size);
    length = findFirstOf(buffer, got, terminators);
    if (length == got) {
      SEEK(start, 0);
      return none;
    }
  }
  buffer[length] = '\0';
  SEEK(start + static_cast<std::int64_t>(length) + 1, 0);
  return length;
}

std::size_t MFile::WRITE_STRING(const char* text) {
  return text ? _Write(text, std::strlen(text)) : 0;
}

// --- Copying ---

std::int64_t MFile::COPY(MFile& source) {
  return COPY(source, std::numeric_limits<std::int64_t>::max());
}

std::int64_t MFile::COPY(MFile& source, std::int64_t bytes) {
  if (bytes <= 0 || (m_mode & 2) == 0 || (source.m_mode & 1) == 0) {
    if ((m_mode & 2) == 0) _Fail(qel::sys::ERROR_ACCESS_DENIED);
    if ((source.m_mode & 1) == 0) source._Fail(qel::sys::ERROR_ACCESS_DENIED);
    return 0;
  }
  const bool same_file = m_device == source.m_device && m_inode == source.m_inode;
  if (same_file) {
    if (!_OpenWindow() || !source._OpenWindow()) return 0;
    bytes = std::min(bytes, std::max<std::int64_t>(SIZE() - source._Position(), 0));
  }
  if (this == &source) {
    _MoveTo(_Position() + bytes);
    return bytes;
  }
  const std::int64_t distance = _Position() - source._Position();
  if (same_file && distance > 0 && distance < bytes) return _CopyBackward(source, bytes);

  const bool in_kernel =
      bytes >= static_cast<std::int64_t>(through_size) && source.m_inline_read && m_inline_write;
  std::int64_t done = 0;
  if (in_kernel && !_CopyInKernel(source, bytes, done)) return done;
  return done + _CopyPieces(source, bytes - done, same_file);
}

// False on failure. True when all is done, the source has ended, or the kernel declines the rest.
bool MFile::_CopyInKernel(MFile& source, std::int64_t bytes, std::int64_t& done) {
  if (!_OpenWindow() || !source._FlushWindow()) return false;
  off_t from = source._Position();
  off_t to = _Position();
  ssize_t moved = 1;
  while (done < bytes && moved > 0) {
    const auto size = static_cast<std::size_t>(std::min(bytes - done, largest_transfer));
    moved = qel::sys::UntilNotInterrupted(
        [&] { return Calls().copy_file_range(source.m_fd, &from, m_fd, &to, size, 0); });
    if (moved > 0) done += moved;
  }
  const bool failed = moved < 0 && !isDeclined(errno);
  if (failed) _FailErrno(errno, true);
  source._MoveTo(from);
  _MoveTo(to);
  return !failed;
}

std::int64_t MFile::_CopyPieces(MFile& source, std::int64_t bytes, bool same_file) {
  char piece[copy_piece];
  std::int64_t done = 0;
  while (done < bytes) {
    const auto size = static_cast<std::size_t>(std::min<std::int64_t>(bytes - done, copy_piece));
    const std::size_t got = source.READ(piece, size);
    const std::size_t put = WRITE(piece, got);
    done += static_cast<std::int64_t>(put);
    if (put < got) source.SEEK(-static_cast<std::int64_t>(got - put), 1);
    if (got == 0 || put < got) break;
    if (same_file && (!FLUSH() || !source._OpenWindow())) break;
  }
  return done;
}

// Within one file and onto bytes that are still to be copied: from the end to the start, so that
// the target gets what the source held before. All or nothing.
std::int64_t MFile::_CopyBackward(MFile& source, std::int64_t bytes) {
  char piece[copy_piece];
  const std::int64_t from = source._Position();
  const std::int64_t to = _Position();
  std::int64_t left = bytes;
  while (left > 0) {
    const std::int64_t size = std::min<std::int64_t>(left, copy_piece);
    const auto count = static_cast<std::size_t>(size);
    const bool moved = source.SEEK(from + left - size, 0) && source.READ(piece, count) == count &&
                       SEEK(to + left - size, 0) && WRITE(piece, count) == count && FLUSH() &&
                       source._OpenWindow();
    if (!moved) break;
    left -= size;
  }
  const std::int64_t done = left == 0 ? bytes : 0;
  source.SEEK(from + done, 0);
  SEEK(to + done, 0);
  return done;
}
