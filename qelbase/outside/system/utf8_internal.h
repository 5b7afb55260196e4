#pragma once
// UTF-8 in steps of many characters, for processors that can.

#include <cstddef>

#include "qelbase/outside/system/code_pages_internal.h"

namespace qel::sys {

// The portable form of DecodeUtf8 and EncodeUtf8.
Converted DecodeUtf8Portable(std::string_view text, wchar_t* out, std::size_t room);
Converted EncodeUtf8Portable(std::wstring_view text, const char* default_char, char* out,
                             std::size_t room);

// Whether the processor and the system offer AVX-512 with VBMI2.
bool HasAvx512Vbmi2();

// Convert from the start of `text` while whole steps are well-formed and there is room for them,
// whether they need it or not: 64 bytes of narrow text, 16 characters of wide text, and 64 units of
// either. A null `out` only counts. Give how many units were taken, and made in `length`.
std::size_t DecodeUtf8Avx512(std::string_view text, wchar_t* out, std::size_t room,
                             std::size_t& length);
std::size_t EncodeUtf8Avx512(std::wstring_view text, char* out, std::size_t room,
                             std::size_t& length);

}  // namespace qel::sys
