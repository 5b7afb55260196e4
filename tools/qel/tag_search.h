#pragma once
// Finding records again behind damage.

#include <cstdint>

#include "qelbase/outside/components/MFile.h"

namespace qel::tool {

// The first position in [begin, end) where records stand again, or `end`. A record counts as found
// when its header could be one that a program wrote, its body fits, and so on for two more behind
// it, or up to exactly `end`. At top level no DATA or MUID is taken for the first: those stand
// inside others. Reads each byte once, and two headers for each that looks like one.
std::int64_t FindRecords(MFile& file, std::int64_t begin, std::int64_t end, bool top_level);

}  // namespace qel::tool
