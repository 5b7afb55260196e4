#pragma once
// What the clipboard needs of blocks beside memory.h.

#include "qelbase/outside/system/memory.h"

namespace qel::sys {

// The block is no longer its caller's: only FreeTakenBlock frees it. False for no block, and for
// one that is taken already.
[[nodiscard]] bool TakeBlock(HGLOBAL block);

// The caller's again.
void GiveBlockBack(HGLOBAL block);

void FreeTakenBlock(HGLOBAL block);

}  // namespace qel::sys
