#include "qelbase/outside/system/machine.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <compare>
#include <cstdint>
#include <fstream>
#include <map>
#include <mutex>
#include <string>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/machine_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/syscalls_internal.h"

namespace qel::sys {

struct MachineFacts {
  std::optional<SystemFigures> system;
  std::optional<SYSTEM_INFO> processor;
  std::optional<ProcessorTexts> texts;
  std::optional<MEMORYSTATUSEX> memory;
  std::optional<DiskFigures> disk;
  std::optional<ScreenFigures> screen;
  MachineFacts* outer = nullptr;
};

namespace {

std::mutex facts_lock;
std::atomic<MachineFacts*> innermost = nullptr;

template <typename T>
std::optional<T> overridden(std::optional<T> MachineFacts::*fact) {
  if (!innermost.load(std::memory_order_acquire)) return std::nullopt;
  const std::lock_guard guard(facts_lock);
  const MachineFacts* const facts = innermost;
  return facts ? facts->*fact : std::nullopt;
}

template <typename T>
void set(MachineFacts& facts, std::optional<T> MachineFacts::*fact, const T& value) {
  const std::lock_guard guard(facts_lock);
  facts.*fact = value;
}

// --- conditions ----------------------------------------------------------------------------------

constexpr int kConditionBits = 3;
constexpr DWORD kVersionMembers =
    VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR | VER_SERVICEPACKMINOR;

BYTE conditionOf(ULONGLONG mask, DWORD member) {
  return mask >> (kConditionBits * std::countr_zero(member)) & 7;
}

bool fits(std::strong_ordering order, BYTE condition) {
  switch (condition) {
    case VER_EQUAL:
      return std::is_eq(order);
    case VER_GREATER:
      return std::is_gt(order);
    case VER_GREATER_EQUAL:
      return std::is_gteq(order);
    case VER_LESS:
      return std::is_lt(order);
    case VER_LESS_EQUAL:
      return std::is_lteq(order);
    default:
      return false;
  }
}

// The members of the version that are looked at, as one number of several places.
bool versionFits(const SystemFigures& system, const OSVERSIONINFOEXW& wanted, DWORD members,
                 ULONGLONG conditions) {
  const struct {
    DWORD member, own, wanted;
  } places[] = {{VER_MAJORVERSION, system.major, wanted.dwMajorVersion},
                {VER_MINORVERSION, system.minor, wanted.dwMinorVersion},
                {VER_SERVICEPACKMAJOR, system.service_pack, wanted.wServicePackMajor},
                {VER_SERVICEPACKMINOR, 0, wanted.wServicePackMinor}};
  std::strong_ordering order = std::strong_ordering::equal;
  BYTE condition = 0;
  for (const auto& place : places) {
    if ((members & place.member) == 0) continue;
    if (condition == 0) condition = conditionOf(conditions, place.member);
    if (std::is_eq(order)) order = place.own <=> place.wanted;
  }
  return fits(order, condition);
}

// --- screens -------------------------------------------------------------------------------------

ScreenFigures screenFigures() {
  if (const auto figures = overridden(&MachineFacts::screen)) return *figures;
  return ReadDisplay().value_or(ScreenFigures());
}

// The contexts that are out. A handle is a number that never comes again.
struct Devices {
  std::mutex lock;
  std::map<std::uintptr_t, ScreenFigures> screens;
  std::uintptr_t last = 0;
};

Devices& devices() {
  static Lasting<Devices> one;
  return *one;
}

int fail(DWORD error) {
  SetLastError(error);
  return 0;
}

}  // namespace

// --- the system ----------------------------------------------------------------------------------

ULONGLONG VerSetConditionMask(ULONGLONG mask, DWORD members, BYTE condition) {
  for (DWORD member = VER_MINORVERSION; member <= VER_PRODUCT_TYPE; member <<= 1) {
    const int shift = kConditionBits * std::countr_zero(member);
    if ((members & member) != 0) mask |= ULONGLONG(condition & 7) << shift;
  }
  return mask;
}

BOOL VerifyVersionInfoW(const OSVERSIONINFOEXW* wanted, DWORD members, ULONGLONG conditions) {
  if (!wanted || members == 0) return fail(ERROR_INVALID_PARAMETER);
  for (DWORD rest = members; rest != 0; rest &= rest - 1) {
    const DWORD member = rest & ~(rest - 1);
    if (member > VER_PRODUCT_TYPE || conditionOf(conditions, member) == 0)
      return fail(ERROR_INVALID_PARAMETER);
  }
  const auto system = overridden(&MachineFacts::system);
  const BYTE product_type = system ? system->product_type : VER_NT_WORKSTATION;
  bool all_fit = true;
  if (members & VER_PRODUCT_TYPE) {
    all_fit =
        fits(product_type <=> wanted->wProductType, conditionOf(conditions, VER_PRODUCT_TYPE));
  }
  if (members & (VER_BUILDNUMBER | VER_PLATFORMID | VER_SUITENAME)) all_fit = false;
  if (members & kVersionMembers) {
    all_fit = all_fit && system && versionFits(*system, *wanted, members, conditions);
  }
  return all_fit ? 1 : fail(ERROR_OLD_WIN_VERSION);
}

BOOL GetProductInfo(DWORD major, DWORD, DWORD, DWORD, DWORD* product) {
  if (!product || major == 0) return fail(ERROR_INVALID_PARAMETER);
  const auto system = overridden(&MachineFacts::system);
  *product = system ? system->product.value_or(0) : 0;
  return system && system->product ? 1 : fail(ERROR_NOT_SUPPORTED);
}

// --- processors ----------------------------------------------------------------------------------

void GetSystemInfo(SYSTEM_INFO* info) {
  if (const auto set = overridden(&MachineFacts::processor)) {
    *info = *set;
    return;
  }
  const ProcessorFacts processor = ReadProcessor();
  *info = {};
#if defined(__x86_64__)
  info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
  info->dwProcessorType = 8664;
#elif defined(__aarch64__)
  info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_ARM64;
#else
  info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_UNKNOWN;
#endif
  std::uintptr_t lowest = 0;
  std::ifstream("/proc/sys/vm/mmap_min_addr") >> lowest;
  const auto page = static_cast<DWORD>(sysconf(_SC_PAGESIZE));
  info->dwPageSize = page;
  info->dwAllocationGranularity = page;
  info->lpMinimumApplicationAddress = reinterpret_cast<void*>(lowest);
  // The upper half of the addresses, and the last page of the lower one, are the kernel's.
  info->lpMaximumApplicationAddress = reinterpret_cast<void*>((std::uintptr_t{1} << 47) - page - 1);
  info->dwNumberOfProcessors = CountProcessors();
  const DWORD shown = std::min<DWORD>(info->dwNumberOfProcessors, 64);
  info->dwActiveProcessorMask = ~std::uint64_t{0} >> (64 - shown);
  info->wProcessorLevel = processor.family;
  info->wProcessorRevision = static_cast<WORD>(processor.model << 8 | processor.stepping);
}

ProcessorTexts CurrentProcessorTexts() {
  const auto set = overridden(&MachineFacts::texts);
  return set ? *set : ReadProcessor();
}

// --- memory and disks ----------------------------------------------------------------------------

BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX* status) {
  if (!status || status->dwLength != sizeof *status) return fail(ERROR_INVALID_PARAMETER);
  const auto set = overridden(&MachineFacts::memory);
  *status = set ? *set : ReadMemory({});
  status->dwLength = sizeof *status;
  return 1;
}

BOOL GetDiskFreeSpaceExW(const wchar_t* folder, ULONGLONG* available, ULONGLONG* total,
                         ULONGLONG* free) {
  std::string native = ".";
  if (folder && !ToNative(folder, native)) return 0;
  struct stat status {};
  struct statvfs disk {};
  if (Calls().stat(native.c_str(), &status) != 0) {
    const DWORD error = ErrorOfPath(errno, native);
    return fail(error == ERROR_FILE_NOT_FOUND ? ERROR_PATH_NOT_FOUND : error);
  }
  if (!S_ISDIR(status.st_mode)) return fail(ERROR_DIRECTORY);
  if (::statvfs(native.c_str(), &disk) != 0) return fail(ErrorFromErrno(errno));
  const ULONGLONG block = disk.f_frsize;
  const DiskFigures figures =
      overridden(&MachineFacts::disk)
          .value_or(
              DiskFigures{disk.f_bavail * block, disk.f_blocks * block, disk.f_bfree * block});
  if (available) *available = figures.available;
  if (total) *total = figures.total;
  if (free) *free = figures.free;
  return 1;
}

// --- the screen ----------------------------------------------------------------------------------

int GetSystemMetrics(int index) {
  if (index != SM_CXSCREEN && index != SM_CYSCREEN) return 0;
  const ScreenFigures screen = screenFigures();
  return index == SM_CXSCREEN ? screen.width : screen.height;
}

HDC GetDC(HWND window) {
  if (window) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return nullptr;
  }
  const ScreenFigures screen = screenFigures();
  const std::lock_guard guard(devices().lock);
  devices().screens.emplace(++devices().last, screen);
  return reinterpret_cast<HDC>(devices().last);
}

int ReleaseDC(HWND, HDC device) {
  const std::lock_guard guard(devices().lock);
  return static_cast<int>(devices().screens.erase(reinterpret_cast<std::uintptr_t>(device)));
}

int GetDeviceCaps(HDC device, int index) {
  const std::lock_guard guard(devices().lock);
  const auto found = devices().screens.find(reinterpret_cast<std::uintptr_t>(device));
  if (found == devices().screens.end()) return 0;
  const ScreenFigures& screen = found->second;
  switch (index) {
    case HORZRES:
      return screen.width;
    case VERTRES:
      return screen.height;
    case BITSPIXEL:
      return screen.bits_per_pixel;
    case PLANES:
      return screen.planes;
    case RASTERCAPS:
      return screen.palette_size > 0 ? RC_PALETTE : 0;
    case SIZEPALETTE:
      return screen.palette_size;
    default:
      return 0;
  }
}

// --- other figures -------------------------------------------------------------------------------

MachineOverride::MachineOverride() : m_facts(std::make_unique<MachineFacts>()) {
  const std::lock_guard guard(facts_lock);
  m_facts->outer = innermost;
  innermost = m_facts.get();
}

MachineOverride::~MachineOverride() {
  const std::lock_guard guard(facts_lock);
  innermost = m_facts->outer;
}

MachineOverride& MachineOverride::setSystem(const SystemFigures& system) {
  set(*m_facts, &MachineFacts::system, system);
  return *this;
}

MachineOverride& MachineOverride::setProcessor(const SYSTEM_INFO& info) {
  set(*m_facts, &MachineFacts::processor, info);
  return *this;
}

MachineOverride& MachineOverride::setProcessorTexts(const ProcessorTexts& texts) {
  set(*m_facts, &MachineFacts::texts, texts);
  return *this;
}

MachineOverride& MachineOverride::setMemory(const MEMORYSTATUSEX& status) {
  set(*m_facts, &MachineFacts::memory, status);
  return *this;
}

MachineOverride& MachineOverride::setDisk(const DiskFigures& figures) {
  set(*m_facts, &MachineFacts::disk, figures);
  return *this;
}

MachineOverride& MachineOverride::setScreen(const ScreenFigures& figures) {
  set(*m_facts, &MachineFacts::screen, figures);
  return *this;
}

}  // namespace qel::sys
