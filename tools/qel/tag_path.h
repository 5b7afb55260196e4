#pragma once
// How one record of a tagged file is addressed: NAME/NAME[2]/DATA.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "qelbase/outside/components/MFile.h"
#include "qelbase/tagged/MTag.h"

#include "tag_walk.h"

namespace qel::tool {

// The n-th record (from 1) of a name among its siblings, whatever their versions.
struct PathStep {
  std::string name;  // raw bytes, at most 6, without the closing zeros
  std::size_t index = 1;
};
using TagPath = std::vector<PathStep>;

// Reads steps separated by "/"; each a name, or a name and [n]. In a name, \xNN is one byte and
// \\ a backslash; /, [ and ] are written \x2f, \x5b and \x5d. An empty name is written \x00.
// Throws std::invalid_argument with the reason.
TagPath ParseTagPath(std::string_view text);

// One step as ParseTagPath takes it; [1] is left out.
std::string StepText(std::string_view name, std::size_t index = 1);

// Where a path leads in a file.
struct Place {
  std::vector<MTag> chain;      // the records that were found, outermost first
  std::size_t equal_names = 0;  // when not all were: how many of the next step's name there are
  std::int64_t end = 0;         // ... and where its level's sound records end
  bool Found(const TagPath& path) const { return chain.size() == path.size(); }
};

// Walks only into the records that the path names. Damage on the way is passed on to `report`.
Place Locate(MFile& file, const TagPath& path, const TagWalker::Report& report);

// Names the tags of a walk, each with its number among equals. Keeps the different names of the
// current levels in memory.
class PathNamer {
 public:
  // `node` is the next tag of a walk; gives its path as ParseTagPath takes it.
  std::string Name(const TagNode& node);

 private:
  struct Level {
    std::unordered_map<std::string, std::size_t> counts;
    std::size_t prefix = 0;  // how much of m_path is the enclosing tag
  };
  std::vector<Level> m_levels;
  std::string m_path;
};

}  // namespace qel::tool
