#include <gtest/gtest.h>

#include <stdexcept>

#include "qelbase/outside/framework/CObject.h"
#include "qelbase/outside/framework/CString.h"

namespace {

TEST(CString, CutsAreClamped) {
  const CStringW text = L"abcdef";
  EXPECT_EQ(text.Left(-1), L"");
  EXPECT_EQ(text.Left(99), L"abcdef");
  EXPECT_EQ(text.Right(2), L"ef");
  EXPECT_EQ(text.Right(99), L"abcdef");
  EXPECT_EQ(text.Mid(-3, 2), L"ab");
  EXPECT_EQ(text.Mid(4, 99), L"ef");
  EXPECT_EQ(text.Mid(99), L"");
  EXPECT_EQ(text.Mid(2, -1), L"");
  EXPECT_EQ(text.SpanIncluding(L"cba"), L"abc");
  EXPECT_EQ(text.SpanExcluding(L"ed"), L"abc");
}

TEST(CString, SearchesGiveThePositionOrMinusOne) {
  const CStringW text = L"abcabc";
  EXPECT_EQ(text.Find(L"ca"), 2);
  EXPECT_EQ(text.Find(L'a', 1), 3);
  EXPECT_EQ(text.Find(L"", 4), 4);
  EXPECT_EQ(text.Find(L"", 7), -1);
  EXPECT_EQ(text.Find(L"a", -1), -1);
  EXPECT_EQ(text.Find(L"x"), -1);
  EXPECT_EQ(text.ReverseFind(L'b'), 4);
  EXPECT_EQ(text.FindOneOf(L"xcb"), 1);
}

TEST(CString, ChangesInPlaceAndCounts) {
  CStringW text = L"aaa-a";
  EXPECT_EQ(text.Replace(L"aa", L"aaaa"), 1) << "one pass";
  EXPECT_EQ(text, L"aaaaa-a");
  EXPECT_EQ(text.Replace(L"", L"x"), 0);
  EXPECT_EQ(text.Remove(L'a'), 6);
  EXPECT_EQ(text.Insert(99, L"yz"), 3);
  EXPECT_EQ(text.Insert(-1, L'x'), 4);
  EXPECT_EQ(text.Delete(1, 99), 1);
  EXPECT_EQ(text, L"x");
  text = L"\xA0 --a-b--\t";
  EXPECT_EQ(text.Trim(), L"--a-b--");
  EXPECT_EQ(text.TrimLeft(L"-a"), L"b--");
  EXPECT_EQ(text.Trim(L'-'), L"b");
  EXPECT_EQ(CStringW(L"\xC9"
                     L"a")
                .MakeLower(),
            L"\xE9"
            L"a");
  EXPECT_EQ(CStringA("\xC3\xA9").MakeUpper(), "\xC3\x89");
  EXPECT_EQ(CStringW(L"\xC9").CompareNoCase(L"\xE9"), 0);
}

TEST(CString, TokensSkipRunsOfDelimiters) {
  const CStringW text = L"%First Second#Third";
  int start = 0;
  CStringW all;
  for (CStringW part = text.Tokenize(L"% #", start); start != -1;
       part = text.Tokenize(L"% #", start)) {
    all += part + L'.';
  }
  EXPECT_EQ(all, L"First.Second.Third.");
}

TEST(CString, IndexesOutOfRangeThrow) {
  CStringW text = L"ab";
  EXPECT_EQ(text[2], L'\0');
  EXPECT_THROW(text.GetAt(3), std::out_of_range);
  EXPECT_THROW(text.GetAt(-1), std::out_of_range);
  EXPECT_THROW(text.SetAt(2, L'x'), std::out_of_range);
  text.SetAt(1, L'x');
  EXPECT_EQ(text, L"ax");
}

TEST(CString, BuffersKeepTheContentAndEndAtTheFirstZero) {
  CStringW text = L"abc";
  wchar_t* buffer = text.GetBuffer(10);
  EXPECT_STREQ(buffer, L"abc");
  for (int i = 3; i < 10; ++i) buffer[i] = L'x';
  buffer[5] = L'\0';
  text.ReleaseBuffer();
  EXPECT_EQ(text, L"abcxx");
  text.GetBufferSetLength(2);
  EXPECT_EQ(text, L"ab");
}

TEST(CString, TextOfAnyKindComesIn) {
  const CStringW null = static_cast<const wchar_t*>(nullptr);
  EXPECT_TRUE(null.IsEmpty());
  CStringW wide = L"x";
  wide = "\xC3\xA9";
  EXPECT_EQ(wide, L"\xE9");
  EXPECT_EQ(CStringA(CStringW(L"\xE9")), "\xC3\xA9");
  wide.Format(L"%s-%d%S", wide.GetString(), 7, "n");
  wide.AppendFormat(L"+%s", static_cast<const wchar_t*>(wide));
  EXPECT_EQ(wide, L"\xE9-7n+\xE9-7n");
  EXPECT_EQ(L"a" + CStringW(L"b") + L'c' + L"d", L"abcd");
  EXPECT_TRUE(CStringW(L"a") < L"b");
  EXPECT_TRUE(L"b" > CStringW(L"a"));
  EXPECT_NE(CStringW(L"a"), CStringW(L"a", 0));
}

class Part : public CObject {
 public:
  static CRuntimeClass classPart;
  CRuntimeClass* GetRuntimeClass() const override { return &classPart; }
};
CRuntimeClass Part::classPart{"Part", sizeof(Part), 0xFFFF, nullptr, &CObject::classCObject};

TEST(CObject, KnowsItsClassAndBases) {
  const Part part;
  const CObject& object = part;
  EXPECT_STREQ(object.GetRuntimeClass()->m_name, "Part");
  EXPECT_TRUE(object.IsKindOf(&CObject::classCObject));
  EXPECT_TRUE(object.IsKindOf(&Part::classPart));
  EXPECT_FALSE(CObject::classCObject.IsDerivedFrom(&Part::classPart));
  EXPECT_FALSE(object.IsSerializable());
  EXPECT_EQ(object.GetRuntimeClass()->CreateObject(), nullptr);
}

}  // namespace
