#include <sys/file.h>

#include <array>
#include <cerrno>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/tagged/storage_internal.h"

using qel::sys::Calls;

namespace qel::tagged {

namespace {

bool isSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool moveDurably(const std::wstring& from, const std::wstring& to) {
  if (sys::_wrename(from.c_str(), to.c_str()) != 0) return false;
  if (SyncFolderOf(to) && SyncFolderOf(from)) return true;
  const sys::LastErrorKeeper keeper;
  (void)sys::_wrename(to.c_str(), from.c_str());
  return false;
}

// Moves the file, which no sweep must find, to a free name in the folder (null: the temporary one).
bool moveInto(const wchar_t* folder, const std::wstring& file, MFileName& temporary) {
  temporary.SET_TEMP_NAME(folder, nullptr, nullptr, 65535, 0);
  return moveDurably(file, temporary.GET());
}

bool isSwept(const MFileName& name) {
  return (sys::GetFileAttributesW(name.GET()) & sys::FILE_ATTRIBUTE_ARCHIVE) != 0;
}

}  // namespace

std::wstring FollowLinks(const std::wstring& name) {
  constexpr int most_links = 40;
  std::string native;
  if (!sys::ToNative(name, native)) return name;
  for (int links = 0; links < most_links; ++links) {
    std::array<char, 4096> target;
    const ssize_t size = Calls().readlink(native.c_str(), target.data(), target.size());
    if (size <= 0) return links == 0 ? name : sys::FromNative(native);
    const std::string text(target.data(), static_cast<std::size_t>(size));
    native = text.front() == '/' ? text : sys::ParentOf(native).append("/").append(text);
  }
  return name;
}

bool SyncFolderOf(const std::wstring& name) {
  std::string native;
  if (!sys::ToNative(name, native)) return false;
  const std::string folder = sys::ParentOf(native);
  if (sys::UntilNotInterrupted([&] { return sys::SyncFolder(folder); }) == 0) return true;
  if (errno == EACCES) return true;
  sys::SetLastError(sys::ErrorFromErrno(errno));
  return false;
}

bool IsSameEntry(const std::wstring& a, const std::wstring& b) {
  std::string native_a;
  std::string native_b;
  if (!sys::ToNative(a, native_a) || !sys::ToNative(b, native_b)) return false;
  if (native_a == native_b) return true;
  struct stat facts_a = {};
  struct stat facts_b = {};
  // A second hard link has the same number, but is an entry of its own.
  return Calls().lstat(native_a.c_str(), &facts_a) == 0 &&
         Calls().lstat(native_b.c_str(), &facts_b) == 0 && isSameFile(facts_a, facts_b) &&
         facts_a.st_nlink == 1;
}

bool MoveOnlyCopy(const std::wstring& file, MFileName& temporary) {
  const DWORD attributes = sys::GetFileAttributesW(file.c_str());
  if (attributes == sys::INVALID_FILE_ATTRIBUTES) return false;
  sys::SetFileAttributesW(file.c_str(), attributes & ~sys::FILE_ATTRIBUTE_ARCHIVE);
  bool moved = moveInto(nullptr, file, temporary);
  if (moved && isSwept(temporary)) {
    moved = moveDurably(temporary.GET(), file);
    const MFileName name(file.c_str(), false);
    moved = moved && moveInto(name.GET_DRIVE_DIR_PARTS(true), file, temporary);
  }
  if (!moved) sys::SetFileAttributesW(file.c_str(), attributes);
  return moved;
}

void CreateLike(const std::wstring& model, const std::wstring& name) {
  std::string native_model;
  std::string native;
  struct stat facts = {};
  if (!sys::ToNative(model, native_model) || !sys::ToNativeForCreation(name, native)) return;
  if (Calls().stat(native_model.c_str(), &facts) != 0) return;
  const auto file = sys::Descriptor::open(native, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
  if (!file) return;
  constexpr auto same_owner = static_cast<uid_t>(-1);
  const bool has_group = Calls().fchown(file.get(), facts.st_uid, facts.st_gid) == 0 ||
                         Calls().fchown(file.get(), same_owner, facts.st_gid) == 0;
  const mode_t rights = has_group ? 0777 : 0707;  // what the old group might, another must not
  Calls().fchmod(file.get(), (facts.st_mode & rights) | S_IWUSR);
}

FileLock::FileLock(const std::wstring& name, Kind kind) {
  std::string native;
  if (!sys::ToNative(name, native)) return;
  m_file = sys::Descriptor::open(native, O_RDONLY | O_NONBLOCK);
  if (!m_file) return;
  const int operation = LOCK_EX | (kind == Try ? LOCK_NB : 0);
  if (sys::UntilNotInterrupted([&] { return Calls().flock(m_file.get(), operation); }) != 0) {
    m_is_taken = errno == EWOULDBLOCK;
    return;
  }
  // Who had the lock until now may have put another file under the name.
  struct stat mine = {};
  struct stat named = {};
  m_is_taken = Calls().fstat(m_file.get(), &mine) != 0 ||
               Calls().stat(native.c_str(), &named) != 0 || !isSameFile(mine, named);
}

}  // namespace qel::tagged
