#include <algorithm>
#include <array>
#include <iterator>
#include <span>
#include <string_view>

#include "qelbase/platform/MSystemInfo_internal.h"

namespace qel::system_info {

namespace {

// --- editions ------------------------------------------------------------------------------------

struct Edition {
  std::uint16_t minor;  // of the generation 6
  bool is_server;
  std::array<std::uint8_t, 5> products;  // 0: none
  const wchar_t* text;
};

constexpr Edition kEditions[] = {
    {3, false, {4, 27, 70, 72, 84}, L"Windows 8.1 Enterprise Edition"},
    {3, false, {48, 49, 69, 103}, L"Windows 8.1 Professional Edition"},
    {3, false, {98, 99, 100, 101}, L"Windows 8.1"},
    {3, true, {7, 13, 36, 40, 79}, L"Windows Server 2012 R2 Standard Edition"},
    {3, true, {8, 12, 37, 39, 80}, L"Windows Server 2012 R2 Datacenter Edition"},
    {3, true, {9, 25, 63}, L"Windows Server 2012 R2 Essentials Edition"},
    {3, true, {33}, L"Windows Server 2012 R2 Foundation Edition"},
    {2, false, {4, 27, 70, 72, 84}, L"Windows 8 Enterprise Edition"},
    {2, false, {48, 49, 69, 103}, L"Windows 8 Professional Edition"},
    {2, false, {98, 99, 100, 101}, L"Windows 8"},
    {2, true, {7, 13, 36, 40, 79}, L"Windows Server 2012 Standard Edition"},
    {2, true, {8, 12, 37, 39, 80}, L"Windows Server 2012 Datacenter Edition"},
    {2, true, {9, 25, 63}, L"Windows Server 2012 Essentials Edition"},
    {2, true, {33}, L"Windows Server 2012 Foundation Edition"},
    {1, false, {1, 28, 71}, L"Windows 7 Ultimate Edition"},
    {1, false, {2, 5, 67}, L"Windows 7 Home Basic Edition"},
    {1, false, {3, 26, 68}, L"Windows 7 Home Premium Edition"},
    {1, false, {4, 27, 70}, L"Windows 7 Enterprise Edition"},
    {1, false, {6, 16, 48, 49, 69}, L"Windows 7 Professional Edition"},
    {1, false, {11, 47, 66}, L"Windows 7 Starter Edition"},
    {1, true, {7, 13, 36, 40}, L"Windows Server 2008 R2 Standard Edition"},
    {1, true, {8, 12, 37, 39}, L"Windows Server 2008 R2 Datacenter Edition"},
    {1, true, {10, 14, 38, 41}, L"Windows Server 2008 R2 Enterprise Edition"},
    {1, true, {15}, L"Windows Server 2008 R2 for Itanium-Based Systems"},
    {1, true, {17, 29}, L"Windows Web Server 2008 R2"},
    {1, true, {18}, L"Windows HPC Server 2008 R2"},
    {1, true, {33}, L"Windows Server 2008 R2 Foundation Edition"},
    {0, false, {1, 28}, L"Windows Vista Ultimate Edition"},
    {0, false, {2, 5}, L"Windows Vista Home Basic Edition"},
    {0, false, {3, 26}, L"Windows Vista Home Premium Edition"},
    {0, false, {4, 27}, L"Windows Vista Enterprise Edition"},
    {0, false, {6, 16}, L"Windows Vista Business Edition"},
    {0, false, {11}, L"Windows Vista Starter Edition"},
    {0, true, {7, 13, 36, 40}, L"Windows Server 2008 Standard Edition"},
    {0, true, {8, 12, 37, 39}, L"Windows Server 2008 Datacenter Edition"},
    {0, true, {9, 24, 25}, L"Windows Small Business Server 2008"},
    {0, true, {10, 14, 38, 41}, L"Windows Server 2008 Enterprise Edition"},
    {0, true, {15}, L"Windows Server 2008 for Itanium-Based Systems"},
    {0, true, {17, 29}, L"Windows Web Server 2008"},
    {0, true, {18}, L"Windows HPC Server 2008"},
    {0, true, {19}, L"Windows Home Server"},
    {0, true, {20, 21, 22, 23}, L"Windows Storage Server 2008"},
    {0, true, {30, 31, 32}, L"Windows Essential Business Server 2008"},
    {0, true, {33}, L"Windows Server 2008 Foundation Edition"},
};

// --- processors ----------------------------------------------------------------------------------

enum Processor : std::uint16_t { kX86, kMips, kAlpha, kPowerPc, kAmd64, kItanium, kNone = 65535 };

struct Architecture {
  WORD code;
  Processor processor;
  const wchar_t* text;
};

constexpr Architecture kArchitectures[] = {
    {0, kX86, L"Intel x86"},   {1, kMips, L"SGI MIPS"}, {2, kAlpha, L"Alpha AXP"},
    {3, kPowerPc, L"PowerPC"}, {9, kAmd64, L"AMD64"},   {6, kItanium, L"Intel Itanium"},
};

struct LevelRow {
  std::uint16_t level;
  const wchar_t* text;
};

constexpr LevelRow kX86Levels[] = {
    {0, L"Intel 386"},   {1, L"Intel 486"},     {2, L"Pentium"},      {3, L"Pentium MMX"},
    {4, L"Pentium Pro"}, {5, L"Pentium 2"},     {6, L"Celeron"},      {7, L"Pentium 3"},
    {8, L"Celeron 3"},   {9, L"Pentium 4"},     {10, L"Pentium M"},   {11, L"Celeron M"},
    {12, L"Intel Core"}, {13, L"Intel Core 2"}, {14, L"Intel Xeon"},  {16, L"AMD K5"},
    {17, L"AMD K6"},     {18, L"Athlon"},       {19, L"AMD Unknown"},
};
constexpr LevelRow kMipsLevels[] = {{0, L"R3000"}, {1, L"R4000"}, {2, L"R5000"}};
constexpr LevelRow kAlphaLevels[] = {{0, L"21064"}, {1, L"21066"}, {2, L"21164"}};
constexpr LevelRow kPowerPcLevels[] = {{0, L"601"},  {1, L"603"},  {2, L"604"},
                                       {3, L"603+"}, {4, L"604+"}, {5, L"620"}};
constexpr LevelRow kAmd64Levels[] = {
    {0, L"Opteron 64"},         {1, L"Athlon 64"},
    {2, L"Sempron 64"},         {4, L"Intel64 Xeon"},
    {5, L"Intel64 Core 2"},     {6, L"Intel64 Pentium 4"},
    {7, L"Intel64 Pentium EE"}, {8, L"Intel64 Pentium Dual Core"},
    {9, L"Intel64 Pentium D"},  {10, L"Intel64 Celeron M"},
    {11, L"Intel64 Unknown"},
};
constexpr LevelRow kItaniumLevels[] = {{0, L"Intel Itanium"}};

struct Levels {
  std::span<const LevelRow> rows;
  const wchar_t* otherwise;
};

constexpr Levels kLevels[] = {
    // by processor
    {kX86Levels, L"Intel Unknown"},   {kMipsLevels, L"MIPS Unknown"},
    {kAlphaLevels, L"Alpha Unknown"}, {kPowerPcLevels, L"PowerPC Unknown"},
    {kAmd64Levels, L"AMD64 Unknown"}, {kItaniumLevels, L"Itanium Unknown"},
};

// What the level and the revision of the system tell.
struct Signature {
  int family;
  int extended;
  int model;
};

Signature signatureOf(const sys::SYSTEM_INFO& info) {
  return {info.wProcessorLevel & 0xFF, info.wProcessorLevel >> 8, info.wProcessorRevision >> 8};
}

constexpr const wchar_t* kAmd = L"AuthenticAMD";
constexpr const wchar_t* kIntel = L"GenuineIntel";

std::uint16_t levelOfX86(const Signature& cpu, const CStringW& vendor) {
  constexpr std::uint16_t kUnknownIntel = 15;
  if (vendor == kAmd) {
    if (cpu.family == 5) return cpu.model >= 4 ? 17 : 16;
    return cpu.family == 6 ? 18 : 19;
  }
  if (vendor != kIntel) return kUnknownIntel;
  if (cpu.family == 15 && cpu.extended == 0) return 9;
  if (cpu.family < 5) return kUnknownIntel;
  constexpr std::pair<int, std::uint16_t> by_model[] = {{3, 0}, {4, 1},   {5, 2},  {6, 5},
                                                        {7, 7}, {15, 13}, {23, 13}};
  for (const auto& [model, level] : by_model) {
    if (model == cpu.model) return level;
  }
  return kUnknownIntel;
}

std::uint16_t levelOfAmd64(const Signature& cpu, const CStringW& vendor) {
  constexpr std::uint16_t kUnknownAmd = 3, kUnknownIntel = 11;
  const bool is_first_64_bit = cpu.family == 15 && cpu.extended == 0;
  if (vendor == kAmd) return is_first_64_bit ? 1 : kUnknownAmd;
  if (vendor != kIntel) return kUnknownAmd;
  if (is_first_64_bit && cpu.model == 4) return 6;
  return is_first_64_bit && cpu.model == 6 ? 9 : kUnknownIntel;
}

// The place of a whole level in a list; the list's length if it is not there.
std::uint16_t placeOf(WORD level, std::initializer_list<WORD> levels) {
  const auto* const found = std::find(levels.begin(), levels.end(), level);
  return static_cast<std::uint16_t>(found - levels.begin());
}

}  // namespace

const wchar_t* EditionOf(const Generation& generation, bool is_server, DWORD product) {
  if (generation.major == 10) return is_server ? kUnknown : generation.workstation;
  const auto* const found =
      std::find_if(std::begin(kEditions), std::end(kEditions), [&](const Edition& row) {
        return row.minor == generation.minor && row.is_server == is_server && product != 0 &&
               std::find(row.products.begin(), row.products.end(), product) != row.products.end();
      });
  return found == std::end(kEditions) ? kUnknown : found->text;
}

std::uint16_t ProcessorOf(WORD architecture) {
  for (const Architecture& row : kArchitectures) {
    if (row.code == architecture) return row.processor;
  }
  return kNone;
}

const wchar_t* ProcessorText(std::uint16_t processor) {
  for (const Architecture& row : kArchitectures) {
    if (row.processor == processor) return row.text;
  }
  return nullptr;
}

const wchar_t* LevelText(std::uint16_t processor, std::uint16_t level) {
  if (processor >= std::size(kLevels)) return kUnknown;
  const Levels& levels = kLevels[processor];
  for (const LevelRow& row : levels.rows) {
    if (row.level == level) return row.text;
  }
  return levels.otherwise;
}

std::optional<std::uint16_t> LevelOf(const sys::SYSTEM_INFO& info, const CStringW& vendor) {
  const Signature cpu = signatureOf(info);
  constexpr DWORD kFirstItanium = 2200;
  switch (ProcessorOf(info.wProcessorArchitecture)) {
    case kX86:
      return levelOfX86(cpu, vendor);
    case kAmd64:
      return levelOfAmd64(cpu, vendor);
    case kItanium:
      if (vendor != kIntel) return std::nullopt;
      return info.dwProcessorType == kFirstItanium ? 0 : 1;
    case kMips:
      return placeOf(info.wProcessorLevel, {3, 4, 5});
    case kAlpha:
      return placeOf(info.wProcessorLevel, {21064, 21066, 21164});
    case kPowerPc:
      return placeOf(info.wProcessorLevel, {1, 3, 4, 6, 9, 20});
    default:
      return kNone;
  }
}

std::pair<std::uint32_t, std::uint32_t> BrowserVersion(std::uint32_t major, std::uint32_t minor) {
  if (major >= 5) return {5, minor};
  if (minor <= 40) return {2, 0};
  if (minor <= 70) return {3, 0};
  if (minor == 71) return {4, 0};
  return {4, minor == 72 ? 1 : 2};
}

COLOR_TYPES TypeOfPalette(int size) {
  if (size < 16) return COLOR_MONOCHROME;
  return size < 256 ? COLOR_16 : COLOR_256;
}

COLOR_TYPES TypeOfBits(int bits) {
  switch (bits) {
    case 1:
      return COLOR_MONOCHROME;
    case 24:
      return COLOR_TRUE_24;
    case 32:
      return COLOR_TRUE_32;
    default:
      return COLOR_HIGH;
  }
}

}  // namespace qel::system_info
