// Any bytes: the walk ends, every tag lies inside the tag around it, every finding lies inside the
// file, and walking again gives the same.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "qelbase/outside/system/names.h"

#include "../../tools/qel/tag_walk.h"
#include "MemoryFile.h"

using namespace qel::tool;

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

// A number that tells one walk from another.
std::uint64_t walk(MFile& file, std::int64_t size, bool search) {
  std::uint64_t trace = 0;
  TagWalker walker(
      file,
      [&](const Finding& finding) {
        require(finding.position >= 0 && finding.position <= finding.end && finding.end <= size);
        require(!Describe(finding, true).empty());
        trace = trace * 31 + static_cast<std::uint64_t>(finding.position);
      },
      search);
  walker.ReadHead();
  std::vector<std::int64_t> ends{size};
  std::int64_t position = kHeaderSize - 1;
  TagNode node;
  while (walker.Next(node)) {
    require(node.depth < ends.size() && node.tag.m_position > position);
    ends.resize(node.depth + 1);
    position = node.tag.m_position;
    const std::int64_t end = node.tag.m_data_position + node.tag.m_skip;
    require(end >= node.tag.m_data_position && end <= ends.back());
    if (node.holds_tags) ends.push_back(end);
    if (position % 5 == 0) walker.StepOver();
    trace = trace * 31 + static_cast<std::uint64_t>(position) * 7 + node.depth;
  }
  return trace;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const MemoryFile memory(data, size);
  MFile file;
  require(file.OPEN_READ(qel::sys::FromNative(memory.native()).c_str()));
  const auto bytes = static_cast<std::int64_t>(size);
  for (const bool search : {false, true}) {
    require(walk(file, bytes, search) == walk(file, bytes, search));
  }
  return 0;
}
