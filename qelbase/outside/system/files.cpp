#include "qelbase/outside/system/files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cwchar>

#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/shares_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

namespace {

std::wstring_view textOf(const wchar_t* path) {
  return path ? path : std::wstring_view();
}

BOOL failSystem(DWORD code) {
  SetLastError(code);
  return 0;
}

BOOL failSystem(int error, const std::string& native) {
  return failSystem(ErrorOfPath(error, native));
}

int failRunTime(int error, const std::string& native) {
  return FailRunTime(ErrorOfPath(error, native));
}

struct RunTimeRow {
  DWORD code;
  int error;
};

constexpr std::array run_time_table = {
    RunTimeRow{ERROR_FILE_NOT_FOUND, ENOENT},
    RunTimeRow{ERROR_PATH_NOT_FOUND, ENOENT},
    RunTimeRow{ERROR_BAD_NETPATH, ENOENT},
    RunTimeRow{ERROR_FILENAME_EXCED_RANGE, ENOENT},
    RunTimeRow{ERROR_TOO_MANY_OPEN_FILES, EMFILE},
    RunTimeRow{ERROR_ACCESS_DENIED, EACCES},
    RunTimeRow{ERROR_SHARING_VIOLATION, EACCES},
    RunTimeRow{ERROR_WRITE_PROTECT, EACCES},
    RunTimeRow{ERROR_NOT_ENOUGH_MEMORY, ENOMEM},
    RunTimeRow{ERROR_NOT_SAME_DEVICE, EXDEV},
    RunTimeRow{ERROR_FILE_EXISTS, EEXIST},
    RunTimeRow{ERROR_ALREADY_EXISTS, EEXIST},
    RunTimeRow{ERROR_DISK_FULL, ENOSPC},
    RunTimeRow{ERROR_DIR_NOT_EMPTY, ENOTEMPTY},
    RunTimeRow{ERROR_IO_DEVICE, EIO},
    RunTimeRow{ERROR_DIRECTORY, ENOENT},
};

// --- attributes --------------------------------------------------------------------------------

constexpr const char* stored_name = "user.DOSATTRIB";
constexpr DWORD stored_bits =
    FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE;
constexpr mode_t write_bits = S_IWUSR | S_IWGRP | S_IWOTH;

// The stored text is a hexadecimal number; what may stand behind its end belongs to other programs.
// `size` is what reading it gave, negative without one.
DWORD parseStored(const std::array<char, 256>& text, ssize_t size, const struct stat& status) {
  DWORD stored = 0;
  const bool sound = size > 2 && text[0] == '0' && text[1] == 'x' &&
                     std::from_chars(&text[2], &text[size], stored, 16).ec == std::errc();
  if (sound) return stored & stored_bits;
  return S_ISREG(status.st_mode) ? FILE_ATTRIBUTE_ARCHIVE : 0;
}

DWORD storedAttributes(const std::string& native, const struct stat& status) {
  std::array<char, 256> text{};
  const ssize_t size = Calls().getxattr(native.c_str(), stored_name, text.data(), text.size() - 1);
  return parseStored(text, size, status);
}

int storeAttributes(const std::string& native, DWORD attributes) {
  std::array<char, 16> text;
  const int size = std::snprintf(text.data(), text.size(), "0x%x", attributes);
  return Calls().setxattr(native.c_str(), stored_name, text.data(), static_cast<size_t>(size), 0);
}

// Stores what differs. A file that nobody may write is made writable for that; its mode afterwards
// is the caller's matter.
int storeChanged(const std::string& native, const struct stat& status, DWORD attributes) {
  const DWORD wanted = attributes & stored_bits;
  if (wanted == storedAttributes(native, status)) return 0;
  if (IsReadOnly(status) && Calls().chmod(native.c_str(), status.st_mode | S_IWUSR) != 0) return -1;
  const DWORD kind = S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : 0;
  if (storeAttributes(native, wanted | kind | (attributes & FILE_ATTRIBUTE_READONLY)) == 0)
    return 0;
  const LastErrorKeeper keeper;
  if (IsReadOnly(status)) Calls().chmod(native.c_str(), status.st_mode);
  return -1;
}

mode_t modeFor(const struct stat& status, DWORD attributes) {
  const mode_t mode = status.st_mode & 07777;
  if (!S_ISREG(status.st_mode)) return mode;
  if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) return mode & ~write_bits;
  return IsReadOnly(status) ? mode | S_IWUSR : mode;
}

// --- removing ----------------------------------------------------------------------------------

bool isCurrentFolder(const struct stat& status) {
  struct stat current {};
  return Calls().stat(".", &current) == 0 && current.st_dev == status.st_dev &&
         current.st_ino == status.st_ino;
}

bool isLinkToFolder(int folder, const std::string& name, const struct stat& status) {
  struct stat target {};
  return S_ISLNK(status.st_mode) && Calls().fstatat(folder, name.c_str(), &target, 0) == 0 &&
         S_ISDIR(target.st_mode);
}

DWORD codeIn(int folder, int error, const std::string& name) {
  return folder == AT_FDCWD ? ErrorOfPath(error, name) : ErrorFromErrno(error);
}

DWORD errorOfRename(int error, const std::string& from, const std::string& to) {
  struct stat status {};
  const bool source_exists = Calls().lstat(from.c_str(), &status) == 0;
  return ErrorOfPath(error, source_exists ? to : from);
}

// --- passing names -----------------------------------------------------------------------------

bool isFolder(const std::string& native) {
  struct stat status {};
  return Calls().stat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::wstring tempFileName(std::wstring_view folder, std::wstring_view prefix, UINT number) {
  std::array<wchar_t, 16> digits;
  std::swprintf(digits.data(), digits.size(), L"%X.tmp", number & 0xFFFF);
  std::wstring name(folder);
  if (!IsSeparator(name.back())) name += L'\\';
  return name.append(prefix.substr(0, 3)).append(digits.data());
}

// Creates the empty file; false with errno and the last error, EEXIST for a name that is not free.
bool createNew(const std::wstring& name) {
  std::string native;
  if (!ToNative(name, native)) {
    errno = EINVAL;
    return false;
  }
  errno = EEXIST;
  if (IsRefusedForCreation(native)) return false;
  if (Descriptor::open(native, O_WRONLY | O_CREAT | O_EXCL, 0600)) return true;
  return errno != EEXIST && failSystem(errno, native) != 0;
}

// The number of the name that was created, or 0.
UINT createFirstFree(std::wstring_view folder, std::wstring_view prefix, std::wstring& name) {
  UINT number = GetTickCount() & 0xFFFF;
  for (int tries = 0; tries < 0x10000; ++tries, number = (number + 1) & 0xFFFF) {
    if (number == 0) continue;
    name = tempFileName(folder, prefix, number);
    if (createNew(name)) return number;
    if (errno != EEXIST) return 0;
  }
  return static_cast<UINT>(failSystem(ERROR_FILE_EXISTS));
}

bool isOneOf(wchar_t pattern, wchar_t c) {
  return pattern == L'?' || ToUpper(pattern) == ToUpper(c);
}

}  // namespace

// --- for the other rooms -----------------------------------------------------------------------

int FailRunTime(DWORD code) {
  SetLastError(code);
  const auto* row = std::ranges::find(run_time_table, code, &RunTimeRow::code);
  errno = row == run_time_table.end() ? EINVAL : row->error;
  return -1;
}

std::optional<std::vector<std::string>> NamesIn(const std::string& folder) {
  DIR* opened = Calls().opendir(folder.c_str());
  if (!opened) return std::nullopt;
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = Calls().readdir(opened)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
    errno = 0;
  }
  const int error = errno;
  Calls().closedir(opened);
  errno = error;
  if (error != 0) return std::nullopt;
  return names;
}

bool MatchesPattern(std::wstring_view name, std::wstring_view pattern) {
  if (pattern == L"*.*") return true;
  std::size_t star = std::wstring_view::npos;  // the last `*`, to which a mismatch goes back
  std::size_t resume = 0;
  std::size_t at = 0;
  std::size_t n = 0;
  while (n < name.size()) {
    if (at < pattern.size() && pattern[at] == L'*') {
      star = at++;
      resume = n;
    } else if (at < pattern.size() && isOneOf(pattern[at], name[n])) {
      ++at;
      ++n;
    } else if (star != std::wstring_view::npos) {
      at = star + 1;
      n = ++resume;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of(L"*?", at) == std::wstring_view::npos;
}

DWORD RemoveFileIn(int folder, const std::string& name, bool is_regular) {
  constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK;
  struct stat status {};
  Descriptor file;
  if (is_regular) file = Descriptor::openIn(folder, name, flags);
  const int found = file ? Calls().fstat(file.get(), &status)
                         : Calls().fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
  if (found != 0) return codeIn(folder, errno, name);
  if (S_ISDIR(status.st_mode) || IsReadOnly(status)) return ERROR_ACCESS_DENIED;
  if (!file && S_ISREG(status.st_mode)) file = Descriptor::openIn(folder, name, flags);
  const bool is_open = file && S_ISREG(status.st_mode);
  if (is_open && IsHeldAgainstDeletion(file.get())) return ERROR_SHARING_VIOLATION;
  return Calls().unlinkat(folder, name.c_str(), 0) == 0 ? ERROR_SUCCESS
                                                        : codeIn(folder, errno, name);
}

DWORD RemoveFolderIn(int folder, const std::string& name) {
  struct stat status {};
  if (Calls().fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return codeIn(folder, errno, name);
  }
  const bool is_link = isLinkToFolder(folder, name, status);
  if (!is_link && !S_ISDIR(status.st_mode)) return ERROR_DIRECTORY;
  if (!is_link && isCurrentFolder(status)) return ERROR_SHARING_VIOLATION;
  const int flags = is_link ? 0 : AT_REMOVEDIR;
  if (Calls().unlinkat(folder, name.c_str(), flags) == 0) return ERROR_SUCCESS;
  return errno == EEXIST ? ERROR_DIR_NOT_EMPTY : codeIn(folder, errno, name);
}

bool IsReadOnly(const struct stat& status) {
  return S_ISREG(status.st_mode) && (status.st_mode & write_bits) == 0;
}

DWORD AttributesOf(const std::string& native, const struct stat& status) {
  DWORD attributes = storedAttributes(native, status);
  if (S_ISDIR(status.st_mode)) attributes |= FILE_ATTRIBUTE_DIRECTORY;
  if (IsReadOnly(status)) attributes |= FILE_ATTRIBUTE_READONLY;
  if (NameOf(native).starts_with('.')) attributes |= FILE_ATTRIBUTE_HIDDEN;
  return attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes;
}

DWORD AttributesOfOpen(int file, const struct stat& status) {
  std::array<char, 256> text{};
  const ssize_t size = Calls().fgetxattr(file, stored_name, text.data(), text.size() - 1);
  const DWORD stored = parseStored(text, size, status);
  return IsReadOnly(status) ? stored | FILE_ATTRIBUTE_READONLY : stored;
}

// --- the C run-time library --------------------------------------------------------------------

int _waccess(const wchar_t* path, int mode) {
  std::string native;
  if (!ToNative(textOf(path), native)) return FailRunTime(GetLastError());
  struct stat status {};
  if (Calls().stat(native.c_str(), &status) != 0) return failRunTime(errno, native);
  constexpr int write = 2;
  return (mode & write) != 0 && IsReadOnly(status) ? FailRunTime(ERROR_ACCESS_DENIED) : 0;
}

int _wrename(const wchar_t* from, const wchar_t* to) {
  std::string source;
  std::string target;
  if (!ToNative(textOf(from), source) || !ToNativeForCreation(textOf(to), target)) {
    return FailRunTime(GetLastError());
  }
  if (source == target) return _waccess(from, 0);
  if (MoveNoReplace(source, target) == 0) return 0;
  return FailRunTime(errorOfRename(errno, source, target));
}

int _wremove(const wchar_t* path) {
  std::string native;
  if (!ToNative(textOf(path), native)) return FailRunTime(GetLastError());
  const DWORD code = RemoveFileIn(AT_FDCWD, native);
  return code == ERROR_SUCCESS ? 0 : FailRunTime(code);
}

int _wrmdir(const wchar_t* path) {
  std::string native;
  if (!ToNative(textOf(path), native)) return FailRunTime(GetLastError());
  const DWORD code = RemoveFolderIn(AT_FDCWD, native);
  if (code == ERROR_SUCCESS) return 0;
  FailRunTime(code);
  if (code == ERROR_DIRECTORY || code == ERROR_SHARING_VIOLATION) errno = ENOTEMPTY;
  return -1;
}

// --- the system --------------------------------------------------------------------------------

BOOL CreateDirectoryW(const wchar_t* path, void* /*security*/) {
  std::string native;
  if (!ToNative(textOf(path), native)) return 0;
  if (IsRefusedForCreation(native)) return failSystem(ERROR_DIRECTORY);
  if (Calls().mkdir(native.c_str(), 0777) == 0) return 1;
  return failSystem(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorOfPath(errno, native));
}

DWORD CreatePrivateFolder(const wchar_t* path) {
  std::string native;
  if (!ToNativeForCreation(textOf(path), native)) return GetLastError();
  if (Calls().mkdir(native.c_str(), 0700) == 0) return ERROR_SUCCESS;
  return ErrorOfPath(errno, native);
}

BOOL RemoveDirectoryW(const wchar_t* path) {
  std::string native;
  if (!ToNative(textOf(path), native)) return 0;
  const DWORD code = RemoveFolderIn(AT_FDCWD, native);
  return code == ERROR_SUCCESS ? 1 : failSystem(code);
}

BOOL DeleteFileW(const wchar_t* path) {
  std::string native;
  if (!ToNative(textOf(path), native)) return 0;
  const DWORD code = RemoveFileIn(AT_FDCWD, native);
  return code == ERROR_SUCCESS ? 1 : failSystem(code);
}

DWORD GetFileAttributesW(const wchar_t* path) {
  std::string native;
  if (!ToNative(textOf(path), native)) return INVALID_FILE_ATTRIBUTES;
  struct stat status {};
  if (Calls().stat(native.c_str(), &status) == 0) return AttributesOf(native, status);
  failSystem(errno, native);
  return INVALID_FILE_ATTRIBUTES;
}

BOOL SetFileAttributesW(const wchar_t* path, DWORD attributes) {
  std::string native;
  if (!ToNative(textOf(path), native)) return 0;
  struct stat status {};
  if (Calls().stat(native.c_str(), &status) != 0) return failSystem(errno, native);
  if (storeChanged(native, status, attributes) != 0) return failSystem(ErrorFromErrno(errno));
  const mode_t mode = modeFor(status, attributes);
  struct stat present {};
  if (Calls().stat(native.c_str(), &present) != 0) return failSystem(errno, native);
  if ((present.st_mode & 07777) == mode) return 1;
  return Calls().chmod(native.c_str(), mode) == 0 ? 1 : failSystem(ErrorFromErrno(errno));
}

DWORD GetWindowsDirectoryW(DWORD size, wchar_t* buffer) {
  return HandOut(FromNative("/usr"), buffer, size);
}

DWORD GetTempPathW(DWORD size, wchar_t* buffer) {
  std::wstring folder = EnvironmentValue(L"TMP").value_or(L"");
  if (folder.empty()) folder = EnvironmentValue(L"TEMP").value_or(L"");
  if (folder.empty()) folder = FromNative("/tmp");
  if (!IsSeparator(folder.back())) folder += L'\\';
  return HandOut(folder, buffer, size);
}

DWORD GetCurrentDirectoryW(DWORD size, wchar_t* buffer) {
  std::array<char, PATH_MAX> folder;
  if (Calls().getcwd(folder.data(), folder.size())) {
    return HandOut(FromNative(folder.data()), buffer, size);
  }
  SetLastError(ErrorFromErrno(errno));
  return 0;
}

UINT GetTempFileNameW(const wchar_t* folder, const wchar_t* prefix, UINT number, wchar_t* name) {
  constexpr std::size_t longest_folder = 246;
  const std::wstring_view where = textOf(folder);
  if (where.size() > longest_folder) return static_cast<UINT>(failSystem(ERROR_BUFFER_OVERFLOW));
  std::string native;
  if (!ToNative(where, native) || !isFolder(native)) {
    return static_cast<UINT>(failSystem(ERROR_DIRECTORY));
  }
  std::wstring text = tempFileName(where, textOf(prefix), number);
  if (number == 0) number = createFirstFree(where, textOf(prefix), text);
  if (number != 0) HandOut(text, name, MAX_PATH);
  return number;
}

}  // namespace qel::sys
