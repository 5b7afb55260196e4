#include "qelbase/outside/framework/CFileException.h"

#include <utility>

#include "qelbase/outside/system/errors.h"

CFileException::CFileException(int cause, LONG os_error, std::wstring file_name)
    : m_cause(cause), m_lOsError(os_error), m_strFileName(std::move(file_name)) {}

CFileException::~CFileException() = default;

void CFileException::Delete() {
  delete this;
}

int CFileException::OsErrorToException(LONG os_error) {
  switch (static_cast<DWORD>(os_error)) {
    case qel::sys::ERROR_SUCCESS:
      return none;
    case qel::sys::ERROR_FILE_NOT_FOUND:
      return fileNotFound;
    case qel::sys::ERROR_PATH_NOT_FOUND:
      return badPath;
    case qel::sys::ERROR_TOO_MANY_OPEN_FILES:
      return tooManyOpenFiles;
    case qel::sys::ERROR_ACCESS_DENIED:
      return accessDenied;
    case qel::sys::ERROR_SHARING_VIOLATION:
      return sharingViolation;
    case 33:  // a range of the file is locked
      return lockViolation;
    case qel::sys::ERROR_DISK_FULL:
      return diskFull;
    default:
      return genericException;
  }
}

void CFileException::ThrowOsError(LONG os_error, const std::wstring& file_name) {
  throw new CFileException(OsErrorToException(os_error), os_error, file_name);
}
