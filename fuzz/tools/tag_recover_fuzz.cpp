// Any bytes as a file and as its backup (parted by the first byte): what recover makes is sound,
// and so is what it makes of that.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iterator>

#include "../../tools/qel/session.h"
#include "../../tools/qel/tag_check.h"
#include "../../tools/qel/tag_recover.h"
#include "MemoryFile.h"

using namespace qel::tool;

namespace {

const std::string& outputFolder() {
  static const std::string folder = [] {
    std::string pattern = "/dev/shm/qelfuzz.XXXXXX";
    if (!mkdtemp(pattern.data())) std::abort();
    return pattern;
  }();
  static const int registered = std::atexit([] { std::filesystem::remove_all(outputFolder()); });
  (void)registered;
  return folder;
}

// True if there was anything to make a file of.
bool recover(const std::string& file, const std::string& backup, const std::string& made) {
  std::filesystem::remove(made);
  try {
    Recover(file, backup, made, [](const Salvage&) {});
  } catch (const Trouble&) {
    return false;
  }
  if (CheckFile(made, {}).findings != 0) std::abort();
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t part = std::min<std::size_t>(size - 1, data[0] * 4U);
  const MemoryFile file(data + 1, part);
  const MemoryFile backup(data + 1 + part, size - 1 - part);
  const std::string once = outputFolder() + "/once";
  const std::string twice = outputFolder() + "/twice";
  if (recover(file.native(), backup.native(), once) && !recover(once, {}, twice)) std::abort();
  return 0;
}
