// Loads and unloads the library in a process that knows nothing of it. Run by faults_test.cpp:
// load_program LIBRARY [SECOND_COPY].
#include <dlfcn.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

struct State {
  long threads = 0;
  long files = 0;
  long mappings = 0;  // of any kind
  bool is_mapped = false;
  bool has_handler = false;
};

State look() {
  namespace fs = std::filesystem;
  State state;
  state.threads = std::distance(fs::directory_iterator("/proc/self/task"), {});
  state.files = std::distance(fs::directory_iterator("/proc/self/fd"), {});
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line); ++state.mappings) {
    state.is_mapped |= line.find("libqelbase") != std::string::npos;
  }
  struct sigaction action {};
  sigaction(SIGSEGV, nullptr, &action);
  state.has_handler = action.sa_sigaction != nullptr;
  return state;
}

__attribute__((noipa)) int read(const volatile int* at) {
  return *at;
}

const char* caught() {
  try {
    read(nullptr);
  } catch (...) {
    return "caught ";
  }
  return "nothing ";
}

int loadOften(const char* library) {
  State early;
  for (int i = 0; i < 100; ++i) {
    void* const loaded = dlopen(library, RTLD_NOW);
    if (!loaded) return std::puts(dlerror()), 1;
    if (i == 0) std::fputs(caught(), stdout);
    dlclose(loaded);
    if (i == 20) early = look();
  }
  const State late = look();
  std::printf("mapped %d handler %d threads +%ld files +%ld mappings +%ld\n", late.is_mapped,
              late.has_handler, late.threads - early.threads, late.files - early.files,
              late.mappings - early.mappings);
  return 0;
}

int loadBoth(const char* library, const char* copy) {
  void* const first = dlopen(library, RTLD_NOW | RTLD_LOCAL);
  std::fputs(caught(), stdout);
  void* const second = dlopen(copy, RTLD_NOW | RTLD_LOCAL);
  std::fputs(caught(), stdout);
  dlclose(second);
  std::fputs(caught(), stdout);
  dlclose(first);
  std::printf("handler %d\n", look().has_handler);
  return first == second;
}

}  // namespace

int main(int count, char** words) {
  return count == 2 ? loadOften(words[1]) : loadBoth(words[1], words[2]);
}
