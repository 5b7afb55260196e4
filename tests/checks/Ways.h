#pragma once
// The ways by which one result can be reached: what a test promises, it promises for all of them.

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "qelbase/checks/processor_internal.h"

namespace qeltest {

struct Way {
  const char* name;
  std::uint32_t features;
};

inline constexpr std::uint32_t kSseWay =
    qel::checks::kSse41 | qel::checks::kPclmul | qel::checks::kAes | qel::checks::kSha;
inline constexpr std::uint32_t kAvx2Way =
    kSseWay | qel::checks::kAvx2 | qel::checks::kVpclmul | qel::checks::kVaes;

inline constexpr Way kWays[] = {
    {"portable", 0}, {"sse", kSseWay}, {"avx2", kAvx2Way}, {"all", ~0u}};

// Runs `body` once by each way.
template <typename Body>
void byEachWay(Body body) {
  for (const Way& way : kWays) {
    SCOPED_TRACE(way.name);
    const qel::checks::FeatureScope scope(way.features);
    body();
  }
}

using Bytes = std::vector<std::uint8_t>;

// Bytes that look random and are the same in every run.
inline Bytes noise(std::size_t size, std::uint32_t seed = 1) {
  std::mt19937 generator(seed);
  Bytes bytes(size);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(generator());
  return bytes;
}

inline Bytes fromHex(const std::string& text) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

}  // namespace qeltest
