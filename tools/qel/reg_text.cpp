#include "reg_text.h"

#include <algorithm>
#include <cwctype>
#include <optional>

#include "qelbase/outside/system/registry.h"
#include "qelbase/outside/system/text.h"

#include "session.h"

namespace qel::tool {
namespace {

constexpr std::wstring_view kHeader = L"Windows Registry Editor Version 5.00";
constexpr std::wstring_view kOldHeader = L"REGEDIT4";
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";

std::wstring_view Trimmed(std::wstring_view text) {
  const auto blank = [](wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r'; };
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  return text;
}

std::wstring Quoted(std::wstring_view text) {
  std::wstring quoted = L"\"";
  for (const wchar_t c : text) {
    if (c == L'\\' || c == L'"') quoted += L'\\';
    quoted += c;
  }
  return quoted + L'"';
}

// Takes a quoted text off the front.
std::optional<std::wstring> TakeQuoted(std::wstring_view& text) {
  if (text.empty() || text.front() != L'"') return std::nullopt;
  std::wstring out;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == L'"') {
      text.remove_prefix(i + 1);
      return out;
    }
    if (text[i] == L'\\' && ++i == text.size()) return std::nullopt;
    out += text[i];
  }
  return std::nullopt;
}

std::optional<std::uint32_t> HexNumber(std::wstring_view text) {
  if (text.empty() || text.size() > 8) return std::nullopt;
  std::uint32_t value = 0;
  for (const wchar_t c : text) {
    const std::wstring_view digits = L"0123456789abcdef";
    const std::size_t digit = digits.find(static_cast<wchar_t>(std::towlower(std::wint_t(c))));
    if (digit == digits.npos) return std::nullopt;
    value = value << 4 | static_cast<std::uint32_t>(digit);
  }
  return value;
}

bool ParseBytes(std::wstring_view text, std::string& data) {
  data.clear();
  text = Trimmed(text);
  while (!text.empty()) {
    const std::size_t comma = std::min(text.find(L','), text.size());
    const auto byte = HexNumber(Trimmed(text.substr(0, comma)));
    if (!byte || *byte > 0xFF) return false;
    data += static_cast<char>(*byte);
    text = Trimmed(text.substr(std::min(comma + 1, text.size())));
  }
  return true;
}

std::string LittleEndian(std::uint32_t value) {
  std::string data;
  for (int shift = 0; shift < 32; shift += 8) data += static_cast<char>(value >> shift);
  return data;
}

std::wstring Hex(std::uint32_t value, int digits) {
  std::wstring text;
  for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
    text += L"0123456789abcdef"[value >> shift & 0xF];
  }
  return text;
}

// Text that survives being written as text: one closing zero, no other, no line ends.
std::optional<std::wstring> PlainText(std::string_view data) {
  std::wstring text = sys::FromUtf16Le(data);
  if (text.empty() || text.back() != 0 || sys::ToUtf16Le(text) != data) return std::nullopt;
  text.pop_back();
  const std::wstring_view refused(L"\0\r\n", 3);
  if (text.find_first_of(refused) != text.npos) return std::nullopt;
  return text;
}

std::wstring Decoded(std::string_view bytes) {
  if (bytes.starts_with(kUtf16Mark)) return sys::FromUtf16Le(bytes.substr(2));
  if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
  return sys::Widen(bytes, sys::CP_UTF8);
}

class Parser {
 public:
  Parser(const std::string& file, std::wstring text) : m_file(file), m_text(std::move(text)) {}

  std::vector<RegSection> Run() {
    std::wstring line;
    if (!Next(line) || (line != kHeader && line != kOldHeader)) Fail("no registry text");
    while (Next(line)) TakeLine(line);
    return std::move(m_sections);
  }

 private:
  [[noreturn]] void Fail(const std::string& text) const {
    throw Trouble(m_file, "line " + std::to_string(m_line) + ": " + text);
  }

  bool RawLine(std::wstring_view& line) {
    if (m_at >= m_text.size()) return false;
    const std::size_t end = std::min(m_text.find(L'\n', m_at), m_text.size());
    line = Trimmed(std::wstring_view(m_text).substr(m_at, end - m_at));
    m_at = end + 1;
    ++m_line;
    return true;
  }

  // The next line that says something; a closing backslash joins the one behind it.
  bool Next(std::wstring& line) {
    std::wstring_view raw;
    do {
      if (!RawLine(raw)) return false;
    } while (raw.empty() || raw.front() == L';');
    line = raw;
    while (line.ends_with(L'\\')) {
      line.pop_back();
      if (!RawLine(raw)) break;
      line += raw;
    }
    return true;
  }

  void TakeLine(std::wstring_view line) {
    if (line.front() == L'[') return TakeSection(line);
    if (m_sections.empty()) Fail("a value before the first key");
    RegValue value;
    if (line.front() == L'@') {
      line.remove_prefix(1);
    } else if (auto name = TakeQuoted(line)) {
      value.name = std::move(*name);
    } else {
      Fail("no value");
    }
    line = Trimmed(line);
    if (line.empty() || line.front() != L'=') Fail("no equals sign");
    line = Trimmed(line.substr(1));
    value.is_deleted = line == L"-";
    if (!value.is_deleted && !ParseRegValue(line, value.type, value.data)) Fail("no value");
    m_sections.back().values.push_back(std::move(value));
  }

  void TakeSection(std::wstring_view line) {
    if (line.size() < 3 || line.back() != L']') Fail("no key");
    RegSection section;
    line = line.substr(1, line.size() - 2);
    section.is_deleted = line.front() == L'-';
    if (section.is_deleted) line.remove_prefix(1);
    section.path = line;
    m_sections.push_back(std::move(section));
  }

  std::string m_file;
  std::wstring m_text;
  std::size_t m_at = 0;
  std::size_t m_line = 0;
  std::vector<RegSection> m_sections;
};

}  // namespace

bool ParseRegValue(std::wstring_view text, std::uint32_t& type, std::string& data) {
  text = Trimmed(text);
  if (const auto quoted = TakeQuoted(text)) {
    type = sys::REG_SZ;
    data = sys::ToUtf16Le(*quoted + L'\0');
    return Trimmed(text).empty();
  }
  if (text.starts_with(L"dword:")) {
    const auto number = HexNumber(Trimmed(text.substr(6)));
    if (!number) return false;
    type = sys::REG_DWORD;
    data = LittleEndian(*number);
    return true;
  }
  if (!text.starts_with(L"hex")) return false;
  text.remove_prefix(3);
  type = sys::REG_BINARY;
  if (text.starts_with(L"(")) {
    const std::size_t close = text.find(L')');
    if (close == text.npos) return false;
    const auto number = HexNumber(text.substr(1, close - 1));
    if (!number) return false;
    type = *number;
    text.remove_prefix(close + 1);
  }
  return text.starts_with(L":") && ParseBytes(text.substr(1), data);
}

std::vector<RegSection> ParseRegText(const std::string& file, std::string_view bytes) {
  return Parser(file, Decoded(bytes)).Run();
}

std::wstring RegHeader() {
  return std::wstring(kHeader) + L"\r\n\r\n";
}

std::wstring RegValueText(std::uint32_t type, std::string_view data) {
  if (type == sys::REG_SZ) {
    if (const auto text = PlainText(data)) return Quoted(*text);
  }
  if (type == sys::REG_DWORD && data.size() == 4) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(data[i]);
    return L"dword:" + Hex(value, 8);
  }
  std::wstring text = L"hex";
  if (type != sys::REG_BINARY) text += L"(" + Hex(type, type < 16 ? 1 : 8) + L")";
  text += L":";
  for (std::size_t i = 0; i < data.size(); ++i) {
    if (i > 0) text += i % 25 == 0 ? L",\\\r\n  " : L",";
    text += Hex(static_cast<unsigned char>(data[i]), 2);
  }
  return text;
}

std::wstring RegSectionText(const RegSection& section) {
  std::wstring text = L"[" + section.path + L"]\r\n";
  for (const RegValue& value : section.values) {
    text += value.name.empty() ? L"@" : Quoted(value.name);
    text += L"=" + RegValueText(value.type, value.data) + L"\r\n";
  }
  return text + L"\r\n";
}

std::string RegBytes(std::wstring_view text) {
  return std::string(kUtf16Mark) + sys::ToUtf16Le(text);
}

}  // namespace qel::tool
