// What stands in a profile, without the file.

#include <algorithm>
#include <utility>

#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/profile_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

namespace {

constexpr std::string_view utf8_mark = "\xEF\xBB\xBF";
constexpr std::string_view little_mark = "\xFF\xFE";
constexpr std::string_view big_mark = "\xFE\xFF";

std::string swapped(std::string bytes) {
  for (std::size_t i = 1; i < bytes.size(); i += 2) std::swap(bytes[i - 1], bytes[i]);
  return bytes;
}

std::wstring_view trimmed(std::wstring_view text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

std::wstring_view withoutQuotes(std::wstring_view text) {
  const bool quoted = text.size() >= 2 && text.front() == text.back() &&
                      (text.front() == L'"' || text.front() == L'\'');
  return quoted ? text.substr(1, text.size() - 2) : text;
}

// Quotes where reading would take something off.
std::wstring written(std::wstring_view value) {
  const bool reads_back = withoutQuotes(trimmed(value)) == value;
  return reads_back ? std::wstring(value) : L'"' + std::wstring(value) + L'"';
}

bool same(std::wstring_view a, std::wstring_view b) {
  return CompareNoCase(trimmed(a), trimmed(b)) == 0;
}

struct Line {
  std::wstring_view all;   // with its end
  std::wstring_view text;  // without outer blanks

  std::wstring_view end() const {
    const std::size_t at = all.find_first_of(L"\r\n");
    return at == all.npos ? std::wstring_view() : all.substr(at);
  }
  bool isHead() const { return !text.empty() && text.front() == L'['; }
  // The text between the brackets of "[name]".
  std::wstring_view headName() const {
    return text.substr(1, std::min(text.find(L']'), text.size()) - 1);
  }
  bool isEntry(std::wstring_view name) const {
    const std::size_t equals = text.find(L'=');
    return equals != text.npos && text.front() != L';' && same(text.substr(0, equals), name);
  }
  std::wstring_view value() const { return trimmed(text.substr(text.find(L'=') + 1)); }
};

Line takeLine(std::wstring_view& text) {
  const std::size_t end = std::min(text.find_first_of(L"\r\n"), text.size());
  std::size_t next = std::min(end + 1, text.size());
  if (text.substr(end).starts_with(L"\r\n")) ++next;
  const Line line{text.substr(0, next), trimmed(text.substr(0, end))};
  text.remove_prefix(next);
  return line;
}

class Editor {
 public:
  Editor(std::wstring_view text, const ProfileEdit& edit) : m_edit(edit) {
    const std::size_t end = text.find_first_of(L"\r\n");
    m_line_end = end != text.npos && text.substr(end).starts_with(L"\r\n") ? L"\r\n" : L"\n";
    while (!text.empty()) pass(takeLine(text));
    if (m_edit.entry && m_edit.value && !m_is_done) add();
  }

  std::wstring result() && { return std::move(m_out); }

 private:
  void pass(const Line& line) {
    if (line.isHead()) m_is_inside = same(line.headName(), m_edit.section);
    if (m_is_inside && !m_edit.entry) return;
    if (m_is_inside && !line.isHead() && m_edit.entry && line.isEntry(*m_edit.entry)) {
      if (!m_edit.value) return;
      if (!m_is_done) {
        m_out += entryText() + std::wstring(line.end());
        m_is_done = true;
        return;
      }
    }
    m_out += line.all;
    if (m_is_inside && !line.text.empty()) m_section_end = m_out.size();
  }

  // Behind the last line of the section, else at the end of the file, with a new header.
  void add() {
    if (m_section_end == m_out.npos) {
      closeLine(m_out.size());
      if (!m_out.empty()) m_out += m_line_end;
      m_out += L'[' + std::wstring(m_edit.section) + L']' + m_line_end;
      m_section_end = m_out.size();
    }
    m_section_end += closeLine(m_section_end);
    m_out.insert(m_section_end, entryText() + m_line_end);
  }

  // The characters added.
  std::size_t closeLine(std::size_t at) {
    if (at == 0 || m_out[at - 1] == L'\n' || m_out[at - 1] == L'\r') return 0;
    m_out.insert(at, m_line_end);
    return m_line_end.size();
  }

  std::wstring entryText() const {
    return std::wstring(*m_edit.entry) + L'=' + written(*m_edit.value);
  }

  const ProfileEdit& m_edit;
  std::wstring m_line_end;
  std::wstring m_out;
  std::size_t m_section_end = std::wstring::npos;
  bool m_is_inside = false;
  bool m_is_done = false;
};

}  // namespace

std::optional<std::wstring> FindProfileValue(std::wstring_view text, std::wstring_view section,
                                             std::wstring_view entry) {
  bool inside = false;
  while (!text.empty()) {
    const Line line = takeLine(text);
    if (line.isHead()) {
      inside = same(line.headName(), section);
    } else if (inside && line.isEntry(entry)) {
      return std::wstring(withoutQuotes(line.value()));
    }
  }
  return std::nullopt;
}

int ProfileNumber(std::wstring_view text) {
  const std::wstring number(trimmed(text));
  const std::size_t digits = number.find_first_not_of(L"+-");
  const bool is_hexadecimal = digits != number.npos && number.size() > digits + 1 &&
                              number[digits] == L'0' && (number[digits + 1] | 0x20) == L'x';
  // Unsigned, as words above the signed range are written so.
  return static_cast<int>(wcstoul(number.c_str(), nullptr, is_hexadecimal ? 16 : 10));
}

std::wstring EditedProfile(std::wstring_view text, const ProfileEdit& edit) {
  return Editor(text, edit).result();
}

ProfileText DecodeProfile(std::string bytes) {
  using enum ProfileText::Encoding;
  const auto takeMark = [&bytes](std::string_view mark) {
    const bool is_there = bytes.starts_with(mark);
    if (is_there) bytes.erase(0, mark.size());
    return is_there;
  };
  if (takeMark(little_mark)) return {utf16_little, FromUtf16Le(bytes)};
  if (takeMark(big_mark)) return {utf16_big, FromUtf16Le(swapped(std::move(bytes)))};
  if (takeMark(utf8_mark)) return {utf8_with_mark, WideText(bytes)};
  return {utf8, WideText(bytes)};
}

std::string EncodeProfile(const ProfileText& profile) {
  switch (profile.encoding) {
    case ProfileText::Encoding::utf16_little:
      return std::string(little_mark) + ToUtf16Le(profile.text);
    case ProfileText::Encoding::utf16_big:
      return std::string(big_mark) + swapped(ToUtf16Le(profile.text));
    case ProfileText::Encoding::utf8_with_mark:
      return std::string(utf8_mark) + NativeText(profile.text);
    case ProfileText::Encoding::utf8:
      break;
  }
  return NativeText(profile.text);
}

}  // namespace qel::sys
