#include "qelbase/outside/framework/StringTable.h"

#include <algorithm>
#include <bit>

#include "qelbase/outside/system/text.h"

namespace qel::framework {

namespace {

// Two characters at a time, in one machine word.
static_assert(sizeof(wchar_t) == 4, "a machine word holds two characters");

constexpr std::uint64_t each(std::uint32_t value) {
  return std::uint64_t{value} << 32 | value;
}

std::uint64_t foldSlowly(std::uint64_t pair) {
  wchar_t two[2];
  std::memcpy(two, &pair, sizeof pair);
  for (wchar_t& c : two) c = sys::ToLower(c);
  std::memcpy(&pair, two, sizeof pair);
  return pair;
}

// Both characters folded. For ASCII, bit 7 of each sum tells whether the character is not below
// 'A', or above 'Z'; where the two differ it is a capital.
std::uint64_t foldPair(std::uint64_t pair) {
  if ((pair & ~each(0x7F)) != 0) [[unlikely]] {
    return foldSlowly(pair);
  }
  const std::uint64_t from_a = pair + each(0x80 - 'A');
  const std::uint64_t above_z = pair + each(0x7F - 'Z');
  return pair | ((from_a ^ above_z) & each(0x80)) >> 2;
}

std::uint64_t pairAt(const wchar_t* text) {
  std::uint64_t pair;
  std::memcpy(&pair, text, sizeof pair);
  return pair;
}

std::uint64_t lastCharacter(const wchar_t* text) {
  std::uint64_t pair = 0;
  std::memcpy(&pair, text, sizeof(wchar_t));
  return pair;
}

std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

constexpr std::size_t fewest_slots = 16;

}  // namespace

std::uint32_t FoldedHash(std::wstring_view text) {
  constexpr std::uint64_t first = 0x9E3779B97F4A7C15, second = 0xD1B54A32D192ED03;
  const wchar_t* at = text.data();
  std::size_t left = text.size();
  std::uint64_t hash = left * first;
  for (; left >= 4; left -= 4, at += 4) {
    hash = mix(foldPair(pairAt(at)) ^ first ^ hash, foldPair(pairAt(at + 2)) ^ second);
  }
  std::uint64_t low = 0, high = 0;
  if (left >= 2) low = foldPair(pairAt(at));
  if (left % 2 != 0) high = foldPair(lastCharacter(at + left - 1));
  hash = mix(low ^ first ^ hash, high ^ second);
  return static_cast<std::uint32_t>(hash ^ hash >> 32);
}

bool EqualFolded(std::wstring_view a, std::wstring_view b) {
  if (a.size() != b.size()) return false;
  const std::size_t pairs = a.size() / 2;
  for (std::size_t i = 0; i < pairs; ++i) {
    if (foldPair(pairAt(a.data() + 2 * i)) != foldPair(pairAt(b.data() + 2 * i))) return false;
  }
  if (a.size() % 2 == 0) return true;
  return foldPair(lastCharacter(&a.back())) == foldPair(lastCharacter(&b.back()));
}

StringTableIndex::~StringTableIndex() {
  delete[] m_slots;
}

StringTableEntry* StringTableIndex::find(std::wstring_view key) const {
  if (m_size == 0) return nullptr;
  const std::uint32_t hash = FoldedHash(key);
  for (std::size_t at = home(hash); m_slots[at].entry; at = (at + 1) & m_mask) {
    if (m_slots[at].hash == hash && m_slots[at].entry->key() == key) return m_slots[at].entry;
  }
  return nullptr;
}

StringTableEntry* StringTableIndex::findFolded(std::wstring_view key) const {
  if (m_size == 0) return nullptr;
  const std::uint32_t hash = FoldedHash(key);
  StringTableEntry* oldest = nullptr;
  for (std::size_t at = home(hash); m_slots[at].entry; at = (at + 1) & m_mask) {
    if (m_slots[at].hash != hash) continue;
    StringTableEntry* entry = m_slots[at].entry;
    if (entry->key() == key) return entry;
    if ((!oldest || entry->age < oldest->age) && EqualFolded(entry->key(), key)) oldest = entry;
  }
  return oldest;
}

void StringTableIndex::insert(StringTableEntry* entry) {
  reserve(m_size + 1);
  entry->age = m_age++;
  entry->next = nullptr;
  entry->previous = m_last;
  (m_last ? m_last->next : m_first) = entry;
  m_last = entry;
  place(entry);
  ++m_size;
}

void StringTableIndex::place(StringTableEntry* entry) {
  std::size_t at = home(entry->hash);
  while (m_slots[at].entry) at = (at + 1) & m_mask;
  m_slots[at] = {entry, entry->hash};
}

void StringTableIndex::erase(StringTableEntry* entry) {
  (entry->previous ? entry->previous->next : m_first) = entry->next;
  (entry->next ? entry->next->previous : m_last) = entry->previous;
  --m_size;

  std::size_t hole = home(entry->hash);
  while (m_slots[hole].entry != entry) hole = (hole + 1) & m_mask;
  // What follows moves up, unless it would come to stand before its home.
  for (std::size_t at = (hole + 1) & m_mask; m_slots[at].entry; at = (at + 1) & m_mask) {
    const std::size_t from_home = (at - home(m_slots[at].hash)) & m_mask;
    if (from_home < ((at - hole) & m_mask)) continue;
    m_slots[hole] = m_slots[at];
    hole = at;
  }
  m_slots[hole] = {};
}

void StringTableIndex::clear() {
  delete[] m_slots;
  m_slots = nullptr;
  m_mask = m_size = 0;
  m_first = m_last = nullptr;
}

void StringTableIndex::reserve(std::size_t entries) {
  if (m_slots && entries * 2 <= m_mask + 1) return;
  grow(std::bit_ceil(std::max(entries * 2, fewest_slots)));
}

void StringTableIndex::grow(std::size_t slots) {
  Slot* fresh = new Slot[slots]();
  delete[] m_slots;
  m_slots = fresh;
  m_mask = slots - 1;
  for (StringTableEntry* entry = m_first; entry; entry = entry->next) place(entry);
}

}  // namespace qel::framework
