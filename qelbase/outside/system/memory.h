#pragma once
// Blocks of memory that pass from one owner to another, as the clipboard takes and gives them.

#include <cstddef>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

inline constexpr UINT GMEM_FIXED = 0;
inline constexpr UINT GMEM_MOVEABLE = 0x2;
inline constexpr UINT GMEM_ZEROINIT = 0x40;
inline constexpr UINT GMEM_DDESHARE = 0x2000;  // changes nothing

// All calls are safe on any thread; a handle that is none, or that was freed, gives 6.

// A block of `size` bytes, the caller's until GlobalFree or until somebody takes it over. A fixed
// block's handle is its address; a movable one's is a number, and GlobalLock gives the address. The
// bytes are undefined without GMEM_ZEROINIT. A movable block of no bytes has no address. Null and 8
// if there is no memory.
[[nodiscard]] QELBASE_API HGLOBAL GlobalAlloc(UINT flags, std::size_t size);

// The address of the block, which stays until the block is freed. Counts the locks of a movable
// block. Null and 6, or 157 for a block of no bytes.
[[nodiscard]] QELBASE_API void* GlobalLock(HGLOBAL block);

// Takes a lock back and tells whether the block is still locked; 0 with the last error 0 at the
// last lock, with 158 for a block that is not locked. Always 1 for a fixed block.
QELBASE_API BOOL GlobalUnlock(HGLOBAL block);

// In bytes, as asked for; 0 and 6 for no block, 0 and the last error as it was for an empty one.
[[nodiscard]] QELBASE_API std::size_t GlobalSize(HGLOBAL block);

// Frees a block, locked or not. Null, or `block` itself: with 6 for no block and for one that
// belongs to the clipboard. Null frees nothing.
QELBASE_API HGLOBAL GlobalFree(HGLOBAL block);

}  // namespace qel::sys
