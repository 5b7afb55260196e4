#pragma once
// The values of the string map.

#include <memory>
#include <string_view>
#include <utility>
#include <variant>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"

namespace qel::framework {

// A text. What was read from a file lies in the file's bytes, which all values of the file share,
// until somebody wants a CStringW of its own: most values of a file are never asked for. An object
// belongs to one thread at a time.
class QELBASE_API StoredText {
 public:
  StoredText() = default;
  // `units` lies in what `file` keeps; each unit, signed ones not negative, is one character.
  template <typename Unit>
  StoredText(std::shared_ptr<const void> file, std::basic_string_view<Unit> units)
      : m_text(Shared<Unit>{std::move(file), units}) {}

  // The text as an object of its own, which it is from now on.
  CStringW& own();

  // Calls `look` with a std::basic_string_view of wchar_t, char or char16_t; as above, each unit is
  // one character.
  template <typename Look>
  void look(Look look) const {
    if (const auto* text = std::get_if<CStringW>(&m_text)) {
      look(std::wstring_view(text->GetString(), static_cast<std::size_t>(text->GetLength())));
    } else if (const auto* narrow = std::get_if<Shared<char>>(&m_text)) {
      look(narrow->units);
    } else {
      look(std::get_if<Shared<char16_t>>(&m_text)->units);
    }
  }

  void copyTo(CStringW& out) const;
  operator CStringW() const {
    CStringW text;
    copyTo(text);
    return text;
  }

 private:
  template <typename Unit>
  struct Shared {
    std::shared_ptr<const void> file;
    std::basic_string_view<Unit> units;
  };

  std::variant<CStringW, Shared<char>, Shared<char16_t>> m_text;
};

}  // namespace qel::framework
