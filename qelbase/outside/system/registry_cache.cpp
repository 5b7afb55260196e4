#include <cstring>

#include "qelbase/outside/system/registry_hive_internal.h"

namespace qel::sys::registry {

namespace {

// Beyond this the cache starts again: 16 MB hold the settings of many applications.
constexpr std::size_t kMostBytes = 16U << 20;

}  // namespace

// Four characters a step. Whoever chooses names to collide slows his own cache.
std::size_t ReadCache::Hash::operator()(const Name& name) const {
  __extension__ using Wide = unsigned __int128;
  std::uint64_t hash = static_cast<std::uint64_t>(name.key) + (name.text.size() << 32);
  std::uint64_t parts[2] = {};
  const auto mix = [&] {
    const Wide product =
        Wide{parts[0] ^ 0x9E37'79B9'7F4A'7C15 ^ hash} * (parts[1] ^ 0xD1B5'4A32'D192'ED03);
    hash = static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
  };
  constexpr std::size_t kStep = 4;  // characters
  const wchar_t* at = name.text.data();
  std::size_t left = name.text.size();
  for (; left >= kStep; left -= kStep, at += kStep) {
    std::memcpy(parts, at, sizeof parts);
    mix();
  }
  parts[0] = parts[1] = 0;
  if (left > 0) std::memcpy(parts, at, left * sizeof(wchar_t));
  mix();
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
