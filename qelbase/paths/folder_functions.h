#pragma once
// Helpers on path texts, folders made in one go, and typed reading and writing. All are safe on any
// thread.

#include <cstdint>
#include <cstdio>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"

// Begins with two separators, or with any character, a colon and a separator: C:\x, C:/x, \\x, //x,
// but not C:x, \x, /x, x or the empty text.
[[nodiscard]] QELBASE_API bool IsAbsolutePath(const CStringW& path);

// Turns each `/` into `\`, and closes a text that is not empty with a `\`.
QELBASE_API void AssurePath(CStringW& path);
// The same, and then appends `tail` without a leading separator; a null `tail` appends nothing.
QELBASE_API void AssurePathAppend(CStringW& path, const wchar_t* tail);

// Creates each missing folder of the chain; true also if all exist. False for the empty path, for
// one that begins with a separator, and where a folder can't be created: the last error tells why,
// and what was created stays. A level that ends in a point, `C:`, and a doubled separator are
// passed over. The last level needs no closing separator.
QELBASE_API bool mkdirchain(const wchar_t* path);

// fread and fwrite with the element's type checked: `count` elements of `size` bytes, as they lie
// in memory; the number of elements that were moved whole.
QELBASE_API std::uint64_t fread_float(float* data, std::uint64_t size, std::uint64_t count,
                                      std::FILE* file);
QELBASE_API std::uint64_t fwrite_float(const float* data, std::uint64_t size, std::uint64_t count,
                                       std::FILE* file);
QELBASE_API std::uint64_t fread_long(std::int32_t* data, std::uint64_t size, std::uint64_t count,
                                     std::FILE* file);
QELBASE_API std::uint64_t fread_long(std::uint32_t* data, std::uint64_t size, std::uint64_t count,
                                     std::FILE* file);
QELBASE_API std::uint64_t fwrite_long(const std::int32_t* data, std::uint64_t size,
                                      std::uint64_t count, std::FILE* file);
QELBASE_API std::uint64_t fwrite_long(const std::uint32_t* data, std::uint64_t size,
                                      std::uint64_t count, std::FILE* file);
QELBASE_API std::uint64_t fread_short(std::int16_t* data, std::uint64_t size, std::uint64_t count,
                                      std::FILE* file);
QELBASE_API std::uint64_t fread_short(std::uint16_t* data, std::uint64_t size, std::uint64_t count,
                                      std::FILE* file);
QELBASE_API std::uint64_t fwrite_short(const std::int16_t* data, std::uint64_t size,
                                       std::uint64_t count, std::FILE* file);
QELBASE_API std::uint64_t fwrite_short(const std::uint16_t* data, std::uint64_t size,
                                       std::uint64_t count, std::FILE* file);
