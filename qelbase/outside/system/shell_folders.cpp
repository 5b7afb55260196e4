#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/shell.h"

namespace qel::sys {

namespace {

constexpr int create_bit = 0x8000;
constexpr int number_bits = 0xFF;

enum class Kind { fixed, home, config, data, user };

// `name` is the folder itself, the tail behind the base folder, or the variable of a user folder,
// whose usual name in the home folder is `usual`.
struct Row {
  int number;
  Kind kind;
  const char* name;
  const char* usual;
};

constexpr std::array folder_table = {
    Row{0, Kind::user, "XDG_DESKTOP_DIR", "Desktop"},
    Row{2, Kind::data, "/applications", ""},
    Row{5, Kind::user, "XDG_DOCUMENTS_DIR", "Documents"},
    Row{13, Kind::user, "XDG_MUSIC_DIR", "Music"},
    Row{14, Kind::user, "XDG_VIDEOS_DIR", "Videos"},
    Row{16, Kind::user, "XDG_DESKTOP_DIR", "Desktop"},
    Row{23, Kind::fixed, "/usr/local/share/applications", ""},
    Row{26, Kind::config, "", ""},
    Row{28, Kind::data, "", ""},
    Row{35, Kind::fixed, "/var/lib", ""},
    Row{36, Kind::fixed, "/usr", ""},
    Row{37, Kind::fixed, "/usr", ""},
    Row{38, Kind::fixed, "/opt", ""},
    Row{39, Kind::user, "XDG_PICTURES_DIR", "Pictures"},
    Row{40, Kind::home, "", ""},
    Row{43, Kind::fixed, "/opt/common", ""},
    Row{46, Kind::fixed, "/usr/local/share/documents", ""},
};

std::string configFolder() {
  return BaseFolder("XDG_CONFIG_HOME", "/.config");
}

// The text of `NAME="..."` or `NAME="$HOME/..."`, with its escapes resolved; empty if it is
// neither.
std::string quotedFolder(std::string_view text) {
  if (!text.starts_with('"')) return {};
  text.remove_prefix(1);
  std::string folder;
  constexpr std::string_view home_mark = "$HOME";
  if (text.starts_with(home_mark)) {
    folder = HomeFolder();
    text.remove_prefix(home_mark.size());
  }
  for (std::size_t i = 0; i < text.size() && text[i] != '"'; ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    folder += text[i];
  }
  return folder.starts_with('/') ? folder : std::string();
}

std::string readUserFolders() {
  constexpr std::size_t largest = 65536;
  const Descriptor file = Descriptor::open(configFolder() + "/user-dirs.dirs", O_RDONLY);
  std::string text(largest, '\0');
  const ssize_t size = file ? ReadUpTo(file.get(), text.data(), text.size()) : 0;
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  return text;
}

std::string listedFolder(std::string_view variable) {
  const std::string content = readUserFolders();
  std::string_view rest = content;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    if (!line.starts_with(variable)) continue;
    line.remove_prefix(variable.size());
    if (line.starts_with('=')) return quotedFolder(line.substr(1));
  }
  return {};
}

std::string userFolder(const Row& row) {
  std::string set = NativeEnvironmentValue(row.name);
  if (set.starts_with('/')) return set;
  const std::string listed = listedFolder(row.name);
  return listed.empty() ? HomeFolder() + "/" + row.usual : listed;
}

std::string folderOf(const Row& row) {
  switch (row.kind) {
    case Kind::fixed:
      return row.name;
    case Kind::home:
      return HomeFolder();
    case Kind::config:
      return configFolder();
    case Kind::data:
      return BaseFolder("XDG_DATA_HOME", "/.local/share") + row.name;
    case Kind::user:
      return userFolder(row);
  }
  return {};
}

LONG failure(DWORD code) {
  constexpr DWORD system_failure = 0x80070000;
  return static_cast<LONG>(system_failure | code);
}

DWORD assureFolder(const std::wstring& path, bool create) {
  if (create) {
    const int code = SHCreateDirectoryExW(nullptr, path.c_str(), nullptr);
    if (code != 0 && code != static_cast<int>(ERROR_ALREADY_EXISTS))
      return static_cast<DWORD>(code);
  }
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return GetLastError();
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? ERROR_SUCCESS : ERROR_DIRECTORY;
}

}  // namespace

LONG SHGetFolderPathW(HWND /*owner*/, int number, HANDLE /*token*/, DWORD /*flags*/,
                      wchar_t* path) {
  *path = L'\0';
  const auto* row = std::ranges::find(folder_table, number & number_bits, &Row::number);
  const bool known = row != folder_table.end() && (number & ~(number_bits | create_bit)) == 0;
  if (!known) return failure(ERROR_INVALID_PARAMETER);
  std::wstring folder = FromNative(folderOf(*row));
  if (folder.size() > 3 && folder.ends_with(L'\\')) folder.pop_back();
  if (folder.size() >= MAX_PATH) return failure(ERROR_FILENAME_EXCED_RANGE);
  const LastErrorKeeper keeper;
  const DWORD code = assureFolder(folder, (number & create_bit) != 0);
  if (code != ERROR_SUCCESS) return failure(code);
  HandOut(folder, path, MAX_PATH);
  return 0;
}

}  // namespace qel::sys
