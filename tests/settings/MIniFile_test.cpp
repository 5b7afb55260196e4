#include "qelbase/settings/MIniFile.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qelbase/outside/system/errors.h"

#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

using namespace std::string_literals;
using qeltest::TempFolder;

// A model with verbs: takes ini text, tells values as one line of text.
class Ini {
 public:
  std::uint32_t read(std::string_view text) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(
        fmemopen(const_cast<char*>(text.data()), text.size(), "rb"), std::fclose);
    return text.empty() ? 0 : model.Read(*stream);
  }
  // "[A] a=1 b=2\n3 [B] ..."
  std::wstring told() const {
    std::wstring text;
    CStringW part;
    for (std::uint32_t s = 0; s < model.GetSectionsCount(); ++s) {
      text += L"[" + std::wstring(model.GetSectionName(part, s)) + L"]";
      for (std::uint32_t e = 0; e < model.GetEntriesCount(s); ++e) {
        text += L" " + std::wstring(model.GetEntryName(part, s, e, 0));
        model.GetEntryName(part, s, e, 1);
        text += L"=" + std::wstring(part.GetString(), static_cast<std::size_t>(part.GetLength()));
      }
    }
    return text;
  }
  MIniFile model;
};

std::string wideBytes(std::u16string_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * 2};
}

}  // namespace

TEST(MIniFile, ReadsTheTextFormat) {
  const std::string long_value(300, 'x');
  const struct {
    std::string text;
    std::wstring told;
  } rows[] = {
      {"", L""},
      {"a=1\n[S]\nb = 2 \r\n[]\nc=3", L"[] a=1 c=3[S] b=2"},
      {"[S]\n[s]\nk=1\n[S ]\nk=2\n", L"[s] k=1[S ] k=2"},
      {"key=\n\nother=1", L"[] key= other=1"},
      {"key=\nother=1", L"[] other=1"},
      {"key=", L""},
      {"key=\n[S]\n", L"[] key="},
      {"key = a\nb\n=c\n", L"[] key=a\nb\nc"},
      {"key = a\n; no\n# no\nb", L"[] key=a\nb"},
      {"key=a\n=\nb", L"[] key=a\n\nb"},
      {"key=\n=b", L"[] key=b"},
      {"stray\n=stray\nkey=1\n\nstray", L"[] key=1"},
      {"key=1\n[General\n", L"[] key=1\n[General"},
      {"k=1\nK=2\n", L"[] k=2"},
      {"k=a=b", L"[] k=a=b"},
      {"k=\xC3\xA4\xE2\x82\xAC", L"[] k=\u00E4\u20AC"},
      {"k=1\n\x1Aj=2", L"[] k=1"},
      {"k=ab\0cd\nj=1\n"s, L"[] k=ab j=1"},
      {"k=" + long_value + "\nj=1", L"[] k=" + std::wstring(300, L'x') + L" j=1"},
      {"k=" + std::string(253, 'x') + "\nj=1", L"[] k=" + std::wstring(253, L'x') + L" j=1"},
      {"k=" + std::string(253, 'x'), L"[] k=" + std::wstring(253, L'x')},
      {"k=" + std::string(252, 'x') + "\nj=1", L"[] k=" + std::wstring(252, L'x') + L" j=1"},
  };
  for (const auto& row : rows) {
    Ini ini;
    EXPECT_EQ(ini.read(row.text), 0u) << row.text;
    EXPECT_EQ(ini.told(), row.told) << row.text;
  }
}

TEST(MIniFile, StopsAtDamageAndKeepsWhatStandsBefore) {
  Ini ini;
  EXPECT_EQ(ini.read("a=1\nb=2\nc=\xFF\nd=4\n"), 1113u);
  EXPECT_EQ(ini.told(), L"[] a=1");  // b was pending
  EXPECT_EQ(ini.read("a=1\n\nb=" + std::string(61453, 'x')), 0u);
  EXPECT_EQ(ini.read("a=1\n\nb=" + std::string(61454, 'x')), 1017u);
  EXPECT_EQ(ini.read("a=1\n\nb=" + std::string(10'000'000, 'x')), 1017u);
  EXPECT_EQ(ini.told(), L"[] a=1");
  CStringW part(L"as it was");
  EXPECT_STREQ(MIniFile().GetEntryName(part, 0, 0, 0), L"as it was");
  EXPECT_STREQ(ini.model.GetEntryName(part, 0, 9, 1), L"1");  // past the end: the last
  // A stream that doesn't know its size.
  std::string lines;
  while (lines.size() < 200000) lines += "a=1\n";
  EXPECT_EQ(ini.read(lines + "b=2\n"), 0u);
  EXPECT_EQ(ini.told(), L"[] a=1 b=2");
}

TEST(MIniFile, ReadsNumbersInAllTheirForms) {
  const struct {
    const wchar_t* text;
    std::uint32_t number;
    double real;
  } rows[] = {
      {L"0X1f", 31, 0},
      {L"0b101", 5, 0},
      {L"0B11", 3, 0},
      {L"0", 0, 0},
      {L"017", 17, 17},
      {L"ON", 1, 9},
      {L"False", 0, 9},
      {L"12abc", 12, 12},
      {L"abc", 9, 9},
      {L"", 0, 9},
      {L"-1", 4294967295, -1},
      {L"4294967296", 4294967295, 4294967296.0},
      {L"0 x", 0, 0},
      {L"0x", 0, 0},
      {L" 7", 7, 7},
      {L"1.5e3", 1, 1500},
      {L"-2.5,", 4294967294, -2.5},
      {L"1e999", 1, 9},
      {L"0xg", 9, 0},
  };
  for (const auto& row : rows) {
    MIniFile ini;
    ini.SetValue(L"S", L"k", row.text, false);
    EXPECT_EQ(ini.GetValueDWORD(L"s", L"K", 9), row.number) << row.text;
    if (std::wstring_view(row.text).substr(0, 2) == L"0X") continue;
    if (row.text[0] == L'0' && row.text[1] != L'\0' && row.text[1] != L' ' && row.text[1] != L'1') {
      continue;
    }
    EXPECT_EQ(ini.GetValueDouble(L"s", L"K", 9), row.real) << row.text;
  }
  MIniFile empty;
  EXPECT_EQ(empty.GetValueDWORD(L"S", L"k", 7), 7u);
  EXPECT_EQ(empty.GetValueDouble(L"S", L"k", 7.5), 7.5);
}

TEST(MIniFile, ReportsChanges) {
  MIniFile ini;
  EXPECT_TRUE(ini.SetValue(L"S", nullptr, nullptr, false));
  EXPECT_FALSE(ini.SetValue(L"s", nullptr, nullptr, true));
  EXPECT_TRUE(ini.SetValue(L"S", L"k", nullptr, true));
  EXPECT_FALSE(ini.SetValue(L"S", L"K", L"", true));
  EXPECT_TRUE(ini.SetValue(L"S", L"k", L"a", true));
  EXPECT_TRUE(ini.SetValue(L"S", L"k", L"A", true));
  EXPECT_TRUE(ini.SetValue(L"S", L"k", L"A", false));
  EXPECT_TRUE(ini.SetValue(L"S", L"n", 4294967295u, true));
  EXPECT_FALSE(ini.HasValue(L"S", L"m"));
  CStringW text(L"old");
  EXPECT_FALSE(ini.GetValue(text, L"X", L"k"));
  EXPECT_STREQ(text, L"old");
  EXPECT_STREQ(ini.GetValue(text, L"S", L"n", L"d"), L"4294967295");
  ini.Clear(MIniFile::CLEAR_VALUES);
  EXPECT_TRUE(ini.GetValue(text, L"S", L"n"));
  EXPECT_STREQ(text, L"");
  ini.Clear(MIniFile::CLEAR_SECTIONS);
  EXPECT_EQ(ini.GetSectionsCount(), 0u);
}

TEST(MIniFile, FiltersRecords) {
  const char* text = "[A]\na=1\nb=2\n[B]\na=3\nb=4\n";
  Ini ini;
  ini.model.SetInterestedRecord(nullptr, nullptr);  // no filter yet: everything passes
  ini.read(text);
  EXPECT_EQ(ini.told(), L"[A] a=1 b=2[B] a=3 b=4");
  ini.model.SetInterestedRecord(L"a", nullptr);
  ini.read(text);
  EXPECT_EQ(ini.told(), L"[A] a=1 b=2");
  ini.model.AddInterestedRecord(L"B", L"B");
  ini.read(text);
  EXPECT_EQ(ini.told(), L"[A] a=1 b=2[B] b=4");
  ini.model.SetInterestedRecord(L"B", L"a");
  ini.read(text);
  EXPECT_EQ(ini.told(), L"[B] a=3");
  EXPECT_TRUE(ini.model.IsRecordInterested(L"b", nullptr));
  ini.model.SetInterestedRecord(nullptr, nullptr);
  ini.read(text);
  EXPECT_EQ(ini.told(), L"");
}

TEST(MIniFile, NamesTheWideFile) {
  const struct {
    const wchar_t* name;
    const wchar_t* wide;
  } rows[] = {{L"a\\b.ini", L"a\\b_u.ini"}, {L"abc", L"ab_uc"},   {L"a.b\\c", L"a.b\\_uc"},
              {L"a.b.c", L"a.b_u.c"},       {L".ini", L"_u.ini"}, {L"", L"_u"}};
  for (const auto& row : rows) {
    wchar_t wide[20];
    EXPECT_STREQ(MIniFile::MakeUnicodeName(wide, row.name), row.wide);
  }
}

TEST(MIniFile, WritesTheWideFormAndLeavesTheNarrowFile) {
  const TempFolder folder;
  qeltest::writeBytes(folder / "a.ini", "[S]\nk=narrow\n");
  MIniFile ini;
  ASSERT_EQ(ini.ReadFromFile(folder.wide("a.ini").c_str(), 0), 0u);
  ini.SetValue(L"GENERAL", L"g", L" x\n\U0001F600", false);
  ini.SetValue(L"S", L"k", L"wide\n", false);
  ASSERT_EQ(ini.WriteToFile(folder.wide("a.ini").c_str(), L"one\ntwo\r\nthree"), 0u);
  EXPECT_EQ(qeltest::readBytes(folder / "a.ini"), "[S]\nk=narrow\n");
  EXPECT_EQ(qeltest::readBytes(folder / "a_u.ini"),
            wideBytes(u";one\r\n;two\r\n;three\r\n"
                      u"[General]\r\ng = \r\n= x\r\n=\U0001F600\r\n\r\n"
                      u"[S]\r\nk = wide\r\n=\r\n\r\n"));

  Ini again;
  again.model.SetValue(L"T", L"t", L"1", false);
  ASSERT_EQ(again.model.ReadFromFile(folder.wide("a.ini").c_str(), 1), 0u);
  EXPECT_EQ(again.told(), L"[T] t=1[General] g= x\n\U0001F600[S] k=wide\n");
  ASSERT_EQ(again.model.ReadFromFile(folder.wide("none.ini").c_str(), 0), 0u);
  EXPECT_EQ(again.told(), L"");
  EXPECT_EQ(again.model.ReadFromFile(folder.wide("none\\none.ini").c_str(), 0), 3u);
  EXPECT_NE(again.model.ReadFromFile(folder.wide().c_str(), 0), 0u);
}

// Values lie in the bytes that were read.
TEST(MIniFile, OverwritesALongerFileWithWhatWasReadFromIt) {
  const TempFolder folder;
  const std::wstring name = folder.wide("a.ini");
  MIniFile ini;
  for (int i = 0; i < 20'000; ++i) {
    ini.SetValue(L"S", std::to_wstring(i).c_str(), L"value \u00E4\u20AC", false);
  }
  ini.SetValue(L"T", L"kept", L"plain", false);
  ASSERT_EQ(ini.WriteToFile(name.c_str(), nullptr), 0u);
  ASSERT_EQ(ini.ReadFromFile(name.c_str(), 0), 0u);
  CStringW value;
  EXPECT_STREQ(ini.GetValue(value, L"s", L"19999", L""), L"value \u00E4\u20AC");
  ini.SetInterestedRecord(L"T", nullptr);
  ASSERT_EQ(ini.ReadFromFile(name.c_str(), 0), 0u);
  ini.SetValue(L"T", L"changed", L"1", false);
  ASSERT_EQ(ini.WriteToFile(name.c_str(), nullptr), 0u);
  EXPECT_EQ(qeltest::readBytes(folder / "a_u.ini"),
            wideBytes(u"[T]\r\nkept = plain\r\nchanged = 1\r\n\r\n"));
}

TEST(MIniFile, RefusesWhatSomebodyElseHasOpen) {
  const TempFolder folder;
  const std::wstring name = folder.wide("a.ini");
  MIniFile ini;
  ASSERT_EQ(ini.WriteToFile(name.c_str(), nullptr), 0u);
  const int fd = open((folder / "a_u.ini").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(qel::sys::Calls().flock(fd, 1 /* LOCK_SH */), 0);
  EXPECT_EQ(ini.WriteToFile(name.c_str(), nullptr), 32u);
  ASSERT_EQ(qel::sys::Calls().flock(fd, 2 /* LOCK_EX */), 0);
  EXPECT_EQ(ini.ReadFromFile(folder.wide("a_u.ini").c_str(), 0), 32u);
  close(fd);
  EXPECT_EQ(ini.WriteToFile(name.c_str(), L""), 0u);
  EXPECT_TRUE(qeltest::readBytes(folder / "a_u.ini").empty());
}

TEST(MIniFile, TakesNamesUpToTheLongest) {
  const TempFolder folder;
  const std::wstring start = folder.wide("");
  for (const auto& [length, code] : {std::pair{257, 0U}, std::pair{258, 206U}}) {
    const std::wstring name =
        start + std::wstring(static_cast<std::size_t>(length) - start.size(), L'x');
    MIniFile ini;
    EXPECT_EQ(ini.WriteToFile(name.c_str(), nullptr), code);
    EXPECT_EQ(ini.ReadFromFile(name.c_str(), 0), code);
  }
}

TEST(MIniFile, SurvivesWritingAndReading) {
  const TempFolder folder;
  const std::wstring name = folder.wide("p.ini");
  EXPECT_TRUE(rc::check([&] {
    const auto character = rc::gen::elementOf(std::wstring(L"aB= \n;[]#\u00E4\U0001F600"));
    const auto values =
        *rc::gen::container<std::vector<std::wstring>>(rc::gen::container<std::wstring>(character));
    MIniFile ini;
    std::vector<std::wstring> expected;
    for (std::wstring value : values) {
      // What the format keeps: no blanks at line ends, no line feed in front, no empty value.
      std::erase(value, L' ');
      value.erase(0, value.find_first_not_of(L"\n"));
      if (value.empty()) continue;
      ini.SetValue(L"S", std::to_wstring(expected.size()).c_str(), value.c_str(), false);
      expected.push_back(value);
    }
    RC_ASSERT(ini.WriteToFile(name.c_str(), L"comment") == 0u);
    MIniFile again;
    RC_ASSERT(again.ReadFromFile(name.c_str(), 0) == 0u);
    for (std::size_t i = 0; i < expected.size(); ++i) {
      CStringW value;
      RC_ASSERT(again.GetValue(value, L"S", std::to_wstring(i).c_str()));
      RC_ASSERT(std::wstring(value) == expected[i]);
    }
  }));
}

TEST(MIniFile, TellsEveryFailureOfWriting) {
  const TempFolder folder;
  const std::wstring name = folder.wide("f.ini");
  MIniFile ini;
  ini.SetValue(L"S", L"k", std::wstring(5000, L'v').c_str(), false);
  std::uint32_t code = 0;
  qeltest::forEachFault([&] { code = ini.WriteToFile(name.c_str(), nullptr); },
                        [&](const qeltest::Fault& fault) {
                          if (code != 0) return;
                          EXPECT_TRUE(fault.call != "close" || fault.error == EINTR);
                          EXPECT_EQ(qeltest::readBytes(folder / "f_u.ini").size(),
                                    2u * (5000 + 5 + 4 + 4 + 2 - 2));
                        });
}
