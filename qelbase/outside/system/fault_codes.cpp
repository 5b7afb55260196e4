// What a signal means.
#include <algorithm>
#include <array>

#include "qelbase/outside/system/faults_internal.h"

#if !defined(__x86_64__) && !defined(__aarch64__)
#error "fault translation knows the registers of x86-64 and of 64-bit ARM"
#endif

namespace qel::sys::faults {

namespace {

struct Row {
  int signal;
  int si_code;
  DWORD code;
};

constexpr int any = -1;

// The first row that fits counts.
constexpr std::array rows = {
    Row{SIGSEGV, SEGV_BNDERR, EXCEPTION_ARRAY_BOUNDS_EXCEEDED},
    Row{SIGSEGV, any, EXCEPTION_ACCESS_VIOLATION},
    Row{SIGBUS, BUS_ADRALN, EXCEPTION_DATATYPE_MISALIGNMENT},
    Row{SIGBUS, SI_KERNEL, EXCEPTION_ACCESS_VIOLATION},  // no address at all, relative to the stack
    Row{SIGBUS, any, EXCEPTION_IN_PAGE_ERROR},
    Row{SIGFPE, FPE_INTDIV, EXCEPTION_INT_DIVIDE_BY_ZERO},
    Row{SIGFPE, FPE_INTOVF, EXCEPTION_INT_OVERFLOW},
    Row{SIGFPE, FPE_FLTDIV, EXCEPTION_FLT_DIVIDE_BY_ZERO},
    Row{SIGFPE, FPE_FLTOVF, EXCEPTION_FLT_OVERFLOW},
    Row{SIGFPE, FPE_FLTUND, EXCEPTION_FLT_UNDERFLOW},
    Row{SIGFPE, FPE_FLTRES, EXCEPTION_FLT_INEXACT_RESULT},
    Row{SIGFPE, FPE_FLTSUB, EXCEPTION_ARRAY_BOUNDS_EXCEEDED},
    Row{SIGFPE, any, EXCEPTION_FLT_INVALID_OPERATION},
    Row{SIGILL, ILL_PRVOPC, EXCEPTION_PRIV_INSTRUCTION},
    Row{SIGILL, ILL_PRVREG, EXCEPTION_PRIV_INSTRUCTION},
    Row{SIGILL, any, EXCEPTION_ILLEGAL_INSTRUCTION},
    Row{SIGTRAP, TRAP_TRACE, EXCEPTION_SINGLE_STEP},
    Row{SIGTRAP, TRAP_BRANCH, EXCEPTION_SINGLE_STEP},
    Row{SIGTRAP, TRAP_HWBKPT, EXCEPTION_SINGLE_STEP},
    Row{SIGTRAP, any, EXCEPTION_BREAKPOINT},
};

DWORD codeInTable(int signal, int si_code) {
  const auto* row = std::ranges::find_if(rows, [&](const Row& each) {
    return each.signal == signal && (each.si_code == any || each.si_code == si_code);
  });
  return row == rows.end() ? 0 : row->code;
}

#if defined(__x86_64__)

// The instruction at a place of code, byte by byte.
class Instruction {
 public:
  explicit Instruction(const ucontext_t& context) : m_registers(context.uc_mcontext.gregs) {
    m_at = reinterpret_cast<const std::uint8_t*>(ProgramCounter(context));
    constexpr int user_bits = 47;
    if (ProgramCounter(context) >> user_bits == 0) readPrefixes();
  }

  // No privilege is missing where the place itself cannot be read.
  bool isPrivileged() const {
    constexpr std::array<std::uint8_t, 15> one_byte = {
        0xF4, 0xFA, 0xFB, 0xE4, 0xE5, 0xE6, 0xE7, 0xEC, 0xED, 0xEE, 0xEF, 0x6C, 0x6D, 0x6E, 0x6F};
    constexpr std::array<std::uint8_t, 14> behind_0f = {0x00, 0x01, 0x06, 0x07, 0x08, 0x09, 0x20,
                                                        0x21, 0x22, 0x23, 0x30, 0x32, 0x33, 0x35};
    if (m_opcode != 0x0F) return std::ranges::find(one_byte, m_opcode) != one_byte.end();
    return std::ranges::find(behind_0f, *m_at) != behind_0f.end();
  }

  // A division traps for a zero divisor and for a quotient that has no room; true for the latter.
  bool isOverflowingDivision() const {
    if ((m_opcode & 0xFE) != 0xF6 || m_other_segment) return false;
    const bool is_byte = m_opcode == 0xF6;
    const std::uint64_t value = is_byte ? byteOperand() : operand();
    const int bits = is_byte ? 8 : (m_rex & 8) != 0 ? 64 : m_narrow ? 16 : 32;
    return value << (64 - bits) != 0;
  }

 private:
  void readPrefixes() {
    for (;; ++m_at) {
      const std::uint8_t byte = *m_at;
      if (byte == 0x66) {
        m_narrow = true;
      } else if (byte == 0x64 || byte == 0x65 || byte == 0x67) {
        m_other_segment = true;  // or addresses of 32 bits: no operand is looked for
      } else if (byte != 0x2E && byte != 0x36 && byte != 0x3E && byte != 0x26 && byte != 0xF0 &&
                 byte != 0xF2 && byte != 0xF3) {
        break;
      }
    }
    if ((*m_at & 0xF0) == 0x40) m_rex = *m_at++;
    m_opcode = *m_at++;
  }

  std::uint64_t registerAt(int number) const {
    constexpr std::array<int, 16> numbers = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP,
                                             REG_RSI, REG_RDI, REG_R8,  REG_R9,  REG_R10, REG_R11,
                                             REG_R12, REG_R13, REG_R14, REG_R15};
    return static_cast<std::uint64_t>(m_registers[numbers[static_cast<std::size_t>(number)]]);
  }
  int extended(int low, int rex_bit) const { return low | ((m_rex & rex_bit) != 0 ? 8 : 0); }

  template <class T>
  static T load(const std::uint8_t* from) {
    T value{};
    std::copy_n(from, sizeof value, reinterpret_cast<std::uint8_t*>(&value));
    return value;
  }

  // Of 8 bits: without a REX prefix, the registers 4 to 7 are the second bytes of 0 to 3.
  std::uint64_t byteOperand() const {
    const int number = *m_at & 7;
    if (*m_at < 0xC0 || m_rex != 0 || number < 4) return operand();
    return registerAt(number - 4) >> 8;
  }

  // The register or memory operand behind the opcode; memory is read at its own width, which the
  // instruction has read before.
  std::uint64_t operand() const {
    const int mode = *m_at >> 6;
    const int low = *m_at & 7;
    if (mode == 3) return registerAt(extended(low, 1));
    const std::uint8_t* at = m_at + 1;
    std::uint64_t address = 0;
    bool has_wide_offset = mode == 2;
    if (low == 4) {
      const int scale = *at >> 6;
      const int index = extended(*at >> 3 & 7, 2);
      const int base = *at & 7;
      ++at;
      if (index != 4) address += registerAt(index) << scale;
      if (mode == 0 && base == 5) {
        has_wide_offset = true;
      } else {
        address += registerAt(extended(base, 1));
      }
    } else if (mode == 0 && low == 5) {
      address = reinterpret_cast<std::uintptr_t>(at) + sizeof(std::int32_t);
      has_wide_offset = true;
    } else {
      address = registerAt(extended(low, 1));
    }
    if (mode == 1) address += static_cast<std::uint64_t>(load<std::int8_t>(at));
    if (has_wide_offset) address += static_cast<std::uint64_t>(load<std::int32_t>(at));
    const auto* memory = reinterpret_cast<const std::uint8_t*>(address);
    if (m_opcode == 0xF6) return *memory;
    if ((m_rex & 8) != 0) return load<std::uint64_t>(memory);
    return m_narrow ? load<std::uint16_t>(memory) : load<std::uint32_t>(memory);
  }

  const greg_t (&m_registers)[NGREG];
  const std::uint8_t* m_at = nullptr;
  std::uint8_t m_rex = 0;
  std::uint8_t m_opcode = 0;
  bool m_narrow = false;
  bool m_other_segment = false;
};

// The kernel tells fewer floating-point faults than the processor.
DWORD floatingPointCode(DWORD code, const ucontext_t& context) {
  const auto* state = context.uc_mcontext.fpregs;
  if (!state) return code;
  constexpr unsigned denormal = 2;
  constexpr unsigned underflow = 16;
  constexpr unsigned stack = 64;
  const unsigned in_sse = state->mxcsr & ~(state->mxcsr >> 7);
  const unsigned in_x87 = state->swd & ~unsigned{state->cwd};
  if (code == EXCEPTION_FLT_UNDERFLOW && ((in_sse | in_x87) & underflow) == 0 &&
      ((in_sse | in_x87) & denormal) != 0) {
    return EXCEPTION_FLT_DENORMAL_OPERAND;
  }
  const bool is_stack = (in_x87 & 1) != 0 && (state->swd & stack) != 0;
  return code == EXCEPTION_FLT_INVALID_OPERATION && is_stack ? EXCEPTION_FLT_STACK_CHECK : code;
}

DWORD refined(DWORD code, const siginfo_t& info, const ucontext_t& context) {
  if (code == EXCEPTION_ACCESS_VIOLATION && info.si_code == SI_KERNEL) {
    return Instruction(context).isPrivileged() ? EXCEPTION_PRIV_INSTRUCTION : code;
  }
  if (code == EXCEPTION_INT_DIVIDE_BY_ZERO) {
    return Instruction(context).isOverflowingDivision() ? EXCEPTION_INT_OVERFLOW : code;
  }
  return floatingPointCode(code, context);
}

#else

DWORD refined(DWORD code, const siginfo_t&, const ucontext_t&) {
  return code;
}

// The syndrome that the kernel adds to the registers; 0 without one.
std::uint64_t syndrome(const ucontext_t& context) {
  const auto* at = reinterpret_cast<const _aarch64_ctx*>(context.uc_mcontext.__reserved);
  for (; at->magic != 0 && at->size != 0;
       at = reinterpret_cast<const _aarch64_ctx*>(reinterpret_cast<const char*>(at) + at->size)) {
    if (at->magic == ESR_MAGIC) return reinterpret_cast<const esr_context*>(at)->esr;
  }
  return 0;
}

#endif

// The fault lies in the reserve or the guard of the stack, and the stack pointer has come there.
bool isStackOverflow(const siginfo_t& info, const ucontext_t& context, const StackRange& stack) {
  if (stack.low == 0 || info.si_code == SI_KERNEL) return false;
  constexpr std::uintptr_t large_frame = std::uintptr_t{1} << 20;
  const auto is_near = [&](std::uintptr_t address, std::uintptr_t above) {
    return address + large_frame > stack.guard && address < stack.low + stack.reserve + above;
  };
  return is_near(reinterpret_cast<std::uintptr_t>(info.si_addr), 0) &&
         is_near(StackPointer(context), large_frame);
}

}  // namespace

DWORD CodeOf(int signal, const siginfo_t& info, const ucontext_t& context,
             const StackRange& stack) {
  if (info.si_code <= 0) return 0;  // sent, by kill and the like
  const DWORD code = codeInTable(signal, info.si_code);
  if (signal == SIGSEGV && isStackOverflow(info, context, stack)) return EXCEPTION_STACK_OVERFLOW;
  return refined(code, info, context);
}

#if defined(__x86_64__)

std::uintptr_t ProgramCounter(const ucontext_t& context) {
  return static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RIP]);
}

std::uintptr_t StackPointer(const ucontext_t& context) {
  return static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RSP]);
}

std::uint64_t AccessOf(const siginfo_t&, const ucontext_t& context) {
  const auto error = static_cast<std::uint64_t>(context.uc_mcontext.gregs[REG_ERR]);
  return (error & 16) != 0 ? 8 : error >> 1 & 1;
}

void StepToCause(int signal, const siginfo_t& info, ucontext_t& context) {
  greg_t* const registers = context.uc_mcontext.gregs;
  if (signal == SIGTRAP) {
    --registers[REG_RIP];
  } else if (signal == SIGSEGV && reinterpret_cast<greg_t>(info.si_addr) == registers[REG_RIP]) {
    registers[REG_RIP] = *reinterpret_cast<const greg_t*>(registers[REG_RSP]) - 1;
    registers[REG_RSP] += sizeof(greg_t);
  }
}

void RestoreFloatingPoint(const ucontext_t& context) {
  const auto* state = context.uc_mcontext.fpregs;
  if (!state) return;
  __asm__ volatile("ldmxcsr %0" : : "m"(state->mxcsr));
  __asm__ volatile("fnclex; fldcw %0" : : "m"(state->cwd));
}

void AllowMisalignment() {
  __asm__ volatile("subq $128, %%rsp; pushfq; andl $~0x40000, (%%rsp); popfq; addq $128, %%rsp"
                   :
                   :
                   : "cc", "memory");
}

#else

std::uintptr_t ProgramCounter(const ucontext_t& context) {
  return context.uc_mcontext.pc;
}

std::uintptr_t StackPointer(const ucontext_t& context) {
  return context.uc_mcontext.sp;
}

std::uint64_t AccessOf(const siginfo_t& info, const ucontext_t& context) {
  if (reinterpret_cast<std::uintptr_t>(info.si_addr) == context.uc_mcontext.pc) return 8;
  constexpr int writes = 6;
  return syndrome(context) >> writes & 1;
}

void StepToCause(int signal, const siginfo_t& info, ucontext_t& context) {
  auto& registers = context.uc_mcontext;
  if (signal == SIGTRAP && info.si_code == TRAP_TRACE) {
    registers.pc -= 1;
  } else if (signal == SIGSEGV && reinterpret_cast<std::uintptr_t>(info.si_addr) == registers.pc) {
    registers.pc = registers.regs[30] - 1;
  }
}

void RestoreFloatingPoint(const ucontext_t&) {}  // a handler has the one of the thread

void AllowMisalignment() {}

#endif

}  // namespace qel::sys::faults
