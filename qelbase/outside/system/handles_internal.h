#pragma once
// From handles to the descriptors behind them, for the other rooms of the ground floor.

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// Takes the descriptor out of an open handle, which is none any more; empty for what is no handle.
[[nodiscard]] Descriptor TakeDescriptor(HANDLE handle);

}  // namespace qel::sys
