#include <array>
#include <cstring>
#include <utility>

#include "qelbase/outside/system/registry_hive_internal.h"

namespace qel::sys::registry {

namespace {

// Beyond this the cache starts again: 16 MB hold the settings of many applications.
constexpr std::size_t kMostBytes = 16U << 20;

// --- what this thread read last, found without a lock ---

template <typename T>
struct Recent {
  const ReadCache* cache = nullptr;
  std::uint64_t at = 0;
  KeyId key = 0;
  std::wstring name;
  T value{};
};

constexpr int kRecentBits = 7;
constexpr std::size_t kRecent = 1U << kRecentBits;
constexpr std::size_t kMostRecentBytes = 4096;  // of one value

struct Front {
  std::array<Recent<ReadCache::Step>, kRecent> steps;
  std::array<Recent<ReadCache::ValueResult>, kRecent> values;

  auto& of(const ReadCache::Step&) { return steps; }
  auto& of(const ReadCache::ValueResult&) { return values; }
};

// Calls may still come while the thread ends.
constinit thread_local Front* front = nullptr;
constinit thread_local bool has_ended = false;

struct ThreadEnd {
  ThreadEnd() { front = new Front; }
  ~ThreadEnd() {
    delete std::exchange(front, nullptr);
    has_ended = true;
  }
};

Front* ownFront() {
  if (!front && !has_ended) thread_local const ThreadEnd kEnd;
  return front;
}

// Looks at the end and at the middle of a name: two that get one place push each other out.
std::size_t recentIndex(KeyId key, std::wstring_view name) {
  constexpr std::uint64_t kMix = 0x9E37'79B9'7F4A'7C15;
  std::uint64_t sum = static_cast<std::uint64_t>(key) * kMix + name.size();
  const auto add = [&](std::size_t at, std::size_t count) {
    std::uint64_t pair = 0;
    std::memcpy(&pair, name.data() + at, count * sizeof(wchar_t));
    sum = sum * kMix + pair;
  };
  if (name.size() >= 4) {
    add(name.size() / 2 - 1, 2);
    add(name.size() - 4, 2);
    add(name.size() - 2, 2);
  } else {
    for (std::size_t i = 0; i < name.size(); ++i) add(i, 1);
  }
  return (sum ^ sum >> 32) * kMix >> (64 - kRecentBits);
}

bool isBrief(const ReadCache::Step&) {
  return true;
}
bool isBrief(const ReadCache::ValueResult& result) {
  return result.value.data.size() <= kMostRecentBytes;
}

}  // namespace

// Two sums of every second pair of characters. Whoever chooses names to collide slows his own
// cache.
std::size_t ReadCache::Hash::operator()(const Name& name) const {
  constexpr std::uint64_t kMix = 0x9E37'79B9'7F4A'7C15;
  std::uint64_t sums[2] = {name.text.size(), static_cast<std::uint64_t>(name.key)};
  const wchar_t* text = name.text.data();
  std::size_t left = name.text.size();
  for (; left >= 4; left -= 4, text += 4) {
    std::uint64_t pairs[2];
    std::memcpy(pairs, text, sizeof pairs);
    sums[0] = sums[0] * kMix + pairs[0];
    sums[1] = sums[1] * kMix + pairs[1];
  }
  for (; left > 0; --left) sums[0] = sums[0] * kMix + static_cast<std::uint64_t>(*text++);
  std::uint64_t hash = (sums[0] ^ sums[0] >> 32) * kMix + sums[1];
  hash = (hash ^ hash >> 32) * kMix;
  return hash ^ hash >> 29;
}

template <typename T>
bool ReadCache::findIn(const Map<T>& map, std::uint64_t at, const Name& name, T& out) {
  const std::shared_lock lock(m_mutex);
  if (m_at != at) return false;
  const auto found = map.find(name);
  if (found == map.end()) return false;
  out = found->second;
  return true;
}

template <typename T>
const T* ReadCache::findRecent(const Map<T>& map, std::uint64_t at, const Name& name, T& room) {
  if (at == Sequence::kUnknown) return nullptr;
  Front* const own = ownFront();
  if (!own) return findIn(map, at, name, room) ? &room : nullptr;
  Recent<T>& recent = own->of(room)[recentIndex(name.key, name.text)];
  const bool is_it =
      recent.at == at && recent.cache == this && recent.key == name.key && recent.name == name.text;
  if (is_it) return &recent.value;
  if (!findIn(map, at, name, room)) return nullptr;
  if (isBrief(room)) recent = {this, at, name.key, std::wstring(name.text), room};
  return &room;
}

template <typename T>
void ReadCache::keepIn(Map<T>& map, std::uint64_t at, const Name& name, const T& value,
                       std::size_t size) {
  if (at == Sequence::kUnknown) return;
  const std::unique_lock lock(m_mutex);
  if (m_at != at || m_size > kMostBytes) {
    m_steps.clear();
    m_values.clear();
    m_listings.clear();
    m_size = 0;
    m_at = at;
  }
  map.insert_or_assign(StoredName{name.key, std::wstring(name.text)}, value);
  m_size += size + name.text.size() * sizeof(wchar_t) + 128;
}

const ReadCache::Step* ReadCache::find(std::uint64_t at, KeyId key, std::wstring_view path,
                                       Step& room) {
  return findRecent(m_steps, at, {key, path}, room);
}
const ReadCache::ValueResult* ReadCache::find(std::uint64_t at, KeyId key, std::wstring_view name,
                                              ValueResult& room) {
  return findRecent(m_values, at, {key, name}, room);
}
bool ReadCache::find(std::uint64_t at, KeyId key, std::wstring_view,
                     std::shared_ptr<const Listing>& out) {
  return at != Sequence::kUnknown && findIn(m_listings, at, {key, {}}, out);
}
void ReadCache::keep(std::uint64_t at, KeyId key, std::wstring_view path, const Step& step) {
  keepIn(m_steps, at, {key, path}, step, sizeof step);
}
void ReadCache::keep(std::uint64_t at, KeyId key, std::wstring_view name,
                     const ValueResult& value) {
  keepIn(m_values, at, {key, name}, value, sizeof value + value.value.data.size());
}
void ReadCache::keep(std::uint64_t at, KeyId key, std::wstring_view,
                     const std::shared_ptr<const Listing>& listing) {
  const std::size_t entries = listing->children.size() + listing->values.size();
  keepIn(m_listings, at, {key, {}}, listing, entries * 100);
}

}  // namespace qel::sys::registry
