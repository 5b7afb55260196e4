#pragma once
// Words in memory, at any address and in a stated byte order. Compilers make one move of each.

#include <cstdint>

namespace qel::checks {

constexpr std::uint32_t LoadLittle32(const std::uint8_t* p) {
  return p[0] | std::uint32_t{p[1]} << 8 | std::uint32_t{p[2]} << 16 | std::uint32_t{p[3]} << 24;
}

constexpr std::uint64_t LoadLittle64(const std::uint8_t* p) {
  std::uint64_t value = 0;
  for (int i = 0; i < 8; ++i) value |= std::uint64_t{p[i]} << (8 * i);
  return value;
}

constexpr void StoreLittle32(std::uint8_t* p, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

constexpr void StoreLittle64(std::uint8_t* p, std::uint64_t value) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

constexpr std::uint32_t LoadBig32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}

constexpr void StoreBig32(std::uint8_t* p, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}

}  // namespace qel::checks
