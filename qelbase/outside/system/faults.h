#pragma once
// Faults of the processor as C++ exceptions.
//
// A thread with a translator gets its faults (a bad access, a division by zero, an illegal
// instruction...) as a call of that translator at the place of the fault, which throws as if the
// faulting statement had thrown. The code that faults must be compiled for it;
// docs/guides/faults.md tells how, and what cannot be caught.
//
// The first translator of the process installs signal handlers. What a translator does not take
// goes to the handler that was there before, or ends the process as without the library: a fault on
// a thread without translator, with a code of no meaning here, sent by kill, within the allocator,
// or that nothing on the stack would catch. A signal that somebody handled first stays theirs; with
// QEL_FAULTS=1 in the environment it is taken too and they come second, with QEL_FAULTS=0 nothing
// is installed. Handlers are put back when the library is unloaded, unless another one lies on top.

#include <array>
#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

inline constexpr DWORD EXCEPTION_DATATYPE_MISALIGNMENT = 0x80000002;
inline constexpr DWORD EXCEPTION_BREAKPOINT = 0x80000003;
inline constexpr DWORD EXCEPTION_SINGLE_STEP = 0x80000004;
inline constexpr DWORD EXCEPTION_ACCESS_VIOLATION = 0xC0000005;
inline constexpr DWORD EXCEPTION_IN_PAGE_ERROR = 0xC0000006;
inline constexpr DWORD EXCEPTION_ILLEGAL_INSTRUCTION = 0xC000001D;
inline constexpr DWORD EXCEPTION_NONCONTINUABLE_EXCEPTION = 0xC0000025;
inline constexpr DWORD EXCEPTION_INVALID_DISPOSITION = 0xC0000026;
inline constexpr DWORD EXCEPTION_ARRAY_BOUNDS_EXCEEDED = 0xC000008C;
inline constexpr DWORD EXCEPTION_FLT_DENORMAL_OPERAND = 0xC000008D;
inline constexpr DWORD EXCEPTION_FLT_DIVIDE_BY_ZERO = 0xC000008E;
inline constexpr DWORD EXCEPTION_FLT_INEXACT_RESULT = 0xC000008F;
inline constexpr DWORD EXCEPTION_FLT_INVALID_OPERATION = 0xC0000090;
inline constexpr DWORD EXCEPTION_FLT_OVERFLOW = 0xC0000091;
inline constexpr DWORD EXCEPTION_FLT_STACK_CHECK = 0xC0000092;
inline constexpr DWORD EXCEPTION_FLT_UNDERFLOW = 0xC0000093;
inline constexpr DWORD EXCEPTION_INT_DIVIDE_BY_ZERO = 0xC0000094;
inline constexpr DWORD EXCEPTION_INT_OVERFLOW = 0xC0000095;
inline constexpr DWORD EXCEPTION_PRIV_INSTRUCTION = 0xC0000096;
inline constexpr DWORD EXCEPTION_STACK_OVERFLOW = 0xC00000FD;

struct EXCEPTION_RECORD {
  DWORD ExceptionCode;
  DWORD ExceptionFlags;               // 0
  EXCEPTION_RECORD* ExceptionRecord;  // null
  void* ExceptionAddress;             // of the instruction
  DWORD NumberParameters;             // 2 for the access codes (..05, ..06), else 0
  // Access: 0 reading, 1 writing, 8 executing; then the address that was accessed.
  std::array<std::uint64_t, 15> ExceptionInformation;
};

// Valid during the translator's call.
struct EXCEPTION_POINTERS {
  EXCEPTION_RECORD* ExceptionRecord;
  void* ContextRecord;  // the registers: a ucontext_t
};

// Throws, or returns to leave the fault to others. Runs on the thread's alternate stack, at the
// place of the fault: locks that the faulting code holds are still held.
using _se_translator_function = void (*)(unsigned int code, EXCEPTION_POINTERS* pointers);

// Sets the translator of the calling thread and gives the one before; null for none. The first one
// of a thread also gives it an alternate stack and takes the reserve from its stack, for stack
// overflows; the thread's end frees both. A stack of less than 512 KiB has no reserve and ends the
// process by its overflow.
QELBASE_API _se_translator_function _set_se_translator(_se_translator_function translator);

// A stack overflow opens the last 64 KiB of the thread's stack for the clean-ups that it unwinds.
// This closes them again, without which the next overflow ends the process. 0 while they are in
// use, and for a thread without them. The exceptions of the library call it when they are
// destroyed.
QELBASE_API int _resetstkoflw();

// The translator of the calling thread: what a new thread is handed to be translated alike.
[[nodiscard]] QELBASE_API _se_translator_function GetTranslator();

}  // namespace qel::sys
