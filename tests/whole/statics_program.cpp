// Its own static objects and exit handlers use the library: before main, and when main is over.
// statics_program FOLDER: says what went wrong in each stage.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/whole/use_library.h"

namespace {

void use(const char* stage) {
  const std::string failed = UseLibrary(std::getenv("QEL_TEST_FOLDER"));
  std::printf("%s: %s\n", stage, failed.empty() ? "good" : failed.c_str());
  std::fflush(stdout);
}

struct Static {
  Static() { use("before main"); }
  ~Static() { use("static destructor"); }
} object;

__attribute__((destructor)) void last() {
  use("last");
}

}  // namespace

int main() {
  std::atexit([] { use("exit handler"); });
  use("main");
}
