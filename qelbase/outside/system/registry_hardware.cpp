// The keys that tell of the processors, read from the machine at each start of the process.

#include <unistd.h>

#include <fstream>
#include <map>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/registry_internal.h"
#include "qelbase/outside/system/text.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace qel::sys::registry {

namespace {

struct Processor {
  std::string name, vendor, identifier;
};

#if defined(__x86_64__)

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

// By the leaves 0, 1 and 0x80000002 to 0x80000004 of CPUID, as the processors' manuals tell them.
Processor readProcessor() {
  constexpr unsigned kNameBegin = 0x80000002, kNameEnd = 0x80000004;
  Processor out;
  const Registers vendor = cpuid(0);
  append(out.vendor, {vendor.b, vendor.d, vendor.c});
  const unsigned signature = cpuid(1).a;
  const unsigned base_family = signature >> 8 & 0xF;
  const unsigned family = base_family == 0xF ? base_family + (signature >> 20 & 0xFF) : base_family;
  const bool extended = base_family == 6 || base_family == 0xF;
  const unsigned model = (signature >> 4 & 0xF) | (extended ? signature >> 12 & 0xF0 : 0);
  out.identifier = (out.vendor == "AuthenticAMD" ? "AMD64" : "Intel64") +
                   (" Family " + std::to_string(family)) + " Model " + std::to_string(model) +
                   " Stepping " + std::to_string(signature & 0xF);
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

Processor readProcessor() {
  Processor out;
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    const std::size_t colon = line.find(": ");
    if (colon != std::string::npos && line.starts_with("model name"))
      out.name = line.substr(colon + 2);
  }
  return out;
}

#endif

// In megahertz; 0 if the system does not tell.
std::uint32_t processorSpeed() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    const std::size_t colon = line.find(':');
    if (colon != std::string::npos && line.starts_with("cpu MHz")) {
      return static_cast<std::uint32_t>(std::strtoul(line.c_str() + colon + 1, nullptr, 10));
    }
  }
  return 0;
}

void insertValue(Connection& connection, KeyId key, const std::wstring& name, DWORD type,
                 const std::string& data) {
  const std::string bytes = NameBytes(name);
  const std::string folded = NameBytes(FoldCase(name));
  connection.prepare("INSERT INTO entries(key, folded, name, type, data) VALUES(?, ?, ?, ?, ?)")
      .bind(key)
      .bind(std::string_view(folded))
      .bind(std::string_view(bytes))
      .bind(static_cast<std::int64_t>(type))
      .bindBytes(data)
      .run();
}

}  // namespace

void FillHardware(Connection& connection) {
  const Processor processor = readProcessor();
  std::string speed(4, '\0');
  const std::uint32_t megahertz = processorSpeed();
  for (int i = 0; i < 4; ++i) speed[static_cast<std::size_t>(i)] = char(megahertz >> (8 * i));
  const long count = std::max(1L, sysconf(_SC_NPROCESSORS_ONLN));
  for (long i = 0; i < count; ++i) {
    KeyId key = 0;
    const std::wstring path = L"DESCRIPTION\\System\\CentralProcessor\\" + std::to_wstring(i);
    if (MakePath(connection, kRoot, path, FileTimeNow(), key) != ERROR_SUCCESS) return;
    const std::pair<const wchar_t*, const std::string*> texts[] = {
        {L"ProcessorNameString", &processor.name},
        {L"VendorIdentifier", &processor.vendor},
        {L"Identifier", &processor.identifier}};
    for (const auto& [name, text] : texts) {
      insertValue(connection, key, name, REG_SZ, ToUtf16Le(Widen(*text, CP_UTF8) + L'\0'));
    }
    insertValue(connection, key, L"~MHz", REG_DWORD, speed);
  }
}

}  // namespace qel::sys::registry
