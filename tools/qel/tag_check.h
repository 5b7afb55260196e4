#pragma once
// What is wrong with a tagged file.

#include <cstdint>
#include <optional>
#include <string>

#include "tag_walk.h"

namespace qel::tool {

struct CheckResult {
  std::uint64_t records = 0;  // sound ones, at all depths
  std::uint64_t findings = 0;
  std::optional<Finding> first;
};

// Walks every tag of the open file. Each finding goes to `report`, in file order.
CheckResult CheckTags(MFile& file, const TagWalker::Report& report);

// The name of the backup that a writer of `native` makes: another extension. Empty when the file
// has that extension itself.
std::string BackupName(const std::string& native);

// BackupName, if a tagged file lies there: what an interrupted write has left.
std::string LeftBackup(const std::string& native);

// CheckTags, and the backup beside the file. Throws Trouble when the file cannot be read.
CheckResult CheckFile(const std::string& native, const TagWalker::Report& report);

}  // namespace qel::tool
