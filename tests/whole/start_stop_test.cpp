#include <gtest/gtest.h>

#include <string>

#include "tests/platform/processes.h"
#include "tests/support/TempFolder.h"

using namespace qeltest;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool is_sanitized = true;  // by what has handlers, threads and memory of its own
#else
constexpr bool is_sanitized = false;
#endif

class StartAndStop : public testing::Test {
 protected:
  StartAndStop() {
    m_variables.set("QEL_TEST_FOLDER", m_folder.path().c_str());
    m_variables.set("QEL_REGISTRY", (m_folder / "registry").c_str());
  }

  TempFolder m_folder;
  Variables m_variables;
};

TEST_F(StartAndStop, RunInTheOrderThatUsersAreTold) {
  if (is_sanitized) GTEST_SKIP() << "the sanitizer stands between";
  EXPECT_EQ(runLine(START_PROGRAM).text,
            "provider \n"
            "faults D\n"
            "units DU\n"
            "product DUC\n"
            "main DUCPH\n"
            "units DUCPH\n"
            "told DUCPH\n"
            "faults DUCPH\n"
            "provider DUCPH\n");
}

TEST_F(StartAndStop, LeaveNothingAfterAHundredModulesThatUsedTheLibrary) {
  if (is_sanitized) GTEST_SKIP() << "the sanitizer's memory is counted";
  // The allocator's own stores would count as blocks in use.
  m_variables.set("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0:glibc.malloc.arena_max=1");
  const Output output = runLine(LOAD_PROGRAM " " WHOLE_MODULE);
  EXPECT_EQ(output.text, "caught mapped 0 handler 0 threads +0 files +0 blocks +0 mappings +0\n");
  EXPECT_EQ(output.exit_code, 0);
}

TEST_F(StartAndStop, LetAProgramUseTheLibraryBeforeAndAfterMain) {
  const Output output = runLine(STATICS_PROGRAM);
  EXPECT_EQ(output.text,
            "before main: good\n"
            "main: good\n"
            "exit handler: good\n"
            "static destructor: good\n"
            "last: good\n");
  EXPECT_EQ(output.exit_code, 0);
}

}  // namespace
