// Numbers in wide text, in the "C" locale and in the system's widths.

#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "qelbase/outside/system/locale_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

namespace {

int digitOf(wchar_t c) {
  if (c >= L'0' && c <= L'9') return c - L'0';
  if (c >= L'a' && c <= L'z') return c - L'a' + 10;
  if (c >= L'A' && c <= L'Z') return c - L'A' + 10;
  return 36;
}

struct Scan {
  ULONGLONG magnitude = 0;  // stays above every 32-bit value once it got there
  bool negative = false;
  bool any = false;
  const wchar_t* end = nullptr;
};

bool isHexPrefix(const wchar_t* p) {
  return p[0] == L'0' && (p[1] == L'x' || p[1] == L'X') && digitOf(p[2]) < 16;
}

Scan scan(const wchar_t* text, int base) {
  Scan result{0, false, false, text};
  const wchar_t* p = text;
  while (IsSpace(*p)) ++p;
  result.negative = *p == L'-';
  if (*p == L'-' || *p == L'+') ++p;
  const bool hex = (base == 0 || base == 16) && isHexPrefix(p);
  if (base == 0) base = hex ? 16 : *p == L'0' ? 8 : 10;
  if (hex) p += 2;
  for (; digitOf(*p) < base; ++p) {
    result.any = true;
    if (result.magnitude <= 0xFFFFFFFF) {
      result.magnitude =
          result.magnitude * static_cast<unsigned>(base) + static_cast<unsigned>(digitOf(*p));
    }
  }
  if (result.any) result.end = p;
  return result;
}

bool baseIsWrong(const wchar_t* text, const wchar_t** end, int base) {
  if (base == 0 || (base >= 2 && base <= 36)) return false;
  if (end) *end = text;
  errno = EINVAL;
  return true;
}

// What can be part of a floating-point number.
bool isNumberCharacter(wchar_t c) {
  return (c >= L'0' && c <= L'9') || (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') ||
         c == L'.' || c == L'+' || c == L'-' || c == L'(' || c == L')' || c == L'_';
}

}  // namespace

locale_t CLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

LONG wcstol(const wchar_t* text, const wchar_t** end, int base) {
  if (baseIsWrong(text, end, base)) return 0;
  const Scan number = scan(text, base);
  if (end) *end = number.end;
  const ULONGLONG limit = number.negative ? 0x80000000ULL : 0x7FFFFFFFULL;
  if (number.magnitude > limit) errno = ERANGE;
  const auto value = static_cast<LONGLONG>(number.magnitude > limit ? limit : number.magnitude);
  return static_cast<LONG>(number.negative ? -value : value);
}

ULONG wcstoul(const wchar_t* text, const wchar_t** end, int base) {
  if (baseIsWrong(text, end, base)) return 0;
  const Scan number = scan(text, base);
  if (end) *end = number.end;
  if (number.magnitude > 0xFFFFFFFF) {
    errno = ERANGE;
    return 0xFFFFFFFF;
  }
  const auto value = static_cast<ULONG>(number.magnitude);
  return number.negative ? 0U - value : value;
}

double wcstod(const wchar_t* text, const wchar_t** end) {
  const wchar_t* start = text;
  while (IsSpace(*start)) ++start;
  std::string digits;
  for (const wchar_t* p = start; isNumberCharacter(*p); ++p) digits += static_cast<char>(*p);
  char* stop = nullptr;
  const double value = strtod_l(digits.c_str(), &stop, CLocale());
  const auto taken = stop - digits.c_str();
  if (end) *end = taken > 0 ? start + taken : text;
  return value;
}

}  // namespace qel::sys
