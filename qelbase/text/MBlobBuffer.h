#pragma once
// A block of bytes that is made anew only when it is too small or more than 1024 bytes too large.

#include <cstddef>
#include <cstdint>

#include "qelbase/export.h"

class QELBASE_API MBlobImpl {
 public:
  MBlobImpl() = default;
  MBlobImpl(const MBlobImpl&) = delete;
  MBlobImpl& operator=(const MBlobImpl&) = delete;

 protected:
  ~MBlobImpl();
  void _Free();

  std::uint64_t m_capacity = 0;  // bytes
  std::byte* m_block = nullptr;
};

// An object belongs to one thread at a time.
class QELBASE_API MBlobBuffer : public MBlobImpl {
 public:
  // Copies the bytes in and gives the block, which belongs to the buffer; null for size 0, which
  // frees the block. The source may lie in the buffer's own block. A null source leaves the bytes
  // as they come.
  std::byte* Create(const void* source, std::size_t size);

 protected:
  // Sets the size in use to `size`, or moves it by `size` if `relative` is not 0; below 0 counts as
  // 0. `keep` not 0 keeps the content. Gives the block, null if there is none.
  std::byte* __Create_with_threshold(int size, int keep, int relative);

  std::uint64_t m_used = 0;  // bytes

 private:
  std::byte* Resize(std::uint64_t size, bool keep);
};
