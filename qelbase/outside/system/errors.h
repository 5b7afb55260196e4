#pragma once
// The last error of a thread, and the one table that maps errno to the system's codes.

#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// The codes that the library gives or looks at.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_INVALID_DATA = 13;
inline constexpr DWORD ERROR_NOT_SAME_DEVICE = 17;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_WRITE_PROTECT = 19;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_BAD_NETPATH = 53;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_BROKEN_PIPE = 109;
inline constexpr DWORD ERROR_BUFFER_OVERFLOW = 111;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_INVALID_LEVEL = 124;
inline constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
inline constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
inline constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
inline constexpr DWORD ERROR_BAD_PATHNAME = 161;
inline constexpr DWORD ERROR_DISCARDED = 157;
inline constexpr DWORD ERROR_NOT_LOCKED = 158;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_BAD_EXE_FORMAT = 193;
inline constexpr DWORD ERROR_ENVVAR_NOT_FOUND = 203;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_FILE_TOO_LARGE = 223;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_DIRECTORY = 267;
inline constexpr DWORD ERROR_MR_MID_NOT_FOUND = 317;  // no text for a code
inline constexpr DWORD ERROR_OPERATION_ABORTED = 995;
inline constexpr DWORD ERROR_BADDB = 1009;
inline constexpr DWORD ERROR_NOT_REGISTRY_FILE = 1017;
inline constexpr DWORD ERROR_KEY_DELETED = 1018;
inline constexpr DWORD ERROR_CHILD_MUST_BE_VOLATILE = 1021;
inline constexpr DWORD ERROR_DEPENDENT_SERVICES_RUNNING = 1051;
inline constexpr DWORD ERROR_INVALID_SERVICE_CONTROL = 1052;
inline constexpr DWORD ERROR_SERVICE_REQUEST_TIMEOUT = 1053;
inline constexpr DWORD ERROR_SERVICE_DATABASE_LOCKED = 1055;
inline constexpr DWORD ERROR_SERVICE_ALREADY_RUNNING = 1056;
inline constexpr DWORD ERROR_INVALID_SERVICE_ACCOUNT = 1057;
inline constexpr DWORD ERROR_SERVICE_DISABLED = 1058;
inline constexpr DWORD ERROR_CIRCULAR_DEPENDENCY = 1059;
inline constexpr DWORD ERROR_SERVICE_DOES_NOT_EXIST = 1060;
inline constexpr DWORD ERROR_SERVICE_CANNOT_ACCEPT_CTRL = 1061;
inline constexpr DWORD ERROR_SERVICE_NOT_ACTIVE = 1062;
inline constexpr DWORD ERROR_FAILED_SERVICE_CONTROLLER_CONNECT = 1063;
inline constexpr DWORD ERROR_DATABASE_DOES_NOT_EXIST = 1065;
inline constexpr DWORD ERROR_PROCESS_ABORTED = 1067;
inline constexpr DWORD ERROR_SERVICE_DEPENDENCY_FAIL = 1068;
inline constexpr DWORD ERROR_SERVICE_MARKED_FOR_DELETE = 1072;
inline constexpr DWORD ERROR_SERVICE_EXISTS = 1073;
inline constexpr DWORD ERROR_SERVICE_DEPENDENCY_DELETED = 1075;
inline constexpr DWORD ERROR_SERVICE_NEVER_STARTED = 1077;
inline constexpr DWORD ERROR_DUPLICATE_SERVICE_NAME = 1078;
inline constexpr DWORD ERROR_SERVICE_NOT_IN_EXE = 1083;
inline constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;
inline constexpr DWORD ERROR_IO_DEVICE = 1117;
inline constexpr DWORD ERROR_OLD_WIN_VERSION = 1150;
inline constexpr DWORD ERROR_INVALID_SECURITY_DESCR = 1338;
inline constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
inline constexpr DWORD ERROR_CLIPBOARD_NOT_OPEN = 1418;
inline constexpr DWORD ERROR_TIMEOUT = 1460;
inline constexpr DWORD RPC_S_SERVER_UNAVAILABLE = 1722;
inline constexpr DWORD ERROR_RESOURCE_DATA_NOT_FOUND = 1812;
inline constexpr DWORD ERROR_RESOURCE_TYPE_NOT_FOUND = 1813;
inline constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
inline constexpr DWORD ERROR_RESOURCE_LANG_NOT_FOUND = 1815;
inline constexpr DWORD ERROR_NOT_ENOUGH_QUOTA = 1816;
inline constexpr DWORD ERROR_CANT_RESOLVE_FILENAME = 1921;

// One per thread; set on failure and left alone on success, unless a call says otherwise.
[[nodiscard]] QELBASE_API DWORD GetLastError();
QELBASE_API void SetLastError(DWORD code);

// The system's code of an errno value; 0 for 0, 31 for a value that has none. ENOENT and ENOTDIR
// give 2; where the path is known, ErrorOfPath tells 2 from 3.
[[nodiscard]] QELBASE_API DWORD ErrorFromErrno(int error);

// As ErrorFromErrno, but 3 when a folder on the way to `native` is missing or is a file. Looks at
// the file system for ENOENT and ENOTDIR alone; errno is kept.
[[nodiscard]] QELBASE_API DWORD ErrorOfPath(int error, const std::string& native);

inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;

// The text of a code, in English and closed by CR LF, into a buffer of `size` characters. Gives the
// length without the terminator; 0 with the last error 317 for a code without text, 122 for a text
// that does not fit, 87 for flags other than the two above or without the second. A failure code of
// the form 0x8007xxxx has the text of xxxx. Source, language and inserts are not looked at.
QELBASE_API DWORD FormatMessageW(DWORD flags, const void* source, DWORD code, DWORD language,
                                 wchar_t* buffer, DWORD size, const void* inserts);

// Keeps the caller's last error (and errno) over a clean-up.
class QELBASE_API LastErrorKeeper {
 public:
  LastErrorKeeper();
  ~LastErrorKeeper();
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

 private:
  DWORD m_code;
  int m_errno;
};

}  // namespace qel::sys
