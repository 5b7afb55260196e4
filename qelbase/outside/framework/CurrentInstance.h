#pragma once
// The module that the application framework runs as.

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

// Null, as at start, is the program; a framework that was started by a shared object sets that one.
// For the whole process, safe on any thread.
[[nodiscard]] QELBASE_API HINSTANCE GetCurrentInstance();
QELBASE_API void SetCurrentInstance(HINSTANCE instance);
