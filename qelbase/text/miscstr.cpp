#include "qelbase/text/miscstr.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <string>
#include <string_view>

#include "qelbase/outside/system/text.h"

namespace miscstr {

namespace {

std::wstring_view viewOf(const CStringW& text) {
  return {text.GetString(), static_cast<std::size_t>(text.GetLength())};
}

std::int32_t equal(const CStringW& a, const CStringW& b, std::int32_t case_sensitive) {
  return case_sensitive != 0 ? a == b : a.CompareNoCase(b) == 0;
}

constexpr bool isSafe(wchar_t c) {
  return (c >= L'0' && c <= L'9') || (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') ||
         std::wstring_view(L"!#$%&'()-@^_`{}~").find(c) != std::wstring_view::npos;
}

// One value of a delimited list, read from the front of `rest`.
std::wstring takeValue(std::wstring_view& rest, wchar_t separator, wchar_t quote) {
  std::wstring value;
  const auto take = [&rest] {
    const wchar_t c = rest.front();
    rest.remove_prefix(1);
    return c;
  };
  bool quoted = rest.front() == quote;
  if (quoted) take();
  while (!rest.empty()) {
    const wchar_t c = take();
    if (!quoted && c == separator) break;
    if (!quoted || c != quote) {
      value += c;
    } else if (rest.starts_with(quote)) {
      value += take();
    } else {
      quoted = false;
    }
  }
  return value;
}

}  // namespace

const wchar_t* const null = nullptr;

// By value, as the interface is told: callers may hand in the very string that is changed.
// NOLINTBEGIN(performance-unnecessary-value-param)

std::int32_t GetNextVal(CStringW list, std::int32_t& pos, CStringW& value, const wchar_t* delims) {
  value.Empty();
  if (pos >= list.GetLength()) return 0;
  std::wstring_view rest = viewOf(list).substr(static_cast<std::size_t>(pos));
  value = CStringW(takeValue(rest, delims[0], delims[1]));
  pos = list.GetLength() - static_cast<std::int32_t>(rest.size());
  return 1;
}

CStringW QuoteVal(CStringW value, const wchar_t* delims) {
  if (value.FindOneOf(delims) < 0) return value;
  const wchar_t quote = delims[1];
  std::wstring quoted(1, quote);
  for (const wchar_t c : viewOf(value)) quoted.append(c == quote ? 2 : 1, c);
  return CStringW(quoted += quote);
}

void AddDelimited(CStringW& list, CStringW value, CStringW delimiter, CStringW prefix,
                  CStringW suffix) {
  if (value.IsEmpty()) return;
  if (!list.IsEmpty()) list += delimiter;
  list += prefix;
  list += value;
  list += suffix;
}

std::int32_t Split(CStringW text, CStringW separator, CStringW& left, CStringW& right,
                   std::int32_t from_end) {
  CStringW folded = text;
  CStringW folded_separator = separator;
  folded.MakeLower();
  folded_separator.MakeLower();
  std::int32_t at = -1;
  if (!separator.IsEmpty()) {
    at = from_end != 0 ? ReverseFind(folded, folded_separator) : folded.Find(folded_separator);
  }
  left = at < 0 ? text : text.Left(at);
  right = at < 0 ? CStringW() : text.Mid(at + separator.GetLength());
  Trim(left);
  Trim(right);
  return at >= 0;
}

std::int32_t ReverseFind(CStringW text, CStringW sub) {
  const std::size_t at = viewOf(text).rfind(viewOf(sub));
  return at == std::wstring_view::npos ? -1 : static_cast<std::int32_t>(at);
}

std::int32_t StartsWith(CStringW text, CStringW prefix, std::int32_t case_sensitive) {
  return equal(text.Left(prefix.GetLength()), prefix, case_sensitive);
}

std::int32_t EndsWith(CStringW text, CStringW suffix, std::int32_t case_sensitive) {
  return equal(text.Right(suffix.GetLength()), suffix, case_sensitive);
}

std::int32_t CharAtIs(CStringW text, std::int32_t pos, wchar_t ch) {
  return pos < text.GetLength() && text.GetAt(pos) == ch;
}

// NOLINTEND(performance-unnecessary-value-param)

CStringW MakeStringSafe(const CStringW& text, const CStringW& extra_allowed) {
  const std::wstring_view extra = viewOf(extra_allowed);
  std::wstring safe(viewOf(text));
  std::replace_if(
      safe.begin(), safe.end(),
      [extra](wchar_t c) { return !isSafe(c) && extra.find(c) == extra.npos; }, L'_');
  return CStringW(safe);
}

template <typename S>
S& TruncateString(S& s, std::size_t max_length) {
  if (static_cast<std::size_t>(s.GetLength()) > max_length) {
    s.Truncate(static_cast<int>(max_length));
  }
  return s;
}
template QELBASE_API CStringW& TruncateString(CStringW& s, std::size_t max_length);
template QELBASE_API CStringA& TruncateString(CStringA& s, std::size_t max_length);

void Trim(CStringW& text) {
  text.TrimRight();
  text.TrimLeft();
}

std::int32_t str2int(const wchar_t* text, std::int32_t& value) {
  value = 0;
  if (!text) return 0;
  errno = 0;
  const wchar_t* end = text;
  value = qel::sys::wcstol(text, &end, 10);
  return end != text && errno != ERANGE && *end == L'\0';
}

CStringW str(const wchar_t* format, ...) {
  CStringW text;
  va_list args;
  va_start(args, format);
  text.FormatV(format, args);
  va_end(args);
  return text;
}

}  // namespace miscstr
