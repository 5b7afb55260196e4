#pragma once
// Version resources on their way from a file to a block that callers ask.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "qelbase/outside/system/cursor_internal.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// A file, or what stands for one, that is read in pieces.
class ByteSource {
 public:
  using Reader = std::function<bool(std::uint64_t at, void* data, std::size_t size)>;

  // `reader` fills `data` whole, or gives false and errno; it is asked for what lies inside alone.
  ByteSource(std::uint64_t size, Reader reader) : m_size(size), m_reader(std::move(reader)) {}

  // False, and error(), for what does not lie inside (193) or cannot be read.
  [[nodiscard]] bool Read(std::uint64_t at, void* data, std::size_t size);
  template <class T>
  [[nodiscard]] bool Take(std::uint64_t at, T& value) {
    return Read(at, &value, sizeof value);
  }
  DWORD error() const { return m_error; }

 private:
  std::uint64_t m_size;
  Reader m_reader;
  DWORD m_error = 0;
};

// The bytes of the version resource of a PE or ELF file, at most 65535. 0, or 193, 223, 1812, 1813,
// 1814 as version.h tells, or the code of a failed reading.
[[nodiscard]] DWORD ReadVersionResource(ByteSource& file, std::vector<std::byte>& resource);
[[nodiscard]] DWORD ReadElfVersion(ByteSource& file, std::vector<std::byte>& resource);
[[nodiscard]] DWORD ReadPeVersion(ByteSource& file, std::vector<std::byte>& resource);

// The block of a resource: its bytes, padded to 4, and behind them room for its texts in wide
// characters. The text whose units begin at the byte n lies in that room at the byte 2n.
[[nodiscard]] std::size_t VersionBlockSize(std::size_t resource_size);
// Makes it of as much of the resource as fits into `size` bytes. False if nothing does.
[[nodiscard]] bool FillVersionBlock(Bytes resource, void* block, std::size_t size);

}  // namespace qel::sys
