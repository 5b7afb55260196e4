// The members of MDirectoryWithMap that create and remove folders.
#include <algorithm>
#include <cerrno>
#include <cwchar>
#include <optional>
#include <string>
#include <vector>

#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/folder_walk_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/paths/MDirectoryWithMap.h"
#include "qelbase/paths/folder_functions.h"
#include "qelbase/paths/map_file_internal.h"

namespace {

using namespace qel::sys;
using qel::paths::Joined;
using qel::paths::MapRecord;

constexpr std::uint32_t kNoFreeName = 4;
constexpr std::uint32_t kWriteFault = 29;
constexpr std::uint32_t kCancelled = 1223;
constexpr std::uint32_t kCancels = 0xFFFFFFFF;  // the asker's answer
constexpr const wchar_t* kPattern = L"map";

std::uint32_t LastErrorOr1() {
  return std::max<std::uint32_t>(GetLastError(), 1);
}

bool Exists(const CStringW& path) {
  const LastErrorKeeper keeper;
  std::string native;
  struct stat status {};
  return ToNative(path.GetString(), native) && Calls().stat(native.c_str(), &status) == 0;
}

// False where the path leads to the folder itself or out of it: an empty name, points, blanks.
bool LiesBelow(const CStringW& path, const CStringW& folder) {
  std::string native, above;
  if (!ToNative(path.GetString(), native)) return true;  // reaches nothing at all
  if (!ToNative(folder.IsEmpty() ? L"." : folder.GetString(), above)) return true;
  if (above == ".") return native != "." && native != ".." && !native.starts_with("../");
  if (above != "/") above += '/';
  return native.size() > above.size() && native.starts_with(above);
}

// A separator would make it the name of something in another folder.
bool HasSeparator(const CStringW& name) {
  return name.FindOneOf(L"\\/") >= 0;
}

CStringW Candidate(CStringW pattern, DWORD number) {
  wchar_t digits[16];
  std::swprintf(digits, std::size(digits), L"%x", number);
  if (pattern.Replace(L"*", digits) == 0) pattern += digits;
  return pattern;
}

// --- removing a tree ---------------------------------------------------------------------------

class TreeRemoval {
 public:
  TreeRemoval(const CStringW& path, IDirectoryRemoveAsker* asker) : m_root(path), m_asker(asker) {}

  // 0 or the code, and then path() is where it stopped.
  std::uint32_t Run() {
    std::string native;
    m_path = m_root;
    if (m_root.IsEmpty()) return ERROR_INVALID_PARAMETER;
    if (!ToNative(m_root.GetString(), native)) return LastErrorOr1();
    struct stat status {};
    if (Calls().lstat(native.c_str(), &status) != 0) return ErrorOfPath(errno, native);
    if (S_ISLNK(status.st_mode)) return RemoveLink();
    const std::uint32_t code = LookThrough(native);
    return code != 0 ? code : RemoveAll(native);
  }
  const CStringW& path() const { return m_path; }

 private:
  std::uint32_t RemoveLink() {
    if (const std::uint32_t code = Ask(true); code != 0) return code;
    return RemoveDirectoryW(m_root) || DeleteFileW(m_root) ? 0 : LastErrorOr1();
  }

  // Finds what can't be entered before anything is removed.
  std::uint32_t LookThrough(const std::string& native) {
    FolderWalk walk;
    if (const int error = walk.begin(native); error != 0) return ErrorOfPath(error, native);
    for (FolderWalk::Step step = walk.next(); step != FolderWalk::ended; step = walk.next()) {
      if (step == FolderWalk::failed && walk.error() != ENOENT) return Stopped(walk);
    }
    return 0;
  }

  std::uint32_t RemoveAll(const std::string& native) {
    FolderWalk walk;
    const std::uint32_t code =
        RemoveTree(native, walk, [&](bool is_folder) { return RemoveOne(walk, is_folder); });
    if (code != 0) SetPath(walk);
    return code;
  }

  std::uint32_t RemoveOne(const FolderWalk& walk, bool is_folder) {
    const std::uint32_t answer = m_asker ? AskAt(walk, is_folder) : 0;
    if (answer != 0) return answer;
    const std::uint32_t code = is_folder
                                   ? RemoveFolderIn(walk.folder(), walk.name())
                                   : RemoveFileIn(walk.folder(), walk.name(), walk.isRegular());
    return code == ERROR_FILE_NOT_FOUND ? 0 : code;  // somebody else was faster
  }

  void SetPath(const FolderWalk& walk) {
    m_path = m_root;
    if (!walk.path().empty()) AssurePathAppend(m_path, walk.path().c_str());
  }

  std::uint32_t Stopped(const FolderWalk& walk) {
    SetPath(walk);
    return std::max<std::uint32_t>(ErrorFromErrno(walk.error()), 1);
  }

  std::uint32_t AskAt(const FolderWalk& walk, bool is_folder) {
    SetPath(walk);
    return Ask(is_folder);
  }

  std::uint32_t Ask(bool is_folder) {
    if (!m_asker) return 0;
    const CStringW name = m_path.Mid(m_path.ReverseFind(L'\\') + 1);
    const std::uint32_t answer = m_asker->AskRemove(is_folder, m_path, name);
    return answer == kCancels ? kCancelled : answer;
  }

  CStringW m_root;
  CStringW m_path;
  IDirectoryRemoveAsker* m_asker;
};

CStringW WithoutClosing(CStringW path) {
  path.TrimRight(L'\\');
  return path;
}

}  // namespace

// --- finding and creating ----------------------------------------------------------------------

// Makes the records of the folder's map file known that the map does not hold.
std::uint32_t MDirectoryWithMap::_KnowRecords(const CStringW& folder) {
  if (m_map_folder == folder) return 0;
  std::vector<MapRecord> records;
  const std::uint32_t code =
      qel::paths::ReadMapFile(Joined(folder, mg_map_file_name_default), records);
  if (code != 0) return code;
  m_known.clear();
  for (const MapRecord& record : records) {
    auto* entry = m_known.findFolded(record.mapped);
    Names::valueOf(entry ? entry : m_known.add(record.mapped)) = record.name;
  }
  m_map_folder = folder;
  return 0;
}

// The name on the disk behind a record that the map does not hold, if its folder is there.
bool MDirectoryWithMap::_FindKnown(const CStringW& folder, const CStringW& name,
                                   CStringW& on_disk) {
  auto* entry = m_known.findFolded(name.GetString());
  if (!entry || !Exists(Joined(folder, Names::valueOf(entry)))) return false;
  on_disk = Names::valueOf(entry);
  m_known.remove(entry);
  return true;
}

std::uint32_t MDirectoryWithMap::_GenerateName(const CStringW& folder, const wchar_t* pattern,
                                               CStringW& result) {
  const DWORD start = GetTickCount();
  DWORD number = start + 1;
  // What this object took just now need not be tried again.
  constexpr DWORD recent = 0x1000000;
  if (m_last_number - start < recent) number = m_last_number + 1;
  for (; number != start; ++number) {
    result = Candidate(pattern, number);
    if (GetNameIndex(result) != 0xFFFFFFFF || Exists(Joined(folder, result))) continue;
    m_last_number = number;
    return 0;
  }
  return kNoFreeName;
}

// Appends the record and makes the folder; both or none.
std::uint32_t MDirectoryWithMap::_CreateUnder(const CStringW& folder, const MapRecord& record) {
  const CStringW path = Joined(folder, record.name.c_str());
  qel::paths::AppendedRecord appended(Joined(folder, mg_map_file_name_default));
  if (!appended.isOpen()) {
    if (!CreateDirectoryW(path, nullptr)) return LastErrorOr1();
    RemoveDirectoryW(path);
    return kWriteFault;
  }
  if (const std::uint32_t code = appended.write(record); code != 0) return code;
  if (!CreateDirectoryW(path, nullptr)) return LastErrorOr1();
  const std::uint32_t code = appended.keep();
  if (code != 0) RemoveDirectoryW(path);
  return code;
}

// Puts the record in the place of one for the same mapped name, and makes the folder; both or none.
std::uint32_t MDirectoryWithMap::_ReplaceStale(const CStringW& folder, const MapRecord& record) {
  const CStringW file = Joined(folder, mg_map_file_name_default);
  const CStringW path = Joined(folder, record.name.c_str());
  std::vector<MapRecord> records;
  if (const std::uint32_t code = qel::paths::ReadMapFile(file, records); code != 0) return code;
  std::string bytes;
  const CStringW mapped = record.mapped;
  for (const MapRecord& old : records) {
    if (mapped.CompareNoCase(old.mapped.c_str()) != 0) bytes += qel::paths::MapFileText(old);
  }
  const std::uint32_t code =
      qel::paths::ReplaceMapFile(file, bytes + qel::paths::MapFileText(record));
  if (code != 0) return code;
  if (CreateDirectoryW(path, nullptr)) return 0;
  const LastErrorKeeper keeper;
  const std::uint32_t failure = LastErrorOr1();
  if (qel::paths::ReplaceMapFile(file, bytes) != 0) m_map_folder.Empty();
  return failure;
}

// The file system refuses the name: makes the folder under a generated one.
std::uint32_t MDirectoryWithMap::_CreateMapped(const CStringW& folder, const CStringW& name,
                                               CStringW& on_disk) {
  std::uint32_t code = ERROR_ALREADY_EXISTS;
  while (code == ERROR_ALREADY_EXISTS) {  // another process may take a name that was free
    code = _GenerateName(folder, kPattern, on_disk);
    if (code != 0) return code;
    const MapRecord record{on_disk.GetString(), name.GetString()};
    if (!qel::paths::IsRecordable(record)) return ERROR_INVALID_NAME;
    auto* stale = m_known.findFolded(name.GetString());
    code = stale ? _ReplaceStale(folder, record) : _CreateUnder(folder, record);
    if (stale && code == 0) m_known.remove(stale);
  }
  return code;
}

void MDirectoryWithMap::_Enter(const CStringW& on_disk, const CStringW& name, bool is_new) {
  const std::int64_t found = _Position(on_disk);
  const bool is_listed = found >= 0 && (!is_new || m_names[found] == on_disk);
  if (!is_listed) _AddName(on_disk, ENTRY_FOLDER);
  if (on_disk.CompareNoCase(name) == 0) return;
  _SetRecord(on_disk, name);
  WORD& flags = m_flags[_Position(on_disk)];
  flags = static_cast<WORD>(flags | ENTRY_MAPPED);
}

std::uint32_t MDirectoryWithMap::CheckCreateFolder(CStringW& folder, const wchar_t* wanted,
                                                   bool read) {
  const CStringW name = wanted;
  CStringW parent = folder;
  AssurePath(parent);
  const bool is_plain = !HasSeparator(name);
  if (name.IsEmpty() || (is_plain && !LiesBelow(Joined(parent, name), parent))) {
    return name.IsEmpty() ? ERROR_INVALID_PARAMETER : ERROR_INVALID_NAME;
  }
  std::uint32_t code = 0;
  if (read) code = Read(parent, READ_MAP | READ_FOLDERS, nullptr, nullptr, nullptr);
  if (code == 0) code = _KnowRecords(parent);
  if (code != 0) return code;

  CStringW on_disk = name;
  const bool is_mapped = MappedName2Name(name, &on_disk) || _FindKnown(parent, name, on_disk);
  const bool may_exist = is_mapped || GetNameIndex(name) != 0xFFFFFFFF;
  bool is_new = false;
  if (!may_exist || !Exists(Joined(parent, on_disk))) {
    const bool may_bear = is_mapped || is_plain;
    is_new = may_bear && CreateDirectoryW(Joined(parent, on_disk), nullptr);
    if (!is_new && !(may_bear && Exists(Joined(parent, on_disk)))) {
      code = _CreateMapped(parent, name, on_disk);
      if (code != 0) return code;
      is_new = true;
    }
  }
  _Enter(on_disk, name, is_new);
  folder = Joined(parent, on_disk);
  AssurePath(folder);
  return 0;
}

// --- removing ----------------------------------------------------------------------------------

std::uint32_t MDirectoryWithMap::DeleteFolder(CStringW& folder, const wchar_t* wanted, bool read,
                                              IDirectoryRemoveAsker* asker) {
  const CStringW name = wanted;
  AssurePath(folder);
  const CStringW parent = folder;
  std::uint32_t code = 0;
  if (read) {
    code = Read(parent, READ_MAP | READ_FOLDERS | READ_FILES, nullptr, nullptr, nullptr);
  }
  if (code != 0) return code;

  const CStringW map_file = Joined(parent, mg_map_file_name_default);
  CStringW on_disk = name;
  const bool is_mapped = MappedName2Name(name, &on_disk);
  if (is_mapped && !Exists(map_file)) {
    folder = map_file;
    return ERROR_ACCESS_DENIED;
  }
  AssurePathAppend(folder, on_disk);
  if (on_disk.IsEmpty() || !LiesBelow(folder, parent)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return ERROR_INVALID_PARAMETER;
  }
  TreeRemoval removal(WithoutClosing(folder), asker);
  code = removal.Run();
  if (code != 0) {
    folder = removal.path();
    SetLastError(code);
    return code;
  }
  if (!is_mapped) return 0;
  RemoveName(on_disk);
  code = WriteMapFile(parent, mg_map_file_name_default);
  if (code != 0) folder = map_file;
  return code;
}
