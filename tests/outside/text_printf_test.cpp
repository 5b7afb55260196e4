#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cerrno>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <string>

#include "qelbase/outside/components/formatting.h"
#include "qelbase/outside/system/text.h"

namespace {

using QelStdBase::FormatString;

std::string narrowFormat(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string out;
  qel::sys::AppendFormatV(out, format, args);
  va_end(args);
  return out;
}

TEST(Format, TextsAndCharactersHaveTheSystemsWidths) {
  EXPECT_EQ(FormatString(L"%s|%S|%hs|%ls|%ws", L"w\x2603", "n\xC3\xA9", "h", L"l", L"x"),
            L"w\x2603|n\xE9|h|l|x");
  EXPECT_EQ(FormatString(L"%c%C%hc%lc", L'\x2603', 'a', 'b', L'\x1F600'),
            L"\x2603"
            L"ab\x1F600");
  EXPECT_EQ(narrowFormat("%s|%S|%ls|%hS|%c%C", "n", L"\x2603", L"l", "h", 'a', L'\xE9'),
            "n|\xE2\x98\x83|l|h|a\xC3\xA9");
  const wchar_t* null_text = nullptr;
  EXPECT_EQ(FormatString(L"%s|%.3s|%S", null_text, null_text, static_cast<char*>(nullptr)),
            L"(null)|(nu|(null)");
  const wchar_t no_zero[3] = {L'a', L'b', L'c'};
  EXPECT_EQ(FormatString(L"[%5.3s][%-5.2s][%*s][%-*s]", no_zero, no_zero, 3, L"x", -3, L"y"),
            L"[  abc][ab   ][  x][y  ]");
}

TEST(Format, NumbersHaveTheSystemsWidths) {
  EXPECT_EQ(FormatString(L"%I64d %I32u %I64x", 1234567890123LL, 4000000000U, 0xABCDEF0123ULL),
            L"1234567890123 4000000000 abcdef0123");
  EXPECT_EQ(FormatString(L"%ld %lu %lX", 0x1FFFFFFFFL, 0x1FFFFFFFFUL, 0x1ABCDEF01UL),
            L"-1 4294967295 ABCDEF01");
  EXPECT_EQ(FormatString(L"%hd %hhu %lld %zu", 70000, 300, LLONG_MIN, std::size_t{7}),
            L"4464 44 -9223372036854775808 7");
  EXPECT_EQ(FormatString(L"%p", reinterpret_cast<void*>(0xABCDEF)), L"0000000000ABCDEF");
  EXPECT_EQ(FormatString(L"%5.2g|%e|%.2f|%g", 123.0, 1e100, 0.125, HUGE_VAL),
            L"1.2e+02|1.000000e+100|0.12|inf");
  EXPECT_EQ(FormatString(L"%+05d|% d|%#x|%-4d|%.3d|%.0d", 42, 42, 255, 7, 5, 0),
            L"+0042| 42|0xff|7   |005|");
  EXPECT_EQ(FormatString(L"100%% %y %", 1), L"100% y ");
}

TEST(Format, RefusesWhatWritesOrFloods) {
  int written = 7;
  EXPECT_EQ(FormatString(L"ab%n", &written), L"");
  EXPECT_EQ(written, 7);
  EXPECT_EQ(FormatString(L"%2000000000d", 1), L"");
  EXPECT_EQ(FormatString(L"%.*f", INT_MAX, 1.0), L"");
  EXPECT_EQ(FormatString(nullptr), L"");
  EXPECT_EQ(FormatString(L"%1000d", 1).size(), 1000U);
}

TEST(Format, HasADecimalPointInAnyLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8"}) {
    if (std::setlocale(LC_ALL, name)) break;
  }
  EXPECT_EQ(FormatString(L"%.1f", 1.5), L"1.5");
  EXPECT_EQ(qel::sys::wcstod(L"1.5", nullptr), 1.5);
  std::setlocale(LC_ALL, before.c_str());
}

// One directive of flags, width, precision and letter, against the C library's own reading of it.
TEST(Format, ReadsDirectivesAsTheCLibraryDoes) {
  EXPECT_TRUE(rc::check("narrow numbers equal snprintf", [] {
    std::string format = "<%";
    for (const char flag :
         *rc::gen::container<std::string>(rc::gen::element('-', '+', ' ', '#', '0'))) {
      format += flag;
    }
    const int width = *rc::gen::inRange(0, 40);
    const int precision = *rc::gen::inRange(-1, 30);
    if (width > 0) format += std::to_string(width);
    if (precision >= 0) format.append(".").append(std::to_string(precision));
    char expected[256];
    if (*rc::gen::arbitrary<bool>()) {
      format.append("ll").append(1, *rc::gen::element('d', 'i', 'u', 'o', 'x', 'X')).append(">");
      const auto value = *rc::gen::arbitrary<long long>();
      std::snprintf(expected, sizeof expected, format.c_str(), value);
      RC_ASSERT(narrowFormat(format.c_str(), value) == expected);
    } else {
      format.append(1, *rc::gen::element('e', 'E', 'f', 'g', 'G', 'a')).append(">");
      const double value = *rc::gen::arbitrary<double>() * 1e-3;
      std::snprintf(expected, sizeof expected, format.c_str(), value);
      RC_ASSERT(narrowFormat(format.c_str(), value) == expected);
    }
  }));
}

TEST(BoundedFormat, TellsWhenTheBufferIsTooSmall) {
  wchar_t buffer[6] = L"old";
  EXPECT_EQ(qel::sys::swprintf_s(buffer, 6, L"%d", 12345), 5);
  EXPECT_STREQ(buffer, L"12345");
  errno = 0;
  EXPECT_EQ(qel::sys::swprintf_s(buffer, 6, L"%d", 123456), -1);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_STREQ(buffer, L"");
  EXPECT_EQ(qel::sys::swprintf_s(buffer, 6, L"ab"), 2);
  EXPECT_EQ(qel::sys::wcscat_s(buffer, 6, L"cde"), 0);
  EXPECT_STREQ(buffer, L"abcde");
  EXPECT_EQ(qel::sys::wcscat_s(buffer, 5, L""), EINVAL) << "no terminator within the size";
  EXPECT_STREQ(buffer, L"abcde");
  EXPECT_EQ(qel::sys::wcscat_s(buffer, 6, L"f"), ERANGE);
  EXPECT_STREQ(buffer, L"");
}

TEST(BoundedFormat, WsprintfKnowsFewLettersAndStopsAt1024) {
  std::wstring buffer(1100, L'#');
  EXPECT_EQ(qel::sys::wsprintfW(buffer.data(), L"%08lX %5.3d %f %*d", 0x1000000ABUL, 7, 9, 9), 19);
  EXPECT_STREQ(buffer.c_str(), L"000000AB   007 f *d");
  const std::wstring text(2000, L'x');
  EXPECT_EQ(qel::sys::wsprintfW(buffer.data(), L"%s", text.c_str()), 1023);
  EXPECT_EQ(buffer[1023], L'\0');
  EXPECT_EQ(buffer[1024], L'#');
}

TEST(Numbers, AreReadIn32Bits) {
  const struct {
    const wchar_t* text;
    int base;
    std::int32_t value;
    std::uint32_t unsigned_value;
    std::ptrdiff_t taken;
    int error;  // of the signed one
    int unsigned_error;
  } rows[] = {
      {L"12 ", 10, 12, 12, 2, 0, 0},
      {L"\xA0\t-7x", 10, -7, 4294967289U, 4, 0, 0},
      {L"2147483647", 10, INT32_MAX, 2147483647U, 10, 0, 0},
      {L"2147483648", 10, INT32_MAX, 2147483648U, 10, ERANGE, 0},
      {L"-2147483648", 10, INT32_MIN, 2147483648U, 11, 0, 0},
      {L"4294967296", 10, INT32_MAX, UINT32_MAX, 10, ERANGE, ERANGE},
      {L"-99999999999999999999999", 10, INT32_MIN, UINT32_MAX, 24, ERANGE, ERANGE},
      {L"0x1F", 16, 31, 31, 4, 0, 0},
      {L"0x1F", 0, 31, 31, 4, 0, 0},
      {L"017", 0, 15, 15, 3, 0, 0},
      {L"0xg", 16, 0, 0, 1, 0, 0},
      {L"0b1", 2, 0, 0, 1, 0, 0},
      {L"zZ", 36, 1295, 1295, 2, 0, 0},
      {L"  -", 10, 0, 0, 0, 0, 0},
      {L"5", 1, 0, 0, 0, EINVAL, EINVAL},
  };
  for (const auto& row : rows) {
    const wchar_t* end = nullptr;
    errno = 0;
    EXPECT_EQ(qel::sys::wcstol(row.text, &end, row.base), row.value) << row.text;
    EXPECT_EQ(end - row.text, row.taken) << row.text;
    EXPECT_EQ(errno, row.error) << row.text;
    errno = 0;
    EXPECT_EQ(qel::sys::wcstoul(row.text, &end, row.base), row.unsigned_value) << row.text;
    EXPECT_EQ(errno, row.unsigned_error) << row.text;
  }
}

TEST(Numbers, FloatingPointStopsWhereItMust) {
  const wchar_t* end = nullptr;
  const wchar_t* text = L"\x2007 -1.5e3D2";
  EXPECT_EQ(qel::sys::wcstod(text, &end), -1500.0);
  EXPECT_EQ(end, text + 8);
  text = L" .x";
  EXPECT_EQ(qel::sys::wcstod(text, &end), 0.0);
  EXPECT_EQ(end, text);
  EXPECT_EQ(qel::sys::wcstod(L"0x1p4", nullptr), 16.0);
  EXPECT_TRUE(std::isnan(qel::sys::wcstod(L"NAN", nullptr)));
  errno = 0;
  EXPECT_EQ(qel::sys::wcstod(L"-1e999", nullptr), -HUGE_VAL);
  EXPECT_EQ(errno, ERANGE);
}

}  // namespace
