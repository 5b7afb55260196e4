#pragma once
// Free functions on wide strings: delimited lists, splitting and searching, cleaning, numbers and
// formats. No state; every function may run on any thread. Truth results are 1 or 0. Positions
// count characters from 0.

#include <cstddef>
#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"

namespace miscstr {

QELBASE_API extern const wchar_t* const null;  // a null pointer

// --- delimited lists ---------------------------------------------------------------------------
// `delims` has at least two characters and is not null: the separator, then the quote character.
// QuoteVal takes any further ones for characters that want quoting too.

// Reads the value at `pos` (not negative) and moves `pos` behind its separator; 0 and an empty
// value at the end. A quote at the very start of a value opens quoting, in which a doubled quote
// stands for one; text between the closing quote and the separator belongs to the value.
QELBASE_API std::int32_t GetNextVal(CStringW list, std::int32_t& pos, CStringW& value,
                                    const wchar_t* delims);
// `value`, in quotes and with its quotes doubled if it holds one of `delims`. GetNextVal reads it
// back.
[[nodiscard]] QELBASE_API CStringW QuoteVal(CStringW value, const wchar_t* delims);
// Appends prefix, value and suffix to `list`, behind a delimiter if the list is not empty. An empty
// value appends nothing.
QELBASE_API void AddDelimited(CStringW& list, CStringW value, CStringW delimiter, CStringW prefix,
                              CStringW suffix);

// --- splitting and searching -------------------------------------------------------------------

// Cuts `text` at the first separator (the last one if `from_end` is not 0), whatever its case, and
// trims both sides. Without a separator `left` is the trimmed text and `right` empty. An empty
// separator is not found.
QELBASE_API std::int32_t Split(CStringW text, CStringW separator, CStringW& left, CStringW& right,
                               std::int32_t from_end);
// Where `sub` stands last, overlapping ones included; -1 if nowhere. An empty `sub` stands last at
// the end of the text.
[[nodiscard]] QELBASE_API std::int32_t ReverseFind(CStringW text, CStringW sub);
[[nodiscard]] QELBASE_API std::int32_t StartsWith(CStringW text, CStringW prefix,
                                                  std::int32_t case_sensitive);
[[nodiscard]] QELBASE_API std::int32_t EndsWith(CStringW text, CStringW suffix,
                                                std::int32_t case_sensitive);
[[nodiscard]] QELBASE_API std::int32_t CharAtIs(CStringW text, std::int32_t pos, wchar_t ch);

// --- cleaning ----------------------------------------------------------------------------------

// A copy with `_` for every character but ASCII letters and digits, !#$%&'()-@^_`{}~ and those of
// `extra_allowed`. The dot is replaced too.
[[nodiscard]] QELBASE_API CStringW MakeStringSafe(const CStringW& text,
                                                  const CStringW& extra_allowed);
// Cuts `s` to `max_length` characters in place. For CStringW and CStringA.
template <typename S>
S& TruncateString(S& s, std::size_t max_length);
extern template QELBASE_API CStringW& TruncateString(CStringW& s, std::size_t max_length);
extern template QELBASE_API CStringA& TruncateString(CStringA& s, std::size_t max_length);
// Takes white space off both ends, in place.
QELBASE_API void Trim(CStringW& text);

// --- numbers and formats -----------------------------------------------------------------------

// The decimal number that `text` holds, with leading white space and a sign. `value` gets what was
// read in every case: 0 without a digit, the limit when out of range. 1 only if nothing else stands
// there, trailing blanks included. A null text is 0.
QELBASE_API std::int32_t str2int(const wchar_t* text, std::int32_t& value);
// A printf-style format (outside/system/text.h tells the letters); `format` is not null.
[[nodiscard]] QELBASE_API CStringW str(const wchar_t* format, ...);

}  // namespace miscstr
