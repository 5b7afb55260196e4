// qel tmp: the folders of runs, live and dead.

#include <gtest/gtest.h>

#include "qelbase/paths/MFolderLocker.h"

#include "Tool.h"

using namespace qeltest;
using namespace std::string_literals;
namespace fs = std::filesystem;

namespace {

Outcome tmp(const Tool& tool, std::vector<std::string> words, const fs::path& folder) {
  words.insert(words.begin(), {QEL_PROGRAM, "tmp"});
  words.push_back(folder);
  return tool.runProgram(words);
}

TEST(Tmp, TellsLiveFromDeadAndSweepsTheDeadAlone) {
  const Tool tool;
  const TempFolder folder;
  const std::string root = folder.path();
  for (const char* name : {"abc_14_05_09_1/sub", "abc_14_05_09_2", "other_00_00_00_10",
                           "abc_14_05_09", "abc_14_05_9_1"}) {
    fs::create_directories(folder / name);
  }
  writeBytes(folder / "abc_14_05_09_1/__fold__.lock", "77 program\x1B host\nmore");
  writeBytes(folder / "abc_14_05_09_1/sub/file", "");
  const MFolderLocker live(folder.wide("abc_14_05_09_2").c_str());
  EXPECT_EQ(tmp(tool, {"ls"}, root).out,
            "dead  " + root + "/abc_14_05_09_1  77 program\\x1b host\nlive  " + root +
                "/abc_14_05_09_2\ndead  " + root + "/other_00_00_00_10\n");
  EXPECT_EQ(tmp(tool, {"ls", "--json", "--name", "other"}, root).out,
            "[\n{\"entry\":\"other\",\"folder\":\"" + root +
                "/other_00_00_00_10\",\"holder\":\"\",\"state\":\"dead\"}\n]\n");
  const std::string dead = root + "/abc_14_05_09_1\n";
  EXPECT_EQ(tmp(tool, {"sweep", "--dry-run", "--name", "abc"}, root).out, dead);
  EXPECT_TRUE(fs::exists(folder / "abc_14_05_09_1/sub/file"));
  EXPECT_EQ(tmp(tool, {"sweep", "--name", "abc"}, root).out, dead);
  EXPECT_FALSE(fs::exists(folder / "abc_14_05_09_1"));
  EXPECT_EQ(tmp(tool, {"sweep"}, root).out, root + "/other_00_00_00_10\n");
  EXPECT_TRUE(fs::exists(folder / "abc_14_05_09_2/__fold__.lock"));
  EXPECT_TRUE(fs::exists(folder / "abc_14_05_09"));
  EXPECT_EQ(tmp(tool, {"ls"}, root + "/none").exit_code, 2);
}

}  // namespace
