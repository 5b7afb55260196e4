#pragma once
// The real program in a process of its own, and tagged files typed byte by byte.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/TempFolder.h"

namespace qeltest {

// --- Bytes -------------------------------------------------------------------------------------

// A header as it stands on disk. The name is filled up with zeros to six bytes.
inline std::string header(std::string name, int major, int minor, std::uint32_t skip) {
  name.resize(6, '\0');
  name += static_cast<char>(major);
  name += static_cast<char>(minor);
  for (int shift = 0; shift < 32; shift += 8) name += static_cast<char>(skip >> shift);
  return name;
}

inline std::string tag(const std::string& name, const std::string& body, int major = 2,
                       int minor = 1) {
  return header(name, major, minor, static_cast<std::uint32_t>(body.size())) + body;
}

// Raw bytes as the present version keeps them.
inline std::string raw(const std::string& bytes) {
  return tag("DATA", bytes);
}

inline const std::string head = header("QELCOM", 2, 1, 0);
inline const std::string old_head = header("QELCOM", 1, 0, 0);

// --- The program -------------------------------------------------------------------------------

struct Outcome {
  int exit_code = -1;
  std::string out;
  std::string err;
};

inline std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
  return stream << "exit " << outcome.exit_code << "\n" << outcome.out << outcome.err;
}

// A folder in which the program runs, with verbs on files in it.
class Tool {
 public:
  // `qel tag` with these words. `in_child` runs in the child before the program does.
  Outcome run(std::vector<std::string> words, const std::string& input = {},
              const std::function<void()>& in_child = {}) const {
    words.insert(words.begin(), {QEL_PROGRAM, "tag"});
    return runProgram(words, input, in_child);
  }

  Outcome runProgram(const std::vector<std::string>& words, const std::string& input = {},
                     const std::function<void()>& in_child = {}) const {
    writeBytes(m_streams / "in", input);
    const pid_t child = fork();
    if (child == 0) {
      redirect("in", O_RDONLY, STDIN_FILENO);
      redirect("out", O_WRONLY | O_CREAT | O_TRUNC, STDOUT_FILENO);
      redirect("err", O_WRONLY | O_CREAT | O_TRUNC, STDERR_FILENO);
      if (chdir(m_folder.path().c_str()) != 0) _exit(126);
      if (in_child) in_child();
      exec(words);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
            readBytes(m_streams / "out"), readBytes(m_streams / "err")};
  }

  void write(const std::string& name, const std::string& bytes) const {
    writeBytes(m_folder / name, bytes);
  }
  std::string read(const std::string& name) const { return readBytes(m_folder / name); }
  bool has(const std::string& name) const {
    return std::filesystem::exists(std::filesystem::symlink_status(m_folder / name));
  }
  std::size_t files() const {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(m_folder.path()),
                      std::filesystem::directory_iterator()));
  }
  const TempFolder& folder() const { return m_folder; }

 private:
  void redirect(std::string_view name, int flags, int fd) const {
    const int opened = open((m_streams / name).c_str(), flags, 0600);
    if (opened < 0 || dup2(opened, fd) < 0) _exit(126);
    close(opened);
  }

  static void exec(const std::vector<std::string>& words) {
    std::vector<const char*> arguments;
    for (const std::string& word : words) arguments.push_back(word.c_str());
    arguments.push_back(nullptr);
    execvp(arguments[0], const_cast<char* const*>(arguments.data()));
    _exit(127);
  }

  TempFolder m_folder;
  TempFolder m_streams;
};

}  // namespace qeltest
