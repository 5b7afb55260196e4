#pragma once
// Share modes on an open descriptor.

#include "qelbase/outside/system/types.h"

namespace qel::sys {

// Takes part in the sharing of a file that is open for reading at least: `access` as in
// CreateFileW, `sharing` its FILE_SHARE bits. 0; EWOULDBLOCK if another holder stands against it;
// else errno. Ends when the open description is closed.
[[nodiscard]] int TakeShare(int descriptor, DWORD access, DWORD sharing);

// Whether a holder does not share deletion.
[[nodiscard]] bool IsHeldAgainstDeletion(int descriptor);

}  // namespace qel::sys
