#pragma once
// What the other rooms of the ground floor need of file names beside names.h.

#include <string>
#include <string_view>

#include "qelbase/outside/system/types.h"

namespace qel::sys {

inline constexpr bool IsSeparator(wchar_t c) {
  return c == L'\\' || c == L'/';
}

// False for what lies below the current folder: `a`, `C:a`, the empty text.
[[nodiscard]] bool IsAbsolute(std::wstring_view path);

// A new file or folder must not get this native name: it is a device on the other system, does not
// exist yet, and QEL_NATIVE_NAMES=1 is not set.
[[nodiscard]] bool IsRefusedForCreation(const std::string& native);

[[nodiscard]] constexpr bool IsDots(std::string_view native) {
  return native == "." || native == "..";
}

// Every byte of the native name is one and the same character in its Windows name.
[[nodiscard]] bool IsPlainName(std::string_view name);

// The folder that a native name lies in, "." for a bare name; and its last component, empty for
// "/".
[[nodiscard]] std::string ParentOf(std::string_view native);
[[nodiscard]] std::string NameOf(std::string_view native);

// Text that is no path, with the same carrying of foreign bytes as in file names: every native text
// comes back unchanged.
[[nodiscard]] std::wstring WideText(std::string_view native);
[[nodiscard]] std::string NativeText(std::wstring_view text);

// Hands a text out in the way of calls that fill a caller's buffer of `size` characters, terminator
// included: the length without the terminator, or, if it does not fit, the needed size with it and
// nothing is written.
DWORD HandOut(std::wstring_view text, wchar_t* buffer, DWORD size);

}  // namespace qel::sys
