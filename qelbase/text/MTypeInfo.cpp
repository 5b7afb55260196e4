#include "qelbase/text/MTypeInfo.h"

bool MTypeInfo::operator==(const MTypeInfo& other) const {
  if (!m_type || !other.m_type) return m_type == other.m_type;
  return *m_type == *other.m_type;
}

bool MTypeInfo::operator<(const MTypeInfo& other) const {
  if (!m_type || !other.m_type) return !m_type && other.m_type;
  return m_type->before(*other.m_type);
}
