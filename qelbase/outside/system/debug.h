#pragma once
// The debugger: whether there is one, and its output.

#include <functional>
#include <optional>
#include <string_view>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// 1 while another process traces this one.
[[nodiscard]] QELBASE_API BOOL IsDebuggerPresent();

// While it lives, IsDebuggerPresent answers as told. The innermost one counts.
class QELBASE_API DebuggerOverride {
 public:
  explicit DebuggerOverride(bool present);
  ~DebuggerOverride();
  DebuggerOverride(const DebuggerOverride&) = delete;
  DebuggerOverride& operator=(const DebuggerOverride&) = delete;

 private:
  std::optional<bool> m_outer;
};

using DebugSink = std::function<void(std::wstring_view text)>;

// Hands the text to the sink; without one it goes to standard error as it is, with no line end
// added. Never fails; null is no text. Safe on any thread.
QELBASE_API void OutputDebugStringW(const wchar_t* text);

// From now on `sink` gets the output, one text at a time, on the thread that puts it out; an empty
// one means standard error again. Gives the sink that was there before. A sink must not put out
// texts itself.
QELBASE_API DebugSink SetDebugSink(DebugSink sink);

}  // namespace qel::sys
