#pragma once
// The exception of the file class.

#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

// Thrown by pointer. Whoever catches it for good frees it with `Delete`; throwing it on hands that
// duty on.
class QELBASE_API CFileException {
 public:
  enum : int {
    none = 0,
    genericException = 1,
    fileNotFound = 2,
    badPath = 3,
    tooManyOpenFiles = 4,
    accessDenied = 5,
    sharingViolation = 11,
    lockViolation = 12,
    diskFull = 13,
  };

  explicit CFileException(int cause = none, LONG os_error = -1, std::wstring file_name = {});
  virtual ~CFileException();

  void Delete();

  // The cause of a system code; 0 has the cause `none`, an unknown code `genericException`.
  [[nodiscard]] static int OsErrorToException(LONG os_error);

  // Throws a new exception for a system code, with the cause that belongs to it.
  [[noreturn]] static void ThrowOsError(LONG os_error, const std::wstring& file_name = {});

  int m_cause;
  LONG m_lOsError;  // the system's code, -1 where there is none
  std::wstring m_strFileName;
};
