// Walks arbitrary text as a delimited list: it ends, and its values, quoted and joined, are read
// back as they were.
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "qelbase/outside/system/text.h"
#include "qelbase/text/miscstr.h"

namespace {

constexpr const wchar_t* kDelimiters[] = {L",\"", L";'", L",\" \t", L"\n|", L"a\""};

std::vector<CStringW> valuesOf(const CStringW& list, const wchar_t* delims) {
  std::vector<CStringW> values;
  CStringW value;
  for (std::int32_t pos = 0, before = -1; miscstr::GetNextVal(list, pos, value, delims) != 0;) {
    if (pos <= before || pos > list.GetLength()) std::abort();
    before = pos;
    values.push_back(value);
  }
  return values;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const wchar_t* const delims = kDelimiters[data[0] % std::size(kDelimiters)];
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const CStringW list(qel::sys::Widen(bytes, qel::sys::CP_UTF8));
  const std::vector<CStringW> values = valuesOf(list, delims);
  CStringW joined;
  for (const CStringW& value : values) {
    joined += miscstr::QuoteVal(value, delims);
    joined += delims[0];
  }
  if (valuesOf(joined, delims) != values) std::abort();
  return 0;
}
