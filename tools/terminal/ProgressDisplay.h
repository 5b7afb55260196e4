#pragma once
// Shows the progress of the process on the terminal.

#include <memory>
#include <string_view>

namespace qel::terminal {

enum class Mode { automatic, bars, lines, json, off };

// "auto", "bars", "lines", "json", "none". False, and `mode` as it was, for another name.
[[nodiscard]] bool ParseMode(std::string_view name, Mode& mode);

// While it lives it shows the scopes of all threads, from a thread of its own, so that neither a
// busy operation freezes the bars nor a slow terminal the operation. Automatic means bars on a
// terminal and lines elsewhere. The first Ctrl-C sets the abort flag of MProgressManager, a second
// one ends the process. One at a time.
class ProgressDisplay {
 public:
  // Writes to `descriptor`, which is standard error as a rule and stays the caller's.
  explicit ProgressDisplay(Mode mode = Mode::automatic, int descriptor = 2);
  // Shows what has been reported, and leaves the terminal, the manager and Ctrl-C as they were.
  ~ProgressDisplay();
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

 private:
  class Interrupt;
  class Windows;
  std::unique_ptr<Interrupt> m_interrupt;
  std::unique_ptr<Windows> m_windows;
};

}  // namespace qel::terminal
