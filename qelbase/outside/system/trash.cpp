#include <pwd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <ctime>
#include <optional>
#include <string_view>

#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/trash_internal.h"

namespace qel::sys {

namespace {

struct Trash {
  std::string folder;
  std::string top;  // what the stored paths are relative to; empty for the user's own trash can
};

// A file that goes to the trash, with the links above it resolved.
struct Item {
  std::string folder;
  std::string name;
  dev_t device = 0;

  std::string path() const { return (folder == "/" ? "" : folder) + "/" + name; }
};

bool describeFolder(const std::string& native, struct stat& status) {
  return Calls().stat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool makeFolder(const std::string& native) {
  struct stat status {};
  if (Calls().mkdir(native.c_str(), 0700) == 0) return true;
  return errno == EEXIST && describeFolder(native, status);
}

bool makeFolderChain(const std::string& native) {
  if (makeFolder(native)) return true;
  return errno == ENOENT && makeFolderChain(ParentOf(native)) && makeFolder(native);
}

std::string homeFolder() {
  std::string home = NativeEnvironmentValue("HOME");
  if (!home.empty()) return home;
  std::array<char, 4096> texts;
  passwd entry{};
  passwd* found = nullptr;
  getpwuid_r(getuid(), &entry, texts.data(), texts.size(), &found);
  return found ? found->pw_dir : "";
}

// The user's own trash can, whether it exists by now or not; empty if the user has no home.
std::string trashOfUser() {
  std::string data = NativeEnvironmentValue("XDG_DATA_HOME");
  if (!data.starts_with('/')) data = homeFolder() + "/.local/share";
  return data.starts_with('/') ? data + "/Trash" : "";
}

// The file system on which `native` lies, or would if it were made. False and errno if that cannot
// be told.
bool deviceOf(std::string native, dev_t& device) {
  struct stat status {};
  while (Calls().stat(native.c_str(), &status) != 0) {
    const bool may_climb = errno == ENOENT || errno == ENOTDIR || errno == EACCES;
    if (!may_climb || native == "/") return false;
    native = ParentOf(native);
  }
  device = status.st_dev;
  return true;
}

// A folder that another user could have put there, or led elsewhere, is not trusted.
bool isOwnFolder(const std::string& native) {
  struct stat status {};
  return Calls().lstat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == getuid();
}

bool isSharedTrash(const std::string& native) {
  struct stat status {};
  return Calls().lstat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         (status.st_mode & S_ISVTX) != 0;
}

// Empty and errno if it cannot be told.
std::string topOfFileSystem(const Item& item) {
  std::string top = item.folder;
  struct stat status {};
  while (top != "/") {
    const std::string parent = ParentOf(top);
    if (Calls().stat(parent.c_str(), &status) != 0) return {};
    if (status.st_dev != item.device) break;
    top = parent;
  }
  return top;
}

std::optional<Trash> trashOfFileSystem(const Item& item) {
  const std::string top = topOfFileSystem(item);
  if (top.empty()) return std::nullopt;
  const std::string prefix = top == "/" ? "/" : top + "/";
  const std::string user = std::to_string(getuid());
  const std::string shared = prefix + ".Trash";
  if (isSharedTrash(shared) && makeFolder(shared + "/" + user) &&
      isOwnFolder(shared + "/" + user)) {
    return Trash{shared + "/" + user, prefix};
  }
  const std::string own = prefix + ".Trash-" + user;
  if (!makeFolder(own)) return std::nullopt;
  if (isOwnFolder(own)) return Trash{own, prefix};
  errno = EACCES;
  return std::nullopt;
}

std::string percentEncoded(std::string_view text) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       std::string_view("-_.~/").find(c) != std::string_view::npos;
    if (plain) {
      encoded += c;
    } else {
      encoded += {'%', digits[byte >> 4], digits[byte & 15]};
    }
  }
  return encoded;
}

std::string infoText(const Trash& trash, const Item& item) {
  std::array<char, 32> date;
  const std::tm now = LocalTime();
  std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &now);
  return "[Trash Info]\nPath=" + percentEncoded(item.path().substr(trash.top.size())) +
         "\nDeletionDate=" + date.data() + "\n";
}

// The n-th name to try in the trash can: `name`, `name.2`... short enough for the longer name of
// its description, and cut between characters.
std::string nameInTrash(std::string name, int n) {
  constexpr std::size_t longest = 230;
  if (name.size() > longest) {
    std::size_t end = longest;
    while (end > 0 && (name[end] & 0xC0) == 0x80) --end;
    name.resize(end);
  }
  return n == 1 ? name : name + "." + std::to_string(n);
}

bool writeInfo(const std::string& info, const std::string& text) {
  Descriptor file = Descriptor::open(info, O_WRONLY | O_CREAT | O_EXCL, 0600);
  if (!file) return false;
  if (WriteAll(file.get(), text.data(), text.size()) && file.close()) return true;
  const LastErrorKeeper keeper;
  Calls().unlink(info.c_str());
  return false;
}

// The description is what reserves a name, so it is written first.
bool moveAs(const Trash& trash, const Item& item, const std::string& name) {
  const std::string info = trash.folder + "/info/" + name + ".trashinfo";
  if (!writeInfo(info, infoText(trash, item))) return false;
  if (RenameNoReplace(item.path(), trash.folder + "/files/" + name) == 0) return true;
  const LastErrorKeeper keeper;
  Calls().unlink(info.c_str());
  return false;
}

bool moveInto(const Trash& trash, const Item& item) {
  if (!makeFolder(trash.folder + "/files") || !makeFolder(trash.folder + "/info")) return false;
  for (int n = 1; n < INT_MAX; ++n) {
    if (moveAs(trash, item, nameInTrash(item.name, n))) return true;
    if (errno != EEXIST) return false;
  }
  return false;
}

bool locate(const std::string& native, Item& item) {
  struct stat status {};
  std::array<char, PATH_MAX> folder;
  if (Calls().lstat(native.c_str(), &status) != 0) return false;
  if (!Calls().realpath(ParentOf(native).c_str(), folder.data())) return false;
  item = {folder.data(), NameOf(native), 0};
  if (!describeFolder(item.folder, status)) return false;
  item.device = status.st_dev;
  return true;
}

}  // namespace

int MoveToTrash(const std::string& native) {
  Item item;
  if (!locate(native, item)) return -1;
  const std::string own = trashOfUser();
  dev_t device = 0;
  if (!own.empty() && !deviceOf(own, device)) return -1;
  if (!own.empty() && device == item.device) {
    if (makeFolderChain(own) && moveInto({own, ""}, item)) return 0;
    if (errno != EXDEV) return -1;
  }
  const std::optional<Trash> mounted = trashOfFileSystem(item);
  return mounted && moveInto(*mounted, item) ? 0 : -1;
}

}  // namespace qel::sys
