// Locks of folders and the temporary folders of runs, with real processes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>

#include "qelbase/outside/components/logging.h"
#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/paths/MTempCleaner.h"

#include "tests/support/Environment.h"
#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using qeltest::Fault;
using qeltest::readBytes;
using qeltest::TempFolder;
using qeltest::writeBytes;

// A process that says when it is ready, and goes on when it is told to.
class Child {
 public:
  explicit Child(const std::function<std::string(const std::function<void()>& wait)>& run) {
    std::array<int, 2> up{}, down{};
    if (pipe(up.data()) != 0 || pipe(down.data()) != 0) throw std::runtime_error("pipe");
    m_pid = fork();
    if (m_pid == 0) {
      ::close(up[0]);
      ::close(down[1]);
      const auto wait = [&] {
        char byte = 0;
        (void)!::read(down[0], &byte, 1);
      };
      const std::string said = run(wait) + "\n";
      (void)!::write(up[1], said.data(), said.size());
      wait();
      _exit(0);
    }
    ::close(up[1]);
    ::close(down[0]);
    m_up = up[0];
    m_down = down[1];
  }
  ~Child() {
    if (m_pid > 0) end(SIGKILL);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // What the child says; waits for it.
  std::string listen() const {
    std::string line;
    char c = 0;
    while (::read(m_up, &c, 1) == 1 && c != '\n') line += c;
    return line;
  }
  void go() const { (void)!::write(m_down, "g", 1); }
  void end(int signal) {
    kill(m_pid, signal);
    waitpid(m_pid, nullptr, 0);
    ::close(m_up);
    ::close(m_down);
    m_pid = -1;
  }

 private:
  pid_t m_pid = -1;
  int m_up = -1;
  int m_down = -1;
};

// --- locks -------------------------------------------------------------------------------------

TEST(FolderLock, IsHeldByOneObjectOrProcessAtATime) {
  const TempFolder folder, second;
  const std::wstring path = folder.wide();
  MFolderLocker lock(path.c_str());
  ASSERT_TRUE(lock.IsLocked());
  EXPECT_TRUE(fs::exists(folder / "__fold__.lock"));
  EXPECT_EQ(MFolderLocker().Lock(path.c_str()), 32);
  {
    const Child child(
        [&](const auto&) { return std::to_string(MFolderLocker().Lock(path.c_str())); });
    EXPECT_EQ(child.listen(), "32");
  }
  EXPECT_EQ(lock.Lock((path + L"/").c_str()), 0);
  EXPECT_EQ(MFolderLocker().Lock(path.c_str()), 32);
  EXPECT_EQ(lock.Lock(L"relative"), 87);
  EXPECT_TRUE(lock.IsLocked());
  EXPECT_EQ(lock.Lock(second.wide().c_str()), 0);
  EXPECT_EQ(MFolderLocker().Lock(path.c_str()), 0);
  EXPECT_EQ(lock.Lock(second.wide("none").c_str()), 3);
  EXPECT_FALSE(lock.IsLocked());
  EXPECT_EQ(lock.Unlock(), 0);
  const fs::path before = fs::current_path();
  fs::current_path(folder.path());
  EXPECT_EQ(lock.Lock(L"."), 0);
  fs::current_path(before);
  EXPECT_EQ(MFolderLocker().Lock(path.c_str()), 32);
  const int sweeper = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY);
  EXPECT_EQ(::flock(sweeper, LOCK_EX | LOCK_NB), -1);
  EXPECT_EQ(lock.Unlock(), 0);
  EXPECT_EQ(::flock(sweeper, LOCK_EX | LOCK_NB), 0);
  ::close(sweeper);
}

// --- runs --------------------------------------------------------------------------------------

class Runs : public testing::Test {
 protected:
  Runs() {
    letTemporaryBe(root.path());
    environment.set("TMPDIR", std::nullopt);
  }
  void letTemporaryBe(const fs::path& folder) {
    for (const char* name : {"TMP", "TEMP"}) environment.set(name, folder.string());
  }
  static std::string real(const char* name) { return qeltest::EnvironmentScope::get(name); }
  static std::string fileName(const CStringW& path) {
    return std::string(CStringA(path.Mid(path.ReverseFind(L'\\') + 1)));
  }
  std::set<std::string> left() const {
    std::set<std::string> found;
    for (const auto& entry : fs::directory_iterator(root.path())) {
      found.insert(entry.path().filename());
    }
    return found;
  }
  using Names = std::set<std::string>;

  qeltest::EnvironmentScope environment;
  TempFolder root;
  TempFolder elsewhere;
};

// A run in a process of its own, which fills its folder and says where it is.
std::unique_ptr<Child> startRun(
    const wchar_t* name, const std::function<void(const fs::path&)>& fill = [](const auto& folder) {
      writeBytes(folder / "mine", "");
    }) {
  return std::make_unique<Child>([&](const auto&) {
    auto* run = new MTempCleaner(name);
    run->Init();
    fill(std::getenv("TMP"));
    return std::string(std::getenv("TMP"));
  });
}

// One that is killed; the folder's name.
fs::path deadRun(const wchar_t* name, const std::function<void(const fs::path&)>& fill) {
  return startRun(name, fill)->listen();
}

TEST_F(Runs, HaveAFolderOfTheirOwnInTheEnvironment) {
  qel::sys::ClockOverride clock;
  clock.setTime(50'709).setZone(0);  // 14:05:09
  for (const char* tmpdir : {"/var/tmp", ""}) {
    environment.set("TMPDIR", *tmpdir ? std::optional<std::string>(tmpdir) : std::nullopt);
    MTempCleaner run(L"abc");
    run.Init();
    const std::string folder = root / "abc_14_05_09_1";
    EXPECT_EQ(run.GetCurPath(), root.wide("abc_14_05_09_1").c_str());
    EXPECT_EQ(run.GetOldPath(), (root.wide() + L"\\").c_str());
    for (const char* name : {"TMP", "TEMP", "TMPDIR"}) EXPECT_EQ(real(name), folder);
    EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
    EXPECT_EQ(run.EnumerateRootTempFolders(), 1);
    {
      MTempCleaner second(L"abc");  // for the same second, inside of the first
      second.SetFileName(nullptr);
      const MTempCleaner::MPauser none(nullptr);
      const MTempCleaner::MPauser pause(&run);
      EXPECT_EQ(real("TMP"), root.path().string() + "/");
      EXPECT_EQ(real("TEMP"), root.path().string());
      EXPECT_EQ(real("TMPDIR"), *tmpdir ? tmpdir : "unset");
      EXPECT_EQ(run.EnumerateRootTempFolders(), 0);
      second.Init();
      EXPECT_EQ(fileName(second.GetCurPath()), "abc_14_05_09_2");
      EXPECT_EQ(second.EnumerateRootTempFolders(), 2);
      second.Finish();
    }
    EXPECT_EQ(real("TMP"), folder);
    EXPECT_EQ(left(), Names{"abc_14_05_09_1"});
    writeBytes(folder + "/file", "");
    run.Finish();
    EXPECT_EQ(left(), Names{});
    EXPECT_EQ(real("TMP"), root.path().string() + "/");
    EXPECT_EQ(real("TEMP"), root.path().string());
    EXPECT_EQ(real("TMPDIR"), *tmpdir ? tmpdir : "unset");
    letTemporaryBe(root.path());
  }
}

TEST_F(Runs, LeaveTheEnvironmentAloneWithAFileName) {
  const MFileName file(root.wide("deep/er").c_str(), true);
  MTempCleaner run(L"", &file);
  run.SetEntryName(L"C:\\x\\a$b.ext");
  run.Init();
  EXPECT_EQ(fileName(run.GetCurPath()).substr(0, 4), "a_b_");
  EXPECT_TRUE(fs::is_directory(root / "deep/er" / fileName(run.GetCurPath())));
  EXPECT_EQ(real("TMP"), root.path().string());
  run.Finish();
  EXPECT_TRUE(fs::is_empty(root / "deep/er"));
}

TEST_F(Runs, TwentyAtOnceGetTwentyFolders) {
  std::vector<std::unique_ptr<Child>> children;
  for (int i = 0; i < 20; ++i) {
    children.push_back(std::make_unique<Child>([&](const auto& wait) {
      wait();
      auto* run = new MTempCleaner(L"abc");
      run->Init();
      writeBytes(fs::path(real("TMP")) / "mine", "");
      return real("TMP");
    }));
  }
  for (const auto& child : children) child->go();
  Names said;
  for (const auto& child : children) said.insert(child->listen());
  EXPECT_EQ(said.size(), 20);
  for (const fs::path folder : said) {
    EXPECT_TRUE(fs::exists(folder / "mine") && fs::exists(folder / "__fold__.lock")) << folder;
  }
  children.clear();  // all are killed
  MTempCleaner run(L"abc");
  run.Init();
  EXPECT_EQ(run.EnumerateRootTempFolders(), 1);
}

TEST_F(Runs, SweepWhatIsDeadAndNothingElse) {
  const auto living = startRun(L"abc");
  const fs::path live = living->listen();
  const fs::path dead = deadRun(L"abc", [](const fs::path& folder) {
    fs::path deep = folder;
    for (int i = 0; i < 500; ++i) deep /= "d";
    fs::create_directories(deep);
    fs::create_symlink("/nowhere", folder / "link");
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  });
  const fs::path stays = deadRun(L"abc", [](const fs::path& folder) {
    writeBytes(folder / "read_only", "");
    writeBytes(folder / "plain", "");
    fs::permissions(folder / "read_only", fs::perms::owner_read);
  });
  const fs::path other = deadRun(L"other", [](const fs::path&) {});
  writeBytes(elsewhere / "kept", "");
  fs::create_directory_symlink(elsewhere.path(), root / "abc_link");
  writeBytes(root / "abc.txt", "");
  writeBytes(root / "ab", "");
  MTempCleaner run(L"abc");
  run.Init();
  EXPECT_EQ(left(), (Names{"ab", "abc_link", live.filename(), stays.filename(), other.filename(),
                           fileName(run.GetCurPath())}));
  EXPECT_TRUE(fs::exists(live / "mine"));
  EXPECT_TRUE(fs::exists(stays / "read_only"));
  EXPECT_FALSE(fs::exists(stays / "plain"));
  EXPECT_TRUE(fs::exists(elsewhere / "kept"));
}

TEST_F(Runs, KeepWhatARunFurtherDownHolds) {
  const fs::path dead =
      deadRun(L"abc", [](const fs::path& folder) { writeBytes(folder / "file", ""); });
  letTemporaryBe(dead);
  auto inner = startRun(L"inner");
  const fs::path live = inner->listen();
  letTemporaryBe(root.path());
  {
    MTempCleaner run(L"abc");
    run.Init();
    EXPECT_FALSE(fs::exists(dead / "file"));
    EXPECT_TRUE(fs::exists(live / "mine") && fs::exists(live / "__fold__.lock"));
  }
  inner.reset();
  MTempCleaner run(L"abc");
  run.Init();
  EXPECT_FALSE(fs::exists(dead));
}

TEST_F(Runs, WithoutAnEntryNameSweepFoldersOfRunsAlone) {
  deadRun(L"", [](const fs::path&) {});
  fs::create_directory(root / "precious");
  writeBytes(root / "file", "");
  MTempCleaner run(nullptr);
  run.Init();
  EXPECT_EQ(left(), (Names{"precious", "file", fileName(run.GetCurPath())}));
}

TEST_F(Runs, GiveUpWhereNoFolderCanBeHad) {
  struct Row {
    const wchar_t* entry;
    std::string tmp;
  };
  writeBytes(root / "file", "");
  for (const Row& row : {Row{L"abc", root / "file"}, Row{L"a?b", root.path()},
                         Row{L"abc", "/proc/self"}, Row{L"abc", root / std::string(300, 'x')}}) {
    environment.set("TMP", row.tmp);
    MTempCleaner run(row.entry);
    run.Init();
    EXPECT_EQ(run.GetCurPath(), L"") << row.tmp;
    EXPECT_EQ(run.EnumerateRootTempFolders(), 0);
    EXPECT_EQ(real("TMP"), row.tmp);
    EXPECT_EQ(real("TMPDIR"), "unset");
  }
  EXPECT_EQ(left(), Names{"file"});
}

TEST_F(Runs, FolderThatSomebodyElseMadeIsNotTaken) {
  qel::sys::ClockOverride clock;
  clock.setTime(50'709).setZone(0);
  writeBytes(elsewhere / "kept", "");
  fs::create_directory_symlink(elsewhere.path(), root / "abc_14_05_09_1");
  fs::create_directory(root / "abc_14_05_09_2");
  writeBytes(root / "abc_14_05_09_2/kept", "");
  writeBytes(root / "abc.txt", "");
  const qel::sys::SystemCalls original = qel::sys::Calls();
  static qel::sys::SystemCalls passed;
  passed = original;
  static std::set<ino_t> foreign;
  for (const char* name : {"abc_14_05_09_2", "abc.txt"}) {
    struct stat status {};
    ASSERT_EQ(::stat((root / name).c_str(), &status), 0);
    foreign.insert(status.st_ino);
  }
  qel::sys::Calls().lstat = [](const char* path, struct stat* out) {
    const int result = passed.lstat(path, out);
    if (foreign.contains(out->st_ino)) ++out->st_uid;
    return result;
  };
  {
    MTempCleaner run(L"abc");
    run.Init();
    EXPECT_EQ(fileName(run.GetCurPath()), "abc_14_05_09_3");
  }
  qel::sys::Calls() = original;
  EXPECT_TRUE(fs::exists(root / "abc_14_05_09_2/kept"));
  EXPECT_TRUE(fs::exists(elsewhere / "kept"));
  EXPECT_EQ(left(), (Names{"abc.txt", "abc_14_05_09_1", "abc_14_05_09_2"}));
}

TEST_F(Runs, KilledOrFailingAnywhereLeaveNothingForGood) {
  const auto live = [&] {
    MTempCleaner run(L"abc");
    run.Init();
    if (run.GetCurPath().IsEmpty()) return;
    fs::create_directory(fs::path(real("TMP")) / "sub");
    writeBytes(fs::path(real("TMP")) / "sub/file", "");
    run.Finish();
  };
  const auto check = [&](const Fault&) {
    EXPECT_EQ(real("TMP").substr(0, root.path().string().size()), root.path().string());
    letTemporaryBe(root.path());
    {
      MTempCleaner run(L"abc");
      run.Init();
      EXPECT_EQ(run.EnumerateRootTempFolders(), 1);
    }
    EXPECT_EQ(left(), Names{});
  };
  qeltest::forEachKill([] {}, live, check);
  qeltest::forEachFault(live, check);
}

}  // namespace
