#include "ini_text.h"

#include <algorithm>

#include "qelbase/outside/system/text.h"

namespace qel::tool {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kWideMark = "\xFF\xFE";
constexpr wchar_t kReplacement = L'\xFFFD';

bool IsUtf8(std::string_view line) {
  return sys::MultiByteToWideChar(sys::CP_UTF8, sys::MB_ERR_INVALID_CHARS, line.data(),
                                  static_cast<int>(line.size()), nullptr, 0) != 0;
}

bool IsSurrogate(wchar_t c) {
  return c >= L'\xD800' && c <= L'\xDFFF';
}

void DecodeNarrow(std::string_view bytes, IniText& ini) {
  ini.text = sys::Widen(bytes, sys::CP_UTF8);
  for (std::size_t line = 1; !bytes.empty(); ++line) {
    const std::size_t end = std::min(bytes.find('\n'), bytes.size() - 1) + 1;
    if (!IsUtf8(bytes.substr(0, end))) ini.damaged_lines.push_back(line);
    bytes.remove_prefix(end);
  }
}

// Lone surrogates and a half unit at the end are no text.
void DecodeWide(std::string_view bytes, IniText& ini) {
  ini.text = sys::FromUtf16Le(bytes);
  if (bytes.size() % 2 != 0) ini.text += L'\xD800';
  std::size_t line = 1;
  for (wchar_t& c : ini.text) {
    if (c == L'\n') ++line;
    if (!IsSurrogate(c)) continue;
    c = kReplacement;
    const bool told = !ini.damaged_lines.empty() && ini.damaged_lines.back() == line;
    if (!told) ini.damaged_lines.push_back(line);
  }
}

std::wstring WithLineEnds(std::wstring_view text, std::wstring_view line_end) {
  std::wstring out;
  out.reserve(text.size() + text.size() / 16);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool pair = text[i] == L'\r' && i + 1 < text.size() && text[i + 1] == L'\n';
    if (pair) continue;
    if (text[i] == L'\n') {
      out += line_end;
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace

IniText DecodeIni(std::string_view bytes) {
  IniText ini;
  const bool marked = bytes.starts_with(kWideMark);
  ini.is_wide = marked || bytes.find('\0') != bytes.npos;
  if (marked) bytes.remove_prefix(kWideMark.size());
  if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
  ini.is_wide ? DecodeWide(bytes, ini) : DecodeNarrow(bytes, ini);
  return ini;
}

std::string WideIni(std::wstring_view text) {
  return sys::ToUtf16Le(WithLineEnds(text, L"\r\n"));
}

std::string NarrowIni(std::wstring_view text) {
  return sys::Narrow(WithLineEnds(text, L"\n"), sys::CP_UTF8);
}

}  // namespace qel::tool
