// Arbitrary bytes as another program's text: what becomes of them is whole 16-bit text without a
// zero and without a bare line feed, and its way back to other programs changes line ends alone.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qelbase/outside/system/clipboard_internal.h"
#include "qelbase/outside/system/text.h"

using namespace qel::sys;

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

std::wstring withoutReturns(std::wstring text) {
  std::erase(text, L'\r');
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  for (const bool is_latin : {false, true}) {
    const std::string block = clipboard::FromForeign(bytes, is_latin);
    const std::wstring text = FromUtf16Le(block);
    require(block.size() % 2 == 0 && text.find(L'\0') == text.npos);
    for (std::size_t i = 0; i < text.size(); ++i) {
      require(text[i] != L'\n' || (i > 0 && text[i - 1] == L'\r'));
    }
    for (const clipboard::Offer& offer : clipboard::OffersOf({{13, block}})) {
      if (offer.type != "UTF8_STRING") continue;
      const std::wstring back = FromUtf16Le(clipboard::FromForeign(offer.bytes, false));
      require(withoutReturns(back) == withoutReturns(text));
    }
  }
  (void)clipboard::OffersOf({{13, bytes}, {1, bytes}});  // blocks of damaged files
  return 0;
}
