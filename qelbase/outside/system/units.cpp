#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "qelbase/outside/system/units_internal.h"

namespace qel::sys {

template <typename From, typename To>
void CopyUnits(std::basic_string_view<From> from, To* to) {
  const From* const units = from.data();
  const std::size_t size = from.size();
  for (std::size_t i = 0; i < size; ++i) {
    using Plain = std::conditional_t<sizeof(From) == 1, unsigned char, From>;
    to[i] = static_cast<To>(static_cast<Plain>(units[i]));
  }
}

template void CopyUnits(std::string_view, wchar_t*);
template void CopyUnits(std::u16string_view, wchar_t*);
template void CopyUnits(std::string_view, char16_t*);
template void CopyUnits(std::u16string_view, char16_t*);
template void CopyUnits(std::wstring_view, char16_t*);

bool IsPlain(std::string_view text) {
  std::uint8_t others = 0;
  for (const char c : text) others |= static_cast<signed char>(c) <= 0;
  return others == 0;
}

bool IsPlain(std::u16string_view text) {
  std::uint16_t others = 0;
  for (const char16_t c : text) others |= c == 0 || (c & 0xF800) == 0xD800;
  return others == 0;
}

bool FitsUnits(std::wstring_view text) {
  std::uint32_t bits = 0;
  for (const wchar_t c : text) bits |= static_cast<std::uint32_t>(c);
  return bits <= 0xFFFF;
}

std::size_t FindUnit(std::u16string_view text, char16_t unit) {
  constexpr std::size_t block = 32;
  std::size_t begin = 0;
  for (; text.size() - begin >= block; begin += block) {
    std::uint16_t found = 0;
    for (std::size_t i = 0; i < block; ++i) found |= text[begin + i] == unit;
    if (found != 0) break;
  }
  const auto* const at = std::find(text.begin() + begin, text.end(), unit);
  return at == text.end() ? text.npos : static_cast<std::size_t>(at - text.begin());
}

}  // namespace qel::sys
