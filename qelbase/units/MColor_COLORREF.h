#pragma once
// Colours to and from the colour word: red in the lowest byte, then green, then blue.

#include "qelbase/export.h"
#include "qelbase/outside/components/Color.h"

namespace MColor_COLORREF {

// Takes red, green and blue from the word. Alpha becomes 1 with `set_alpha`, else it stays.
QELBASE_API void SetCOLORREF(QelSDK::Common::Color& color, unsigned long word, bool set_alpha);

// Red, green and blue rounded to the nearest; the top byte is 0. Of a part that is out of range the
// low eight bits count; infinity and not-a-number give 0.
[[nodiscard]] QELBASE_API unsigned long GetCOLORREF(const QelSDK::Common::Color& color);

}  // namespace MColor_COLORREF
