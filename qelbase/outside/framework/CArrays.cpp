#include "qelbase/outside/framework/CArrays.h"

namespace {

template <typename Array>
constexpr CRuntimeClass recordOf(const char* name) {
  return {.m_name = name, .m_object_size = sizeof(Array), .m_base = &CObject::classCObject};
}

constinit CRuntimeClass class_string_array = recordOf<CStringArray>("CStringArray");
constinit CRuntimeClass class_word_array = recordOf<CWordArray>("CWordArray");
constinit CRuntimeClass class_byte_array = recordOf<CByteArray>("CByteArray");

}  // namespace

CStringArray::CStringArray() = default;
CStringArray::~CStringArray() = default;
CRuntimeClass* CStringArray::GetRuntimeClass() const {
  return &class_string_array;
}

CWordArray::CWordArray() = default;
CWordArray::~CWordArray() = default;
CRuntimeClass* CWordArray::GetRuntimeClass() const {
  return &class_word_array;
}

CByteArray::CByteArray() = default;
CByteArray::~CByteArray() = default;
CRuntimeClass* CByteArray::GetRuntimeClass() const {
  return &class_byte_array;
}
