#include "qelbase/text/CMapStringI.h"

#include <utility>

// --- CMapStringIToPtr --------------------------------------------------------------------------

CMapStringIToPtr::CMapStringIToPtr(std::uint16_t block_size) : CMapStringToPtr(block_size) {}
CMapStringIToPtr::~CMapStringIToPtr() = default;

std::int64_t CMapStringIToPtr::GetCount() const {
  return CMapStringToPtr::GetCount();
}
std::int32_t CMapStringIToPtr::IsEmpty() const {
  return CMapStringToPtr::IsEmpty();
}
bool CMapStringIToPtr::Lookup(const wchar_t* key, void*& value) const {
  Entry* entry = FindFolded(key);
  if (entry) Copy(Table::valueOf(entry), value);
  return entry != nullptr;
}
void*& CMapStringIToPtr::operator[](const wchar_t* key) {
  return Own(Table::valueOf(FindFoldedOrAdd(key)));
}
bool CMapStringIToPtr::RemoveKey(const wchar_t* key) {
  return Remove(FindFolded(key));
}
void CMapStringIToPtr::RemoveAll() {
  CMapStringToPtr::RemoveAll();
}
POSITION CMapStringIToPtr::GetStartPosition() const {
  return CMapStringToPtr::GetStartPosition();
}
void CMapStringIToPtr::GetNextAssoc(POSITION& position, CStringW& key, void*& value) const {
  CMapStringToPtr::GetNextAssoc(position, key, value);
}

// --- CMapStringIToString -----------------------------------------------------------------------

CMapStringIToString::CMapStringIToString(std::uint16_t block_size)
    : CMapStringToString(block_size) {}
CMapStringIToString::~CMapStringIToString() = default;

std::int64_t CMapStringIToString::GetCount() const {
  return CMapStringToString::GetCount();
}
std::int32_t CMapStringIToString::IsEmpty() const {
  return CMapStringToString::IsEmpty();
}
bool CMapStringIToString::Lookup(const wchar_t* key, CStringW& value) const {
  Entry* entry = FindFolded(key);
  if (entry) Copy(Table::valueOf(entry), value);
  return entry != nullptr;
}
CStringW& CMapStringIToString::operator[](const wchar_t* key) {
  return Own(Table::valueOf(FindFoldedOrAdd(key)));
}
void CMapStringIToString::Put(std::wstring_view key, qel::framework::StoredText value) {
  Table::valueOf(FindFoldedOrAdd(key)) = std::move(value);
}
bool CMapStringIToString::RemoveKey(const wchar_t* key) {
  return Remove(FindFolded(key));
}
void CMapStringIToString::RemoveAll() {
  CMapStringToString::RemoveAll();
}
POSITION CMapStringIToString::GetStartPosition() const {
  return CMapStringToString::GetStartPosition();
}
void CMapStringIToString::GetNextAssoc(POSITION& position, CStringW& key, CStringW& value) const {
  CMapStringToString::GetNextAssoc(position, key, value);
}

// --- CMapStringIToObject -----------------------------------------------------------------------

CMapStringIToObject::CMapStringIToObject() : m_map(10) {}

CMapStringIToObject::~CMapStringIToObject() {
  RemoveAll();
}

std::int64_t CMapStringIToObject::GetCount() const {
  return m_map.GetCount();
}

bool CMapStringIToObject::Lookup(const wchar_t* key, CObject*& value) {
  void* found = nullptr;
  if (!m_map.Lookup(key, found)) return false;
  value = static_cast<CObject*>(found);
  return true;
}

bool CMapStringIToObject::Lookup(const wchar_t* key, const CObject*& value) const {
  void* found = nullptr;
  if (!m_map.Lookup(key, found)) return false;
  value = static_cast<const CObject*>(found);
  return true;
}

CObject*& CMapStringIToObject::operator[](const wchar_t* key) {
  // Both compilers let a void* be read as another pointer, and only CObject* is written there.
  return reinterpret_cast<CObject*&>(m_map[key]);
}

bool CMapStringIToObject::Set(const wchar_t* key, CObject* value) {
  CObject* old = nullptr;
  const bool existed = Lookup(key, old);
  if (existed && old == value) return true;
  (*this)[key] = value;
  delete old;
  return existed;
}

bool CMapStringIToObject::RemoveKey(const wchar_t* key) {
  CObject* old = nullptr;
  if (!Lookup(key, old)) return false;
  m_map.RemoveKey(key);
  delete old;
  return true;
}

CObject* CMapStringIToObject::RemoveKey2(const wchar_t* key) {
  CObject* old = nullptr;
  if (Lookup(key, old)) m_map.RemoveKey(key);
  return old;
}

void CMapStringIToObject::RemoveAll() {
  m_map.ForEach([](std::wstring_view, void* value) { delete static_cast<CObject*>(value); });
  m_map.RemoveAll();
}

POSITION CMapStringIToObject::GetStartPosition() const {
  return m_map.GetStartPosition();
}

void CMapStringIToObject::GetNextAssoc(POSITION& position, CStringW& key, CObject*& value) {
  void* found = value;
  m_map.GetNextAssoc(position, key, found);
  value = static_cast<CObject*>(found);
}

void CMapStringIToObject::GetNextAssoc(POSITION& position, CStringW& key,
                                       const CObject*& value) const {
  void* found = const_cast<CObject*>(value);
  m_map.GetNextAssoc(position, key, found);
  value = static_cast<const CObject*>(found);
}
