#include "qelbase/outside/system/memory.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/memory_internal.h"
#include "qelbase/outside/system/syscalls_internal.h"

namespace qel::sys {

namespace {

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

struct Block {
  std::unique_ptr<void, Free> memory;  // null if it has no bytes
  std::size_t size = 0;
  bool is_movable = false;
  bool is_taken = false;
  unsigned locks = 0;
};

struct Table {
  std::mutex lock;
  std::map<HGLOBAL, Block> blocks;
  std::uintptr_t last = 0;
};

// Never destroyed: blocks are freed while the process ends, too.
Table& table() {
  static Lasting<Table> all;
  return *all;
}

// Runs `work` on the block; 0, or false, and 6 for no block.
template <typename Work>
auto onBlock(HGLOBAL handle, Work work) -> decltype(work(std::declval<Block&>())) {
  Table& all = table();
  const std::lock_guard guard(all.lock);
  const auto found = all.blocks.find(handle);
  if (found != all.blocks.end()) return work(found->second);
  SetLastError(ERROR_INVALID_HANDLE);
  return {};
}

// Movable blocks have small numbers divisible by 8, which are no addresses.
HGLOBAL handleOf(Table& all, const Block& block) {
  constexpr std::uintptr_t step = 8;
  if (!block.is_movable) return static_cast<HGLOBAL>(block.memory.get());
  return reinterpret_cast<HGLOBAL>(all.last += step);
}

HGLOBAL enter(Block block) {
  Table& all = table();
  const std::lock_guard guard(all.lock);
  const HGLOBAL handle = handleOf(all, block);
  all.blocks.emplace(handle, std::move(block));
  return handle;
}

// The block without its entry, which is gone; nothing if `taken` is not as it should be.
bool removeBlock(HGLOBAL handle, bool taken) {
  Block removed;  // freed behind the lock
  Table& all = table();
  const std::lock_guard guard(all.lock);
  const auto found = all.blocks.find(handle);
  if (found == all.blocks.end() || found->second.is_taken != taken) return false;
  removed = std::move(found->second);
  all.blocks.erase(found);
  return true;
}

}  // namespace

HGLOBAL GlobalAlloc(UINT flags, std::size_t size) {
  Block block;
  block.is_movable = (flags & GMEM_MOVEABLE) != 0;
  block.size = size;
  const std::size_t needed = block.is_movable ? size : size + (size == 0 ? 1 : 0);
  if (needed > 0) block.memory.reset(Calls().malloc(needed));
  try {
    if (needed == 0 || block.memory) {
      if (block.memory && (flags & GMEM_ZEROINIT) != 0) std::memset(block.memory.get(), 0, size);
      return enter(std::move(block));
    }
  } catch (const std::bad_alloc&) {  // of the table
  }
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

void* GlobalLock(HGLOBAL handle) {
  return onBlock(handle, [](Block& block) {
    if (!block.memory) SetLastError(ERROR_DISCARDED);
    if (block.memory && block.is_movable) ++block.locks;
    return block.memory.get();
  });
}

BOOL GlobalUnlock(HGLOBAL handle) {
  return onBlock(handle, [](Block& block) -> BOOL {
    if (!block.is_movable) return 1;
    SetLastError(block.locks == 0 ? ERROR_NOT_LOCKED : ERROR_SUCCESS);
    if (block.locks > 0) --block.locks;
    return block.locks > 0 ? 1 : 0;
  });
}

std::size_t GlobalSize(HGLOBAL handle) {
  return onBlock(handle, [](Block& block) { return block.size; });
}

HGLOBAL GlobalFree(HGLOBAL handle) {
  if (!handle || removeBlock(handle, false)) return nullptr;
  SetLastError(ERROR_INVALID_HANDLE);
  return handle;
}

bool TakeBlock(HGLOBAL handle) {
  return onBlock(handle, [](Block& block) {
    const bool was_free = !block.is_taken;
    block.is_taken = true;
    if (!was_free) SetLastError(ERROR_INVALID_HANDLE);
    return was_free;
  });
}

void GiveBlockBack(HGLOBAL handle) {
  onBlock(handle, [](Block& block) {
    block.is_taken = false;
    return 0;
  });
}

void FreeTakenBlock(HGLOBAL handle) {
  removeBlock(handle, true);
}

}  // namespace qel::sys
