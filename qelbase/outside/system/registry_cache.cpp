#include <cstring>

#include "qelbase/outside/system/registry_hive_internal.h"

namespace qel::sys::registry {

namespace {

// Beyond this the cache starts again: 16 MB hold the settings of many applications.
constexpr std::size_t kMostBytes = 16U << 20;

}  // namespace

// Two characters a step. Whoever chooses names to collide slows his own cache.
std::size_t ReadCache::Hash::operator()(const Name& name) const {
  constexpr std::uint64_t kMix = 0x9E37'79B9'7F4A'7C15;
  std::uint64_t hash = static_cast<std::uint64_t>(name.key) + name.text.size();
  const auto add = [&hash](std::uint64_t part) {
    hash = (hash ^ part) * kMix;
    hash ^= hash >> 32;
  };
  std::size_t i = 0;
  for (; i + 2 <= name.text.size(); i += 2) {
    std::uint64_t pair;
    std::memcpy(&pair, name.text.data() + i, sizeof pair);
    add(pair);
  }
  if (i < name.text.size()) add(static_cast<std::uint64_t>(name.text[i]));
  add(0);
  return hash;
}

template <typename T>
bool ReadCache::findIn(const Map<T>& map, std::uint64_t at, const Name& name, T& out) {
  if (at == Sequence::kUnknown) return false;
  const std::shared_lock lock(m_mutex);
  if (m_at != at) return false;
  const auto found = map.find(name);
  if (found == map.end()) return false;
  out = found->second;
  return true;
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

bool ReadCache::find(std::uint64_t at, KeyId key, std::wstring_view path, Step& out) {
  return findIn(m_steps, at, {key, path}, out);
}
bool ReadCache::find(std::uint64_t at, KeyId key, std::wstring_view name, ValueResult& out) {
  return findIn(m_values, at, {key, name}, out);
}
bool ReadCache::find(std::uint64_t at, KeyId key, std::wstring_view,
                     std::shared_ptr<const Listing>& out) {
  return findIn(m_listings, at, {key, {}}, out);
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
