#include "qelbase/outside/system/handles.h"

#include <sys/file.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/handles_internal.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/shares_internal.h"

namespace qel::sys {

namespace {

// --- the table ---------------------------------------------------------------------------------

struct Table {
  std::mutex lock;
  std::map<std::uintptr_t, Descriptor> open;
  std::uintptr_t last = 0;
};

// Never destroyed: objects that close their handle may outlive this file's statics.
Table& table() {
  static Lasting<Table> all;
  return *all;
}

HANDLE enter(Descriptor descriptor) {
  constexpr std::uintptr_t step = 4;
  Table& all = table();
  const std::lock_guard guard(all.lock);
  all.open.emplace(all.last += step, std::move(descriptor));
  return reinterpret_cast<HANDLE>(all.last);
}

HANDLE fail(DWORD code) {
  SetLastError(code);
  return INVALID_HANDLE_VALUE;
}

// --- folders -----------------------------------------------------------------------------------

constexpr DWORD reading_bits = GENERIC_READ | GENERIC_ALL | 0x1;
constexpr DWORD writing_bits = GENERIC_WRITE | GENERIC_ALL | 0x46;  // add files, folders, remove
constexpr DWORD passing_bits = GENERIC_EXECUTE | GENERIC_ALL | 0x20;

int folderMode(DWORD access) {
  int mode = F_OK;
  if ((access & reading_bits) != 0) mode |= R_OK;
  if ((access & writing_bits) != 0) mode |= W_OK;
  if ((access & passing_bits) != 0) mode |= X_OK;
  return mode;
}

HANDLE openFolder(const std::string& native, DWORD access) {
  if (Calls().faccessat(AT_FDCWD, native.c_str(), folderMode(access), AT_EACCESS) != 0) {
    return fail(ErrorOfPath(errno, native));
  }
  Descriptor folder = Descriptor::open(native, O_RDONLY | O_DIRECTORY);
  const bool may_read = folder || errno != EACCES;
  if (!may_read) folder = Descriptor::open(native, O_PATH | O_DIRECTORY);
  if (!folder) return fail(ErrorOfPath(errno, native));
  if (may_read) Calls().flock(folder.get(), LOCK_SH | LOCK_NB);
  return enter(std::move(folder));
}

// --- files -------------------------------------------------------------------------------------

struct Request {
  std::string native;
  DWORD access;
  DWORD sharing;
  DWORD disposition;
  DWORD attributes;
  int flags;  // of open, without creation
};

bool mayCreate(DWORD disposition) {
  return disposition == CREATE_NEW || disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
}

bool truncates(DWORD disposition) {
  return disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING;
}

DWORD refusalOf(const struct stat& status, const Request& request) {
  if (S_ISDIR(status.st_mode)) return ERROR_ACCESS_DENIED;
  const bool read_only = (status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
  const bool writes = (request.flags & O_ACCMODE) != O_RDONLY || truncates(request.disposition);
  return read_only && writes ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

// Whether the name still stands for the open file: its last holder may have removed it on the way.
bool isStillNamed(const Descriptor& file, const std::string& native) {
  struct stat open {};
  struct stat named {};
  return Calls().fstat(file.get(), &open) == 0 && Calls().stat(native.c_str(), &named) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

// Opens what exists; empty with `code`.
Descriptor openOld(const Request& request, DWORD& code) {
  struct stat status {};
  Descriptor file = Descriptor::open(request.native, request.flags);
  if (!file || Calls().fstat(file.get(), &status) != 0) {
    code = ErrorOfPath(errno, request.native);
    return {};
  }
  code = refusalOf(status, request);
  return code == ERROR_SUCCESS ? std::move(file) : Descriptor();
}

Descriptor createNew(const Request& request, DWORD& code) {
  const bool read_only = (request.attributes & FILE_ATTRIBUTE_READONLY) != 0;
  Descriptor file =
      Descriptor::open(request.native, request.flags | O_CREAT | O_EXCL, read_only ? 0444 : 0666);
  if (file) return file;
  code = errno == EEXIST ? ERROR_FILE_EXISTS : ErrorOfPath(errno, request.native);
  return file;
}

Descriptor openOrCreate(const Request& request, bool& existed, DWORD& code) {
  existed = false;
  code = ERROR_FILE_EXISTS;
  Descriptor file;
  if (mayCreate(request.disposition)) file = createNew(request, code);
  if (file || request.disposition == CREATE_NEW || code != ERROR_FILE_EXISTS) return file;
  existed = true;
  return openOld(request, code);
}

// 0, or the code.
DWORD share(const Descriptor& file, const Request& request) {
  const int error = TakeShare(file.get(), request.access, request.sharing);
  if (error != 0) return ErrorFromErrno(error);
  if (!truncates(request.disposition)) return ERROR_SUCCESS;
  const auto truncate = [&] { return Calls().ftruncate(file.get(), 0); };
  return UntilNotInterrupted(truncate) == 0 ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

HANDLE openFile(const Request& request) {
  constexpr int most_tries = 1000;
  for (int tries = 0; tries < most_tries; ++tries) {
    bool existed = false;
    DWORD code = ERROR_SUCCESS;
    Descriptor file = openOrCreate(request, existed, code);
    const bool vanished = existed && code == ERROR_FILE_NOT_FOUND && mayCreate(request.disposition);
    if (vanished) continue;
    if (!file) return fail(code);
    code = share(file, request);
    if (!isStillNamed(file, request.native)) continue;
    if (code != ERROR_SUCCESS) return fail(code);
    const bool tells = request.disposition == CREATE_ALWAYS || request.disposition == OPEN_ALWAYS;
    if (tells) SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return enter(std::move(file));
  }
  return fail(ERROR_SHARING_VIOLATION);
}

}  // namespace

HANDLE CreateFileW(const wchar_t* path, DWORD access, DWORD sharing, void* /*security*/,
                   DWORD disposition, DWORD attributes, HANDLE /*model*/) {
  if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) {
    return fail(ERROR_INVALID_PARAMETER);
  }
  std::string native;
  if (!ToNative(path ? path : L"", native)) return INVALID_HANDLE_VALUE;
  struct stat status {};
  const bool is_folder = Calls().stat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  const bool folders_too = (attributes & FILE_FLAG_BACKUP_SEMANTICS) != 0;
  if (is_folder && folders_too && disposition != CREATE_NEW) return openFolder(native, access);
  if (mayCreate(disposition) && IsRefusedForCreation(native)) return fail(ERROR_DIRECTORY);
  const bool writes = (access & writing_bits) != 0 || truncates(disposition);
  const int flags = (writes ? O_RDWR : O_RDONLY) | O_NOCTTY | O_NONBLOCK;
  return openFile({std::move(native), access, sharing, disposition, attributes, flags});
}

Descriptor TakeDescriptor(HANDLE handle) {
  Table& all = table();
  const std::lock_guard guard(all.lock);
  const auto found = all.open.find(reinterpret_cast<std::uintptr_t>(handle));
  if (found == all.open.end()) return {};
  Descriptor descriptor = std::move(found->second);
  all.open.erase(found);
  return descriptor;
}

BOOL CloseHandle(HANDLE handle) {
  Descriptor descriptor = TakeDescriptor(handle);
  if (!descriptor) {
    SetLastError(ERROR_INVALID_HANDLE);
    return 0;
  }
  if (descriptor.close()) return 1;
  SetLastError(ErrorFromErrno(errno));
  return 0;
}

}  // namespace qel::sys
