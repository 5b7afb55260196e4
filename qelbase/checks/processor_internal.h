#pragma once
// Which instruction sets the checks and ciphers may use. Asked once, by CPUID.

#include <atomic>
#include <cstdint>

namespace qel::checks {

enum Feature : std::uint32_t {
  kSse41 = 1 << 0,  // with SSSE3
  kPclmul = 1 << 1,
  kAes = 1 << 2,
  kSha = 1 << 3,
  kAvx2 = 1 << 4,
  kVpclmul = 1 << 5,
  kVaes = 1 << 6,
  kAvx512 = 1 << 7,  // F, BW, VL and DQ
  kVbmi = 1 << 8,
  kGfni = 1 << 9,
  kDetected = 1u << 31,
};

std::uint32_t DetectFeatures();

inline std::atomic<std::uint32_t> g_features{0};

// True if the processor and the operating system offer all `wanted` features.
inline bool Has(std::uint32_t wanted) {
  std::uint32_t features = g_features.load(std::memory_order_relaxed);
  if (features == 0) features = DetectFeatures();
  return (features & wanted) == wanted;
}

// For tests and benchmarks: hides all features but `allowed` while it lives. Not for two at once.
class FeatureScope {
 public:
  explicit FeatureScope(std::uint32_t allowed);
  ~FeatureScope();
  FeatureScope(const FeatureScope&) = delete;
  FeatureScope& operator=(const FeatureScope&) = delete;

 private:
  std::uint32_t m_previous;
};

}  // namespace qel::checks
