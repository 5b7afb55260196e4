// Loads and unloads the library, or a module that uses it, in a process that knows nothing of them:
// load_program LIBRARY [SECOND_COPY].
#include <dlfcn.h>
#include <malloc.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

namespace {

struct State {
  std::size_t bytes = mallinfo2().uordblks;
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

// A module that uses the library says what went wrong. On a thread that ends, as the loader keeps
// what the thread still has to destroy.
void use(void* loaded) {
  using Use = const char*(const char*);
  Use* const function = reinterpret_cast<Use*>(dlsym(loaded, "UseLibraryIn"));
  if (!function) return;
  std::thread([&] { std::fputs(function(std::getenv("QEL_TEST_FOLDER")), stdout); }).join();
}

int loadOften(const char* library) {
  constexpr long cycles = 100;
  constexpr long settled = 20;
  State early;
  for (long i = 1; i <= cycles; ++i) {
    void* const loaded = dlopen(library, RTLD_NOW);
    if (!loaded) return std::puts(dlerror()), 1;
    if (i == 1) std::fputs(caught(), stdout);
    use(loaded);
    dlclose(loaded);
    if (i == settled) early = look();
  }
  const State late = look();
  constexpr long smallest_block = 16;
  const long bytes = static_cast<long>(late.bytes - early.bytes);
  std::printf("mapped %d handler %d threads +%ld files +%ld blocks +%ld mappings +%ld\n",
              late.is_mapped, late.has_handler, late.threads - early.threads,
              late.files - early.files, bytes / smallest_block / (cycles - settled),
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
