#pragma once
// The grammar of paths, as views of the text that is read. Both `\` and `/` separate, `C:` is a
// drive, `\\server` a network root, on every platform. Nothing here allocates or touches the disk.

#include <cstddef>
#include <string>
#include <string_view>

namespace qel::paths {

inline constexpr std::size_t kNone = std::wstring_view::npos;

[[nodiscard]] constexpr bool IsSeparator(wchar_t c) {
  return c == L'\\' || c == L'/';
}

// `C:` or `\\server`: the first element, if it begins with two separators (and no third) or ends
// with a colon; else empty. The first element reaches up to the next separator or colon, which
// belongs to it; a separator that does not begin a network root is an element of its own.
[[nodiscard]] std::wstring_view RootName(std::wstring_view path);

// The index of the separator that is the root directory, or kNone.
[[nodiscard]] std::size_t RootDirectory(std::wstring_view path);

// POSITION_PATH_PARTS on a view that lies in none of the outputs.
bool SplitPath(std::wstring_view path, std::wstring& drive, std::wstring& dir, std::wstring& file,
               std::wstring& ext, bool is_directory);

// A null pointer counts as an empty text.
[[nodiscard]] inline std::wstring_view TextOf(const wchar_t* text) {
  return text ? std::wstring_view(text) : std::wstring_view();
}

}  // namespace qel::paths
