#include "qelbase/text/miscstr.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <string>
#include <vector>

namespace {

constexpr const wchar_t* delims = L",\";";

std::vector<std::wstring> valuesOf(const wchar_t* list) {
  std::vector<std::wstring> values;
  CStringW value;
  for (std::int32_t pos = 0; miscstr::GetNextVal(list, pos, value, delims) != 0;) {
    values.emplace_back(value);
  }
  return values;
}

}  // namespace

TEST(miscstr, ReadsDelimitedLists) {
  const struct {
    const wchar_t* list;
    std::vector<std::wstring> values;
  } rows[] = {
      {L"", {}},
      {L"a,", {L"a"}},
      {L"a,,b", {L"a", L"", L"b"}},
      {L",", {L""}},
      {L"a\"\"b", {L"a\"\"b"}},
      {L"\"a\"\"b\"", {L"a\"b"}},
      {L"\"ab\"cd,e", {L"abcd", L"e"}},
      {L"\"a,b", {L"a,b"}},
      {L"\"", {L""}},
      {L"\"a,b\";c,d", {L"a,b;c", L"d"}},
  };
  for (const auto& row : rows) EXPECT_EQ(valuesOf(row.list), row.values) << row.list;
  std::int32_t pos = 1;
  CStringW value(L"old");
  EXPECT_EQ(miscstr::GetNextVal(L"", pos, value, delims), 0);
  EXPECT_EQ(pos, 1);
  EXPECT_TRUE(value.IsEmpty());
}

TEST(miscstr, QuotesWhatNeedsIt) {
  EXPECT_STREQ(miscstr::QuoteVal(L"plain", delims), L"plain");
  EXPECT_STREQ(miscstr::QuoteVal(L"x\"y", delims), L"\"x\"\"y\"");
  EXPECT_STREQ(miscstr::QuoteVal(L"a;b", delims), L"\"a;b\"");
  EXPECT_TRUE(rc::check([](const std::vector<std::string>& texts) {
    CStringW list;
    std::vector<std::wstring> values;
    for (const std::string& text : texts) {
      if (text.empty()) continue;  // AddDelimited leaves empty values out
      values.emplace_back(text.begin(), text.end());
      miscstr::AddDelimited(list, miscstr::QuoteVal(values.back().c_str(), delims), L",", L"", L"");
    }
    RC_ASSERT(valuesOf(list) == values);
  }));
  CStringW list;
  miscstr::AddDelimited(list, L"a", L"; ", L"<", L">");
  miscstr::AddDelimited(list, L"", L"; ", L"<", L">");
  miscstr::AddDelimited(list, L"b", L"; ", L"<", L">");
  EXPECT_STREQ(list, L"<a>; <b>");
}

TEST(miscstr, SplitsAndSearches) {
  const struct {
    const wchar_t* text;
    const wchar_t* separator;
    std::int32_t from_end, found;
    const wchar_t* left;
    const wchar_t* right;
  } rows[] = {
      {L" a = b ", L"=", 0, 1, L"a", L"b"},     {L"AxBXc", L"x", 1, 1, L"AxB", L"c"},
      {L"AxBXc", L"X", 0, 1, L"A", L"BXc"},     {L" none ", L"=", 0, 0, L"none", L""},
      {L"a->b->c", L"->", 1, 1, L"a->b", L"c"}, {L"ab", L"", 1, 0, L"ab", L""},
  };
  for (const auto& row : rows) {
    CStringW left(L"?"), right(L"?");
    EXPECT_EQ(miscstr::Split(row.text, row.separator, left, right, row.from_end), row.found);
    EXPECT_STREQ(left, row.left);
    EXPECT_STREQ(right, row.right);
  }
  EXPECT_EQ(miscstr::ReverseFind(L"aaa", L"aa"), 1);
  EXPECT_EQ(miscstr::ReverseFind(L"aaa", L"A"), -1);
  EXPECT_EQ(miscstr::StartsWith(L"abc", L"", 1), 1);
  EXPECT_EQ(miscstr::StartsWith(L"abc", L"AB", 1), 0);
  EXPECT_EQ(miscstr::StartsWith(L"abc", L"AB", 0), 1);
  EXPECT_EQ(miscstr::EndsWith(L"bc", L"abc", 1), 0);
  EXPECT_EQ(miscstr::EndsWith(L"abc", L"BC", 0), 1);
  EXPECT_EQ(miscstr::CharAtIs(L"abc", 3, L'\0'), 0);
  EXPECT_EQ(miscstr::CharAtIs(L"abc", 2, L'c'), 1);
}

TEST(miscstr, CleansTexts) {
  EXPECT_STREQ(miscstr::MakeStringSafe(L"report.txt", L""), L"report_txt");
  EXPECT_STREQ(miscstr::MakeStringSafe(L"a b.c\x7F\u00E9\U0001F600!", L" ."), L"a b.c___!");
  std::wstring all, kept;
  for (wchar_t c = 1; c < 128; ++c) all += c;
  for (const wchar_t c : std::wstring(miscstr::MakeStringSafe(all.c_str(), L""))) {
    if (c != L'_') kept += c;
  }
  EXPECT_EQ(kept, L"!#$%&'()-0123456789@ABCDEFGHIJKLMNOPQRSTUVWXYZ^`abcdefghijklmnopqrstuvwxyz{}~");
  CStringW wide(L"abcd");
  CStringA narrow("abcd");
  EXPECT_STREQ(miscstr::TruncateString(wide, 4), L"abcd");
  EXPECT_STREQ(miscstr::TruncateString(wide, 2), L"ab");
  EXPECT_STREQ(miscstr::TruncateString(narrow, 0), "");
  CStringW blanks(L"\t\u00A0 a b \r\n");
  miscstr::Trim(blanks);
  EXPECT_STREQ(blanks, L"a b");
}

TEST(miscstr, ReadsIntegersOf32Bits) {
  const struct {
    const wchar_t* text;
    std::int32_t result, value;
  } rows[] = {
      {L"12", 1, 12},
      {L" \t-7", 1, -7},
      {L"12 ", 0, 12},
      {L"", 0, 0},
      {L"+", 0, 0},
      {L"x", 0, 0},
      {L"2147483647", 1, 2147483647},
      {L"2147483648", 0, 2147483647},
      {L"-2147483648", 1, -2147483648},
      {L"-9999999999", 0, -2147483648},
      {L"0x10", 0, 0},
  };
  for (const auto& row : rows) {
    std::int32_t value = 99;
    EXPECT_EQ(miscstr::str2int(row.text, value), row.result) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
  }
  EXPECT_STREQ(miscstr::str(L"%s %d%%", L"wide", 5), L"wide 5%");
  EXPECT_EQ(miscstr::null, nullptr);
}
