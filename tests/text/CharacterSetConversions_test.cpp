#include "qelbase/text/CharacterSetConversions.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "qelbase/outside/system/text.h"

namespace {

using namespace CharacterSetConversions;

struct Page {
  explicit Page(UINT page) : m_old(qel::sys::GetACP()) { qel::sys::SetACP(page); }
  ~Page() { qel::sys::SetACP(m_old); }
  UINT m_old;
};

// What the function hands out, terminator included.
template <typename T, typename... Source>
std::basic_string<T> handedOut(bool (*copy)(T*&, std::size_t&, Source...), Source... source) {
  T* dest = nullptr;
  std::size_t length = 0;
  EXPECT_TRUE(copy(dest, length, source...));
  const std::unique_ptr<T[]> owner(dest);
  return {dest, length};
}

using namespace std::string_literals;

}  // namespace

TEST(CharacterSetConversions, GivesBuffersWithTerminatorAndLength) {
  EXPECT_EQ(handedOut<char>(CopyToNewMBCS, L"", static_cast<const char*>(nullptr)), "\0"s);
  EXPECT_EQ((handedOut<char, const std::wstring&>(CopyToNewMBCS, L"a\u20AC\U0001F600")),
            "a\xE2\x82\xAC\xF0\x9F\x98\x80\0"s);
  EXPECT_EQ((handedOut<char, const std::wstring&>(CopyToNewMBCS, L"ab\0cd"s)), "ab\0"s);
  EXPECT_EQ(handedOut<wchar_t>(CopyToNewTCS, "\xC3\xA4x"), L"\u00E4x\0"s);
  EXPECT_EQ(handedOut<wchar_t>(CopyToNewTCS, L"abc"), L"abc\0"s);
  EXPECT_EQ((handedOut<wchar_t, const CStringW&>(CopyToNewWCS, CStringW(L"ab\0cd", 5))), L"ab\0"s);
  EXPECT_STREQ(CStringToMString(L"text").C_STR(), L"text");
}

TEST(CharacterSetConversions, ReplacesWhatANarrowPageLacks) {
  const Page page(1252);
  EXPECT_EQ(handedOut<char>(CopyToNewMBCS, L"a\u4E2D\u20AC", "#"), "a#\x80\0"s);
  EXPECT_EQ(handedOut<char>(CopyToNewMBCS, L"a\u4E2D", static_cast<const char*>(nullptr)), "a?\0"s);
  EXPECT_STREQ(String<char>(L"a\u4E2Db", '\0'), "a");
  EXPECT_STREQ(String<char>(L"\u00E9t\u00E9", '\0'), String<char>(CStringW(L"\u00E9t\u00E9")));
  EXPECT_STREQ(String<wchar_t>("\x80"), L"\u20AC");
}

TEST(CharacterSetConversions, AlwaysGivenDefaultCharacterDoesNotFailInUtf8) {
  const Page page(65001);
  EXPECT_STREQ(String<char>(L"\u4E2D", '?'), "\xE4\xB8\xAD");
  EXPECT_STREQ(String<wchar_t>(L"wide", 'x'), L"wide");
  EXPECT_STREQ(String<char>("raw\xFF"), "raw\xFF");
}

TEST(CharacterSetConversions, LeavesTheOutputsOnFailure) {
  char* dest = nullptr;
  std::size_t length = 77;
  EXPECT_FALSE(CopyToNewMBCS(dest, length, static_cast<const wchar_t*>(nullptr), nullptr));
  EXPECT_EQ(dest, nullptr);
  EXPECT_EQ(length, 77u);
}
