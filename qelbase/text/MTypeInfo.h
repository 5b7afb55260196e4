#pragma once
// The identity of a type as a key of ordered containers.

#include <typeinfo>

#include "qelbase/export.h"

class QELBASE_API MTypeInfo {
 public:
  explicit MTypeInfo(const std::type_info& type) : m_type(&type) {}
  MTypeInfo(const MTypeInfo& other) = default;
  MTypeInfo& operator=(const MTypeInfo& other) = default;

  bool operator==(const MTypeInfo& other) const;
  bool operator!=(const MTypeInfo& other) const { return !(*this == other); }
  // The order of type_info::before; no type at all comes first.
  bool operator<(const MTypeInfo& other) const;

 private:
  MTypeInfo() = default;

  const std::type_info* m_type = nullptr;
};
