#pragma once
// Version resources of files: numbers, and texts by name in one language or more.
//
// Files are programs and libraries of this system (ELF) that carry resources by
// qelbase_add_resources, and of the other one (PE, 32 and 64 bit). Nothing of a file is trusted or
// run. All calls are safe on any thread.

#include <string>
#include <vector>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

inline constexpr DWORD VS_FFI_SIGNATURE = 0xFEEF04BD;

// The numbers of a version resource. Each pair of 32-bit values has four parts of 16 bits, the high
// half of the first value in front.
struct tagVS_FIXEDFILEINFO {
  DWORD dwSignature;  // VS_FFI_SIGNATURE
  DWORD dwStrucVersion;
  DWORD dwFileVersionMS;
  DWORD dwFileVersionLS;
  DWORD dwProductVersionMS;
  DWORD dwProductVersionLS;
  DWORD dwFileFlagsMask;  // which of the flags count
  DWORD dwFileFlags;
  DWORD dwFileOS;
  DWORD dwFileType;
  DWORD dwFileSubtype;
  DWORD dwFileDateMS;
  DWORD dwFileDateLS;
};
using VS_FIXEDFILEINFO = tagVS_FIXEDFILEINFO;

// The size in bytes of the block that GetFileVersionInfoW makes of a file's version resource; 0 if
// there is none. `zero`, if not null, becomes 0. The name is a path; a name that reaches no file is
// looked for as LoadLibraryW does. Of several languages one is taken, by the rule of resources.h.
//
// Last errors: 2 or 3 for a missing file, 193 for a file that is neither PE nor ELF or whose
// headers or directories lead out of it, 1812 for one without resources, 1813 and 1814 for one
// without a version resource, 223 for an ELF file with more than 64 megabytes of notes. What is
// read of a file is bounded, whatever it holds.
[[nodiscard]] QELBASE_API DWORD GetFileVersionInfoSizeW(const wchar_t* file, DWORD* zero);

// Fills `block` (aligned to 4), which has `size` bytes. A smaller one than needed is given what
// fits and stays sound. 0 with the same last errors, or 122 if nothing fits. `unused` is not looked
// at.
[[nodiscard]] QELBASE_API BOOL GetFileVersionInfoW(const wchar_t* file, DWORD unused, DWORD size,
                                                   void* block);

// What lies under a path in a block that GetFileVersionInfoW has filled, or in a copy of one. Case
// does not count.
//
//   \                                      the VS_FIXEDFILEINFO
//   \VarFileInfo\Translation               pairs of 16 bits, language and code page
//   \StringFileInfo\<lang-codepage>\Name   a text, `wchar_t` with its terminator
//
// `*value` points into the block. `*length` (may be null) is in bytes, for texts in characters with
// the terminator; 0 for a node without a value. 0 and 1813 if there is no such node, 87 for a null
// pointer.
[[nodiscard]] QELBASE_API BOOL VerQueryValueW(const void* block, const wchar_t* path,
                                              const void** value, UINT* length);

// One text of a block, with what leads to it.
struct VersionText {
  std::wstring table;  // "040904b0": language and code page
  std::wstring name;   // "FileVersion"
  std::wstring text;
};

// All texts of a block in their order.
[[nodiscard]] QELBASE_API std::vector<VersionText> VersionTexts(const void* block);

}  // namespace qel::sys
