#pragma once
// One sound tagged file out of a damaged one and the backup that an interrupted write left.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tag_walk.h"

namespace qel::tool {

// What became of one piece of a source.
struct Salvage {
  enum class Kind {
    kKept,      // a whole record, as it was
    kFound,     // a whole record that stood behind damage; maybe it was part of a lost one
    kRepaired,  // a record without the sub-tags that were damaged
    kWrapped,   // a record whose body is no run of sub-tags: kept as raw bytes in a DATA tag
    kOutdated,  // a record of the file that gave way to the backup's
    kLost,      // bytes that are no whole record
  };
  Kind kind{};
  const std::string* file = nullptr;
  std::int64_t position = 0;
  std::int64_t size = 0;  // in bytes, header and body; of the damage, when kLost
  std::string name;       // may be empty when kLost
  std::string why;        // for people; empty when kKept
};

using SalvageReport = std::function<void(const Salvage&)>;

// "kept", "found", "repaired", "wrapped", "outdated" or "lost".
std::string_view SalvageName(Salvage::Kind kind);

// Writes a new file with every whole record of `native` and of `backup` (native names; one of them
// may be missing or no tagged file at all). The file's records come first, in their order, then
// those that only the backup has. Records of one name and major version are paired in their order;
// of a pair the file's is taken, unless
//   - its sub-tags are damaged and the backup's are not;
//   - its body is empty and the backup's is not (its writing began and did not end); or
//   - it is the file's last, of raw bytes, and the backup's is whole: it may be half written.
// Throws Trouble; `made` then does not exist. It is never overwritten, and neither source is
// touched. Memory: one small entry for each top-level record.
void Recover(const std::string& native, const std::string& backup, const std::string& made,
             const SalvageReport& report);

}  // namespace qel::tool
