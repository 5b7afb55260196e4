// Names both ways: whatever lies on a disk comes back from its Windows name, and whatever a Windows
// path reaches is one clean native name.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "qelbase/outside/system/names.h"

namespace {

using namespace qel::sys;

void require(bool held) {
  if (!held) std::abort();
}

std::string normal(std::string_view native) {
  std::string text = std::filesystem::path(native).lexically_normal();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

void checkNative(const std::string& native) {
  const std::wstring windows = FromNative(native);
  std::string back;
  require(ToNative(windows, back) != native.empty());
  if (!native.empty()) require(back == normal(native));
}

bool isClean(std::string_view native) {
  return !native.empty() && native.find('\0') == std::string_view::npos && native == normal(native);
}

void checkWindows(const std::wstring& windows) {
  std::string native = "untouched";
  if (!ToNative(windows, native)) return require(native == "untouched");
  require(isClean(native));
  checkNative(native);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string native(reinterpret_cast<const char*>(data), size);
  checkWindows(std::wstring(data, data + size));
  std::wstring wide;  // and with characters up to the end of 32 bits
  for (std::size_t i = 0; i + 3 < size; i += 4) {
    wide += static_cast<wchar_t>(data[i] | data[i + 1] << 8 | data[i + 2] << 16 |
                                 static_cast<std::uint32_t>(data[i + 3]) << 24);
  }
  checkWindows(L"C:\\" + wide);
  std::erase(native, '\0');
  checkNative(native);
  return 0;
}
