// The program around its commands, and the example that saves a part.

#include <gtest/gtest.h>
#include <signal.h>

#include "Tool.h"

using namespace qeltest;
using namespace std::string_literals;

namespace {

TEST(Completion, KnowsCommandsOptionsAndFiles) {
  const Tool tool;
  tool.write("qel.bash", tool.runProgram({QEL_PROGRAM, "--generate-completion", "bash"}).out);
  tool.write("recent part.abc", "");
  const auto complete = [&](const std::string& words) {
    const std::string script = "source ./qel.bash; compopt() { :; }; COMP_WORDS=(" + words +
                               "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _qel; "
                               "printf '%s\n' \"${COMPREPLY[@]}\"";
    return tool.runProgram({"bash", "-c", script}).out;
  };
  EXPECT_EQ(complete("qel ta"), "tag\n");
  EXPECT_EQ(complete("qel tag re"), "recover\n");
  EXPECT_EQ(complete("qel tag recover --ba"), "--backup\n");
  EXPECT_EQ(complete("qel tag ls rec"), "recent part.abc\n");
  EXPECT_EQ(complete("qel sum rec"), "recent part.abc\n");
  EXPECT_EQ(complete("qel sum 'recent part.abc' --sh"), "--sha1\n");
}

TEST(Manual, TellsEveryCommandOfASubsystem) {
  const Tool tool;
  const std::string page = tool.runProgram({QEL_PROGRAM, "--generate-man", "qel-tag"}).out;
  for (const char* command : {"ls", "tree", "cat", "dump", "diff", "extract", "put", "rm",
                              "convert", "check", "recover"}) {
    EXPECT_NE(page.find("\n.SS " + std::string(command) + "\n"), std::string::npos) << command;
    EXPECT_EQ(tool.run({command, "--help"}).exit_code, 0) << command;
  }
  EXPECT_NE(tool.runProgram({QEL_PROGRAM, "--generate-man", "qel"}).out.find("qel\\-tag"),
            std::string::npos);
}

#ifdef SAVEPART_PROGRAM
TEST(SavePart, SavesEveryPieceOfAPartAndChangesItsColour) {
  const Tool tool;
  tool.write("wedge.obj", "v 0 0 0\nv 1 0 0\nv 0 2 0\nv 0 0 -4\nf 1 2 3\nf 1 3 4\n");
  const Outcome saved = tool.runProgram({SAVEPART_PROGRAM, "wedge.obj", "wedge.abc"}, {}, [] {
    setenv("PATH", std::filesystem::path(QEL_PROGRAM).parent_path().c_str(), 1);
  });
  ASSERT_EQ(saved.exit_code, 0) << saved;
  EXPECT_NE(saved.out.find("2.1        TRIS"), std::string::npos) << saved.out;
  EXPECT_EQ(tool.run({"check", "wedge.abc"}).out, "wedge.abc: sound, 13 records\n");
  EXPECT_EQ(tool.run({"cat", "wedge.abc", "NAME/DATA"}).out, "wedge");
  EXPECT_EQ(tool.run({"cat", "wedge.abc", "COLOR/DATA"}).out, "\xFF\x8C\x00\xFF"s);
  EXPECT_EQ(tool.run({"cat", "wedge.abc", "BOX/DATA"}).out,
            "\0\0\0\0\0\0\0\0\0\0\x80\xC0\0\0\x80\x3F\0\0\0\x40\0\0\0\0"s);
  EXPECT_EQ(tool.run({"cat", "wedge.abc", "MESH/TRIS/DATA"}).out.size(), 24U);
  EXPECT_EQ(tool.run({"cat", "wedge.abc", "SUM/DATA"}).out.size(), 8U);
}

TEST(SavePart, TellsWhatItCannotReadOrWrite) {
  const Tool tool;
  tool.write("text.obj", "no model");
  EXPECT_EQ(tool.runProgram({SAVEPART_PROGRAM, "nowhere.stl", "a.abc"}).exit_code, 2);
  EXPECT_EQ(tool.runProgram({SAVEPART_PROGRAM, "text.obj", "a.abc"}).exit_code, 2);
  EXPECT_FALSE(tool.has("a.abc"));
  tool.write("wedge.obj", "v 0 0 0\nv 1 0 0\nv 0 2 0\nf 1 2 3\n");
  const Outcome outcome = tool.runProgram({SAVEPART_PROGRAM, "wedge.obj", "no/such/a.abc"});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_NE(outcome.err.find("no/such/a.abc: there is no such folder"), std::string::npos)
      << outcome.err;
}

// Whatever the moment: the file is the old one, told as broken off, or a whole new one.
TEST(SavePart, CtrlCLeavesTheOldFile) {
  const Tool tool;
  std::string points, triangles;
  for (int i = 1; i <= 60000; ++i) {
    points += "v " + std::to_string(i) + " 0 " + std::to_string(i % 7) + "\n";
    if (i > 2)
      triangles += "f " + std::to_string(i - 2) + " " + std::to_string(i - 1) + " " +
                   std::to_string(i) + "\n";
  }
  tool.write("big.obj", points + triangles);
  tool.write("out.abc", head + tag("OLD", raw("old")));
  const std::string before = tool.read("out.abc");

  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], 2);
    if (chdir(tool.folder().path().c_str()) != 0) _exit(9);
    execl(SAVEPART_PROGRAM, "savepart", "--progress=json", "big.obj", "out.abc", nullptr);
    _exit(9);
  }
  close(ends[1]);
  std::string told;
  for (char c; told.find("\"percent\"") == std::string::npos && read(ends[0], &c, 1) == 1;)
    told += c;
  kill(child, SIGINT);
  char rest[4096];
  while (read(ends[0], rest, sizeof rest) > 0) continue;
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  // Between the two saves the first one is what the second leaves.
  const bool is_old = tool.read("out.abc") == before;
  const bool is_saved = tool.run({"cat", "out.abc", "NAME/DATA"}).out == "big";
  const bool broken_off = WIFEXITED(status) && WEXITSTATUS(status) == 130;
  EXPECT_TRUE(is_saved || (broken_off && is_old)) << status;
  EXPECT_EQ(tool.run({"check", "out.abc"}).exit_code, 0);
}
#endif

}  // namespace
