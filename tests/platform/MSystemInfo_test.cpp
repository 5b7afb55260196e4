// The machine: every row of the tables by other figures, and the real figures against the kernel's.
#include "qelbase/platform/MSystemInfo.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/machine.h"
#include "qelbase/outside/system/machine_internal.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/settings/COXRegistry.h"

#include "tests/support/LogLines.h"
#include "tests/support/RegistryFolder.h"

namespace {

namespace fs = std::filesystem;
using namespace qel::sys;
using qeltest::TempFolder;

// --- the system ----------------------------------------------------------------------------------

// An object reads the registry: never the real one.
class SystemTexts : public testing::Test {
  qeltest::RegistryFolder own_registry;
};
using RealFigures = SystemTexts;

enum Kind { desk, server };

struct Edition {
  int minor;
  Kind kind;
  const char* products;
  const wchar_t* text;
};

constexpr Edition kEditions[] = {
    {3, desk, "4 27 70 72 84", L"Windows 8.1 Enterprise Edition"},
    {3, desk, "48 49 69 103", L"Windows 8.1 Professional Edition"},
    {3, desk, "98 99 100 101", L"Windows 8.1"},
    {3, server, "7 13 36 40 79", L"Windows Server 2012 R2 Standard Edition"},
    {3, server, "8 12 37 39 80", L"Windows Server 2012 R2 Datacenter Edition"},
    {3, server, "9 25 63", L"Windows Server 2012 R2 Essentials Edition"},
    {3, server, "33", L"Windows Server 2012 R2 Foundation Edition"},
    {2, desk, "4 27 70 72 84", L"Windows 8 Enterprise Edition"},
    {2, desk, "48 49 69 103", L"Windows 8 Professional Edition"},
    {2, desk, "98 99 100 101", L"Windows 8"},
    {2, server, "7 13 36 40 79", L"Windows Server 2012 Standard Edition"},
    {2, server, "8 12 37 39 80", L"Windows Server 2012 Datacenter Edition"},
    {2, server, "9 25 63", L"Windows Server 2012 Essentials Edition"},
    {2, server, "33", L"Windows Server 2012 Foundation Edition"},
    {1, desk, "1 28 71", L"Windows 7 Ultimate Edition"},
    {1, desk, "2 5 67", L"Windows 7 Home Basic Edition"},
    {1, desk, "3 26 68", L"Windows 7 Home Premium Edition"},
    {1, desk, "4 27 70", L"Windows 7 Enterprise Edition"},
    {1, desk, "6 16 48 49 69", L"Windows 7 Professional Edition"},
    {1, desk, "11 47 66", L"Windows 7 Starter Edition"},
    {1, server, "7 13 36 40", L"Windows Server 2008 R2 Standard Edition"},
    {1, server, "8 12 37 39", L"Windows Server 2008 R2 Datacenter Edition"},
    {1, server, "10 14 38 41", L"Windows Server 2008 R2 Enterprise Edition"},
    {1, server, "15", L"Windows Server 2008 R2 for Itanium-Based Systems"},
    {1, server, "17 29", L"Windows Web Server 2008 R2"},
    {1, server, "18", L"Windows HPC Server 2008 R2"},
    {1, server, "33", L"Windows Server 2008 R2 Foundation Edition"},
    {0, desk, "1 28", L"Windows Vista Ultimate Edition"},
    {0, desk, "2 5", L"Windows Vista Home Basic Edition"},
    {0, desk, "3 26", L"Windows Vista Home Premium Edition"},
    {0, desk, "4 27", L"Windows Vista Enterprise Edition"},
    {0, desk, "6 16", L"Windows Vista Business Edition"},
    {0, desk, "11", L"Windows Vista Starter Edition"},
    {0, server, "7 13 36 40", L"Windows Server 2008 Standard Edition"},
    {0, server, "8 12 37 39", L"Windows Server 2008 Datacenter Edition"},
    {0, server, "9 24 25", L"Windows Small Business Server 2008"},
    {0, server, "10 14 38 41", L"Windows Server 2008 Enterprise Edition"},
    {0, server, "15", L"Windows Server 2008 for Itanium-Based Systems"},
    {0, server, "17 29", L"Windows Web Server 2008"},
    {0, server, "18", L"Windows HPC Server 2008"},
    {0, server, "19", L"Windows Home Server"},
    {0, server, "20 21 22 23", L"Windows Storage Server 2008"},
    {0, server, "30 31 32", L"Windows Essential Business Server 2008"},
    {0, server, "33", L"Windows Server 2008 Foundation Edition"},
};

// What an object says of such a system: the description, and the short name.
std::wstring told(const SystemFigures& system) {
  MachineOverride machine;
  machine.setSystem(system);
  const MSystemInfo info;
  return info.GET_OS_DESCRIPTION() + std::wstring(L"; ") + info.GET_OS_STRING();
}

SystemFigures figures(DWORD major, DWORD minor, Kind kind, std::optional<DWORD> product,
                      WORD service_pack = 0) {
  return {major, minor, service_pack, kind == server ? VER_NT_SERVER : VER_NT_WORKSTATION, product};
}

TEST_F(SystemTexts, EveryProductOfEverySystem) {
  const std::map<int, std::array<const wchar_t*, 2>> names = {
      {0, {L"Windows Vista", L"Windows Server 2008"}},
      {1, {L"Windows 7", L"Windows Server 2008 R2"}},
      {2, {L"Windows 8", L"Windows Server 2012"}},
      {3, {L"Windows 8.1", L"Windows Server 2012 R2"}}};
  for (const auto& [minor, short_names] : names) {
    for (const Kind kind : {desk, server}) {
      std::map<DWORD, std::wstring> texts;
      for (const Edition& row : kEditions) {
        std::istringstream products(row.products);
        for (DWORD product; row.minor == minor && row.kind == kind && products >> product;)
          texts[product] = row.text;
      }
      ASSERT_FALSE(texts.empty());
      for (DWORD product = 0; product < 130; ++product) {
        const auto known = texts.find(product);
        const std::wstring text = known == texts.end() ? L"Unknown" : known->second;
        EXPECT_EQ(told(figures(6, DWORD(minor), kind, product)),
                  text + L" x64; " + short_names[kind])
            << product;
      }
    }
  }
}

TEST_F(SystemTexts, NewerAndOlderSystemsAndServicePacks) {
  const struct {
    SystemFigures system;
    const wchar_t* text;
  } rows[] = {
      {figures(10, 0, desk, 48), L"Windows 10 x64; Windows 10"},
      {figures(11, 2, desk, 0), L"Windows 10 x64; Windows 10"},
      {figures(10, 0, server, 7), L"Unknown x64; Unknown"},
      {figures(6, 9, desk, 4), L"Windows 8.1 Enterprise Edition x64; Windows 8.1"},
      {figures(5, 2, desk, 4), L"Unknown x64; Unknown"},
      {figures(6, 1, desk, std::nullopt, 1), L"Unknown x64; Windows 7"},
      {figures(6, 1, desk, 48, 1),
       L"Windows 7 Professional Edition x64, Service Pack 1; Windows 7"},
      {figures(6, 1, desk, 48, 9),
       L"Windows 7 Professional Edition x64, Service Pack 1; Windows 7"},
      {figures(6, 1, desk, 127, 1), L"Unknown x64, Service Pack 1; Windows 7"},
      {figures(6, 0, server, 19, 1),
       L"Windows Home Server x64, Service Pack 1; Windows Server 2008"},
      {figures(6, 0, server, 19, 2),
       L"Windows Home Server x64, Service Pack 2; Windows Server 2008"},
      {figures(6, 2, desk, 98, 3), L"Windows 8 x64; Windows 8"},
  };
  for (const auto& row : rows) EXPECT_EQ(told(row.system), row.text);
}

// This machine is none of these systems, and says so.
TEST_F(SystemTexts, ThisMachineClaimsNoVersion) {
  const MSystemInfo info;
  EXPECT_STREQ(info.GET_OS_DESCRIPTION(), L"Unknown x64");
  EXPECT_STREQ(info.GET_OS_STRING(), L"Unknown");
  OSVERSIONINFOEXW wanted{};
  for (const BYTE condition :
       {VER_EQUAL, VER_GREATER, VER_GREATER_EQUAL, VER_LESS, VER_LESS_EQUAL}) {
    const ULONGLONG mask = VerSetConditionMask(0, VER_MAJORVERSION, condition);
    EXPECT_FALSE(VerifyVersionInfoW(&wanted, VER_MAJORVERSION, mask)) << int(condition);
    EXPECT_EQ(GetLastError(), 1150U);
  }
  DWORD product = 5;
  EXPECT_FALSE(GetProductInfo(10, 0, 0, 0, &product));
  EXPECT_EQ(product, 0U);
  EXPECT_FALSE(VerifyVersionInfoW(&wanted, 0, 1));
  EXPECT_EQ(GetLastError(), 87U);
  EXPECT_FALSE(VerifyVersionInfoW(&wanted, VER_MINORVERSION,
                                  VerSetConditionMask(0, VER_MAJORVERSION, VER_EQUAL)));
  EXPECT_EQ(GetLastError(), 87U);
}

// --- processors ----------------------------------------------------------------------------------

MSystemInfo processor(const SYSTEM_INFO& figures, const ProcessorTexts& texts) {
  MachineOverride machine;
  machine.setProcessor(figures).setProcessorTexts(texts);
  const qeltest::RegistryFolder folder;
  return {};
}

TEST(Processors, EveryLevelOfEveryArchitecture) {
  const struct {
    WORD architecture;
    const char* vendor;
    WORD level;
    WORD revision;
    DWORD type;
    int expected;
    const wchar_t* text;  // of type and level
  } rows[] = {
      {0, "AuthenticAMD", 5, 0x0400, 586, 17, L"Intel x86, AMD K6"},
      {0, "AuthenticAMD", 5, 0x03FF, 586, 16, L"Intel x86, AMD K5"},
      {0, "AuthenticAMD", 6, 0, 586, 18, L"Intel x86, Athlon"},
      {0, "AuthenticAMD", 15, 0, 586, 19, L"Intel x86, AMD Unknown"},
      {0, "CyrixInstead", 15, 0, 586, 15, L"Intel x86, Intel Unknown"},
      {0, "GenuineIntel", 15, 0x0300, 586, 9, L"Intel x86, Pentium 4"},
      {0, "GenuineIntel", 0x010F, 0x0300, 586, 0, L"Intel x86, Intel 386"},
      {0, "GenuineIntel", 4, 0x0300, 586, 15, L"Intel x86, Intel Unknown"},
      {0, "GenuineIntel", 6, 0x0300, 586, 0, L"Intel x86, Intel 386"},
      {0, "GenuineIntel", 6, 0x0400, 586, 1, L"Intel x86, Intel 486"},
      {0, "GenuineIntel", 5, 0x0500, 586, 2, L"Intel x86, Pentium"},
      {0, "GenuineIntel", 6, 0x0600, 586, 5, L"Intel x86, Pentium 2"},
      {0, "GenuineIntel", 6, 0x0700, 586, 7, L"Intel x86, Pentium 3"},
      {0, "GenuineIntel", 6, 0x0F02, 586, 13, L"Intel x86, Intel Core 2"},
      {0, "GenuineIntel", 6, 0x1702, 586, 13, L"Intel x86, Intel Core 2"},
      {0, "GenuineIntel", 6, 0x0800, 586, 15, L"Intel x86, Intel Unknown"},
      {9, "AuthenticAMD", 15, 0, 8664, 1, L"AMD64, Athlon 64"},
      {9, "AuthenticAMD", 25, 0, 8664, 3, L"AMD64, AMD64 Unknown"},
      {9, "GenuineIntel", 15, 0x0400, 8664, 6, L"AMD64, Intel64 Pentium 4"},
      {9, "GenuineIntel", 15, 0x0600, 8664, 9, L"AMD64, Intel64 Pentium D"},
      {9, "GenuineIntel", 15, 0x0500, 8664, 11, L"AMD64, Intel64 Unknown"},
      {9, "GenuineIntel", 0x010F, 0x0400, 8664, 11, L"AMD64, Intel64 Unknown"},
      {9, "GenuineIntel", 6, 0x5507, 8664, 11, L"AMD64, Intel64 Unknown"},
      {9, "CentaurHauls", 15, 0x0400, 8664, 3, L"AMD64, AMD64 Unknown"},
      {6, "GenuineIntel", 0, 0, 2200, 0, L"Intel Itanium, Intel Itanium"},
      {6, "GenuineIntel", 0, 0, 2201, 1, L"Intel Itanium, Itanium Unknown"},
      {6, "AuthenticAMD", 0, 0, 2200, 65535, L"Intel Itanium, Itanium Unknown"},
      {1, "", 3, 0, 0, 0, L"SGI MIPS, R3000"},
      {1, "", 4, 0, 0, 1, L"SGI MIPS, R4000"},
      {1, "", 5, 0, 0, 2, L"SGI MIPS, R5000"},
      {1, "", 0x0105, 0, 0, 3, L"SGI MIPS, MIPS Unknown"},
      {2, "", 21064, 0, 0, 0, L"Alpha AXP, 21064"},
      {2, "", 21066, 0, 0, 1, L"Alpha AXP, 21066"},
      {2, "", 21164, 0, 0, 2, L"Alpha AXP, 21164"},
      {2, "", 21264, 0, 0, 3, L"Alpha AXP, Alpha Unknown"},
      {3, "", 1, 0, 0, 0, L"PowerPC, 601"},
      {3, "", 3, 0, 0, 1, L"PowerPC, 603"},
      {3, "", 4, 0, 0, 2, L"PowerPC, 604"},
      {3, "", 6, 0, 0, 3, L"PowerPC, 603+"},
      {3, "", 9, 0, 0, 4, L"PowerPC, 604+"},
      {3, "", 20, 0, 0, 5, L"PowerPC, 620"},
      {3, "", 2, 0, 0, 6, L"PowerPC, PowerPC Unknown"},
      {12, "", 8, 0, 0, 65535, L"none, Unknown"},
  };
  for (const auto& row : rows) {
    SYSTEM_INFO figures{};
    figures.wProcessorArchitecture = row.architecture;
    figures.wProcessorLevel = row.level;
    figures.wProcessorRevision = row.revision;
    figures.dwProcessorType = row.type;
    figures.dwNumberOfProcessors = 96;
    const MSystemInfo info =
        processor(figures, {.name = {}, .vendor = row.vendor, .identifier = {}});
    const wchar_t* const type = info.GET_PROCESSOR_STRING();
    EXPECT_EQ((type ? type : L"none") + std::wstring(L", ") + info.GET_PROCESSOR_LEVEL_STRING(),
              row.text);
    EXPECT_EQ(info.GET_PROCESSOR_LEVEL(), row.expected);
    EXPECT_EQ(info.GET_PROCESSOR() == 65535, type == nullptr);
    EXPECT_EQ(info.GET_NUM_PROCESSOR_CORES(), 96U);
  }
}

TEST(Processors, NamesComeFromTheRegistryElseFromTheType) {
  SYSTEM_INFO figures{};
  figures.wProcessorArchitecture = 9;
  const MSystemInfo cutter = processor(figures, {"   Part  Cutter(R)    3000 \t", "", "Family 6"});
  EXPECT_EQ(cutter.GET_PROCESSOR_STRING2(), CStringW(L"Part Cutter(R) 3000"));
  EXPECT_EQ(cutter.GET_PROCESSOR_STRING3(), CStringW(L"Part Cutter(R) 3000 Family 6"));
  EXPECT_EQ(processor(figures, {"  ", "", ""}).GET_PROCESSOR_STRING2(), CStringW(L"AMD64"));
  figures.wProcessorArchitecture = 77;
  EXPECT_EQ(processor(figures, {"", "", ""}).GET_PROCESSOR_STRING2(), CStringW());
}

// --- the real figures ----------------------------------------------------------------------------

TEST_F(RealFigures, AreTheKernels) {
  SYSTEM_INFO info{};
  GetSystemInfo(&info);
  EXPECT_EQ(info.dwNumberOfProcessors, DWORD(get_nprocs()));
  EXPECT_EQ(info.dwPageSize, DWORD(getpagesize()));
  struct sysinfo kernel {};
  ASSERT_EQ(sysinfo(&kernel), 0);
  const auto total = std::int64_t(kernel.totalram) * kernel.mem_unit;
  const auto swap = std::int64_t(kernel.totalswap) * kernel.mem_unit;
  EXPECT_LE(MSystemInfo::GET_PHYSICAL_MEMORY(), total);
  EXPECT_GT(MSystemInfo::GET_PHYSICAL_MEMORY(), 0);
  EXPECT_EQ(MSystemInfo::GET_VIRTUAL_MEMORY() - MSystemInfo::GET_PHYSICAL_MEMORY(), swap);
  EXPECT_GT(MSystemInfo::GET_FREE_PHYSICAL_MEMORY(), 0);
  EXPECT_LT(MSystemInfo::GET_FREE_PHYSICAL_MEMORY(), MSystemInfo::GET_PHYSICAL_MEMORY());
  MEMORYSTATUSEX status{};
  EXPECT_FALSE(GlobalMemoryStatusEx(&status));
  EXPECT_EQ(GetLastError(), 87U);
}

TEST_F(RealFigures, MemoryIsWhatTheControlGroupsAllow) {
  const TempFolder root;
  const auto write = [&](const std::string& name, const std::string& text) {
    fs::create_directories((root / name).parent_path());
    qeltest::writeBytes(root / name, text);
  };
  write("proc/meminfo",
        "MemTotal: 1000 kB\nMemFree: 1 kB\nMemAvailable: 600 kB\n"
        "SwapTotal: 50 kB\nSwapFree: 40 kB\n");
  const auto read = [&] {
    const MEMORYSTATUSEX out = ReadMemory(root.path());
    return std::vector<ULONGLONG>{out.ullTotalPhys / 1024, out.ullAvailPhys / 1024,
                                  out.ullTotalPageFile / 1024, out.ullAvailPageFile / 1024,
                                  out.dwMemoryLoad};
  };
  EXPECT_EQ(read(), (std::vector<ULONGLONG>{1000, 600, 1050, 640, 40}));
  write("proc/self/cgroup", "0::/a/b\n");
  write("sys/fs/cgroup/a/b/memory.max", "max\n");
  write("sys/fs/cgroup/a/memory.max", "819200\n");
  write("sys/fs/cgroup/a/memory.current", "512000\n");
  write("sys/fs/cgroup/a/memory.stat", "anon 5\ninactive_file 102400\n");
  EXPECT_EQ(read(), (std::vector<ULONGLONG>{800, 400, 850, 440, 50}));
  write("proc/self/cgroup", "3:cpu,memory:/x\n2:memoryless:/\n");
  write("sys/fs/cgroup/memory/x/memory.limit_in_bytes", "204800\n");
  write("sys/fs/cgroup/memory/x/memory.usage_in_bytes", "307200\n");
  EXPECT_EQ(read(), (std::vector<ULONGLONG>{200, 0, 250, 40, 100}));
}

TEST_F(RealFigures, FreeDiskSpaceIsThatOfTheFoldersDisk) {
  const MSystemInfo info;
  const TempFolder folder;
  struct statvfs before {
  }, after{};
  std::uint64_t space = 0;
  do {  // until nobody wrote meanwhile
    ASSERT_EQ(statvfs(folder.path().c_str(), &before), 0);
    space = info.GET_FREE_DISK_SPACE(folder.wide().c_str());
    ASSERT_EQ(statvfs(folder.path().c_str(), &after), 0);
  } while (before.f_bavail != after.f_bavail);
  EXPECT_EQ(space, before.f_bavail * before.f_frsize);
  qeltest::LogLines log;
  const std::wstring none = folder.wide("none\\below");
  EXPECT_EQ(info.GET_FREE_DISK_SPACE(none.c_str()), 0U);
  EXPECT_EQ(log.take(), (std::vector{L"In MSystemInfo::GET_FREE_DISK_SPACE() : Cannot obtain free "
                                     L"disk space on " +
                                     none + L" (error code 3)"}));
  qeltest::writeBytes(folder / "file", "");
  EXPECT_FALSE(GetDiskFreeSpaceExW(folder.wide("file").c_str(), nullptr, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), 267U);
}

// --- the screen ----------------------------------------------------------------------------------

TEST(Screen, ColourDepthByPaletteOrBits) {
  const struct {
    int bits, planes, palette, depth;
  } rows[] = {{8, 1, 2, 0},    {8, 1, 15, 0}, {8, 1, 16, 1}, {8, 1, 255, 1}, {8, 1, 256, 2},
              {32, 1, 256, 2}, {1, 1, 0, 0},  {24, 1, 0, 4}, {8, 3, 0, 4},   {32, 1, 0, 5},
              {16, 1, 0, 3},   {15, 1, 0, 3}, {30, 1, 0, 3}};
  for (const auto& row : rows) {
    MachineOverride machine;
    machine.setScreen({1600, 1200, row.bits, row.planes, row.palette});
    EXPECT_EQ(MSystemInfo::GET_COLOR_DEPTH(), row.depth) << row.bits << " " << row.palette;
    const HDC device = GetDC(nullptr);
    machine.setScreen({1, 1, 1, 1, 0});
    EXPECT_EQ(MSystemInfo::GET_COLOR_DEPTH(device), row.depth);
    EXPECT_EQ(ReleaseDC(nullptr, device), 1);
    EXPECT_EQ(ReleaseDC(nullptr, device), 0);
    EXPECT_EQ(GetDeviceCaps(device, HORZRES), 0);
  }
  EXPECT_EQ(GetDC(reinterpret_cast<HWND>(1)), nullptr);
}

// A real display server, with a screen of these measures, on a number that it chooses.
class Display {
 public:
  explicit Display(const char* screen) {
    int ends[2];
    if (pipe(ends) != 0) return;
    m_process = fork();
    if (m_process == 0) {
      const std::string number = std::to_string(ends[1]);
      execlp("Xvfb", "Xvfb", "-displayfd", number.c_str(), "-noreset", "-screen", "0", screen,
             "-nolisten", "tcp", nullptr);
      _exit(127);
    }
    close(ends[1]);
    std::string name = ":";
    for (char c; read(ends[0], &c, 1) == 1 && c != '\n';) name += c;
    close(ends[0]);
    if (name.size() > 1) setenv("DISPLAY", name.c_str(), 1);
    m_is_up = name.size() > 1;
  }
  ~Display() {
    kill(m_process, SIGTERM);
    waitpid(m_process, nullptr, 0);
    unsetenv("DISPLAY");
  }
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;
  bool isUp() const { return m_is_up; }

 private:
  pid_t m_process = -1;
  bool m_is_up = false;
};

std::string screen() {
  int width = 0, height = 0;
  MSystemInfo::GET_RESOLUTION(width, height);
  return std::to_string(width) + "x" + std::to_string(height) + " " +
         std::to_string(MSystemInfo::GET_COLOR_DEPTH());
}

TEST(Screen, FiguresAreTheDisplaysElseTheTold) {
  const char* const before = std::getenv("DISPLAY");
  const std::string kept = before ? before : "";
  unsetenv("DISPLAY");
  EXPECT_EQ(screen(), "1024x768 5");
  setenv("DISPLAY", ":65000", 1);  // where nobody listens
  EXPECT_EQ(screen(), "1024x768 5");
  const struct {
    const char* screen;
    const char* told;
  } rows[] = {
      {"1280x720x24", "1280x720 5"}, {"640x480x8", "640x480 2"}, {"800x600x16", "800x600 3"}};
  for (const auto& row : rows) {
    const Display display(row.screen);
    ASSERT_TRUE(display.isUp()) << "Debian package xvfb";
    EXPECT_EQ(screen(), row.told);
  }
  if (before) setenv("DISPLAY", kept.c_str(), 1);
}

// --- components ----------------------------------------------------------------------------------

TEST(Components, HelpIsInstalledWhenItsControlIsRegistered) {
  const qeltest::RegistryFolder folder;
  EXPECT_FALSE(MSystemInfo::IS_HTML_HELP_INSTALLED());
  COXRegistry registry;
  ASSERT_TRUE(registry.OpenPath(L"Software\\Classes\\CLSID\\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}",
                                COXRegistry::keyCurrentUser()));
  EXPECT_FALSE(MSystemInfo::IS_HTML_HELP_INSTALLED());  // no default value
  ASSERT_TRUE(registry.SetStringValue(L"", L"Help"));
  EXPECT_TRUE(MSystemInfo::IS_HTML_HELP_INSTALLED());
}

// The browser's control under the name that programs know it by.
class Browser : public testing::Test {
 protected:
  void load(const char* module) {
    fs::copy_file(module, folder / "libshdocvw.so", fs::copy_options::overwrite_existing);
    loaded = LoadLibraryW(folder.wide("shdocvw.dll").c_str());
    ASSERT_NE(loaded, nullptr);
  }
  ~Browser() override {
    if (loaded) FreeLibrary(loaded);
  }
  std::vector<std::uint32_t> version() const {
    std::uint32_t parts[4] = {9, 9, 9, 9};
    const bool found = MSystemInfo().GET_IE_VERSION(parts[0], parts[1], parts[2], parts[3]);
    EXPECT_EQ(found, parts[0] != 0);
    return {parts[0], parts[1], parts[2], parts[3]};
  }
  const qeltest::RegistryFolder registry;
  TempFolder folder;
  HMODULE loaded = nullptr;
};

using Parts = std::vector<std::uint32_t>;
const std::wstring kPlace = L"In MSystemInfo::GET_IE_VERSION() : ";

TEST_F(Browser, VersionsAsTheyAreKnownToPeople) {
  load(LOADABLE_MODULE);
  auto* const record = reinterpret_cast<std::uint32_t*>(GetProcAddress(loaded, "version"));
  const struct {
    std::uint32_t major, minor;
    Parts known;
  } rows[] = {{11, 0, {5, 0, 4, 3}}, {5, 50, {5, 50, 4, 3}}, {4, 40, {2, 0, 4, 3}},
              {4, 41, {3, 0, 4, 3}}, {4, 70, {3, 0, 4, 3}},  {4, 71, {4, 0, 4, 3}},
              {4, 72, {4, 1, 4, 3}}, {4, 73, {4, 2, 4, 3}},  {0, 5, {0, 0, 0, 0}}};
  qeltest::LogLines log;
  for (const auto& row : rows) {
    record[1] = row.major;
    record[2] = row.minor;
    record[3] = 3;
    record[4] = 4;
    EXPECT_EQ(version(), row.known) << row.major << "." << row.minor;
  }
  const std::vector<std::wstring> lines = log.take();
  EXPECT_EQ(lines.front(), kPlace + L"IE V11.0.3.4 found");
  EXPECT_EQ(lines.back(), kPlace + L"No IE version found.");
}

TEST_F(Browser, FallsBackOnTheResource) {
  EXPECT_EQ(version(), (Parts{0, 0, 0, 0}));
  load(PLAIN_MODULE);
  qeltest::LogLines log;
  EXPECT_EQ(version(), (Parts{5, 0, 8, 7}));
  const std::vector<std::wstring> lines = log.take();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[1], kPlace + L"Could not get version info using GetDllVersion()");
  EXPECT_EQ(lines[2], kPlace + L"IE V10.0.7.8 found");
}

}  // namespace
