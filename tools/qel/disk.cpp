#include "disk.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/syscalls_internal.h"

#include "session.h"

namespace qel::tool {
namespace {

constexpr std::size_t kPieceSize = 262144;

std::string ErrnoText(int error) {
  return std::strerror(error);
}

// The folder that holds the last component, and that component.
std::pair<std::string, std::string> SplitLast(const std::string& native) {
  const std::size_t slash = native.rfind('/');
  if (slash == std::string::npos) return {".", native};
  return {slash == 0 ? "/" : native.substr(0, slash), native.substr(slash + 1)};
}

std::string TargetOf(const std::string& native) {
  std::unique_ptr<char, decltype(&std::free)> target(::realpath(native.c_str(), nullptr),
                                                     &std::free);
  if (!target) throw Trouble(native, ErrnoText(errno));
  return target.get();
}

void RequireRegular(const std::string& native, const struct stat& status) {
  if (S_ISDIR(status.st_mode)) throw Trouble(native, ErrnoText(EISDIR));
  if (!S_ISREG(status.st_mode)) throw Trouble(native, "no regular file");
}

bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// A descriptor that closes itself.
class Descriptor {
 public:
  explicit Descriptor(int fd) : m_fd(fd) {}
  ~Descriptor() {
    if (m_fd > STDIN_FILENO) sys::Calls().close(m_fd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return m_fd; }

 private:
  int m_fd;
};

int OpenRaw(const std::string& native, int flags, mode_t mode = 0) {
  int fd = -1;
  do {
    fd = sys::Calls().open(native.c_str(), flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

}  // namespace

std::string CodeText(std::uint32_t code) {
  switch (code) {
    case sys::ERROR_FILE_NOT_FOUND:
      return ErrnoText(ENOENT);
    case sys::ERROR_PATH_NOT_FOUND:
      return "no such folder";
    case sys::ERROR_TOO_MANY_OPEN_FILES:
      return ErrnoText(EMFILE);
    case sys::ERROR_ACCESS_DENIED:
      return ErrnoText(EACCES);
    case sys::ERROR_SHARING_VIOLATION:
      return "another program has it open";
    case sys::ERROR_DISK_FULL:
      return ErrnoText(ENOSPC);
    case sys::ERROR_INVALID_NAME:
      return "no possible file name";
    case sys::ERROR_IO_DEVICE:
      return ErrnoText(EIO);
    default:
      return "system error " + std::to_string(code);
  }
}

std::wstring LibraryName(const std::string& native) {
  return sys::FromNative(std::filesystem::absolute(native).native());
}

bool Exists(const std::string& native) {
  struct stat status {};
  return sys::Calls().lstat(native.c_str(), &status) == 0;
}

bool IsRegularFile(const std::string& native) {
  struct stat status {};
  return sys::Calls().stat(native.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool IsOwn(const std::string& native) {
  struct stat status {};
  return sys::Calls().lstat(native.c_str(), &status) == 0 && status.st_uid == ::geteuid();
}

std::unique_ptr<MFile> OpenForReading(const std::string& native) {
  struct stat status {};
  if (sys::Calls().stat(native.c_str(), &status) != 0) throw Trouble(native, ErrnoText(errno));
  RequireRegular(native, status);
  auto file = std::make_unique<MFile>();
  if (!file->OPEN_READ(LibraryName(native).c_str())) {
    throw Trouble(native, CodeText(sys::GetLastError()));
  }
  return file;
}

bool ForEachPiece(const std::string& native, const std::function<bool(std::string_view)>& part) {
  const Descriptor input(native == "-" ? STDIN_FILENO : OpenRaw(native, O_RDONLY));
  if (input.get() < 0) throw Trouble(native, ErrnoText(errno));
  std::string piece(kPieceSize, '\0');
  for (;;) {
    const ssize_t size = sys::Calls().read(input.get(), piece.data(), piece.size());
    if (size == 0) return true;
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) throw Trouble(native, ErrnoText(errno));
    if (!part({piece.data(), static_cast<std::size_t>(size)})) return false;
  }
}

void CreateFile(const std::string& native, const std::function<void(MFile&)>& write) {
  const Descriptor made(OpenRaw(native, O_RDWR | O_CREAT | O_EXCL, 0666));
  if (made.get() < 0) throw Trouble(native, ErrnoText(errno));
  try {
    MFile file;
    if (!file.OPEN_UPDATE(LibraryName(native).c_str())) {
      throw Trouble(native, CodeText(sys::GetLastError()));
    }
    write(file);
    file.CLOSE();
    ThrowOnError(file, native);
  } catch (const Trouble&) {
    sys::Calls().unlink(native.c_str());
    throw;
  }
}

void MakeFolder(const std::string& native) {
  if (sys::Calls().mkdir(native.c_str(), 0777) == 0) return;
  const int error = errno;
  struct stat status {};
  const bool there = error == EEXIST && sys::Calls().stat(native.c_str(), &status) == 0;
  if (!there || !S_ISDIR(status.st_mode)) throw Trouble(native, ErrnoText(error));
}

void ThrowOnError(const MFile& file, const std::string& native) {
  if (file.GET_RESULT() != 0) throw Trouble(native, CodeText(file.GET_RESULT()));
}

NewFile NewFile::Replacing(const std::string& native) {
  NewFile made(native, true);
  made.m_target = TargetOf(native);
  if (sys::Calls().stat(made.m_target.c_str(), &made.m_old) != 0) made.Fail(ErrnoText(errno));
  RequireRegular(native, made.m_old);
  if (sys::Calls().faccessat(AT_FDCWD, made.m_target.c_str(), W_OK, AT_EACCESS) != 0) {
    made.Fail(ErrnoText(errno));
  }
  made.Open();
  return made;
}

NewFile NewFile::Creating(const std::string& native) {
  NewFile made(native, false);
  made.m_target = native;
  if (Exists(native)) made.Fail(ErrnoText(EEXIST));
  made.Open();
  return made;
}

NewFile::NewFile(std::string native, bool replaces)
    : m_native(std::move(native)), m_replaces(replaces) {}

NewFile::NewFile(NewFile&& other) noexcept
    : m_native(std::move(other.m_native)),
      m_target(std::move(other.m_target)),
      m_passing(std::exchange(other.m_passing, {})),
      m_old(other.m_old),
      m_replaces(other.m_replaces),
      m_fd(std::exchange(other.m_fd, -1)),
      m_file(std::move(other.m_file)) {}

NewFile::~NewFile() {
  if (m_file) m_file->CLOSE();
  if (m_fd >= 0) sys::Calls().close(m_fd);
  if (!m_passing.empty()) sys::Calls().unlink(m_passing.c_str());
}

void NewFile::Fail(const std::string& what) const {
  throw Trouble(m_native, what);
}

// The passing name is short enough for any file system, and begins with a dot.
void NewFile::Open() {
  const auto [folder, base] = SplitLast(m_target);
  const std::string stem =
      folder + "/." + base.substr(0, 200) + ".qel" + std::to_string(::getpid()) + "-";
  const mode_t mode = m_replaces ? 0600 : 0666;
  for (int i = 0; m_fd < 0; ++i) {
    const std::string name = stem + std::to_string(i);
    m_fd = OpenRaw(name, O_RDWR | O_CREAT | O_EXCL, mode);
    if (m_fd >= 0) m_passing = name;
    if (m_fd < 0 && (errno != EEXIST || i == 100)) {
      Fail("cannot make a copy beside it: " + ErrnoText(errno));
    }
  }
  m_file = std::make_unique<MFile>();
  if (!m_file->OPEN_UPDATE(LibraryName(m_passing).c_str())) {
    Fail("cannot make a copy beside it: " + CodeText(sys::GetLastError()));
  }
}

void NewFile::Commit() {
  if (m_replaces) KeepModeAndOwner();
  const bool written = m_file->SYNC();  // mode and owner with it
  m_file->CLOSE();
  ThrowOnError(*m_file, m_native);
  if (!written) Fail("the copy beside it cannot be written");
  if (m_replaces) CheckUnchanged();
  const auto rename = m_replaces ? sys::Calls().rename : sys::Calls().rename_noreplace;
  if (rename(m_passing.c_str(), m_target.c_str()) != 0) Fail(ErrnoText(errno));
  m_passing.clear();
  SyncFolder();
}

void NewFile::KeepModeAndOwner() {
  struct stat now {};
  if (sys::Calls().fstat(m_fd, &now) != 0) Fail(ErrnoText(errno));
  const bool same = now.st_uid == m_old.st_uid && now.st_gid == m_old.st_gid;
  if (!same && sys::Calls().fchown(m_fd, m_old.st_uid, m_old.st_gid) != 0) {
    Fail("cannot keep its owner: " + ErrnoText(errno));
  }
  if (sys::Calls().fchmod(m_fd, m_old.st_mode & 07777) != 0) {
    Fail("cannot keep its mode: " + ErrnoText(errno));
  }
}

void NewFile::CheckUnchanged() {
  struct stat now {};
  if (sys::Calls().stat(m_target.c_str(), &now) != 0) Fail(ErrnoText(errno));
  if (!SameFile(m_old, now)) Fail("another program has changed it meanwhile");
}

void NewFile::SyncFolder() {
  const Descriptor folder(OpenRaw(SplitLast(m_target).first, O_RDONLY | O_DIRECTORY));
  if (folder.get() < 0 || sys::Calls().fsync(folder.get()) != 0) {
    Fail("replaced, but the folder cannot be synced: " + ErrnoText(errno));
  }
}

}  // namespace qel::tool
