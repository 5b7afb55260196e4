#include "qelbase/paths/MFileName.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <tuple>
#include <vector>

namespace {

std::wstring setAndGet(const wchar_t* path, bool is_directory = false) {
  return MFileName(path, is_directory).GET();
}

std::wstring append(const wchar_t* path, const wchar_t* other) {
  MFileName name(path, true);
  name += MFileName(other, true);
  return name.GET();
}

TEST(MFileName, PutsItsPartsTogether) {
  const MFileName name(L"C:\\a\\b.txt", false);
  EXPECT_STREQ(name.GET_FILE_EXT_PARTS(), L"b.txt");
  EXPECT_STREQ(name.GET_DRIVE_DIR_PARTS(true), L"C:\\a\\");
  EXPECT_STREQ(name.GET_DRIVE_DIR_PARTS(false), L"C:\\a");
  EXPECT_STREQ(MFileName().GET_DRIVE_DIR_PARTS(true), L"");
  EXPECT_EQ(setAndGet(L"C:\\a\\b\\"), L"C:\\a\\b\\");
  EXPECT_EQ(setAndGet(L"a\\b\\"), L"\\a\\b\\");
  EXPECT_EQ(setAndGet(L"C:/a/b.txt"), L"C:/a/\\b.txt");
  EXPECT_EQ(setAndGet(nullptr), L"");

  MFileName folder(L"C:\\a\\b", true);
  EXPECT_STREQ(folder.GET(), L"C:\\a\\b");
  folder.SET_FILE_PART(L"c", 256);
  EXPECT_STREQ(folder.GET(), L"C:\\a\\b\\c");
}

TEST(MFileName, IsBuiltFromPartsOrFromText) {
  EXPECT_STREQ(MFileName(L"C:", L"d", L"n", L"").GET(), L"C:\\d\\n.");
  EXPECT_STREQ(MFileName(nullptr, nullptr, L"n", nullptr).GET(), L"\\n.");
  const std::vector<std::tuple<const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*>>
      rows = {
          {L"C:\\d", L"n", L"txt", L"C:\\d\\n.txt"}, {L"d", L"n", L"", L"\\d\\n"},
          {L"\\d\\", L"n", nullptr, L"\\d\\n"},      {L"C:", L"n", L"x", L"C:\\n.x"},
          {nullptr, L"n", L"x", L"\\n.x"},
      };
  for (const auto& [dir, file, ext, text] : rows) {
    EXPECT_STREQ(MFileName(dir, file, ext, false).GET(), text);
  }
  EXPECT_STREQ(MFileName(L"C:\\d", L"n", L"x", true).GET_DIR_PART(), L"d\\n.x");
}

TEST(MFileName, CleansAndCutsItsParts) {
  MFileName name;
  const auto ext = [&name](const wchar_t* text, std::size_t length) {
    name.SET_EXT_PART(text, length);
    return std::wstring(name.GET_EXT_PART());
  };
  EXPECT_EQ(ext(L"txt", 256), L".txt");
  EXPECT_EQ(ext(L".txt", 256), L".txt");
  EXPECT_EQ(ext(L"txt", 2), L".tx");
  EXPECT_EQ(ext(L".txt", 2), L".t");
  EXPECT_EQ(ext(L"a|b", 256), L".a b");
  EXPECT_EQ(ext(nullptr, 256), L"");

  const auto file = [&name](const wchar_t* text, std::size_t length) {
    name.SET_FILE_PART(text, length);
    return std::wstring(name.GET_FILE_PART());
  };
  EXPECT_EQ(file(L"a:b/c", 256), L"a b c");
  EXPECT_EQ(file(L"\\<>|*?\"", 256), L"    *?\"");
  EXPECT_EQ(file(L"abc", 2), L"ab");

  name.SET_FILE_EXT_PARTS(L"a.b.c", 256, 256);
  EXPECT_STREQ(name.GET_FILE_PART(), L"a.b");
  EXPECT_STREQ(name.GET_EXT_PART(), L".c");
  name.SET_FILE_EXT_PARTS(L"plain", 3, 256);
  EXPECT_STREQ(name.GET(), L"pla");

  name.SET_DRIVE_PART(L"C:");
  EXPECT_STREQ(name.GET_DRIVE_PART(), L"C:\\");
  name.SET_DRIVE_PART(L"");
  EXPECT_STREQ(name.GET_DRIVE_PART(), L"\\");
  name.SET_DIR_PART(L"d", 0);
  EXPECT_STREQ(name.GET_DIR_PART(), L"d\\");
  name.SET_DIR_PART(L"", 260);
  EXPECT_STREQ(name.GET_DIR_PART(), L"");
}

TEST(MFileName, TakesTextOfItsOwn) {
  MFileName name(L"C:\\a long directory\\another\\file.txt", false);
  name.SET(name.GET_DIR_PART(), false);
  EXPECT_STREQ(name.GET(), L"\\a long directory\\another\\");
  name.SET(L"C:\\a\\some name.with.dots", false);
  name.SET_FILE_EXT_PARTS(name.GET_FILE_PART(), 256, 256);
  EXPECT_STREQ(name.GET(), L"C:\\a\\some name.with");
  name.SET_EXT_PART(name.GET_EXT_PART() + 1, 256);
  EXPECT_STREQ(name.GET_EXT_PART(), L".with");
  name.SET(name.GET(), true);
  name += name;
  EXPECT_STREQ(name.GET(), L"C:\\a\\some name.with\\a\\some name.with\\");
}

TEST(MFileName, TurnsRelativeOnDemand) {
  MFileName name(L"..\\a\\b.txt", false);
  EXPECT_STREQ(name.GET(), L"\\..\\a\\b.txt");
  name.SET_RELATIVE_PATH_MODE(true);
  EXPECT_STREQ(name.GET(), L"..\\a\\b.txt");
  name.SET_RELATIVE_PATH_MODE(false);
  EXPECT_STREQ(name.GET(), L"\\..\\a\\b.txt");
  name.SET(L"C:\\a", false);
  name.SET_RELATIVE_PATH_MODE(true);
  EXPECT_STREQ(name.GET(), L"C:\\a");
}

TEST(MFileName, JoinsAnotherName) {
  EXPECT_EQ(append(L"C:\\a\\b\\", L"..\\c\\"), L"C:\\..\\c\\");  // `\` is its drive
  const std::vector<std::tuple<const wchar_t*, const wchar_t*, const wchar_t*>> merges = {
      {L"a\\b\\", L"..\\c\\", L"a\\c\\"},
      {L"a\\", L".\\c\\", L"a\\c\\"},
      {L"a\\b", L"c", L"a\\b\\c\\"},
      {L"a\\", L"..\\..\\c", L"\\c\\"},
      {L"a", L"b.c\\.", L"a\\b.c\\"},
      {L"a\\", L"b..c", L"ac\\"},
      {L"", L"c", L"c\\"},
  };
  for (const auto& [dir, other, joined] : merges) {
    MFileName name, second;
    name.SET_DIR_PART(dir, 260);
    second.SET_DIR_PART(other, 260);
    name.APPEND(second);
    EXPECT_STREQ(name.GET_DIR_PART(), joined) << testing::PrintToString(other);
  }
  EXPECT_EQ(append(L"C:\\a", L"D:\\b"), L"D:\\a\\b\\");
  EXPECT_EQ(append(L"C:\\a", L"\\\\server\\b"), L"C:\\b\\");
  MFileName name(L"C:\\a\\b.txt", false);
  EXPECT_STREQ((name += MFileName(L"c.ini", false)).GET(), L"C:\\a\\c.ini");
}

TEST(MFileName, CutsAJoinedDirectoryAt259Characters) {
  const std::wstring x(300, L'x');
  for (const auto& [length, joined] :
       {std::pair(256U, x.substr(0, 256) + L"\\yy\\"), std::pair(257U, x.substr(0, 257) + L"\\y\\"),
        std::pair(300U, x.substr(0, 259) + L"\\")}) {
    MFileName name, other;
    name.SET_DIR_PART(x.substr(0, length).c_str(), 260);
    other.SET_DIR_PART(L"yy", 260);
    name += other;
    EXPECT_EQ(name.GET_DIR_PART(), joined);
  }
}

TEST(MFileName, ComparesTheChosenParts) {
  struct NeutralLocale {
    NeutralLocale() { std::setlocale(LC_ALL, "C"); }
  } const neutral;
  const auto equal = [](const wchar_t* a, const wchar_t* b, int flags) {
    return MFileName(a, false).COMPARE(MFileName(b, false), static_cast<std::uint16_t>(flags));
  };
  const std::vector<std::tuple<const wchar_t*, const wchar_t*, int, bool>> rows = {
      {L"C:\\A\\B.TXT", L"c:\\a\\b.txt", 15, true},
      {L"C:\\A\\B.TXT", L"c:\\a\\b.txt", 0x100F, false},
      {L"C:\\\u00C4\u03A3\U00010400\\b", L"C:\\\u00E4\u03C3\U00010428\\b", 15,
       true},  // simple Unicode folding
      {L"C:\\a\\x", L"C:\\a\\x\\", 15, false},
      {L"C:\\a\\b.x", L"D:\\a\\b.x", 14, true},
      {L"C:\\a\\b.x", L"D:\\a\\b.x", 1, false},
      {L"C:\\a\\b.x", L"C:\\a\\b.y", 7, true},
      {L"C:\\a\\b.x", L"C:\\a\\b.y", 8, false},
      {L"C:\\a\\b.x", L"C:\\a\\c.x", 4, false},
      {L"C:\\a\\b.x", L"C:\\aa\\b.x", 2, false},
      {L"C:\\a\\b.x", L"x", 0, true},
  };
  for (const auto& [a, b, flags, result] : rows) {
    EXPECT_EQ(equal(a, b, flags), result) << testing::PrintToString(a) << flags;
    EXPECT_EQ(equal(b, a, flags), result) << testing::PrintToString(b) << flags;
  }
  EXPECT_TRUE(MFileName(L"C:\\a", true) == MFileName(L"C:\\a\\", true));
  EXPECT_TRUE(MFileName(L"C:\\a", true) != MFileName(L"C:\\ab", true));
}

TEST(MFileName, KeepsCopiesApart) {
  MFileName name(L"C:\\a\\b.txt", false);
  const wchar_t* held = name.GET();
  MFileName copy(name);
  EXPECT_STREQ(copy.GET_FILE_EXT_PARTS(), L"b.txt");
  name = copy;
  EXPECT_STREQ(held, L"C:\\a\\b.txt");
  name.FREE();
  EXPECT_TRUE(name.IS_EMPTY());
  name.SET_EXT_PART(L"x", 256);
  EXPECT_FALSE(name.IS_EMPTY());
}

}  // namespace
