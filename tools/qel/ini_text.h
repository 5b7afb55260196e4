#pragma once
// The two forms of ini files as bytes: narrow text in UTF-8, and 16-bit units without a byte order
// mark.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qel::tool {

struct IniText {
  std::wstring text;
  bool is_wide = false;
  std::vector<std::size_t> damaged_lines;  // from 1; what is no text there is U+FFFD
};

// Takes either form, with or without a byte order mark, which is left out. Zero bytes tell the wide
// form: its line ends have them, and narrow text has none.
IniText DecodeIni(std::string_view bytes);

// The text with every line end as the form has it: CR LF in the wide one, LF in the narrow one.
std::string WideIni(std::wstring_view text);
std::string NarrowIni(std::wstring_view text);

}  // namespace qel::tool
