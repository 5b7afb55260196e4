#include <algorithm>
#include <array>

#include "qelbase/platform/hard_exceptions_internal.h"

namespace {

using namespace qel::sys;

enum class Kind { hard, other, floating_point, integer };  // which class is thrown

struct Fault {
  std::uint32_t code;
  Kind kind;
  const wchar_t* name;
  const wchar_t* description;
};

// Names and descriptions end in a line feed.
constexpr std::array faults = std::to_array<Fault>({
    {EXCEPTION_ACCESS_VIOLATION, Kind::hard, L"EXCEPTION_ACCESS_VIOLATION\n",
     L"The thread tried to read from or write to a virtual address for which it does not "
     L"have the appropriate access.\n"},
    {EXCEPTION_ARRAY_BOUNDS_EXCEEDED, Kind::other, L"EXCEPTION_ARRAY_BOUNDS_EXCEEDED\n",
     L"The thread tried to access an array element that is out of bounds and the "
     L"underlying hardware supports bounds checking.\n"},
    {EXCEPTION_BREAKPOINT, Kind::hard, L"EXCEPTION_BREAKPOINT\n",
     L"A breakpoint was encountered.\n"},
    {EXCEPTION_DATATYPE_MISALIGNMENT, Kind::hard, L"EXCEPTION_DATATYPE_MISALIGNMENT\n",
     L"The thread tried to read or write data that is misaligned on hardware that does "
     L"not provide alignment.       For example, 16-bit values must be aligned on 2-byte "
     L"boundaries; 32-bit values on 4-byte boundaries, and so on.\n"},
    {EXCEPTION_FLT_DENORMAL_OPERAND, Kind::floating_point, L"EXCEPTION_FLT_DENORMAL_OPERAND\n",
     L"One of the operands in a floating-point operation is denormal.        A denormal "
     L"value is one that is too small to represent as a standard floating-point value\n"},
    {EXCEPTION_FLT_DIVIDE_BY_ZERO, Kind::floating_point, L"EXCEPTION_FLT_DIVIDE_BY_ZERO\n",
     L"The thread tried to divide a floating-point value by a floating-point divisor of "
     L"zero.\n"},
    {EXCEPTION_FLT_INEXACT_RESULT, Kind::floating_point, L"EXCEPTION_FLT_INEXACT_RESULT\n",
     L"The result of a floating-point operation cannot be represented exactly as a "
     L"decimal fraction.\n"},
    {EXCEPTION_FLT_INVALID_OPERATION, Kind::floating_point, L"EXCEPTION_FLT_INVALID_OPERATION\n",
     L"This exception represents any floating-point exception not included in this list.\n"},
    {EXCEPTION_FLT_OVERFLOW, Kind::floating_point, L"EXCEPTION_FLT_OVERFLOW\n",
     L"The exponent of a floating-point operation is greater than the magnitude allowed "
     L"by the corresponding type.\n"},
    {EXCEPTION_FLT_STACK_CHECK, Kind::floating_point, L"EXCEPTION_FLT_STACK_CHECK\n",
     L"The stack overflowed or underflowed as the result of a floating-point operation.\n"},
    {EXCEPTION_FLT_UNDERFLOW, Kind::floating_point, L"EXCEPTION_FLT_UNDERFLOW\n",
     L"The exponent of a floating-point operation is less than the magnitude allowed by "
     L"the corresponding type.\n"},
    {EXCEPTION_ILLEGAL_INSTRUCTION, Kind::hard, L"EXCEPTION_ILLEGAL_INSTRUCTION\n",
     L"The thread tried to execute an invalid instruction.\n"},
    {EXCEPTION_IN_PAGE_ERROR, Kind::hard, L"EXCEPTION_IN_PAGE_ERROR\n",
     L"The thread tried to access a page that was not present, and the system was unable "
     L"to load the page.       For example, this exception might occur if a network "
     L"connection is lost while running a program over the network.\n"},
    {EXCEPTION_INT_DIVIDE_BY_ZERO, Kind::integer, L"EXCEPTION_INT_DIVIDE_BY_ZERO\n",
     L"The thread tried to divide an integer value by an integer divisor of zero.\n"},
    {EXCEPTION_INT_OVERFLOW, Kind::integer, L"EXCEPTION_INT_OVERFLOW\n",
     L"The result of an integer operation caused a carry out of the most significant bit "
     L"of the result.\n"},
    {EXCEPTION_INVALID_DISPOSITION, Kind::hard, L"EXCEPTION_INVALID_DISPOSITION\n",
     L"An exception handler returned an invalid disposition to the exception "
     L"dispatcher.       Programmers using a high-level language such as C should never "
     L"encounter this exception.\n"},
    {EXCEPTION_NONCONTINUABLE_EXCEPTION, Kind::hard, L"EXCEPTION_NONCONTINUABLE_EXCEPTION\n",
     L"The thread tried to continue execution after a noncontinuable exception occurred.\n"},
    {EXCEPTION_PRIV_INSTRUCTION, Kind::hard, L"EXCEPTION_PRIV_INSTRUCTION\n",
     L"The thread tried to execute an instruction whose operation is not allowed in the "
     L"current machine mode.\n"},
    {EXCEPTION_SINGLE_STEP, Kind::hard, L"EXCEPTION_SINGLE_STEP\n",
     L"A trace trap or other single-instruction mechanism signaled that one instruction "
     L"has been executed.\n"},
    {EXCEPTION_STACK_OVERFLOW, Kind::other, L"EXCEPTION_STACK_OVERFLOW\n",
     L"The thread used up its stack.\n"},
});

// What the exceptions point to.
constexpr auto fault_table = [] {
  std::array<MException::Row, faults.size() + 1> rows{};
  std::ranges::transform(faults, rows.begin(), [](const Fault& fault) {
    return MException::Row{fault.code, fault.name, fault.description};
  });
  rows.back().code = MException::END_OF_TABLE;
  return rows;
}();

}  // namespace

MHardException::~MHardException() = default;
MMException::~MMException() {
  if (m_code == EXCEPTION_STACK_OVERFLOW) _resetstkoflw();  // the overflow has been dealt with
}
MMFltException::~MMFltException() = default;
MMIntException::~MMIntException() = default;

void TranslateFault(unsigned int code, EXCEPTION_POINTERS*) {
  const auto* const fault = std::ranges::find(faults, code, &Fault::code);
  if (fault == faults.end()) return;
  switch (fault->kind) {
    case Kind::hard:
      throw MHardException(code, fault_table.data());
    case Kind::other:
      throw MMException(code, fault_table.data());
    case Kind::floating_point:
      throw MMFltException(code, fault_table.data());
    case Kind::integer:
      throw MMIntException(code, fault_table.data());
  }
}

MMExceptionTranslator::MMExceptionTranslator() : m_previous(_set_se_translator(TranslateFault)) {}

MMExceptionTranslator::~MMExceptionTranslator() {
  _set_se_translator(m_previous);
}
