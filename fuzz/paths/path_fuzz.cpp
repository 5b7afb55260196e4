// Splits any text, and carries names made of it through the members that take text.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "qelbase/outside/system/names.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/paths/path_functions.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

// Bytes as characters; 0x80 to 0xFF reach far beyond the 16-bit plane.
std::wstring toText(const std::uint8_t* data, std::size_t size) {
  std::wstring text;
  for (std::size_t i = 0; i < size; ++i) {
    text += static_cast<wchar_t>(data[i] < 0x80 ? data[i] : 0x1F500 + data[i]);
  }
  return text;
}

void checkSplit(const std::wstring& path) {
  std::wstring drive, dir, file, ext;
  require(POSITION_PATH_PARTS(path, drive, dir, file, ext, false) == !path.empty());
  const std::wstring rooted = path.starts_with(L"..") ? L'\\' + path : path;
  require(dir.empty() || rooted.find(dir) != rooted.npos);
  require(file.empty() || rooted.ends_with(file + ext));
  require(ext.empty() || (rooted.ends_with(ext) && ext.rfind(L'.') == 0));

  require(POSITION_PATH_PARTS(path, drive, dir, file, ext, true) == !path.empty());
  require(rooted.ends_with(dir) && file.empty() && ext.empty());

  const std::wstring shortened = ABREVIATE_PATH(path.c_str(), 20, false);
  require(shortened.size() <= path.size() + 3);
  std::wstring fixed = path;
  require(MFileUtility::FixFileName(fixed) == (fixed != path));
  require(!MFileUtility::FixFileName(fixed));
}

void checkName(const std::wstring& path, const std::wstring& other) {
  for (const bool is_directory : {false, true}) {
    MFileName name(path.c_str(), is_directory);
    const std::wstring text = name.GET();
    MFileName copy(name);
    require(copy == name && copy.GET() == text);
    copy.SET(copy.GET(), is_directory);
    if (!name.IS_EMPTY()) copy.SET(name.GET_DRIVE_DIR_PARTS(true), true);
    name += MFileName(other.c_str(), is_directory);
    require(name.COMPARE(name, 0x100F));
    name.MAKE_SAFE();
    name.FILTER(other.c_str(), other.c_str());
    require(name.IsSafe() || name.GET_FILE_PART()[0] == 0);
    std::string native;
    if (qel::sys::ToNative(name.GET(), native)) require(!native.empty());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text = toText(data, size);
  const std::wstring path = text.substr(0, text.find(L'\n'));
  const std::wstring other = text.substr(std::min(path.size() + 1, text.size()));
  checkSplit(path);
  checkName(path.c_str(), other.c_str());
  return 0;
}
