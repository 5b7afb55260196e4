#include "tests/platform/recording_viewer.h"

#include <algorithm>

extern "C" __attribute__((visibility("default"))) Recording recording;
Recording recording;

extern "C" __attribute__((visibility("default"))) HWND ordinal_15(HWND owner, const wchar_t* path,
                                                                  UINT command,
                                                                  std::uint64_t data) {
  Recording::Call call{path, command, data, {}};
  if (command == qel::platform::kDisplayTextPopup) {
    call.popup = *reinterpret_cast<const qel::platform::TextPopup*>(data);
    call.data = 0;
  }
  recording.calls.push_back(call);
  const bool is_missing = std::ranges::find(recording.missing, data) != recording.missing.end();
  return owner || is_missing ? nullptr : reinterpret_cast<HWND>(&recording);
}
