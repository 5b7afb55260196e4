#include "qelbase/outside/system/profile.h"

#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/profile_internal.h"

namespace qel::sys {

namespace {

constexpr off_t largest_file = off_t{64} << 20;

// 0, or -1 and errno.
int readWhole(const Descriptor& file, std::string& bytes) {
  struct stat status {};
  if (Calls().fstat(file.get(), &status) != 0) return -1;
  if (S_ISDIR(status.st_mode) || status.st_size > largest_file) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EFBIG;
    return -1;
  }
  bytes.resize(static_cast<std::size_t>(status.st_size));
  const ssize_t size = ReadUpTo(file.get(), bytes.data(), bytes.size());
  if (size < 0) return -1;
  bytes.resize(static_cast<std::size_t>(size));
  return 0;
}

bool nativeFile(const wchar_t* file, bool make_folder, std::string& native) {
  const std::wstring_view name(file ? file : L"");
  if (!ToNative(name, native)) return false;
  if (name.find_first_of(L"\\/:") != name.npos) return true;
  const std::string folder = BaseFolder("XDG_CONFIG_HOME", "/.config");
  if (make_folder) (void)Calls().mkdir(folder.c_str(), 0700);
  native = folder + "/" + native;
  return true;
}

bool isStillNamed(const Descriptor& file, const std::string& native) {
  struct stat open {};
  struct stat named {};
  return Calls().fstat(file.get(), &open) == 0 && Calls().stat(native.c_str(), &named) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

// The file itself where a link names it, so that the link stays.
std::string resolved(const std::string& native) {
  std::string path(PATH_MAX, '\0');
  return Calls().realpath(native.c_str(), path.data()) ? std::string(path.c_str()) : native;
}

// Opens the file and waits until no other writer has it. Empty, and errno.
Descriptor openForWriter(const std::string& native, bool may_create) {
  const int flags = O_RDWR | O_NOCTTY | O_NONBLOCK | (may_create ? O_CREAT : 0);
  while (true) {
    Descriptor file = Descriptor::open(native, flags);
    if (!file) return file;
    while (Calls().flock(file.get(), LOCK_EX) != 0) {
      if (errno != EINTR) return {};
    }
    if (isStillNamed(file, native)) return file;
  }
}

// Puts the bytes in the file's place; the caller is its only writer.
int replaceFile(const std::string& native, const struct stat& old, const std::string& bytes) {
  const std::string passing = native + ".new";
  Descriptor file = Descriptor::open(passing, O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (!file) return -1;
  const bool is_whole = WriteAll(file.get(), bytes.data(), bytes.size()) &&
                        Calls().fchmod(file.get(), old.st_mode & 07777) == 0 &&
                        Calls().fsync(file.get()) == 0 && file.close() &&
                        Calls().rename(passing.c_str(), native.c_str()) == 0;
  if (is_whole) return SyncFolder(ParentOf(native));
  const LastErrorKeeper keeper;
  Calls().unlink(passing.c_str());
  return -1;
}

int fail(int error) {
  errno = error;
  return -1;
}

int editFile(const std::string& native, const ProfileEdit& edit) {
  const Descriptor file = openForWriter(native, edit.entry && edit.value);
  if (!file) return errno == ENOENT && !edit.value ? 0 : -1;
  struct stat status {};
  std::string bytes;
  if (Calls().fstat(file.get(), &status) != 0 || readWhole(file, bytes) != 0) return -1;
  if ((status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) return fail(EACCES);
  ProfileText profile = DecodeProfile(bytes);
  profile.text = EditedProfile(profile.text, edit);
  const std::string edited = EncodeProfile(profile);
  return edited == bytes ? 0 : replaceFile(native, status, edited);
}

bool holdsNone(std::wstring_view text, const wchar_t* characters) {
  return text.find_first_of(characters) == text.npos;
}

bool isSound(const ProfileEdit& edit) {
  constexpr const wchar_t* ends = L"\r\n";
  if (!holdsNone(edit.section, L"]\r\n")) return false;
  if (edit.value && !holdsNone(*edit.value, ends)) return false;
  if (!edit.entry) return true;
  const std::size_t first = edit.entry->find_first_not_of(L" \t");
  return first != edit.entry->npos && holdsNone(*edit.entry, L"=\r\n") &&
         (*edit.entry)[first] != L'[' && (*edit.entry)[first] != L';';
}

}  // namespace

std::optional<std::wstring> ProfileValueIn(const std::string& native, std::wstring_view section,
                                           std::wstring_view entry) {
  const Descriptor file = Descriptor::open(native, O_RDONLY | O_NOCTTY | O_NONBLOCK);
  std::string bytes;
  if (!file || readWhole(file, bytes) != 0) return std::nullopt;
  return FindProfileValue(DecodeProfile(std::move(bytes)).text, section, entry);
}

std::optional<std::wstring> ProfileValue(const wchar_t* file, std::wstring_view section,
                                         std::wstring_view entry) {
  std::string native;
  if (!nativeFile(file, false, native)) return std::nullopt;
  return ProfileValueIn(native, section, entry);
}

DWORD GetPrivateProfileStringW(const wchar_t* section, const wchar_t* entry,
                               const wchar_t* otherwise, wchar_t* buffer, DWORD size,
                               const wchar_t* file) {
  const LastErrorKeeper keeper;
  std::optional<std::wstring> value;
  if (section && entry) value = ProfileValue(file, section, entry);
  const std::wstring text = value.value_or(otherwise ? otherwise : L"");
  if (!buffer || size == 0) return 0;
  return HandOut(std::wstring_view(text).substr(0, size - 1), buffer, size);
}

UINT GetPrivateProfileIntW(const wchar_t* section, const wchar_t* entry, int otherwise,
                           const wchar_t* file) {
  const LastErrorKeeper keeper;
  std::optional<std::wstring> value;
  if (section && entry) value = ProfileValue(file, section, entry);
  return static_cast<UINT>(value && !value->empty() ? ProfileNumber(*value) : otherwise);
}

BOOL WritePrivateProfileStringW(const wchar_t* section, const wchar_t* entry, const wchar_t* text,
                                const wchar_t* file) {
  ProfileEdit edit{section ? section : L"", {}, {}};
  if (entry) edit.entry = entry;
  if (entry && text) edit.value = text;
  std::string native;
  if (!section || !isSound(edit)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  if (!nativeFile(file, edit.value.has_value(), native)) return 0;
  if (editFile(resolved(native), edit) == 0) return 1;
  SetLastError(errno == EFBIG ? ERROR_FILE_TOO_LARGE : ErrorOfPath(errno, native));
  return 0;
}

}  // namespace qel::sys
