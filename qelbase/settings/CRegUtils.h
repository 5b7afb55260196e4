#pragma once
// Single values of the current user, without a key object.

#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"

// `path` is a path below the current user. No state; safe on any thread.
namespace CRegUtils {

// Makes the key with all missing parents. True if the value was written; as bytes, or as text.
QELBASE_API bool SaveRegKey(const wchar_t* path, const wchar_t* name, const void* data,
                            std::uint32_t size);
QELBASE_API bool SaveRegKey(const wchar_t* path, const wchar_t* name, const wchar_t* text);

// False, too, for a value that is larger than `size`. Nothing is set on failure.
QELBASE_API bool LoadRegKey(const wchar_t* path, const wchar_t* name, void* data,
                            std::uint32_t size);
// At most 260 units of 16 bits.
QELBASE_API bool LoadRegKey(const wchar_t* path, const wchar_t* name, CStringW& text);

// The stored size in bytes; -1 if it cannot be read.
QELBASE_API std::int32_t GetRegKeySize(const wchar_t* path, const wchar_t* name);

}  // namespace CRegUtils
