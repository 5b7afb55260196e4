#include "qelbase/outside/system/debug.h"

#include <array>
#include <charconv>
#include <mutex>
#include <string>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/names_internal.h"

namespace qel::sys {

namespace {

std::mutex lock;
std::optional<bool> told_presence;
DebugSink present_sink;

// The number behind `TracerPid:` in the status of this process; 0 without one.
int tracer() {
  const Descriptor status = Descriptor::open("/proc/self/status", O_RDONLY);
  std::array<char, 4096> buffer;
  const ssize_t size = status ? ReadUpTo(status.get(), buffer.data(), buffer.size()) : 0;
  const std::string_view text(buffer.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
  constexpr std::string_view key = "\nTracerPid:\t";
  const std::size_t at = text.find(key);
  int pid = 0;
  if (at != std::string_view::npos) {
    std::from_chars(text.data() + at + key.size(), text.data() + text.size(), pid);
  }
  return pid;
}

}  // namespace

BOOL IsDebuggerPresent() {
  {
    const std::lock_guard guard(lock);
    if (told_presence) return *told_presence;
  }
  const LastErrorKeeper keeper;
  return tracer() != 0;
}

DebuggerOverride::DebuggerOverride(bool present) {
  const std::lock_guard guard(lock);
  m_outer = std::exchange(told_presence, present);
}

DebuggerOverride::~DebuggerOverride() {
  const std::lock_guard guard(lock);
  told_presence = m_outer;
}

void OutputDebugStringW(const wchar_t* text) {
  if (!text) return;
  const LastErrorKeeper keeper;
  const std::lock_guard guard(lock);
  if (present_sink) return present_sink(text);
  const std::string native = NativeText(text);
  static_cast<void>(WriteAll(STDERR_FILENO, native.data(), native.size()));
}

DebugSink SetDebugSink(DebugSink sink) {
  const std::lock_guard guard(lock);
  return std::exchange(present_sink, std::move(sink));
}

}  // namespace qel::sys
