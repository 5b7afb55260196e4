// Rules and a template made of the input: filling in comes to an end, and without rules gives the
// template back.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "qelbase/tagged/MFileTagReplacer.h"

namespace {

// The bytes up to the next zero.
std::string takeText(std::string_view& rest) {
  const std::size_t end = rest.find('\0');
  std::string text(rest.substr(0, end));
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return text;
}

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  if (rest.size() > 4096) return 0;
  MFileTagReplacer file;
  const int rules = rest.empty() ? 0 : rest.front() % 5;
  for (int i = 0; i < rules && !rest.empty(); ++i) {
    const int flags = rest.front();
    rest.remove_prefix(1);
    const std::string search = takeText(rest);
    const std::string replacement = takeText(rest).substr(0, 64);
    file.Append(
        new MReplaceTag{search.c_str(), replacement.c_str(), (flags & 8) != 0, (flags & 16) != 0});
  }
  const std::string text = takeText(rest);
  CStringA result;
  require(file.ReplaceAllTagsInString(text.c_str(), result));
  require(text == result.GetString());
  file.ResetTagList();
  // Each repetition uses up a rule, or the guard of the kept ones ends it.
  for (int i = 0; i < rules; ++i) file.ReplaceAllTagsInString(text.c_str(), result);
  require(result.GetLength() < (64 << 20));
  return 0;
}
