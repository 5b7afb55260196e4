#pragma once
// The viewer of help files, as its users call it. Numbers and records are HTML Help's.

#include <cstdint>

#include "qelbase/outside/system/types.h"

namespace qel::platform {

inline constexpr UINT kDisplayTopic = 0;
inline constexpr UINT kDisplayTextPopup = 14;
inline constexpr UINT kHelpContext = 15;

struct PopupMargins {
  LONG left;
  LONG top;
  LONG right;
  LONG bottom;
};

// The argument of kDisplayTextPopup, 72 bytes.
struct TextPopup {
  int size;
  HINSTANCE instance;
  UINT string;  // the number of the text
  const wchar_t* text;
  sys::POINT point;
  DWORD foreground;  // colours: -1 is the viewer's own
  DWORD background;
  PopupMargins margins;  // -1 is the viewer's own
  const wchar_t* font;
};
static_assert(sizeof(TextPopup) == 72);

// Hands the call to the viewer, which is loaded first if need be, and gives its result: 0 if
// nothing was shown. Without a viewer 0.
std::uint64_t CallHelpViewer(const wchar_t* path, UINT command, std::uint64_t data);

}  // namespace qel::platform
