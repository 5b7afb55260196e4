#pragma once
// From and to the code pages: one character at a time, and UTF-8 whole.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "qelbase/outside/system/types.h"

namespace qel::sys {

// The characters of one lead byte, by trail byte 40 to 7E and 80 to FC; U+FFFD where there is none.
struct DoubleByteRow {
  std::uint8_t lead;
  const char16_t* characters;
};
inline constexpr std::size_t double_byte_row_count = 45;
extern const DoubleByteRow double_byte_rows[double_byte_row_count];

inline constexpr char32_t no_character = 0xFFFFFFFF;

// Takes the next character off a text that is not empty; no_character for ill-formed bytes, of
// which at least one is taken.
char32_t TakeUtf8(std::string_view& text);
char32_t TakeShiftJis(std::string_view& text);
char32_t TakeWestern(std::string_view& text);

// Takes the next character off a wide text that is not empty; two surrogates that belong together
// are one. no_character for a lone surrogate and for what is above U+10FFFF.
char32_t TakeWide(std::wstring_view& text);

// Append a character, or give false where the page lacks it (UTF-8 takes all).
bool PutUtf8(std::string& out, char32_t c);
bool PutShiftJis(std::string& out, char32_t c);
bool PutWestern(std::string& out, char32_t c);

// Whole texts of UTF-8, into at most `room` characters or bytes; a null `out` counts them.
// Ill-formed parts give U+FFFD, or `*default_char` if that is not null. The same as by TakeUtf8 and
// PutUtf8.
struct Converted {
  std::size_t length = 0;
  bool ill_formed = false;
  bool fits = true;  // false: the text was left where it did not fit
};
Converted DecodeUtf8(std::string_view text, wchar_t* out, std::size_t room);
Converted EncodeUtf8(std::wstring_view text, const char* default_char, char* out, std::size_t room);

// The look-alike that page 1252 has for a character, or 0.
unsigned char BestFitWestern(char32_t c);

}  // namespace qel::sys
