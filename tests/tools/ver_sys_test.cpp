// qel ver and qel sys.

#include <gtest/gtest.h>

#include <cstdio>

#include "Tool.h"

using namespace qeltest;

namespace {

const std::string kLibrary = "/usr/x86_64-w64-mingw32/lib/zlib1.dll";

Outcome qel(const Tool& tool, std::vector<std::string> words) {
  words.insert(words.begin(), QEL_PROGRAM);
  return tool.runProgram(words);
}

TEST(Ver, PrintsNumbersAndTexts) {
  const Tool tool;
  const Outcome text = qel(tool, {"ver", kLibrary});
  EXPECT_EQ(text.exit_code, 0) << text;
  EXPECT_NE(text.out.find(kLibrary + ": 1.2.13.0\n  product 1.2.13.0\n"), std::string::npos)
      << text;
  EXPECT_NE(text.out.find("  InternalName  zlib1.dll\n"), std::string::npos) << text;
  const Outcome json = qel(tool, {"ver", "--json", kLibrary});
  EXPECT_NE(json.out.find("\"name\":\"InternalName\",\"text\":\"zlib1.dll\""), std::string::npos);
}

TEST(Ver, ExitCodesTellOlderFilesAndUnreadableOnes) {
  const Tool tool;
  tool.write("text", "no program");
  const struct {
    std::vector<std::string> words;
    int exit_code;
  } rows[] = {
      {{"--newer-than", "1.2.12", kLibrary}, 0},
      {{"--newer-than", "1.2.13", kLibrary}, 1},
      {{"--newer-than", "1.10", kLibrary}, 1},
      {{"--newer-than", kLibrary, kLibrary}, 1},
      {{"--newer-than", "1.2.3.4.5", kLibrary}, 2},
      {{"--newer-than", "1.65536", kLibrary}, 2},
      {{QEL_PROGRAM}, 1},
      {{"text", kLibrary}, 2},
      {{"none"}, 2},
      {{}, 2},
  };
  for (const auto& row : rows) {
    std::vector<std::string> words = row.words;
    words.insert(words.begin(), "ver");
    const Outcome outcome = qel(tool, words);
    EXPECT_EQ(outcome.exit_code, row.exit_code) << outcome;
  }
  EXPECT_EQ(qel(tool, {"ver", QEL_PROGRAM}).out, QEL_PROGRAM + std::string(": no version\n"));
  EXPECT_EQ(qel(tool, {"ver", "--json", QEL_PROGRAM}).out,
            "[\n{\"file\":\"" + std::string(QEL_PROGRAM) + "\",\"version\":null}\n]\n");
}

TEST(Sys, TellsTheMachine) {
  const Tool tool;
  const auto run = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {QEL_PROGRAM, "sys"});
    return tool.runProgram(words, {}, [&] {
      unsetenv("DISPLAY");
      setenv("QEL_REGISTRY", tool.folder().path().c_str(), 1);
    });
  };
  const Outcome text = run({});
  EXPECT_EQ(text.exit_code, 0) << text;
  EXPECT_NE(text.out.find("description         Unknown x64\n"), std::string::npos) << text;
  EXPECT_NE(run({"--json"}).out.find("\"width\":1024,\"height\":768"), std::string::npos);
  EXPECT_EQ(run({"none"}).exit_code, 1);
}

}  // namespace
