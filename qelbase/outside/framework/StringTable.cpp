#include "qelbase/outside/framework/StringTable.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

// Equal for characters that are equal but for case. Capitals and small letters of ASCII differ in
// this one bit; that others become equal, too, only costs a comparison.
std::uint64_t blurPair(std::uint64_t pair) {
  if ((pair & ~each(0x7F)) != 0) [[unlikely]] {
    pair = foldSlowly(pair);
  }
  return pair | each(0x20);
}

constexpr std::size_t group_size = 16;

// A tag is below 0x80, or one of these.
constexpr unsigned char tag_empty = 0x80;
constexpr unsigned char tag_removed = 0xFE;

// The upper bits: the lower ones choose the group.
unsigned char tagOf(std::uint32_t hash) {
  return static_cast<unsigned char>(hash >> 25);
}

// Slots of a group, one bit each.
using Bits = unsigned;

Bits tagsEqualTo(unsigned char tag, const unsigned char* tags) {
#if defined(__SSE2__)
  const __m128i all = _mm_load_si128(reinterpret_cast<const __m128i*>(tags));
  const __m128i equal = _mm_cmpeq_epi8(all, _mm_set1_epi8(static_cast<char>(tag)));
  return static_cast<Bits>(_mm_movemask_epi8(equal));
#else
  Bits bits = 0;
  for (std::size_t i = 0; i < group_size; ++i) bits |= static_cast<Bits>(tags[i] == tag) << i;
  return bits;
#endif
}

// So that a hit needn't wait for the tags before it asks for its slot.
void prefetchGroup(StringTableEntry* const* slots) {
  __builtin_prefetch(slots);
  __builtin_prefetch(slots + group_size / 2);
}

// One of eight slots stays empty, so that a search comes to an end.
constexpr std::size_t roomOf(std::size_t slots) {
  return slots - slots / 8;
}

std::size_t slotsFor(std::size_t entries) {
  const std::size_t slots = std::bit_ceil(std::max(entries, group_size));
  return entries <= roomOf(slots) ? slots : slots * 2;
}

// The first of the slots in `bits`, and those without it.
std::size_t firstOf(Bits bits) {
  return static_cast<std::size_t>(std::countr_zero(bits));
}
Bits withoutFirst(Bits bits) {
  return bits & (bits - 1);
}

}  // namespace

std::uint32_t FoldedHash(std::wstring_view text) {
  constexpr std::uint64_t first = 0x9E3779B97F4A7C15, second = 0xD1B54A32D192ED03;
  const wchar_t* at = text.data();
  std::size_t left = text.size();
  std::uint64_t hash = left * first;
  for (; left >= 4; left -= 4, at += 4) {
    hash = mix(blurPair(pairAt(at)) ^ first ^ hash, blurPair(pairAt(at + 2)) ^ second);
  }
  std::uint64_t low = 0, high = 0;
  if (left >= 2) low = blurPair(pairAt(at));
  if (left % 2 != 0) high = blurPair(lastCharacter(at + left - 1));
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
  ::operator delete(m_tags);
}

StringTableEntry* StringTableIndex::find(std::wstring_view key) const {
  if (m_size == 0) return nullptr;
  const std::uint32_t hash = FoldedHash(key);
  prefetchGroup(m_slots + home(hash) * group_size);
  for (std::size_t group = home(hash);; group = (group + 1) & m_group_mask) {
    const unsigned char* tags = m_tags + group * group_size;
    for (Bits bits = tagsEqualTo(tagOf(hash), tags); bits != 0; bits = withoutFirst(bits)) {
      StringTableEntry* entry = m_slots[group * group_size + firstOf(bits)];
      if (entry->hash == hash && entry->key() == key) return entry;
    }
    if (tagsEqualTo(tag_empty, tags) != 0) return nullptr;
  }
}

StringTableEntry* StringTableIndex::findFolded(std::wstring_view key) const {
  return m_size == 0 ? nullptr : findFolded(key, FoldedHash(key));
}

StringTableEntry* StringTableIndex::findFolded(std::wstring_view key, std::uint32_t hash) const {
  if (m_size == 0) return nullptr;
  prefetchGroup(m_slots + home(hash) * group_size);
  StringTableEntry* oldest = nullptr;
  for (std::size_t group = home(hash);; group = (group + 1) & m_group_mask) {
    const unsigned char* tags = m_tags + group * group_size;
    for (Bits bits = tagsEqualTo(tagOf(hash), tags); bits != 0; bits = withoutFirst(bits)) {
      StringTableEntry* entry = m_slots[group * group_size + firstOf(bits)];
      if (entry->hash != hash) continue;
      if (entry->key() == key) return entry;
      if ((!oldest || entry->age < oldest->age) && EqualFolded(entry->key(), key)) oldest = entry;
    }
    if (tagsEqualTo(tag_empty, tags) != 0) return oldest;
  }
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
  for (std::size_t group = home(entry->hash);; group = (group + 1) & m_group_mask) {
    unsigned char* tags = m_tags + group * group_size;
    Bits bits = tagsEqualTo(tag_removed, tags);
    if (bits == 0) {
      bits = tagsEqualTo(tag_empty, tags);
      if (bits == 0) continue;
      --m_room;
    }
    tags[firstOf(bits)] = tagOf(entry->hash);
    m_slots[group * group_size + firstOf(bits)] = entry;
    return;
  }
}

void StringTableIndex::erase(StringTableEntry* entry) {
  (entry->previous ? entry->previous->next : m_first) = entry->next;
  (entry->next ? entry->next->previous : m_last) = entry->previous;
  --m_size;

  std::size_t group = home(entry->hash);
  Bits bits = 0;
  for (;; group = (group + 1) & m_group_mask) {
    bits = tagsEqualTo(tagOf(entry->hash), m_tags + group * group_size);
    while (bits != 0 && m_slots[group * group_size + firstOf(bits)] != entry) {
      bits = withoutFirst(bits);
    }
    if (bits != 0) break;
  }
  // No search has gone past a group that has an empty slot.
  unsigned char* tags = m_tags + group * group_size;
  const bool ends_searches = tagsEqualTo(tag_empty, tags) != 0;
  tags[firstOf(bits)] = ends_searches ? tag_empty : tag_removed;
  if (ends_searches) ++m_room;
}

void StringTableIndex::clear() {
  ::operator delete(m_tags);
  m_tags = nullptr;
  m_slots = nullptr;
  m_group_mask = m_size = m_room = 0;
  m_first = m_last = nullptr;
}

void StringTableIndex::reserve(std::size_t entries) {
  if (entries <= m_size + m_room) return;
  // Room for a quarter more, so that rebuilding is rare also where keys come and go.
  rebuild(slotsFor(std::max(entries, m_size + m_size / 4)));
}

void StringTableIndex::rebuild(std::size_t slots) {
  const std::size_t size = slots * (sizeof(unsigned char) + sizeof(void*));
  auto* fresh = static_cast<unsigned char*>(::operator new(size));
  ::operator delete(m_tags);
  m_tags = fresh;
  m_slots = reinterpret_cast<StringTableEntry**>(fresh + slots);
  std::fill_n(m_tags, slots, tag_empty);
  m_group_mask = slots / group_size - 1;
  m_room = roomOf(slots);
  for (StringTableEntry* entry = m_first; entry; entry = entry->next) place(entry);
}

void* EntryRoom::take(std::size_t bytes) {
  constexpr std::size_t smallest = 512, largest = 16384;
  bytes = (bytes + alignment - 1) / alignment * alignment;
  if (m_left < bytes) {
    const std::size_t next = std::clamp(m_next_size * 2, smallest, largest);
    const std::size_t size = std::max(bytes, next);
    auto* const fresh = new (::operator new(sizeof(Block) + size)) Block{1};
    clear();
    m_block = fresh;
    m_free = reinterpret_cast<char*>(fresh + 1);
    m_left = size;
    m_next_size = next;
  }
  ++m_block->holders;
  m_left -= bytes;
  return std::exchange(m_free, m_free + bytes);
}

void EntryRoom::release(Block* block) {
  if (--block->holders == 0) ::operator delete(block);
}

void EntryRoom::clear() {
  if (m_block) release(m_block);
  m_block = nullptr;
  m_left = m_next_size = 0;
}

}  // namespace qel::framework
