#include "qelbase/outside/framework/StoredText.h"

#include "qelbase/outside/system/units_internal.h"

namespace qel::framework {

CStringW& StoredText::own() {
  if (m_text.index() != 0) {
    CStringW text;
    copyTo(text);
    m_text = std::move(text);
  }
  return *std::get_if<CStringW>(&m_text);
}

void StoredText::copyTo(CStringW& out) const {
  if (const auto* text = std::get_if<CStringW>(&m_text)) {
    out = *text;
    return;
  }
  look([&](auto units) {
    if constexpr (!std::is_same_v<decltype(units), std::wstring_view>) {
      sys::CopyUnits(units, out.GetBufferSetLength(static_cast<int>(units.size())));
    }
  });
}

}  // namespace qel::framework
