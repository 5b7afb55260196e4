// Saving keys to files, and putting files in their place.

#include <cerrno>
#include <cstdio>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/registry_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

using namespace registry;

namespace {

// What is kept of a key when it moves from one hive to another.
struct KeyRow {
  std::string name, class_name;
  std::int64_t created, subkeys_changed, values_changed, security_changed;
  std::optional<std::string> security;
};

constexpr const char* kKeyColumns =
    "SELECT name, class, created, subkeys_changed, values_changed, security_changed, "
    "security FROM keys WHERE id = ?";

std::optional<KeyRow> readKey(Connection& from, KeyId id) {
  Statement find = from.prepare(kKeyColumns);
  if (!find.bind(id).step()) return std::nullopt;
  KeyRow row{std::string(find.bytes(0)),
             std::string(find.bytes(1)),
             find.number(2),
             find.number(3),
             find.number(4),
             find.number(5),
             std::nullopt};
  if (!find.isNull(6)) row.security = find.bytes(6);
  return row;
}

// Names are folded anew: a foreign file may say anything.
std::string folded(std::string_view name) {
  return NameBytes(FoldCase(NameText(name)));
}

void copyValues(Connection& from, KeyId source, Connection& to, KeyId target) {
  Statement find =
      from.prepare(HasValueTimes(from)
                       ? "SELECT name, type, data, changed FROM entries WHERE key = ? ORDER BY id"
                       : "SELECT name, type, data, 0 FROM entries WHERE key = ? ORDER BY id");
  find.bind(source);
  while (find.step()) {
    const std::string name = NameBytes(find.name(0));
    const std::string key = folded(name);
    to.prepare(
          "INSERT OR IGNORE INTO entries(key, folded, name, type, data, changed) "
          "VALUES(?, ?, ?, ?, ?, ?)")
        .bind(target)
        .bind(std::string_view(key))
        .bind(std::string_view(name))
        .bind(find.number(1))
        .bindBytes(find.bytes(2))
        .bind(find.number(3))
        .run();
  }
}

void setKey(Connection& to, KeyId id, const KeyRow& row) {
  Statement update = to.prepare(
      "UPDATE keys SET class = ?, created = ?, subkeys_changed = ?, values_changed = ?, "
      "security_changed = ?, security = ? WHERE id = ?");
  update.bind(std::string_view(row.class_name))
      .bind(row.created)
      .bind(row.subkeys_changed)
      .bind(row.values_changed)
      .bind(row.security_changed);
  row.security ? update.bindBytes(*row.security) : update.bindNull();
  update.bind(id).run();
}

// Content and subkeys of one key into another, level by level.
DWORD copyTree(Connection& from, KeyId source, Connection& to, KeyId target, std::size_t depth) {
  if (depth == kDeepest) return ERROR_BADDB;
  const std::optional<KeyRow> top = readKey(from, source);
  if (!top) return depth == 0 ? ERROR_KEY_DELETED : ERROR_SUCCESS;
  setKey(to, target, *top);
  copyValues(from, source, to, target);
  std::vector<KeyId> children;
  {
    Statement find = from.prepare(
        "SELECT id FROM keys WHERE parent = ? AND until_boot IS NULL AND file IS NULL "
        "ORDER BY folded");
    find.bind(source);
    while (find.step()) children.push_back(find.number(0));
  }
  for (const KeyId child : children) {
    const std::optional<KeyRow> row = readKey(from, child);
    if (!row) continue;
    std::vector<std::wstring> names;
    const std::wstring name = NameText(row->name);
    if (SplitPath(name, names) != ERROR_SUCCESS || names != std::vector{name}) continue;
    KeyId made = 0;
    {
      const std::string bytes = NameBytes(name), key = folded(bytes);
      Statement insert = to.prepare(
          "INSERT OR IGNORE INTO keys(parent, folded, name) VALUES(?, ?, ?) RETURNING id");
      insert.bind(target).bind(std::string_view(key)).bind(std::string_view(bytes));
      if (insert.step()) made = insert.number(0);
      insert.run();
    }
    if (made == 0) continue;
    if (const DWORD code = copyTree(from, child, to, made, depth + 1)) return code;
  }
  return ERROR_SUCCESS;
}

DWORD nativeName(const wchar_t* file, std::string& native, bool create) {
  const bool reaches = create ? ToNativeForCreation(file, native) : ToNative(file, native);
  if (!reaches) return GetLastError();
  if (native.empty() || native[0] != '/') {
    char folder[4096];
    if (!Calls().getcwd(folder, sizeof folder)) return ErrorFromErrno(errno);
    native = std::string(folder) + "/" + native;
  }
  return ERROR_SUCCESS;
}

void removeHive(const std::string& file) {
  const LastErrorKeeper keeper;
  for (const char* suffix : {"", "-wal", "-shm", "-seq", "-journal"}) {
    Calls().unlink((file + suffix).c_str());
  }
}

// A hive of its own for the time of a copy, without log when it is closed.
DWORD copyToFile(Place place, const std::string& file) {
  removeHive(file);
  Hive copy({.file = file});
  DWORD code = copy.write([&](Connection& to, std::uint64_t) {
    DWORD result = ERROR_SUCCESS;
    const DWORD read = place.hive->read([&](Connection& from) {
      DeleteTree(to, kRoot, true);
      result = copyTree(from, place.id, to, kRoot, 0);
      return result;
    });
    return read != ERROR_SUCCESS ? read : result;
  });
  if (code == ERROR_SUCCESS) code = copy.makeSingleFile();
  copy.close();
  for (const char* suffix : {"-wal", "-shm", "-seq"}) Calls().unlink((file + suffix).c_str());
  if (code != ERROR_SUCCESS) Calls().unlink(file.c_str());
  return code;
}

DWORD saveKey(Place place, const std::string& file) {
  struct stat status {};
  if (Calls().lstat(file.c_str(), &status) == 0) return ERROR_ALREADY_EXISTS;
  if (Calls().stat(ParentOf(file).c_str(), &status) != 0) return ERROR_PATH_NOT_FOUND;
  const std::string part = file + "~" + std::to_string(getpid());
  if (const DWORD code = copyToFile(place, part)) return code;
  if (RenameNoReplace(part, file) == 0) {
    return SyncFolder(ParentOf(file)) == 0 ? ERROR_SUCCESS : ErrorFromErrno(errno);
  }
  const DWORD code = ErrorFromErrno(errno);
  Calls().unlink(part.c_str());
  return code;
}

// Reads a saved file without writing beside it.
DWORD readFile(const std::string& file, const std::function<DWORD(Connection&)>& run) {
  struct stat status {};
  if (Calls().stat(file.c_str(), &status) != 0) return ErrorOfPath(errno, file);
  if (!S_ISREG(status.st_mode)) return ERROR_NOT_REGISTRY_FILE;
  try {
    Connection connection(file, SQLITE_OPEN_READONLY);
    {
      Statement id = connection.prepare("PRAGMA application_id");
      if (!id.step() || id.number(0) != kApplicationId) return ERROR_NOT_REGISTRY_FILE;
    }
    return run(connection);
  } catch (const DatabaseFailure& failure) {
    return failure.code();
  }
}

DWORD parentOfHives(HKEY handle, Place& out) {
  OpenKey key;
  if (!FindKey(handle, key)) return ERROR_INVALID_HANDLE;
  out = key.place;
  const bool right = !key.is_classes && out.hive->isMachine() && out.id <= kUsersRoot;
  return right ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

bool isKeyName(const wchar_t* name) {
  const std::wstring_view text = name ? name : L"";
  return !text.empty() && text.size() <= kLongestKeyName && text.find(L'\\') == text.npos;
}

}  // namespace

LSTATUS RegSaveKeyW(HKEY handle, const wchar_t* file, const SECURITY_ATTRIBUTES*) {
  if (!file) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  if (!FindKey(handle, key)) return ERROR_INVALID_HANDLE;
  std::string native;
  if (const DWORD code = nativeName(file, native, true)) return LSTATUS(code);
  Layers layers;
  if (const DWORD code = FindLayers(key, layers)) return LSTATUS(code);
  if (layers.count == 0) return ERROR_FILE_NOT_FOUND;
  return LSTATUS(saveKey(layers.places[0], native));
}

LSTATUS RegRestoreKeyW(HKEY handle, const wchar_t* file, DWORD flags) {
  if (!file) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  if (const DWORD code = KeyOfHandle(handle, KEY_SET_VALUE, key)) return LSTATUS(code);
  std::string native;
  if (const DWORD code = nativeName(file, native, false)) return LSTATUS(code);
  Place place;
  if (const DWORD code = FindWritten(key, place)) return LSTATUS(code);
  if (!(flags & REG_FORCE_RESTORE) && IsOpenBelow(place)) return ERROR_ACCESS_DENIED;
  return LSTATUS(readFile(native, [&](Connection& from) {
    return place.hive->write([&](Connection& to, std::uint64_t) {
      if (const DWORD code = CheckKey(to, place.id)) return code;
      DeleteTree(to, place.id, true);
      return copyTree(from, kRoot, to, place.id, 0);
    });
  }));
}

LSTATUS RegLoadKeyW(HKEY handle, const wchar_t* subkey, const wchar_t* file) {
  if (!isKeyName(subkey) || !file) return ERROR_INVALID_PARAMETER;
  Place parent;
  if (const DWORD code = parentOfHives(handle, parent)) return LSTATUS(code);
  std::string native;
  if (const DWORD code = nativeName(file, native, true)) return LSTATUS(code);
  if (!parent.hive->isWritable()) return ERROR_ACCESS_DENIED;
  if (const DWORD code = HiveOfFile(native).open()) return LSTATUS(code);
  const std::string name = NameBytes(subkey);
  const std::string folded = NameBytes(FoldCase(subkey));
  return LSTATUS(parent.hive->write([&](Connection& connection, std::uint64_t stamp) -> DWORD {
    connection
        .prepare(
            "INSERT INTO keys(parent, folded, name, created, file) VALUES(?, ?, ?, ?, ?) "
            "ON CONFLICT DO NOTHING")
        .bind(parent.id)
        .bind(std::string_view(folded))
        .bind(std::string_view(name))
        .bind(stamp)
        .bind(std::string_view(native))
        .run();
    if (connection.changes() != 1) return ERROR_ACCESS_DENIED;
    connection.prepare("UPDATE keys SET subkeys_changed = ? WHERE id = ?")
        .bind(stamp)
        .bind(parent.id)
        .run();
    return ERROR_SUCCESS;
  }));
}

LSTATUS RegUnLoadKeyW(HKEY handle, const wchar_t* subkey) {
  if (!isKeyName(subkey)) return ERROR_INVALID_PARAMETER;
  Place parent;
  if (const DWORD code = parentOfHives(handle, parent)) return LSTATUS(code);
  const std::string folded = NameBytes(FoldCase(subkey));
  std::string file;
  const DWORD code = parent.hive->write([&](Connection& connection, std::uint64_t stamp) -> DWORD {
    Statement remove = connection.prepare(
        "DELETE FROM keys WHERE parent = ? AND folded = ? AND file IS NOT NULL RETURNING file");
    if (!remove.bind(parent.id).bind(std::string_view(folded)).step()) {
      return ERROR_INVALID_PARAMETER;
    }
    file = remove.bytes(0);
    remove.run();
    connection.prepare("UPDATE keys SET subkeys_changed = ? WHERE id = ?")
        .bind(stamp)
        .bind(parent.id)
        .run();
    return ERROR_SUCCESS;
  });
  if (code == ERROR_SUCCESS) HiveOfFile(file).close();
  return LSTATUS(code);
}

LSTATUS RegReplaceKeyW(HKEY handle, const wchar_t* subkey, const wchar_t* new_file,
                       const wchar_t* old_file) {
  if (!new_file || !old_file) return ERROR_INVALID_PARAMETER;
  OpenKey key;
  if (const DWORD code = KeyOfHandle(handle, 0, key)) return LSTATUS(code);
  if (key.is_classes) return ERROR_INVALID_PARAMETER;
  std::string from, to;
  if (const DWORD code = nativeName(new_file, from, false)) return LSTATUS(code);
  if (const DWORD code = nativeName(old_file, to, true)) return LSTATUS(code);
  Place place;
  if (const DWORD code = FindPlace(key.place, subkey ? subkey : L"", place)) return LSTATUS(code);
  if (place.id != kRoot || place.hive->file().empty()) return ERROR_INVALID_PARAMETER;
  if (!place.hive->isWritable()) return ERROR_ACCESS_DENIED;
  return LSTATUS(readFile(from, [&](Connection&) -> DWORD {
    Hive source({.file = from});
    const std::string next = place.hive->file() + "-next";
    const std::string part = next + "~";
    DWORD code = saveKey(place, to);
    if (code == ERROR_SUCCESS) code = copyToFile({&source, kRoot}, part);
    if (code != ERROR_SUCCESS) return code;
    return Calls().rename(part.c_str(), next.c_str()) == 0 ? ERROR_SUCCESS : ErrorFromErrno(errno);
  }));
}

}  // namespace qel::sys
