// Deleting with and without undo, judged by the trash folders on the disk; renaming; folder chains.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/shell.h"
#include "qelbase/outside/system/syscalls_internal.h"

#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using namespace qel::sys;
using qeltest::Fault;
using qeltest::readBytes;
using qeltest::writeBytes;

std::string mounted;  // what lies here passes for another file system

int statWithMount(const char* path, struct stat* out) {
  const int result = ::stat(path, out);
  if (result == 0 && std::string_view(path).starts_with(mounted)) out->st_dev += 1;
  return result;
}

int renameWithMount(const char* from, const char* to) {
  const auto is_mounted = [](std::string_view path) { return path.starts_with(mounted); };
  if (is_mounted(from) == is_mounted(to)) {
    return renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
  }
  errno = EXDEV;
  return -1;
}

class Shell : public testing::Test {
 protected:
  void SetUp() override {
    setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1);
    fs::create_directory(folder / "desk");
    writeBytes(folder / "desk/part.stl", "content");
    clock.setTime(1'700'000'000).setZone(3600);
  }
  void TearDown() override {
    unsetenv("XDG_DATA_HOME");
    Calls() = original;
    SetShellQuestion({});
    SetShellReport({});
  }

  void mount(std::string_view name) {
    mounted = folder / name;
    fs::create_directory(mounted);
    Calls().stat = statWithMount;
    Calls().rename_noreplace = renameWithMount;
  }

  int remove(const std::wstring& path, int flags = FOF_ALLOWUNDO | FOF_NOCONFIRMATION) {
    const std::wstring list = path + L'\0';
    operation = {.wFunc = FO_DELETE, .pFrom = list.c_str(), .fFlags = static_cast<WORD>(flags)};
    return SHFileOperationW(&operation);
  }
  int removeAt(std::string_view name) { return remove(folder.wide(name)); }

  int rename(std::string_view from, std::string_view to) {
    const std::wstring source = folder.wide(from) + L'\0';
    const std::wstring target = folder.wide(to) + L'\0';
    operation = {.wFunc = FO_RENAME,
                 .pFrom = source.c_str(),
                 .pTo = target.c_str(),
                 .fFlags = FOF_ALLOWUNDO};
    return SHFileOperationW(&operation);
  }

  std::set<std::string> namesIn(std::string_view name) {
    std::set<std::string> names;
    if (!fs::exists(folder / name)) return names;
    for (const auto& entry : fs::directory_iterator(folder / name)) {
      names.insert(entry.path().filename());
    }
    return names;
  }
  using Names = std::set<std::string>;

  qeltest::TempFolder folder;
  ClockOverride clock;
  SystemCalls original = Calls();
  SHFILEOPSTRUCTW operation;
};

TEST_F(Shell, UndoMovesToTheTrashOfTheDesktop) {
  EXPECT_EQ(removeAt("desk/part.stl"), 0);
  EXPECT_EQ(namesIn("desk"), Names{});
  EXPECT_EQ(readBytes(folder / "data/Trash/files/part.stl"), "content");
  EXPECT_EQ(readBytes(folder / "data/Trash/info/part.stl.trashinfo"),
            "[Trash Info]\nPath=" + (folder / "desk/part.stl").string() +
                "\nDeletionDate=2023-11-14T23:13:20\n");
  struct stat status {};
  ASSERT_EQ(stat((folder / "data/Trash").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700);
}

TEST_F(Shell, TrashKeepsEverythingOfTheSameName) {
  for (const char* content : {"first", "second", "third"}) {
    writeBytes(folder / "desk/part.stl", content);
    EXPECT_EQ(removeAt("desk/part.stl"), 0);
  }
  fs::remove(folder / "data/Trash/info/part.stl.2.trashinfo");  // a stray file stays, too
  writeBytes(folder / "desk/part.stl", "fourth");
  EXPECT_EQ(removeAt("desk/part.stl"), 0);
  EXPECT_EQ(namesIn("data/Trash/files"),
            (Names{"part.stl", "part.stl.2", "part.stl.3", "part.stl.4"}));
  EXPECT_EQ(readBytes(folder / "data/Trash/files/part.stl.2"), "second");
  EXPECT_EQ(readBytes(folder / "data/Trash/files/part.stl.4"), "fourth");
  EXPECT_EQ(namesIn("data/Trash/info"),
            (Names{"part.stl.trashinfo", "part.stl.3.trashinfo", "part.stl.4.trashinfo"}));
}

TEST_F(Shell, TrashTakesFoldersLinksAndOddNames) {
  fs::create_directories(folder / "desk/deep/er");
  writeBytes(folder / "desk/deep/er/x", "x");
  fs::create_symlink("deep", folder / "desk/link");
  writeBytes(folder / "desk/50% \xC3\xA4\n\xFF", "odd");
  const std::string lengthy(252, 'n');
  writeBytes(folder / "desk" / lengthy, "long");
  EXPECT_EQ(removeAt("desk/link"), 0);
  EXPECT_EQ(removeAt("desk/deep"), 0);
  EXPECT_EQ(remove(folder.wide("desk") + L"\\50% \u00E4\uF00A\uF0FF"), 0);
  EXPECT_EQ(removeAt("desk/" + lengthy), 0);
  EXPECT_TRUE(fs::is_symlink(folder / "data/Trash/files/link"));
  EXPECT_EQ(readBytes(folder / "data/Trash/files/deep/er/x"), "x");
  EXPECT_NE(readBytes(folder / "data/Trash/info/50% \xC3\xA4\n\xFF.trashinfo")
                .find("/desk/50%25%20%C3%A4%0A%FF\n"),
            std::string::npos);
  EXPECT_NE(readBytes(folder / "data/Trash/info" / (lengthy.substr(0, 230) + ".trashinfo"))
                .find("/" + lengthy + "\n"),
            std::string::npos);
}

TEST_F(Shell, TrashOfAMountedFileSystemLiesThere) {
  mount("mnt");
  const std::string user = std::to_string(getuid());
  fs::create_directory(folder / "mnt/sub");
  writeBytes(folder / "mnt/sub/f", "f");
  EXPECT_EQ(removeAt("mnt/sub/f"), 0);
  const std::string own = "mnt/.Trash-" + user;
  EXPECT_EQ(readBytes(folder / (own + "/files/f")), "f");
  EXPECT_NE(readBytes(folder / (own + "/info/f.trashinfo")).find("\nPath=sub/f\n"),
            std::string::npos);

  // A shared trash comes first, if it is a real folder with the sticky bit.
  fs::create_directory(folder / "mnt/.Trash");
  writeBytes(folder / "mnt/g", "g");
  EXPECT_EQ(removeAt("mnt/g"), 0);
  EXPECT_EQ(namesIn(own + "/files"), (Names{"f", "g"}));
  fs::permissions(folder / "mnt/.Trash", fs::perms(01777));
  writeBytes(folder / "mnt/h", "h");
  EXPECT_EQ(removeAt("mnt/h"), 0);
  EXPECT_EQ(namesIn("mnt/.Trash/" + user + "/files"), Names{"h"});
}

TEST_F(Shell, WithoutATrashNothingIsDeleted) {
  mount("mnt");
  writeBytes(folder / "mnt/f", "f");
  fs::create_symlink(folder / "desk", folder / ("mnt/.Trash-" + std::to_string(getuid())));
  EXPECT_EQ(removeAt("mnt/f"), 5);
  EXPECT_EQ(readBytes(folder / "mnt/f"), "f");
  EXPECT_EQ(namesIn("desk"), Names{"part.stl"});
}

TEST_F(Shell, TrashUnderFaultsLosesNothing) {
  int result = -1;
  std::vector<Fault> faults = qeltest::usualFaults();
  faults.push_back({.kind = Fault::fail_once, .error = EIO, .reading = true});
  qeltest::forEachFault(
      [&] {
        fs::remove_all(folder / "data");
        writeBytes(folder / "desk/part.stl", "content");
      },
      [&] { result = removeAt("desk/part.stl"); },
      [&](const Fault& fault) {
        const bool here = fs::exists(folder / "desk/part.stl");
        EXPECT_EQ(here, result != 0);
        EXPECT_EQ(readBytes(folder / (here ? "desk/part.stl" : "data/Trash/files/part.stl")),
                  "content");
        if (!here) {
          EXPECT_TRUE(readBytes(folder / "data/Trash/info/part.stl.trashinfo").ends_with(":20\n"));
        }
        if (fault.kind == Fault::fail_for_good) return;
        EXPECT_EQ(namesIn("data/Trash/info").size(), here ? 0 : 1);
      },
      faults);
}

TEST_F(Shell, DeletesForGoodWithoutUndo) {
  fs::create_directories(folder / "desk/deep/er");
  writeBytes(folder / "desk/deep/er/x", "x");
  fs::create_symlink(folder / "desk/part.stl", folder / "desk/deep/link");
  EXPECT_EQ(remove(folder.wide("desk/deep"), FOF_NOCONFIRMATION), 0);
  EXPECT_EQ(namesIn("desk"), Names{"part.stl"});
  const fs::path before = fs::current_path();
  fs::current_path(folder / "desk");
  EXPECT_EQ(remove(L"part.stl"), 0);  // undo wants a full path
  fs::current_path(before);
  EXPECT_EQ(namesIn("desk"), Names{});
  EXPECT_EQ(namesIn("data/Trash/files"), Names{});
}

TEST_F(Shell, PatternsReachTheLastComponent) {
  writeBytes(folder / "desk/b.txt", "b");
  writeBytes(folder / "desk/C.TXT", "c");
  fs::create_directory(folder / "desk/d.txt");
  EXPECT_EQ(remove(folder.wide("desk/*.txt"), FOF_NOCONFIRMATION | FOF_FILESONLY), 0);
  EXPECT_EQ(namesIn("desk"), (Names{"d.txt", "part.stl"}));
  EXPECT_EQ(remove(folder.wide("desk/*.none"), FOF_NOCONFIRMATION), 2);
  EXPECT_EQ(remove(folder.wide("none/*"), FOF_NOCONFIRMATION), 3);
  EXPECT_EQ(remove(folder.wide("desk/*.*")), 0);
  EXPECT_EQ(namesIn("data/Trash/files"), (Names{"d.txt", "part.stl"}));
}

TEST_F(Shell, FailuresAreTold) {
  std::wstring reported;
  SetShellReport([&](const std::wstring& name, int) { reported = name; });
  EXPECT_EQ(removeAt("desk/none"), 2);
  EXPECT_EQ(reported, folder.wide("desk/none"));
  reported.clear();
  EXPECT_EQ(remove(folder.wide("none/x"), FOF_ALLOWUNDO | FOF_NOERRORUI), 3);
  EXPECT_EQ(reported, L"");
  EXPECT_EQ(remove(L"Z:\\x"), 0x7C);
  EXPECT_EQ(remove(L"C:\\"), 0x7C);
  EXPECT_EQ(remove(L".", FOF_NOCONFIRMATION), 0x7C);
  EXPECT_EQ(remove(L""), 0x7C);
  operation = {.wFunc = 1};
  EXPECT_EQ(SHFileOperationW(&operation), 87);
}

TEST_F(Shell, AsksBeforeDeletingUnlessToldNotTo) {
  bool answer = false;
  int asked = 0;
  SetShellQuestion([&](const std::vector<std::wstring>& names, bool undoable) {
    ++asked;
    return names.size() == 1 && undoable && answer;
  });
  EXPECT_EQ(remove(folder.wide("desk/part.stl"), FOF_ALLOWUNDO), 0);
  EXPECT_EQ(operation.fAnyOperationsAborted, 1);
  EXPECT_EQ(namesIn("desk"), Names{"part.stl"});
  answer = true;
  EXPECT_EQ(remove(folder.wide("desk/part.stl"), FOF_ALLOWUNDO), 0);
  EXPECT_EQ(operation.fAnyOperationsAborted, 0);
  EXPECT_EQ(namesIn("desk"), Names{});
  writeBytes(folder / "desk/part.stl", "");
  EXPECT_EQ(removeAt("desk/part.stl"), 0);
  EXPECT_EQ(asked, 2);
}

TEST_F(Shell, RenamesInTheSameFolderAlone) {
  writeBytes(folder / "desk/other", "other");
  EXPECT_EQ(rename("desk/part.stl", "desk/other"), 183);
  EXPECT_EQ(rename("desk/part.stl", "moved"), 0x73);
  EXPECT_EQ(rename("desk/part.stl", "desk/part.stl"), 0x71);
  EXPECT_EQ(rename("desk/none", "desk/new"), 2);
  EXPECT_EQ(rename("desk/part.stl", "desk/nul"), 0x7C);
  EXPECT_EQ(readBytes(folder / "desk/other"), "other");
  EXPECT_EQ(rename("desk/part.stl", "desk/new"), 0);
  EXPECT_EQ(namesIn("desk"), (Names{"new", "other"}));
  EXPECT_EQ(rename("desk", "renamed"), 0);
  EXPECT_EQ(namesIn("renamed"), (Names{"new", "other"}));
}

TEST_F(Shell, CreatesFolderChains) {
  const auto create = [&](std::string_view name) {
    return SHCreateDirectoryExW(nullptr, folder.wide(name).c_str(), nullptr);
  };
  EXPECT_EQ(create("a/b/c"), 0);
  EXPECT_TRUE(fs::is_directory(folder / "a/b/c"));
  EXPECT_EQ(create("a/b/c"), 183);
  EXPECT_EQ(create("desk/part.stl"), 183);
  EXPECT_EQ(create("desk/part.stl/x"), 3);
  EXPECT_EQ(create("new/lpt1"), 267);
  EXPECT_EQ(create("new/" + std::string(300, 'n')), 206);
  EXPECT_EQ(SHCreateDirectoryExW(nullptr, L"relative\\x", nullptr), 161);
  EXPECT_EQ(SHCreateDirectoryExW(nullptr, L"Z:\\x", nullptr), 3);
}

}  // namespace
