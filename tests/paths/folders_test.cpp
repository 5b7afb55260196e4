// Places, checks and copies of folders, and the helpers on path texts.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/paths/MDirectory.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/paths/folder_functions.h"

#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using qeltest::readBytes;
using qeltest::TempFolder;
using qeltest::writeBytes;

CStringW assured(const wchar_t* text) {
  CStringW path = text;
  AssurePath(path);
  return path;
}

CStringW appended(const wchar_t* text, const wchar_t* tail) {
  CStringW path = text;
  AssurePathAppend(path, tail);
  return path;
}

TEST(PathTexts, AreClosedAndJoined) {
  EXPECT_EQ(assured(L"a/b"), L"a\\b\\");
  EXPECT_EQ(assured(L"a\\"), L"a\\");
  EXPECT_EQ(assured(L""), L"");
  EXPECT_EQ(assured(L"/"), L"\\");
  EXPECT_EQ(appended(L"a", L"/b"), L"a\\b");
  EXPECT_EQ(appended(L"a", nullptr), L"a\\");
  EXPECT_EQ(appended(L"a/", L"\\\\b"), L"a\\\\b");
  EXPECT_EQ(appended(L"", L"b/c"), L"b/c");
  for (const wchar_t* path : {L"C:\\x", L"C:/x", L"\\\\x", L"//x", L"?:/", L"//"}) {
    EXPECT_TRUE(IsAbsolutePath(path)) << path;
  }
  for (const wchar_t* path : {L"C:x", L"\\x", L"/x", L"x", L"", L"C:", L"/\\x", L"\\/x"}) {
    EXPECT_FALSE(IsAbsolutePath(path)) << path;
  }
}

TEST(FolderChain, IsCreatedLevelByLevel) {
  const TempFolder folder;
  const auto make = [&](const wchar_t* tail) { return mkdirchain((folder.wide() + tail).c_str()); };
  EXPECT_TRUE(make(L"\\a\\b/c"));
  EXPECT_TRUE(make(L"\\a\\b\\c\\"));
  EXPECT_TRUE(make(L"\\a\\..\\d"));
  EXPECT_TRUE(make(L"\\e\\\\f"));
  EXPECT_TRUE(make(L"\\g\\name."));
  for (const char* made : {"a/b/c", "d", "e/f", "g"}) EXPECT_TRUE(fs::is_directory(folder / made));
  EXPECT_TRUE(fs::is_empty(folder / "g"));
  writeBytes(folder / "file", "");
  EXPECT_FALSE(make(L"\\h\\i\\con\\j"));
  EXPECT_EQ(qel::sys::GetLastError(), 267);
  EXPECT_TRUE(fs::is_directory(folder / "h/i"));
  EXPECT_FALSE(make(L"\\file\\x"));
  EXPECT_EQ(qel::sys::GetLastError(), 3);
  EXPECT_FALSE(mkdirchain(L""));
  EXPECT_FALSE(mkdirchain(L"\\tmp"));
  EXPECT_TRUE(make((L"\\" + std::wstring(200, L'l') + L"\\" + std::wstring(200, L'm')).c_str()));
}

TEST(TypedFiles, MoveElementsAsTheyLieInMemory) {
  const TempFolder folder;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
      std::fopen((folder / "f").c_str(), "w+b"), std::fclose);
  const float real = 1.5F;
  const std::int32_t number = -2;
  const std::uint16_t small[] = {0x1234, 0xFFFF};
  EXPECT_EQ(fwrite_float(&real, 4, 1, file.get()), 1);
  EXPECT_EQ(fwrite_long(&number, 4, 1, file.get()), 1);
  EXPECT_EQ(fwrite_short(small, 2, 2, file.get()), 2);
  std::rewind(file.get());
  EXPECT_EQ(readBytes(folder / "f"),
            std::string("\0\0\xC0\x3F\xFE\xFF\xFF\xFF\x34\x12\xFF\xFF", 12));
  std::uint32_t numbers[2];
  std::int16_t smalls[3];
  EXPECT_EQ(fread_long(numbers, 4, 2, file.get()), 2);
  EXPECT_EQ(fread_short(smalls, 2, 3, file.get()), 2);
  EXPECT_EQ(numbers[1], 0xFFFFFFFE);
  EXPECT_EQ(smalls[1], -1);
}

TEST(Directory, TellsWhereTheProgramAndItsWorkAre) {
  const fs::path program = fs::read_symlink("/proc/self/exe");
  const std::wstring beside = MDirectory::GetApplication();
  EXPECT_EQ(beside, TempFolder::wideName(program.parent_path()) + L"\\");
  MFileName name;
  EXPECT_TRUE(MDirectory::GET_EXECUTABLE_DIRECTORY(name));
  EXPECT_EQ(std::wstring(name.GET()), beside);
  EXPECT_EQ(MDirectory::GetCurrent(), TempFolder::wideName(fs::current_path()));
  EXPECT_EQ(MDirectory::GetSystemDrive(), L"C:");
  EXPECT_EQ(MDirectory::GetApplicationData(true), L"C:\\var\\lib");

  const fs::path ini = program.parent_path() / "qelware.ini";
  const auto workingDirectory = [&](const char* content) {
    if (content) writeBytes(ini, content);
    name.SET(L"C:\\old", true);
    const bool found = MDirectory::GET_PROJECT_DIRECTORY(name);
    fs::remove(ini);
    return std::pair(found, std::wstring(name.GET()));
  };
  EXPECT_EQ(workingDirectory(nullptr), std::pair(false, std::wstring()));
  EXPECT_EQ(workingDirectory("[Sorvic]\nOther=C:\\x\n"), std::pair(false, std::wstring()));
  EXPECT_EQ(workingDirectory("[sorvic]\r\nWorkingDirectory = C:\\my work\\a.b\r\n"),
            std::pair(true, std::wstring(L"C:\\my work\\a.b")));
}

TEST(Directory, MakesATemporaryFileOfItsOwn) {
  const std::wstring first = MDirectory::GetTemporaryFileName(L"qeltest");
  const std::wstring second = MDirectory::GetTemporaryFileName(L"qeltest");
  EXPECT_NE(first, second);
  for (const std::wstring& name : {first, second}) {
    EXPECT_TRUE(name.starts_with(MDirectory::GetTemporary() + L"qel"));
    EXPECT_TRUE(MFileName(name.c_str(), false).REMOVE());
  }
}

TEST(Directory, KnowsEmptyFoldersAndAccess) {
  const TempFolder folder;
  EXPECT_TRUE(MDirectory::IsDirectoryEmpty(folder.wide()));
  EXPECT_TRUE(MDirectory::IsDirectoryEmpty(folder.wide("none")));
  EXPECT_TRUE(MDirectory::IsDirectoryEmpty(L""));  // which is no name of the current folder
  writeBytes(folder / ".hidden", "");
  EXPECT_FALSE(MDirectory::IsDirectoryEmpty(folder.wide()));
  EXPECT_TRUE(MDirectory::DirectoryHasAccess(folder.wide("none"), qel::sys::GENERIC_READ));
  EXPECT_TRUE(MDirectory::DirectoryHasAccess(folder.wide(), qel::sys::GENERIC_WRITE));
}

TEST(Directory, CopiesFilesFlat) {
  const TempFolder folder;
  fs::create_directories(folder / "from/sub");
  writeBytes(folder / "from/a", "a");
  writeBytes(folder / "from/.b", "b");
  EXPECT_TRUE(MDirectory::CopyDirectoryContents(folder.wide("from"), folder.wide("x/y/to"), false));
  EXPECT_EQ(readBytes(folder / "x/y/to/a") + readBytes(folder / "x/y/to/.b"), "ab");
  EXPECT_FALSE(fs::exists(folder / "x/y/to/sub"));
  EXPECT_FALSE(MDirectory::CopyDirectoryContents(folder.wide("none"), folder.wide("to"), true));
}

}  // namespace
