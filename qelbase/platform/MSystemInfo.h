#pragma once
// The machine: its system, processor, memory, screen and disks.

#include <cstdint>
#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/outside/system/types.h"

// How many colours a device shows.
enum COLOR_TYPES : int {
  COLOR_MONOCHROME = 0,  // or a palette of less than 16
  COLOR_16 = 1,          // a palette of 16 to 255
  COLOR_256 = 2,         // a palette of 256 or more
  COLOR_HIGH = 3,        // any other number of bits
  COLOR_TRUE_24 = 4,     // 24 bits
  COLOR_TRUE_32 = 5,     // 32 bits
};

// System and processor are looked at once, at construction; the rest when it is asked for. The
// figures are those of outside/system/machine.h: on this platform, which is none of the systems in
// the tables, the system's texts are "Unknown". Texts that are given by pointer live as long as the
// object, unchanged. An object is read-only; all operations may run on any thread.
class QELBASE_API MSystemInfo {
 public:
  MSystemInfo();

  const wchar_t* GET_OS_DESCRIPTION() const;  // edition, " x64" and service pack
  const wchar_t* GET_OS_STRING() const;       // the short name, as of now

  // The type: 0 Intel x86, 1 MIPS, 2 Alpha, 3 PowerPC, 4 AMD64, 5 Itanium, 65535 for another one.
  std::uint16_t GET_PROCESSOR() const;
  std::uint16_t GET_PROCESSOR_LEVEL() const;    // within the type
  const wchar_t* GET_PROCESSOR_STRING() const;  // null for type 65535
  const wchar_t* GET_PROCESSOR_LEVEL_STRING() const;
  CStringW GET_PROCESSOR_STRING2() const;  // what the processor calls itself, else the type's text
  CStringW GET_PROCESSOR_STRING3() const;  // that name, a blank, its identifier
  std::uint64_t GET_NUM_PROCESSOR_CORES() const;

  // Bytes free to this user on the disk of a folder; 0, and a line in the log, on failure.
  std::uint64_t GET_FREE_DISK_SPACE(const wchar_t* path) const;

  // The version of the system's browser control: 5 and the minor version, from version 5 on. False
  // and zeros if there is none.
  bool GET_IE_VERSION(std::uint32_t& a, std::uint32_t& b, std::uint32_t& c, std::uint32_t& d) const;
  static bool IS_HTML_HELP_INSTALLED();  // its control is registered

  static void GET_RESOLUTION(int& width, int& height);  // pixels
  static COLOR_TYPES GET_COLOR_DEPTH();                 // of the screen
  static COLOR_TYPES GET_COLOR_DEPTH(HDC device);       // null: of the screen

  // Bytes. The virtual figures are physical memory and swap space together.
  static std::int64_t GET_PHYSICAL_MEMORY();
  static std::int64_t GET_FREE_PHYSICAL_MEMORY();
  static std::int64_t GET_VIRTUAL_MEMORY();
  static std::int64_t GET_FREE_VIRTUAL_MEMORY();

 protected:
  void GetSystemConfig();
  void GetProcessorConfig();

 private:
  std::wstring m_os_description;
  std::uint16_t m_processor = 65535;
  std::uint16_t m_processor_level = 65535;
  std::uint64_t m_cores = 0;
  CStringW m_processor_name;
  CStringW m_vendor;
  CStringW m_identifier;
};
