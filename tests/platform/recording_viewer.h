#pragma once
// What the recording viewer keeps of its calls.

#include <cstdint>
#include <string>
#include <vector>

#include "qelbase/platform/help_viewer_internal.h"

struct Recording {
  struct Call {
    std::wstring path;
    UINT command;
    std::uint64_t data;
    qel::platform::TextPopup popup;
    bool operator==(const Call& other) const {
      return path == other.path && command == other.command && data == other.data;
    }
  };
  std::vector<Call> calls;
  std::vector<std::uint64_t> missing;  // context numbers that no book has
};
