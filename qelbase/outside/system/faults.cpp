#include "qelbase/outside/system/faults.h"

#include <pthread.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <string_view>

#include "qelbase/outside/system/faults_internal.h"

namespace qel::sys {

namespace {

using faults::StackRange;

// --- the alternate stack of a thread ---

class AlternateStack {
 public:
  // Takes the thread's own one if it is large enough.
  AlternateStack() {
    if (sigaltstack(nullptr, &m_before) != 0) return;
    if ((m_before.ss_flags & SS_DISABLE) == 0 && m_before.ss_size >= enough) return;
    const std::size_t size = bytes();
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) return;
    mprotect(memory, guard, PROT_NONE);
    const stack_t ours = {.ss_sp = memory, .ss_flags = 0, .ss_size = size};
    if (sigaltstack(&ours, nullptr) == 0) {
      m_memory = memory;
    } else {
      munmap(memory, size);
    }
  }

  // On the thread itself. What was there before comes back, unless it is another one by now.
  ~AlternateStack() {
    stack_t present{};
    if (!m_memory || sigaltstack(nullptr, &present) != 0) return;
    if ((present.ss_flags & SS_ONSTACK) != 0)
      return;  // a handler ends the process: it stands on it
    if (present.ss_sp == m_memory) sigaltstack(&m_before, nullptr);
    munmap(m_memory, bytes());
  }
  AlternateStack(const AlternateStack&) = delete;
  AlternateStack& operator=(const AlternateStack&) = delete;

 private:
  static constexpr std::size_t enough = 64 * 1024;  // handler, translator, throw and unwinding
  static constexpr std::size_t guard = 64 * 1024;

  // With the kernel's frame, which grows with the processor's registers.
  static std::size_t bytes() {
    constexpr std::size_t room = 256 * 1024;
    const std::size_t frame = getauxval(AT_MINSIGSTKSZ);
    return guard + room + ((frame + guard - 1) & ~(guard - 1));
  }

  stack_t m_before{};
  void* m_memory = nullptr;
};

// --- the stack of a thread ---

constexpr std::uintptr_t page = 4096;

StackRange stackOfThread() {
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return {};
  void* low = nullptr;
  std::size_t size = 0;
  std::size_t guard = 0;
  pthread_attr_getstack(&attributes, &low, &size);
  pthread_attr_getguardsize(&attributes, &guard);
  pthread_attr_destroy(&attributes);
  const auto usable = (reinterpret_cast<std::uintptr_t>(low) + page - 1) & ~(page - 1);
  return {.guard = usable - guard, .low = usable, .size = size};
}

// The last pages of a stack, kept closed: the clean-ups that a stack overflow unwinds need room to
// run in. Opened by the overflow, closed when it is over.
class StackReserve {
 public:
  explicit StackReserve(const StackRange& stack) : m_memory(reinterpret_cast<void*>(stack.low)) {
    constexpr std::size_t smallest = 8 * StackRange::reserve;
    constexpr std::size_t largest = std::size_t{1} << 32;  // no limit at all is not come to
    if (stack.size < smallest || stack.size > largest) return;
    m_is_below_stack = gettid() == getpid() && mapBelowStack();
    m_exists = m_is_below_stack || protect(PROT_NONE);
  }

  // The memory goes back to the owner of the stack, who may use it again.
  ~StackReserve() {
    if (!m_exists) return;
    if (m_is_below_stack) {
      munmap(m_memory, StackRange::reserve);
    } else {
      protect(PROT_READ | PROT_WRITE);
    }
  }
  StackReserve(const StackReserve&) = delete;
  StackReserve& operator=(const StackReserve&) = delete;

  // False if it is open already, so that there is no room left.
  bool open() {
    if (!m_exists || m_is_open) return false;
    if (m_is_below_stack) growStack();
    m_is_open = protect(PROT_READ | PROT_WRITE);
    return m_is_open;
  }

  // False while the stack reaches into it.
  bool close(std::uintptr_t stack_pointer) {
    if (!m_exists) return false;
    if (!m_is_open) return true;
    const auto end = reinterpret_cast<std::uintptr_t>(m_memory) + StackRange::reserve;
    if (stack_pointer < end + page) return false;
    m_is_open = !protect(PROT_NONE);
    return !m_is_open;
  }

 private:
  // The first thread's stack grows downwards up to here, and the kernel lets it touch what is
  // closed.
  bool mapBelowStack() {
    constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE | MAP_NORESERVE;
    void* const at = mmap(m_memory, StackRange::reserve, PROT_NONE, flags, -1, 0);
    if (at != MAP_FAILED && at != m_memory) munmap(at, StackRange::reserve);
    return at == m_memory;
  }
  // The kernel does not let it grow any more into the neighbourhood of what is open.
  void growStack() {
    static_cast<void>(static_cast<volatile char*>(m_memory)[StackRange::reserve]);
  }
  bool protect(int access) { return mprotect(m_memory, StackRange::reserve, access) == 0; }

  void* m_memory;
  bool m_is_below_stack = false;
  bool m_exists = false;
  bool m_is_open = false;
};

// --- a thread that has or had a translator ---

struct FaultThread {
  _se_translator_function translator = nullptr;
  bool is_looking = false;  // at the frames: a fault there has no place to go
  StackRange stack = stackOfThread();
  StackReserve reserve{stack};
  AlternateStack alternate;
};

// In the static block of each thread: reading it in a handler allocates nothing.
__attribute__((tls_model("initial-exec"))) constinit thread_local FaultThread* this_thread =
    nullptr;

void endThread(void* thread) {
  this_thread = nullptr;
  delete static_cast<FaultThread*>(thread);
}

// --- the handlers of the process ---

constexpr std::array handled = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};

enum class Mode { off, where_free, always };

Mode modeFromEnvironment() {
  const char* const text = std::getenv("QEL_FAULTS");
  const std::string_view value = text ? text : "";
  return value == "0" ? Mode::off : value == "1" ? Mode::always : Mode::where_free;
}

void handle(int signal, siginfo_t* info, void* context);

bool isOurs(const struct sigaction& action) {
  return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == handle;
}

bool isFree(const struct sigaction& action) {
  return (action.sa_flags & SA_SIGINFO) == 0 &&
         (action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN);
}

// One for the process, from the first translator to the library's end.
class SignalHandlers {
 public:
  SignalHandlers() : m_mode(modeFromEnvironment()) {
    m_has_key = pthread_key_create(&m_key, endThread) == 0;
    if (!m_has_key || m_mode == Mode::off) return;
    for (std::size_t i = 0; i < handled.size(); ++i) install(i);
  }

  ~SignalHandlers() {
    if (!m_has_key) return;
    for (std::size_t i = 0; i < handled.size(); ++i) putBack(i);
    if (this_thread) endThread(this_thread);
    pthread_key_delete(m_key);
    m_has_key = false;
  }
  SignalHandlers(const SignalHandlers&) = delete;
  SignalHandlers& operator=(const SignalHandlers&) = delete;

  // Null if there is no memory, and after the library's end.
  FaultThread* enter() {
    if (!m_has_key) return nullptr;
    auto* const thread = new (std::nothrow) FaultThread;
    if (!thread || pthread_setspecific(m_key, thread) == 0) return thread;
    delete thread;
    return nullptr;
  }

  struct sigaction& before(int signal) {
    for (std::size_t i = 0; i < handled.size(); ++i) {
      if (handled[i] == signal) return m_before[i];
    }
    return m_none;
  }

 private:
  void install(std::size_t i) {
    struct sigaction& before = m_before[i];
    if (sigaction(handled[i], nullptr, &before) != 0) return;
    if (m_mode == Mode::where_free && !isFree(before)) return;
    struct sigaction ours {};
    ours.sa_sigaction = handle;
    ours.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER | (before.sa_flags & SA_RESTART);
    m_is_installed[i] = sigaction(handled[i], &ours, nullptr) == 0;
  }

  void putBack(std::size_t i) {
    struct sigaction present {};
    if (!m_is_installed[i] || sigaction(handled[i], nullptr, &present) != 0) return;
    if (isOurs(present)) sigaction(handled[i], &m_before[i], nullptr);
  }

  Mode m_mode;
  bool m_has_key = false;
  pthread_key_t m_key{};
  std::array<struct sigaction, handled.size()> m_before{};
  std::array<bool, handled.size()> m_is_installed{};
  struct sigaction m_none {};
};

SignalHandlers& handlers() {
  static SignalHandlers instance;
  return instance;
}

// --- a fault that is not translated ---

// As the signal alone would have done it: the faulting instruction runs again, and what was sent or
// has stepped on already is sent again.
void endBySignal(int signal, siginfo_t* info) {
  struct sigaction plain {};
  plain.sa_handler = SIG_DFL;
  sigaction(signal, &plain, nullptr);
  if (info->si_code > 0 && signal != SIGTRAP) return;
  if (syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), signal, info) != 0) raise(signal);
}

void callHandler(struct sigaction& before, int signal, siginfo_t* info, void* context) {
  const struct sigaction action = before;
  if ((action.sa_flags & static_cast<int>(SA_RESETHAND)) != 0) {
    before = {};
    before.sa_handler = SIG_DFL;
  }
  sigset_t blocked = action.sa_mask;
  if ((action.sa_flags & SA_NODEFER) == 0) sigaddset(&blocked, signal);
  sigset_t outer;
  pthread_sigmask(SIG_BLOCK, &blocked, &outer);
  if ((action.sa_flags & SA_SIGINFO) != 0) {
    action.sa_sigaction(signal, info, context);
  } else {
    action.sa_handler(signal);
  }
  pthread_sigmask(SIG_SETMASK, &outer, nullptr);
}

void passOn(int signal, siginfo_t* info, void* context) {
  struct sigaction& before = handlers().before(signal);
  if (!isFree(before)) return callHandler(before, signal, info, context);
  const bool is_ignored = before.sa_handler == SIG_IGN && info->si_code <= 0;
  if (!is_ignored) endBySignal(signal, info);
}

// --- a fault that may be translated ---

void callTranslator(_se_translator_function translator, DWORD code, const siginfo_t& info,
                    ucontext_t& context, std::uintptr_t place) {
  EXCEPTION_RECORD record{};
  record.ExceptionCode = code;
  record.ExceptionAddress = reinterpret_cast<void*>(place);
  if (code == EXCEPTION_ACCESS_VIOLATION || code == EXCEPTION_IN_PAGE_ERROR) {
    record.NumberParameters = 2;
    record.ExceptionInformation[0] = faults::AccessOf(info, context);
    record.ExceptionInformation[1] = reinterpret_cast<std::uintptr_t>(info.si_addr);
  }
  EXCEPTION_POINTERS pointers = {.ExceptionRecord = &record, .ContextRecord = &context};
  // The throw leaves the handler: the thread goes on with the mask and the floating-point control
  // that it had.
  sigset_t inner;
  pthread_sigmask(SIG_SETMASK, &context.uc_sigmask, &inner);
  faults::RestoreFloatingPoint(context);
  translator(code, &pointers);
  pthread_sigmask(SIG_SETMASK, &inner, nullptr);
}

// False for no fault, and for a stack overflow without room for what unwinding runs.
bool makeRoom(FaultThread& thread, DWORD code, const ucontext_t& context) {
  if (code == EXCEPTION_STACK_OVERFLOW) return thread.reserve.open();
  thread.reserve.close(faults::StackPointer(context));
  return code != 0;
}

// Returns if the fault is somebody else's.
void translate(FaultThread& thread, int signal, const siginfo_t& info, ucontext_t& context) {
  const DWORD code = faults::CodeOf(signal, info, context, thread.stack);
  const mcontext_t registers = context.uc_mcontext;
  const std::uintptr_t place = faults::ProgramCounter(context);
  thread.is_looking = true;
  faults::StepToCause(signal, info, context);
  const bool is_ours = makeRoom(thread, code, context) && faults::MayBeCaught(code, context);
  thread.is_looking = false;
  if (is_ours) callTranslator(thread.translator, code, info, context, place);
  context.uc_mcontext = registers;
}

void handle(int signal, siginfo_t* info, void* context) {
  faults::AllowMisalignment();
  const int kept = errno;
  FaultThread* const thread = this_thread;
  if (thread && thread->translator && !thread->is_looking) {
    translate(*thread, signal, *info, *static_cast<ucontext_t*>(context));
  }
  passOn(signal, info, context);
  errno = kept;
}

}  // namespace

_se_translator_function _set_se_translator(_se_translator_function translator) {
  const _se_translator_function before = GetTranslator();
  if (!this_thread && translator) this_thread = handlers().enter();
  if (this_thread) this_thread->translator = translator;
  return before;
}

int _resetstkoflw() {
  const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  return this_thread && this_thread->reserve.close(here);
}

_se_translator_function GetTranslator() {
  return this_thread ? this_thread->translator : nullptr;
}

}  // namespace qel::sys
