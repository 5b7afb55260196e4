// Names both ways, against rows written by hand and against arbitrary bytes.
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <filesystem>
#include <string>
#include <vector>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/names.h"

#include "tests/support/TempFolder.h"

namespace {

using namespace qel::sys;
using qeltest::TempFolder;

struct Row {
  std::wstring windows;
  std::string native;
};

std::string nativeOf(std::wstring_view windows) {
  std::string native = "untouched";
  SetLastError(0);
  if (ToNative(windows, native)) return native;
  EXPECT_EQ(native, "untouched");
  return "error " + std::to_string(GetLastError());
}

class Drive {
 public:
  Drive(wchar_t letter, std::string_view root, std::string_view afterwards = "")
      : m_letter(letter), m_afterwards(afterwards) {
    SetDriveRoot(letter, root);
  }
  ~Drive() { SetDriveRoot(m_letter, m_afterwards); }
  Drive(const Drive&) = delete;
  Drive& operator=(const Drive&) = delete;

 private:
  wchar_t m_letter;
  std::string m_afterwards;
};

class Share {
 public:
  Share() { SetShareRoot(L"Server", "/mnt/net/"); }
  ~Share() { SetShareRoot(L"SERVER", ""); }
};

TEST(ToNative, ReachesWhatThePathSays) {
  const Drive drive(L'd', "/mnt/data/");
  const Share share;
  const std::vector<Row> rows = {
      {L"C:\\a", "/a"},
      {L"c:/a", "/a"},
      {L"\\a", "/a"},
      {L"/a/b", "/a/b"},
      {L"C:\\", "/"},
      {L"C:", "."},
      {L"a", "a"},
      {L"C:a\\b", "a/b"},
      {L".", "."},
      {L"C:\\a\\", "/a"},
      {L"C:\\a\\\\b//c", "/a/b/c"},
      {L"D:\\", "/mnt/data"},
      {L"D:\\x", "/mnt/data/x"},
      {L"D:x", "/mnt/data/x"},  // the current folder is not on D
      {L"Z:\\x", "error 3"},
      {L"Z:/RigProbeOut", "error 3"},
      {L"", "error 3"},
      {L"\\\\server\\share\\f", "/mnt/net/share/f"},
      {L"//SERVER/share", "/mnt/net/share"},
      {L"\\\\other\\share\\f", "error 53"},
      {L"\\\\", "error 53"},
      // dots are resolved in the text and climb to the root at the most
      {L"C:\\a\\.\\b\\..\\c", "/a/c"},
      {L"C:\\..\\..\\a", "/a"},
      {L"D:\\..\\a", "/mnt/data/a"},
      {L"\\\\server\\share\\..\\..\\f", "/mnt/net/share/f"},
      {L"\\\\server\\..\\f", "error 123"},
      {L"a\\..\\b", "b"},
      {L"a\\..", "."},
      {L"..\\..\\a\\..\\b", "../../b"},
      {L"a\\..\\..", ".."},
      // closing dots and blanks
      {L"C:\\n.", "/n"},
      {L"C:\\n. . ", "/n"},
      {L"n...", "n"},
      {L"C:\\a\\...", "/a"},
      {L"C:\\n. .\\", "/n. "},
      {L"C:\\n \\m", "/n /m"},
      {L"C:\\n.\\m", "/n/m"},
      {L"C:\\n..\\m", "/n../m"},
      {L"C:\\...\\m", "/.../m"},
      {L".hidden", ".hidden"},
      // taken as it stands
      {L"\\\\?\\C:\\a", "/a"},
      {L"//?/C:/n. .", "/n. ."},
      {L"\\\\?\\UNC\\server\\share\\n.", "/mnt/net/share/n."},
      {L"\\\\?\\C:\\a\\..\\b", "error 123"},
      {L"\\\\?\\volume", "error 3"},
      {L"\\\\?\\Z:\\a", "error 3"},
      // characters
      {L"C:\\ä\U0001F600", "/\xC3\xA4\xF0\x9F\x98\x80"},
      {std::wstring{L'a', wchar_t(0xD83D), wchar_t(0xDE00)}, "a\xF0\x9F\x98\x80"},
      {std::wstring{L'a', wchar_t(0xDE00), L'b'},
       "a\xED\xB8\x80"
       "b"},
      {L"a\uF0FFb\uF03A",
       "a\xFF"
       "b:"},
      {L"a\uF02Fb", "error 123"},            // a separator in disguise
      {L"a\\\uF02E\uF02E\\b", "error 123"},  // a parent folder in disguise
      {L"C:\\a:b", "error 123"},
      {L"a<b", "error 123"},
      {L"a>b", "error 123"},
      {L"a\"b", "error 123"},
      {L"a|b", "error 123"},
      {L"a?b", "error 123"},
      {L"*.*", "error 123"},
      {L"a\x1F", "error 123"},
      {std::wstring{L'a', L'\0', L'b'}, "error 123"},
      {std::wstring{L'a', wchar_t(0x110000)}, "error 123"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.windows));
    EXPECT_EQ(nativeOf(row.windows), row.native);
  }
}

TEST(FromNative, CarriesWhatAWindowsNameCannotHold) {
  const Drive near(L'E', "/mnt/data");
  const Drive nearer(L'F', "/mnt/data/deep");
  const std::vector<Row> rows = {
      {L"C:\\", "/"},
      {L"C:\\a\\b", "/a/b"},
      {L"C:\\a\\", "/a/"},
      {L"C:\\a\\b", "//a/./x/..///b"},
      {L"E:\\", "/mnt/data"},
      {L"E:\\x", "/mnt/data/x"},
      {L"C:\\mnt\\database", "/mnt/database"},
      {L"F:\\x", "/mnt/data/deep/x"},
      {L"", ""},
      {L"..\\a", "../a"},
      {L"C:\\\u00E4\U0001F600", "/\xC3\xA4\xF0\x9F\x98\x80"},
      {L"a\uF0FF", "a\xFF"},
      {L"\uF0C3(", "\xC3("},                    // cut sequence
      {L"\uF0C0\uF080", "\xC0\x80"},            // overlong
      {L"\uF0ED\uF0A0\uF080", "\xED\xA0\x80"},  // surrogate
      {L"\uF0F4\uF090\uF080\uF080", "\xF4\x90\x80\x80"},
      {L"\uF0EF\uF080\uF0A9", "\xEF\x80\xA9"},  // U+F029 itself must not become a byte
      {L"a\uF05Cb\uF03Ac\uF03F", "a\\b:c?"},
      {L"C\uF03A\uF05Cx", "C:\\x"},
      {L"a\uF00A", "a\n"},
      {L"n\uF02E", "n."},
      {L"C:\\n.\uF020\\m", "/n. /m"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.native);
    EXPECT_EQ(FromNative(row.native), row.windows);
  }
}

TEST(FromNative, HandsOutARootedPathWhenNoDriveReachesIt) {
  const Drive moved(L'C', "/srv/c", "/");
  EXPECT_EQ(FromNative("/tmp/x"), L"\\tmp\\x");
  EXPECT_EQ(nativeOf(L"\\tmp\\x"), "/tmp/x");
  EXPECT_EQ(nativeOf(L"C:\\tmp\\x"), "/srv/c/tmp/x");
  EXPECT_EQ(nativeOf(L"C:x"), "/srv/c/x");
}

// Names that favour the bytes that mean something.
rc::Gen<std::string> nativeName() {
  const auto byte = rc::gen::weightedOneOf<char>(
      {{3, rc::gen::elementOf(std::string(". :\\?*\xEF\x80\x81\xED\xA0\xC3\xA9\xF0\x9F\xFF\x01"))},
       {1, rc::gen::suchThat<char>([](char c) { return c != '/' && c != 0; })}});
  return rc::gen::suchThat(rc::gen::nonEmpty(rc::gen::container<std::string>(byte)),
                           [](const std::string& name) { return name != "." && name != ".."; });
}

TEST(Names, EveryNativeNameSurvivesTheWayToWindowsAndBack) {
  const bool held = rc::check([](bool absolute) {
    std::string native;
    for (const std::string& name :
         *rc::gen::nonEmpty(rc::gen::container<std::vector<std::string>>(nativeName()))) {
      if (absolute || !native.empty()) native += '/';
      native += name;
    }
    const std::wstring windows = FromNative(native);
    for (const wchar_t c : windows.substr(absolute ? 2 : 0)) {
      RC_ASSERT(std::wstring_view(L"<>:\"|?*/").find(c) == std::wstring_view::npos && c >= 32);
    }
    RC_ASSERT(nativeOf(windows) == native);
  });
  EXPECT_TRUE(held);
}

class Creation : public testing::Test {
 protected:
  bool allows(std::string_view name) {
    std::string native;
    SetLastError(0);
    const bool allowed = ToNativeForCreation(folder.wide(name), native);
    EXPECT_EQ(GetLastError(), allowed ? 0 : ERROR_INVALID_NAME);
    return allowed;
  }
  TempFolder folder;
};

TEST_F(Creation, RefusesNewNamesOfDevicesAlone) {
  for (const char* name : {"CON", "con.txt", "Aux", "nul.tar.gz", "PRN .x", "com1", "LPT9.x"}) {
    EXPECT_FALSE(allows(name)) << name;
  }
  for (const char* name : {"CONS", "com0", "com10", "x.con", "lpt", "null", "con-1"}) {
    EXPECT_TRUE(allows(name)) << name;
  }
}

TEST_F(Creation, ReachesWhatExistsUnderADeviceName) {
  qeltest::writeBytes(folder / "aux.c", "int x;");
  EXPECT_TRUE(allows("aux.c"));
  EXPECT_FALSE(allows("aux.h"));
}

TEST_F(Creation, IsFreeWhereNativeNamesAreWanted) {
  setenv("QEL_NATIVE_NAMES", "1", 1);
  EXPECT_TRUE(allows("con"));
  unsetenv("QEL_NATIVE_NAMES");
  EXPECT_FALSE(allows("con"));
}

TEST(ErrorOfPath, TellsAMissingFileFromAMissingFolder) {
  const TempFolder folder;
  qeltest::writeBytes(folder / "file", "");
  const auto code = [&](int error, std::string_view name) {
    return ErrorOfPath(error, (folder / name).string());
  };
  EXPECT_EQ(code(ENOENT, "none"), 2);
  EXPECT_EQ(code(ENOENT, "none/x"), 3);
  EXPECT_EQ(code(ENOTDIR, "file/x"), 3);
  EXPECT_EQ(code(ENOENT, "none/"), 2);
  EXPECT_EQ(ErrorOfPath(ENOENT, "surely-not-here"), 2);
  EXPECT_EQ(ErrorOfPath(ENOENT, "/surely-not-here"), 2);
  EXPECT_EQ(code(EACCES, "none/x"), 5);
}

}  // namespace
