#pragma once
// The text of profiles, and values for the other rooms of the ground floor.

#include <optional>
#include <string>
#include <string_view>

namespace qel::sys {

// The first value of the entry, without its quotes; nothing if there is none.
[[nodiscard]] std::optional<std::wstring> FindProfileValue(std::wstring_view text,
                                                           std::wstring_view section,
                                                           std::wstring_view entry);

// The same in a file of this native name; nothing also for a file that cannot be read.
[[nodiscard]] std::optional<std::wstring> ProfileValueIn(const std::string& native,
                                                         std::wstring_view section,
                                                         std::wstring_view entry);

// The same in the file that `file` reaches by the rule of profile.h.
[[nodiscard]] std::optional<std::wstring> ProfileValue(const wchar_t* file,
                                                       std::wstring_view section,
                                                       std::wstring_view entry);

// The number that a text begins with, as GetPrivateProfileIntW reads it.
[[nodiscard]] int ProfileNumber(std::wstring_view text);

// A change of a profile's text. Without a value the entry goes, without an entry the section. The
// names must be such as WritePrivateProfileStringW takes.
struct ProfileEdit {
  std::wstring_view section;
  std::optional<std::wstring_view> entry;
  std::optional<std::wstring_view> value;
};
[[nodiscard]] std::wstring EditedProfile(std::wstring_view text, const ProfileEdit& edit);

// The text of a file's bytes, and the bytes again in the same encoding. What is no text in the file
// survives the way there and back.
struct ProfileText {
  enum class Encoding { utf8, utf8_with_mark, utf16_little, utf16_big };
  Encoding encoding = Encoding::utf8;
  std::wstring text;
};
[[nodiscard]] ProfileText DecodeProfile(std::string bytes);
[[nodiscard]] std::string EncodeProfile(const ProfileText& profile);

}  // namespace qel::sys
