#pragma once
// The framework's maps from wide strings. Keys count exactly as written.
//
// A map belongs to one thread at a time; searches and iteration change nothing. References from
// operator[] stay valid until their key is removed. During an iteration, removing the entry that
// was just returned is safe; an entry added meanwhile comes last.

#include <cstdint>
#include <string_view>
#include <utility>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CObject.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/outside/framework/StoredText.h"
#include "qelbase/outside/framework/StringTable.h"
#include "qelbase/outside/system/types.h"

// A place in an iteration; null is the end.
struct __POSITION;
using POSITION = __POSITION*;

// `Argument` is what a `Value` is in an argument list: a wide string is handed in as plain text.
// `Stored` is the form in which the table keeps it.
template <typename Value, typename Argument, typename Stored>
class CMapStringTo : public CObject {
 public:
  // `block_size` is how many entries the table makes room for at first.
  explicit CMapStringTo(std::intptr_t block_size = 10) : m_block_size(block_size) {}

  std::intptr_t GetCount() const { return static_cast<std::intptr_t>(m_table.size()); }
  std::intptr_t GetSize() const { return GetCount(); }
  BOOL IsEmpty() const { return m_table.size() == 0; }

  // True if the key is there; else `value` is left alone.
  BOOL Lookup(const wchar_t* key, Value& value) const {
    Entry* entry = m_table.find(key);
    if (entry) Copy(Table::valueOf(entry), value);
    return entry != nullptr;
  }
  // The stored key's own text, which lives as long as its entry.
  BOOL LookupKey(const wchar_t* key, const wchar_t*& stored) const {
    Entry* entry = m_table.find(key);
    if (entry) stored = entry->text();
    return entry != nullptr;
  }
  // A new key holds null or an empty string.
  Value& operator[](const wchar_t* key) {
    Entry* entry = m_table.find(key);
    return Own(Table::valueOf(entry ? entry : Add(key)));
  }
  void SetAt(const wchar_t* key, Argument value) { (*this)[key] = value; }
  BOOL RemoveKey(const wchar_t* key) { return Remove(m_table.find(key)); }
  void RemoveAll() { m_table.clear(); }

  // The marker -1 when there are entries, else null.
  POSITION GetStartPosition() const {
    return reinterpret_cast<POSITION>(m_table.size() == 0 ? std::intptr_t{0} : std::intptr_t{-1});
  }
  // Gives the entry at `position` and moves it on; null after the last. Entries come in the order
  // in which they were added.
  void GetNextAssoc(POSITION& position, CStringW& key, Value& value) const {
    Entry* entry = EntryAt(position);
    if (!entry) return;
    position = reinterpret_cast<POSITION>(entry->next);
    key = CStringW(entry->text(), static_cast<int>(entry->length));
    Copy(Table::valueOf(entry), value);
  }

  // Visits each entry's stored key, a std::wstring_view, and value (a void*, or a StoredText, which
  // converts to CStringW), in the same order and without copies. The map must not change meanwhile.
  template <typename Visit>
  void ForEach(Visit visit) const {
    for (Entry* entry = m_table.first(); entry; entry = entry->next) {
      visit(entry->key(), std::as_const(Table::valueOf(entry)));
    }
  }

  // Makes room for that many entries.
  void InitHashTable(UINT entries, BOOL /*allocate_now*/ = 1) { m_table.reserve(entries); }

 protected:
  using Entry = qel::framework::StringTableEntry;
  using Table = qel::framework::StringTable<Stored>;

  static void*& Own(void*& value) { return value; }
  static CStringW& Own(qel::framework::StoredText& value) { return value.own(); }
  static void Copy(void* from, void*& to) { to = from; }
  static void Copy(const qel::framework::StoredText& from, CStringW& to) { from.copyTo(to); }

  Entry* FindFolded(std::wstring_view key) const { return m_table.findFolded(key); }
  Entry* Add(std::wstring_view key) { return Add(key, qel::framework::FoldedHash(key)); }
  Entry* FindFoldedOrAdd(std::wstring_view key) {
    const std::uint32_t hash = qel::framework::FoldedHash(key);
    Entry* entry = m_table.findFolded(key, hash);
    return entry ? entry : Add(key, hash);
  }
  BOOL Remove(Entry* entry) {
    if (entry) m_table.remove(entry);
    return entry != nullptr;
  }

 private:
  Entry* Add(std::wstring_view key, std::uint32_t hash) {
    if (m_table.size() == 0 && m_block_size > 0) {
      m_table.reserve(static_cast<std::size_t>(m_block_size));
    }
    return m_table.add(key, hash);
  }
  Entry* EntryAt(POSITION position) const {
    if (position == reinterpret_cast<POSITION>(std::intptr_t{-1})) return m_table.first();
    return reinterpret_cast<Entry*>(position);
  }

  Table m_table;
  std::intptr_t m_block_size;
};

// Pointers, which stay the caller's.
class QELBASE_API CMapStringToPtr : public CMapStringTo<void*, void*, void*> {
 public:
  using CMapStringTo::CMapStringTo;
  CRuntimeClass* GetRuntimeClass() const override;
  ~CMapStringToPtr() override;
};

// Texts.
class QELBASE_API CMapStringToString
    : public CMapStringTo<CStringW, const wchar_t*, qel::framework::StoredText> {
 public:
  using CMapStringTo::CMapStringTo;
  CRuntimeClass* GetRuntimeClass() const override;
  ~CMapStringToString() override;
};
