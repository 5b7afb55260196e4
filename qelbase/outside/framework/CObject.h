#pragma once
// The framework's root class and its run-time class records.

#include <cstdint>

#include "qelbase/export.h"

class CArchive;
class CDumpContext;
class CObject;

// What is known of a class at run time. One static object a class.
struct QELBASE_API CRuntimeClass {
  const char* m_name;
  int m_object_size;  // bytes
  std::uint32_t m_schema = 0xFFFF;
  CObject* (*m_create)() = nullptr;  // null: objects are not made by record
  const CRuntimeClass* m_base = nullptr;

  bool IsDerivedFrom(const CRuntimeClass* base) const;  // a class counts as derived from itself
  CObject* CreateObject() const { return m_create ? m_create() : nullptr; }  // the caller deletes
};

// Virtual operations in slot order; the last three do nothing here.
class QELBASE_API CObject {
 public:
  virtual CRuntimeClass* GetRuntimeClass() const;
  virtual ~CObject() = default;
  virtual void Serialize(CArchive& archive);
  virtual void AssertValid() const;
  virtual void Dump(CDumpContext& context) const;

  CObject(const CObject&) = delete;
  CObject& operator=(const CObject&) = delete;

  bool IsKindOf(const CRuntimeClass* record) const;
  bool IsSerializable() const;  // its class record has a schema other than 0xFFFF

  static CRuntimeClass classCObject;

 protected:
  CObject() = default;
};
