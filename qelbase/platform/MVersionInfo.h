#pragma once
// The version resource of a file or of a loaded module.

#include <cstdint>
#include <memory>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/outside/system/version.h"
#include "qelbase/paths/MFileName.h"

// A version has four parts of 16 bits: part 0 is the high half of the first 32-bit value, part 3
// the low half of the second. The readers give false for a file without a version resource, as for
// one that is missing, damaged or no module; the numbers are then 0 or what was read so far. Which
// files have one: outside/system/version.h. An object belongs to one thread at a time.
class QELBASE_API MVersionInfo : public qel::sys::tagVS_FIXEDFILEINFO {
 public:
  MVersionInfo();
  MVersionInfo(const MVersionInfo& other);
  MVersionInfo& operator=(const MVersionInfo& other);
  virtual ~MVersionInfo();

  [[nodiscard]] bool GET_FILE_VERSION_INFO(const MFileName& file);
  // By the name as GetModuleHandleW takes it; null: the module that the application framework runs
  // as.
  [[nodiscard]] bool GET_MODULE_VERSION_INFO(const wchar_t* module);

  // Part 0 to 3; any other index gives 0.
  std::uint32_t GET_VERSION_VALUE(int index) const;
  std::uint32_t GET_PRODUCT_VERSION_VALUE(int index) const;

  // A text of the resource in its first language, such as L"CompanyName". False, and `result` as it
  // was, if there is none.
  bool GET_VALUE(const wchar_t* name, CStringW& result) const;

  // The file version in a printf format for four numbers, which `order` chooses: its digits 1 to 4
  // are the parts 0 to 3, another character stands for a 0, as does what it leaves out. Characters
  // behind the fourth are not looked at. An object that has read nothing reads the running
  // program's version first. Empty without a version, and for a null or empty argument.
  CStringW GET_FILE_VERSION(const wchar_t* format, const wchar_t* order);

  // By the file versions.
  bool operator==(const MVersionInfo& other) const;
  bool operator<(const MVersionInfo& other) const;
  bool operator>(const MVersionInfo& other) const;

 private:
  std::unique_ptr<std::byte[]> m_block;
  std::uint64_t m_block_size = 0;
  std::uint16_t m_language = 0;
  std::uint16_t m_code_page = 0;
};
