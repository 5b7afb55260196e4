#include "qelbase/outside/system/listings.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/listings_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

namespace {

// --- reading -----------------------------------------------------------------------------------

// The kind of an entry, with the question to the system that some file systems and every link need.
// False if the entry is gone.
bool kindOf(int folder, const dirent& found, bool follow, Entry& entry) {
  entry.is_link = found.d_type == DT_LNK;
  entry.is_folder = found.d_type == DT_DIR;
  entry.is_regular = found.d_type == DT_REG;
  if (found.d_type != DT_UNKNOWN && !(entry.is_link && follow)) return true;
  struct stat status {};
  if (Calls().fstatat(folder, found.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno != ENOENT;
  }
  entry.is_link = S_ISLNK(status.st_mode);
  entry.is_regular = S_ISREG(status.st_mode);
  if (entry.is_link && follow) Calls().fstatat(folder, found.d_name, &status, 0);
  entry.is_folder = S_ISDIR(status.st_mode);
  return true;
}

// Reads the whole folder, whose stream is closed. 0 or errno.
int readEntries(DIR* stream, int folder, bool follow, std::wstring_view pattern,
                EntryList& entries) {
  const bool all = pattern == L"*" || pattern == L"*.*";
  errno = 0;
  while (const dirent* found = Calls().readdir(stream)) {
    Entry entry{found->d_name, false, false};
    const bool wanted = !IsDots(entry.native) && (all || MatchesPattern(entry.name(), pattern));
    if (wanted && kindOf(folder, *found, follow, entry)) entries.add(entry);
    errno = 0;
  }
  const int error = errno;
  Calls().closedir(stream);
  if (error == 0) entries.sort();
  return error;
}

void addDots(std::wstring_view pattern, EntryList& entries) {
  if (MatchesPattern(L"..", pattern)) entries.addFirst({"..", true, false});
  if (MatchesPattern(L".", pattern)) entries.addFirst({".", true, false});
}

// --- one listing -------------------------------------------------------------------------------

struct Target {
  std::wstring folder;  // with its separator; empty for the current one
  std::wstring name;
  bool has_pattern;
};

Target targetOf(std::wstring_view path) {
  constexpr std::size_t long_form = 4;  // of the question mark in `\\?\`
  const std::size_t start = path.find_last_of(L"\\/:") + 1;
  const std::wstring_view name = path.substr(std::min(start, path.size()));
  const bool has_pattern = name.find_first_of(L"*?") != name.npos && !path.empty() &&
                           !(start < long_form && path.substr(0, 2) == L"\\\\");
  return {std::wstring(path.substr(0, start)), std::wstring(name), has_pattern};
}

DWORD nativeFolder(const Target& target, std::string& native) {
  return ToNative(target.folder.empty() ? L"." : target.folder, native) ? ERROR_SUCCESS
                                                                        : GetLastError();
}

DWORD listMatching(const Target& target, EntryList& entries) {
  std::string native;
  if (const DWORD code = nativeFolder(target, native); code != 0) return code;
  DIR* stream = Calls().opendir(native.c_str());
  if (!stream) return ErrorOfPath(errno, native + "/.");
  const int error = readEntries(stream, dirfd(stream), true, target.name, entries);
  if (error != 0) return ErrorFromErrno(error);
  if (native != "/") addDots(target.name, entries);
  return entries.empty() ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
}

DWORD listOne(std::wstring_view path, EntryList& entries) {
  std::string native;
  if (path.empty()) return ERROR_PATH_NOT_FOUND;
  if (IsSeparator(path.back())) return ERROR_FILE_NOT_FOUND;
  if (!ToNative(path, native)) return GetLastError();
  struct stat status {};
  if (Calls().lstat(native.c_str(), &status) != 0) return ErrorOfPath(errno, native);
  const bool is_link = S_ISLNK(status.st_mode);
  if (is_link) Calls().stat(native.c_str(), &status);
  entries.add({NameOf(native), S_ISDIR(status.st_mode), is_link});
  return ERROR_SUCCESS;
}

struct Listing {
  std::string folder;  // native
  EntryList entries;
  std::size_t next = 0;
};

std::string nativeOf(const Listing& listing, const Entry& entry) {
  return (listing.folder == "/" ? "/" : listing.folder + "/").append(entry.native);
}

FILETIME fileTimeOf(const timespec& time) {
  constexpr std::int64_t seconds_to_1970 = 11'644'473'600;
  const std::int64_t ticks = (time.tv_sec + seconds_to_1970) * 10'000'000 + time.tv_nsec / 100;
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

struct Found {
  struct stat status;
  DWORD attributes;
  std::wstring name;
};

// The next entry that is still there; false at the end.
bool takeNext(Listing& listing, Found& found) {
  while (listing.next < listing.entries.size()) {
    const Entry entry = listing.entries[listing.next++];
    const std::string native = nativeOf(listing, entry);
    found.status = {};
    const bool there = Calls().stat(native.c_str(), &found.status) == 0 ||
                       Calls().lstat(native.c_str(), &found.status) == 0;
    if (!there) continue;
    found.attributes =
        IsDots(entry.native) ? FILE_ATTRIBUTE_DIRECTORY : AttributesOf(native, found.status);
    found.name = entry.name();
    return true;
  }
  return false;
}

// --- handles -----------------------------------------------------------------------------------

struct Table {
  std::mutex lock;
  std::map<std::intptr_t, std::unique_ptr<Listing>> open;
  std::intptr_t last = 0;
};

Table& table() {
  static Lasting<Table> all;
  return *all;
}

std::intptr_t enter(std::unique_ptr<Listing> listing) {
  constexpr std::intptr_t step = 4;
  Table& all = table();
  const std::lock_guard guard(all.lock);
  all.open.emplace(all.last += step, std::move(listing));
  return all.last;
}

Listing* listingOf(std::intptr_t handle) {
  Table& all = table();
  const std::lock_guard guard(all.lock);
  const auto found = all.open.find(handle);
  return found == all.open.end() ? nullptr : found->second.get();
}

// The handle and the first entry, or -1 and the last error.
std::intptr_t begin(const wchar_t* path, Found& found) {
  const std::wstring_view text(path ? path : L"");
  auto listing = std::make_unique<Listing>();
  DWORD code = ListEntries(text, listing->entries);
  if (code == 0) code = nativeFolder(targetOf(text), listing->folder);
  if (code == 0 && !takeNext(*listing, found)) code = ERROR_FILE_NOT_FOUND;
  if (code == 0) return enter(std::move(listing));
  SetLastError(code);
  return -1;
}

bool advance(std::intptr_t handle, Found& found) {
  Listing* listing = listingOf(handle);
  if (listing && takeNext(*listing, found)) return true;
  SetLastError(listing ? ERROR_NO_MORE_FILES : ERROR_INVALID_HANDLE);
  return false;
}

bool end(std::intptr_t handle) {
  Table& all = table();
  const std::lock_guard guard(all.lock);
  if (all.open.erase(handle) != 0) return true;
  SetLastError(ERROR_INVALID_HANDLE);
  return false;
}

template <std::size_t Size>
void copyName(const std::wstring& name, wchar_t (&out)[Size]) {
  const std::size_t length = std::min(name.size(), Size - 1);
  std::copy_n(name.begin(), length, out);
  out[length] = L'\0';
}

void fill(const Found& found, WIN32_FIND_DATAW& data) {
  data = {};
  data.dwFileAttributes = found.attributes;
  data.ftCreationTime = fileTimeOf(found.status.st_ctim);
  data.ftLastAccessTime = fileTimeOf(found.status.st_atim);
  data.ftLastWriteTime = fileTimeOf(found.status.st_mtim);
  const bool has_size = (found.attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
  const auto size = static_cast<std::uint64_t>(has_size ? found.status.st_size : 0);
  data.nFileSizeLow = static_cast<DWORD>(size);
  data.nFileSizeHigh = static_cast<DWORD>(size >> 32);
  copyName(found.name, data.cFileName);
}

void fill(const Found& found, _wfinddata64i32_t& data) {
  constexpr DWORD told = _A_RDONLY | _A_HIDDEN | _A_SYSTEM | _A_SUBDIR | _A_ARCH;
  data = {};
  data.attrib = found.attributes & told;
  data.time_create = found.status.st_ctim.tv_sec;
  data.time_access = found.status.st_atim.tv_sec;
  data.time_write = found.status.st_mtim.tv_sec;
  const bool has_size = (found.attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
  data.size = has_size ? static_cast<ULONG>(found.status.st_size) : 0;
  copyName(found.name, data.name);
}

int failListing() {
  const DWORD code = GetLastError();
  const bool absent =
      code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND || code == ERROR_NO_MORE_FILES;
  errno = absent ? ENOENT : EINVAL;
  return -1;
}

}  // namespace

DWORD ListEntries(std::wstring_view path, EntryList& entries) {
  entries.clear();
  const Target target = targetOf(path);
  const DWORD code = target.has_pattern ? listMatching(target, entries) : listOne(path, entries);
  if (code != 0) entries.clear();
  return code;
}

int ListOpenFolder(int folder, EntryList& entries) {
  entries.clear();
  Descriptor again = Descriptor::openIn(folder, ".", O_RDONLY | O_DIRECTORY);
  if (!again) return errno;
  DIR* stream = Calls().fdopendir(again.get());
  if (!stream) return errno;
  again.release();
  const int error = readEntries(stream, folder, false, L"*", entries);
  if (error != 0) entries.clear();
  return error;
}

HANDLE FindFirstFileW(const wchar_t* path, WIN32_FIND_DATAW* data) {
  Found found;
  const std::intptr_t listing = begin(path, found);
  if (listing == -1) return INVALID_HANDLE_VALUE;
  fill(found, *data);
  return reinterpret_cast<HANDLE>(listing);
}

BOOL FindNextFileW(HANDLE listing, WIN32_FIND_DATAW* data) {
  Found found;
  if (!advance(reinterpret_cast<std::intptr_t>(listing), found)) return 0;
  fill(found, *data);
  return 1;
}

BOOL FindClose(HANDLE listing) {
  return end(reinterpret_cast<std::intptr_t>(listing)) ? 1 : 0;
}

std::intptr_t _wfindfirst64i32(const wchar_t* path, _wfinddata64i32_t* data) {
  Found found;
  const std::intptr_t listing = begin(path, found);
  if (listing == -1) return failListing();
  fill(found, *data);
  return listing;
}

int _wfindnext64i32(std::intptr_t listing, _wfinddata64i32_t* data) {
  Found found;
  if (!advance(listing, found)) return failListing();
  fill(found, *data);
  return 0;
}

int _findclose(std::intptr_t listing) {
  return end(listing) ? 0 : failListing();
}

}  // namespace qel::sys
