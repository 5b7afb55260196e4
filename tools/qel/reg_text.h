#pragma once
// The text form of registry keys: files that end in .reg.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qel::tool {

struct RegValue {
  std::wstring name;  // empty: the default value
  bool is_deleted = false;
  std::uint32_t type = 0;
  std::string data;
};

struct RegSection {
  std::wstring path;  // with the root in front
  bool is_deleted = false;
  std::vector<RegValue> values;
};

// Reads UTF-8, or 16-bit text with a byte order mark. Throws Trouble with `file` and the line of
// the first thing that is no such text.
std::vector<RegSection> ParseRegText(const std::string& file, std::string_view bytes);

// The first line, a section, and the whole as bytes: 16-bit with a byte order mark.
std::wstring RegHeader();
std::wstring RegSectionText(const RegSection& section);
std::string RegBytes(std::wstring_view text);

// One value as it stands behind the equals sign.
std::wstring RegValueText(std::uint32_t type, std::string_view data);
// The other way; false for what is no value.
bool ParseRegValue(std::wstring_view text, std::uint32_t& type, std::string& data);

}  // namespace qel::tool
