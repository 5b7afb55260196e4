#pragma once
// The sum of bytes, modulo 2 to the power 32.

#include <cstddef>
#include <cstdint>

namespace qel::checks {

std::uint32_t SumBytes(const std::uint8_t* data, std::size_t size);

#if defined(__x86_64__)
std::uint32_t SumBytesAvx2(const std::uint8_t* data, std::size_t size);
#endif

}  // namespace qel::checks
