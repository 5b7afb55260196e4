// What the processor tells of itself.

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <initializer_list>

#include "qelbase/outside/system/machine_internal.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace qel::sys {

namespace {

// The first value of a line of /proc/cpuinfo; empty if there is none.
std::string lineOf(const char* key) {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos || !line.starts_with(key)) continue;
    const std::size_t value = line.find_first_not_of(" \t", colon + 1);
    return value == std::string::npos ? std::string() : line.substr(value);
  }
  return {};
}

}  // namespace

#if defined(__x86_64__)

namespace {

struct Registers {
  unsigned a, b, c, d;
};

Registers cpuid(unsigned leaf) {
  Registers out{};
  __cpuid_count(leaf, 0, out.a, out.b, out.c, out.d);
  return out;
}

void append(std::string& text, std::initializer_list<unsigned> words) {
  for (const unsigned word : words) {
    for (int shift = 0; shift < 32; shift += 8) text += static_cast<char>(word >> shift);
  }
}

}  // namespace

// By the leaves 0, 1 and 0x80000002 to 0x80000004 of CPUID, as the processors' manuals tell them.
ProcessorFacts ReadProcessor() {
  constexpr unsigned kNameBegin = 0x80000002, kNameEnd = 0x80000004;
  ProcessorFacts out;
  const Registers vendor = cpuid(0);
  append(out.vendor, {vendor.b, vendor.d, vendor.c});
  const unsigned signature = cpuid(1).a;
  const unsigned base_family = signature >> 8 & 0xF;
  const unsigned family = base_family == 0xF ? base_family + (signature >> 20 & 0xFF) : base_family;
  const bool extended = base_family == 6 || base_family == 0xF;
  const unsigned model = (signature >> 4 & 0xF) | (extended ? signature >> 12 & 0xF0 : 0);
  out.family = static_cast<WORD>(family);
  out.model = static_cast<WORD>(model);
  out.stepping = signature & 0xF;
  out.identifier = (out.vendor == "AuthenticAMD" ? "AMD64" : "Intel64") +
                   (" Family " + std::to_string(family)) + " Model " + std::to_string(model) +
                   " Stepping " + std::to_string(out.stepping);
  if (cpuid(0x80000000).a >= kNameEnd) {
    for (unsigned leaf = kNameBegin; leaf <= kNameEnd; ++leaf) {
      const Registers part = cpuid(leaf);
      append(out.name, {part.a, part.b, part.c, part.d});
    }
    out.name = out.name.c_str();  // up to its zero
  }
  return out;
}

#else

ProcessorFacts ReadProcessor() {
  ProcessorFacts out;
  out.name = lineOf("model name");
  return out;
}

#endif

std::uint32_t ReadProcessorSpeed() {
  return static_cast<std::uint32_t>(std::strtoul(lineOf("cpu MHz").c_str(), nullptr, 10));
}

DWORD CountProcessors() {
  return static_cast<DWORD>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
}

}  // namespace qel::sys
