// Renaming without replacing, within a file system and to another one.
#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/names_internal.h"

namespace qel::sys {

namespace {

// Undoes a half-done step and keeps the errno that tells why.
int failAfterRemoving(const std::string& native) {
  const LastErrorKeeper keeper;
  Calls().unlink(native.c_str());
  return -1;
}

bool exists(const std::string& native) {
  struct stat status {};
  return Calls().lstat(native.c_str(), &status) == 0;
}

bool isFolder(const std::string& native) {
  struct stat status {};
  return Calls().lstat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

int renameByLink(const std::string& from, const std::string& to) {
  if (Calls().link(from.c_str(), to.c_str()) != 0) return -1;
  if (Calls().unlink(from.c_str()) != 0) return failAfterRemoving(to);
  return 0;
}

int renameFolderOntoPlaceholder(const std::string& from, const std::string& to) {
  if (Calls().mkdir(to.c_str(), 0700) != 0) return -1;
  if (Calls().rename(from.c_str(), to.c_str()) == 0) return 0;
  const LastErrorKeeper keeper;
  Calls().rmdir(to.c_str());
  return -1;
}

int renameFileOntoPlaceholder(const std::string& from, const std::string& to) {
  if (!Descriptor::open(to, O_WRONLY | O_CREAT | O_EXCL, 0600)) return -1;
  if (Calls().rename(from.c_str(), to.c_str()) == 0) return 0;
  return failAfterRemoving(to);
}

bool syncOpen(int descriptor) {
  return UntilNotInterrupted([&] { return Calls().fsync(descriptor); }) == 0;
}

bool meansUnsupported(int error) {
  return error == EINVAL || error == ENOSYS || error == ENOTSUP || error == EPERM ||
         error == EMLINK;
}

// --- another file system -----------------------------------------------------------------------

constexpr std::size_t piece = std::size_t{1} << 20;

bool copyByHand(int from, int to) {
  std::string buffer(piece, '\0');
  while (true) {
    const ssize_t got = ReadUpTo(from, buffer.data(), buffer.size());
    if (got <= 0) return got == 0;
    if (!WriteAll(to, buffer.data(), static_cast<std::size_t>(got))) return false;
  }
}

// In the kernel as far as it goes; what it cannot do, or gives up, is copied by hand from there.
bool copyContent(int from, int to) {
  ssize_t copied = 1;
  while (copied > 0 || (copied < 0 && errno == EINTR)) {
    copied = Calls().copy_file_range(from, nullptr, to, nullptr, size_t{1} << 30, 0);
  }
  return copyByHand(from, to);
}

void copyExtendedAttributes(int from, int to) {
  std::string names(65536, '\0');
  const ssize_t size = Calls().flistxattr(from, names.data(), names.size());
  names.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
  std::string value(65536, '\0');
  for (std::size_t at = 0; at < names.size();) {
    const std::string name(names.c_str() + at);
    at += name.size() + 1;
    if (!name.starts_with("user.")) continue;
    const ssize_t length = Calls().fgetxattr(from, name.c_str(), value.data(), value.size());
    if (length < 0) continue;
    Calls().fsetxattr(to, name.c_str(), value.data(), static_cast<std::size_t>(length), 0);
  }
}

// As far as the other file system holds them and this user may set them. The mode comes last: it
// may forbid the rest. A copy belongs to who made it.
void copyMetadata(int from, const struct stat& status, bool is_move, int to) {
  copyExtendedAttributes(from, to);
  if (is_move) Calls().fchown(to, status.st_uid, status.st_gid);
  Calls().fchmod(to, status.st_mode & (is_move ? 07777 : 0777));
  const std::array<timespec, 2> times = {status.st_atim, status.st_mtim};
  Calls().futimens(to, times.data());
}

// Opens a new file beside `native` for writing; `name` is what it is called.
Descriptor openPassing(const std::string& native, std::string& name) {
  for (unsigned i = 0; i < 10000; ++i) {
    std::array<char, 48> passing;
    std::snprintf(passing.data(), passing.size(), "/.moving-%d-%u", static_cast<int>(getpid()), i);
    name = ParentOf(native) + passing.data();
    Descriptor file = Descriptor::open(name, O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (file || errno != EEXIST) return file;
  }
  return {};
}

// A move is synced, and does not replace.
int copyUnderName(const Descriptor& source, const struct stat& status, bool is_move,
                  const std::string& to) {
  std::string passing;
  Descriptor target = openPassing(to, passing);
  if (!target) return -1;
  bool sound = copyContent(source.get(), target.get());
  if (sound) copyMetadata(source.get(), status, is_move, target.get());
  if (is_move) sound = sound && syncOpen(target.get());
  sound = sound && target.close();
  if (sound) {
    sound =
        (is_move ? RenameNoReplace(passing, to) : Calls().rename(passing.c_str(), to.c_str())) == 0;
  }
  return sound ? 0 : failAfterRemoving(passing);
}

int moveAcross(const std::string& from, const std::string& to) {
  const Descriptor source = Descriptor::open(from, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  struct stat status {};
  if (!source || Calls().fstat(source.get(), &status) != 0) return -1;
  if (!S_ISREG(status.st_mode)) {
    errno = EXDEV;
    return -1;
  }
  if (exists(to)) {
    errno = EEXIST;
    return -1;
  }
  if (copyUnderName(source, status, true, to) != 0) return -1;
  if (SyncFolder(ParentOf(to)) != 0) return failAfterRemoving(to);
  if (Calls().unlink(from.c_str()) != 0) return failAfterRemoving(to);
  return 0;
}

}  // namespace

int RenameNoReplace(const std::string& from, const std::string& to) {
  if (Calls().rename_noreplace(from.c_str(), to.c_str()) == 0) return 0;
  if (!meansUnsupported(errno)) return -1;
  if (isFolder(from)) return renameFolderOntoPlaceholder(from, to);
  if (renameByLink(from, to) == 0) return 0;
  return meansUnsupported(errno) ? renameFileOntoPlaceholder(from, to) : -1;
}

int MoveNoReplace(const std::string& from, const std::string& to) {
  if (RenameNoReplace(from, to) == 0) return 0;
  return errno == EXDEV ? moveAcross(from, to) : -1;
}

int CopyReplacing(const std::string& from, const std::string& to) {
  const Descriptor source = Descriptor::open(from, O_RDONLY | O_NONBLOCK);
  struct stat status {};
  if (!source || Calls().fstat(source.get(), &status) != 0) return -1;
  if (S_ISREG(status.st_mode)) return copyUnderName(source, status, false, to);
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return -1;
}

int SyncFolder(const std::string& folder) {
  const Descriptor opened = Descriptor::open(folder, O_RDONLY | O_DIRECTORY);
  if (!opened) return -1;
  return syncOpen(opened.get()) || errno == EINVAL || errno == ENOTSUP ? 0 : -1;
}

}  // namespace qel::sys
