// Files and folders by name: results, codes, and what is on the disk afterwards.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/environment.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/syscalls_internal.h"

#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using namespace qel::sys;
using qeltest::readBytes;
using qeltest::writeBytes;

// What a call gave: 0 or the last error, with errno beside it for the C run-time library.
using Codes = std::pair<DWORD, int>;

class Files : public testing::Test {
 protected:
  void SetUp() override {
    writeBytes(folder / "file", "content");
    writeBytes(folder / "locked", "locked");
    fs::permissions(folder / "locked", fs::perms(0444));
    fs::create_directory(folder / "empty");
    fs::create_directories(folder / "full/inner");
    fs::create_symlink("full", folder / "link");
    fs::create_symlink("nowhere", folder / "dangling");
  }

  std::wstring at(std::string_view name) const { return folder.wide(name); }
  bool exists(std::string_view name) const { return fs::exists(fs::symlink_status(folder / name)); }

  static Codes codes(int result) {
    return result == 0 ? Codes{0, 0} : Codes{GetLastError(), errno};
  }
  static DWORD code(BOOL result) { return result ? 0 : GetLastError(); }

  int rename(std::string_view from, std::string_view to) {
    return _wrename(at(from).c_str(), at(to).c_str());
  }

  qeltest::TempFolder folder;
};

TEST_F(Files, AccessLooksAtTheReadOnlyAttributeAlone) {
  const auto access = [&](std::string_view name, int mode) {
    return codes(_waccess(at(name).c_str(), mode));
  };
  for (const int mode : {0, 2, 4, 6}) {
    EXPECT_EQ(access("file", mode), Codes(0, 0));
    EXPECT_EQ(access("empty", mode), Codes(0, 0));
    EXPECT_EQ(access("none", mode), Codes(2, ENOENT));
    EXPECT_EQ(access("file/x", mode), Codes(3, ENOENT));
  }
  EXPECT_EQ(access("locked", 4), Codes(0, 0));
  EXPECT_EQ(access("locked", 2), Codes(5, EACCES));
  EXPECT_EQ(access("dangling", 0), Codes(2, ENOENT));
  EXPECT_EQ(codes(_waccess(L"Z:\\x", 0)), Codes(3, ENOENT));
  EXPECT_EQ(codes(_waccess(nullptr, 0)), Codes(3, ENOENT));
}

TEST_F(Files, RemoveTakesFilesAndLinksAlone) {
  const auto remove = [&](std::string_view name) { return codes(_wremove(at(name).c_str())); };
  EXPECT_EQ(remove("empty"), Codes(5, EACCES));
  EXPECT_EQ(remove("locked"), Codes(5, EACCES));
  EXPECT_EQ(remove("none"), Codes(2, ENOENT));
  EXPECT_EQ(remove("none/x"), Codes(3, ENOENT));
  EXPECT_EQ(remove("file"), Codes(0, 0));
  EXPECT_EQ(remove("link"), Codes(0, 0));
  EXPECT_EQ(code(DeleteFileW(at("locked").c_str())), 5);
  EXPECT_EQ(code(DeleteFileW(at("dangling").c_str())), 0);
  EXPECT_TRUE(exists("empty") && exists("locked") && exists("full/inner"));
  EXPECT_FALSE(exists("file") || exists("link") || exists("dangling"));
}

TEST_F(Files, RemovingAFolderTellsWhyItStays) {
  const auto rmdir = [&](std::string_view name) { return codes(_wrmdir(at(name).c_str())); };
  EXPECT_EQ(rmdir("full"), Codes(145, ENOTEMPTY));
  EXPECT_EQ(rmdir("file"), Codes(267, ENOTEMPTY));
  EXPECT_EQ(rmdir("none"), Codes(2, ENOENT));
  EXPECT_EQ(code(RemoveDirectoryW(at("file").c_str())), 267);
  EXPECT_EQ(code(RemoveDirectoryW(at("none/x").c_str())), 3);
  EXPECT_EQ(code(RemoveDirectoryW(at("link").c_str())), 0);
  EXPECT_TRUE(exists("full/inner"));
  EXPECT_EQ(rmdir("empty"), Codes(0, 0));
  const fs::path before = fs::current_path();
  fs::current_path(folder / "full/inner");
  const Codes in_use = rmdir("full/inner");
  fs::current_path(before);
  EXPECT_EQ(in_use, Codes(32, ENOTEMPTY));
  EXPECT_TRUE(exists("full/inner"));
}

TEST_F(Files, CreatingAFolderTellsWhyNot) {
  const auto mkdir = [&](std::string_view name) {
    return code(CreateDirectoryW(at(name).c_str(), nullptr));
  };
  EXPECT_EQ(mkdir("new"), 0);
  EXPECT_EQ(mkdir("new"), 183);
  EXPECT_EQ(mkdir("file"), 183);
  EXPECT_EQ(mkdir("none/x"), 3);
  EXPECT_EQ(mkdir("file/x"), 3);
  EXPECT_EQ(mkdir("aux"), 267);
  EXPECT_EQ(mkdir("a?"), 123);
  EXPECT_EQ(mkdir(std::string(256, 'n')), 206);
  EXPECT_TRUE(fs::is_directory(folder / "new"));
}

TEST_F(Files, RenameNeverReplaces) {
  EXPECT_EQ(codes(rename("file", "locked")), Codes(183, EEXIST));
  EXPECT_EQ(codes(rename("file", "empty")), Codes(183, EEXIST));
  EXPECT_EQ(codes(rename("file", "dangling")), Codes(183, EEXIST));
  EXPECT_EQ(codes(rename("full", "empty")), Codes(183, EEXIST));
  EXPECT_EQ(codes(rename("none", "new")), Codes(2, ENOENT));
  EXPECT_EQ(codes(rename("file", "none/x")), Codes(3, ENOENT));
  EXPECT_EQ(codes(rename("file", "con")), Codes(123, EINVAL));
  EXPECT_EQ(codes(rename("file", "file")), Codes(0, 0));
  EXPECT_EQ(codes(rename("none", "none")), Codes(2, ENOENT));
  EXPECT_EQ(readBytes(folder / "file"), "content");
  EXPECT_EQ(readBytes(folder / "locked"), "locked");
  EXPECT_EQ(codes(rename("locked", "moved")), Codes(0, 0));
  EXPECT_EQ(codes(rename("full", "also moved")), Codes(0, 0));
  EXPECT_EQ(readBytes(folder / "moved"), "locked");
  EXPECT_TRUE(exists("also moved/inner"));
}

// File systems that cannot rename without replacing, and such that cannot link either.
class RenameWithoutTheCall : public Files, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    Files::SetUp();
    Calls().rename_noreplace = [](const char*, const char*) {
      errno = EINVAL;
      return -1;
    };
    if (GetParam()) {
      Calls().link = [](const char*, const char*) {
        errno = EPERM;
        return -1;
      };
    }
  }
  void TearDown() override { Calls() = original; }
  SystemCalls original = Calls();
};

TEST_P(RenameWithoutTheCall, StillNeverReplaces) {
  EXPECT_EQ(codes(rename("file", "locked")), Codes(183, EEXIST));
  EXPECT_EQ(codes(rename("full", "empty")), Codes(183, EEXIST));
  EXPECT_EQ(codes(rename("none", "new")), Codes(2, ENOENT));
  EXPECT_FALSE(exists("new"));
  EXPECT_EQ(readBytes(folder / "locked"), "locked");
  EXPECT_EQ(codes(rename("file", "moved")), Codes(0, 0));
  EXPECT_EQ(codes(rename("full", "moved folder")), Codes(0, 0));
  EXPECT_EQ(codes(rename("link", "moved link")), Codes(0, 0));
  EXPECT_EQ(readBytes(folder / "moved"), "content");
  EXPECT_TRUE(exists("moved folder/inner"));
  EXPECT_TRUE(fs::is_symlink(folder / "moved link"));
  EXPECT_FALSE(exists("file") || exists("full") || exists("link"));
}

INSTANTIATE_TEST_SUITE_P(Files, RenameWithoutTheCall, testing::Bool());

TEST_F(Files, AttributesComeFromModeNameAndStoredText) {
  const auto attributes = [&](std::string_view name) {
    return GetFileAttributesW(at(name).c_str());
  };
  writeBytes(folder / ".dot", "");
  EXPECT_EQ(attributes("file"), 32);
  EXPECT_EQ(attributes("locked"), 33);
  EXPECT_EQ(attributes("empty"), 16);
  EXPECT_EQ(attributes(".dot"), 34);
  EXPECT_EQ(attributes("none"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(GetLastError(), 2);
}

// An in-memory user.DOSATTRIB, so that the test does not depend on what the file system holds.
std::string stored;
ssize_t getStored(const char*, const char*, void* value, size_t size) {
  if (stored.empty()) {
    errno = ENODATA;
    return -1;
  }
  return static_cast<ssize_t>(stored.copy(static_cast<char*>(value), size));
}
int setStored(const char* path, const char*, const void* value, size_t size, int) {
  struct stat status {};
  if (stat(path, &status) != 0 || (status.st_mode & S_IWUSR) == 0) {  // as the kernel judges a user
    errno = EACCES;
    return -1;
  }
  stored.assign(static_cast<const char*>(value), size);
  return 0;
}

TEST_F(Files, AttributesCanBeSetAndAreStoredAsOtherProgramsKnowThem) {
  const SystemCalls original = Calls();
  Calls().getxattr = getStored;
  Calls().setxattr = setStored;
  stored.clear();
  const auto set = [&](std::string_view name, DWORD attributes) {
    return code(SetFileAttributesW(at(name).c_str(), attributes));
  };
  const auto get = [&](std::string_view name) { return GetFileAttributesW(at(name).c_str()); };
  EXPECT_EQ(set("file", 32), 0);
  EXPECT_EQ(stored, "");  // what holds anyway is not stored
  EXPECT_EQ(set("file", 2 | 1), 0);
  EXPECT_EQ(stored, "0x3");
  EXPECT_EQ(get("file"), 3);
  EXPECT_EQ(set("file", 4), 0);  // while it is read-only
  EXPECT_EQ(get("file"), 4);
  EXPECT_EQ(set("file", 128), 0);
  EXPECT_EQ(get("file"), 128);
  stored = std::string("0x20\0\3\0more", 11);  // a longer form that begins with the same text
  EXPECT_EQ(get("file"), 32);
  stored = "nonsense";
  EXPECT_EQ(get("file"), 32);
  Calls().setxattr = [](const char*, const char*, const void*, size_t, int) {
    errno = ENOTSUP;
    return -1;
  };
  EXPECT_EQ(set("locked", 0), 50);
  EXPECT_EQ(get("locked"), 33);
  EXPECT_EQ(set("none", 0), 2);
  Calls() = original;
}

TEST_F(Files, TempFileNamesHaveTheToldForm) {
  std::array<wchar_t, MAX_PATH> name{};
  const std::wstring where = folder.wide();
  EXPECT_EQ(GetTempFileNameW(where.c_str(), L"prefix", 0xABCD, name.data()), 0xABCD);
  EXPECT_EQ(std::wstring(name.data()), where + L"\\preABCD.tmp");
  EXPECT_FALSE(exists("preABCD.tmp"));
  EXPECT_EQ(GetTempFileNameW((where + L"/").c_str(), nullptr, 0x1001F, name.data()), 0x1001F);
  EXPECT_EQ(std::wstring(name.data()), where + L"/1F.tmp");
  ClockOverride clock;
  clock.setTickCount(0x7FFFF);
  EXPECT_EQ(GetTempFileNameW(where.c_str(), L"q", 0, name.data()), 0xFFFF);
  EXPECT_EQ(GetTempFileNameW(where.c_str(), L"q", 0, name.data()), 1);  // 0 is no number
  EXPECT_EQ(readBytes(folder / "q1.tmp"), "");
}

TEST_F(Files, TempFileNamesTellWhyNot) {
  std::array<wchar_t, MAX_PATH> name{L'x'};
  const auto fails = [&](const std::wstring& where, const wchar_t* prefix) {
    EXPECT_EQ(GetTempFileNameW(where.c_str(), prefix, 0, name.data()), 0);
    EXPECT_EQ(name[0], L'x');
    return GetLastError();
  };
  EXPECT_EQ(fails(at("none"), L"q"), 267);
  EXPECT_EQ(fails(at("file"), L"q"), 267);
  EXPECT_EQ(fails(L"C:\\" + std::wstring(244, L'n'), L"q"), 111);
  EXPECT_EQ(fails(folder.wide(), L"a?b"), 123);
  const qeltest::FaultyCalls faulty({.kind = qeltest::Fault::fail_for_good, .error = ENOSPC});
  EXPECT_EQ(fails(folder.wide(), L"q"), 112);
}

TEST_F(Files, TempFileNamesAreGivenOnce) {
  ClockOverride clock;
  clock.setTickCount(5);  // all start at the same number
  std::array<std::vector<UINT>, 4> given;
  std::vector<std::thread> threads;
  for (std::vector<UINT>& numbers : given) {
    threads.emplace_back([&] {
      std::array<wchar_t, MAX_PATH> name;
      for (int i = 0; i < 50; ++i) {
        numbers.push_back(GetTempFileNameW(folder.wide().c_str(), L"COM", 0, name.data()));
      }
    });
  }
  std::set<UINT> all;
  for (std::thread& thread : threads) thread.join();
  for (const std::vector<UINT>& numbers : given) all.insert(numbers.begin(), numbers.end());
  EXPECT_EQ(all.size(), 200);
  EXPECT_FALSE(all.contains(0));
  EXPECT_EQ(*all.begin(), 10);  // COM5.tmp to COM9.tmp would be devices
}

TEST_F(Files, FoldersAreHandedOutWithTheirLength) {
  const fs::path before = fs::current_path();
  fs::current_path(folder.path());
  std::wstring expected = qeltest::TempFolder::wideName(fs::current_path());
  std::array<wchar_t, MAX_PATH> text{};
  const auto length = static_cast<DWORD>(expected.size());
  EXPECT_EQ(GetCurrentDirectoryW(MAX_PATH, text.data()), length);
  EXPECT_EQ(std::wstring(text.data()), expected);
  EXPECT_EQ(GetCurrentDirectoryW(length + 1, text.data()), length);
  text[0] = L'x';
  EXPECT_EQ(GetCurrentDirectoryW(length, text.data()), length + 1);
  EXPECT_EQ(text[0], L'x');
  fs::current_path("/");
  EXPECT_EQ(GetCurrentDirectoryW(MAX_PATH, text.data()), 3);
  EXPECT_EQ(std::wstring(text.data()), L"C:\\");
  fs::current_path(before);
}

TEST_F(Files, PatternsMatchAsNamesAreMatched) {
  struct Row {
    std::wstring name, pattern;
    bool matches;
  };
  const std::vector<Row> rows = {
      {L"a.txt", L"*.txt", true}, {L"A.TXT", L"a.t?t", true},
      {L"noext", L"*.*", true},   {L"a", L"a???", true},
      {L"ab", L"a?b", false},     {L"a.b.c", L"*.c", true},
      {L"abcabd", L"*abd", true}, {L"abc", L"*b", false},
      {L"[x]", L"[x]", true},     {L"x", L"[x]", false},
      {L"", L"*", true},          {L"a", L"", false},
      {L"aXbXc", L"a*b*c", true}, {L"\u00C4", L"\u00E4", true},
      {L"ab", L"a", false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(MatchesPattern(row.name, row.pattern), row.matches)
        << testing::PrintToString(row.name) << " against " << testing::PrintToString(row.pattern);
  }
}

}  // namespace
