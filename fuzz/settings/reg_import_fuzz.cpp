// Reads arbitrary bytes as registry text, writes what was read as a file, and reads that again: the
// second reading must give the same keys and values.
#include <cstdint>
#include <cstdlib>

#include "reg_text.h"
#include "session.h"

using namespace qel::tool;

namespace {

bool isSame(const RegValue& a, const RegValue& b) {
  return a.name == b.name && a.type == b.type && a.data == b.data && !b.is_deleted;
}

bool isSame(const RegSection& a, const RegSection& b) {
  if (a.path != b.path || b.is_deleted || a.values.size() != b.values.size()) return false;
  for (std::size_t i = 0; i < a.values.size(); ++i) {
    if (!isSame(a.values[i], b.values[i])) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<RegSection> sections;
  try {
    sections = ParseRegText("fuzz", {reinterpret_cast<const char*>(data), size});
  } catch (const Trouble&) {
    return 0;
  }
  // An export has no deletions.
  std::erase_if(sections, [](const RegSection& section) { return section.is_deleted; });
  std::wstring text = RegHeader();
  for (RegSection& section : sections) {
    std::erase_if(section.values, [](const RegValue& value) { return value.is_deleted; });
    text += RegSectionText(section);
  }
  const std::vector<RegSection> again = ParseRegText("again", RegBytes(text));
  if (again.size() != sections.size()) std::abort();
  for (std::size_t i = 0; i < sections.size(); ++i) {
    if (!isSame(sections[i], again[i])) std::abort();
  }
  return 0;
}
