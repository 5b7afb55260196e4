#include "qelbase/outside/framework/CMapString.h"

namespace {

constinit CRuntimeClass class_map_string_to_ptr{.m_name = "CMapStringToPtr",
                                                .m_object_size = sizeof(CMapStringToPtr),
                                                .m_base = &CObject::classCObject};
constinit CRuntimeClass class_map_string_to_string{.m_name = "CMapStringToString",
                                                   .m_object_size = sizeof(CMapStringToString),
                                                   .m_base = &CObject::classCObject};

}  // namespace

CRuntimeClass* CMapStringToPtr::GetRuntimeClass() const {
  return &class_map_string_to_ptr;
}
CMapStringToPtr::~CMapStringToPtr() = default;

CRuntimeClass* CMapStringToString::GetRuntimeClass() const {
  return &class_map_string_to_string;
}
CMapStringToString::~CMapStringToString() = default;
