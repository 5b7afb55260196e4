#pragma once
// The framework's arrays that grow: of wide strings, of 16-bit and of 8-bit values.
//
// Indexes count from 0 and throw std::out_of_range outside of the array; where the array may grow,
// a negative one alone does. New elements are empty or 0. An array belongs to one thread at a time;
// references and pointers to elements live until the next call that changes the number of elements.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CObject.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/outside/system/types.h"

// What `Argument` is to `Value` in an argument list: a wide string is handed in as plain text.
template <typename Value, typename Argument>
class CArrayOf : public CObject {
 public:
  using Index = std::int64_t;

  Index GetSize() const { return static_cast<Index>(m_elements.size()); }
  Index GetCount() const { return GetSize(); }
  Index GetUpperBound() const { return GetSize() - 1; }  // -1 if empty
  BOOL IsEmpty() const { return m_elements.empty(); }
  // A `grow_by` above 0 is how many elements the array makes room for at once.
  void SetSize(Index size, Index grow_by = -1) {
    if (size < 0) throw std::out_of_range("SetSize");
    if (grow_by > 0) m_elements.reserve(static_cast<std::size_t>(size + grow_by));
    m_elements.resize(static_cast<std::size_t>(size));
  }
  void FreeExtra() { m_elements.shrink_to_fit(); }
  void RemoveAll() { m_elements.clear(); }

  const Value& GetAt(Index index) const { return m_elements[Checked(index)]; }
  Value& ElementAt(Index index) { return m_elements[Checked(index)]; }
  void SetAt(Index index, Argument value) { ElementAt(index) = value; }
  const Value& operator[](Index index) const { return GetAt(index); }
  Value& operator[](Index index) { return ElementAt(index); }
  // The elements one behind the other; null if there are none.
  const Value* GetData() const { return m_elements.empty() ? nullptr : m_elements.data(); }
  Value* GetData() { return m_elements.empty() ? nullptr : m_elements.data(); }

  void SetAtGrow(Index index, Argument value) {
    Value element(value);  // may lie in this array
    if (index >= GetSize()) SetSize(index + 1);
    ElementAt(index) = std::move(element);
  }
  Index Add(Argument value) {  // its index
    m_elements.push_back(Value(value));
    return GetUpperBound();
  }
  Index Append(const CArrayOf& other) {  // where the first of them is
    const Index first = GetSize();
    const std::vector<Value> copy = other.m_elements;  // may be this array
    m_elements.insert(m_elements.end(), copy.begin(), copy.end());
    return first;
  }
  void Copy(const CArrayOf& other) { m_elements = other.m_elements; }
  // Behind the end the array grows up to `index` first.
  void InsertAt(Index index, Argument value, Index count = 1) {
    const Value element(value);
    if (index > GetSize()) SetSize(index);
    if (index < 0 || count < 0) throw std::out_of_range("InsertAt");
    m_elements.insert(m_elements.begin() + index, static_cast<std::size_t>(count), element);
  }
  void RemoveAt(Index index, Index count = 1) {
    if (index < 0 || count < 0 || count > GetSize() - index) throw std::out_of_range("RemoveAt");
    m_elements.erase(m_elements.begin() + index, m_elements.begin() + index + count);
  }

 protected:
  CArrayOf() = default;

 private:
  std::size_t Checked(Index index) const {
    if (index < 0 || index >= GetSize()) throw std::out_of_range("index of an array");
    return static_cast<std::size_t>(index);
  }

  std::vector<Value> m_elements;
};

// Texts.
class QELBASE_API CStringArray : public CArrayOf<CStringW, const wchar_t*> {
 public:
  CStringArray();
  ~CStringArray() override;
  CRuntimeClass* GetRuntimeClass() const override;
};

// Words of 16 bits.
class QELBASE_API CWordArray : public CArrayOf<WORD, WORD> {
 public:
  CWordArray();
  ~CWordArray() override;
  CRuntimeClass* GetRuntimeClass() const override;
};

// Bytes.
class QELBASE_API CByteArray : public CArrayOf<BYTE, BYTE> {
 public:
  CByteArray();
  ~CByteArray() override;
  CRuntimeClass* GetRuntimeClass() const override;
};
