// The table of open keys, and what a handle stands for.

#include <array>
#include <deque>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/registry_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys::registry {

namespace {

constexpr std::uint32_t kPredefined = 7;

// A handle is the slot's number and how often the slot was used, so that a stale one is known. Bits
// above keep it apart from small numbers and addresses.
constexpr std::uintptr_t kMark = 0x4B00'0000'0000'0000;
constexpr int kSlotBits = 24;

struct Slot {
  std::uint32_t uses = 0;
  KeyPointer key;
};

struct Table {
  std::mutex mutex;
  std::deque<Slot> slots;
  std::vector<std::uint32_t> free;
};

Table& table() {
  static Lasting<Table> kept;
  return *kept;
}

HKEY handleOf(std::uint32_t slot, std::uint32_t uses) {
  return reinterpret_cast<HKEY>(kMark | static_cast<std::uintptr_t>(uses) << kSlotBits | slot);
}

Slot* findSlot(HKEY handle) {
  const auto bits = reinterpret_cast<std::uintptr_t>(handle);
  const std::size_t slot = bits & ((1U << kSlotBits) - 1);
  if (slot >= table().slots.size()) return nullptr;
  Slot& found = table().slots[slot];
  return found.key && found.key->handle == handle ? &found : nullptr;
}

KeyPointer makePredefined(std::uint32_t number) {
  auto key = std::make_shared<OpenKey>();
  key->access = KEY_ALL_ACCESS;
  key->handle = reinterpret_cast<HKEY>(PredefinedKey(0x80000000 + number));
  switch (number) {
    case 0:
      key->is_classes = true;
      break;
    case 1:
      key->place = {&UserHive(), kRoot};
      break;
    case 2:
      key->place = {&MachineHive(), kRoot};
      break;
    case 3:
      key->place = {&MachineHive(), kUsersRoot};
      break;
    case 4:
      key->place = {&MachineHive(), kPerformanceRoot};
      break;
    case 5:
      key->place = {&MachineHive(), kConfigRoot};
      break;
    default:
      key->place = {&MachineHive(), kDynamicRoot};
      break;
  }
  return key;
}

struct Predefined {
  std::mutex mutex;
  std::array<KeyPointer, kPredefined> keys;
};

Predefined& predefined() {
  static Lasting<Predefined> kept;
  return *kept;
}

std::uint32_t predefinedNumber(HKEY handle) {
  const std::uintptr_t number =
      reinterpret_cast<std::uintptr_t>(handle) - PredefinedKey(0x80000000);
  return number < kPredefined ? static_cast<std::uint32_t>(number) : kPredefined;
}

constexpr const wchar_t* kClasses = L"Software\\Classes";

std::wstring classesPath(const std::wstring& path) {
  return path.empty() ? kClasses : kClasses + (L"\\" + path);
}

// By name, those of `front` hiding the others.
std::shared_ptr<const Listing> merged(const Listing& front, const Listing& back) {
  auto both = std::make_shared<Listing>(front);
  for (const Child& child : back.children) {
    const auto at = std::lower_bound(
        both->children.begin(), both->children.end(), child,
        [](const Child& a, const Child& b) { return CompareNoCase(a.name, b.name) < 0; });
    if (at == both->children.end() || CompareNoCase(at->name, child.name) != 0) {
      both->children.insert(at, child);
    }
  }
  for (const Listing::Head& value : back.values) {
    const bool hidden =
        std::any_of(front.values.begin(), front.values.end(),
                    [&](const auto& head) { return CompareNoCase(head.name, value.name) == 0; });
    if (!hidden) both->values.push_back(value);
  }
  both->written = std::max(front.written, back.written);
  return both;
}

}  // namespace

bool IsPredefined(HKEY handle) {
  return predefinedNumber(handle) < kPredefined;
}

KeyPointer FindKey(HKEY handle) {
  if (const std::uint32_t number = predefinedNumber(handle); number < kPredefined) {
    const std::scoped_lock lock(predefined().mutex);
    KeyPointer& key = predefined().keys[number];
    if (!key) key = makePredefined(number);
    return key;
  }
  const std::scoped_lock lock(table().mutex);
  const Slot* const slot = findSlot(handle);
  return slot ? slot->key : nullptr;
}

HKEY AddKey(OpenKey key) {
  auto added = std::make_shared<OpenKey>(std::move(key));
  const std::scoped_lock lock(table().mutex);
  if (table().free.empty()) {
    if (table().slots.size() == 1U << kSlotBits) return nullptr;
    table().free.push_back(static_cast<std::uint32_t>(table().slots.size()));
    table().slots.emplace_back();
  }
  const std::uint32_t number = table().free.back();
  table().free.pop_back();
  Slot& slot = table().slots[number];
  added->handle = handleOf(number, ++slot.uses);
  slot.key = added;
  return added->handle;
}

bool RemoveKey(HKEY handle) {
  const std::scoped_lock lock(table().mutex);
  Slot* const slot = findSlot(handle);
  if (!slot) return false;
  slot->key.reset();
  const auto bits = reinterpret_cast<std::uintptr_t>(handle);
  table().free.push_back(static_cast<std::uint32_t>(bits & ((1U << kSlotBits) - 1)));
  return true;
}

bool IsOpenBelow(Place place) {
  std::vector<KeyPointer> open;
  {
    const std::scoped_lock lock(table().mutex);
    for (const Slot& slot : table().slots) {
      if (slot.key && slot.key->place.hive == place.hive) open.push_back(slot.key);
    }
  }
  bool below = false;
  for (const KeyPointer& key : open) {
    if (key->place.id == place.id) continue;
    const DWORD code = place.hive->read([&](Connection& connection) {
      Statement find = connection.prepare(
          "WITH RECURSIVE up(id) AS (SELECT ?1 UNION SELECT keys.parent FROM keys JOIN up "
          "ON keys.id = up.id) SELECT 1 FROM up WHERE id = ?2");
      below = find.bind(key->place.id).bind(place.id).step();
      return ERROR_SUCCESS;
    });
    if (code == ERROR_SUCCESS && below) return true;
  }
  return false;
}

void ForgetKeys() {
  const std::scoped_lock lock(table().mutex, predefined().mutex);
  for (Slot& slot : table().slots) slot.key.reset();
  table().free.clear();
  for (std::uint32_t i = 0; i < table().slots.size(); ++i) table().free.push_back(i);
  predefined().keys.fill(nullptr);
}

void LockHandles() {
  predefined().mutex.lock();
  table().mutex.lock();
}

void UnlockHandles() {
  table().mutex.unlock();
  predefined().mutex.unlock();
}

DWORD FindLayers(const OpenKey& key, Layers& out) {
  out.count = 0;
  if (!key.is_classes) {
    out.places[out.count++] = key.place;
    return ERROR_SUCCESS;
  }
  const std::wstring path = classesPath(key.path);
  for (Hive* const hive : {&UserHive(), &MachineHive()}) {
    Place place;
    const DWORD code = FindPlace({hive, kRoot}, path, place);
    if (code == ERROR_SUCCESS) {
      out.places[out.count++] = place;
    } else if (code != ERROR_FILE_NOT_FOUND) {
      return code;
    }
  }
  return out.count > 0 || key.path.empty() ? ERROR_SUCCESS : ERROR_KEY_DELETED;
}

DWORD FindWritten(const OpenKey& key, Place& out) {
  Layers layers;
  if (const DWORD code = FindLayers(key, layers)) return code;
  // The user's key where it exists; else the machine's.
  if (layers.count > 0 && layers.places[0].hive->isWritable()) {
    out = layers.places[0];
    return ERROR_SUCCESS;
  }
  if (!key.is_classes) return ERROR_ACCESS_DENIED;
  bool made = false;
  return MakeKey({&UserHive(), kRoot}, classesPath(key.path), {}, out, made);
}

DWORD ReadListing(const OpenKey& key, std::shared_ptr<const Listing>& out) {
  Layers layers;
  if (const DWORD code = FindLayers(key, layers)) return code;
  out = std::make_shared<Listing>();
  for (int i = 0; i < layers.count; ++i) {
    std::shared_ptr<const Listing> one;
    if (const DWORD code = ReadListing(layers.places[i], one)) return code;
    out = i == 0 ? one : merged(*out, *one);
  }
  return ERROR_SUCCESS;
}

DWORD KeyOfHandle(HKEY handle, REGSAM access, KeyPointer& out) {
  out = FindKey(handle);
  if (!out) return ERROR_INVALID_HANDLE;
  return (out->access & access) == access ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

}  // namespace qel::sys::registry
