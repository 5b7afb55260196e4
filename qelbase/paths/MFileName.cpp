#include "qelbase/paths/MFileName.h"

#include <algorithm>
#include <functional>
#include <string_view>

#include "qelbase/outside/system/text.h"
#include "qelbase/paths/path_grammar_internal.h"

namespace {

using qel::paths::TextOf;

// The limits of the part setters, as the class itself uses them.
constexpr std::size_t kMaxDir = 260;
constexpr std::size_t kMaxFile = 256;

constexpr std::wstring_view kRefused = L"\\/:<>|";

bool LiesIn(std::wstring_view text, const std::wstring& part) {
  const std::less<const wchar_t*> before;
  return !before(text.data(), part.data()) && !before(part.data() + part.size(), text.data());
}

void CloseWithBackslash(std::wstring& text) {
  if (!text.ends_with(L'\\')) text += L'\\';
}

void AssignCleaned(std::wstring& part, std::wstring_view text) {
  part.assign(text);
  std::replace_if(
      part.begin(), part.end(), [](wchar_t c) { return kRefused.find(c) != kRefused.npos; }, L' ');
}

void AssignExtension(std::wstring& part, std::wstring_view text, std::size_t max_length) {
  const bool has_dot = text.empty() || text.front() == L'.';
  AssignCleaned(part, text.substr(0, max_length));
  if (!has_dot) part.insert(0, 1, L'.');
}

// A directory that another is joined onto, character by character.
class DirectoryMerge {
 public:
  explicit DirectoryMerge(std::wstring_view start) : m_result(start.substr(0, kMaxLength)) {}

  std::wstring Join(std::wstring_view other) {
    if (!other.starts_with(L'\\') && !m_result.ends_with(L'\\')) Add(L'\\');
    while (!other.empty()) other.remove_prefix(Take(other));
    return std::move(m_result);
  }

 private:
  static constexpr std::size_t kMaxLength = kMaxDir - 1;

  void Add(wchar_t c) {
    if (m_result.size() < kMaxLength) m_result += c;
  }

  // Up one directory; false at the top.
  bool Climb() {
    if (m_result.empty()) return false;
    if (m_result.ends_with(L'\\')) m_result.pop_back();
    const std::size_t separator = m_result.rfind(L'\\');
    m_result.resize(separator == m_result.npos ? 0 : separator);
    return true;
  }

  // Handles the front of what is left, and gives how many characters of it are done.
  std::size_t Take(std::wstring_view left) {
    if (left.starts_with(L"..")) return Climb() ? 2 : left.size();
    if (left.starts_with(L".\\")) return 2;
    if (left != L".") Add(left.front());
    return 1;
  }

  std::wstring m_result;
};

}  // namespace

MFileName::MFileName() {
  _INIT();
}

MFileName::MFileName(const wchar_t* path, bool is_directory) {
  _INIT();
  SET(path, is_directory);
}

MFileName::MFileName(const MFileName& other) {
  COPY(other);
}

MFileName::MFileName(const wchar_t* drive, const wchar_t* dir, const wchar_t* file,
                     const wchar_t* ext) {
  _INIT();
  SET_DRIVE_PART(drive);
  SET_DIR_PART(dir, kMaxDir);
  SET_FILE_PART(file, kMaxFile);
  SET_EXT_PART(TextOf(ext).empty() ? L"." : ext, kMaxFile);
}

MFileName::MFileName(const wchar_t* dir, const wchar_t* file, const wchar_t* ext,
                     bool is_directory) {
  _INIT();
  std::wstring text(TextOf(dir));
  const bool has_root =
      !qel::paths::RootName(text).empty() || qel::paths::RootDirectory(text) != qel::paths::kNone;
  if (!text.empty()) CloseWithBackslash(text);
  if (!has_root) text.insert(0, 1, L'\\');
  text.append(TextOf(file));
  if (!TextOf(ext).empty()) text.append(1, L'.').append(ext);
  SET(text.c_str(), is_directory);
}

MFileName& MFileName::operator=(const MFileName& other) {
  if (this != &other) COPY(other);
  return *this;
}

void MFileName::_INIT() {
  m_relative = false;
}

void MFileName::SET(const wchar_t* path, bool is_directory) {
  std::wstring_view text = TextOf(path);
  std::wstring copy;
  if (LiesIn(text, m_drive) || LiesIn(text, m_dir) || LiesIn(text, m_file) || LiesIn(text, m_ext)) {
    text = copy = text;
  }
  qel::paths::SplitPath(text, m_drive, m_dir, m_file, m_ext, is_directory);
  GET();
}

void MFileName::FREE() {
  SET(nullptr, false);
}

void MFileName::COPY(const MFileName& other) {
  m_drive = other.m_drive;
  m_dir = other.m_dir;
  m_file = other.m_file;
  m_ext = other.m_ext;
  m_relative = other.m_relative;
}

void MFileName::APPEND(const MFileName& other) {
  if (this == &other) return APPEND(MFileName(other));
  const bool rooted = other.m_drive.starts_with(L'\\');
  if (!other.m_drive.empty() && !rooted) SET_DRIVE_PART(other.m_drive.c_str());
  if (!other.m_file.empty()) SET_FILE_PART(other.m_file.c_str(), kMaxFile);
  if (!other.m_ext.empty()) SET_EXT_PART(other.m_ext.c_str(), kMaxFile);
  if (other.m_dir.empty()) return;
  const bool replaces = rooted || m_dir.empty();
  SET_DIR_PART(replaces ? other.m_dir.c_str() : DirectoryMerge(m_dir).Join(other.m_dir).c_str(),
               kMaxDir);
}

MFileName& MFileName::operator+=(const MFileName& other) {
  APPEND(other);
  return *this;
}

const wchar_t* MFileName::GET() const {
  const bool has_name = !m_file.empty() || !m_ext.empty();
  m_text.clear();
  m_text.append(m_drive);
  if (m_drive.empty() && !m_dir.empty() && !has_name) m_text += L'\\';
  m_text.append(m_dir);
  if (!m_dir.empty() && has_name && m_dir.back() != L'\\') m_text += L'\\';
  m_text.append(m_file).append(m_ext);
  return m_text.c_str();
}

MFileName::operator const wchar_t*() const {
  return GET();
}

const wchar_t* MFileName::GET_DRIVE_DIR_PARTS(bool with_separator) const {
  m_text.assign(m_drive).append(m_dir);
  const bool closed = m_text.ends_with(L'\\');
  if (with_separator && !closed && !m_text.empty()) m_text += L'\\';
  if (!with_separator && closed) m_text.pop_back();
  return m_text.c_str();
}

const wchar_t* MFileName::GET_FILE_EXT_PARTS() const {
  return m_text.assign(m_file).append(m_ext).c_str();
}

const wchar_t* MFileName::GET_DRIVE_PART() const {
  return m_drive.c_str();
}
const wchar_t* MFileName::GET_DIR_PART() const {
  return m_dir.c_str();
}
const wchar_t* MFileName::GET_FILE_PART() const {
  return m_file.c_str();
}
const wchar_t* MFileName::GET_EXT_PART() const {
  return m_ext.c_str();
}

void MFileName::SET_DRIVE_PART(const wchar_t* drive) {
  m_drive.assign(TextOf(drive));
  CloseWithBackslash(m_drive);
}

void MFileName::SET_DIR_PART(const wchar_t* dir, std::size_t /*max_length*/) {
  m_dir.assign(TextOf(dir));
  if (!m_dir.empty()) CloseWithBackslash(m_dir);
}

void MFileName::SET_FILE_PART(const wchar_t* file, std::size_t max_length) {
  AssignCleaned(m_file, TextOf(file).substr(0, max_length));
}

void MFileName::SET_EXT_PART(const wchar_t* ext, std::size_t max_length) {
  AssignExtension(m_ext, TextOf(ext), max_length);
}

void MFileName::SET_FILE_EXT_PARTS(const wchar_t* name, std::size_t max_file, std::size_t max_ext) {
  const std::wstring text(TextOf(name));  // the argument may lie in one of the parts
  const std::size_t dot = std::min(text.rfind(L'.'), text.size());
  SET_FILE_PART(text.substr(0, dot).c_str(), max_file);
  SET_EXT_PART(text.c_str() + dot, max_ext);
}

void MFileName::SET_RELATIVE_PATH_MODE(bool on) {
  m_relative = on;
  if (on && m_drive == L"\\") m_drive.clear();
  if (!on && m_drive.empty()) m_drive = L"\\";
}

bool MFileName::IS_EMPTY() const {
  return m_drive.empty() && m_dir.empty() && m_file.empty() && m_ext.empty();
}

bool MFileName::COMPARE(const MFileName& other, std::uint16_t flags) const {
  const auto asked = [flags](std::uint16_t part) { return (flags & part) != 0; };
  const auto equal = [flags](const std::wstring& a, const std::wstring& b) {
    return _COMPARE_PARTS(a.c_str(), b.c_str(), flags);
  };
  if (asked(COMPARE_DRIVE) && !equal(m_drive, other.m_drive)) return false;
  if (asked(COMPARE_DIR) && !_COMPARE_DIR_PARTS(m_dir.c_str(), other.m_dir.c_str(), flags)) {
    return false;
  }
  if (asked(COMPARE_FILE) && !equal(m_file, other.m_file)) return false;
  return !asked(COMPARE_EXT) || equal(m_ext, other.m_ext);
}

bool MFileName::operator==(const MFileName& other) const {
  return COMPARE(other, COMPARE_ALL);
}
bool MFileName::operator!=(const MFileName& other) const {
  return !COMPARE(other, COMPARE_ALL);
}

bool MFileName::_COMPARE_PARTS(const wchar_t* a, const wchar_t* b, std::uint16_t flags) {
  const std::wstring_view left = TextOf(a), right = TextOf(b);
  return (flags & COMPARE_CASE) != 0 ? left == right : qel::sys::CompareNoCase(left, right) == 0;
}

bool MFileName::_COMPARE_DIR_PARTS(const wchar_t* a, const wchar_t* b, std::uint16_t flags) {
  std::wstring_view left = TextOf(a), right = TextOf(b);
  if (left.empty() || right.empty()) return left.empty() && right.empty();
  if (left.size() < right.size()) std::swap(left, right);
  if (left.size() == right.size() + 1 && left.ends_with(L'\\')) left.remove_suffix(1);
  if (left.size() != right.size()) return false;
  const bool exactly = (flags & COMPARE_CASE) != 0;
  return exactly ? left == right : qel::sys::CompareNoCase(left, right) == 0;
}
