#pragma once
// The parts of fault translation: what a signal means, and what unwinding from its place would do.

#include <ucontext.h>

#include <csignal>
#include <cstddef>
#include <cstdint>

#include "qelbase/outside/system/faults.h"

namespace qel::sys::faults {

// The stack of a thread, upwards: a guard, a reserve from `low` on, and the rest. All 0 if unknown.
struct StackRange {
  static constexpr std::size_t reserve = 64 * 1024;

  std::uintptr_t guard = 0;
  std::uintptr_t low = 0;
  std::size_t size = 0;  // from `low` on
};

// The code of a fault, or 0 for a signal that is none.
[[nodiscard]] DWORD CodeOf(int signal, const siginfo_t& info, const ucontext_t& context,
                           const StackRange& stack);

// 0 reading, 1 writing, 8 executing.
[[nodiscard]] std::uint64_t AccessOf(const siginfo_t& info, const ucontext_t& context);

[[nodiscard]] std::uintptr_t ProgramCounter(const ucontext_t& context);
[[nodiscard]] std::uintptr_t StackPointer(const ucontext_t& context);

// Puts the saved registers where unwinding can begin: a trap points behind its instruction, and a
// call of a bad address has left no frame of its own.
void StepToCause(int signal, const siginfo_t& info, ucontext_t& context);

// Whether an exception thrown at the place of the context would come to a catch clause. False also
// for a place within the allocator, whose locks the throw would wait for, and where a frame on the
// way ends the process. A stack overflow in a prologue moves the context to the caller. To be
// called in the signal's handler.
[[nodiscard]] bool MayBeCaught(DWORD code, ucontext_t& context);

// Floating-point control as it was at the fault: the kernel gives a handler a fresh one.
void RestoreFloatingPoint(const ucontext_t& context);

// The handler itself must not trap on alignment.
void AllowMisalignment();

}  // namespace qel::sys::faults
