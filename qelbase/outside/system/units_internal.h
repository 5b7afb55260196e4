#pragma once
// Loops over the units of a text, each a leaf function of its own: where a fault may throw, the
// compiler makes vectors only of a loop that has nothing to clean up around it.

#include <cstddef>
#include <string_view>

namespace qel::sys {

// Gives each unit the width of `To`: narrow units are taken as they are, of wide ones the low bits.
// Defined for char and char16_t to wchar_t, and for all three to char16_t.
template <typename From, typename To>
void CopyUnits(std::basic_string_view<From> from, To* to);

// Whether each unit stands for the character of its number, wherever it is read, and none is zero:
// ASCII, or 16 bits without surrogates.
[[nodiscard]] bool IsPlain(std::string_view text);
[[nodiscard]] bool IsPlain(std::u16string_view text);

// Whether every character has 16 bits at the most.
[[nodiscard]] bool FitsUnits(std::wstring_view text);

// As text.find.
[[nodiscard]] std::size_t FindUnit(std::u16string_view text, char16_t unit);

}  // namespace qel::sys
