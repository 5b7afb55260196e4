#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "qelbase/outside/system/environment.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/shell.h"
#include "qelbase/paths/MFileName.h"

#include "tests/support/Environment.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using qeltest::readBytes;
using qeltest::writeBytes;

std::string numbered(std::string begin, int number, std::string_view end = ".tmp") {
  return begin.append(std::to_string(number)).append(end);
}

class MFileNameOnDisk : public testing::Test {
 protected:
  MFileName in(std::string_view name, bool is_directory = false) const {
    return {m_folder.wide(name).c_str(), is_directory};
  }
  void touch(std::string_view name, std::string_view bytes = "x") const {
    fs::create_directories((m_folder / name).parent_path());
    writeBytes(m_folder / name, bytes);
  }
  bool exists(std::string_view name) const {
    return fs::symlink_status(m_folder / name).type() != fs::file_type::not_found;
  }
  std::uint16_t tempName(MFileName& name, const wchar_t* prefix, std::uint16_t index, int width,
                         const wchar_t* ext = nullptr) const {
    return name.SET_TEMP_NAME(m_folder.wide().c_str(), prefix, ext, index, width);
  }

  // As the system has it, for the rest of the test.
  void let(const char* variable, std::string_view name) {
    m_environment.set(variable, (m_folder / name).native());
  }

  qeltest::TempFolder m_folder;
  qeltest::EnvironmentScope m_environment;
};

TEST_F(MFileNameOnDisk, TellsWhatIsThere) {
  touch("file.bin", std::string(70000, 'x'));
  touch("read-only");
  fs::permissions(m_folder / "read-only", fs::perms::owner_read);
  fs::create_symlink("nowhere", m_folder / "dangling");

  EXPECT_TRUE(in("file.bin").DOES_EXIST());
  EXPECT_EQ(in("file.bin").FILE_SIZE(), 70000);
  EXPECT_TRUE(in("file.bin").IS_WRITABLE());
  EXPECT_TRUE(in("file.bin").IS_UPDATABLE());
  EXPECT_EQ(readBytes(m_folder / "file.bin").size(), 70000U);

  EXPECT_TRUE(in("", true).DOES_EXIST());
  EXPECT_EQ(in("", true).FILE_SIZE(), -1);
  EXPECT_FALSE(in("", true).IS_UPDATABLE());

  EXPECT_FALSE(in("read-only").IS_WRITABLE());
  for (const char* missing : {"none", "no/folder/none", "file.bin/below", "dangling"}) {
    EXPECT_FALSE(in(missing).DOES_EXIST());
    EXPECT_EQ(in(missing).FILE_SIZE(), -1);
    EXPECT_TRUE(in(missing).IS_WRITABLE());
    EXPECT_FALSE(in(missing).IS_UPDATABLE());
  }
  const MFileName empty, refused(L"C:\\a|b", false), other_drive(L"Q:\\a", false);
  EXPECT_FALSE(empty.DOES_EXIST());
  EXPECT_FALSE(refused.DOES_EXIST());
  EXPECT_EQ(other_drive.FILE_SIZE(), -1);
}

TEST_F(MFileNameOnDisk, ReachesForeignNames) {
  for (const std::string name : {"no\xFFutf8", "\xF0\x9F\x98\x80.txt", "a\\b:c?", "\xED\xA0\x80"}) {
    writeBytes(m_folder / name, name);
    MFileName wide(qel::sys::FromNative((m_folder / name).native()).c_str(), false);
    EXPECT_EQ(wide.FILE_SIZE(), static_cast<std::int64_t>(name.size()));
    EXPECT_TRUE(wide.REMOVE());
    EXPECT_FALSE(exists(name));
  }
}

TEST_F(MFileNameOnDisk, CreatesAndRemovesTrees) {
  const MFileName deep = in("a/b/c/file.txt");
  EXPECT_TRUE(deep.CREATE_DIRECTORY());
  EXPECT_TRUE(deep.CREATE_DIRECTORY());
  EXPECT_TRUE(MFileName(L"C:\\", true).CREATE_DIRECTORY() && !MFileName().CREATE_DIRECTORY());
  EXPECT_TRUE(fs::is_directory(m_folder / "a/b/c"));
  EXPECT_FALSE(fs::exists(m_folder / "a/b/c/file.txt"));
  touch("a/b/c/file.txt");
  EXPECT_FALSE(in("a/b/c/file.txt/d/e.txt").CREATE_DIRECTORY());
  EXPECT_FALSE(in("a/b").REMOVE());  // a name with a file part removes no full folder

  MFileName tree = in("a", true);
  EXPECT_TRUE(tree.REMOVE());
  EXPECT_FALSE(exists("a"));
  EXPECT_FALSE(tree.REMOVE());
}

TEST_F(MFileNameOnDisk, RemovesLinksAndNotWhatTheyReach) {
  touch("kept/file");
  touch("tree/inner/file");
  fs::create_directory_symlink(m_folder / "kept", m_folder / "tree/inner/link");
  fs::create_directory_symlink(m_folder / "kept", m_folder / "link");
  EXPECT_TRUE(in("tree", true).REMOVE());
  EXPECT_TRUE(MFileName((m_folder.wide("link") + L'\\').c_str(), false).REMOVE());
  EXPECT_FALSE(exists("tree"));
  EXPECT_FALSE(exists("link"));
  EXPECT_TRUE(exists("kept/file"));
}

TEST_F(MFileNameOnDisk, RemovesNothingForAnEmptyNameOrARoot) {
  let("XDG_DATA_HOME", "data");
  touch("cwd/file");
  const fs::path before = fs::current_path();
  fs::current_path(m_folder / "cwd");
  EXPECT_FALSE(MFileName().REMOVE());
  EXPECT_FALSE(MFileName().REMOVE_SHELL(false));
  qel::sys::SetDriveRoot(L'Q', (m_folder / "cwd").native());
  EXPECT_FALSE(MFileName(L"Q:\\", true).REMOVE_SHELL(false));
  EXPECT_FALSE(MFileName(L"Q:\\", true).REMOVE());
  qel::sys::SetDriveRoot(L'Q', "");
  fs::current_path(before);
  EXPECT_TRUE(exists("cwd/file"));
}

TEST_F(MFileNameOnDisk, MovesToTheTrash) {
  let("XDG_DATA_HOME", "data");
  touch("file.txt", "content");
  touch("tree/inner/file", "inner");
  const auto before = qel::sys::SetShellQuestion([](const auto&, bool) { return false; });
  EXPECT_FALSE(in("file.txt").REMOVE_SHELL(true));
  EXPECT_TRUE(exists("file.txt"));
  EXPECT_TRUE(in("file.txt").REMOVE_SHELL(false) && in("tree", true).REMOVE_SHELL(false));
  qel::sys::SetShellQuestion(before);
  EXPECT_EQ(readBytes(m_folder / "data/Trash/files/file.txt"), "content");
  EXPECT_EQ(readBytes(m_folder / "data/Trash/files/tree/inner/file"), "inner");
  EXPECT_FALSE(in("file.txt").REMOVE_SHELL(false));
}

TEST_F(MFileNameOnDisk, RenamesWithoutReplacing) {
  touch("from.txt", "from");
  touch("taken.txt", "taken");
  MFileName target = in("to.txt"), taken = in("taken.txt");
  EXPECT_TRUE(in("from.txt").RENAME_SHELL(target, false));
  EXPECT_EQ(readBytes(m_folder / "to.txt"), "from");

  int told = 0;
  const auto before = qel::sys::SetShellReport([&told](const auto&, int) { ++told; });
  EXPECT_FALSE(target.RENAME_SHELL(taken, false));
  EXPECT_EQ(told, 0);
  EXPECT_FALSE(target.RENAME_SHELL(taken, true));
  EXPECT_EQ(told, 1);
  qel::sys::SetShellReport(before);
  EXPECT_EQ(readBytes(m_folder / "taken.txt"), "taken");
}

TEST_F(MFileNameOnDisk, CopiesFiles) {
  touch("source", std::string(600001, 'q'));
  touch("target", std::string(700000, 'z'));
  EXPECT_TRUE(in("target").COPY_FILE(in("source")));
  EXPECT_EQ(readBytes(m_folder / "target"), std::string(600001, 'q'));
  EXPECT_TRUE(in("missing").COPY_FILE(in("MISSING")));  // one name
  EXPECT_FALSE(exists("missing"));
  EXPECT_FALSE(in("target").COPY_FILE(in("none")));
  EXPECT_EQ(readBytes(m_folder / "target").size(), 600001U);
  EXPECT_FALSE(in("no/folder").COPY_FILE(in("source")));
  fs::create_symlink("target", m_folder / "link");
  fs::create_hard_link(m_folder / "target", m_folder / "other");
  for (const char* same : {"link", "other"}) {
    EXPECT_TRUE(in(same).COPY_FILE(in("target")));
    EXPECT_EQ(readBytes(m_folder / "target").size(), 600001U) << same;
  }
}

TEST_F(MFileNameOnDisk, KnowsFoldersAndModules) {
  MFileName name(L"C:\\before", false);
  EXPECT_FALSE(name.FILL_WITH_MODULE_PATH(reinterpret_cast<HINSTANCE>(1)));
  EXPECT_STREQ(name.GET(), L"C:\\before");
  EXPECT_TRUE(name.FILL_WITH_MODULE_PATH(nullptr));
  EXPECT_EQ(std::wstring(name.GET()),
            qel::sys::FromNative(fs::read_symlink("/proc/self/exe").native()));
  EXPECT_TRUE(name.FILL_WITH_WORKING_PATH());
  EXPECT_EQ(std::wstring(name.GET()), qel::sys::FromNative(fs::current_path().native()));
  EXPECT_STREQ(name.GET_FILE_PART(), L"");
  let("TMP", "");
  EXPECT_TRUE(name.FILL_WITH_TEMPORARY_PATH());
  EXPECT_EQ(name.GET(), m_folder.wide());
  let("TMP", "missing");
  EXPECT_TRUE(name.FILL_WITH_TEMPORARY_PATH() && name.IS_EMPTY());
}

TEST_F(MFileNameOnDisk, AddsTheFirstFreeNumber) {
  touch("report1");
  touch("report2");
  const auto added = [this](const char* base, std::uint8_t width) {
    MFileName name = in(base);
    const bool done = name.ADD_UNIQUE_INDEX(width);
    return std::wstring(done ? L"" : L"none: ") + name.GET_FILE_EXT_PARTS();
  };
  EXPECT_EQ(added("report", 0), L"report3");
  EXPECT_EQ(added("report", 3), L"report001");
  EXPECT_EQ(added("report.txt", 2), L"report01.txt");
  for (int i = 1; i <= 999; ++i) touch(numbered(i < 10 ? "full0" : "full", i, ""));
  EXPECT_EQ(added("full", 2), L"none: full");
  fs::remove(m_folder / "full100");
  EXPECT_EQ(added("full", 2), L"full100");
}

TEST_F(MFileNameOnDisk, NamesTemporaryFilesByNumber) {
  touch("~qel5.tmp");
  MFileName name;
  EXPECT_EQ(tempName(name, nullptr, 5, 0), 7);
  EXPECT_EQ(name.GET(), m_folder.wide("~qel6.tmp"));

  const std::vector<std::tuple<const wchar_t*, int, int, const wchar_t*, std::wstring>> rows = {
      {L"p", 7, 3, nullptr, L"p007.tmp"},
      {L"p", 1234, 3, L"x", L"p1234.x"},
      {L"", 8, 0, L".y", L"8.y"},
      {L"p", 9, -5, nullptr, L"p9.tmp"},
      {L"p", 9, 128, nullptr, L"p9.tmp"},
      {L"p", 0, 0, L"", L"p0"},
      {nullptr, 3, 9, nullptr, L"~qel3.tmp"},
  };
  for (const auto& [prefix, index, width, ext, text] : rows) {
    EXPECT_EQ(tempName(name, prefix, static_cast<std::uint16_t>(index), width, ext), index + 1);
    EXPECT_EQ(std::wstring(name.GET_FILE_EXT_PARTS()), text);
  }
  EXPECT_EQ(tempName(name, L"p", 65534, 0), 65535);
}

TEST_F(MFileNameOnDisk, CountsTemporaryNamesOfTheProcess) {
  let("TMP", "");
  MFileName first, second;
  const std::uint16_t next = first.SET_TEMP_NAME(nullptr, nullptr, nullptr, 65535, 0);
  EXPECT_EQ(first.GET(), m_folder.wide(numbered("~qel", next - 1)));
  EXPECT_EQ(tempName(second, nullptr, 40000, 0), 40001);  // leaves the counter alone
  EXPECT_EQ(second.SET_TEMP_NAME(L"", nullptr, nullptr, 65535, 0), next + 1);
  EXPECT_EQ(second.GET(), m_folder.wide(numbered("~qel", next)));
}

TEST_F(MFileNameOnDisk, CutsLongTemporaryPrefixesAndNeverTheNumber) {
  MFileName name;
  const std::wstring prefix(600, L'p'), ext(300, L'e');
  const std::size_t room = 256 - m_folder.wide().size() - 4 - 2 - 1;
  tempName(name, prefix.c_str(), 77, 0);
  EXPECT_EQ(name.GET_FILE_PART(), prefix.substr(0, room) + L"77");
  for (const int width : {INT32_MIN, -300, 128, 1000, INT32_MAX}) {
    EXPECT_EQ(tempName(name, prefix.c_str(), 77, width), 78);
    EXPECT_TRUE(std::wstring(name.GET_FILE_PART()).ends_with(L"77")) << width;
    EXPECT_LT(std::wstring(name.GET_FILE_PART()).size(), 256U) << width;
  }
  tempName(name, prefix.c_str(), 77, 0, ext.c_str());
  EXPECT_STREQ(name.GET_FILE_PART(), L"77");
}

TEST_F(MFileNameOnDisk, GivesUpWhenAllTemporaryNamesExist) {
  touch("even");
  touch("odd");  // two files, as one may have no more than 65000 names
  for (int i = 0; i < 65536; ++i) {
    fs::create_hard_link(m_folder / (i % 2 == 0 ? "even" : "odd"), m_folder / numbered("t", i));
  }
  MFileName name;
  EXPECT_EQ(tempName(name, L"t", 3, 0), 3);
  EXPECT_TRUE(name.IS_EMPTY());
  fs::remove(m_folder / "t2.tmp");
  EXPECT_EQ(tempName(name, L"t", 3, 0), 3);
  EXPECT_STREQ(name.GET_FILE_PART(), L"t2");
}

TEST(MFileName, MakesNamesSafe) {
  const auto safe = [](const wchar_t* file) {
    MFileName name;
    name.SET_FILE_PART(file, 1000);
    const bool was_safe = name.IsSafe();
    name.MAKE_SAFE();
    return std::pair(was_safe, std::wstring(name.GET_FILE_PART()));
  };
  EXPECT_EQ(safe(L"a$b?c"), std::pair(false, std::wstring(L"a_b_c")));
  EXPECT_EQ(safe(L"*\"a.b c"), std::pair(false, std::wstring(L"__a.b c")));
  EXPECT_EQ(safe(L"a b"), std::pair(true, std::wstring(L"a b")));
  EXPECT_EQ(safe(L""), std::pair(false, std::wstring()));
  EXPECT_EQ(safe(std::wstring(256, L'a').c_str()), std::pair(true, std::wstring(256, L'a')));
  EXPECT_EQ(safe(std::wstring(300, L'a').c_str()), std::pair(false, std::wstring(256, L'a')));
}

TEST(MFileName, FitsMasks) {
  const std::vector<std::tuple<const wchar_t*, const wchar_t*, bool>> file_rows = {
      {L"abcdef", L"abc", true}, {L"abc", L"abcdef", true},
      {L"abc", L"a*zzz", true},  {L"abc", L"?B?", true},
      {L"abc", L"b", false},     {L"abc", nullptr, true},
      {L"", L"*", false},        {L"", L"", true},
      {L"", L".*", true},        {L"\u00C9t\u00C9", L"\u00E9?\u00E9", true},
  };
  for (const auto& [file, mask, fits] : file_rows) {
    MFileName name;
    name.SET_FILE_PART(file, 256);
    EXPECT_EQ(name.FILTER_FILE(mask), fits) << testing::PrintToString(mask);
  }
  const MFileName text(L"a.TXT", false), none(L"a", false);
  EXPECT_TRUE(text.FILTER_EXT(L".t?t"));
  EXPECT_TRUE(text.FILTER_EXT(L".*"));
  EXPECT_TRUE(none.FILTER_EXT(L".*"));
  EXPECT_FALSE(none.FILTER_EXT(L".txt"));
  EXPECT_TRUE(text.FILTER(L"*", L".txt"));
  EXPECT_FALSE(text.FILTER(L"b", L".txt"));
  EXPECT_FALSE(text.FILTER(L"a", L".ini"));
}

}  // namespace
