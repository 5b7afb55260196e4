#pragma once
// Share modes between openers of one file.

#include "qelbase/outside/system/descriptor_internal.h"

namespace qel::framework {

// What an opener does, and what it lets no other do meanwhile.
struct Shares {
  bool reads;
  bool writes;
  bool denies_reading;
  bool denies_writing;
};

// Takes the shares on an open regular file; they last until `file` and `helper` are closed.
// `helper` gets a second descriptor if `file` itself cannot hold them. False if another opener
// denies what this one does, or does what this one denies. A file system without locks grants
// everything.
[[nodiscard]] bool TakeShares(int file, const Shares& shares, qel::sys::Descriptor& helper);

}  // namespace qel::framework
