// Faults of the processor as a user's program meets them, in processes of their own.
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "qelbase/platform/hard_exceptions_internal.h"

#include "tests/support/TempFolder.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool is_sanitized = true;
#else
constexpr bool is_sanitized = false;
#endif
#if defined(__SANITIZE_THREAD__)
constexpr bool is_thread_sanitized = true;
#else
constexpr bool is_thread_sanitized = false;
#endif

// The search for leaks works neither under a debugger nor without the library's memory.
constexpr const char* without_leaks = "ASAN_OPTIONS=use_sigaltstack=0:detect_leaks=0";

struct End {
  std::string out;
  int exit_code = -1;
  int signal = 0;
};

// `setting` goes in front: NAME=VALUE. A sanitizer is there first; it gives way where it is told
// to.
End run(const std::string& words, const std::string& setting = "QEL_FAULTS=1") {
  // The thread sanitizer takes a throw out of a handler for unsafe.
  const std::string all = setting + " TSAN_OPTIONS=report_signal_unsafe=0";
  std::FILE* const out = popen(("exec env " + all + " " + words + " 2>/dev/null").c_str(), "r");
  End end;
  for (int c = 0; (c = std::fgetc(out)) != EOF;) end.out += static_cast<char>(c);
  const int status = pclose(out);
  if (WIFEXITED(status)) end.exit_code = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) end.signal = WTERMSIG(status);
  return end;
}

End runFault(const std::string& words, const std::string& setting = "QEL_FAULTS=1") {
  return run(USER_PROGRAM " " + words, setting);
}

// --- each fault ---

struct Row {
  const char* fault;
  const char* kind;
  const char* name;
  const char* description;  // how it begins
};

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.fault;
}

class Faults : public testing::TestWithParam<Row> {};

TEST_P(Faults, ArriveAsExceptionsAndLeaveNothingBehind) {
  const Row& row = GetParam();
  const std::string fault = row.fault;
  if (is_thread_sanitized && fault.starts_with("overflow")) GTEST_SKIP();
  // The sanitizer's handler runs first, with the check of alignment still on, and faults itself.
  if (is_thread_sanitized && fault == "misaligned") GTEST_SKIP();
  // The sanitizer's own look at the address faults first, where no statement may throw.
  if (is_sanitized && fault == "noaddress") GTEST_SKIP();
  const End end = runFault("show " + fault);
  const std::string expected =
      std::string(row.kind) + " 0\nEXCEPTION_" + row.name + "\n" + row.description;
  EXPECT_EQ(end.out.substr(0, expected.size()), expected);
  EXPECT_EQ(end.exit_code, 0) << end.signal;
}

constexpr const char* access = "The thread tried to read from or write to";
constexpr Row rows[] = {
    {"read", "MHardException", "ACCESS_VIOLATION", access},
    {"write", "MHardException", "ACCESS_VIOLATION", access},
    {"call", "MHardException", "ACCESS_VIOLATION", access},
    {"noaddress", "MHardException", "ACCESS_VIOLATION", access},
    {"cutfile", "MHardException", "IN_PAGE_ERROR", "The thread tried to access a page"},
    {"fltdivide", "MMFltException", "FLT_DIVIDE_BY_ZERO", "The thread tried to divide a float"},
    {"fltinexact", "MMFltException", "FLT_INEXACT_RESULT", "The result of a floating-point"},
    {"fltinvalid", "MMFltException", "FLT_INVALID_OPERATION", "This exception represents any"},
    {"fltoverflow", "MMFltException", "FLT_OVERFLOW",
     "The exponent of a floating-point operation "
     "is greater"},
    {"fltunderflow", "MMFltException", "FLT_UNDERFLOW",
     "The exponent of a floating-point operation "
     "is less"},
    {"overflow", "MMException", "STACK_OVERFLOW", "The thread used up its stack."},
    {"overflowwide", "MMException", "STACK_OVERFLOW", "The thread used up its stack."},
#if defined(__x86_64__)
    {"intdivide", "MMIntException", "INT_DIVIDE_BY_ZERO", "The thread tried to divide an integer"},
    {"intoverflow", "MMIntException", "INT_OVERFLOW", "The result of an integer operation"},
    {"longoverflow", "MMIntException", "INT_OVERFLOW", "The result of an integer operation"},
    {"fltdenormal", "MMFltException", "FLT_DENORMAL_OPERAND", "One of the operands in a"},
    {"fltstack", "MMFltException", "FLT_STACK_CHECK", "The stack overflowed or underflowed"},
    {"misaligned", "MHardException", "DATATYPE_MISALIGNMENT", "The thread tried to read or write"},
    {"halt", "MHardException", "PRIV_INSTRUCTION", "The thread tried to execute an instruction"},
    {"undefined", "MHardException", "ILLEGAL_INSTRUCTION",
     "The thread tried to execute an invalid"},
    {"breakpoint", "MHardException", "BREAKPOINT", "A breakpoint was encountered."},
    {"singlestep", "MHardException", "SINGLE_STEP", "A trace trap or other single-instruction"},
#endif
};
INSTANTIATE_TEST_SUITE_P(Each, Faults, testing::ValuesIn(rows),
                         [](const auto& each) { return std::string(each.param.fault); });

// --- what surrounds them ---

TEST(FaultTranslation, WorksOnManyThreadsAtOnce) {
  for (const char* fault : {"read", "cutfile", "fltdivide"}) {
    EXPECT_EQ(runFault(std::string("threads ") + fault).out, "200 of 200, 0 left\n") << fault;
  }
  if (is_thread_sanitized) return;
  EXPECT_EQ(runFault("threads overflowwide").out, "200 of 200, 0 left\n");
}

TEST(FaultTranslation, WorksInACatchClauseInTheLibraryAndUnderAHandlerOnTop) {
  const End nested = runFault("x catch");
  EXPECT_TRUE(nested.out.starts_with("MMIntException 0\n")) << nested.out;
  EXPECT_NE(nested.out.find("MHardException 0\n"), std::string::npos);
  EXPECT_TRUE(runFault("x library").out.starts_with("MHardException 0\n"));
  EXPECT_TRUE(runFault("x ontop").out.starts_with("on top\non top\nMHardException 0\n"));
}

TEST(FaultTranslation, AsksTheTranslatorOfTheThread) {
  const End end = runFault("x translator");
  EXPECT_EQ(end.out, "c0000005 2 1 123\n1\n");  // writing, at 0x123
  EXPECT_NE(end.exit_code, 0);                  // a division that it does not take
  EXPECT_TRUE(is_sanitized || end.signal == SIGFPE) << end.signal;
}

TEST(FaultTranslation, LeavesTheProcessToItsSignalWhereNothingCatches) {
  if (is_sanitized) GTEST_SKIP() << "the sanitizer ends the process in its own way";
  const std::string setting = "QEL_FAULTS=";
  for (const char* how : {"untranslated", "uncaught", "noexcept", "allocator", "sent"}) {
    EXPECT_EQ(runFault(std::string("end ") + how, setting).signal, SIGSEGV) << how;
  }
  EXPECT_EQ(runFault("end trap", setting).signal, SIGTRAP);
  EXPECT_EQ(runFault("strange read", setting).signal, SIGSEGV);
  EXPECT_EQ(runFault("show read", "QEL_FAULTS=0").signal, SIGSEGV);
}

TEST(FaultTranslation, LeavesASignalToTheHandlerThatWasThereFirst) {
  if (is_sanitized) {  // which is the first handler itself
    const End end = runFault("show read", "QEL_FAULTS=");
    EXPECT_NE(end.exit_code, 0);
    EXPECT_EQ(end.out, "");
    return;
  }
  EXPECT_EQ(runFault("show read", "FIRST_HANDLER=1").out, "first handler\n");
  EXPECT_TRUE(runFault("show intdivide", "FIRST_HANDLER=1").out.starts_with("MMInt"));
  const std::string both = "FIRST_HANDLER=1 QEL_FAULTS=1";
  EXPECT_TRUE(runFault("show read", both).out.starts_with("MHard"));
  const End untranslated = runFault("end untranslated", both);
  EXPECT_EQ(untranslated.out, "first handler\n");
  EXPECT_EQ(untranslated.exit_code, 7);
}

TEST(FaultTranslation, ComesAfterADebugger) {
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    setenv("QEL_FAULTS", "1", 1);
    setenv("ASAN_OPTIONS", without_leaks + std::strlen("ASAN_OPTIONS="), 1);
    if (!std::freopen("/dev/null", "w", stdout)) _exit(126);
    execl(USER_PROGRAM, USER_PROGRAM, "show", "read", nullptr);
    _exit(127);
  }
  int status = 0;
  int faults = 0;
  while (waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
    const int signal = WSTOPSIG(status);
    if (signal == SIGSEGV) ++faults;
    ptrace(PTRACE_CONT, child, nullptr, signal == SIGTRAP ? 0 : signal);
  }
  EXPECT_EQ(faults, 2);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(FaultTranslation, LeavesNothingOfAnUnloadedLibrary) {
  const std::string load = LOAD_PROGRAM " " QELBASE_LIBRARY;
  const std::string handler = is_sanitized ? "handler 1" : "handler 0";
  // The allocator's own stores would count as blocks in use.
  const std::string setting =
      std::string("QEL_FAULTS=1 GLIBC_TUNABLES=glibc.malloc.tcache_count=0 ") + without_leaks;
  std::string end = run(load, setting).out;
  if (is_sanitized)
    end = end.substr(0, end.rfind('+')) + "+0\n";  // the mappings are the sanitizer's
  EXPECT_EQ(end, "caught mapped 0 " + handler + " threads +0 files +0 blocks +0 mappings +0\n");

  const qeltest::TempFolder folder;
  const std::string copy = (folder / "libcopy.so").string();
  std::filesystem::copy_file(QELBASE_LIBRARY, copy);
  EXPECT_EQ(run(load + " " + copy, setting).out, "caught caught caught " + handler + "\n");
}

// --- the table ---

TEST(FaultTranslation, ThrowsByTheTableWhateverTheProcessorKnows) {
  using namespace qel::sys;
  const auto kind = [](unsigned code) -> std::string {
    try {
      TranslateFault(code, nullptr);
    } catch (const MException& e) {
      const MException copy = e;
      EXPECT_EQ(copy.GetCode(), code);
      EXPECT_EQ(copy.GetName(), e.GetName());
      return typeid(e).name();
    }
    return "none";
  };
  for (const unsigned code : {EXCEPTION_NONCONTINUABLE_EXCEPTION, EXCEPTION_INVALID_DISPOSITION}) {
    EXPECT_EQ(kind(code), typeid(MHardException).name());
  }
  EXPECT_EQ(kind(EXCEPTION_ARRAY_BOUNDS_EXCEEDED), typeid(MMException).name());
  for (const unsigned code : {0U, 0xFFFFFFFFU, 0xC00000FEU, 5U}) EXPECT_EQ(kind(code), "none");

  const MException::Row row[] = {{MException::END_OF_TABLE, nullptr, nullptr}};
  EXPECT_EQ(MException(5, row).GetName(), nullptr);
}

}  // namespace
