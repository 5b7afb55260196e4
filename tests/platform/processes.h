#pragma once
// Programs that a test runs, and variables for them.

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>

namespace qeltest {

// Sets variables (null: takes them away) for a test, and puts the old ones back.
class Variables {
 public:
  ~Variables() {
    for (const auto& [name, old] : m_old) put(name, old ? old->c_str() : nullptr);
  }
  void set(const std::string& name, const char* value) {
    const char* old = std::getenv(name.c_str());
    m_old.emplace(name, old ? std::optional<std::string>(old) : std::nullopt);
    put(name, value);
  }

 private:
  static void put(const std::string& name, const char* value) {
    value ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str());
  }
  std::map<std::string, std::optional<std::string>> m_old;
};

struct Output {
  std::string text;
  int exit_code = -1;
};

// Runs a line of the shell and gives what it prints on standard output.
inline Output runLine(const std::string& line) {
  Output output;
  std::FILE* pipe = popen(line.c_str(), "re");
  if (!pipe) return output;
  char part[65536];
  while (const std::size_t size = std::fread(part, 1, sizeof part, pipe)) {
    output.text.append(part, size);
  }
  const int status = pclose(pipe);
  output.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return output;
}

}  // namespace qeltest
