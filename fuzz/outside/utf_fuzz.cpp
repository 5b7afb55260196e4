// Foreign bytes as text of every page and as 16-bit units; UTF-8 also in its portable form.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "qelbase/outside/system/text.h"
#include "qelbase/outside/system/utf8_internal.h"

using namespace qel::sys;

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  for (const UINT page : {CP_UTF8, CP_WESTERN, CP_SHIFT_JIS}) {
    const std::wstring wide = Widen(bytes, page);
    require(wide.size() <= bytes.size());
    // What was replaced once is stable from then on.
    require(Widen(Narrow(wide, page), page) == wide);
    const int length = static_cast<int>(size);
    const int strict =
        MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, bytes.data(), length, nullptr, 0);
    if (strict > 0 && page == CP_UTF8) require(Narrow(wide, page) == bytes);
  }
  std::wstring portable(size, L'\0');
  portable.resize(DecodeUtf8Portable(bytes, portable.data(), size).length);
  require(portable == Widen(bytes, CP_UTF8));
  const std::wstring wide = FromUtf16Le(bytes);
  std::string narrow(4 * wide.size(), '\0');
  narrow.resize(EncodeUtf8Portable(wide, nullptr, narrow.data(), narrow.size()).length);
  require(narrow == Narrow(wide, CP_UTF8));
  require(ToUtf16Le(wide) == bytes.substr(0, size / 2 * 2));
  require(CompareNoCase(FoldCase(wide), wide) == 0);
  const wchar_t* end = nullptr;
  (void)wcstol(wide.c_str(), &end, 0);
  require(end >= wide.c_str() && end <= wide.c_str() + wide.size());
  (void)wcstod(wide.c_str(), &end);
  require(end >= wide.c_str() && end <= wide.c_str() + wide.size());
  return 0;
}
