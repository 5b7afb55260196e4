#pragma once
// A binary file with a position, for code that reads and writes by blocks.

#include <memory>
#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CFileException.h"
#include "qelbase/outside/system/types.h"

// An open file. Names are Windows paths (see outside/system/names.h). All operations but `Open`
// throw a `CFileException` by pointer when the system refuses. An object belongs to one thread at a
// time; the virtual operations may be overridden to stand for other sources of bytes.
class QELBASE_API CFile {
 public:
  // One of each group. Reading only is 0.
  enum OpenFlags : UINT {
    modeRead = 0x0,
    modeWrite = 0x1,
    modeReadWrite = 0x2,
    shareExclusive = 0x10,
    shareDenyWrite = 0x20,
    shareDenyRead = 0x30,
    shareDenyNone = 0x40,
    modeCreate = 0x1000,      // makes the file, or empties an existing one
    modeNoTruncate = 0x2000,  // with modeCreate: keeps what an existing file holds
  };
  enum SeekPosition : UINT { begin = 0, current = 1, end = 2 };

  CFile();  // not open
  CFile(const wchar_t* name, UINT flags);
  CFile(const CFile&) = delete;
  CFile& operator=(const CFile&) = delete;

  virtual ~CFile();  // closes, without a report

  // Opens a file, after closing an open one. False if that failed, and `error` (if not null) holds
  // cause, system code and name; nothing is thrown. A folder is refused (5).
  //
  // A share mode holds against every other CFile and every handle of CreateFileW, in this process
  // and in others: what one denies, another has no access to (32), whichever came first. It is kept
  // as locks on bytes far behind the end of any file, so a program that does not use this class
  // neither sees nor minds it, and a file system without locks has no share modes. Of two that open
  // at the same moment and exclude each other both may be refused. Without a share mode nothing is
  // denied.
  virtual bool Open(const wchar_t* name, UINT flags, CFileException* error = nullptr);

  // Reads at the position and moves it. Gives the bytes read, fewer than `count` only at the end of
  // the file. A file that others may not write is read ahead of the position.
  virtual UINT Read(void* data, UINT count);

  // Writes all of `count` bytes at the position and moves it.
  virtual void Write(const void* data, UINT count);

  // Gives the new position in bytes from the start. Behind the end is allowed; before the start is
  // refused (131).
  virtual ULONGLONG Seek(LONGLONG offset, UINT from);
  virtual ULONGLONG GetPosition() const;
  virtual ULONGLONG GetLength() const;
  virtual void SetLength(ULONGLONG length);  // the position then is the new end
  virtual void Flush();                      // waits until the content is on the storage
  virtual void Close();                      // harmless when closed
  virtual void Abort();                      // closes and never throws

  [[nodiscard]] bool IsOpen() const;
  [[nodiscard]] const std::wstring& GetFilePath() const;  // as given to `Open`

 private:
  struct ReadAhead;

  [[noreturn]] void ThrowErrno(int error) const;
  void RequireOpen() const;
  UINT ReadDirect(BYTE* data, UINT count, ULONGLONG at) const;
  UINT ReadBuffered(BYTE* data, UINT count);
  DWORD OpenNative(const wchar_t* name, UINT flags);

  int m_fd;
  int m_share_fd;  // holds the share mode where `m_fd` cannot
  ULONGLONG m_position;
  std::wstring m_name;
  std::unique_ptr<ReadAhead> m_ahead;  // only where nobody may write meanwhile
};
