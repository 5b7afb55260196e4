#pragma once
// Reading values off foreign bytes.

#include <cstddef>
#include <cstring>
#include <span>

namespace qel::sys {

using Bytes = std::span<const std::byte>;

inline constexpr std::size_t PadTo4(std::size_t size) {
  return (size + 3) / 4 * 4;
}

// Takes values off the front of a block; false when it is too short.
class Cursor {
 public:
  explicit Cursor(Bytes bytes) : m_bytes(bytes) {}

  template <class T>
  bool Take(T& value) {
    if (m_bytes.size() - m_at < sizeof value) return false;
    std::memcpy(&value, m_bytes.data() + m_at, sizeof value);
    m_at += sizeof value;
    return true;
  }

  bool Skip(std::size_t size) {
    if (m_bytes.size() - m_at < size) return false;
    m_at += size;
    return true;
  }

  bool Align() { return Skip(PadTo4(m_at) - m_at); }

  std::size_t at() const { return m_at; }

 private:
  Bytes m_bytes;
  std::size_t m_at = 0;
};

}  // namespace qel::sys
