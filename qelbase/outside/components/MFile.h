#pragma once
// The buffered binary file under everything that the library reads and writes.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "qelbase/export.h"

// A file with one descriptor, one buffer and one position for reading and writing. Names are
// Windows paths (see outside/system/names.h). An object belongs to one thread at a time.
//
// Errors. The operations report failure by their results; beside that, the system's code of the
// first error since the object was made, or since RESET_RESULT, stays in GET_RESULT. A write error
// that only shows when the buffer goes to the disk (in FLUSH, CLOSE, SEEK, READ) is thus never
// lost.
class QELBASE_API MFile {
 public:
  // `buffer_size` in bytes; 0 works without a buffer.
  explicit MFile(std::size_t buffer_size = 262144);
  MFile(const MFile&) = delete;
  MFile& operator=(const MFile&) = delete;

  // Virtual operations, in slot order.
  virtual ~MFile();                                 // closes an open file
  virtual bool SET_BUFFER_SIZE(std::size_t bytes);  // flushes first; false if that failed
  virtual bool FEOF() const;                        // true when no data is left; true when closed
  // Origin 0 start, 1 current position, 2 end of file. A position behind the end is allowed, one
  // before the start or less than 1 GiB below 2^63 is not (87). Inside the buffer this is a pointer
  // move without a system call.
  virtual bool SEEK(std::int64_t offset, int origin);
  virtual std::int64_t TELL() const;   // position in bytes; -1 when closed
  virtual bool FLUSH();                // hands the buffer to the system
  virtual void CLOSE();                // flushes and closes; harmless when closed
  virtual bool CHANGE_MODE(int mode);  // reopens the same file in mode 1 or 3, position kept
  virtual std::int64_t SIZE() const;  // bytes, what is still in the buffer included; -1 when closed
  virtual bool IS_OPEN() const;
  virtual bool IS_OPEN_READ() const;            // open in mode 1
  virtual bool IS_OPEN_WRITE() const;           // open in mode 2
  virtual bool IS_OPEN_UPDATE() const;          // open in mode 3
  virtual const wchar_t* GET_FILENAME() const;  // as given to the last opening; never null
  virtual std::uint32_t GET_RESULT() const;     // 0, or the system's code of the first error
  virtual void RESET_RESULT();

 protected:
  // Every READ and WRITE of an object whose class overrides these (or SEEK, or TELL) goes through
  // them; otherwise they are only asked for what the buffer cannot serve at once.
  virtual std::size_t _READ(void* data, std::size_t bytes);  // bytes moved; less only at the end
  virtual std::size_t _WRITE(const void* data, std::size_t bytes);  // bytes moved; less on error
  // Mode 1 reads an existing file, 2 creates or empties it, 3 reads and writes an existing file and
  // keeps its content; any other is refused (87). Closes what was open before, by MFile's own
  // CLOSE. A folder is refused (5), and so is a read-only file in modes 2 and 3.
  virtual bool _OPEN(const wchar_t* name, int mode);
  int _MODE() const { return m_mode; }  // of the open file; 0 when closed
  bool _Fail(std::uint32_t code);       // the first code stays in GET_RESULT; always false

 public:
  bool OPEN_READ(const wchar_t* name);
  bool OPEN_WRITE(const wchar_t* name);
  bool OPEN_UPDATE(const wchar_t* name);
  bool REWIND() { return SEEK(0, 0); }

  // As SEEK(bytes, 1) and TELL(), without a call inside the buffer.
  inline bool SKIP(std::int64_t bytes);
  inline std::int64_t POSITION() const;

  // Each gives the number of whole elements moved, 0 on failure. Four-byte values are little-endian
  // in the file on every machine.
  inline std::size_t READ(char* data, std::size_t count);
  inline std::size_t READ(unsigned char* data, std::size_t count);
  inline std::size_t READ(std::int32_t* data, std::size_t count);
  inline std::size_t WRITE(const char* data, std::size_t count);
  inline std::size_t WRITE(const unsigned char* data, std::size_t count);
  inline std::size_t WRITE(const std::int32_t* data, std::size_t count);

  // Writes at another position and comes back: as TELL, SEEK, WRITE, SEEK, but without a call where
  // those bytes still wait in the buffer, and without giving the buffer up where they have left it.
  // True if all were written.
  inline bool OVERWRITE(std::int64_t position, const void* data, std::size_t bytes);

  // Copies from `source`'s position on to this file's position, moves both positions, and gives the
  // number of bytes copied: `bytes`, or less if the source ended or a transfer failed. In the
  // kernel where the file system can.
  std::int64_t COPY(MFile& source, std::int64_t bytes);
  std::int64_t COPY(MFile& source);  // to the source's end

  // Reads narrow text up to one of the characters of `terminators` (a zero-terminated text), which
  // is consumed and not stored, and ends it with a zero. Gives the length of the text; or, if no
  // terminator comes within `size` bytes (zero included), static_cast<std::size_t>(-1), and nothing
  // is consumed.
  std::size_t READ_STRING_UNTIL(char* buffer, const char* terminators, std::size_t size);
  std::size_t WRITE_STRING(const char* text);  // without its zero; bytes written

  // Flushes, and waits until the content is on the storage. True only if every write since the file
  // was opened has arrived there without error.
  [[nodiscard]] bool SYNC();

 private:
  // From this size on a system call of its own costs less than a copy through the buffer.
  static constexpr std::size_t through_size = 32768;

  // The buffer is a window on the file: it holds the file's bytes from m_window on, up to m_filled
  // or m_dirty_end, whichever is further. The position is m_origin + (m_cursor - m_begin); it lies
  // in the window exactly if m_origin equals m_window, else m_cursor rests on m_begin. READ and
  // WRITE move bytes at m_cursor while m_read_end and m_write_end leave room, and call the virtual
  // slots when they do not. Between m_dirty_begin and m_dirty_end the window is newer than the
  // file.
  char* m_begin;
  char* m_end;
  char* m_cursor;
  char* m_filled;
  char* m_read_end;
  char* m_write_end;
  char* m_dirty_begin;  // behind m_end while the window is clean
  char* m_dirty_end;    // m_begin while the window is clean
  std::int64_t m_window = 0;
  std::int64_t m_origin = 0;

  int m_fd = -1;
  int m_mode = 0;               // 0 closed, else as in _OPEN
  bool m_inline_read = false;   // no subclass overrides _READ, SEEK or TELL
  bool m_inline_write = false;  // no subclass overrides _WRITE, SEEK or TELL
  bool m_write_failed = false;  // since the file was opened
  std::uint32_t m_result = 0;
  std::size_t m_capacity;
  std::size_t m_read_ahead = 0;
  std::uint64_t m_device = 0;
  std::uint64_t m_inode = 0;
  std::unique_ptr<char[]> m_buffer;
  char m_no_buffer[1] = {};
  std::wstring m_name;

  inline std::size_t _Read(void* data, std::size_t bytes);
  inline std::size_t _Write(const void* data, std::size_t bytes);
  bool _OverwriteElsewhere(std::int64_t position, const void* data, std::size_t bytes);
  std::size_t _ReadLongs(std::int32_t* data, std::size_t count);
  std::size_t _WriteLongs(const std::int32_t* data, std::size_t count);
  std::size_t _FindInWindow(const char* terminators, std::size_t size) const;

  bool _FailErrno(int error, bool writing);
  bool _Adopt(int fd, int mode);

  std::int64_t _Position() const { return m_origin + (m_cursor - m_begin); }
  char* _WindowEnd() const { return m_filled > m_dirty_end ? m_filled : m_dirty_end; }
  bool _InWindow() const { return m_origin == m_window; }
  void _UseBuffer(char* begin, std::size_t bytes);
  bool _AllocateBuffer();
  void _MoveTo(std::int64_t position);
  void _MarkClean();
  void _DropWindow();
  bool _FlushWindow();
  bool _OpenWindow();
  bool _FillWindow(std::size_t wanted);
  std::size_t _ThroughSize() const;

  std::size_t _ReadBuffered(char* to, std::size_t bytes);
  std::size_t _ReadThrough(char* to, std::size_t bytes);
  std::size_t _WriteBuffered(const char* from, std::size_t bytes);
  std::size_t _WriteThrough(const char* from, std::size_t bytes);
  std::int64_t _ReadSome(char* to, std::size_t bytes, std::int64_t position);
  std::size_t _WriteAll(const char* from, std::size_t bytes, std::int64_t position);

  bool _CopyInKernel(MFile& source, std::int64_t bytes, std::int64_t& done);
  std::int64_t _CopyPieces(MFile& source, std::int64_t bytes, bool same_file);
  std::int64_t _CopyBackward(MFile& source, std::int64_t bytes);
};

inline std::size_t MFile::_Read(void* data, std::size_t bytes) {
  // No bytes, which may come with a null pointer, wrap round and go to the slot.
  if (m_cursor < m_read_end && bytes - 1 < static_cast<std::size_t>(m_read_end - m_cursor)) {
    std::memcpy(data, m_cursor, bytes);
    m_cursor += bytes;
    return bytes;
  }
  return _READ(data, bytes);
}

inline std::size_t MFile::_Write(const void* data, std::size_t bytes) {
  if (bytes < through_size && m_cursor >= m_dirty_begin && m_cursor < m_write_end &&
      bytes - 1 < static_cast<std::size_t>(m_write_end - m_cursor)) {
    std::memcpy(m_cursor, data, bytes);
    m_cursor += bytes;
    if (m_cursor > m_dirty_end) m_dirty_end = m_cursor;
    return bytes;
  }
  return _WRITE(data, bytes);
}

inline bool MFile::SKIP(std::int64_t bytes) {
  if (bytes >= 0 && m_cursor < m_read_end && bytes <= m_read_end - m_cursor) {
    m_cursor += bytes;
    return true;
  }
  return SEEK(bytes, 1);
}

inline std::int64_t MFile::POSITION() const {
  const bool writing = m_cursor >= m_dirty_begin && m_cursor < m_write_end;
  return writing || m_cursor < m_read_end ? _Position() : TELL();
}

inline bool MFile::OVERWRITE(std::int64_t position, const void* data, std::size_t bytes) {
  const std::int64_t inside = position - m_window;
  if (m_inline_write && inside >= m_dirty_begin - m_begin && inside < m_dirty_end - m_begin &&
      bytes - 1 < static_cast<std::size_t>(m_dirty_end - m_begin - inside)) {
    std::memcpy(m_begin + inside, data, bytes);
    return true;
  }
  return _OverwriteElsewhere(position, data, bytes);
}

inline std::size_t MFile::READ(char* data, std::size_t count) {
  return _Read(data, count);
}
inline std::size_t MFile::READ(unsigned char* data, std::size_t count) {
  return _Read(data, count);
}
inline std::size_t MFile::WRITE(const char* data, std::size_t count) {
  return _Write(data, count);
}
inline std::size_t MFile::WRITE(const unsigned char* data, std::size_t count) {
  return _Write(data, count);
}

inline std::size_t MFile::READ(std::int32_t* data, std::size_t count) {
  if (count == 1 && std::endian::native == std::endian::little && m_cursor < m_read_end &&
      m_read_end - m_cursor >= 4) {
    std::memcpy(data, m_cursor, 4);
    m_cursor += 4;
    return 1;
  }
  return _ReadLongs(data, count);
}

inline std::size_t MFile::WRITE(const std::int32_t* data, std::size_t count) {
  if (count == 1 && std::endian::native == std::endian::little) return _Write(data, 4) == 4;
  return _WriteLongs(data, count);
}
