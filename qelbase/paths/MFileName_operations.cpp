// The members of MFileName that look at the disk, change it, or make names.
#include <algorithm>
#include <array>
#include <atomic>
#include <boost/filesystem/operations.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "qelbase/outside/components/MFile.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/folder_walk_internal.h"
#include "qelbase/outside/system/modules.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/shell.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/paths/path_grammar_internal.h"

namespace {

namespace fs = boost::filesystem;
using qel::paths::TextOf;

constexpr std::size_t kMaxDir = 260;
constexpr std::size_t kMaxName = 256;
constexpr std::size_t kFileBuffer = 0x40000;
constexpr int kMaxUniqueIndex = 999;
constexpr std::uint16_t kFromCounter = 65535;
constexpr int kTemporaryNumbers = 65536;
constexpr std::wstring_view kUnsafe = L"$\\/:*?\"<>|";

// The number that the next temporary name of the process begins with.
constinit std::atomic<std::uint16_t> g_temporary_number{1};

// None where the path reaches nothing; an empty path never means the current folder.
std::optional<std::string> Native(std::wstring_view path) {
  std::string native;
  if (!qel::sys::ToNative(path, native)) return std::nullopt;
  return native;
}

// Without a closing separator, but for a drive's root.
std::wstring TemporaryFolder() {
  std::wstring text(qel::sys::GetTempPathW(0, nullptr), L'\0');
  const std::size_t length = qel::sys::GetTempPathW(static_cast<DWORD>(text.size()), text.data());
  text.resize(std::min(length, text.size()));
  if (text.size() > 3 && text.ends_with(L'\\')) text.pop_back();
  return text;
}

bool IsFolder(std::wstring_view path) {
  const auto native = Native(path);
  boost::system::error_code error;
  return native && fs::is_directory(*native, error);
}

// Under whatever names: a link to it, a second hard link.
bool IsSameFile(std::wstring_view a, std::wstring_view b) {
  const auto native_a = Native(a), native_b = Native(b);
  boost::system::error_code error;
  return native_a && native_b && fs::equivalent(*native_a, *native_b, error);
}

bool IsUnsafe(wchar_t c) {
  return kUnsafe.find(c) != kUnsafe.npos;
}

std::wstring Padded(unsigned number, std::size_t width) {
  std::wstring text = std::to_wstring(number);
  if (text.size() < width) text.insert(0, width - text.size(), L'0');
  return text;
}

// Prefix and number, the prefix cut so that the name stays below 256 characters with `taken` others
// (folder and extension), and so that in no case the number is cut.
std::wstring TemporaryName(std::wstring_view prefix, std::uint16_t number, std::int32_t width,
                           std::size_t taken) {
  const std::wstring digits =
      Padded(number, width >= 1 && width <= 127 ? static_cast<std::size_t>(width) : 0);
  const std::int64_t counted =
      width != 0 ? width : static_cast<std::int64_t>(number != 0 ? digits.size() : 0);
  const auto most = static_cast<std::int64_t>(kMaxName - 1 - digits.size());
  const std::int64_t room =
      static_cast<std::int64_t>(kMaxName) - static_cast<std::int64_t>(taken) - counted - 1;
  const auto kept = static_cast<std::size_t>(std::clamp<std::int64_t>(room, 0, most));
  return std::wstring(prefix.substr(0, kept)) + digits;
}

bool FitsMask(std::wstring_view subject, std::wstring_view mask) {
  if (subject.empty()) return mask.empty() || mask == L".*";
  const std::wstring text = qel::sys::FoldCase(subject), pattern = qel::sys::FoldCase(mask);
  const std::size_t length = std::min(text.size(), pattern.size());
  for (std::size_t i = 0; i < length && pattern[i] != L'*'; ++i) {
    if (pattern[i] != L'?' && pattern[i] != text[i]) return false;
  }
  return true;
}

// The file, or without a file part the folder. Empty for a root, which the shell must not touch:
// `C:` without its separator would be the current folder.
std::wstring ShellText(const MFileName& name) {
  if (name.GET_FILE_PART()[0] != 0) return name.GET();
  return name.GET_DIR_PART()[0] != 0 ? name.GET_DRIVE_DIR_PARTS(false) : L"";
}

// One operation of the shell on one name, or on two.
bool AskShell(UINT operation, std::wstring from, std::wstring to, int flags) {
  if (from.empty()) return false;
  from += L'\0';  // the lists end in two zeros
  to += L'\0';
  qel::sys::SHFILEOPSTRUCTW request;
  request.wFunc = operation;
  request.pFrom = from.c_str();
  request.pTo = to.c_str();
  request.fFlags = static_cast<WORD>(flags);
  return qel::sys::SHFileOperationW(&request) == 0 && !request.fAnyOperationsAborted;
}

}  // namespace

bool MFileName::DOES_EXIST() const {
  const auto native = Native(GET());
  boost::system::error_code error;
  return native && fs::exists(fs::status(*native, error));
}

std::int64_t MFileName::FILE_SIZE() const {
  const auto native = Native(GET());
  boost::system::error_code error;
  return native ? static_cast<std::int64_t>(fs::file_size(*native, error)) : -1;
}

bool MFileName::IS_WRITABLE() const {
  return !DOES_EXIST() || qel::sys::_waccess(GET(), 2) != -1;
}

bool MFileName::IS_UPDATABLE() const {
  MFile file(kFileBuffer);
  const bool updatable = file.OPEN_UPDATE(GET());
  file.CLOSE();
  return updatable;
}

bool MFileName::CREATE_DIRECTORY() const {
  std::string native;
  // `C:` without its separator would be the current folder.
  if (!qel::sys::ToNativeForCreation(GET_DRIVE_DIR_PARTS(true), native)) return false;
  boost::system::error_code error;
  return fs::create_directories(native, error) || !error;
}

bool MFileName::REMOVE() {
  const auto native = Native(GET());
  const bool is_root = m_dir.empty() && m_file.empty() && m_ext.empty();
  if (!native || is_root || *native == "/") return false;
  boost::system::error_code error;
  if (!m_file.empty()) return fs::remove(*native, error);
  return qel::sys::RemoveTree(*native) == 0;
}

bool MFileName::REMOVE_SHELL(bool confirm) {
  using namespace qel::sys;
  const int flags = confirm ? FOF_ALLOWUNDO : FOF_ALLOWUNDO | FOF_NOCONFIRMATION;
  return AskShell(FO_DELETE, ShellText(*this), {}, flags);
}

bool MFileName::RENAME_SHELL(MFileName& target, bool show_errors) {
  using namespace qel::sys;
  const int flags = show_errors ? FOF_ALLOWUNDO : FOF_ALLOWUNDO | FOF_NOERRORUI;
  return AskShell(FO_RENAME, ShellText(*this), ShellText(target), flags);
}

bool MFileName::COPY_FILE(const MFileName& source) const {
  if (source == *this || IsSameFile(source.GET(), GET())) return true;
  MFile from(kFileBuffer), to(kFileBuffer);
  if (!from.OPEN_READ(source.GET()) || !to.OPEN_WRITE(GET())) return false;
  to.COPY(from);
  to.CLOSE();
  from.CLOSE();
  return true;
}

bool MFileName::FILL_WITH_MODULE_PATH(HINSTANCE module) {
  std::array<wchar_t, 260> text;
  if (qel::sys::GetModuleFileNameW(module, text.data(), text.size()) == 0) return false;
  SET(text.data(), false);
  return true;
}

bool MFileName::FILL_WITH_WORKING_PATH() {
  boost::system::error_code error;
  const fs::path folder = fs::current_path(error);
  SET(error ? L"" : qel::sys::FromNative(folder.native()).c_str(), true);
  return true;
}

bool MFileName::FILL_WITH_TEMPORARY_PATH() {
  const std::wstring folder = TemporaryFolder();
  SET(IsFolder(folder) ? folder.c_str() : L"", true);
  return true;
}

bool MFileName::ADD_UNIQUE_INDEX(std::uint8_t width) {
  MFileName candidate(*this);
  for (int i = 1; i <= kMaxUniqueIndex; ++i) {
    candidate.SET_FILE_PART((m_file + Padded(static_cast<unsigned>(i), width)).c_str(), kMaxName);
    if (candidate.DOES_EXIST()) continue;
    SET(candidate.GET(), false);
    return true;
  }
  return false;
}

std::uint16_t MFileName::SET_TEMP_NAME(const wchar_t* dir, const wchar_t* prefix,
                                       const wchar_t* ext, std::uint16_t index,
                                       std::int32_t width) {
  // Copies, as the arguments may lie in this object.
  const std::wstring folder = TextOf(dir).empty() ? TemporaryFolder() : dir;
  const std::wstring extension = ext ? ext : L".tmp";
  const std::wstring begin = prefix ? prefix : L"~qel";
  const MFileName scratch(folder.c_str(), true);
  SET_DIR_PART(scratch.GET_DIR_PART(), kMaxDir);
  SET_DRIVE_PART(scratch.GET_DRIVE_PART());
  SET_EXT_PART(extension.c_str(), kMaxName);

  const bool counts = index == kFromCounter;
  std::uint16_t number = counts ? g_temporary_number.load() : index;
  bool is_free = false;
  for (int tries = 0; tries < kTemporaryNumbers && !is_free; ++tries) {
    const std::wstring text =
        prefix ? TemporaryName(begin, number, width, folder.size() + extension.size())
               : begin + std::to_wstring(number);
    SET_FILE_PART(text.c_str(), text.size());
    ++number;
    is_free = !DOES_EXIST();
  }
  if (!is_free) FREE();
  if (counts) g_temporary_number.store(number);
  return number;
}

void MFileName::MAKE_SAFE() {
  m_file.resize(std::min(m_file.size(), kMaxName));
  std::replace_if(m_file.begin(), m_file.end(), IsUnsafe, L'_');
}

bool MFileName::IsSafe() const {
  return !m_file.empty() && m_file.size() <= kMaxName &&
         std::none_of(m_file.begin(), m_file.end(), IsUnsafe);
}

bool MFileName::FILTER_FILE(const wchar_t* mask) const {
  return FitsMask(m_file, TextOf(mask));
}
bool MFileName::FILTER_EXT(const wchar_t* mask) const {
  return FitsMask(m_ext, TextOf(mask));
}

bool MFileName::FILTER(const wchar_t* file_mask, const wchar_t* ext_mask) const {
  return FILTER_EXT(ext_mask) && FILTER_FILE(file_mask);
}
