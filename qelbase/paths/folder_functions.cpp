#include "qelbase/paths/folder_functions.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/paths/path_grammar_internal.h"

namespace {

using qel::paths::IsSeparator;

// True if the folder exists now; somebody else may have been faster.
bool CreateLevel(const std::wstring& level) {
  if (qel::sys::_waccess(level.c_str(), 0) == 0) return true;
  return qel::sys::CreateDirectoryW(level.c_str(), nullptr) ||
         qel::sys::GetLastError() == qel::sys::ERROR_ALREADY_EXISTS;
}

// A drive, a doubled separator, or a name that ends in a point.
bool IsNoLevel(std::wstring_view text) {
  return !text.empty() && std::wstring_view(L"./:\\").find(text.back()) != text.npos;
}

}  // namespace

bool IsAbsolutePath(const CStringW& path) {
  const std::wstring_view text = path.GetString();
  if (text.starts_with(L"\\\\") || text.starts_with(L"//")) return true;
  return text.size() >= 3 && text[1] == L':' && IsSeparator(text[2]);
}

void AssurePath(CStringW& path) {
  path.Replace(L'/', L'\\');
  const int length = path.GetLength();
  if (length > 0 && path[length - 1] != L'\\') path += L'\\';
}

void AssurePathAppend(CStringW& path, const wchar_t* tail) {
  AssurePath(path);
  if (!tail) return;
  path += IsSeparator(*tail) ? tail + 1 : tail;
}

bool mkdirchain(const wchar_t* path) {
  std::wstring text(path ? path : L"");
  qel::sys::SetLastError(qel::sys::ERROR_INVALID_PARAMETER);
  for (std::size_t start = 0; true;) {
    const auto found =
        std::find_if(text.begin() + static_cast<std::ptrdiff_t>(start), text.end(), IsSeparator);
    const auto end = static_cast<std::size_t>(found - text.begin());
    const std::wstring level = text.substr(0, end);
    const bool is_level = !IsNoLevel(level);
    if (is_level && !CreateLevel(level)) return false;
    if (end == text.size()) return true;
    if (is_level) text[end] = L'\\';
    start = end + 1;
  }
}

std::uint64_t fread_float(float* data, std::uint64_t size, std::uint64_t count, std::FILE* file) {
  return std::fread(data, size, count, file);
}
std::uint64_t fwrite_float(const float* data, std::uint64_t size, std::uint64_t count,
                           std::FILE* file) {
  return std::fwrite(data, size, count, file);
}
std::uint64_t fread_long(std::int32_t* data, std::uint64_t size, std::uint64_t count,
                         std::FILE* file) {
  return std::fread(data, size, count, file);
}
std::uint64_t fread_long(std::uint32_t* data, std::uint64_t size, std::uint64_t count,
                         std::FILE* file) {
  return std::fread(data, size, count, file);
}
std::uint64_t fwrite_long(const std::int32_t* data, std::uint64_t size, std::uint64_t count,
                          std::FILE* file) {
  return std::fwrite(data, size, count, file);
}
std::uint64_t fwrite_long(const std::uint32_t* data, std::uint64_t size, std::uint64_t count,
                          std::FILE* file) {
  return std::fwrite(data, size, count, file);
}
std::uint64_t fread_short(std::int16_t* data, std::uint64_t size, std::uint64_t count,
                          std::FILE* file) {
  return std::fread(data, size, count, file);
}
std::uint64_t fread_short(std::uint16_t* data, std::uint64_t size, std::uint64_t count,
                          std::FILE* file) {
  return std::fread(data, size, count, file);
}
std::uint64_t fwrite_short(const std::int16_t* data, std::uint64_t size, std::uint64_t count,
                           std::FILE* file) {
  return std::fwrite(data, size, count, file);
}
std::uint64_t fwrite_short(const std::uint16_t* data, std::uint64_t size, std::uint64_t count,
                           std::FILE* file) {
  return std::fwrite(data, size, count, file);
}
