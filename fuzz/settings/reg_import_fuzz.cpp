// Reads arbitrary bytes as registry text and writes what was read. Each binary and 32-bit value
// that is written must read back as it was.
#include <cstdint>
#include <cstdlib>

#include "reg_text.h"
#include "session.h"

using namespace qel::tool;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<RegSection> sections;
  try {
    sections = ParseRegText("fuzz", {reinterpret_cast<const char*>(data), size});
  } catch (const Trouble&) {
    return 0;
  }
  std::wstring text = RegHeader();
  for (const RegSection& section : sections) {
    for (const RegValue& value : section.values) {
      std::uint32_t type = 0;
      std::string bytes;
      if (value.is_deleted) continue;
      std::wstring line;  // as one line: continuations are joined by the reader of files
      for (const wchar_t c : RegValueText(value.type, value.data)) {
        if (c != L'\r' && c != L'\n') line += c;
      }
      for (std::size_t at; (at = line.find(L",\\  ")) != line.npos;) line.replace(at, 4, L",");
      if (value.type == 3 || value.type == 4) {
        if (!ParseRegValue(line, type, bytes)) std::abort();
        if (type != value.type || bytes != value.data) std::abort();
      }
    }
    text += RegSectionText(section);
  }
  RegBytes(text);
  return 0;
}
