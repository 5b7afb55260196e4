#pragma once
// The texts of the system's error codes.

#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"

// Of an `unsigned long` code the low 32 bits count; CURRENT stands for the thread's last error. All
// functions may run on any thread.
struct QELBASE_API MSysError {
  static constexpr std::uint32_t CURRENT = 0xFFFFFFFF;

  std::uint32_t m_code = 0;
  wchar_t m_text[200] = {};

  // Stores the code and its text; the result is that of the static form.
  bool Fill(unsigned long code);

  // Writes the text of a code, without line ends behind it, into `size` characters. 0 has an empty
  // text. False for a code without text or a text without room: then "<error code=5 (0x00000005)>"
  // is written if `size` is above 40, else an empty text.
  static bool Fill(wchar_t* buffer, std::uint64_t size, unsigned long code);
};

// The same texts, in a string.
class QELBASE_API MSysErrorCode {
 public:
  // Puts the text of a code, or what stands in for it, into `text`, and returns that.
  static CStringW& LoadError(CStringW& text, unsigned long code);
};

// The thread's last error; a 0 becomes 1 first.
QELBASE_API unsigned long QelGetLastError();
