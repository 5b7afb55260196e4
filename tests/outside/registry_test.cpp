// Keys, values, access and files of the registry as a caller sees them.
#include "qelbase/outside/system/registry.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/text.h"

#include "tests/support/RegistryFolder.h"

using namespace qel::sys;
using namespace qeltest;

namespace {

class Registry : public testing::Test {
 protected:
  static HKEY make(HKEY parent, const wchar_t* path, REGSAM access = KEY_ALL_ACCESS) {
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExW(parent, path, 0, L"", 0, access, nullptr, &key, nullptr), 0);
    return key;
  }
  static LSTATUS openCode(HKEY parent, const wchar_t* path, REGSAM access = KEY_READ) {
    HKEY key = nullptr;
    const LSTATUS code = RegOpenKeyExW(parent, path, 0, access, &key);
    if (code == 0) RegCloseKey(key);
    return code;
  }
  static LSTATUS set(HKEY key, const wchar_t* name, const std::string& data, DWORD type = 3) {
    return RegSetValueExW(key, name, 0, type, data.data(), static_cast<DWORD>(data.size()));
  }
  // The bytes, or "code N".
  static std::string get(HKEY key, const wchar_t* name) {
    char data[64];
    DWORD size = sizeof data;
    const LSTATUS code = RegQueryValueExW(key, name, nullptr, nullptr, data, &size);
    return code == 0 ? std::string(data, size) : "code " + std::to_string(code);
  }
  static std::vector<std::wstring> subkeys(HKEY key) {
    std::vector<std::wstring> names;
    wchar_t name[256];
    while (RegEnumKeyW(key, static_cast<DWORD>(names.size()), name, 256) == 0) {
      names.emplace_back(name);
    }
    return names;
  }
  using Names = std::vector<std::wstring>;

  RegistryFolder m_registry;
};

// Threads open, use and close each other's keys: a handle stands for its own key, or for none.
TEST_F(Registry, HandlesAreRightOrStaleWhileOthersCloseThem) {
  constexpr int kKeys = 4;
  constexpr int kTurns = 4000;
  const std::array<const wchar_t*, kKeys> paths = {L"a", L"b", L"c", L"d"};
  for (int i = 0; i < kKeys; ++i) {
    const HKEY key = make(HKEY_CURRENT_USER, paths[i]);
    set(key, L"v", std::string(1, static_cast<char>('a' + i)));
    RegCloseKey(key);
  }
  std::array<std::atomic<HKEY>, kKeys> open{};
  std::atomic<int> right = 0, stale = 0, wrong = 0;
  const auto work = [&](int first) {
    for (int turn = 0; turn < kTurns; ++turn) {
      const int i = (first + turn) % kKeys;
      HKEY fresh = nullptr;
      if (RegOpenKeyExW(HKEY_CURRENT_USER, paths[i], 0, KEY_READ, &fresh) != 0) ++wrong;
      const HKEY old = open[i].exchange(fresh);
      const std::string text = get(open[i].load(), L"v");
      ++(text == std::string(1, static_cast<char>('a' + i)) ? right
         : text == "code 6"                                 ? stale
                                                            : wrong);
      if (!old) continue;
      const bool was_open = RegCloseKey(old) == 0;
      std::this_thread::yield();  // another key may get its place
      const bool is_stale = get(old, L"v") == "code 6" && RegCloseKey(old) == 6;
      if (!was_open || !is_stale) ++wrong;
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back(work, i);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_GT(right, 0);
  for (const auto& key : open) EXPECT_EQ(RegCloseKey(key), 0);
}

TEST_F(Registry, FindsNamesInAnyCaseAndKeepsTheFirst) {
  const HKEY key = make(HKEY_CURRENT_USER, L"Software\\Größe\\\xD83D");  // a lone surrogate
  set(key, L"Ärger", "1");
  set(key, L"äRGER", "2");
  EXPECT_EQ(get(key, L"ÄRGER"), "2");
  EXPECT_EQ(openCode(HKEY_CURRENT_USER, L"SOFTWARE\\GRÖßE\\\xD83D"), 0);
  EXPECT_EQ(openCode(HKEY_CURRENT_USER, L"software\\größe\\\xD83E"), 2);
  wchar_t name[16];
  DWORD size = 16;
  ASSERT_EQ(RegEnumValueW(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_STREQ(name, L"Ärger");
  EXPECT_EQ(size, 5U);
  size = 16;
  EXPECT_EQ(RegEnumValueW(key, 1, name, &size, nullptr, nullptr, nullptr, nullptr), 259);
}

TEST_F(Registry, TellsWhatIsWrongWithAPath) {
  make(HKEY_CURRENT_USER, L"Software\\A");
  const std::wstring longest(255, L'k'), too_long(256, L'k');
  struct {
    const wchar_t* path;
    LSTATUS opened;
  } const rows[] = {{L"Software\\A", 0},
                    {L"Software\\A\\", 0},
                    {L"\\Software", 161},
                    {L"Software\\B", 2},
                    {L"X\\Y\\Z", 2},
                    {L"Software\\\\A", 161},
                    {L"", 0},
                    {too_long.c_str(), 87},
                    {longest.c_str(), 2}};
  for (const auto& row : rows) {
    EXPECT_EQ(openCode(HKEY_CURRENT_USER, row.path), row.opened) << row.path;
  }
  HKEY same = nullptr;
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, nullptr, 0, KEY_READ, &same), 0);
  EXPECT_EQ(same, HKEY_CURRENT_USER);
  HKEY key = make(HKEY_CURRENT_USER, longest.c_str()), again = nullptr;
  EXPECT_EQ(RegOpenKeyW(key, L"", &again), 0);
  EXPECT_EQ(again, key);
  EXPECT_EQ(RegOpenKeyExW(key, nullptr, 0, KEY_READ, &again), 87);
  for (const HKEY top : {HKEY_LOCAL_MACHINE, HKEY_USERS}) {
    EXPECT_EQ(RegCreateKeyW(top, L"New", &again), 87);
  }
}

TEST_F(Registry, MeasuresBuffersBeforeItFillsThem) {
  const HKEY key = make(HKEY_CURRENT_USER, L"Software\\B");
  set(key, L"v", "12345");
  char data[8] = "-------";
  DWORD size = 4, type = 0;
  EXPECT_EQ(RegQueryValueExW(key, L"v", nullptr, &type, data, &size), 234);
  EXPECT_EQ(size, 5U);
  EXPECT_EQ(RegQueryValueExW(key, L"v", nullptr, nullptr, data, nullptr), 87);
  EXPECT_EQ(RegQueryValueExW(key, L"w", nullptr, nullptr, nullptr, &size), 2);
  size = 0;
  EXPECT_EQ(RegQueryValueExW(key, L"v", nullptr, &type, nullptr, &size), 0);
  EXPECT_EQ(size, 5U);
  EXPECT_EQ(type, 3U);
  wchar_t name[2];
  DWORD room = 1;
  EXPECT_EQ(RegEnumValueW(key, 0, name, &room, nullptr, nullptr, nullptr, nullptr), 234);
  make(key, L"ab");
  EXPECT_EQ(RegEnumKeyW(key, 0, name, 2), 234);
  EXPECT_EQ(RegEnumKeyW(key, 1, name, 2), 259);
}

TEST_F(Registry, DeletesLeavesAloneAndKnowsStaleHandles) {
  const HKEY top = make(HKEY_CURRENT_USER, L"Software\\T");
  const HKEY leaf = make(top, L"b\\c");
  make(top, L"a");
  EXPECT_EQ(subkeys(top), (Names{L"a", L"b"}));
  EXPECT_EQ(RegDeleteKeyW(top, L"b"), 5);
  EXPECT_EQ(RegDeleteKeyW(top, L"b\\c"), 0);
  EXPECT_EQ(get(leaf, L"v"), "code 1018");
  EXPECT_EQ(set(leaf, L"v", "1"), 1018);
  EXPECT_EQ(RegDeleteKeyW(top, L"b\\c"), 2);
  make(top, L"b\\c");  // another key of that name
  EXPECT_EQ(get(leaf, nullptr), "code 1018");
  EXPECT_EQ(RegCloseKey(leaf), 0);
  EXPECT_EQ(RegCloseKey(leaf), 6);
  EXPECT_EQ(get(leaf, nullptr), "code 6");
  EXPECT_EQ(RegCloseKey(HKEY_CURRENT_USER), 0);
}

TEST_F(Registry, ChecksTheHandlesAccess) {
  make(HKEY_CURRENT_USER, L"Software\\M");
  HKEY reads = nullptr, writes = nullptr;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\M", 0, KEY_READ, &reads), 0);
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\M", 0, KEY_SET_VALUE, &writes), 0);
  EXPECT_EQ(set(reads, L"v", "1"), 5);
  EXPECT_EQ(RegDeleteValueW(reads, L"v"), 5);
  EXPECT_EQ(set(writes, L"v", "1"), 0);
  EXPECT_EQ(get(writes, L"v"), "code 5");
  wchar_t name[8];
  EXPECT_EQ(RegEnumKeyW(writes, 0, name, 8), 5);
  EXPECT_EQ(RegNotifyChangeKeyValue(writes, 0, 1, nullptr, 1), 5);
  // Subkeys are a matter of the key, not of the handle.
  make(reads, L"sub");
  EXPECT_EQ(RegDeleteKeyW(reads, L"sub"), 0);
}

TEST_F(Registry, ReadsAReadOnlyMachineHive) {
  set(make(HKEY_LOCAL_MACHINE, L"Software\\Shared"), L"v", "old");
  for (const char* name : {"machine.hive", "machine.hive-wal"}) {
    chmod(m_registry.file(name).c_str(), 0444);
  }
  m_registry.reopen();
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyW(HKEY_LOCAL_MACHINE, L"Software\\Shared", &key), 0);
  EXPECT_EQ(get(key, L"v"), "old");
  EXPECT_EQ(set(key, L"v", "new"), 5);
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"Software\\Shared"), 5);
  EXPECT_EQ(RegCreateKeyW(HKEY_LOCAL_MACHINE, L"Software\\More", &key), 5);
  EXPECT_EQ(openCode(HKEY_LOCAL_MACHINE, L"Software\\Shared", KEY_ALL_ACCESS), 5);
  // New classes go to the user then.
  set(make(HKEY_CLASSES_ROOT, L"New.Class"), nullptr, "mine");
  EXPECT_EQ(openCode(HKEY_CURRENT_USER, L"Software\\Classes\\New.Class"), 0);
}

TEST_F(Registry, ShowsTheUsersClassesOverTheMachines) {
  set(make(HKEY_LOCAL_MACHINE, L"Software\\Classes\\.a"), L"both", "machine");
  set(make(HKEY_LOCAL_MACHINE, L"Software\\Classes\\.a"), L"machine", "m");
  set(make(HKEY_CURRENT_USER, L"Software\\Classes\\.a"), L"both", "user");
  make(HKEY_CURRENT_USER, L"Software\\Classes\\.b");
  const HKEY merged = make(HKEY_CLASSES_ROOT, L".A");
  EXPECT_EQ(get(merged, L"both"), "user");
  EXPECT_EQ(get(merged, L"machine"), "m");
  EXPECT_EQ(subkeys(HKEY_CLASSES_ROOT), (Names{L".a", L".b"}));
  EXPECT_EQ(set(merged, L"new", "n"), 0);
  EXPECT_EQ(get(make(HKEY_CURRENT_USER, L"Software\\Classes\\.a"), L"new"), "n");
  make(HKEY_CLASSES_ROOT, L".c");
  EXPECT_EQ(openCode(HKEY_LOCAL_MACHINE, L"Software\\Classes\\.c"), 0);
  EXPECT_EQ(RegDeleteKeyW(HKEY_CLASSES_ROOT, L".a"), 0);
  EXPECT_EQ(get(merged, L"machine"), "code 1018");
  EXPECT_EQ(subkeys(HKEY_CLASSES_ROOT), (Names{L".b", L".c"}));
}

TEST_F(Registry, ReadsTheProcessorFromTheMachine) {
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Hardware\\Description\\System\\CentralProcessor\\0",
                          0, KEY_READ, &key),
            0);
  std::ifstream cpuinfo("/proc/cpuinfo");
  std::string told{std::istreambuf_iterator<char>(cpuinfo), {}};
  char vendor[64];
  DWORD size = sizeof vendor;
  ASSERT_EQ(RegQueryValueExA(key, "VendorIdentifier", nullptr, nullptr, vendor, &size), 0);
  EXPECT_NE(told.find(vendor), std::string::npos) << vendor;
  EXPECT_EQ(set(key, L"v", "1"), 5);
  EXPECT_EQ(subkeys(HKEY_LOCAL_MACHINE), (Names{L"HARDWARE", L"Software", L"System"}));
}

TEST_F(Registry, KeepsDescriptors) {
  // A head with offsets, and an owner of one number at 20.
  std::string descriptor(20, '\0');
  descriptor[0] = 1;
  descriptor[3] = '\x80';
  descriptor[4] = 20;
  descriptor += std::string("\1\1\0\0\0\0\0\5\x12\0\0\0", 12);
  const HKEY key = make(HKEY_CURRENT_USER, L"Software\\S");
  EXPECT_EQ(RegSetKeySecurity(key, 1, descriptor.data()), 0);
  m_registry.reopen();
  char data[64];
  DWORD size = 8;
  HKEY again = make(HKEY_CURRENT_USER, L"Software\\S");
  EXPECT_EQ(RegGetKeySecurity(again, 1, data, &size), 122);
  EXPECT_EQ(size, descriptor.size());
  EXPECT_EQ(RegGetKeySecurity(again, 1, data, &size), 0);
  EXPECT_EQ(std::string(data, size), descriptor);
  EXPECT_EQ(RegGetKeySecurity(again, 4, data, &size), 0);
  EXPECT_EQ(size, 20U);
  EXPECT_EQ(RegSetKeySecurity(again, 1, "\7"), 1338);
}

TEST_F(Registry, SavesAndRestoresATree) {
  const HKEY key = make(HKEY_CURRENT_USER, L"Software\\Save");
  set(make(key, L"a\\b"), L"v", "saved");
  HKEY passing = nullptr;
  ASSERT_EQ(RegCreateKeyExW(key, L"passing", 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS,
                            nullptr, &passing, nullptr),
            0);
  HKEY child = nullptr;
  EXPECT_EQ(RegCreateKeyW(passing, L"lasting", &child), 1021);
  const std::wstring file = m_registry.folder().wide("saved.hive");
  EXPECT_EQ(RegSaveKeyW(key, file.c_str(), nullptr), 0);
  EXPECT_EQ(RegSaveKeyW(key, file.c_str(), nullptr), 183);
  EXPECT_EQ(RegSaveKeyW(key, m_registry.folder().wide("no/x").c_str(), nullptr), 3);

  const HKEY other = make(HKEY_CURRENT_USER, L"Software\\Other");
  const HKEY below = make(other, L"old");
  EXPECT_EQ(RegRestoreKeyW(other, file.c_str(), 0), 5);
  EXPECT_EQ(RegRestoreKeyW(other, file.c_str(), REG_FORCE_RESTORE), 0);
  EXPECT_EQ(get(below, nullptr), "code 1018");
  EXPECT_EQ(subkeys(other), Names{L"a"});
  EXPECT_EQ(get(make(other, L"a\\b"), L"v"), "saved");
  EXPECT_EQ(RegRestoreKeyW(other, L"C:\\nowhere\\x", REG_FORCE_RESTORE), 3);
}

TEST_F(Registry, HangsHivesInForAllUntilTheyAreTakenOut) {
  const std::wstring file = m_registry.folder().wide("loaded.hive");
  EXPECT_EQ(RegLoadKeyW(HKEY_CURRENT_USER, L"L", file.c_str()), 87);
  ASSERT_EQ(RegLoadKeyW(HKEY_LOCAL_MACHINE, L"L", file.c_str()), 0);
  set(make(HKEY_LOCAL_MACHINE, L"L\\deep\\er"), L"v", "1");
  m_registry.reopen();
  EXPECT_EQ(get(make(HKEY_LOCAL_MACHINE, L"l\\deep\\er"), L"v"), "1");
  EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"L\\deep\\er"), 0);
  EXPECT_EQ(RegUnLoadKeyW(HKEY_LOCAL_MACHINE, L"L"), 0);
  EXPECT_EQ(openCode(HKEY_LOCAL_MACHINE, L"L"), 2);
  EXPECT_EQ(RegUnLoadKeyW(HKEY_LOCAL_MACHINE, L"L"), 87);
}

TEST_F(Registry, ReplacesAHiveAtItsNextOpening) {
  set(make(HKEY_CURRENT_USER, L"Software\\R"), L"v", "new");
  const auto wide = [&](const char* name) { return m_registry.folder().wide(name); };
  ASSERT_EQ(RegSaveKeyW(HKEY_CURRENT_USER, wide("new.hive").c_str(), nullptr), 0);
  set(make(HKEY_CURRENT_USER, L"Software\\R"), L"v", "old");
  EXPECT_EQ(RegReplaceKeyW(HKEY_CURRENT_USER, L"Software\\R", wide("new.hive").c_str(),
                           wide("old.hive").c_str()),
            87);
  ASSERT_EQ(
      RegReplaceKeyW(HKEY_CURRENT_USER, L"", wide("new.hive").c_str(), wide("old.hive").c_str()),
      0);
  EXPECT_EQ(get(make(HKEY_CURRENT_USER, L"Software\\R"), L"v"), "old");
  m_registry.reopen();
  EXPECT_EQ(get(make(HKEY_CURRENT_USER, L"Software\\R"), L"v"), "new");
  ASSERT_EQ(RegRestoreKeyW(HKEY_CURRENT_USER, wide("old.hive").c_str(), REG_FORCE_RESTORE), 0);
  EXPECT_EQ(get(make(HKEY_CURRENT_USER, L"Software\\R"), L"v"), "old");
}

TEST_F(Registry, RefusesForeignAndDamagedFilesAndLeavesThemAlone) {
  make(HKEY_CURRENT_USER, L"Software\\X");
  const std::wstring saved = m_registry.folder().wide("whole");
  ASSERT_EQ(RegSaveKeyW(HKEY_CURRENT_USER, saved.c_str(), nullptr), 0);
  const std::string whole = readBytes(m_registry.file("whole"));
  sqlite3* database = nullptr;
  sqlite3_open(m_registry.file("foreign").c_str(), &database);
  sqlite3_exec(database, "CREATE TABLE keys(id)", nullptr, nullptr, nullptr);
  sqlite3_close(database);
  const std::string rows[] = {"no database at all, but longer than a header would be: " + whole,
                              whole.substr(0, whole.size() / 2), whole.substr(0, 100),
                              readBytes(m_registry.file("foreign"))};
  for (const std::string& bytes : rows) {
    writeBytes(m_registry.file("bad"), bytes);
    const std::wstring bad = m_registry.folder().wide("bad");
    const LSTATUS loaded = RegLoadKeyW(HKEY_LOCAL_MACHINE, L"Bad", bad.c_str());
    EXPECT_TRUE(loaded == 1009 || loaded == 1017) << loaded << " of " << bytes.size();
    const LSTATUS restored = RegRestoreKeyW(HKEY_CURRENT_USER, bad.c_str(), REG_FORCE_RESTORE);
    EXPECT_TRUE(restored == 1009 || restored == 1017) << restored << " of " << bytes.size();
    EXPECT_EQ(readBytes(m_registry.file("bad")), bytes);
    EXPECT_EQ(openCode(HKEY_CURRENT_USER, L"Software\\X"), 0);
  }
}

TEST_F(Registry, TakesOverTheEarlierLayoutAndLeavesALaterOneAlone) {
  const auto change = [&](const char* file, const char* sql) {
    registry::UseRegistryFolder("/nowhere/qeltest");
    sqlite3* database = nullptr;
    sqlite3_open(m_registry.file(file).c_str(), &database);
    EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql;
    sqlite3_close(database);
    m_registry.reopen();
  };
  constexpr const char* kEarlier =
      "ALTER TABLE entries DROP COLUMN changed; PRAGMA user_version = 1";
  set(make(HKEY_CURRENT_USER, L"Software\\E"), L"v", "kept");
  const std::wstring saved = m_registry.folder().wide("saved");
  ASSERT_EQ(RegSaveKeyW(HKEY_CURRENT_USER, saved.c_str(), nullptr), 0);
  change("saved", kEarlier);
  change("user.hive", kEarlier);
  const HKEY key = make(HKEY_CURRENT_USER, L"Software\\E");
  EXPECT_EQ(get(key, L"v"), "kept");
  EXPECT_EQ(set(key, L"v", "new"), 0);
  FILETIME written{};
  EXPECT_EQ(RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, nullptr, nullptr, &written),
            0);
  ASSERT_EQ(RegRestoreKeyW(HKEY_CURRENT_USER, saved.c_str(), REG_FORCE_RESTORE), 0);
  EXPECT_EQ(get(make(HKEY_CURRENT_USER, L"Software\\E"), L"v"), "kept");
  change("user.hive", "PRAGMA user_version = 99");
  EXPECT_EQ(openCode(HKEY_CURRENT_USER, L"Software\\E"), 1017);
}

TEST_F(Registry, TellsSizesAndTimes) {
  const HKEY key = make(HKEY_CURRENT_USER, L"Software\\I");
  make(key, L"four");
  FILETIME before{}, after{};
  DWORD subkeys = 0, longest_key = 0, values = 0, longest_name = 0, longest_data = 0;
  const auto info = [&](FILETIME& time) {
    return RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subkeys, &longest_key, nullptr,
                            &values, &longest_name, &longest_data, nullptr, &time);
  };
  ASSERT_EQ(info(before), 0);
  set(key, L"name", "7 bytes");
  ASSERT_EQ(info(after), 0);
  EXPECT_EQ(std::vector<DWORD>({subkeys, longest_key, values, longest_name, longest_data}),
            std::vector<DWORD>({1, 4, 1, 4, 7}));
  const auto ticks = [](FILETIME t) {
    return std::uint64_t(t.dwHighDateTime) << 32 | t.dwLowDateTime;
  };
  EXPECT_GT(ticks(after), ticks(before));
  const auto seconds = static_cast<std::int64_t>(ticks(after) / 10'000'000) - 11'644'473'600;
  EXPECT_NEAR(static_cast<double>(seconds), static_cast<double>(time(nullptr)), 100);
}

TEST_F(Registry, ReachesThisMachineAlone) {
  wchar_t name[16];
  DWORD size = 16;
  ASSERT_TRUE(GetComputerNameW(name, &size));
  EXPECT_EQ(size, wcslen(name));
  HKEY root = nullptr;
  EXPECT_EQ(RegConnectRegistryW(name, HKEY_USERS, &root), 0);
  EXPECT_EQ(RegConnectRegistryW(L"\\\\elsewhere", HKEY_USERS, &root), 53);
  size = 1;
  EXPECT_FALSE(GetComputerNameW(name, &size));
  EXPECT_EQ(GetLastError(), 111U);
}

}  // namespace
