#pragma once
// The exception for what the system can't supply.

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

// Thrown by pointer. Whoever catches it for good frees it with `Delete`; throwing it on hands that
// duty on.
class QELBASE_API CResourceException {
 public:
  explicit CResourceException(LONG os_error);
  virtual ~CResourceException();

  void Delete();

  [[noreturn]] static void ThrowOsError(LONG os_error);

  LONG m_lOsError;  // the system's code
};
