#pragma once
// The version that a library tells of itself.

#include <cstdint>

// The record that a library's function DllGetVersion fills.
struct DLLVERSIONINFO {
  std::uint32_t cbSize;
  std::uint32_t dwMajorVersion;
  std::uint32_t dwMinorVersion;
  std::uint32_t dwBuildNumber;
  std::uint32_t dwPlatformID;
};

class MVersionInfoDLL : public DLLVERSIONINFO {
 public:
  MVersionInfoDLL();
  virtual ~MVersionInfoDLL();
  // Loads the library, asks it, and frees it again. False, and a line in the log, if one of these
  // fails.
  [[nodiscard]] bool GET_VERSION_INFO(const wchar_t* library);
};
