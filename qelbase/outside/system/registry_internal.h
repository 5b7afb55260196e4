#pragma once
// Keys by place and by handle: what the calls of registry.h are made of.

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qelbase/outside/system/registry.h"
#include "qelbase/outside/system/registry_hive_internal.h"

namespace qel::sys::registry {

inline constexpr std::size_t kLongestKeyName = 255;
inline constexpr std::size_t kLongestValueName = 16383;
inline constexpr std::size_t kDeepest = 512;  // levels of a tree

// --- places ------------------------------------------------------------------------------------

// A key by the row that it is.
struct Place {
  Hive* hive = nullptr;
  KeyId id = 0;
  friend bool operator==(const Place&, const Place&) = default;
};

// The hives of this process, in the folders that the environment names.
Hive& UserHive();
Hive& MachineHive();
Hive& HiveOfFile(const std::string& native);  // one object a file
std::wstring UserKeyName();                   // of the user's hive, below the users

// Another folder for both hives; every open key is forgotten. For tests: no call is under way.
void UseRegistryFolder(const std::string& native);

// The names of a path; nothing (161) for an empty name or a backslash in front, (87) for one that
// is too long or too deep.
DWORD SplitPath(std::wstring_view path, std::vector<std::wstring>& names);

// The key at the end of `path`, through mounts. 2 if missing.
[[nodiscard]] DWORD FindPlace(Place from, std::wstring_view path, Place& out);

// --- what is done to keys ----------------------------------------------------------------------

struct NewKey {
  std::wstring class_name;
  std::string security;  // empty: none
  bool is_volatile = false;
};

// Opens or makes the key at the end of `path` below `from`.
[[nodiscard]] DWORD MakeKey(Place from, std::wstring_view path, const NewKey& key, Place& out,
                            bool& made);
// Makes a path in the transaction of the caller.
[[nodiscard]] DWORD MakePath(Connection& connection, KeyId from, std::wstring_view path,
                             std::uint64_t stamp, KeyId& out);
[[nodiscard]] DWORD DeleteKey(Place parent, std::wstring_view name);
[[nodiscard]] DWORD ReadListing(Place place, std::shared_ptr<const Listing>& out);

// `out` is `room`, or what this thread remembers until it looks up another value.
[[nodiscard]] DWORD ReadValue(Place place, std::wstring_view name, ReadCache::ValueResult& room,
                              const Value*& out);
[[nodiscard]] DWORD WriteValue(Place place, std::wstring_view name, DWORD type,
                               std::string_view data);
[[nodiscard]] DWORD DeleteValue(Place place, std::wstring_view name);

[[nodiscard]] DWORD ReadSecurity(Place place, std::string& out);
[[nodiscard]] DWORD WriteSecurity(Place place, const std::function<std::string(std::string)>& edit);

// The latest change below a key that `filter` names; the greatest number if the key is gone.
[[nodiscard]] std::uint64_t LatestChange(Place place, bool subtree, DWORD filter);

// 1018 unless the row is there.
[[nodiscard]] DWORD CheckKey(Connection& connection, KeyId id);
void DeleteTree(Connection& connection, KeyId id, bool keep_top);
// False for a hive of the earlier layout.
[[nodiscard]] bool HasValueTimes(Connection& connection);
// Volatile keys of an earlier start of the machine.
[[nodiscard]] bool HasStaleKeys(Connection& connection);
void DropStaleKeys(Connection& connection);
void FillHardware(Connection& connection);

// --- handles -----------------------------------------------------------------------------------

struct OpenKey {
  Place place = {};
  REGSAM access = 0;
  // A key of the classes root is a path, seen through the user's classes over the machine's.
  bool is_classes = false;
  std::wstring path = {};
};

inline std::uintptr_t PredefinedNumber(HKEY handle) {
  return reinterpret_cast<std::uintptr_t>(handle) - PredefinedKey(0x80000000);
}
inline bool IsPredefined(HKEY handle) {
  return PredefinedNumber(handle) < 7;
}
[[nodiscard]] bool FindKey(HKEY handle, OpenKey& out);  // false for a stale handle; `out` is new
[[nodiscard]] HKEY AddKey(const OpenKey& key);          // null if there are too many
[[nodiscard]] bool RemoveKey(HKEY handle);
[[nodiscard]] bool IsOpenBelow(Place place);  // a key of this process, other than `place`
void ForgetKeys();

// The keys that a handle stands for, the first one hiding the next. 1018 if there is none left.
struct Layers {
  Place places[2];
  int count = 0;
  const Place* begin() const { return places; }
  const Place* end() const { return places + count; }
};
[[nodiscard]] DWORD FindLayers(const OpenKey& key, Layers& out);
// Where a value of this key is written.
[[nodiscard]] DWORD FindWritten(const OpenKey& key, Place& out);
// What all layers show together.
[[nodiscard]] DWORD ReadListing(const OpenKey& key, std::shared_ptr<const Listing>& out);
// The handle's key, checked for the access: 6, 5.
[[nodiscard]] DWORD KeyOfHandle(HKEY handle, REGSAM access, OpenKey& out);

std::string SelfRelative(const void* descriptor, DWORD parts);  // empty if it is none
std::string MergeDescriptor(const std::string& old, const std::string& change, DWORD parts);
std::string PickDescriptor(const std::string& whole, DWORD parts);

// --- fork and notices --------------------------------------------------------------------------

// Held shared during every transaction, and alone while the process forks.
std::shared_mutex& ForkGate();
void SignalClosedKey(HKEY handle);
void LockNotices();
void UnlockNotices(bool in_child);
void LockHandles();
void UnlockHandles();

}  // namespace qel::sys::registry
