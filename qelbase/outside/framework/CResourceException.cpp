#include "qelbase/outside/framework/CResourceException.h"

CResourceException::CResourceException(LONG os_error) : m_lOsError(os_error) {}

CResourceException::~CResourceException() = default;

void CResourceException::Delete() {
  delete this;
}

void CResourceException::ThrowOsError(LONG os_error) {
  throw new CResourceException(os_error);
}
