#include "qelbase/text/MBlobBuffer.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>

namespace {
constexpr std::uint64_t kThreshold = 1024;
}

MBlobImpl::~MBlobImpl() {
  _Free();
}

void MBlobImpl::_Free() {
  delete[] std::exchange(m_block, nullptr);
  m_capacity = 0;
}

std::byte* MBlobBuffer::__Create_with_threshold(int size, int keep, int relative) {
  const std::int64_t used = relative != 0 ? static_cast<std::int64_t>(m_used) : 0;
  return Resize(static_cast<std::uint64_t>(std::max<std::int64_t>(used + size, 0)), keep != 0);
}

std::byte* MBlobBuffer::Resize(std::uint64_t size, bool keep) {
  if (size == 0) {
    m_used = 0;
    _Free();
    return nullptr;
  }
  if (size <= m_capacity && m_capacity - size <= kThreshold) {
    m_used = size;
    return m_block;
  }
  if (!keep) {
    _Free();
    m_used = 0;
  }
  const std::uint64_t capacity = (size / kThreshold + 1) * kThreshold;
  auto block = std::make_unique_for_overwrite<std::byte[]>(capacity);
  if (m_block) std::memcpy(block.get(), m_block, std::min(m_used, size));
  _Free();
  m_block = block.release();
  m_capacity = capacity;
  m_used = size;
  return m_block;
}

std::byte* MBlobBuffer::Create(const void* source, std::size_t size) {
  const auto* from = static_cast<const std::byte*>(source);
  std::unique_ptr<std::byte[]> aside;
  const std::less_equal<> before;
  if (size != 0 && m_block && before(m_block, from) && before(from, m_block + m_capacity)) {
    if (from == m_block && size == m_used) return m_block;
    aside.reset(std::exchange(m_block, nullptr));
    m_capacity = 0;
    m_used = 0;
  }
  std::byte* const block = Resize(size, false);
  if (block && from) std::memcpy(block, from, size);
  return block;
}
