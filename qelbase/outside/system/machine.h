#pragma once
// What this machine is: its system, processors, memory, disks and screen.
//
// The figures are the kernel's and the display's. All calls are safe on any thread and read anew
// each time. A MachineOverride puts other figures in their place.

#include <memory>
#include <optional>
#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// --- the system ----------------------------------------------------------------------------------

struct OSVERSIONINFOEXW {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  wchar_t szCSDVersion[128];
  WORD wServicePackMajor;
  WORD wServicePackMinor;
  WORD wSuiteMask;
  BYTE wProductType;
  BYTE wReserved;
};

inline constexpr DWORD VER_MINORVERSION = 0x1;
inline constexpr DWORD VER_MAJORVERSION = 0x2;
inline constexpr DWORD VER_BUILDNUMBER = 0x4;
inline constexpr DWORD VER_PLATFORMID = 0x8;
inline constexpr DWORD VER_SERVICEPACKMINOR = 0x10;
inline constexpr DWORD VER_SERVICEPACKMAJOR = 0x20;
inline constexpr DWORD VER_SUITENAME = 0x40;
inline constexpr DWORD VER_PRODUCT_TYPE = 0x80;

inline constexpr BYTE VER_EQUAL = 1;
inline constexpr BYTE VER_GREATER = 2;
inline constexpr BYTE VER_GREATER_EQUAL = 3;
inline constexpr BYTE VER_LESS = 4;
inline constexpr BYTE VER_LESS_EQUAL = 5;
inline constexpr BYTE VER_AND = 6;  // of the suite mask: all of these
inline constexpr BYTE VER_OR = 7;   // one of these

inline constexpr BYTE VER_NT_WORKSTATION = 1;
inline constexpr BYTE VER_NT_DOMAIN_CONTROLLER = 2;
inline constexpr BYTE VER_NT_SERVER = 3;

// Adds the condition of one member, or of several by as many bits, to a mask.
[[nodiscard]] QELBASE_API ULONGLONG VerSetConditionMask(ULONGLONG mask, DWORD members,
                                                        BYTE condition);

// Whether this system fits: 1, or 0 and 1150. `members` tells which are looked at. Major version,
// minor version and service pack are compared as one number of several places, with the condition
// of its first place. 0 and 87 for null, no members, or a member without a condition.
//
// This machine has another system: it has no such version, so that every condition on version,
// build, platform or suite is false. It is a workstation.
[[nodiscard]] QELBASE_API BOOL VerifyVersionInfoW(const OSVERSIONINFOEXW* wanted, DWORD members,
                                                  ULONGLONG conditions);

// The product that the system was sold as, in `*product`; 0, and product 0, as this system is no
// such product.
QELBASE_API BOOL GetProductInfo(DWORD major, DWORD minor, DWORD service_pack_major,
                                DWORD service_pack_minor, DWORD* product);

// --- processors ----------------------------------------------------------------------------------

inline constexpr WORD PROCESSOR_ARCHITECTURE_INTEL = 0;
inline constexpr WORD PROCESSOR_ARCHITECTURE_IA64 = 6;
inline constexpr WORD PROCESSOR_ARCHITECTURE_AMD64 = 9;
inline constexpr WORD PROCESSOR_ARCHITECTURE_ARM64 = 12;
inline constexpr WORD PROCESSOR_ARCHITECTURE_UNKNOWN = 0xFFFF;

struct SYSTEM_INFO {
  WORD wProcessorArchitecture;
  WORD wReserved;
  DWORD dwPageSize;
  void* lpMinimumApplicationAddress;
  void* lpMaximumApplicationAddress;
  std::uint64_t dwActiveProcessorMask;  // the first 64
  DWORD dwNumberOfProcessors;           // online
  DWORD dwProcessorType;                // 8664 for architecture 9, else 0
  DWORD dwAllocationGranularity;
  WORD wProcessorLevel;     // family
  WORD wProcessorRevision;  // model in the high byte, stepping in the low one
};

QELBASE_API void GetSystemInfo(SYSTEM_INFO* info);

// --- memory and disks ----------------------------------------------------------------------------

struct MEMORYSTATUSEX {
  DWORD dwLength;      // of this structure; set by the caller
  DWORD dwMemoryLoad;  // percent of the physical memory in use
  ULONGLONG ullTotalPhys;
  ULONGLONG ullAvailPhys;
  ULONGLONG ullTotalPageFile;  // physical memory and swap space together
  ULONGLONG ullAvailPageFile;
  ULONGLONG ullTotalVirtual;  // addresses of this process
  ULONGLONG ullAvailVirtual;
  ULONGLONG ullAvailExtendedVirtual;  // 0
};

// In bytes. Where control groups limit this process, their limits count. 0 and 87 unless dwLength
// is the size of the structure.
QELBASE_API BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX* status);

// The bytes of the file system that a folder is on: free to this user, all, all that are free.
// Pointers may be null; so may the path, for the current folder. 0 and 3 if there is no such
// folder, 267 if it is a file.
QELBASE_API BOOL GetDiskFreeSpaceExW(const wchar_t* folder, ULONGLONG* available, ULONGLONG* total,
                                     ULONGLONG* free);

// --- the screen ----------------------------------------------------------------------------------

inline constexpr int SM_CXSCREEN = 0;
inline constexpr int SM_CYSCREEN = 1;

// Of the display that the environment names, its first screen unless it names another; without one
// 1024 x 768 with 32 bits. Other indexes give 0.
[[nodiscard]] QELBASE_API int GetSystemMetrics(int index);

inline constexpr int HORZRES = 8;
inline constexpr int VERTRES = 10;
inline constexpr int BITSPIXEL = 12;
inline constexpr int PLANES = 14;
inline constexpr int RASTERCAPS = 38;
inline constexpr int SIZEPALETTE = 104;
inline constexpr int RC_PALETTE = 0x100;  // of RASTERCAPS: the colours are places in a table

// The device context of the whole screen, as it is now; to be given back. Null and 1400 for a
// window: nothing is drawn on windows here.
[[nodiscard]] QELBASE_API HDC GetDC(HWND window);

// 1, or 0 for what is no device context.
QELBASE_API int ReleaseDC(HWND window, HDC device);

// 0 for what is no device context, and for other indexes than those above.
[[nodiscard]] QELBASE_API int GetDeviceCaps(HDC device, int index);

// --- other figures -------------------------------------------------------------------------------

struct ScreenFigures {
  int width = 1024;
  int height = 768;
  int bits_per_pixel = 32;
  int planes = 1;
  int palette_size = 0;  // colours; 0 for a screen without a palette
};

// In bytes; `available` is what the user may still write, `free` includes what is kept for root.
struct DiskFigures {
  ULONGLONG available;
  ULONGLONG total;
  ULONGLONG free;
};

struct SystemFigures {
  DWORD major = 0;
  DWORD minor = 0;
  WORD service_pack = 0;
  BYTE product_type = VER_NT_WORKSTATION;
  std::optional<DWORD> product;  // of GetProductInfo; without, it fails
};

// What the registry's keys of processors say, in UTF-8.
struct ProcessorTexts {
  std::string name;        // as the processor calls itself, with its blanks
  std::string vendor;      // "GenuineIntel"
  std::string identifier;  // "Intel64 Family 6 Model 85 Stepping 7"
};

struct MachineFacts;

// While it lives, the calls tell what was set on it, to all threads; the others tell of the
// machine. An override inside another one begins with nothing set. The innermost one ends first.
class QELBASE_API MachineOverride {
 public:
  MachineOverride();
  ~MachineOverride();
  MachineOverride(const MachineOverride&) = delete;
  MachineOverride& operator=(const MachineOverride&) = delete;

  MachineOverride& setSystem(const SystemFigures& system);
  MachineOverride& setProcessor(const SYSTEM_INFO& info);
  // In a registry that is opened from now on.
  MachineOverride& setProcessorTexts(const ProcessorTexts& texts);
  MachineOverride& setMemory(const MEMORYSTATUSEX& status);  // dwLength is not looked at
  MachineOverride& setDisk(const DiskFigures& figures);      // of every folder
  MachineOverride& setScreen(const ScreenFigures& figures);

 private:
  std::unique_ptr<MachineFacts> m_facts;
};

}  // namespace qel::sys
