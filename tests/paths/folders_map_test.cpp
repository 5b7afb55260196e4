// Folders under names that the file system refuses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>

#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/paths/MDirectory.h"
#include "qelbase/paths/MDirectoryWithMap.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/paths/MTempCleaner.h"
#include "qelbase/paths/folder_functions.h"

#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using qeltest::Fault;
using qeltest::readBytes;
using qeltest::TempFolder;
using qeltest::writeBytes;

class MappedFolder : public testing::Test {
 protected:
  MappedFolder() { ticks.setTickCount(0x1A2A); }  // so the first generated name is map1a2b

  CStringW parent() const { return (folder.wide() + L"\\").c_str(); }
  std::uint32_t create(MDirectoryWithMap& map, const wchar_t* name, bool read = true) {
    path = parent();
    return map.CheckCreateFolder(path, name, read);
  }
  std::uint32_t remove(const wchar_t* name, IDirectoryRemoveAsker* asker = nullptr) {
    MDirectoryWithMap map;
    path = parent();
    return map.DeleteFolder(path, name, true, asker);
  }
  std::uint32_t read(MDirectoryWithMap& map, std::uint16_t flags = 13,
                     const wchar_t* pattern = nullptr) {
    return map.Read(parent(), flags, nullptr, pattern, nullptr);
  }
  void makeFolders(std::initializer_list<const char*> names) {
    for (const char* name : names) fs::create_directories(folder / name);
  }
  void writeMap(std::string_view bytes) { writeBytes(folder / ".map", bytes); }
  std::string mapBytes() const { return readBytes(folder / ".map"); }
  // "name=mapped" where there is a mapped name, each with its flags.
  static std::map<std::wstring, int> entries(const MDirectoryWithMap& map) {
    std::map<std::wstring, int> result;
    CStringW name, mapped;
    for (std::int64_t i = 0; i < map.GetCount(); ++i) {
      map.GetName(name, i);
      map.GetMappedName(mapped, i);
      const std::wstring shown = name.GetString();
      result[name == mapped ? shown : shown + L"=" + mapped.GetString()] = map.GetNameFlags(i);
    }
    return result;
  }
  using Entries = std::map<std::wstring, int>;

  TempFolder folder;
  CStringW path;
  qel::sys::ClockOverride ticks;
};

const std::wstring long_name(300, L'n');

TEST_F(MappedFolder, AcceptedNameNeedsNoMap) {
  MDirectoryWithMap map;
  EXPECT_EQ(create(map, L"plain"), 0);
  EXPECT_EQ(path, (folder.wide("plain") + L"\\").c_str());
  EXPECT_TRUE(fs::is_directory(folder / "plain"));
  EXPECT_FALSE(fs::exists(folder / ".map"));
  EXPECT_EQ(map.GetNameFlags(map.GetNameIndex(L"PLAIN")), 4);
  makeFolders({"Plain"});  // another folder here
  EXPECT_EQ(create(map, L"Plain"), 0);
  EXPECT_EQ(path, (folder.wide("Plain") + L"\\").c_str());
}

TEST_F(MappedFolder, RefusedNameGetsAGeneratedOneThatIsFoundAgain) {
  MDirectoryWithMap map;
  EXPECT_EQ(create(map, L"a?b\\\u00E4"), 0);
  EXPECT_EQ(path, (folder.wide("map1a2b") + L"\\").c_str());
  EXPECT_EQ(mapBytes(), "\nmap1a2b->a?b\\\xC3\xA4");
  EXPECT_EQ(create(map, long_name.c_str(), false), 0);
  EXPECT_EQ(create(map, L"con", false), 0);
  const std::string bytes = mapBytes();
  EXPECT_EQ(bytes,
            "\nmap1a2b->a?b\\\xC3\xA4\nmap1a2c->" + std::string(300, 'n') + "\nmap1a2d->con");
  for (const bool reads : {true, false}) {
    MDirectoryWithMap fresh;
    EXPECT_EQ(create(fresh, L"A?B\\\u00C4", reads), 0);
    EXPECT_EQ(path, (folder.wide("map1a2b") + L"\\").c_str());
  }
  EXPECT_EQ(mapBytes(), bytes);
  EXPECT_EQ(read(map), 0);
  EXPECT_EQ(
      entries(map),
      (Entries{{L"map1a2b=a?b\\\u00E4", 5}, {L"map1a2c=" + long_name, 5}, {L"map1a2d=con", 5}}));
  CStringW name;
  EXPECT_TRUE(map.GetNonmappedName(name, L"CON"));
  EXPECT_EQ(name, L"map1a2d");
  EXPECT_TRUE(map.GetNonmappedName(name, L"MAP1A2C"));
  EXPECT_EQ(name, L"map1a2c");
  EXPECT_FALSE(map.GetNonmappedName(name, L"none"));
  EXPECT_EQ(map.GetMappedNameIndex(L"Con"), 2);
  EXPECT_EQ(map.RemoveName(L"map1a2b"), 5);
  EXPECT_EQ(map.RemoveName(L"map1a2b"), 0);
  EXPECT_EQ(map.GetMappedNameIndex(L"Con"), 1);
  EXPECT_FALSE(map.MappedName2Name(L"a?b\\\u00E4", nullptr));
}

TEST_F(MappedFolder, NameThatNoRecordCanHoldIsRefused) {
  for (const std::wstring& name :
       {std::wstring(L"a?\nb"), std::wstring(L" a?"), std::wstring(L"b? "), std::wstring(600, L'n'),
        std::wstring(L"."), std::wstring(L".."), std::wstring(L"..."), std::wstring(L" ")}) {
    MDirectoryWithMap map;
    EXPECT_EQ(create(map, name.c_str()), 123);
  }
  MDirectoryWithMap map;
  EXPECT_EQ(create(map, L""), 87);
  EXPECT_TRUE(fs::is_empty(folder.path()));
}

// What a map file holds, what a reader finds: an entry name=mapped for each folder a to d, or 1017.
TEST_F(MappedFolder, ReadsRecordsOfAnyShape) {
  makeFolders({"a", "b", "c", "d"});
  const Entries none = {{L"a", 4}, {L"b", 4}, {L"c", 4}, {L"d", 4}};
  const auto with = [](const std::wstring& mapped) {
    return Entries{{L"a=" + mapped, 5}, {L"b", 4}, {L"c", 4}, {L"d", 4}};
  };
  struct Row {
    std::string bytes;
    Entries expected;  // empty: contradiction
  };
  const std::string junk(524, 'j');
  const std::vector<Row> rows = {
      {"", none},
      {"\na->x", with(L"x")},
      {"a->x\n", with(L"x")},
      {"  a\t -> x y \r\n[c->d]\n[\nb->\n->c\nd-x\n", with(L"x y")},
      {"\na->x->y", with(L"x->y")},
      {"\na->x\na->y", with(L"y")},
      {"\nA->X", with(L"X")},
      {"\na->x\nb->x", {}},
      {"\na->x\nb->X", {}},
      {"\na->x\nA->x", {}},
      {"\na->B", {}},
      {"\na->a", {}},
      {"\ngone->x\na->y", with(L"y")},
      {"\na->x\x1A\nb->y", with(L"x")},
      {std::string("\na->x\0z\n", 8), with(L"x")},
      {junk + "a->xxyy", none},
      {std::string(529, 'j') + "a->x", with(L"x")},
      {"\na->" + std::string(530, 'x'), with(std::wstring(526, L'x'))},
      {"\na->\xFF\xC3", with(L"\xF0FF\xF0C3")},
  };
  for (const Row& row : rows) {
    writeMap(row.bytes);
    MDirectoryWithMap map;
    EXPECT_EQ(read(map), row.expected.empty() ? 1017 : 0) << row.bytes;
    EXPECT_EQ(entries(map), row.expected) << row.bytes;
  }
}

TEST_F(MappedFolder, WritesWhatIsStillUsed) {
  makeFolders({"a", "b"});
  writeMap("a->x\ngone->y\nb->z\n");
  fs::permissions(folder / ".map", fs::perms(0640));
  MDirectoryWithMap map;
  EXPECT_EQ(read(map), 0);
  EXPECT_EQ(map.WriteMapFile(parent(), L".map"), 0);
  EXPECT_EQ(mapBytes(), "\na->x\nb->z");
  EXPECT_EQ(fs::status(folder / ".map").permissions(), fs::perms(0640));
  EXPECT_EQ(map.WriteMapFile((folder.wide("none/.map")).c_str(), nullptr), 3);
  fs::permissions(folder / ".map", fs::perms(0440));
  EXPECT_EQ(map.WriteMapFile(parent(), L".map"), 5);
  makeFolders({"dir"});
  EXPECT_EQ(map.WriteMapFile(parent(), L"dir"), 5);
}

TEST_F(MappedFolder, MapThatIsNoneOrFarTooLarge) {
  makeFolders({".map", "a"});
  MDirectoryWithMap map;
  EXPECT_EQ(read(map), 0);
  EXPECT_EQ(entries(map), (Entries{{L".map", 4}, {L"a", 4}}));
  EXPECT_EQ(create(map, L"a?", false), 29);
  EXPECT_FALSE(fs::exists(folder / "map1a2b"));
  fs::remove(folder / ".map");
  writeMap("");
  fs::resize_file(folder / ".map", 1 << 30);
  EXPECT_EQ(read(map), 30);
  EXPECT_EQ(map.GetCount(), 0);
}

TEST_F(MappedFolder, ReadingFollowsFlagsAndPatterns) {
  makeFolders({"a/in/deep", "b"});
  writeBytes(folder / "f.txt", "");
  writeBytes(folder / "a/g.txt", "");
  writeBytes(folder / "bad\xFF", "");
  writeMap("\na->x");
  fs::create_directory_symlink("..", folder / "a/up");
  MDirectoryWithMap map;
  EXPECT_EQ(read(map, 15), 0);
  EXPECT_EQ(
      entries(map),
      (Entries{{L".", 6}, {L"..", 6}, {L"a=x", 5}, {L"b", 4}, {L"bad\xF0FF", 8}, {L"f.txt", 8}}));
  EXPECT_EQ(read(map, 12), 0);
  EXPECT_EQ(map.GetNameFlags(map.GetNameIndex(L".map")), 8);
  EXPECT_EQ(read(map, 8, L"*.none"), 2);
  EXPECT_EQ(read(map, 24, L"*.none"), 0);
  EXPECT_EQ(map.GetCount(), 0);
  EXPECT_EQ(read(map, 24, L"*.TXT"), 0);
  EXPECT_EQ(entries(map), (Entries{{L"a\\g.txt", 8}, {L"f.txt", 8}}));
  EXPECT_EQ(read(map, 20), 0);
  EXPECT_EQ(entries(map),
            (Entries{{L"a\\in\\deep", 4}, {L"a\\in", 4}, {L"a\\up", 4}, {L"a", 4}, {L"b", 4}}));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(map.Read(parent(), 8, nullptr, L"f.*", L"again"), 0);
  EXPECT_EQ(map.RemoveName(L"again\\f.txt"), 8);
  EXPECT_EQ(map.GetNameIndex(L"again\\F.txt"), 5);  // the other one
  EXPECT_EQ(map.Read(folder.wide("none").c_str(), 12, nullptr, nullptr, nullptr), 3);
  EXPECT_EQ(map.GetCount(), 0);
}

TEST_F(MappedFolder, RecordWhoseFolderIsGoneIsReplaced) {
  for (const bool reads : {true, false}) {
    writeMap("\nmap9->a?\nmapgone->b?\nmap8->c?");
    makeFolders({"map9", "map8"});
    MDirectoryWithMap map;
    EXPECT_EQ(create(map, L"B?", reads), 0);
    EXPECT_EQ(mapBytes(), "\nmap9->a?\nmap8->c?\nmap1a2b->B?");
    EXPECT_EQ(create(map, L"c?", false), 0);
    EXPECT_EQ(path, (folder.wide("map8") + L"\\").c_str());
    EXPECT_EQ(read(map), 0);
    fs::remove(folder / "map1a2b");
  }
}

// --- deleting ----------------------------------------------------------------------------------

struct Asker final : IDirectoryRemoveAsker {
  std::uint32_t AskRemove(bool is_folder, const wchar_t* path, const wchar_t* name) override {
    const std::wstring text(path);
    EXPECT_TRUE(text.ends_with(L"\\" + std::wstring(name)));
    asked.push_back((is_folder ? L"+" : L"-") + std::wstring(name));
    return name == stop_at ? answer : 0;
  }
  std::vector<std::wstring> asked;
  std::wstring stop_at;
  std::uint32_t answer = 0;
};

TEST_F(MappedFolder, IsDeletedWithItsContentAndRecord) {
  makeFolders({"map9/b/c", "map9/a", "map8"});
  writeBytes(folder / "map9/b/f", "");
  writeBytes(folder / "map9/d\xFF", "");
  writeMap("\nmap9->a?\nmap8->c?");
  Asker asker;
  EXPECT_EQ(remove(L"A?", &asker), 0);
  EXPECT_EQ(asker.asked,
            (std::vector<std::wstring>{L"+a", L"+c", L"-f", L"+b", L"-d\xF0FF", L"+map9"}));
  EXPECT_FALSE(fs::exists(folder / "map9"));
  EXPECT_EQ(mapBytes(), "\nmap8->c?");
}

TEST_F(MappedFolder, DeletionStopsWhereTheAskerOrTheSystemSays) {
  makeFolders({"t/a", "t/z"});
  writeBytes(folder / "t/a/f", "");
  writeBytes(folder / "t/a/read_only", "");
  fs::permissions(folder / "t/a/read_only", fs::perms::owner_read);
  Asker asker;
  asker.stop_at = L"f";
  asker.answer = 0xFFFFFFFF;
  EXPECT_EQ(remove(L"t", &asker), 1223);
  EXPECT_EQ(path, folder.wide("t/a/f").c_str());
  asker.answer = 77;
  EXPECT_EQ(remove(L"t", &asker), 77);
  EXPECT_TRUE(fs::exists(folder / "t/a/f"));
  EXPECT_EQ(remove(L"t"), 5);
  EXPECT_EQ(path, folder.wide("t/a/read_only").c_str());
  fs::permissions(folder / "t/a/read_only", fs::perms::owner_all);
  const auto held = qel::sys::CreateFileW(folder.wide("t/a/read_only").c_str(),
                                          qel::sys::GENERIC_READ, 1, nullptr, 3, 0, nullptr);
  EXPECT_EQ(remove(L"t"), 32);
  qel::sys::CloseHandle(held);
  EXPECT_EQ(remove(L"t"), 0);
  EXPECT_EQ(remove(L"t"), 2);
  makeFolders({"map9"});
  writeMap("\nmap9->a?");
  MDirectoryWithMap map;
  EXPECT_EQ(read(map), 0);
  fs::remove(folder / ".map");
  path = parent();
  EXPECT_EQ(map.DeleteFolder(path, L"a?", false, nullptr), 5);
  EXPECT_EQ(path, folder.wide(".map").c_str());
}

TEST_F(MappedFolder, DeletionNeverLeavesTheFolder) {
  makeFolders({"kept/inner", "t"});
  fs::create_directory_symlink(folder / "kept", folder / "t/link");
  fs::create_directory_symlink(folder / "kept", folder / "link");
  for (const wchar_t* name : {L"", L".", L"..", L"...", L" ", L"t\\..", L"t\\..\\..", L"..\\x"}) {
    EXPECT_EQ(remove(name), 87) << name;
  }
  EXPECT_EQ(remove(L"t"), 0);
  EXPECT_EQ(remove(L"link"), 0);
  EXPECT_FALSE(fs::exists(fs::symlink_status(folder / "link")));
  EXPECT_TRUE(fs::exists(folder / "kept/inner"));
  // A folder that becomes a link between the two looks.
  struct Swapper final : IDirectoryRemoveAsker {
    std::uint32_t AskRemove(bool, const wchar_t*, const wchar_t* name) override {
      if (std::wstring(name) == L"first") swap();
      return 0;
    }
    std::function<void()> swap;
  } swapper;
  makeFolders({"t/later"});
  writeBytes(folder / "t/first", "");
  swapper.swap = [&] {
    fs::remove(folder / "t/later");
    fs::create_directory_symlink(folder / "kept", folder / "t/later");
  };
  EXPECT_EQ(remove(L"t", &swapper), 0);
  EXPECT_TRUE(fs::exists(folder / "kept/inner"));
}

// In a process of an ordinary user, as root is refused nothing.
TEST_F(MappedFolder, MissingPermissionIsToldAtEachStep) {
  makeFolders({"closed/full", "dark", "tree/a", "tree/z", "open"});
  for (const char* file : {"closed/full/f", "tree/a/f"}) writeBytes(folder / file, "");
  writeBytes(folder / "open/.map", "\nmap9->a?");
  const auto permit = [&](const char* name, unsigned mode) {
    fs::permissions(folder / name, fs::perms(mode));
  };
  permit("", 0755);
  for (const char* name : {"tree", "tree/a", "open"}) permit(name, 0777);
  for (const char* name : {"closed/full", "closed"}) permit(name, 0555);
  for (const char* name : {"dark", "tree/z", "open/.map"}) permit(name, 0);
  const auto end = qeltest::runInChild([&] {
    if (geteuid() == 0 && setuid(65534) != 0) _exit(126);
    const CStringW closed = (folder.wide("closed") + L"\\").c_str();
    EXPECT_FALSE(mkdirchain(closed + L"x\\y"));
    EXPECT_EQ(qel::sys::GetLastError(), 5);
    MDirectoryWithMap map;
    for (const wchar_t* name : {L"x", L"x?"}) {
      path = closed;
      EXPECT_EQ(map.CheckCreateFolder(path, name, true), 5) << name;
    }
    path = closed;
    EXPECT_EQ(map.DeleteFolder(path, L"full", true, nullptr), 5);
    EXPECT_EQ(path, closed + L"full\\f");
    EXPECT_EQ(map.WriteMapFile(closed, L".map"), 5);
    EXPECT_EQ(MFolderLocker().Lock(closed), 5);
    const MFileName inside(closed, true);
    MTempCleaner run(L"abc", &inside);
    run.Init();
    EXPECT_EQ(run.GetCurPath(), L"");
    EXPECT_FALSE(MFileName(closed + L"full", true).REMOVE());
    EXPECT_FALSE(MFileName(closed + L"f", false).COPY_FILE(MFileName(closed + L"full\\f", false)));
    EXPECT_FALSE(MDirectory::CopyDirectoryContents(closed + L"full", closed + L"x", false));

    const CStringW dark = folder.wide("dark").c_str();
    EXPECT_EQ(map.Read(dark, 13, nullptr, nullptr, nullptr), 5);
    EXPECT_FALSE(MDirectory::DirectoryHasAccess(dark, qel::sys::GENERIC_READ));
    EXPECT_TRUE(MDirectory::IsDirectoryEmpty(dark));  // for all that it can tell
    EXPECT_EQ(remove(L"tree"), 5);
    EXPECT_EQ(path, folder.wide("tree/z").c_str());
    EXPECT_TRUE(fs::exists(folder / "tree/a/f"));  // everything is looked at first
    path = (folder.wide("open") + L"\\").c_str();
    EXPECT_EQ(map.CheckCreateFolder(path, L"b?", true), 29);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "open"), {}), 1);
  });
  EXPECT_EQ(end.exit_code, 0);
  for (const char* name : {"closed", "closed/full", "dark", "tree/z"}) permit(name, 0700);
}

// --- faults and kills --------------------------------------------------------------------------

class MappedFolderFaults : public MappedFolder {
 protected:
  void prepare() {
    for (const auto& entry : fs::directory_iterator(folder.path())) fs::remove_all(entry.path());
    makeFolders({"map9"});
    writeMap("\nmap9->a?\nmapgone->stale?");
  }
  // Whatever happened: all that was mapped still is, and each generated folder has its record.
  void checkWhole() {
    MDirectoryWithMap map;
    ASSERT_EQ(read(map), 0) << mapBytes();
    EXPECT_TRUE(map.MappedName2Name(L"a?", nullptr)) << mapBytes();
    for (const auto& [name, flags] : entries(map)) {
      EXPECT_EQ(flags, name.starts_with(L"map") ? 5 : flags) << mapBytes();
    }
  }
  std::size_t generated() {
    std::size_t count = 0;
    for (const auto& entry : fs::directory_iterator(folder.path())) {
      count += entry.path().filename().string().starts_with("map") ? 1 : 0;
    }
    return count - 1;
  }
};

TEST_F(MappedFolderFaults, CreationIsWholeOrNotAtAll) {
  for (const wchar_t* name : {L"new?", L"stale?"}) {
    std::uint32_t code = 0;
    const auto run = [&] {
      MDirectoryWithMap map;
      code = create(map, name);
    };
    const auto checkAgain = [&](const Fault&) {
      checkWhole();
      run();
      EXPECT_EQ(code, 0);
      checkWhole();
      EXPECT_EQ(generated(), 1);
    };
    const auto check = [&](const Fault& fault) {
      // Where everything fails from some call on, nothing can be undone.
      if (code == 0 || fault.kind != Fault::fail_for_good) {
        EXPECT_EQ(generated(), code == 0 ? 1 : 0) << code;
      }
      checkAgain(fault);
    };
    qeltest::forEachFault([&] { prepare(); }, run, check);
    qeltest::forEachKill([&] { prepare(); }, run, checkAgain);
  }
}

TEST_F(MappedFolderFaults, DeletionKeepsTheOtherRecords) {
  const auto setUp = [&] {
    prepare();
    makeFolders({"map7/sub"});
    writeMap("\nmap9->a?\nmap7->b?");
  };
  const auto run = [&] { remove(L"b?"); };
  const auto check = [&](const Fault&) {
    checkWhole();
    if (fs::exists(folder / "map7")) {
      EXPECT_EQ(remove(L"b?"), 0);
    }
    MDirectoryWithMap map;
    EXPECT_EQ(create(map, L"b?"), 0);
    checkWhole();
  };
  qeltest::forEachFault(setUp, run, check);
  qeltest::forEachKill(setUp, run, check);
}

}  // namespace
