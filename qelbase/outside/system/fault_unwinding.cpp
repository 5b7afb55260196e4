// What an exception thrown at the place of a fault would meet. The C++ runtime ends the process
// when it comes to a frame whose tables do not know the place: code that was not compiled for
// faults, or that must not throw. It is asked beforehand, so that such a fault ends the process by
// its signal, at its place, as without translation.
#include <unwind.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "qelbase/outside/system/faults_internal.h"

namespace qel::sys::faults {

namespace {

// Reads the call-site tables of a frame: Itanium C++ ABI, exception handling tables; the encodings
// are those of the Linux Standard Base, "DWARF Extensions".
class Reader {
 public:
  explicit Reader(const void* at) : m_at(static_cast<const std::uint8_t*>(at)) {}

  const std::uint8_t* at() const { return m_at; }
  std::uint8_t byte() { return *m_at++; }

  std::uint64_t uleb() {
    std::uint64_t value = 0;
    for (int shift = 0;; shift += 7) {
      const std::uint8_t each = byte();
      if (shift < 64) value |= std::uint64_t{each & 0x7FU} << shift;
      if ((each & 0x80) == 0) return value;
    }
  }

  std::int64_t sleb() {
    std::int64_t value = 0;
    for (int shift = 0;; shift += 7) {
      const std::uint8_t each = *m_at;
      if (shift < 64) value |= std::int64_t{each & 0x7F} << shift;
      ++m_at;
      if ((each & 0x80) != 0) continue;
      const int bits = shift + 7;
      return (each & 0x40) != 0 && bits < 64 ? value | -(std::int64_t{1} << bits) : value;
    }
  }

  std::uint64_t encoded(std::uint8_t encoding) {
    switch (encoding & 0x07) {
      case 0x01:
        return uleb();
      case 0x02:
        return fixed(2);
      case 0x03:
        return fixed(4);
      default:
        return fixed(8);
    }
  }

 private:
  std::uint64_t fixed(int bytes) {
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value |= std::uint64_t{byte()} << (8 * i);
    return value;
  }

  const std::uint8_t* m_at;
};

enum class Meets { nothing, catch_clause, end_of_process };

// A chain of actions: a positive filter is a catch clause, 0 a clean-up.
Meets inActions(const std::uint8_t* at) {
  for (;;) {
    Reader action(at);
    const std::int64_t filter = action.sleb();
    if (filter != 0) return filter > 0 ? Meets::catch_clause : Meets::end_of_process;
    const std::uint8_t* const link = action.at();
    const std::int64_t step = action.sleb();
    if (step == 0) return Meets::nothing;
    at = link + step;
  }
}

Meets inTable(const void* table, std::uintptr_t offset) {
  constexpr std::uint8_t omitted = 0xFF;
  Reader reader(table);
  if (const std::uint8_t encoding = reader.byte(); encoding != omitted) reader.encoded(encoding);
  if (reader.byte() != omitted) reader.uleb();
  const std::uint8_t encoding = reader.byte();
  const std::uint64_t size = reader.uleb();
  const std::uint8_t* const actions = reader.at() + size;
  while (reader.at() < actions) {
    const std::uint64_t start = reader.encoded(encoding);
    const std::uint64_t length = reader.encoded(encoding);
    const std::uint64_t landing_pad = reader.encoded(encoding);
    const std::uint64_t action = reader.uleb();
    if (offset < start) break;
    if (offset - start >= length) continue;
    return landing_pad == 0 || action == 0 ? Meets::nothing : inActions(actions + action - 1);
  }
  return Meets::end_of_process;
}

std::uintptr_t placeIn(_Unwind_Context* frame) {
  int is_exact = 0;
  const std::uintptr_t place = _Unwind_GetIPInfo(frame, &is_exact);
  return is_exact != 0 ? place : place - 1;
}

Meets inFrame(_Unwind_Context* frame) {
  const void* const table = _Unwind_GetLanguageSpecificData(frame);
  return table ? inTable(table, placeIn(frame) - _Unwind_GetRegionStart(frame)) : Meets::nothing;
}

bool isAllocator(_Unwind_Context* frame) {
  const std::array functions = {reinterpret_cast<std::uintptr_t>(&std::malloc),
                                reinterpret_cast<std::uintptr_t>(&std::free),
                                reinterpret_cast<std::uintptr_t>(&std::calloc),
                                reinterpret_cast<std::uintptr_t>(&std::realloc),
                                reinterpret_cast<std::uintptr_t>(&std::aligned_alloc),
                                reinterpret_cast<std::uintptr_t>(&::posix_memalign)};
  return std::ranges::find(functions, _Unwind_GetRegionStart(frame)) != functions.end();
}

// The caller's registers, as a call that throws leaves them.
void moveTo(_Unwind_Context* frame, ucontext_t& context) {
  auto& registers = context.uc_mcontext;
#if defined(__x86_64__)
  constexpr std::array<std::array<int, 2>, 6> kept = {
      {{3, REG_RBX}, {6, REG_RBP}, {12, REG_R12}, {13, REG_R13}, {14, REG_R14}, {15, REG_R15}}};
  for (const auto& [number, place] : kept) {
    registers.gregs[place] = static_cast<greg_t>(_Unwind_GetGR(frame, number));
  }
  registers.gregs[REG_RSP] = static_cast<greg_t>(_Unwind_GetCFA(frame));
  registers.gregs[REG_RIP] = static_cast<greg_t>(placeIn(frame));
#else
  for (int number = 19; number <= 30; ++number) {
    registers.regs[number] = _Unwind_GetGR(frame, number);
  }
  registers.sp = _Unwind_GetCFA(frame);
  registers.pc = placeIn(frame);
#endif
}

struct Walk {
  DWORD code;
  ucontext_t& context;
  int depth = -1;  // frames from the faulting one on
  bool is_popping = false;
  Meets met = Meets::end_of_process;
};

_Unwind_Reason_Code visit(_Unwind_Context* frame, void* data) {
  Walk& walk = *static_cast<Walk*>(data);
  if (walk.depth < 0 && placeIn(frame) != ProgramCounter(walk.context)) return _URC_NO_REASON;
  ++walk.depth;
  constexpr int depth_of_allocator = 16;
  if (walk.depth < depth_of_allocator && isAllocator(frame)) {
    walk.met = Meets::end_of_process;
    return _URC_NORMAL_STOP;
  }
  if (walk.is_popping) {
    moveTo(frame, walk.context);
    walk.is_popping = false;
  }
  walk.met = inFrame(frame);
  // A function that finds no room for its frame has no table for that place: it was never entered.
  walk.is_popping =
      walk.depth == 0 && walk.code == EXCEPTION_STACK_OVERFLOW && walk.met == Meets::end_of_process;
  return walk.met == Meets::nothing || walk.is_popping ? _URC_NO_REASON : _URC_NORMAL_STOP;
}

}  // namespace

bool MayBeCaught(DWORD code, ucontext_t& context) {
  Walk walk{.code = code, .context = context};
  _Unwind_Backtrace(visit, &walk);
  return walk.met == Meets::catch_clause;
}

}  // namespace qel::sys::faults
