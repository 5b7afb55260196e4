// Keys and values as rows.

#include <algorithm>
#include <fstream>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/registry_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys::registry {

namespace {

std::string folded(std::wstring_view name) {
  return NameBytes(FoldCase(name));
}

// What rests on this start of the machine; a volatile key of another one is no more.
const std::string& bootId() {
  static Lasting<std::string> kept([] {
    std::ifstream file("/proc/sys/kernel/random/boot_id");
    std::string id;
    std::getline(file, id);
    return id;
  });
  return *kept;
}

struct Row {
  KeyId id = 0;
  std::string file;  // of the hive that hangs in here
};

bool findRow(Connection& connection, KeyId parent, std::wstring_view name, Row& row) {
  const std::string key = folded(name);
  Statement find = connection.prepare("SELECT id, file FROM keys WHERE parent = ? AND folded = ?");
  if (!find.bind(parent).bind(std::string_view(key)).step()) return false;
  row = {find.number(0), std::string(find.bytes(1))};
  return true;
}

const Hive::Mount* findMount(Place place, std::wstring_view name) {
  for (const Hive::Mount& mount : place.hive->mounts()) {
    if (mount.parent == place.id && CompareNoCase(mount.name, name) == 0) return &mount;
  }
  return nullptr;
}

// One name further, in the hive of `place`; then `file` tells whether the way leaves it.
DWORD stepDown(Connection& connection, KeyId id, std::wstring_view name, Row& row) {
  if (findRow(connection, id, name, row)) return ERROR_SUCCESS;
  const DWORD code = CheckKey(connection, id);
  return code == ERROR_SUCCESS ? ERROR_FILE_NOT_FOUND : code;
}

DWORD walk(Place from, const std::vector<std::wstring>& names, Place& out, std::size_t& done) {
  Place place = from;
  for (done = 0; done < names.size();) {
    if (const Hive::Mount* const mount = findMount(place, names[done])) {
      place = {mount->hive, kRoot};
      ++done;
      continue;
    }
    std::string file;
    KeyId id = place.id;
    std::size_t at = done;
    const DWORD code = place.hive->read([&](Connection& connection) {
      id = place.id;
      for (at = done; at < names.size() && !findMount({place.hive, id}, names[at]); ++at) {
        Row row;
        if (const DWORD missing = stepDown(connection, id, names[at], row)) return missing;
        id = row.id;
        file = row.file;
        if (!file.empty()) {
          ++at;
          break;
        }
      }
      return ERROR_SUCCESS;
    });
    place.id = id;
    done = at;
    out = place;
    if (code != ERROR_SUCCESS) return code;
    if (!file.empty()) place = {&HiveOfFile(file), kRoot};
  }
  out = place;
  if (!names.empty()) return ERROR_SUCCESS;
  return place.hive->read([&](Connection& c) { return CheckKey(c, place.id); });
}

KeyId insertKey(Connection& connection, KeyId parent, std::wstring_view name, const NewKey& key,
                std::uint64_t stamp) {
  const std::string name_bytes = NameBytes(name);
  const std::string name_folded = folded(name);
  const std::string class_bytes = NameBytes(key.class_name);
  {
    Statement insert = connection.prepare(
        "INSERT INTO keys(parent, folded, name, class, created, until_boot, security) "
        "VALUES(?, ?, ?, ?, ?, ?, ?) RETURNING id");
    insert.bind(parent)
        .bind(std::string_view(name_folded))
        .bind(std::string_view(name_bytes))
        .bind(std::string_view(class_bytes))
        .bind(stamp);
    key.is_volatile ? insert.bind(std::string_view(bootId())) : insert.bindNull();
    key.security.empty() ? insert.bindNull() : insert.bindBytes(key.security);
    const KeyId id = insert.step() ? insert.number(0) : 0;
    insert.run();
    connection.prepare("UPDATE keys SET subkeys_changed = ? WHERE id = ?")
        .bind(stamp)
        .bind(parent)
        .run();
    return id;
  }
}

bool isVolatile(Connection& connection, KeyId id) {
  Statement find = connection.prepare("SELECT until_boot FROM keys WHERE id = ?");
  return find.bind(id).step() && !find.isNull(0);
}

DWORD makeNames(Connection& connection, Place from, const std::vector<std::wstring>& names,
                std::size_t first, const NewKey& key, std::uint64_t stamp, KeyId& id, bool& made) {
  id = from.id;
  made = false;
  if (const DWORD code = CheckKey(connection, id)) return code;
  for (std::size_t i = first; i < names.size(); ++i) {
    Row row;
    if (findRow(connection, id, names[i], row)) {
      if (!row.file.empty()) return ERROR_KEY_DELETED;  // hung in at this moment: look again
      id = row.id;
      continue;
    }
    if (from.hive && from.hive->isMachine() && id <= kUsersRoot) return ERROR_INVALID_PARAMETER;
    if (!key.is_volatile && isVolatile(connection, id)) return ERROR_CHILD_MUST_BE_VOLATILE;
    const bool last = i + 1 == names.size();
    id = insertKey(connection, id, names[i], last ? key : NewKey{{}, {}, key.is_volatile}, stamp);
    made = true;
  }
  return ERROR_SUCCESS;
}

DWORD findInHives(Place from, std::wstring_view path, std::uint64_t at, Place& out) {
  std::vector<std::wstring> names;
  std::size_t done = 0;
  DWORD code = SplitPath(path, names);
  if (code == ERROR_SUCCESS) code = walk(from, names, out, done);
  // What lies in another hive changes without this one's counter.
  const bool here = code == ERROR_FILE_NOT_FOUND || code == ERROR_SUCCESS;
  if (here && out.hive == from.hive && from.hive->at() == at) {
    from.hive->cache().keep(at, from.id, path, ReadCache::Step{code, out.hive, out.id});
  }
  return code;
}

}  // namespace

DWORD SplitPath(std::wstring_view path, std::vector<std::wstring>& names) {
  while (!path.empty()) {
    const std::size_t end = std::min(path.find(L'\\'), path.size());
    if (end == 0) return ERROR_BAD_PATHNAME;
    if (end > kLongestKeyName || names.size() == kDeepest) return ERROR_INVALID_PARAMETER;
    names.emplace_back(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return ERROR_SUCCESS;
}

DWORD CheckKey(Connection& connection, KeyId id) {
  Statement find = connection.prepare("SELECT 1 FROM keys WHERE id = ?");
  return find.bind(id).step() ? ERROR_SUCCESS : ERROR_KEY_DELETED;
}

DWORD FindPlace(Place from, std::wstring_view path, Place& out) {
  const std::uint64_t at = from.hive->at();
  ReadCache::Step room{};
  const auto* const step = from.hive->cache().find(at, from.id, path, room);
  if (!step) return findInHives(from, path, at, out);
  out = {step->hive, step->id};
  return step->code;
}

DWORD MakeKey(Place from, std::wstring_view path, const NewKey& key, Place& out, bool& made) {
  std::vector<std::wstring> names;
  if (const DWORD code = SplitPath(path, names)) return code;
  for (;;) {
    std::size_t done = 0;
    made = false;
    const DWORD found = walk(from, names, out, done);
    if (found != ERROR_FILE_NOT_FOUND) return found;
    const Place deepest = out;
    const DWORD code = deepest.hive->write([&](Connection& connection, std::uint64_t stamp) {
      return makeNames(connection, deepest, names, done, key, stamp, out.id, made);
    });
    // The deepest key may have gone since it was found; the one that was asked about has not.
    if (code != ERROR_KEY_DELETED) return code;
  }
}

DWORD MakePath(Connection& connection, KeyId from, std::wstring_view path, std::uint64_t stamp,
               KeyId& out) {
  std::vector<std::wstring> names;
  if (const DWORD code = SplitPath(path, names)) return code;
  bool made = false;
  return makeNames(connection, {nullptr, from}, names, 0, {}, stamp, out, made);
}

DWORD DeleteKey(Place parent, std::wstring_view name) {
  return parent.hive->write([&](Connection& connection, std::uint64_t stamp) -> DWORD {
    Row row;
    if (const DWORD code = stepDown(connection, parent.id, name, row)) return code;
    if (!row.file.empty()) return ERROR_ACCESS_DENIED;
    {
      Statement below = connection.prepare("SELECT 1 FROM keys WHERE parent = ? LIMIT 1");
      if (below.bind(row.id).step()) return ERROR_ACCESS_DENIED;
    }
    DeleteTree(connection, row.id, false);
    connection.prepare("UPDATE keys SET subkeys_changed = ? WHERE id = ?")
        .bind(stamp)
        .bind(parent.id)
        .run();
    return ERROR_SUCCESS;
  });
}

void DeleteTree(Connection& connection, KeyId id, bool keep_top) {
  static constexpr const char* kTree =
      "WITH RECURSIVE tree(id) AS (SELECT ?1 UNION SELECT keys.id FROM keys JOIN tree "
      "ON keys.parent = tree.id) DELETE FROM entries WHERE key IN tree";
  static constexpr const char* kKeys =
      "WITH RECURSIVE tree(id) AS (SELECT ?1 UNION SELECT keys.id FROM keys JOIN tree "
      "ON keys.parent = tree.id) DELETE FROM keys WHERE id IN tree AND id <> ?2";
  connection.prepare(kTree).bind(id).run();
  connection.prepare(kKeys).bind(id).bind(keep_top ? id : KeyId{-1}).run();
}

bool HasValueTimes(Connection& connection) {
  return connection.prepare("SELECT 1 FROM pragma_table_info('entries') WHERE name = 'changed'")
      .step();
}

bool HasStaleKeys(Connection& connection) {
  Statement find = connection.prepare("SELECT 1 FROM keys WHERE until_boot <> ? LIMIT 1");
  return find.bind(std::string_view(bootId())).step();
}

void DropStaleKeys(Connection& connection) {
  std::vector<KeyId> gone;
  {
    Statement find = connection.prepare("SELECT id FROM keys WHERE until_boot <> ?");
    find.bind(std::string_view(bootId()));
    while (find.step()) gone.push_back(find.number(0));
  }
  for (const KeyId id : gone) DeleteTree(connection, id, false);
}

namespace {

// A value that is written touches its own row alone, so the key's last write time may stand there.
DWORD listKey(Connection& connection, KeyId id, Listing& out) {
  {
    Statement find = connection.prepare(
        "SELECT class, max(created, subkeys_changed, values_changed, (SELECT ifnull(max(changed), "
        "0) FROM entries WHERE key = keys.id)) FROM keys WHERE id = ?");
    if (!find.bind(id).step()) return ERROR_KEY_DELETED;
    out.class_name = find.name(0);
    out.written = static_cast<std::uint64_t>(find.number(1));
  }
  Statement children = connection.prepare(
      "SELECT name, class, max(created, subkeys_changed, values_changed, (SELECT "
      "ifnull(max(changed), 0) FROM entries WHERE key = keys.id)) FROM keys WHERE parent = ? "
      "ORDER BY folded");
  children.bind(id);
  while (children.step()) {
    out.children.push_back(
        {children.name(0), children.name(1), static_cast<std::uint64_t>(children.number(2))});
  }
  Statement values =
      connection.prepare("SELECT name, length(data) FROM entries WHERE key = ? ORDER BY id");
  values.bind(id);
  while (values.step()) {
    out.values.push_back({values.name(0), static_cast<std::size_t>(values.number(1))});
  }
  return ERROR_SUCCESS;
}

void addMounts(Place place, std::vector<Child>& children) {
  for (const Hive::Mount& mount : place.hive->mounts()) {
    if (mount.parent != place.id) continue;
    const auto later = std::find_if(children.begin(), children.end(), [&](const Child& child) {
      return CompareNoCase(child.name, mount.name) >= 0;
    });
    if (later == children.end() || CompareNoCase(later->name, mount.name) != 0) {
      children.insert(later, {mount.name, {}, 0});
    }
  }
}

}  // namespace

DWORD ReadListing(Place place, std::shared_ptr<const Listing>& out) {
  const std::uint64_t at = place.hive->at();
  if (place.hive->cache().find(at, place.id, {}, out)) return ERROR_SUCCESS;
  auto listing = std::make_shared<Listing>();
  const DWORD code = place.hive->read([&](Connection& connection) {
    *listing = {};
    return listKey(connection, place.id, *listing);
  });
  if (code != ERROR_SUCCESS) return code;
  addMounts(place, listing->children);
  out = std::move(listing);
  if (place.hive->at() == at) place.hive->cache().keep(at, place.id, {}, out);
  return ERROR_SUCCESS;
}

namespace {

void readRow(Place place, std::wstring_view name, std::uint64_t at, ReadCache::ValueResult& out) {
  const std::string key = folded(name);
  out.code = place.hive->read([&](Connection& connection) {
    {
      Statement find =
          connection.prepare("SELECT type, data FROM entries WHERE key = ? AND folded = ?");
      if (find.bind(place.id).bind(std::string_view(key)).step()) {
        out.value = {static_cast<DWORD>(find.number(0)), std::string(find.bytes(1))};
        return ERROR_SUCCESS;
      }
    }
    const DWORD code = CheckKey(connection, place.id);
    return code == ERROR_SUCCESS ? ERROR_FILE_NOT_FOUND : code;
  });
  const bool told = out.code == ERROR_SUCCESS || out.code == ERROR_FILE_NOT_FOUND;
  if (told && place.hive->at() == at) place.hive->cache().keep(at, place.id, name, out);
}

}  // namespace

DWORD ReadValue(Place place, std::wstring_view name, ReadCache::ValueResult& room,
                const Value*& out) {
  const std::uint64_t at = place.hive->at();
  const auto* found = place.hive->cache().find(at, place.id, name, room);
  if (!found) {
    readRow(place, name, at, room);
    found = &room;
  }
  out = &found->value;
  return found->code;
}

DWORD WriteValue(Place place, std::wstring_view name, DWORD type, std::string_view data) {
  const std::string name_bytes = NameBytes(name);
  const std::string name_folded = folded(name);
  return place.hive->write([&](Connection& connection, std::uint64_t stamp) {
    connection
        .prepare(
            "INSERT INTO entries(folded, name, type, data, changed, key) "
            "SELECT ?, ?, ?, ?, ?, id FROM keys WHERE id = ? "
            "ON CONFLICT(key, folded) DO UPDATE SET type = excluded.type, "
            "data = excluded.data, changed = excluded.changed")
        .bind(std::string_view(name_folded))
        .bind(std::string_view(name_bytes))
        .bind(static_cast<std::int64_t>(type))
        .bindBytes(data)
        .bind(stamp)
        .bind(place.id)
        .run();
    return connection.changes() == 1 ? ERROR_SUCCESS : ERROR_KEY_DELETED;
  });
}

DWORD DeleteValue(Place place, std::wstring_view name) {
  const std::string name_folded = folded(name);
  return place.hive->write([&](Connection& connection, std::uint64_t stamp) -> DWORD {
    connection.prepare("DELETE FROM entries WHERE key = ? AND folded = ?")
        .bind(place.id)
        .bind(std::string_view(name_folded))
        .run();
    const bool was_there = connection.changes() == 1;
    connection.prepare("UPDATE keys SET values_changed = ? WHERE id = ?")
        .bind(stamp)
        .bind(place.id)
        .run();
    if (connection.changes() == 0) return ERROR_KEY_DELETED;
    return was_there ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
  });
}

DWORD ReadSecurity(Place place, std::string& out) {
  return place.hive->read([&](Connection& connection) {
    Statement find = connection.prepare("SELECT security FROM keys WHERE id = ?");
    if (!find.bind(place.id).step()) return ERROR_KEY_DELETED;
    out = find.bytes(0);
    return ERROR_SUCCESS;
  });
}

DWORD WriteSecurity(Place place, const std::function<std::string(std::string)>& edit) {
  return place.hive->write([&](Connection& connection, std::uint64_t stamp) {
    std::string old;
    {
      Statement find = connection.prepare("SELECT security FROM keys WHERE id = ?");
      if (!find.bind(place.id).step()) return ERROR_KEY_DELETED;
      old = find.bytes(0);
    }
    const std::string changed = edit(std::move(old));
    connection.prepare("UPDATE keys SET security = ?, security_changed = ? WHERE id = ?")
        .bindBytes(changed)
        .bind(stamp)
        .bind(place.id)
        .run();
    return ERROR_SUCCESS;
  });
}

std::uint64_t LatestChange(Place place, bool subtree, DWORD filter) {
  static constexpr const char* kOne =
      "SELECT subkeys_changed, max(values_changed, (SELECT ifnull(max(changed), 0) FROM entries "
      "WHERE key = keys.id)), security_changed FROM keys WHERE id = ?";
  static constexpr const char* kAll =
      "WITH RECURSIVE tree(id) AS (SELECT ?1 UNION SELECT keys.id FROM keys JOIN tree "
      "ON keys.parent = tree.id) SELECT max(subkeys_changed), max(max(values_changed), (SELECT "
      "ifnull(max(changed), 0) FROM entries WHERE key IN tree)), max(security_changed) FROM keys "
      "WHERE id IN tree";
  static constexpr DWORD kColumns[] = {REG_NOTIFY_CHANGE_NAME, REG_NOTIFY_CHANGE_LAST_SET,
                                       REG_NOTIFY_CHANGE_SECURITY};
  std::uint64_t latest = 0;
  const DWORD code = place.hive->read([&](Connection& connection) {
    if (const DWORD gone = CheckKey(connection, place.id)) return gone;
    Statement find = connection.prepare(subtree ? kAll : kOne);
    if (!find.bind(place.id).step()) return ERROR_KEY_DELETED;
    for (int i = 0; i < 3; ++i) {
      if (filter & kColumns[i]) {
        latest = std::max(latest, static_cast<std::uint64_t>(find.number(i)));
      }
    }
    return ERROR_SUCCESS;
  });
  return code == ERROR_SUCCESS ? latest : UINT64_MAX;
}

}  // namespace qel::sys::registry
