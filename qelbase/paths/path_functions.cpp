#include "qelbase/paths/path_functions.h"

#include <algorithm>
#include <string_view>

#include "qelbase/paths/path_grammar_internal.h"

namespace {

constexpr std::wstring_view kDots = L"...";

// Where the longest run of whole directories begins that takes up to `room` characters at the end.
std::size_t TailStart(std::wstring_view dir, std::size_t room) {
  std::size_t start = dir.size();
  for (std::size_t at = dir.rfind(L'\\'); at != dir.npos && dir.size() - at <= room;) {
    start = at;
    at = at > 0 ? dir.rfind(L'\\', at - 1) : dir.npos;
  }
  return start;
}

}  // namespace

bool POSITION_PATH_PARTS(const std::wstring& path, std::wstring& drive, std::wstring& dir,
                         std::wstring& file, std::wstring& ext, bool is_directory) {
  if (&path == &drive || &path == &dir || &path == &file || &path == &ext) {
    return qel::paths::SplitPath(std::wstring(path), drive, dir, file, ext, is_directory);
  }
  return qel::paths::SplitPath(path, drive, dir, file, ext, is_directory);
}

std::wstring ABREVIATE_PATH(const wchar_t* path, std::uint32_t max_length, bool is_directory) {
  const std::wstring_view text = qel::paths::TextOf(path);
  if (text.size() <= max_length) return std::wstring(text);
  std::wstring drive, dir, file, ext;
  if (!qel::paths::SplitPath(text, drive, dir, file, ext, is_directory)) return {};

  // The drive counts one character short.
  const std::size_t fixed =
      drive.size() + file.size() + ext.size() + kDots.size() - (drive.empty() ? 0 : 1);
  std::wstring result;
  if (fixed <= max_length) {
    result.append(drive).append(kDots);
  } else if (fixed - drive.size() < max_length) {
    result = kDots;
  }
  if (fixed <= max_length) result.append(dir, TailStart(dir, max_length - fixed));
  return result.append(file).append(ext);
}

bool MFileUtility::FixFileName(std::wstring& name) {
  bool changed = false;
  for (const wchar_t bad : std::wstring_view(L"\\/*:?<>|\"")) {
    const std::size_t kept = std::min(name.find_first_not_of(bad), name.size());
    changed = changed || kept > 0;
    name.erase(0, kept);
    for (std::size_t at = name.find(bad); at != name.npos; at = name.find(bad, at)) {
      name[at] = L'_';
      changed = true;
    }
  }
  return changed;
}
