#pragma once
// What the shared library shows to its users; all else is hidden.

#if defined(QELBASE_BUILDING)
#define QELBASE_API __attribute__((visibility("default")))
#else
#define QELBASE_API
#endif
