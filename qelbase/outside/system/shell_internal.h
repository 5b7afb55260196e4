#pragma once
// The operations of the shell that have a file of their own.

#include <string>
#include <utility>
#include <vector>

#include "qelbase/outside/system/types.h"

namespace qel::sys {

// The result of a call as the shell gives it, and whose name goes with it.
struct ShellOutcome {
  int code = 0;
  std::wstring name = {};
};

// FO_COPY of SHFileOperationW.
[[nodiscard]] ShellOutcome CopyAll(const std::vector<std::wstring>& from,
                                   const std::vector<std::wstring>& to, WORD flags);

// Splits off the last component; the folder keeps its separator.
[[nodiscard]] std::pair<std::wstring, std::wstring> SplitLast(const std::wstring& path);

}  // namespace qel::sys
