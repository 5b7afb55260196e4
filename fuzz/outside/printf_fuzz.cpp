// Foreign formats with numbers for arguments. Texts are taken off the format first, since what they
// point to is the caller's promise.
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qelbase/outside/system/text.h"

namespace {

template <typename Text>
int format(Text& out, const typename Text::value_type* how, ...) {
  va_list args;
  va_start(args, how);
  const int length = qel::sys::AppendFormatV(out, how, args);
  va_end(args);
  return length;
}

// Every integer and pointer argument is a machine word here, so that all of them fit all letters.
template <typename Text>
void check(const Text& how) {
  Text out{'x'};
  const int length =
      format(out, how.c_str(), 1UL, ~0UL, 0UL, 123456789012345UL, 5UL, 6UL, 7UL, 8UL, 9UL, 10UL,
             11UL, 12UL, 13UL, 14UL, 15UL, 16UL, 1.5, -2e300, 0.0, 3.25, 1e-300, 6.0, 7.0, 8.0);
  const std::size_t expected = length < 0 ? 1 : static_cast<std::size_t>(length) + 1;
  if (out.size() != expected || out[0] != 'x') std::abort();
}

bool isRefused(char c, int& directives) {
  if (c == '%' || c == '*') ++directives;
  return directives > 8 || c == 's' || c == 'S' || c == 'L';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string narrow;
  int directives = 0;
  int digits = 0;
  for (std::size_t i = 0; i < size && data[i] != 0; ++i) {
    const char c = static_cast<char>(data[i]);
    digits = c >= '0' && c <= '9' ? digits + 1 : 0;
    if (!isRefused(c, directives) && digits < 5) narrow += c;
  }
  check(narrow);
  check(qel::sys::Widen(narrow));
  wchar_t buffer[1025];
  buffer[1024] = L'#';
  const int length = qel::sys::wsprintfW(buffer, qel::sys::Widen(narrow).c_str(), 1UL, 2UL, 3UL,
                                         4UL, 5UL, 6UL, 7UL, 8UL, 9UL);
  if (length < 0 || length > 1023 || buffer[length] != L'\0' || buffer[1024] != L'#') std::abort();
  return 0;
}
