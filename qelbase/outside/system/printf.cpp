// The printf engine. Texts and characters are handled here; numbers are printed by the C library,
// one at a time, under a format that means the same to it.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <limits>
#include <string>

#include "qelbase/outside/system/locale_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

namespace {

constexpr int largest_number = 1000000;  // as width or precision
constexpr std::size_t wsprintf_size = 1024;

// A va_list that functions can share, whatever type the platform makes of it.
struct Arguments {
  va_list list;
};

enum class Size { none, char_, short_, long_, longlong, pointer, longdouble, wide, word32 };

struct Directive {
  bool left = false;
  bool plus = false;
  bool blank = false;
  bool alternate = false;
  bool zero = false;
  int width = 0;
  int precision = -1;
  Size size = Size::none;
  char letter = 0;  // 0 when it is no ASCII letter
};

enum class Outcome { printed, refused, unknown };

// The analyzer doesn't see that appendFormat has filled the list in.
// NOLINTBEGIN(clang-analyzer-valist.Uninitialized)
template <typename Char>
class Printer {
 public:
  // `limited`: no floating point, no `*`.
  Printer(std::basic_string<Char>& out, Arguments& arguments, bool limited)
      : m_out(out), m_arguments(arguments), m_limited(limited) {}

  bool print(const Char* format) {
    while (*format) {
      const Char* start = format;
      while (*format && *format != '%') ++format;
      m_out.append(start, format);
      if (*format && !directive(++format)) return false;
    }
    return true;
  }

 private:
  // `p` stands behind the percent sign, and afterwards behind the directive.
  bool directive(const Char*& p) {
    Directive d;
    flags(p, d);
    if (!number(p, d.width, d)) return false;
    if (*p == '.') {
      d.precision = 0;
      if (!number(++p, d.precision, d)) return false;
    }
    size(p, d);
    if (!*p) return true;
    const Char letter = *p++;
    d.letter =
        static_cast<std::make_unsigned_t<Char>>(letter) < 0x80 ? static_cast<char>(letter) : '\0';
    const Outcome outcome = convert(d);
    if (outcome == Outcome::unknown) m_out += letter;
    return outcome != Outcome::refused;
  }

  static void flags(const Char*& p, Directive& d) {
    for (;; ++p) {
      if (*p == '-') {
        d.left = true;
      } else if (*p == '+') {
        d.plus = true;
      } else if (*p == ' ') {
        d.blank = true;
      } else if (*p == '#') {
        d.alternate = true;
      } else if (*p == '0') {
        d.zero = true;
      } else {
        return;
      }
    }
  }

  // A width or a precision, told in digits or as an argument.
  bool number(const Char*& p, int& value, Directive& d) {
    if (*p == '*' && !m_limited) {
      ++p;
      const int told = va_arg(m_arguments.list, int);
      const bool is_width = &value == &d.width;
      if (is_width && told < 0) d.left = true;
      if (told < -largest_number || told > largest_number) return false;
      value = told >= 0 ? told : is_width ? -told : -1;
      return true;
    }
    for (; *p >= '0' && *p <= '9'; ++p) {
      value = value * 10 + static_cast<int>(*p - '0');
      if (value > largest_number) return false;
    }
    return true;
  }

  static bool take(const Char*& p, const char* prefix) {
    const Char* q = p;
    for (; *prefix; ++prefix, ++q) {
      if (*q != static_cast<Char>(*prefix)) return false;
    }
    p = q;
    return true;
  }

  static void size(const Char*& p, Directive& d) {
    struct Prefix {
      const char* text;
      Size size;
    };
    static constexpr Prefix prefixes[] = {
        {"I64", Size::longlong}, {"I32", Size::word32},   {"I", Size::pointer},
        {"ll", Size::longlong},  {"l", Size::long_},      {"hh", Size::char_},
        {"h", Size::short_},     {"L", Size::longdouble}, {"w", Size::wide},
        {"j", Size::longlong},   {"z", Size::pointer},    {"t", Size::pointer}};
    for (const Prefix& prefix : prefixes) {
      if (!take(p, prefix.text)) continue;
      d.size = prefix.size;
      return;
    }
  }

  Outcome convert(const Directive& d) {
    switch (d.letter) {
      case '%':
        m_out += static_cast<Char>('%');
        return Outcome::printed;
      case 'd':
      case 'i':
        return integer(d, signedArgument(d.size));
      case 'u':
      case 'o':
      case 'x':
      case 'X':
        return integer(d, unsignedArgument(d.size));
      case 'p':
        return pointer(d);
      case 's':
      case 'S':
        return isWide(d) ? text<wchar_t>(d) : text<char>(d);
      case 'c':
      case 'C':
        return character(d);
      case 'n':
        return Outcome::refused;
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
        return m_limited ? Outcome::unknown : real(d);
      default:
        return Outcome::unknown;
    }
  }

  static bool isWide(const Directive& d) {
    if (d.size == Size::short_ || d.size == Size::char_) return false;
    if (d.size == Size::long_ || d.size == Size::wide || d.size == Size::longlong) return true;
    return std::is_same_v<Char, wchar_t> == (d.letter == 's' || d.letter == 'c');
  }

  LONGLONG signedArgument(Size size) {
    switch (size) {
      case Size::longlong:
      case Size::pointer:
        return va_arg(m_arguments.list, long long);
      case Size::long_:
        return static_cast<LONG>(va_arg(m_arguments.list, long));
      case Size::short_:
        return static_cast<short>(va_arg(m_arguments.list, int));
      case Size::char_:
        return static_cast<signed char>(va_arg(m_arguments.list, int));
      default:
        return va_arg(m_arguments.list, int);
    }
  }

  ULONGLONG unsignedArgument(Size size) {
    switch (size) {
      case Size::longlong:
      case Size::pointer:
        return va_arg(m_arguments.list, unsigned long long);
      case Size::long_:
        return static_cast<ULONG>(va_arg(m_arguments.list, unsigned long));
      case Size::short_:
        return static_cast<unsigned short>(va_arg(m_arguments.list, int));
      case Size::char_:
        return static_cast<unsigned char>(va_arg(m_arguments.list, int));
      default:
        return va_arg(m_arguments.list, unsigned);
    }
  }

  // The directive for the C library; its width and precision are passed as arguments.
  static std::string directiveText(const Directive& d, const char* size, char letter) {
    std::string text = "%";
    if (d.left) text += '-';
    if (d.plus) text += '+';
    if (d.blank) text += ' ';
    if (d.alternate) text += '#';
    if (d.zero) text += '0';
    text += "*.*";
    text += size;
    text += letter;
    return text;
  }

  template <typename Value>
  Outcome printed(const Directive& d, const char* size, char letter, Value value) {
    const std::string format = directiveText(d, size, letter);
    const locale_t before = uselocale(CLocale());
    char small[128];
    const int length =
        std::snprintf(small, sizeof small, format.c_str(), d.width, d.precision, value);
    if (length >= 0 && static_cast<std::size_t>(length) < sizeof small) {
      m_out.append(small, small + length);
    } else if (length >= 0) {
      std::string large(static_cast<std::size_t>(length) + 1, '\0');
      std::snprintf(large.data(), large.size(), format.c_str(), d.width, d.precision, value);
      m_out.append(large.begin(), large.end() - 1);
    }
    uselocale(before);
    return length >= 0 ? Outcome::printed : Outcome::refused;
  }

  template <typename Value>
  Outcome integer(const Directive& d, Value value) {
    return printed(d, "ll", d.letter, value);
  }

  Outcome real(const Directive& d) {
    if (d.size == Size::longdouble) {
      return printed(d, "L", d.letter, va_arg(m_arguments.list, long double));
    }
    return printed(d, "", d.letter, va_arg(m_arguments.list, double));
  }

  Outcome pointer(Directive d) {
    d.precision = 16;
    d.plus = d.blank = d.alternate = d.zero = false;
    const auto value = reinterpret_cast<std::uintptr_t>(va_arg(m_arguments.list, void*));
    return printed(d, "ll", 'X', static_cast<unsigned long long>(value));
  }

  Outcome character(const Directive& d) {
    const int value = va_arg(m_arguments.list, int);
    std::basic_string<Char> one;
    if (isWide(d)) {
      append(one, std::wstring_view(std::wstring(1, static_cast<wchar_t>(value))));
    } else {
      append(one, std::string_view(std::string(1, static_cast<char>(value))));
    }
    padded(d, one);
    return Outcome::printed;
  }

  template <typename Source>
  Outcome text(const Directive& d) {
    static constexpr Source null_text[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
    const auto* source = va_arg(m_arguments.list, const Source*);
    if (!source) source = null_text;
    std::size_t length = 0;
    const std::size_t limit = d.precision < 0 ? std::numeric_limits<std::size_t>::max()
                                              : static_cast<std::size_t>(d.precision);
    while (length < limit && source[length]) ++length;
    std::basic_string<Char> converted;
    append(converted, std::basic_string_view<Source>(source, length));
    padded(d, converted);
    return Outcome::printed;
  }

  static void append(std::wstring& out, std::wstring_view text) { out += text; }
  static void append(std::wstring& out, std::string_view text) { out += Widen(text); }
  static void append(std::string& out, std::string_view text) { out += text; }
  static void append(std::string& out, std::wstring_view text) { out += Narrow(text); }

  void padded(const Directive& d, const std::basic_string<Char>& text) {
    const auto width = static_cast<std::size_t>(d.width);
    const std::size_t padding = width > text.size() ? width - text.size() : 0;
    if (!d.left) m_out.append(padding, static_cast<Char>(d.zero ? '0' : ' '));
    m_out += text;
    if (d.left) m_out.append(padding, static_cast<Char>(' '));
  }

  std::basic_string<Char>& m_out;
  Arguments& m_arguments;
  bool m_limited;
};
// NOLINTEND(clang-analyzer-valist.Uninitialized)

template <typename Char>
int appendFormat(std::basic_string<Char>& out, const Char* format, va_list args, bool limited) {
  const std::size_t before = out.size();
  Arguments copy;
  va_copy(copy.list, args);
  const bool done = format && Printer<Char>(out, copy, limited).print(format);
  va_end(copy.list);
  if (!done || out.size() - before > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    out.resize(before);
    errno = EINVAL;
    return -1;
  }
  return static_cast<int>(out.size() - before);
}

}  // namespace

int AppendFormatV(std::wstring& out, const wchar_t* format, va_list args) {
  return appendFormat(out, format, args, false);
}

int AppendFormatV(std::string& out, const char* format, va_list args) {
  return appendFormat(out, format, args, false);
}

int swprintf_s(wchar_t* buffer, std::size_t size, const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  const int length = vswprintf_s(buffer, size, format, args);
  va_end(args);
  return length;
}

int vswprintf_s(wchar_t* buffer, std::size_t size, const wchar_t* format, va_list args) {
  if (!buffer || size == 0) {
    errno = EINVAL;
    return -1;
  }
  buffer[0] = L'\0';
  std::wstring text;
  const int length = AppendFormatV(text, format, args);
  if (length >= 0 && text.size() >= size) {
    errno = ERANGE;
    return -1;
  }
  if (length >= 0) std::copy_n(text.c_str(), text.size() + 1, buffer);
  return length;
}

int wcscat_s(wchar_t* buffer, std::size_t size, const wchar_t* text) {
  const wchar_t* end = buffer && text ? std::find(buffer, buffer + size, L'\0') : nullptr;
  if (!end || end == buffer + size) return errno = EINVAL;
  const std::size_t used = static_cast<std::size_t>(end - buffer);
  const std::size_t added = std::wcslen(text);
  if (added >= size - used) {
    buffer[0] = L'\0';
    return errno = ERANGE;
  }
  std::copy_n(text, added + 1, buffer + used);
  return 0;
}

int wsprintfW(wchar_t* buffer, const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  const int length = wvsprintfW(buffer, format, args);
  va_end(args);
  return length;
}

int wvsprintfW(wchar_t* buffer, const wchar_t* format, va_list args) {
  std::wstring text;
  appendFormat(text, format, args, true);
  text.resize(std::min(text.size(), wsprintf_size - 1));
  std::copy_n(text.c_str(), text.size() + 1, buffer);
  return static_cast<int>(text.size());
}

}  // namespace qel::sys
