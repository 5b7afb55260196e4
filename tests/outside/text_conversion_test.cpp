#include <gtest/gtest.h>
#include <iconv.h>
#include <rapidcheck.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "qelbase/outside/system/code_pages_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/outside/system/utf8_internal.h"

namespace {

using namespace qel::sys;

class Iconv {
 public:
  Iconv(const char* to, const char* from) : m_handle(iconv_open(to, from)) {}
  ~Iconv() { iconv_close(m_handle); }
  Iconv(const Iconv&) = delete;
  Iconv& operator=(const Iconv&) = delete;

  // Nothing for what the library cannot convert whole.
  std::optional<std::string> operator()(std::string in) {
    char out[64];
    char* from = in.data();
    char* to = out;
    std::size_t left = in.size();
    std::size_t room = sizeof out;
    iconv(m_handle, nullptr, nullptr, nullptr, nullptr);
    if (iconv(m_handle, &from, &left, &to, &room) != 0) return std::nullopt;
    return std::string(out, sizeof out - room);
  }

 private:
  iconv_t m_handle;
};

std::string bytesOf(wchar_t c) {
  return {reinterpret_cast<const char*>(&c), sizeof c};
}

// The default page for a scope.
class DefaultPage {
 public:
  explicit DefaultPage(UINT page) : m_before(GetACP()) { SetACP(page); }
  ~DefaultPage() { SetACP(m_before); }
  DefaultPage(const DefaultPage&) = delete;
  DefaultPage& operator=(const DefaultPage&) = delete;

 private:
  UINT m_before;
};

TEST(Conversion, Utf8And16AgreeWithIconvForEveryCharacter) {
  Iconv to_utf8("UTF-8", "UTF-32LE");
  Iconv to_utf16("UTF-16LE", "UTF-32LE");
  for (wchar_t c = 1; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    const std::wstring text(1, c);
    const std::string narrow = Narrow(text, CP_UTF8);
    ASSERT_EQ(narrow, to_utf8(bytesOf(c)));
    ASSERT_EQ(Widen(narrow, CP_UTF8), text);
    ASSERT_EQ(ToUtf16Le(text), to_utf16(bytesOf(c)));
    ASSERT_EQ(FromUtf16Le(ToUtf16Le(text)), text);
  }
}

TEST(Conversion, Page932AgreesWithIconvForEveryCode) {
  Iconv from_page("UTF-32LE", "CP932");
  for (int lead = 0x81; lead <= 0xFC; ++lead) {
    if (lead >= 0xA0 && lead <= 0xDF) continue;
    for (int trail = 0x40; trail <= 0xFC; ++trail) {
      const std::string code{static_cast<char>(lead), static_cast<char>(trail)};
      const auto expected = from_page(code);
      const std::wstring wide = Widen(code, CP_SHIFT_JIS);
      if (!expected) {
        ASSERT_EQ(wide[0], L'?') << std::hex << lead << trail;
        continue;
      }
      ASSERT_EQ(bytesOf(wide[0]), *expected) << std::hex << lead << trail;
      ASSERT_EQ(Widen(Narrow(wide, CP_SHIFT_JIS), CP_SHIFT_JIS), wide);
    }
  }
  EXPECT_EQ(Narrow(L"\x2170\x2252\xFF71", CP_SHIFT_JIS), "\xFA\x40\x81\xE0\xB1");
}

TEST(Conversion, Page1252AgreesWithIconvSaveForItsControls) {
  Iconv from_page("UTF-32LE", "CP1252");
  for (int byte = 1; byte < 256; ++byte) {
    const std::string code(1, static_cast<char>(byte));
    const std::wstring wide = Widen(code, CP_WESTERN);
    const auto expected = from_page(code);
    EXPECT_EQ(bytesOf(wide[0]), expected.value_or(bytesOf(byte))) << byte;
    EXPECT_EQ(Narrow(wide, CP_WESTERN), code);
  }
}

// In runs, against one character at a time; also where the room ends early.
TEST(Conversion, Utf8InRunsIsTheSameAsCharacterByCharacter) {
  EXPECT_TRUE(rc::check([] {
    const auto piece = rc::gen::elementOf(
        std::vector<std::string>{"plain text ", "a", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                 "\x80", "\xC3", "\xE2\x82", "\xF0\x9F\x98", "\xC0\xAF",
                                 "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF", std::string(1, '\0')});
    std::string text;
    for (const std::string& part : *rc::gen::container<std::vector<std::string>>(piece))
      text += part;
    std::wstring slow;
    for (std::string_view rest = text; !rest.empty();) {
      const char32_t c = TakeUtf8(rest);
      slow += c == no_character ? L'\xFFFD' : static_cast<wchar_t>(c);
    }
    RC_ASSERT(Widen(text, CP_UTF8) == slow);
    const auto room = *rc::gen::inRange<std::size_t>(0, slow.size() + 9);
    std::wstring fast(room + 1, L'#');
    const Converted decoded = DecodeUtf8(text, fast.data(), room);
    RC_ASSERT(decoded.fits == (room >= slow.size()));
    RC_ASSERT(decoded.length == std::min(room, slow.size()));
    RC_ASSERT(fast.compare(0, decoded.length, slow, 0, decoded.length) == 0);
    RC_ASSERT(fast[room] == L'#');

    slow.insert(slow.size() / 2, L"\xD83D\xDE00\xD83D");
    std::string slow_bytes;
    for (std::wstring_view rest = slow; !rest.empty();) {
      const char32_t c = TakeWide(rest);
      PutUtf8(slow_bytes, c == no_character ? L'\xFFFD' : c);
    }
    RC_ASSERT(Narrow(slow, CP_UTF8) == slow_bytes);
    const auto bytes = *rc::gen::inRange<std::size_t>(0, slow_bytes.size() + 9);
    std::string narrow(bytes + 1, '#');
    const Converted encoded = EncodeUtf8(slow, nullptr, narrow.data(), bytes);
    RC_ASSERT(encoded.fits == (bytes >= slow_bytes.size()));
    RC_ASSERT(narrow.compare(0, encoded.length, slow_bytes, 0, encoded.length) == 0);
    RC_ASSERT(narrow[bytes] == '#');
  }));
}

// Long texts of a few kinds of pieces, so that steps end in the middle of every form; all rooms.
TEST(Conversion, Utf8InStepsIsTheSameAsThePortableForm) {
  const std::vector<std::string> pieces = {
      "plain text of some length, plain text ", "a", "\xC3\xA4", "\xDF\xBF", "\xE2\x82\xAC",
      "\xE0\xA0\x80", "\xEF\xBF\xBF", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF", "\xED\x9F\xBF",
      "\xEE\x80\x80", std::string(1, '\0'), "\x7F", "\xC2\x80",
      // ill-formed
      "\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
      "\xF5\x80\x80\x80", "\xFF", "\xE2\x82", "\xC3"};
  constexpr std::size_t well_formed = 14;
  std::mt19937 random(1);  // NOLINT: the same in each run
  for (int round = 0; round < 3000; ++round) {
    const std::size_t kinds = round % 4 == 0 ? pieces.size() : well_formed;
    std::string text;
    const std::size_t size = random() % 400;
    while (text.size() < size) text += pieces[random() % kinds];
    const Converted counted = DecodeUtf8Portable(text, nullptr, 0);
    std::wstring wide(counted.length, L'#');
    ASSERT_TRUE(DecodeUtf8Portable(text, wide.data(), wide.size()).fits);
    const Converted steps = DecodeUtf8(text, nullptr, 0);
    ASSERT_EQ(steps.length, counted.length);
    ASSERT_EQ(steps.ill_formed, counted.ill_formed);
    const std::size_t room = random() % 2 == 0 ? wide.size() : random() % (wide.size() + 1);
    std::wstring out(room + 1, L'#');
    const Converted decoded = DecodeUtf8(text, out.data(), room);
    ASSERT_EQ(decoded.fits, room == wide.size());
    ASSERT_EQ(decoded.length, room);
    ASSERT_EQ(out, wide.substr(0, room) + L'#');

    if (round % 3 == 0) wide.insert(wide.size() / 2, 1, static_cast<wchar_t>(random()));
    if (round % 5 == 0) wide.insert(wide.size() / 3, L"\xD83D\xDE00\xDC00");
    std::string narrow(EncodeUtf8Portable(wide, "?", nullptr, 0).length, '#');
    const Converted told = EncodeUtf8Portable(wide, "?", narrow.data(), narrow.size());
    ASSERT_EQ(EncodeUtf8(wide, "?", nullptr, 0).length, narrow.size());
    std::string bytes(narrow.size() + 1, '#');
    const Converted encoded = EncodeUtf8(wide, "?", bytes.data(), narrow.size());
    ASSERT_TRUE(encoded.fits);
    ASSERT_EQ(encoded.ill_formed, told.ill_formed);
    ASSERT_EQ(bytes, narrow + '#');
    if (narrow.empty()) continue;
    ASSERT_FALSE(EncodeUtf8(wide, "?", bytes.data(), narrow.size() - 1).fits);
  }
}

TEST(Conversion, IllFormedTextIsReplacedAndNothingIsLostBesideIt) {
  const struct {
    const char* narrow;
    const wchar_t* wide;
  } rows[] = {{"a\x80z", L"a\xFFFDz"},
              {"\xC3", L"\xFFFD"},
              {"\xC0\xAF", L"\xFFFD\xFFFD"},
              {"\xE2\x98z", L"\xFFFDz"},
              {"\xED\xA0\x80", L"\xFFFD\xFFFD\xFFFD"},
              {"\xF0\x9F\x98\x80\xF4\x90\x80\x80", L"\x1F600\xFFFD\xFFFD\xFFFD\xFFFD"}};
  for (const auto& row : rows) EXPECT_EQ(Widen(row.narrow, CP_UTF8), row.wide);
  const std::wstring lone = {L'a', static_cast<wchar_t>(0xDC00), static_cast<wchar_t>(0xD800),
                             L'b'};
  EXPECT_EQ(Narrow(lone, CP_UTF8),
            "a\xEF\xBF\xBD\xEF\xBF\xBD"
            "b");
  EXPECT_EQ(FromUtf16(ToUtf16(lone)), lone) << "lone surrogates survive in 16-bit text";
  EXPECT_EQ(ToUtf16Le(lone), std::string("a\0\0\xDC\0\xD8"
                                         "b\0",
                                         8));
}

TEST(Conversion, ResultsAndErrorsOfTheSystemsCalls) {
  char narrow[8];
  wchar_t wide[8];
  int used = 7;
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\x20AC", -1, nullptr, 0, nullptr, nullptr), 4);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\x20AC", 1, narrow, 8, nullptr, nullptr), 3);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"\x20AC", -1, narrow, 3, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), 122U);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", 0, narrow, 8, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), 87U);
  SetLastError(0);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", -1, narrow, 8, "?", nullptr), 0);
  EXPECT_EQ(GetLastError(), 87U);
  EXPECT_EQ(MultiByteToWideChar(12345, 0, "a", -1, wide, 8), 0);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xF0\x9F\x98\x80", -1, nullptr, 0), 2);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "\xFF", -1, wide, 8), 0);
  EXPECT_EQ(GetLastError(), 1113U);
  EXPECT_EQ(WideCharToMultiByte(CP_WESTERN, 0,
                                L"\x221E\x4E2D"
                                L"e",
                                3, narrow, 8, "#", &used),
            3);
  EXPECT_EQ(std::string(narrow, 3), "8#e");
  EXPECT_EQ(used, 1);
  EXPECT_EQ(WideCharToMultiByte(CP_WESTERN, WC_NO_BEST_FIT_CHARS, L"\x221E", 1, narrow, 8, nullptr,
                                &used),
            1);
  EXPECT_EQ(narrow[0], '?');
}

TEST(Conversion, TheDefaultPageTakesADefaultCharacter) {
  const char zero = '\0';
  char narrow[8];
  {
    const DefaultPage page(CP_UTF8);
    const std::wstring lone = {L'a', static_cast<wchar_t>(0xD800)};
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, lone.c_str(), 2, narrow, 8, "#", nullptr), 2);
    EXPECT_EQ(narrow[1], '#');
  }
  const DefaultPage page(CP_WESTERN);
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"\x4E2D", 1, narrow, 8, &zero, nullptr), 1);
  EXPECT_EQ(narrow[0], '\0');
  EXPECT_EQ(Widen("\x80"), L"\x20AC");
  EXPECT_FALSE(SetACP(4711));
  EXPECT_EQ(GetACP(), CP_WESTERN);
}

TEST(Characters, FoldOneToOne) {
  EXPECT_EQ(FoldCase(L"STRASSE \xC4\x130\x3A3\x10400"), L"strasse \xE4\x69\x3C3\x10428");
  EXPECT_EQ(ToUpper(L'\xDF'), L'\xDF') << "its capital form has two letters";
  EXPECT_EQ(ToUpper(L'\xFF'), L'\x178');
  EXPECT_EQ(ToUpper(L'\x1F80'), L'\x1F88');
  EXPECT_EQ(CompareNoCase(L"\xC9T\xC9", L"\xE9t\xE9"), 0);
  EXPECT_LT(CompareNoCase(L"a", L"B"), 0);
  EXPECT_GT(CompareNoCase(L"ab", L"A"), 0);
  for (const wchar_t c : {0x9, 0x20, 0x85, 0xA0, 0x2007, 0x202F, 0x3000})
    EXPECT_TRUE(IsSpace(c)) << int{c};
  for (const wchar_t c : {0x0, 0x8, 0xE, 0x200B, 0xFEFF}) EXPECT_FALSE(IsSpace(c)) << int{c};
}

}  // namespace
