// A user's program: faults caught as exceptions and told on standard output, faults that end it,
// and what is asked once in a process. Built with what the library's target hands to its users, and
// nothing else. Run by the tests beside it: user_program WHAT HOW.
#include <qelbase/qelbase.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <cfenv>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#define NOINLINE __attribute__((noinline))

namespace {

using namespace qel::sys;

// Owned by each function that faults: the exception must not leave it behind.
std::atomic<int> alive = 0;
struct Owned {
  Owned() { ++alive; }
  ~Owned() { --alive; }
};

template <class T>
T hidden(T value) {
  T volatile kept = value;
  return kept;
}

// --- faults ---

NOINLINE int read(const volatile int* at) {
  const Owned owned;
  return *at;
}
NOINLINE void write(volatile int* at) {
  const Owned owned;
  *at = 1;
}
NOINLINE void call(void (*function)()) {
  const Owned owned;
  function();
}
NOINLINE int divide(int a, int b) {
  const Owned owned;
  return a / b;
}
NOINLINE long divideFrom(long a, const volatile long* b) {
  const Owned owned;
  return a / *b;
}

void readNothing() {
  read(hidden<int*>(nullptr));
}
void writeText() {
  write(reinterpret_cast<int*>(hidden(const_cast<char*>("a constant"))));
}
void callNothing() {
  call(hidden<void (*)()>(nullptr));
}
void readNoAddress() {
  read(hidden(reinterpret_cast<int*>(0x8000000000000000)));
}

void readCutFile() {
  const Owned owned;
  const int file = memfd_create("cut", 0);
  if (ftruncate(file, 4096) != 0) return;
  auto* const memory = static_cast<int*>(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0));
  if (ftruncate(file, 0) != 0) return;
  close(file);
  read(memory);
}

void divideByZero() {
  hidden(divide(1, hidden(0)));
}
void divideOverflowing() {
  hidden(divide(hidden(INT_MIN), hidden(-1)));
}
void divideOverflowingFromMemory() {
  const long by[] = {0, 0, hidden(-1L)};
  hidden(divideFrom(hidden(LONG_MIN), by + hidden(2)));
}

template <class Operation>
NOINLINE double trapping(int trap, Operation operation) {
  const Owned owned;
  feenableexcept(trap);
  const struct Untrap {
    ~Untrap() {
      if (fegetexcept() == 0) ++alive;  // the fault has left another control behind
      fedisableexcept(FE_ALL_EXCEPT), feclearexcept(FE_ALL_EXCEPT);
    }
  } untrap;
  volatile double result = operation();
  return result;
}

NOINLINE double quotient(double a, double b) {
  return a / b;
}
NOINLINE double product(double a, double b) {
  return a * b;
}

void floatDivideByZero() {
  trapping(FE_DIVBYZERO, [] { return quotient(1, hidden(0.0)); });
}
void floatInexact() {
  trapping(FE_INEXACT, [] { return quotient(1, hidden(3.0)); });
}
void floatInvalid() {
  trapping(FE_INVALID, [] { return quotient(hidden(0.0), hidden(0.0)); });
}
void floatOverflow() {
  trapping(FE_OVERFLOW, [] { return product(hidden(1e300), 1e300); });
}
void floatUnderflow() {
  trapping(FE_UNDERFLOW, [] { return product(hidden(1e-300), 1e-300); });
}

#if defined(__x86_64__)
void floatDenormal() {
  const Owned owned;
  const struct Masks {
    unsigned before = __builtin_ia32_stmxcsr();
    Masks() { __builtin_ia32_ldmxcsr(before & ~0x100U); }
    ~Masks() { __builtin_ia32_ldmxcsr(before); }
  } masks;
  hidden(product(hidden(4e-320), 2));
}

// Assembler is nothing that the compiler takes for a fault of the function itself.
#define OPAQUE __attribute__((noipa))
OPAQUE void execute(const char* what) {
  const unsigned short unmasked = 0x37E;
  if (*what == 'h') __asm__ volatile("hlt");
  if (*what == 'u') __asm__ volatile("ud2");
  if (*what == 'f') __asm__ volatile("fninit; fldcw %0; fstp %%st(0); fwait" : : "m"(unmasked));
}
void floatStack() {
  const Owned owned;
  const struct Untrap {
    ~Untrap() { __asm__ volatile("fninit"); }
  } untrap;
  execute("f");
}
void halt() {
  const Owned owned;
  execute("h");
}
void undefined() {
  const Owned owned;
  execute("u");
}
// The place behind the instruction is none of the function's.
OPAQUE void stop() {
  __asm__ volatile("int3");
  __builtin_unreachable();
}
void breakpoint() {
  const Owned owned;
  stop();
}

OPAQUE void setFlag(unsigned long long flag) {
  __builtin_ia32_writeeflags_u64(__builtin_ia32_readeflags_u64() | flag);
  __asm__ volatile("nop; nop");
}
void singleStep() {
  const Owned owned;
  setFlag(0x100);
}
OPAQUE int readMisaligned(const char* at) {
  __builtin_ia32_writeeflags_u64(__builtin_ia32_readeflags_u64() | 0x40000);
  int value = 0;
  __asm__ volatile("movl 1(%1), %0" : "=r"(value) : "r"(at));
  return value;
}
void misaligned() {
  const Owned owned;
  alignas(8) const char bytes[8] = {};
  hidden(readMisaligned(bytes));
}
#endif

// A recursion needs a statement that may throw, else no caller is prepared for it.
NOINLINE int recurse(int depth, const volatile int* zero) {
  const Owned owned;
  volatile char frame[1000];
  frame[0] = static_cast<char>(*zero);
  return depth == INT_MAX ? 0 : recurse(depth + 1 + *zero, zero) + frame[0];
}
void overflow() {
  const int zero = 0;
  hidden(recurse(hidden(0), hidden(&zero)));
}
// With a large frame the function faults before it has begun.
NOINLINE int recurseWide(int depth, const volatile int* zero) {
  volatile char frame[40000];
  std::memset(const_cast<char*>(frame), depth + *zero, sizeof frame);
  const Owned owned;
  return depth == INT_MAX ? 0 : recurseWide(depth + 1, zero) + frame[7];
}
void overflowWide() {
  const int zero = 0;
  hidden(recurseWide(hidden(0), hidden(&zero)));
}

const std::map<std::string, void (*)()> faults = {
    {"read", readNothing},
    {"write", writeText},
    {"call", callNothing},
    {"noaddress", readNoAddress},
    {"cutfile", readCutFile},
    {"intdivide", divideByZero},
    {"intoverflow", divideOverflowing},
    {"longoverflow", divideOverflowingFromMemory},
    {"fltdivide", floatDivideByZero},
    {"fltinexact", floatInexact},
    {"fltinvalid", floatInvalid},
    {"fltoverflow", floatOverflow},
    {"fltunderflow", floatUnderflow},
#if defined(__x86_64__)
    {"fltdenormal", floatDenormal},
    {"fltstack", floatStack},
    {"misaligned", misaligned},
    {"halt", halt},
    {"undefined", undefined},
    {"breakpoint", breakpoint},
    {"singlestep", singleStep},
#endif
    {"overflow", overflow},
    {"overflowwide", overflowWide},
};

std::string caught(void (*fault)()) {
  try {
    fault();
  } catch (const MException& e) {
    int status = 0;
    char* const name = abi::__cxa_demangle(typeid(e).name(), nullptr, nullptr, &status);
    char line[512];
    std::snprintf(line, sizeof line, "%s %d\n%ls%ls", name, alive.load(), e.GetName(),
                  e.GetDescription());
    std::free(name);
    return line;
  }
  return "nothing\n";
}

// --- what surrounds a fault ---

// Twice, since the first one must leave everything ready for the second.
int show(void (*fault)()) {
  caught(fault);
  std::fputs(caught(fault).c_str(), stdout);
  return 0;
}

int onThreads(void (*fault)(), bool has_translator) {
  constexpr int threads = 10;
  std::atomic<int> right = 0;
  std::barrier together(threads);
  {
    std::vector<std::jthread> all;
    all.reserve(threads);
    for (int i = 0; i < threads; ++i) {
      all.emplace_back([&, translator = GetTranslator()] {
        if (has_translator) _set_se_translator(translator);
        together.arrive_and_wait();
        for (int turn = 0; turn < 20; ++turn) {
          if (caught(fault).starts_with("M")) ++right;
        }
      });
    }
  }
  std::printf("%d of 200, %d left\n", right.load(), alive.load());
  return 0;
}

int inCatchClause() {
  try {
    readNothing();
  } catch (const MException&) {
    std::fputs(caught(divideByZero).c_str(), stdout);
    std::fputs(caught(readNothing).c_str(), stdout);
  }
  return 0;
}

void replaced(unsigned int code, EXCEPTION_POINTERS* pointers) {
  if (code != EXCEPTION_ACCESS_VIOLATION) return;
  throw *pointers->ExceptionRecord;
}

int ownTranslator() {
  const auto before = _set_se_translator(replaced);
  try {
    write(hidden(reinterpret_cast<int*>(0x123)));
  } catch (const EXCEPTION_RECORD& record) {
    std::printf("%x %d %d %llx\n", record.ExceptionCode, record.NumberParameters,
                static_cast<int>(record.ExceptionInformation[0]),
                static_cast<unsigned long long>(record.ExceptionInformation[1]));
  }
  std::printf("%d\n", _set_se_translator(before) == replaced);
  std::fflush(stdout);
  _set_se_translator(replaced);
  try {
    divideByZero();  // not taken by it
  } catch (...) {
  }
  return 0;
}

int inLibrary() {
  const auto call = [] {
    MString text(L"text");
    std::string dest;
    WideCharToMultiByte(CP_UTF8, 0, hidden<wchar_t*>(nullptr) + 5, 3, dest.data(), 0, nullptr,
                        nullptr);
  };
  std::fputs(caught(call).c_str(), stdout);
  return 0;
}

// --- handlers of others ---

extern "C" void first(int, siginfo_t*, void*) {
  std::puts("first handler");
  std::fflush(stdout);
  _exit(7);
}

// Before any library of the program begins.
void setFirst(int, char**, char** environment) {
  while (*environment && std::strcmp(*environment, "FIRST_HANDLER=1") != 0) ++environment;
  if (!*environment) return;
  struct sigaction action {};
  action.sa_sigaction = first;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &action, nullptr);
}
__attribute__((section(".preinit_array"), used)) void (*const begin)(int, char**,
                                                                     char**) = setFirst;

// A handler that came later, and hands down.
int withHandlerOnTop() {
  static struct sigaction below;
  struct sigaction top {};
  top.sa_sigaction = [](int signal, siginfo_t* info, void* context) {
    std::puts("on top");
    below.sa_sigaction(signal, info, context);
  };
  top.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &top, &below);
  return show(readNothing);
}

// --- faults that are nobody's exception ---

int endHere(const std::string& how) {
  if (how == "untranslated") _set_se_translator(nullptr), caught(readNothing);
  if (how == "uncaught") readNothing();
  if (how == "noexcept") caught([] { []() noexcept { readNothing(); }(); });
  if (how == "allocator") caught([] { std::free(hidden(reinterpret_cast<void*>(64))); });
  if (how == "sent") caught([] { kill(getpid(), SIGSEGV), pause(); });
  if (how == "trap") _set_se_translator(nullptr), raise(SIGTRAP);
  return 3;
}

// Whether there is a debugger is asked at the first flush.
int countTime() {
  ClockOverride clock;
  clock.setPerformanceCounter(0);
  SetDebugSink([](std::wstring_view text) { std::printf("%ls", std::wstring(text).c_str()); });
  {
    const DebuggerOverride debugger(true);
    CTimeCountOutput(L"first").FlushAndDisable();
  }
  const DebuggerOverride none(false);
  CTimeCountOutput(L"second").FlushAndDisable();
  SetDebugSink({});
  return 0;
}

int run(const std::string& what, const std::string& how) {
  if (what == "end") return endHere(how);
  if (const auto fault = faults.find(how); fault != faults.end()) {
    if (what == "show") return show(fault->second);
    if (what == "threads") return onThreads(fault->second, true);
    if (what == "strange") return onThreads(fault->second, false);
  }
  if (how == "catch") return inCatchClause();
  if (how == "translator") return ownTranslator();
  if (how == "library") return inLibrary();
  if (how == "time") return countTime();
  if (how == "ontop") return withHandlerOnTop();
  return 2;
}

}  // namespace

int main(int count, char** words) {
  return count == 3 ? run(words[1], words[2]) : 2;
}
