#pragma once
// Text: code pages, 16-bit text, formatting with the system's meaning of the letters, numbers and
// letter case. No function here looks at the process's locale: numbers have a decimal point.

#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// --- Code pages ---

inline constexpr UINT CP_ACP = 0;  // the process's default page
inline constexpr UINT CP_SHIFT_JIS = 932;
inline constexpr UINT CP_WESTERN = 1252;
inline constexpr UINT CP_UTF8 = 65001;

inline constexpr DWORD MB_ERR_INVALID_CHARS = 0x8;  // ill-formed narrow text fails (1113)
inline constexpr DWORD WC_ERR_INVALID_CHARS =
    0x80;  // ill-formed wide text fails (1113), UTF-8 only
inline constexpr DWORD WC_NO_BEST_FIT_CHARS = 0x400;  // no look-alikes

// The default page: taken from LC_ALL, LC_CTYPE or LANG at first use (UTF-8 unless one of them
// names another page that is known here), or what was set since. For the whole process; safe on any
// thread. Setting an unknown page gives false and 87.
[[nodiscard]] QELBASE_API UINT GetACP();
QELBASE_API bool SetACP(UINT page);

// Wide to narrow. `length` counts characters, -1 takes the text up to its zero and converts that
// too; 0 fails (87). `size` 0 only measures. Gives the bytes written or needed; 0 on failure: 122
// when `size` is too small (what `dest` then holds is not told), 87 for an unknown page. A
// character that the page lacks becomes its look-alike, else `default_char` (null: `?`), and
// `used_default`, if not null, tells whether that happened. UTF-8: ill-formed units become U+FFFD.
// With page 65001 `default_char` and `used_default` must be null (87); where UTF-8 is the default
// page, `default_char` stands for the ill-formed units.
QELBASE_API int WideCharToMultiByte(UINT page, DWORD flags, const wchar_t* text, int length,
                                    char* dest, int size, const char* default_char,
                                    int* used_default);

// Narrow to wide; lengths and failures as above, counts in wide characters. Ill-formed bytes become
// U+FFFD (UTF-8) or `?` and do not fail unless the flags say so.
QELBASE_API int MultiByteToWideChar(UINT page, DWORD flags, const char* text, int length,
                                    wchar_t* dest, int size);

// The same for whole texts, zeros inside included; never fail, an unknown page counts as the
// default.
[[nodiscard]] QELBASE_API std::wstring Widen(std::string_view text, UINT page = CP_ACP);
[[nodiscard]] QELBASE_API std::string Narrow(std::wstring_view text, UINT page = CP_ACP);

// 16-bit text, where a character above U+FFFF is two units. Lone surrogates survive both ways;
// what is no character at all becomes U+FFFD.
[[nodiscard]] QELBASE_API std::u16string ToUtf16(std::wstring_view text);
[[nodiscard]] QELBASE_API std::wstring FromUtf16(std::u16string_view units);

// The same as little-endian bytes; an odd last byte is left out.
[[nodiscard]] QELBASE_API std::string ToUtf16Le(std::wstring_view text);
[[nodiscard]] QELBASE_API std::wstring FromUtf16Le(std::string_view bytes);

// --- Formatting ---
//
// printf formats. `s` and `c` take text of the function's own width, `S` and `C` of the other one;
// `h` before them makes it narrow, `l` or `w` wide. `l` before a number is 32 bits (the low ones of
// the machine word are printed), `ll` and `I64` 64 bits, `I32` 32, `I` alone the size of a pointer.
// `p` prints 16 upper-case digits. A null text prints (null). A letter that means nothing prints
// itself. `n` is refused, as is a width or precision above 1000000.

// Append to `out` and give the characters appended; -1, EINVAL and `out` as it was for a null or
// refused format. A precision bounds what is read of a text, which then needs no zero.
QELBASE_API int AppendFormatV(std::wstring& out, const wchar_t* format, va_list args);
QELBASE_API int AppendFormatV(std::string& out, const char* format, va_list args);

// `size` counts the terminator. Too small a buffer or a refused format: an empty text, errno
// (ERANGE, EINVAL) and -1; nothing is truncated. Else the length without terminator.
QELBASE_API int swprintf_s(wchar_t* buffer, std::size_t size, const wchar_t* format, ...);
QELBASE_API int vswprintf_s(wchar_t* buffer, std::size_t size, const wchar_t* format, va_list args);

// `size` is the whole buffer's. 0; ERANGE and an empty text when it is too small; EINVAL, and
// nothing touched, when the buffer holds no terminator or a pointer is null.
QELBASE_API int wcscat_s(wchar_t* buffer, std::size_t size, const wchar_t* text);

// At most 1024 characters with terminator, cut there; no floating point and no `*`. Give the
// length.
QELBASE_API int wsprintfW(wchar_t* buffer, const wchar_t* format, ...);
QELBASE_API int wvsprintfW(wchar_t* buffer, const wchar_t* format, va_list args);

// --- Numbers ---

// As the C functions of these names, for 32 bits. `end` may be null. No digit: 0, and `end` is the
// start. Out of range: the limit and ERANGE; a base other than 0 and 2 to 36: 0 and EINVAL. errno
// is left alone on success. wcstoul negates: "-1" is 4294967295.
QELBASE_API LONG wcstol(const wchar_t* text, const wchar_t** end, int base);
QELBASE_API ULONG wcstoul(const wchar_t* text, const wchar_t** end, int base);
QELBASE_API double wcstod(const wchar_t* text, const wchar_t** end);

// --- Characters ---

// White space as the system counts it: U+0085, U+00A0, U+2007 and U+202F are in.
[[nodiscard]] QELBASE_API bool IsSpace(wchar_t c);

// Simple mappings of the Unicode Character Database, one character to one.
[[nodiscard]] QELBASE_API wchar_t ToLower(wchar_t c);
[[nodiscard]] QELBASE_API wchar_t ToUpper(wchar_t c);
[[nodiscard]] QELBASE_API std::wstring FoldCase(std::wstring_view text);

// Negative, 0 or positive, by the values of the folded characters.
[[nodiscard]] QELBASE_API int CompareNoCase(std::wstring_view a, std::wstring_view b);

}  // namespace qel::sys
