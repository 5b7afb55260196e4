#pragma once
// Where the figures of the machine come from.

#include <optional>
#include <string>

#include "qelbase/outside/system/machine.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

struct ProcessorFacts : ProcessorTexts {
  WORD family = 0;
  WORD model = 0;
  WORD stepping = 0;
};

[[nodiscard]] ProcessorFacts ReadProcessor();
[[nodiscard]] ProcessorTexts CurrentProcessorTexts();  // of the override, else the processor's
[[nodiscard]] std::uint32_t ReadProcessorSpeed();      // megahertz; 0 if the system does not tell
[[nodiscard]] DWORD CountProcessors();                 // that are online, one at least

// By /proc and /sys/fs/cgroup below `root` (empty: the machine's own).
[[nodiscard]] MEMORYSTATUSEX ReadMemory(const std::string& root);

// Of the display that DISPLAY names; nothing if there is none, or no library that talks to it.
[[nodiscard]] std::optional<ScreenFigures> ReadDisplay();

}  // namespace qel::sys
