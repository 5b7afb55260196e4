// The registry on disks that fail, lose what was not synced or take no writes, and beside writers
// that die or stop in the middle.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <set>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/registry.h"

#include "tests/support/DatabaseCalls.h"
#include "tests/support/FaultyCalls.h"
#include "tests/support/RegistryFolder.h"

using namespace qel::sys;
using namespace qeltest;
namespace fs = std::filesystem;

namespace {

constexpr std::uint32_t kOld = 1, kNew = 2;

std::uint32_t get(const wchar_t* name) {
  HKEY key = nullptr;
  std::uint32_t value = 0;
  DWORD size = sizeof value;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\F", 0, KEY_READ, &key) != 0) return 0;
  const LSTATUS code = RegQueryValueExW(key, name, nullptr, nullptr, &value, &size);
  RegCloseKey(key);
  return code == 0 ? value : 0;
}

LSTATUS setBoth(std::uint32_t value) {
  HKEY key = nullptr;
  if (const LSTATUS code = RegCreateKeyW(HKEY_CURRENT_USER, L"Software\\F", &key)) return code;
  LSTATUS code = 0;
  for (const wchar_t* name : {L"a", L"b"}) {
    if (code == 0) code = RegSetValueExW(key, name, 0, REG_DWORD, &value, sizeof value);
  }
  RegCloseKey(key);
  return code;
}

class RegistryFaults : public testing::Test {
 protected:
  RegistryFaults() {
    leadDatabaseThroughTable();
    EXPECT_EQ(setBoth(kOld), 0);
  }

  // Both values old, the hive closed, and its log as short as at the first time.
  void prepare() {
    m_registry.close();
    // What tells of changes goes on: what was remembered at a number must never come true again.
    std::vector<fs::path> files;
    for (const auto& file : fs::directory_iterator(m_registry.folder().path())) {
      if (!file.path().string().ends_with("-seq")) files.push_back(file.path());
    }
    if (m_first.empty()) {
      for (const fs::path& file : files) m_first[file] = readBytes(file);
    }
    for (const fs::path& file : files) fs::remove(file);
    for (const auto& [file, bytes] : m_first) writeBytes(file, bytes);
    m_registry.reopen();
    ASSERT_EQ(setBoth(kOld), 0);
    m_registry.reopen();
  }
  // Whatever happened: whole, and as good as new.
  void expectWhole() {
    m_registry.reopen();
    const std::uint32_t a = get(L"a"), b = get(L"b");
    EXPECT_TRUE(a == kOld || a == kNew) << a;
    EXPECT_TRUE(b == kOld || b == a) << a << ' ' << b;
    EXPECT_EQ(setBoth(kNew), 0);
    EXPECT_EQ(get(L"b"), kNew);
    m_registry.reopen();
  }

  // Where syncing takes no time: the disks that fail are those of the table of calls.
  RegistryFolder m_registry{fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path()};
  std::map<fs::path, std::string> m_first;  // files, by their names
};

TEST_F(RegistryFaults, GiveTheSystemsCodeAndLoseNothing) {
  const std::map<int, std::set<LSTATUS>> told = {
      {ENOSPC, {112}}, {EIO, {1117}}, {EACCES, {5}}, {EMFILE, {4}}};
  LSTATUS code = 0;
  const auto run = [&] {
    code = setBoth(kNew);
    m_registry.reopen();  // closing is under the fault as well
  };
  const auto check = [&](const Fault& fault) {
    const auto codes = told.find(fault.error);
    if (code != 0 && codes != told.end()) {
      EXPECT_TRUE(codes->second.contains(code)) << code;
    } else {
      EXPECT_EQ(code, 0);
    }
    if (code == 0) {
      EXPECT_EQ(get(L"b"), kNew);
    }
    expectWhole();
  };
  forEachFault([&] { prepare(); }, run, check);
  forEachFault([&] { prepare(); }, run, check,
               {{.kind = Fault::fail_once, .error = EIO, .reading = true}});
}

TEST_F(RegistryFaults, FlushTellsThatTheDiskDoesNotHaveIt) {
  int failed = 0;
  bool struck = true;
  for (long n = 1; struck; ++n) {
    prepare();
    const FaultyCalls faulty({.kind = Fault::fail_for_good, .n = n});
    const LSTATUS written = setBoth(kNew);
    const bool before = faulty.struck();
    const LSTATUS flushed = RegFlushKey(HKEY_CURRENT_USER);
    struck = faulty.struck();
    if (before) continue;
    EXPECT_EQ(written, 0);
    EXPECT_EQ(flushed, struck ? 1117 : 0);
    failed += struck ? 1 : 0;
  }
  EXPECT_GT(failed, 0);
}

TEST_F(RegistryFaults, ADeadWriterLeavesTheHiveWhole) {
  forEachKill([&] { prepare(); },
              [&] {
                if (setBoth(kNew) != 0) _exit(9);
                m_registry.reopen();
              },
              [&](const Fault& fault) {
                if (!fault.struck) {
                  EXPECT_EQ(get(L"b"), kNew);
                }
                expectWhole();
              });
}

// --- a stopped writer --------------------------------------------------------------------------

SystemCalls usual;
int calls_until_stop;

void stopAtZero() {
  if (calls_until_stop-- == 0) raise(SIGSTOP);
}

TEST_F(RegistryFaults, AStoppedWriterBlocksNoReader) {
  prepare();
  ASSERT_EQ(get(L"a"), kOld);
  alarm(120);  // a reader that hangs ends the program
  for (int n = 0, stopped = 1; stopped; ++n) {
    const pid_t writer = fork();
    if (writer == 0) {
      const bool open = setBoth(kOld) == 0;  // opening may recover the log, which all wait for
      usual = Calls();
      calls_until_stop = n;
      Calls().pwrite = [](int fd, const void* data, size_t size, off_t at) {
        stopAtZero();
        return usual.pwrite(fd, data, size, at);
      };
      Calls().write = [](int fd, const void* data, size_t size) {
        stopAtZero();
        return usual.write(fd, data, size);
      };
      _exit(open && setBoth(kNew) == 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(writer, &status, WUNTRACED);
    stopped = WIFSTOPPED(status);
    const auto read = [] {
      const std::uint32_t value = get(L"a");
      EXPECT_TRUE(value == kOld || value == kNew) << value;
    };
    read();
    EXPECT_EQ(runInChild(read).exit_code, 0);  // which opens the hive anew
    if (stopped) {
      kill(writer, SIGCONT);
      waitpid(writer, &status, 0);
    }
    EXPECT_EQ(status, 0);
    EXPECT_EQ(get(L"b"), kNew);
    EXPECT_TRUE(stopped || n > 2) << n;
  }
  alarm(0);
}

// --- lost writes -------------------------------------------------------------------------------

// A disk that keeps what was synced and nothing else: contents by fsync of the file, names by that
// of the folder.
class ForgetfulDisk {
 public:
  explicit ForgetfulDisk(fs::path folder) {
    s_disk = this;
    m_folder = std::move(folder);
    usual = Calls();
    Calls().fsync = [](int fd) { return s_disk->keep(fd), usual.fsync(fd); };
    Calls().fdatasync = [](int fd) { return s_disk->keep(fd), usual.fdatasync(fd); };
  }
  ~ForgetfulDisk() { Calls() = usual; }
  ForgetfulDisk(const ForgetfulDisk&) = delete;
  ForgetfulDisk& operator=(const ForgetfulDisk&) = delete;

  void rebuildIn(const fs::path& folder) const {
    for (const std::string& name : m_names) {
      const auto content = m_contents.find(name);
      writeBytes(folder / name, content == m_contents.end() ? "" : content->second);
    }
  }

 private:
  void keep(int fd) {
    const fs::path path = fs::read_symlink("/proc/self/fd/" + std::to_string(fd));
    if (path != m_folder) {
      m_contents[path.filename()] = readBytes(path);
      return;
    }
    m_names.clear();
    for (const auto& file : fs::directory_iterator(path)) m_names.insert(file.path().filename());
  }

  static inline ForgetfulDisk* s_disk;
  fs::path m_folder;
  std::set<std::string> m_names;
  std::map<std::string, std::string> m_contents;
};

TEST_F(RegistryFaults, FlushedValuesSurviveAPowerCut) {
  for (const int more : {0, 1, 700, 1500}) {  // the log moves into the hive on the way
    const TempFolder source, rebuilt;
    registry::UseRegistryFolder(source.path());
    {
      const ForgetfulDisk disk(source.path());
      EXPECT_EQ(setBoth(kOld), 0);
      for (int i = 0; i < more; ++i) ASSERT_EQ(setBoth(kOld), 0);
      ASSERT_EQ(setBoth(kNew), 0);
      ASSERT_EQ(RegFlushKey(HKEY_CURRENT_USER), 0);
      ASSERT_EQ(setBoth(3), 0);  // may be lost
      disk.rebuildIn(rebuilt.path());
    }
    registry::UseRegistryFolder(rebuilt.path());
    EXPECT_EQ(get(L"a"), kNew) << more;
    EXPECT_EQ(get(L"b"), kNew) << more;
    EXPECT_EQ(setBoth(4), 0);
    m_registry.reopen();
  }
}

// --- what is no hive, and a disk that takes no writes ------------------------------------------

TEST_F(RegistryFaults, AReadOnlyDiskCanBeReadAndStaysAsItIs) {
  prepare();
  usual = Calls();
  Calls().faccessat = [](int folder, const char* path, int mode, int flags) {
    if (mode & W_OK) return errno = EROFS, -1;
    return usual.faccessat(folder, path, mode, flags);
  };
  Calls().open = [](const char* path, int flags, mode_t mode) {
    if (flags & (O_WRONLY | O_RDWR | O_CREAT)) return errno = EROFS, -1;
    return usual.open(path, flags, mode);
  };
  Calls().unlink = [](const char*) { return errno = EROFS, -1; };
  EXPECT_EQ(get(L"a"), kOld);
  EXPECT_EQ(setBoth(kNew), 5);
  EXPECT_EQ(get(L"b"), kOld);
  m_registry.reopen();
  Calls() = usual;
  expectWhole();
}

TEST_F(RegistryFaults, AForeignOrTruncatedHiveGivesACodeAndStaysAsItIs) {
  prepare();
  registry::UseRegistryFolder("/nowhere/qeltest");
  const std::string whole = readBytes(m_registry.file("user.hive"));
  for (const char* part : {"-wal", "-shm", "-seq"}) {
    fs::remove(m_registry.file("user.hive" + std::string(part)));
  }
  const std::string rows[] = {"not a database, and long enough to have a header like one: " + whole,
                              whole.substr(0, whole.size() / 2), whole.substr(0, 99)};
  for (const std::string& bytes : rows) {
    writeBytes(m_registry.file("user.hive"), bytes);
    m_registry.reopen();
    const LSTATUS code = setBoth(kNew);
    EXPECT_TRUE(code == 1009 || code == 1017) << code << " of " << bytes.size();
    EXPECT_EQ(get(L"a"), 0U);
    m_registry.reopen();
    EXPECT_EQ(readBytes(m_registry.file("user.hive")), bytes);
  }
}

}  // namespace
