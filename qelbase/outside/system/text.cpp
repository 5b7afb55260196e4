#include "qelbase/outside/system/text.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "qelbase/outside/system/code_pages_internal.h"
#include "qelbase/outside/system/errors.h"

namespace qel::sys {

namespace {

constexpr wchar_t replacement = 0xFFFD;

struct CodePage {
  UINT number;
  wchar_t ill_formed;   // what stands for ill-formed bytes
  const char* codeset;  // as the environment names it, without punctuation, lower case
  char32_t (*take)(std::string_view&);
  bool (*put)(std::string&, char32_t);
};

constexpr CodePage pages[] = {
    {CP_UTF8, replacement, "utf8", TakeUtf8, PutUtf8},
    {CP_WESTERN, L'?', "cp1252", TakeWestern, PutWestern},
    {CP_WESTERN, L'?', "iso88591", TakeWestern, PutWestern},
    {CP_WESTERN, L'?', "iso885915", TakeWestern, PutWestern},
    {CP_SHIFT_JIS, L'?', "sjis", TakeShiftJis, PutShiftJis},
    {CP_SHIFT_JIS, L'?', "shiftjis", TakeShiftJis, PutShiftJis},
    {CP_SHIFT_JIS, L'?', "cp932", TakeShiftJis, PutShiftJis},
};

// "de_DE.ISO-8859-1@euro" gives "iso88591".
std::string codesetOf(const char* locale) {
  const char* dot = std::strchr(locale, '.');
  std::string codeset;
  for (const char* p = dot ? dot + 1 : ""; *p != '\0' && *p != '@'; ++p) {
    const auto c = static_cast<wchar_t>(static_cast<unsigned char>(*p));
    if (*p != '-' && *p != '_') codeset += static_cast<char>(ToLower(c));
  }
  return codeset;
}

// The first of the three that is set counts, as everywhere.
UINT pageOfEnvironment() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* value = std::getenv(name);
    if (!value || *value == '\0') continue;
    const std::string codeset = codesetOf(value);
    for (const CodePage& page : pages) {
      if (codeset == page.codeset) return page.number;
    }
    break;
  }
  return CP_UTF8;
}

std::atomic<UINT>& defaultPage() {
  static std::atomic<UINT> page{pageOfEnvironment()};
  return page;
}

const CodePage* findPage(UINT number) {
  if (number == CP_ACP) number = GetACP();
  for (const CodePage& page : pages) {
    if (page.number == number) return &page;
  }
  return nullptr;
}

struct Encoding {
  const char* default_char = nullptr;
  bool best_fit = true;
  bool used_default = false;
  bool ill_formed = false;
};

void putDefault(const CodePage& page, std::string& out, Encoding& state) {
  state.used_default = true;
  if (state.default_char) {
    out += *state.default_char;
  } else if (!page.put(out, replacement)) {
    out += '?';
  }
}

std::string encode(const CodePage& page, std::wstring_view text, Encoding& state) {
  std::string out;
  if (page.number == CP_UTF8) {
    const Converted counted = EncodeUtf8(text, state.default_char, nullptr, 0);
    state.ill_formed = state.used_default = counted.ill_formed;
    out.resize(counted.length);
    EncodeUtf8(text, state.default_char, out.data(), out.size());
    return out;
  }
  out.reserve(text.size());
  while (!text.empty()) {
    const char32_t c = TakeWide(text);
    if (c == no_character) state.ill_formed = true;
    if (c != no_character && page.put(out, c)) continue;
    const bool look = c != no_character && state.best_fit && page.number == CP_WESTERN;
    if (const unsigned char alike = look ? BestFitWestern(c) : 0) {
      out += static_cast<char>(alike);
    } else {
      putDefault(page, out, state);
    }
  }
  return out;
}

std::wstring decode(const CodePage& page, std::string_view text, bool& ill_formed) {
  std::wstring out;
  if (page.number == CP_UTF8) {
    out.resize(text.size());
    const Converted decoded = DecodeUtf8(text, out.data(), out.size());
    ill_formed = decoded.ill_formed;
    out.resize(decoded.length);
    return out;
  }
  out.reserve(text.size());
  while (!text.empty()) {
    const char32_t c = page.take(text);
    if (c == no_character) ill_formed = true;
    out += c == no_character ? page.ill_formed : static_cast<wchar_t>(c);
  }
  return out;
}

bool isBeyond16Bits(wchar_t c) {
  return static_cast<char32_t>(c) > 0xFFFF;
}

bool isSurrogate(char16_t unit) {
  return (unit & 0xF800) == 0xD800;
}

int failWith(DWORD code) {
  SetLastError(code);
  return 0;
}

// Measures (size 0) or delivers.
template <typename Text, typename Char>
int deliver(const Text& text, Char* dest, int size) {
  if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    return failWith(ERROR_INVALID_PARAMETER);
  }
  const int count = static_cast<int>(text.size());
  if (size == 0) return count;
  if (count > size) return failWith(ERROR_INSUFFICIENT_BUFFER);
  std::copy(text.begin(), text.end(), dest);
  return count;
}

// Measures (size 0) or delivers what UTF-8 gives, straight into `dest`. `convert` takes a place and
// its room.
template <typename Char, typename Convert>
int deliverUtf8(Char* dest, int size, bool refuses, bool& ill_formed, Convert convert) {
  Converted done = convert(size == 0 ? nullptr : dest, static_cast<std::size_t>(size));
  if (!done.fits && refuses) done.ill_formed = convert(nullptr, 0).ill_formed;
  ill_formed = done.ill_formed;
  if (ill_formed && refuses) return failWith(ERROR_NO_UNICODE_TRANSLATION);
  if (!done.fits) return failWith(ERROR_INSUFFICIENT_BUFFER);
  if (done.length > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    return failWith(ERROR_INVALID_PARAMETER);
  }
  return static_cast<int>(done.length);
}

// The source with its zero for length -1.
template <typename Char>
std::basic_string_view<Char> sourceOf(const Char* text, int length) {
  if (length >= 0) return {text, static_cast<std::size_t>(length)};
  return {text, std::char_traits<Char>::length(text) + 1};
}

}  // namespace

UINT GetACP() {
  return defaultPage();
}

bool SetACP(UINT page) {
  if (page == CP_ACP || !findPage(page)) return failWith(ERROR_INVALID_PARAMETER) != 0;
  defaultPage() = page;
  return true;
}

int WideCharToMultiByte(UINT page_number, DWORD flags, const wchar_t* text, int length, char* dest,
                        int size, const char* default_char, int* used_default) {
  const CodePage* page = findPage(page_number);
  const bool told_default = default_char || used_default;
  if (!page || !text || length == 0 || length < -1 || size < 0 || (size > 0 && !dest) ||
      (page_number == CP_UTF8 && told_default)) {
    return failWith(ERROR_INVALID_PARAMETER);
  }
  const std::wstring_view source = sourceOf(text, length);
  Encoding state{default_char, (flags & WC_NO_BEST_FIT_CHARS) == 0};
  if (page->number == CP_UTF8) {
    const int count = deliverUtf8(
        dest, size, (flags & WC_ERR_INVALID_CHARS) != 0, state.ill_formed,
        [&](char* out, std::size_t room) { return EncodeUtf8(source, default_char, out, room); });
    if (used_default) *used_default = state.ill_formed ? 1 : 0;
    return count;
  }
  const std::string narrow = encode(*page, source, state);
  if (used_default) *used_default = state.used_default ? 1 : 0;
  return deliver(narrow, dest, size);
}

int MultiByteToWideChar(UINT page_number, DWORD flags, const char* text, int length, wchar_t* dest,
                        int size) {
  const CodePage* page = findPage(page_number);
  if (!page || !text || length == 0 || length < -1 || size < 0 || (size > 0 && !dest)) {
    return failWith(ERROR_INVALID_PARAMETER);
  }
  const std::string_view source = sourceOf(text, length);
  const bool refuses = (flags & MB_ERR_INVALID_CHARS) != 0;
  bool ill_formed = false;
  if (page->number == CP_UTF8) {
    return deliverUtf8(dest, size, refuses, ill_formed, [&](wchar_t* out, std::size_t room) {
      return DecodeUtf8(source, out, room);
    });
  }
  const std::wstring wide = decode(*page, source, ill_formed);
  if (ill_formed && refuses) {
    return failWith(ERROR_NO_UNICODE_TRANSLATION);
  }
  return deliver(wide, dest, size);
}

std::wstring Widen(std::string_view text, UINT number) {
  const CodePage* page = findPage(number);
  bool ignored = false;
  return decode(page ? *page : *findPage(CP_ACP), text, ignored);
}

std::string Narrow(std::wstring_view text, UINT number) {
  const CodePage* page = findPage(number);
  Encoding state;
  return encode(page ? *page : *findPage(CP_ACP), text, state);
}

std::u16string ToUtf16(std::wstring_view text) {
  std::u16string units;
  if (std::none_of(text.begin(), text.end(), isBeyond16Bits)) {
    units.resize(text.size());
    std::transform(text.begin(), text.end(), units.begin(),
                   [](wchar_t c) { return static_cast<char16_t>(c); });
    return units;
  }
  units.reserve(text.size());
  for (const wchar_t w : text) {
    const auto c = static_cast<char32_t>(w);
    if (c < 0x10000) {
      units += static_cast<char16_t>(c);
    } else if (c > 0x10FFFF) {
      units += static_cast<char16_t>(replacement);
    } else {
      units += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      units += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    }
  }
  return units;
}

std::wstring FromUtf16(std::u16string_view units) {
  if (std::none_of(units.begin(), units.end(), isSurrogate)) return {units.begin(), units.end()};
  std::wstring text;
  text.reserve(units.size());
  for (std::size_t i = 0; i < units.size(); ++i) {
    char32_t c = units[i];
    const char32_t next = i + 1 < units.size() ? units[i + 1] : 0;
    if (c >= 0xD800 && c <= 0xDBFF && next >= 0xDC00 && next <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00);
      ++i;
    }
    text += static_cast<wchar_t>(c);
  }
  return text;
}

static_assert(std::endian::native == std::endian::little);

std::string ToUtf16Le(std::wstring_view text) {
  const std::u16string units = ToUtf16(text);
  return {reinterpret_cast<const char*>(units.data()), units.size() * sizeof units[0]};
}

std::wstring FromUtf16Le(std::string_view bytes) {
  std::u16string units(bytes.size() / 2, u'\0');
  bytes.copy(reinterpret_cast<char*>(units.data()), units.size() * sizeof units[0]);
  return FromUtf16(units);
}

}  // namespace qel::sys
