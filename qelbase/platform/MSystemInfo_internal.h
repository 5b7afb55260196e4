#pragma once
// The tables of systems, processors and colours.

#include <cstdint>
#include <optional>
#include <utility>

#include "qelbase/outside/framework/CString.h"
#include "qelbase/outside/system/machine.h"
#include "qelbase/platform/MSystemInfo.h"

namespace qel::system_info {

inline constexpr const wchar_t* kUnknown = L"Unknown";

// Systems that are told apart by their version, with their short names.
struct Generation {
  std::uint16_t major;
  std::uint16_t minor;
  const wchar_t* workstation;
  const wchar_t* server;
};

inline constexpr Generation kGenerations[] = {
    {10, 0, L"Windows 10", kUnknown},
    {6, 3, L"Windows 8.1", L"Windows Server 2012 R2"},
    {6, 2, L"Windows 8", L"Windows Server 2012"},
    {6, 1, L"Windows 7", L"Windows Server 2008 R2"},
    {6, 0, L"Windows Vista", L"Windows Server 2008"},
};

[[nodiscard]] const wchar_t* EditionOf(const Generation& generation, bool is_server, DWORD product);

[[nodiscard]] std::uint16_t ProcessorOf(WORD architecture);  // 65535: none of the known ones
[[nodiscard]] const wchar_t* ProcessorText(std::uint16_t processor);
[[nodiscard]] const wchar_t* LevelText(std::uint16_t processor, std::uint16_t level);
// Nothing where no level is told.
[[nodiscard]] std::optional<std::uint16_t> LevelOf(const sys::SYSTEM_INFO& info,
                                                   const CStringW& vendor);

// Major and minor version as they are known to people.
[[nodiscard]] std::pair<std::uint32_t, std::uint32_t> BrowserVersion(std::uint32_t major,
                                                                     std::uint32_t minor);

[[nodiscard]] COLOR_TYPES TypeOfPalette(int size);
[[nodiscard]] COLOR_TYPES TypeOfBits(int bits);

}  // namespace qel::system_info
