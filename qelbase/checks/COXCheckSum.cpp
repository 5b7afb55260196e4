#include "qelbase/checks/COXCheckSum.h"

#include <cstdint>
#include <numeric>

#include "qelbase/checks/processor_internal.h"
#include "qelbase/checks/sums_internal.h"

namespace qel::checks {

std::uint32_t SumBytes(const std::uint8_t* data, std::size_t size) {
#if defined(__x86_64__)
  if (Has(kAvx2)) return SumBytesAvx2(data, size);
#endif
  return std::accumulate(data, data + size, std::uint32_t{0});
}

}  // namespace qel::checks

namespace {

// Sums modulo 256 and 65536 are the low bits of the sum modulo 2 to the power 32. A block of
// length 0 leaves the running value uncut.
template <typename Width>
DWORD AddBlock(DWORD& value, const void* data, DWORD length, DWORD initial) {
  value = initial;
  if (length != 0) {
    value += qel::checks::SumBytes(static_cast<const std::uint8_t*>(data), length);
    value = static_cast<Width>(value);
  }
  return static_cast<Width>(value);
}

}  // namespace

COXCheckSum8::COXCheckSum8() : COXCheckBase(size8) {}

DWORD COXCheckSum8::CalculateBlock(const void* data, DWORD length, DWORD initial) {
  return AddBlock<std::uint8_t>(m_value, data, length, initial);
}

COXCheckSum16::COXCheckSum16() : COXCheckBase(size16) {}

DWORD COXCheckSum16::CalculateBlock(const void* data, DWORD length, DWORD initial) {
  return AddBlock<std::uint16_t>(m_value, data, length, initial);
}

COXCheckSum32::COXCheckSum32() : COXCheckBase(size32) {}

DWORD COXCheckSum32::CalculateBlock(const void* data, DWORD length, DWORD initial) {
  return AddBlock<std::uint32_t>(m_value, data, length, initial);
}
