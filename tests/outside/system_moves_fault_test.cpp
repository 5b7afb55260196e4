// Moving a file under faults and kills: the content stays whole under one of the two names, and no
// success is claimed that is none.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/syscalls_internal.h"

#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using namespace qel::sys;
using qeltest::Fault;

int otherFileSystem(const char* from, const char* to) {
  if (fs::path(from).parent_path() == fs::path(to).parent_path()) {
    return renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
  }
  errno = EXDEV;
  return -1;
}

int noCall(const char* /*from*/, const char* /*to*/) {
  errno = EINVAL;
  return -1;
}

struct Way {
  const char* name;
  int (*rename_noreplace)(const char*, const char*);  // null: the real one
  int (*link)(const char*, const char*);
};

class Move : public testing::TestWithParam<Way> {
 protected:
  void SetUp() override {
    if (GetParam().rename_noreplace) Calls().rename_noreplace = GetParam().rename_noreplace;
    if (GetParam().link) Calls().link = GetParam().link;
  }
  void TearDown() override { Calls() = original; }

  void prepare() {
    fs::remove_all(folder / "here");
    fs::remove_all(folder / "there");
    fs::create_directory(folder / "here");
    fs::create_directory(folder / "there");
    qeltest::writeBytes(source, content);
  }
  void move() {
    result = _wrename(folder.wide("here/file").c_str(), folder.wide("there/file").c_str());
  }
  bool isWhole(const fs::path& file) const {
    return fs::exists(file) && qeltest::readBytes(file) == content;
  }

  SystemCalls original = Calls();
  qeltest::TempFolder folder;
  const fs::path source = folder / "here/file";
  const fs::path target = folder / "there/file";
  const std::string content = std::string(1'200'001, 'c') + "end";
  int result = -1;
};

TEST_P(Move, KeepsTheOldStateOrReachesTheNewOne) {
  std::vector<Fault> faults = qeltest::usualFaults();
  faults.push_back({.kind = Fault::fail_once, .error = EIO, .reading = true});
  qeltest::forEachFault([&] { prepare(); }, [&] { move(); },
                        [&](const Fault& fault) {
                          if (result == 0) {
                            EXPECT_TRUE(isWhole(target));
                            EXPECT_FALSE(fs::exists(source));
                          } else {
                            EXPECT_TRUE(fault.struck);
                            EXPECT_TRUE(isWhole(source));
                          }
                          // Whose clean-up fails as well cannot clean up.
                          if (fault.kind == Fault::fail_for_good) return;
                          EXPECT_NE(fs::exists(source), fs::exists(target));
                          const auto left = fs::directory_iterator(folder / "there");
                          EXPECT_EQ(std::distance(begin(left), end(left)), result == 0);
                        },
                        faults);
}

TEST_P(Move, SurvivesBeingKilledAnywhere) {
  qeltest::forEachKill([&] { prepare(); }, [&] { move(); },
                       [&](const Fault& fault) {
                         EXPECT_TRUE(isWhole(source) || isWhole(target));
                         const bool placeholder = GetParam().link == noCall;
                         EXPECT_TRUE(isWhole(target) || !fs::exists(target) ||
                                     (placeholder && fs::is_empty(target)));
                         EXPECT_TRUE(fault.struck || isWhole(target));
                       });
}

INSTANTIATE_TEST_SUITE_P(System, Move,
                         testing::Values(Way{"InOneCall", nullptr, nullptr},
                                         Way{"ByLink", noCall, nullptr},
                                         Way{"OntoPlaceholder", noCall, noCall},
                                         Way{"ToAnotherFileSystem", otherFileSystem, nullptr}),
                         [](const auto& way) { return way.param.name; });

class MoveAcross : public Move {};
INSTANTIATE_TEST_SUITE_P(System, MoveAcross, testing::Values(Way{"", otherFileSystem, nullptr}));

TEST_P(MoveAcross, TakesModeTimeAndAttributesAlong) {
  prepare();
  fs::permissions(source, fs::perms(0640));
  const auto time = fs::file_time_type::clock::now() - std::chrono::hours(100);
  fs::last_write_time(source, time);
  const bool holds_attributes = original.setxattr(source.c_str(), "user.qel", "v", 1, 0) == 0;
  move();
  ASSERT_EQ(result, 0);
  EXPECT_EQ(fs::status(target).permissions(), fs::perms(0640));
  EXPECT_EQ(fs::last_write_time(target), time);
  char value = 0;
  const ssize_t size = original.getxattr(target.c_str(), "user.qel", &value, 1);
  EXPECT_EQ(size, holds_attributes ? 1 : -1);
}

TEST_P(MoveAcross, SyncsTheCopyBeforeTheSourceGoes) {
  prepare();
  static std::vector<std::string> order;
  order.clear();
  static SystemCalls inner;
  inner = Calls();
  Calls().fsync = [](int fd) {
    order.emplace_back("fsync");
    return inner.fsync(fd);
  };
  Calls().rename_noreplace = [](const char* from, const char* to) {
    const int outcome = inner.rename_noreplace(from, to);
    if (outcome == 0) order.emplace_back("rename");
    return outcome;
  };
  Calls().unlink = [](const char* path) {
    order.emplace_back("unlink");
    return inner.unlink(path);
  };
  move();
  EXPECT_EQ(result, 0);
  EXPECT_EQ(order, (std::vector<std::string>{"fsync", "rename", "fsync", "unlink"}));
}

TEST_P(MoveAcross, LeavesFoldersAndLinksWhereTheyAre) {
  prepare();
  fs::remove(source);
  for (const bool is_link : {false, true}) {
    if (is_link) {
      fs::create_symlink("elsewhere", source);
    } else {
      fs::create_directory(source);
    }
    move();
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(fs::exists(fs::symlink_status(source)));
    EXPECT_FALSE(fs::exists(fs::symlink_status(target)));
    fs::remove(source);
  }
}

TEST_P(MoveAcross, NeverReplaces) {
  prepare();
  qeltest::writeBytes(target, "other");
  move();
  EXPECT_EQ(result, -1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(GetLastError(), 183);
  EXPECT_EQ(qeltest::readBytes(target), "other");
  EXPECT_TRUE(isWhole(source));
}

// Two real file systems, where the machine has them.
TEST(MoveForReal, ReachesAnotherFileSystem) {
  const qeltest::TempFolder here;
  struct stat first {};
  struct stat second {};
  ASSERT_EQ(stat(here.path().c_str(), &first), 0);
  if (stat("/dev/shm", &second) != 0 || first.st_dev == second.st_dev) GTEST_SKIP();
  const std::string name = "/dev/shm/" + here.path().filename().string();
  qeltest::writeBytes(here / "file", "content");
  EXPECT_EQ(_wrename(here.wide("file").c_str(), qeltest::TempFolder::wideName(name).c_str()), 0);
  EXPECT_EQ(qeltest::readBytes(name), "content");
  EXPECT_FALSE(fs::exists(here / "file"));
  fs::remove(name);
}

}  // namespace
