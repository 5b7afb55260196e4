#include "qelbase/checks/processor_internal.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace qel::checks {

namespace {

#if defined(__x86_64__)

enum Register { kEbx, kEcx };

// A feature is there if all its rows are. `state` are the bits of XCR0 that the operating system
// must have set: 6 for the 256-bit registers, 0xE6 for the 512-bit ones.
struct Row {
  Feature feature;
  unsigned leaf;
  Register where;
  unsigned bit;
  unsigned state;
};

constexpr Row kRows[] = {
    {kSse41, 1, kEcx, 9, 0},      {kSse41, 1, kEcx, 19, 0},     {kPclmul, 1, kEcx, 1, 0},
    {kAes, 1, kEcx, 25, 0},       {kSha, 7, kEbx, 29, 0},       {kAvx2, 7, kEbx, 5, 6},
    {kVpclmul, 7, kEcx, 10, 6},   {kVaes, 7, kEcx, 9, 6},       {kAvx512, 7, kEbx, 16, 0xE6},
    {kAvx512, 7, kEbx, 17, 0xE6}, {kAvx512, 7, kEbx, 30, 0xE6}, {kAvx512, 7, kEbx, 31, 0xE6},
    {kVbmi, 7, kEcx, 1, 0xE6},    {kGfni, 7, kEcx, 8, 0},
};

std::uint64_t EnabledState(unsigned leaf1_ecx) {
  constexpr unsigned kOsSavesState = 1u << 27;
  if (!(leaf1_ecx & kOsSavesState)) return 0;
  std::uint32_t low = 0;
  std::uint32_t high = 0;
  __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return (std::uint64_t{high} << 32) | low;
}

std::uint32_t AskProcessor() {
  unsigned eax = 0, edx = 0, ebx[8] = {}, ecx[8] = {};
  if (!__get_cpuid(1, &eax, &ebx[1], &ecx[1], &edx)) return 0;
  __get_cpuid_count(7, 0, &eax, &ebx[7], &ecx[7], &edx);
  const std::uint64_t state = EnabledState(ecx[1]);
  std::uint32_t missing = 0;
  std::uint32_t all = 0;
  for (const Row& row : kRows) {
    const unsigned value = (row.where == kEbx ? ebx : ecx)[row.leaf];
    all |= row.feature;
    if (!(value >> row.bit & 1) || (state & row.state) != row.state) missing |= row.feature;
  }
  return all & ~missing;
}

#else

std::uint32_t AskProcessor() {
  return 0;
}

#endif

}  // namespace

std::uint32_t DetectFeatures() {
  const std::uint32_t features = AskProcessor() | kDetected;
  g_features.store(features, std::memory_order_relaxed);
  return features;
}

FeatureScope::FeatureScope(std::uint32_t allowed) : m_previous(g_features.load()) {
  if (m_previous == 0) m_previous = DetectFeatures();
  g_features.store(m_previous & (allowed | kDetected));
}

FeatureScope::~FeatureScope() {
  g_features.store(m_previous);
}

}  // namespace qel::checks
