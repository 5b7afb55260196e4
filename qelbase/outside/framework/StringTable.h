#pragma once
// The hash table under the string maps. Keys are stored as written and found exactly; a key is
// placed by the hash of its folded text, so that a search that ignores case is a hash search too.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "qelbase/export.h"

namespace qel::framework {

// Equal for texts that are equal but for case (sys::ToLower).
[[nodiscard]] QELBASE_API std::uint32_t FoldedHash(std::wstring_view text);
[[nodiscard]] QELBASE_API bool EqualFolded(std::wstring_view a, std::wstring_view b);

// The links and the key of an entry; the value stands in front of it, the text behind it. An entry
// never moves while it lives.
struct StringTableEntry {
  StringTableEntry* next;  // in the order of insertion
  StringTableEntry* previous;
  std::uint64_t age;  // grows with each insertion
  std::uint32_t hash;
  std::uint32_t length;

  const wchar_t* text() const { return reinterpret_cast<const wchar_t*>(this + 1); }
  std::wstring_view key() const { return {text(), length}; }
};

// Slots and links, independent of the value. Open addressing in groups of 16 slots, as in Abseil's
// "Swiss tables": a byte of each hash, the tag, lies in an array of its own, and all tags of a
// group are compared at once, so that a miss reads 16 bytes as a rule. Not thread-safe; searches
// change nothing.
class QELBASE_API StringTableIndex {
 public:
  StringTableIndex() = default;
  ~StringTableIndex();
  StringTableIndex(const StringTableIndex&) = delete;
  StringTableIndex& operator=(const StringTableIndex&) = delete;

  std::size_t size() const { return m_size; }
  StringTableEntry* first() const { return m_first; }

  StringTableEntry* find(std::wstring_view key) const;
  // The exact key, else the oldest one that is equal but for its case.
  StringTableEntry* findFolded(std::wstring_view key) const;
  StringTableEntry* findFolded(std::wstring_view key, std::uint32_t hash) const;

  void insert(StringTableEntry* entry);  // takes key and hash from it; the key must be new
  void erase(StringTableEntry* entry);   // out of slots and links; the caller frees it
  void clear();                          // forgets all entries and gives the slots back
  void reserve(std::size_t entries);

 private:
  void place(StringTableEntry* entry);
  void rebuild(std::size_t slots);
  std::size_t home(std::uint32_t hash) const { return hash & m_group_mask; }

  unsigned char* m_tags = nullptr;  // one block with the slots, which stand behind them
  StringTableEntry** m_slots = nullptr;
  std::size_t m_group_mask = 0;
  std::size_t m_size = 0;
  std::size_t m_room = 0;  // slots never used that may still be filled
  std::uint64_t m_age = 0;
  StringTableEntry* m_first = nullptr;
  StringTableEntry* m_last = nullptr;
};

// Room for the entries of a table, in blocks that hold many. A block goes when all its entries are
// gone.
class QELBASE_API EntryRoom {
 public:
  static constexpr std::size_t alignment = alignof(void*);
  struct Block {
    std::size_t holders;  // its entries, and the room whose current block it is
  };

  EntryRoom() = default;
  ~EntryRoom() { clear(); }
  EntryRoom(const EntryRoom&) = delete;
  EntryRoom& operator=(const EntryRoom&) = delete;

  void* take(std::size_t bytes);  // in block(), which it holds
  Block* block() const { return m_block; }
  static void release(Block* block);
  void clear();  // starts anew; entries that live keep their blocks

 private:
  Block* m_block = nullptr;
  char* m_free = nullptr;
  std::size_t m_left = 0;
  std::size_t m_next_size = 0;
};

// The table with its values. References to values stay valid until their key is removed.
template <typename Value>
class StringTable {
 public:
  StringTable() = default;
  ~StringTable() { clear(); }
  StringTable(const StringTable&) = delete;
  StringTable& operator=(const StringTable&) = delete;

  std::size_t size() const { return m_index.size(); }
  StringTableEntry* first() const { return m_index.first(); }
  StringTableEntry* find(std::wstring_view key) const { return m_index.find(key); }
  StringTableEntry* findFolded(std::wstring_view key) const { return m_index.findFolded(key); }
  StringTableEntry* findFolded(std::wstring_view key, std::uint32_t hash) const {
    return m_index.findFolded(key, hash);
  }
  void reserve(std::size_t entries) { m_index.reserve(entries); }

  static Value& valueOf(StringTableEntry* entry) { return nodeOf(entry)->value; }

  // The key must be new; `hash` is its FoldedHash.
  StringTableEntry* add(std::wstring_view key) { return add(key, FoldedHash(key)); }
  StringTableEntry* add(std::wstring_view key, std::uint32_t hash) {
    m_index.reserve(m_index.size() + 1);  // what can fail comes first
    void* const place = m_room.take(sizeof(Node) + (key.size() + 1) * sizeof(wchar_t));
    auto* node = new (place) Node{m_room.block()};
    auto* text = reinterpret_cast<wchar_t*>(&node->entry + 1);
    std::memcpy(text, key.data(), key.size() * sizeof(wchar_t));
    text[key.size()] = L'\0';
    node->entry.length = static_cast<std::uint32_t>(key.size());
    node->entry.hash = hash;
    m_index.insert(&node->entry);
    return &node->entry;
  }

  void remove(StringTableEntry* entry) {
    m_index.erase(entry);
    destroy(entry);
  }

  void clear() {
    StringTableEntry* entry = m_index.first();
    m_index.clear();
    while (entry) destroy(std::exchange(entry, entry->next));
    m_room.clear();
  }

 private:
  struct Node {
    EntryRoom::Block* block;
    Value value{};
    StringTableEntry entry{};
  };
  static_assert(alignof(Node) <= EntryRoom::alignment);

  static Node* nodeOf(StringTableEntry* entry) {
    return reinterpret_cast<Node*>(reinterpret_cast<char*>(entry) - offsetof(Node, entry));
  }
  static void destroy(StringTableEntry* entry) {
    Node* node = nodeOf(entry);
    EntryRoom::Block* const block = node->block;
    node->~Node();
    EntryRoom::release(block);
  }

  StringTableIndex m_index;
  EntryRoom m_room;
};

}  // namespace qel::framework
