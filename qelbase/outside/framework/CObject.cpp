#include "qelbase/outside/framework/CObject.h"

CRuntimeClass CObject::classCObject{"CObject", sizeof(CObject)};

bool CRuntimeClass::IsDerivedFrom(const CRuntimeClass* base) const {
  const CRuntimeClass* record = this;
  while (record && record != base) record = record->m_base;
  return record != nullptr;
}

CRuntimeClass* CObject::GetRuntimeClass() const {
  return &classCObject;
}
void CObject::Serialize(CArchive&) {}
void CObject::AssertValid() const {}
void CObject::Dump(CDumpContext&) const {}

bool CObject::IsKindOf(const CRuntimeClass* record) const {
  return GetRuntimeClass()->IsDerivedFrom(record);
}

bool CObject::IsSerializable() const {
  return GetRuntimeClass()->m_schema != 0xFFFF;
}
