// Share modes, listings, the places of user and machine, copies, walks through trees, arrays.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <random>
#include <set>

#include "qelbase/outside/framework/CArrays.h"
#include "qelbase/outside/framework/CFile.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/folder_walk_internal.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/outside/system/listings.h"
#include "qelbase/outside/system/shell.h"
#include "qelbase/outside/system/text.h"

#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using namespace qel::sys;
using qeltest::readBytes;
using qeltest::runInChild;
using qeltest::TempFolder;
using qeltest::writeBytes;

// --- share modes -------------------------------------------------------------------------------

// The handle, or the last error.
struct Opened {
  HANDLE handle;
  DWORD code;
};
Opened open(const std::wstring& path, DWORD access, DWORD sharing, DWORD disposition = OPEN_ALWAYS,
            DWORD flags = 0) {
  SetLastError(77);
  const HANDLE handle =
      CreateFileW(path.c_str(), access, sharing, nullptr, disposition, flags, nullptr);
  return {handle, GetLastError()};
}
DWORD codeOfOpening(const std::wstring& path, DWORD access, DWORD sharing,
                    DWORD disposition = OPEN_EXISTING, DWORD flags = 0) {
  const Opened opened = open(path, access, sharing, disposition, flags);
  if (opened.handle == INVALID_HANDLE_VALUE) return opened.code;
  return CloseHandle(opened.handle) ? 0 : 1;
}

TEST(ShareModes, CollideInsideAProcessAndBetweenProcesses) {
  constexpr DWORD r = GENERIC_READ, w = GENERIC_WRITE, d = DELETE_ACCESS;
  struct Row {
    DWORD access, sharing, second_access, second_sharing, expected;
  };
  const std::vector<Row> rows = {
      {r, 0, r, 7, 32}, {r, 1, r, 1, 0}, {r, 1, w, 1, 32},   {r, 3, w, 1, 0},  {w, 1, r, 1, 32},
      {w, 1, r, 3, 0},  {w, 7, w, 7, 0}, {w, 2, w, 0, 32},   {r, 3, d, 7, 32}, {r, 7, d, 7, 0},
      {d, 1, r, 3, 32}, {r, 0, 0, 0, 0}, {r | w, 1, r, 7, 0}};
  for (const Row& row : rows) {
    const TempFolder folder;
    const Opened first = open(folder.wide("f"), row.access, row.sharing);
    ASSERT_NE(first.handle, INVALID_HANDLE_VALUE) << first.code;
    const auto second = [&] {
      return codeOfOpening(folder.wide("f"), row.second_access, row.second_sharing);
    };
    EXPECT_EQ(second(), row.expected) << row.access << " " << row.sharing;
    Calls().close(Calls().open((folder / "f").c_str(), O_RDONLY, 0));  // must not drop the locks
    const auto end = runInChild([&] { EXPECT_EQ(second(), row.expected); });
    EXPECT_EQ(end.exit_code, 0) << row.access << " " << row.sharing;
    EXPECT_TRUE(CloseHandle(first.handle));
    EXPECT_EQ(second(), 0);
  }
}

TEST(ShareModes, ProtectFromRemovalAndEndWithTheProcess) {
  const TempFolder folder;
  const std::wstring file = folder.wide("f");
  const auto killed = runInChild([&] {
    EXPECT_EQ(open(file, GENERIC_READ, 0).code, 0);
    raise(SIGKILL);
  });
  EXPECT_TRUE(killed.killed());
  const Opened held = open(file, GENERIC_READ, FILE_SHARE_READ);
  ASSERT_NE(held.handle, INVALID_HANDLE_VALUE);
  EXPECT_FALSE(DeleteFileW(file.c_str()));
  EXPECT_EQ(GetLastError(), 32);
  EXPECT_EQ(_wremove(file.c_str()), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_TRUE(CloseHandle(held.handle));
  EXPECT_FALSE(CloseHandle(held.handle));
  EXPECT_EQ(GetLastError(), 6);
  EXPECT_TRUE(DeleteFileW(file.c_str()));
}

TEST(ShareModes, HoldBetweenHandlesAndFileObjects) {
  const TempFolder folder;
  const std::wstring file = folder.wide("f");
  writeBytes(folder / "f", "");
  {
    const CFile writer(file.c_str(), CFile::modeWrite | CFile::shareDenyRead);
    EXPECT_EQ(codeOfOpening(file, GENERIC_READ, 7), 32);
    EXPECT_EQ(codeOfOpening(file, GENERIC_WRITE, 7), 0);
    EXPECT_EQ(codeOfOpening(file, GENERIC_WRITE, 1), 32);
  }
  const Opened held = open(file, GENERIC_READ, FILE_SHARE_READ);
  CFile second;
  EXPECT_TRUE(second.Open(file.c_str(), CFile::modeRead | CFile::shareDenyWrite));
  EXPECT_FALSE(second.Open(file.c_str(), CFile::modeWrite | CFile::shareDenyNone));
  CloseHandle(held.handle);
}

TEST(ShareModes, FollowTheNameWhenTheFileIsReplacedOnTheWay) {
  static std::string file;
  const TempFolder folder;
  file = folder / "lock";
  writeBytes(file, "old");
  const SystemCalls original = Calls();
  static SystemCalls passed;
  passed = original;
  Calls().flock = [](int fd, int operation) {
    static bool replaced = false;
    if (!std::exchange(replaced, true)) {
      ::unlink(file.c_str());
      writeBytes(file, "new");
    }
    return passed.flock(fd, operation);
  };
  const Opened held = open(folder.wide("lock"), GENERIC_READ, 0);
  Calls() = original;
  ASSERT_NE(held.handle, INVALID_HANDLE_VALUE);
  EXPECT_EQ(codeOfOpening(folder.wide("lock"), GENERIC_READ, 7), 32);
  CloseHandle(held.handle);
}

TEST(Opening, FollowsItsDisposition) {
  const TempFolder folder;
  const std::wstring file = folder.wide("f"), none = folder.wide("none");
  constexpr DWORD w = GENERIC_READ | GENERIC_WRITE;
  EXPECT_EQ(codeOfOpening(none, w, 0, OPEN_EXISTING), 2);
  EXPECT_EQ(codeOfOpening(none, w, 0, TRUNCATE_EXISTING), 2);
  EXPECT_EQ(codeOfOpening(folder.wide("no/f"), w, 0, CREATE_NEW), 3);
  EXPECT_EQ(codeOfOpening(folder.wide("nul"), w, 0, CREATE_NEW), 267);
  EXPECT_EQ(codeOfOpening(file, w, 0, 6), 87);
  const auto succeed = [&](DWORD disposition) {
    const Opened opened = open(file, w, 0, disposition);
    CloseHandle(opened.handle);
    return opened.code;
  };
  EXPECT_EQ(succeed(CREATE_NEW), 77);
  EXPECT_EQ(codeOfOpening(file, w, 0, CREATE_NEW), 80);
  writeBytes(folder / "f", "content");
  EXPECT_EQ(succeed(OPEN_ALWAYS), 183);
  EXPECT_EQ(readBytes(folder / "f"), "content");
  EXPECT_EQ(succeed(CREATE_ALWAYS), 183);
  EXPECT_EQ(readBytes(folder / "f"), "");
  writeBytes(folder / "f", "content");
  EXPECT_EQ(succeed(TRUNCATE_EXISTING), 77);
  EXPECT_EQ(readBytes(folder / "f"), "");
  fs::permissions(folder / "f", fs::perms::owner_read);
  EXPECT_EQ(codeOfOpening(file, w, 0), 5);
  EXPECT_EQ(codeOfOpening(file, GENERIC_READ, 0), 0);
  EXPECT_EQ(codeOfOpening(folder.wide(), GENERIC_READ, 7), 5);
  EXPECT_EQ(
      codeOfOpening(folder.wide(), GENERIC_READ, 7, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS), 0);
}

TEST(Opening, FolderIsPassedOverBySweepersWhileItIsOpen) {
  const TempFolder folder;
  const HANDLE held =
      open(folder.wide(), GENERIC_READ, 7, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS).handle;
  const int sweeper = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY);
  EXPECT_EQ(::flock(sweeper, LOCK_EX | LOCK_NB), -1);
  EXPECT_TRUE(CloseHandle(held));
  EXPECT_EQ(::flock(sweeper, LOCK_EX | LOCK_NB), 0);
  ::close(sweeper);
}

// --- listings ----------------------------------------------------------------------------------

using Texts = std::vector<std::wstring>;

Texts list(const std::wstring& path) {
  Texts names;
  WIN32_FIND_DATAW found;
  const HANDLE listing = FindFirstFileW(path.c_str(), &found);
  if (listing == INVALID_HANDLE_VALUE) return {std::to_wstring(GetLastError())};
  do names.push_back(found.cFileName);
  while (FindNextFileW(listing, &found));
  EXPECT_EQ(GetLastError(), 18);
  EXPECT_TRUE(FindClose(listing));
  EXPECT_FALSE(FindClose(listing));
  return names;
}

TEST(Listings, ComeInOrderByPatternAndName) {
  const TempFolder folder;
  for (const char* name : {"b.txt", "A.txt", "a_", "aB", "z\xFF", "bad:name", "[x]"}) {
    writeBytes(folder / name, "");
  }
  fs::create_directory(folder / "Sub");
  EXPECT_EQ(list(folder.wide("*.*")), (Texts{L".", L"..", L"A.txt", L"aB", L"a_", L"b.txt",
                                             L"bad\xF03Aname", L"Sub", L"z\xF0FF", L"[x]"}));
  EXPECT_EQ(list(folder.wide("*.TXT")), (Texts{L"A.txt", L"b.txt"}));
  EXPECT_EQ(list(folder.wide("a?")), (Texts{L"aB", L"a_"}));
  EXPECT_EQ(list(folder.wide("[x]*")), Texts{L"[x]"});
  EXPECT_EQ(list(folder.wide("Sub")), Texts{L"Sub"});
  EXPECT_EQ(list(folder.wide("Sub/")), Texts{L"2"});
  EXPECT_EQ(list(folder.wide("Sub/*")), (Texts{L".", L".."}));
  EXPECT_EQ(list(folder.wide("no*")), Texts{L"2"});
  EXPECT_EQ(list(folder.wide("none/*")), Texts{L"3"});
  EXPECT_EQ(list(folder.wide("b.txt/*")), Texts{L"3"});
  EXPECT_EQ(list(L""), Texts{L"3"});
  EXPECT_NE(list(L"C:\\*").front(), L".");
}

// Many names with long starts in common, in any case, in any script, as users have them.
TEST(Listings, OrderOfManyNamesIsByCapitalsAndThenByCode) {
  for (const std::string_view ending : {"", "\xC3\xA9", ":"}) {
    std::mt19937 random(7);
    std::set<std::string> names;
    while (names.size() < 5000) {
      std::string name(random() % 3 * 9, 'p');
      for (auto left = random() % 12 + 1; left > 0; --left) name += "abAB_9."[random() % 7];
      names.insert((name + "x").append(random() % 2 == 0 ? ending : ""));
    }
    EntryList entries;
    for (const std::string& name : names) entries.add({name, false, false});
    entries.sort();
    const auto key = [](const std::wstring& name) {
      std::wstring upper = name;
      for (wchar_t& c : upper) c = ToUpper(c);
      return std::pair(upper, name);
    };
    for (std::size_t i = 0; i < entries.size(); ++i) {
      EXPECT_EQ(names.erase(std::string(entries[i].native)), 1);
      const bool follows = i == 0 || key(entries[i - 1].name()) < key(entries[i].name());
      EXPECT_TRUE(follows) << entries[i].native;
    }
    EXPECT_TRUE(names.empty());
  }
}

TEST(Listings, TellKindSizeAndTimes) {
  const TempFolder folder;
  writeBytes(folder / "file", "12345");
  fs::create_directory(folder / "real");
  fs::create_directory_symlink("real", folder / "to_folder");
  fs::create_symlink("nowhere", folder / "to_nothing");
  const std::array<timespec, 2> times = {timespec{1, 0}, timespec{1'000'000'000, 500}};
  ASSERT_EQ(utimensat(AT_FDCWD, (folder / "file").c_str(), times.data(), 0), 0);
  WIN32_FIND_DATAW found;
  FindClose(FindFirstFileW(folder.wide("file").c_str(), &found));
  EXPECT_EQ(found.dwFileAttributes, FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(found.nFileSizeLow, 5);
  // 2001-09-09 01:46:40.0000005 UTC in 100 ns since 1601
  EXPECT_EQ(std::uint64_t{found.ftLastWriteTime.dwHighDateTime} << 32 |
                found.ftLastWriteTime.dwLowDateTime,
            126'444'736'000'000'005);
  _wfinddata64i32_t entry;
  EXPECT_EQ(_findclose(_wfindfirst64i32(folder.wide("to_folder").c_str(), &entry)), 0);
  EXPECT_EQ(entry.attrib, 16);
  const std::intptr_t listing = _wfindfirst64i32(folder.wide("to_nothing").c_str(), &entry);
  EXPECT_EQ(std::wstring(entry.name), L"to_nothing");
  EXPECT_EQ(_wfindnext64i32(listing, &entry), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(_findclose(listing), 0);
  EXPECT_EQ(_wfindfirst64i32(folder.wide("no*").c_str(), &entry), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(_wfindnext64i32(listing, &entry), -1);
  EXPECT_EQ(errno, EINVAL);
}

// --- walks -------------------------------------------------------------------------------------

std::set<std::wstring> walkThrough(const std::string& native, std::vector<int>& errors) {
  std::set<std::wstring> seen;
  FolderWalk walk;
  EXPECT_EQ(walk.begin(native), 0);
  for (FolderWalk::Step step = walk.next(); step != FolderWalk::ended; step = walk.next()) {
    if (step == FolderWalk::failed) errors.push_back(walk.error());
    if (step == FolderWalk::file || step == FolderWalk::left) seen.insert(walk.path());
  }
  return seen;
}

TEST(FolderWalk, StaysBelowItsFolderAndOnItsFileSystem) {
  const TempFolder folder;
  fs::create_directories(folder / "walk/sub");
  fs::create_directories(folder / "outside/inner");
  writeBytes(folder / "walk/sub/file", "");
  fs::create_directory_symlink(folder / "outside", folder / "walk/link");
  std::vector<int> errors;
  const std::set<std::wstring> below = {L"", L"link", L"sub", L"sub\\file"};
  EXPECT_EQ(walkThrough(folder / "walk", errors), below);
  EXPECT_EQ(errors, std::vector<int>{});
  FolderWalk walk;
  EXPECT_NE(walk.begin(folder / "walk/link"), 0);
  // Mount points differ in what statx tells of them.
  static SystemCalls original;
  original = Calls();
  static std::uint64_t inode;
  struct stat sub {};
  ASSERT_EQ(::stat((folder / "walk/sub").c_str(), &sub), 0);
  inode = sub.st_ino;
  Calls().statx = [](int fd, const char* path, int flags, unsigned mask, struct statx* out) {
    const int result = original.statx(fd, path, flags, mask, out);
    if (out->stx_ino == inode) ++out->stx_mnt_id;
    return result;
  };
  const std::set<std::wstring> without_sub = {L"", L"link"};
  EXPECT_EQ(walkThrough(folder / "walk", errors), without_sub);
  EXPECT_EQ(errors, std::vector<int>{EXDEV});
  Calls() = original;
}

TEST(FolderWalk, GoesDeeperThanDescriptorsAndPathsReach) {
  const TempFolder folder;
  constexpr int depth = 1200;
  int at = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY);
  for (int i = 0; i < depth; ++i) {
    ASSERT_EQ(mkdirat(at, "a_long_name_for_a_folder", 0755), 0);
    const int next = openat(at, "a_long_name_for_a_folder", O_RDONLY | O_DIRECTORY);
    ::close(std::exchange(at, next));
  }
  ::close(at);
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit small{128, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &small);
  FolderWalk walk;
  int removed = 0;
  ASSERT_EQ(walk.begin(folder.path()), 0);
  for (FolderWalk::Step step = walk.next(); step != FolderWalk::ended; step = walk.next()) {
    ASSERT_NE(step, FolderWalk::failed) << walk.error();
    if (step == FolderWalk::left && walk.remove() == 0) ++removed;
  }
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(removed, depth + 1);
}

// --- places and copies -------------------------------------------------------------------------

class Places : public testing::Test {
 protected:
  Places() {
    for (const char* name : names) {
      const char* value = std::getenv(name);
      before.push_back(value ? std::optional<std::string>(value) : std::nullopt);
      unsetenv(name);
    }
    setenv("HOME", folder.path().c_str(), 1);
  }
  ~Places() override {
    for (std::size_t i = 0; i < before.size(); ++i) {
      if (before[i])
        setenv(names[i], before[i]->c_str(), 1);
      else
        unsetenv(names[i]);
    }
  }
  static std::wstring place(int number) {
    std::array<wchar_t, 260> path{};
    const LONG result = SHGetFolderPathW(nullptr, number, nullptr, 0, path.data());
    EXPECT_EQ(result < 0, path[0] == 0);
    return path.data();
  }
  static constexpr std::array names = {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME",
                                       "XDG_DOCUMENTS_DIR"};
  TempFolder folder;
  std::vector<std::optional<std::string>> before;
};

TEST_F(Places, LieWhereTheDesktopHasThem) {
  EXPECT_EQ(place(26), L"");
  EXPECT_EQ(place(26 | 0x8000), folder.wide(".config"));
  EXPECT_EQ(place(26), folder.wide(".config"));
  EXPECT_EQ(place(2 | 0x8000), folder.wide(".local/share/applications"));
  EXPECT_EQ(place(5 | 0x8000), folder.wide("Documents"));
  writeBytes(
      folder / ".config/user-dirs.dirs",
      "# comment\nXDG_DOCUMENTS_DIR_OLD=\"/no\"\n XDG_DOCUMENTS_DIR=\"$HOME/My \\\"Papers\"\n");
  EXPECT_EQ(place(5 | 0x8000), folder.wide() +
                                   L"\\My \xF022"
                                   L"Papers");
  setenv("XDG_DOCUMENTS_DIR", (folder / "env").c_str(), 1);
  EXPECT_EQ(place(5 | 0x8000), folder.wide("env"));
  setenv("XDG_CONFIG_HOME", "relative", 1);
  EXPECT_EQ(place(26), folder.wide(".config"));
  setenv("XDG_CONFIG_HOME", (folder / std::string(250, 'x')).c_str(), 1);
  EXPECT_EQ(place(26 | 0x8000), L"");
  EXPECT_EQ(place(35), L"C:\\var\\lib");
  EXPECT_EQ(place(99), L"");
}

TEST(ShellCopy, CopiesFilesFoldersAndReplaces) {
  const TempFolder folder;
  fs::create_directories(folder / "from/sub/deep");
  fs::create_directory(folder / "to");
  fs::create_directory(folder / "empty");
  writeBytes(folder / "from/a.txt", "new");
  writeBytes(folder / "from/b.stl", "b");
  writeBytes(folder / "from/sub/deep/c", "c");
  writeBytes(folder / "to/a.txt", "old");
  const auto copy = [&](std::string_view from, std::string_view to, int flags = 0) {
    const std::wstring source = folder.wide(from) + L'\0', target = folder.wide(to) + L'\0';
    SHFILEOPSTRUCTW operation{.wFunc = FO_COPY,
                              .pFrom = source.c_str(),
                              .pTo = target.c_str(),
                              .fFlags = static_cast<WORD>(flags | FOF_NOERRORUI)};
    return SHFileOperationW(&operation);
  };
  EXPECT_EQ(copy("from/*.*", "to", FOF_NORECURSION), 0);
  EXPECT_EQ(readBytes(folder / "to/a.txt"), "new");
  EXPECT_FALSE(fs::exists(folder / "to/sub"));
  EXPECT_EQ(copy("from/*", "to"), 0);
  EXPECT_EQ(readBytes(folder / "to/sub/deep/c"), "c");
  EXPECT_EQ(copy("from/b.stl", "to/new.stl"), 0);
  EXPECT_EQ(readBytes(folder / "to/new.stl"), "b");
  EXPECT_EQ(copy("empty/*.*", "to"), 0);
  EXPECT_EQ(copy("empty/x*", "to"), 2);
  EXPECT_EQ(copy("from/a.txt", "from/a.txt"), 0x71);
  EXPECT_EQ(copy("from", "from/sub"), 0x7D);
  EXPECT_EQ(copy("from/*", "none"), 3);
  // A full disk leaves the old file whole.
  writeBytes(folder / "from/a.txt", "newer");
  qeltest::forEachFault([] {}, [&] { copy("from/a.txt", "to"); },
                        [&](const qeltest::Fault&) {
                          const std::string content = readBytes(folder / "to/a.txt");
                          EXPECT_TRUE(content == "new" || content == "newer") << content;
                          EXPECT_EQ(std::distance(fs::directory_iterator(folder / "to"), {}), 4);
                        },
                        {{.kind = qeltest::Fault::fail_once, .error = ENOSPC},
                         {.kind = qeltest::Fault::cut_for_good}});
}

// --- arrays ------------------------------------------------------------------------------------

TEST(Arrays, GrowInsertAndKeepTheirBounds) {
  CStringArray texts;
  EXPECT_EQ(texts.GetData(), nullptr);
  EXPECT_EQ(texts.Add(L"b"), 0);
  texts.SetAtGrow(2, texts[0]);
  texts.InsertAt(0, texts[2], 2);
  texts.InsertAt(6, L"z");
  const std::vector<CStringW> expected = {L"b", L"b", L"b", L"", L"b", L"", L"z"};
  ASSERT_EQ(texts.GetSize(), 7);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(texts[i], expected[static_cast<std::size_t>(i)]) << i;
  EXPECT_EQ(texts.Append(texts), 7);
  texts.RemoveAt(1, 12);
  EXPECT_EQ(texts[1], L"z");
  EXPECT_EQ(texts.GetUpperBound(), 1);
  EXPECT_THROW(texts.GetAt(2), std::out_of_range);
  EXPECT_THROW(texts.SetAtGrow(-1, L""), std::out_of_range);
  EXPECT_THROW(texts.RemoveAt(1, 2), std::out_of_range);
  CByteArray bytes;
  bytes.SetSize(3);
  bytes[1] = 255;
  EXPECT_EQ(std::string(bytes.GetData(), bytes.GetData() + 3), std::string("\0\xFF\0", 3));
  EXPECT_STREQ(CWordArray().GetRuntimeClass()->m_name, "CWordArray");
}

}  // namespace
