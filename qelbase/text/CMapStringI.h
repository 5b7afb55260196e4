#pragma once
// Maps from wide strings in which a key found under any case counts as the same key, while the key
// is stored as first written. An exact key wins over one that differs in case; of several that
// differ (they can only come in through the base class) the one added first. Every search, a miss
// too, is one hash search.
//
// A map belongs to one thread at a time; searches and iteration change nothing. A key must not be
// null.

#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CMapString.h"

class QELBASE_API CMapStringIToPtr : public CMapStringToPtr {
 public:
  explicit CMapStringIToPtr(std::uint16_t block_size = 10);
  ~CMapStringIToPtr() override;

  std::int64_t GetCount() const;
  std::int32_t IsEmpty() const;  // 1 if empty
  // `value` is left alone on a miss.
  bool Lookup(const wchar_t* key, void*& value) const;
  // A new key is stored in the form given and holds null. The reference stays valid until its key
  // is removed.
  void*& operator[](const wchar_t* key);
  bool RemoveKey(const wchar_t* key);
  void RemoveAll();
  POSITION GetStartPosition() const;
  void GetNextAssoc(POSITION& position, CStringW& key, void*& value) const;
};

// Texts.
class QELBASE_API CMapStringIToString : private CMapStringToString {
 public:
  explicit CMapStringIToString(std::uint16_t block_size = 10);
  ~CMapStringIToString() override;

  std::int64_t GetCount() const;
  std::int32_t IsEmpty() const;
  bool Lookup(const wchar_t* key, CStringW& value) const;
  CStringW& operator[](const wchar_t* key);  // a new key holds an empty string
  // Sets a value that may lie in the bytes of a file.
  void Put(std::wstring_view key, qel::framework::StoredText value);
  bool RemoveKey(const wchar_t* key);
  void RemoveAll();
  POSITION GetStartPosition() const;
  void GetNextAssoc(POSITION& position, CStringW& key, CStringW& value) const;
  using CMapStringToString::ForEach;
};

// Owns its values: they must come from new, and the map deletes them.
class QELBASE_API CMapStringIToObject : public CObject {
 public:
  CMapStringIToObject();
  ~CMapStringIToObject() override;  // RemoveAll

  std::int64_t GetCount() const;
  bool Lookup(const wchar_t* key, CObject*& value);
  bool Lookup(const wchar_t* key, const CObject*& value) const;
  // A pointer written through the reference replaces the old one without deleting it.
  CObject*& operator[](const wchar_t* key);
  // Puts `value` in and deletes the old one, unless it is the very same. True if the key existed.
  bool Set(const wchar_t* key, CObject* value);
  bool RemoveKey(const wchar_t* key);  // deletes the value; true if the key existed
  // Takes the value out and hands it to the caller; null if the key is not there.
  [[nodiscard]] CObject* RemoveKey2(const wchar_t* key);
  void RemoveAll();
  POSITION GetStartPosition() const;
  void GetNextAssoc(POSITION& position, CStringW& key, CObject*& value);
  void GetNextAssoc(POSITION& position, CStringW& key, const CObject*& value) const;

 private:
  CMapStringIToPtr m_map;
};
