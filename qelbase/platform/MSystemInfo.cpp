#include "qelbase/platform/MSystemInfo.h"

#include <algorithm>

#include "qelbase/outside/components/logging.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/machine.h"
#include "qelbase/platform/MSystemInfo_internal.h"
#include "qelbase/platform/MVersionInfo.h"
#include "qelbase/platform/MVersionInfo_internal.h"
#include "qelbase/settings/COXRegistry.h"

using namespace qel::sys;
namespace system_info = qel::system_info;

namespace {

QelSDK::Common::Logging::ILogger& GetLibraryLogger() {
  static QelSDK::Common::Logging::ILogger& logger =
      QelSDK::Common::Logging::GetLogger(L"lib.qelbase");
  return logger;
}

template <typename... Pieces>
void log(const wchar_t* place, const Pieces&... pieces) {
  QelSDK::Common::Logging::LogMessage line;
  line << L"In MSystemInfo::" << place << L"() : ";
  (line << ... << pieces);
  GetLibraryLogger().LogFailure(line);
}

// --- the system ----------------------------------------------------------------------------------

bool isAtLeast(DWORD major, DWORD minor, WORD service_pack) {
  OSVERSIONINFOEXW wanted{};
  wanted.dwOSVersionInfoSize = sizeof wanted;
  wanted.dwMajorVersion = major;
  wanted.dwMinorVersion = minor;
  wanted.wServicePackMajor = service_pack;
  constexpr DWORD members = VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR;
  return VerifyVersionInfoW(&wanted, members, VerSetConditionMask(0, members, VER_GREATER_EQUAL));
}

bool isServer() {
  OSVERSIONINFOEXW wanted{};
  wanted.dwOSVersionInfoSize = sizeof wanted;
  wanted.wProductType = VER_NT_WORKSTATION;
  return !VerifyVersionInfoW(&wanted, VER_PRODUCT_TYPE,
                             VerSetConditionMask(0, VER_PRODUCT_TYPE, VER_EQUAL));
}

// The newest generation that the system is at least; null if it is none.
const system_info::Generation* findGeneration() {
  const auto& all = system_info::kGenerations;
  const auto* const found = std::find_if(std::begin(all), std::end(all), [](const auto& row) {
    return isAtLeast(row.major, row.minor, 0);
  });
  return found == std::end(all) ? nullptr : found;
}

const wchar_t* servicePackOf(const system_info::Generation& generation) {
  if (generation.major != 6 || generation.minor > 1) return L"";
  if (generation.minor == 1) return isAtLeast(6, 1, 1) ? L", Service Pack 1" : L"";
  if (isAtLeast(6, 0, 2)) return L", Service Pack 2";
  return isAtLeast(6, 0, 1) ? L", Service Pack 1" : L"";
}

// --- memory --------------------------------------------------------------------------------------

MEMORYSTATUSEX memory() {
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof status;
  GlobalMemoryStatusEx(&status);
  return status;
}

// --- processor -----------------------------------------------------------------------------------

void reduceBlanks(CStringW& text) {
  text.Trim();
  while (text.Replace(L"  ", L" ") > 0) {
  }
}

}  // namespace

MSystemInfo::MSystemInfo() {
  GetSystemConfig();
  GetProcessorConfig();
}

const wchar_t* MSystemInfo::GET_OS_DESCRIPTION() const {
  return m_os_description.c_str();
}

const wchar_t* MSystemInfo::GET_OS_STRING() const {
  const system_info::Generation* const generation = findGeneration();
  if (!generation) return system_info::kUnknown;
  return isServer() ? generation->server : generation->workstation;
}

void MSystemInfo::GetSystemConfig() {
  m_os_description = system_info::kUnknown;
  const wchar_t* service_pack = L"";
  DWORD product = 0;
  const system_info::Generation* const generation =
      GetProductInfo(10, 0, 0, 0, &product) ? findGeneration() : nullptr;
  if (generation) {
    service_pack = servicePackOf(*generation);
    m_os_description = system_info::EditionOf(*generation, isServer(), product);
  }
  m_os_description += L" x64";
  m_os_description += service_pack;
}

std::uint16_t MSystemInfo::GET_PROCESSOR() const {
  return m_processor;
}
std::uint16_t MSystemInfo::GET_PROCESSOR_LEVEL() const {
  return m_processor_level;
}
std::uint64_t MSystemInfo::GET_NUM_PROCESSOR_CORES() const {
  return m_cores;
}

const wchar_t* MSystemInfo::GET_PROCESSOR_STRING() const {
  return system_info::ProcessorText(m_processor);
}

const wchar_t* MSystemInfo::GET_PROCESSOR_LEVEL_STRING() const {
  return system_info::LevelText(m_processor, m_processor_level);
}

CStringW MSystemInfo::GET_PROCESSOR_STRING2() const {
  return m_processor_name.IsEmpty() ? CStringW(GET_PROCESSOR_STRING()) : m_processor_name;
}

CStringW MSystemInfo::GET_PROCESSOR_STRING3() const {
  return m_processor_name + L" " + m_identifier;
}

void MSystemInfo::GetProcessorConfig() {
  COXRegistry registry;
  if (registry.Connect(COXRegistry::keyLocalMachine()) &&
      registry.OpenKey(L"Hardware\\Description\\System\\CentralProcessor\\0",
                       COXRegistry::permissionRead)) {
    registry.GetStringValue(L"ProcessorNameString", m_processor_name);
    registry.GetStringValue(L"VendorIdentifier", m_vendor);
    registry.GetStringValue(L"Identifier", m_identifier);
    reduceBlanks(m_processor_name);
  }
  SYSTEM_INFO info{};
  GetSystemInfo(&info);
  m_cores = info.dwNumberOfProcessors;
  m_processor = system_info::ProcessorOf(info.wProcessorArchitecture);
  if (const auto level = system_info::LevelOf(info, m_vendor)) m_processor_level = *level;
}

std::uint64_t MSystemInfo::GET_FREE_DISK_SPACE(const wchar_t* path) const {
  const std::wstring folder = std::wstring(path ? path : L"") + L"\\";
  ULONGLONG available = 0;
  if (GetDiskFreeSpaceExW(folder.c_str(), &available, nullptr, nullptr)) return available;
  const DWORD error = GetLastError();
  log(L"GET_FREE_DISK_SPACE", L"Cannot obtain free disk space on ", path ? path : L"",
      L" (error code ", error, L")");
  return 0;
}

bool MSystemInfo::GET_IE_VERSION(std::uint32_t& a, std::uint32_t& b, std::uint32_t& c,
                                 std::uint32_t& d) const {
  static constexpr const wchar_t* kPlace = L"GET_IE_VERSION";
  static constexpr const wchar_t* kLibrary = L"shdocvw.dll";
  std::uint32_t parts[4] = {};
  MVersionInfoDLL library;
  if (library.GET_VERSION_INFO(kLibrary)) {
    parts[0] = library.dwMajorVersion;
    parts[1] = library.dwMinorVersion;
    parts[2] = library.dwBuildNumber;
    parts[3] = library.dwPlatformID;
  } else {
    log(kPlace, L"Could not get version info using GetDllVersion()");
    MVersionInfo resource;
    if (resource.GET_FILE_VERSION_INFO(MFileName(kLibrary, false))) {
      for (int i = 0; i < 4; ++i) parts[i] = resource.GET_VERSION_VALUE(i);
    } else {
      log(kPlace, L"Could not get version info using resources!");
    }
  }
  if (parts[0] == 0) {
    log(kPlace, L"No IE version found.");
    a = b = c = d = 0;
    return false;
  }
  log(kPlace, L"IE V", parts[0], L".", parts[1], L".", parts[2], L".", parts[3], L" found");
  const auto [major, minor] = system_info::BrowserVersion(parts[0], parts[1]);
  a = major;
  b = minor;
  c = parts[3];
  d = parts[2];
  return true;
}

bool MSystemInfo::IS_HTML_HELP_INSTALLED() {
  COXRegistry registry;
  CStringW value;
  return registry.Connect(COXRegistry::keyClassesRoot()) &&
         registry.OpenKey(L"CLSID\\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}",
                          COXRegistry::permissionRead) &&
         registry.GetStringValue(L"", value);
}

void MSystemInfo::GET_RESOLUTION(int& width, int& height) {
  const HDC screen = GetDC(nullptr);  // asks the display once
  width = GetDeviceCaps(screen, HORZRES);
  height = GetDeviceCaps(screen, VERTRES);
  ReleaseDC(nullptr, screen);
}

COLOR_TYPES MSystemInfo::GET_COLOR_DEPTH() {
  return GET_COLOR_DEPTH(nullptr);
}

COLOR_TYPES MSystemInfo::GET_COLOR_DEPTH(HDC device) {
  const HDC screen = device ? nullptr : GetDC(nullptr);
  const HDC asked = device ? device : screen;
  const bool has_palette = (GetDeviceCaps(asked, RASTERCAPS) & RC_PALETTE) != 0;
  const COLOR_TYPES type =
      has_palette
          ? system_info::TypeOfPalette(GetDeviceCaps(asked, SIZEPALETTE))
          : system_info::TypeOfBits(GetDeviceCaps(asked, PLANES) * GetDeviceCaps(asked, BITSPIXEL));
  if (screen) ReleaseDC(nullptr, screen);
  return type;
}

std::int64_t MSystemInfo::GET_PHYSICAL_MEMORY() {
  return static_cast<std::int64_t>(memory().ullTotalPhys);
}
std::int64_t MSystemInfo::GET_FREE_PHYSICAL_MEMORY() {
  return static_cast<std::int64_t>(memory().ullAvailPhys);
}
std::int64_t MSystemInfo::GET_VIRTUAL_MEMORY() {
  return static_cast<std::int64_t>(memory().ullTotalPageFile);
}
std::int64_t MSystemInfo::GET_FREE_VIRTUAL_MEMORY() {
  return static_cast<std::int64_t>(memory().ullAvailPageFile);
}
