// The table of open keys, and what a handle stands for.

#include <algorithm>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/registry_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys::registry {

namespace {

// --- the table -----------------------------------------------------------------------------------

// A handle is the slot's number and how often the slot was used, so that a stale one is known. Bits
// above keep it apart from small numbers and addresses.
constexpr std::uintptr_t kMark = 0x4B00'0000'0000'0000;
constexpr int kSlotBits = 24;
constexpr std::uint32_t kChunkSlots = 256;
constexpr std::uint32_t kShardSlots = (1U << kSlotBits) / kThreadShards;
constexpr std::uint32_t kNone = 0;  // a shard's first slot is nobody's

// Looked up without a lock: what is read is the key if `uses` is the same before and after.
struct Slot {
  std::atomic<std::uint32_t> uses = 0;  // counts openings and closings, so it is odd for a key
  std::atomic<REGSAM> access = 0;
  std::atomic<Hive*> hive = nullptr;  // null for a key of the classes root
  std::atomic<KeyId> id = 0;
  std::wstring path;                // of a key of the classes root; under the shard's lock
  std::uint32_t next_free = kNone;  // under the lock, too
};

Slot* newChunk();

// The slots that the threads of one shard open keys in; slots stay where they are, for good.
class Shard {
 public:
  // The number of a slot that is nobody else's then; kNone if there are too many.
  std::uint32_t take() {
    const std::uint32_t spare = m_spare.exchange(kNone);
    if (spare != kNone) return spare;
    const std::scoped_lock lock(mutex);
    if (m_first_free != kNone) return std::exchange(m_first_free, at(m_first_free)->next_free);
    const std::uint32_t next = std::max(m_used.load(), 1U);
    if (next == kShardSlots) return kNone;
    if (!at(next)) m_chunks[next / kChunkSlots].store(newChunk());
    m_used.store(next + 1);
    return next;
  }
  void give(std::uint32_t index) {
    const std::uint32_t other = m_spare.exchange(index);
    if (other == kNone) return;
    const std::scoped_lock lock(mutex);
    at(other)->next_free = std::exchange(m_first_free, other);
  }
  Slot* at(std::uint32_t index) {
    Slot* const chunk = m_chunks[index / kChunkSlots].load(std::memory_order_acquire);
    return chunk ? &chunk[index % kChunkSlots] : nullptr;
  }
  std::uint32_t used() const { return m_used.load(); }
  void freeChunks() {
    for (const auto& chunk : m_chunks) delete[] chunk.load();
  }

  std::mutex mutex;

 private:
  std::atomic<std::uint32_t> m_spare = kNone;  // the one that was closed last: taken without lock
  std::uint32_t m_first_free = kNone;
  std::atomic<std::uint32_t> m_used = 0;
  std::atomic<Slot*> m_chunks[kShardSlots / kChunkSlots] = {};
};

constinit Shard shards[kThreadShards];

struct Chunks {
  ~Chunks() {
    for (Shard& shard : shards) shard.freeChunks();
  }
};

Slot* newChunk() {
  static Lasting<Chunks> owner;
  return new Slot[kChunkSlots];
}

struct Position {
  Shard* shard;
  std::uint32_t index;
  std::uint32_t uses;
};

HKEY handleOf(std::uint32_t slot, std::uint32_t uses) {
  return reinterpret_cast<HKEY>(kMark | static_cast<std::uintptr_t>(uses) << kSlotBits | slot);
}

Position positionOf(HKEY handle) {
  const auto bits = reinterpret_cast<std::uintptr_t>(handle);
  const auto slot = static_cast<std::uint32_t>(bits & ((1U << kSlotBits) - 1));
  return {&shards[slot % kThreadShards], slot / kThreadShards,
          static_cast<std::uint32_t>(bits >> kSlotBits)};
}

// The slot of a key that is open now; null for a stale handle and for what is none.
Slot* findSlot(HKEY handle) {
  constexpr std::uintptr_t kMarkBits = 0xFF00'0000'0000'0000;
  if ((reinterpret_cast<std::uintptr_t>(handle) & kMarkBits) != kMark) return nullptr;
  const Position position = positionOf(handle);
  Slot* const slot = position.shard->at(position.index);
  const bool open =
      position.uses % 2 == 1 && slot && slot->uses.load(std::memory_order_acquire) == position.uses;
  return open ? slot : nullptr;
}

// False if another thread was faster.
bool closeSlot(Slot& slot, const Position& position) {
  std::uint32_t uses = position.uses;
  if (!slot.uses.compare_exchange_strong(uses, uses + 1)) return false;
  if (!slot.hive.load()) {
    const std::scoped_lock lock(position.shard->mutex);
    slot.path.clear();
  }
  position.shard->give(position.index);
  return true;
}

template <typename Visit>
void forEachOpen(Visit visit) {
  for (Shard& shard : shards) {
    for (std::uint32_t index = 0; index < shard.used(); ++index) {
      Slot& slot = *shard.at(index);
      const std::uint32_t uses = slot.uses.load();
      if (uses % 2 == 1) visit(slot, Position{&shard, index, uses});
    }
  }
}

// --- predefined keys -----------------------------------------------------------------------------

void getPredefined(std::uintptr_t number, OpenKey& out) {
  constexpr KeyId kMachineRoots[] = {kRoot, kUsersRoot, kPerformanceRoot, kConfigRoot,
                                     kDynamicRoot};
  out.access = KEY_ALL_ACCESS;
  if (number == 0) {
    out.is_classes = true;
  } else if (number == 1) {
    out.place = {&UserHive(), kRoot};
  } else {
    out.place = {&MachineHive(), kMachineRoots[number - 2]};
  }
}

// --- the classes root ----------------------------------------------------------------------------

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

bool FindKey(HKEY handle, OpenKey& out) {
  if (IsPredefined(handle)) {
    getPredefined(PredefinedNumber(handle), out);
    return true;
  }
  const Slot* const slot = findSlot(handle);
  if (!slot) return false;
  out.place.hive = slot->hive.load(std::memory_order_acquire);
  out.place.id = slot->id.load(std::memory_order_acquire);
  out.access = slot->access.load(std::memory_order_acquire);
  out.is_classes = !out.place.hive;
  if (!out.is_classes) return findSlot(handle) == slot;
  const std::scoped_lock lock(positionOf(handle).shard->mutex);
  out.path = slot->path;
  return findSlot(handle) == slot;
}

HKEY AddKey(const OpenKey& key) {
  const std::uint32_t own = ThreadShard();
  Shard& shard = shards[own];
  const std::uint32_t index = shard.take();
  if (index == kNone) return nullptr;
  Slot& slot = *shard.at(index);
  // Whoever sees one of these sees as well that the key before is closed.
  slot.hive.store(key.is_classes ? nullptr : key.place.hive, std::memory_order_release);
  slot.id.store(key.place.id, std::memory_order_release);
  slot.access.store(key.access, std::memory_order_release);
  if (key.is_classes) {
    const std::scoped_lock lock(shard.mutex);
    slot.path = key.path;
  }
  const std::uint32_t uses = slot.uses.load(std::memory_order_relaxed) + 1;
  slot.uses.store(uses, std::memory_order_release);
  return handleOf(index * kThreadShards + own, uses);
}

bool RemoveKey(HKEY handle) {
  Slot* const slot = findSlot(handle);
  return slot && closeSlot(*slot, positionOf(handle));
}

bool IsOpenBelow(Place place) {
  std::vector<KeyId> open;
  forEachOpen([&](const Slot& slot, const Position&) {
    if (slot.hive == place.hive && slot.id != place.id) open.push_back(slot.id);
  });
  bool below = false;
  for (const KeyId id : open) {
    const DWORD code = place.hive->read([&](Connection& connection) {
      Statement find = connection.prepare(
          "WITH RECURSIVE up(id) AS (SELECT ?1 UNION SELECT keys.parent FROM keys JOIN up "
          "ON keys.id = up.id) SELECT 1 FROM up WHERE id = ?2");
      below = find.bind(id).bind(place.id).step();
      return ERROR_SUCCESS;
    });
    if (code == ERROR_SUCCESS && below) return true;
  }
  return false;
}

void ForgetKeys() {
  forEachOpen([](Slot& slot, const Position& position) { (void)closeSlot(slot, position); });
}

void LockHandles() {
  for (Shard& shard : shards) shard.mutex.lock();
}

void UnlockHandles() {
  for (Shard& shard : shards) shard.mutex.unlock();
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

DWORD KeyOfHandle(HKEY handle, REGSAM access, OpenKey& out) {
  if (!FindKey(handle, out)) return ERROR_INVALID_HANDLE;
  return (out.access & access) == access ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

}  // namespace qel::sys::registry
