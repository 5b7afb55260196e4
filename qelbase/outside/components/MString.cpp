#include "qelbase/outside/components/MString.h"

#include <string_view>
#include <utility>

#include "qelbase/outside/components/MFile.h"
#include "qelbase/outside/system/text.h"

namespace {

constexpr std::int64_t largest_ini_file = std::int64_t{64} << 20;

bool readAll(const wchar_t* name, std::string& bytes) {
  MFile file(0);
  if (!name || !file.OPEN_READ(name)) return false;
  const std::int64_t size = file.SIZE();
  if (size < 0 || size > largest_ini_file) return false;
  bytes.resize(static_cast<std::size_t>(size));
  bytes.resize(file.READ(bytes.data(), bytes.size()));
  return file.GET_RESULT() == 0;
}

std::wstring decoded(std::string bytes) {
  const auto startsWith = [&bytes](std::string_view mark) { return bytes.rfind(mark, 0) == 0; };
  if (startsWith("\xEF\xBB\xBF")) return qel::sys::Widen(bytes.substr(3), qel::sys::CP_UTF8);
  const bool big_endian = startsWith("\xFE\xFF");
  if (!big_endian && !startsWith("\xFF\xFE")) return qel::sys::Widen(bytes, qel::sys::CP_UTF8);
  bytes.erase(0, 2);
  for (std::size_t i = 1; big_endian && i < bytes.size(); i += 2) std::swap(bytes[i - 1], bytes[i]);
  return qel::sys::FromUtf16Le(bytes);
}

std::wstring_view trimmed(std::wstring_view text) {
  while (!text.empty() && qel::sys::IsSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && qel::sys::IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

std::wstring_view withoutQuotes(std::wstring_view text) {
  const bool quoted = text.size() >= 2 && text.front() == text.back() &&
                      (text.front() == L'"' || text.front() == L'\'');
  return quoted ? text.substr(1, text.size() - 2) : text;
}

std::wstring_view takeLine(std::wstring_view& text) {
  const std::size_t end = std::min(text.find_first_of(L"\r\n"), text.size());
  const std::wstring_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return trimmed(line);
}

bool same(std::wstring_view a, std::wstring_view b) {
  return qel::sys::CompareNoCase(trimmed(a), trimmed(b)) == 0;
}

bool isHead(std::wstring_view line) {
  return !line.empty() && line.front() == L'[';
}

// The text between the brackets of "[name]".
std::wstring_view nameOfHead(std::wstring_view line) {
  return line.substr(1, std::min(line.find(L']'), line.size()) - 1);
}

bool findValue(std::wstring_view text, std::wstring_view section, std::wstring_view key,
               std::wstring& value) {
  bool inside = false;
  while (!text.empty()) {
    const std::wstring_view line = takeLine(text);
    const std::size_t equals = line.find(L'=');
    if (isHead(line)) {
      inside = same(nameOfHead(line), section);
    } else if (inside && equals != line.npos && line.front() != L';' &&
               same(line.substr(0, equals), key)) {
      value = withoutQuotes(trimmed(line.substr(equals + 1)));
      return true;
    }
  }
  return false;
}

}  // namespace

MString::MString() = default;
MString::MString(const wchar_t* text) : m_text(text ? text : L"") {}
MString::MString(const std::wstring& text) : m_text(text) {}
MString::~MString() = default;
MString::MString(const MString& other) = default;
MString& MString::operator=(const MString& other) = default;

const wchar_t* MString::C_STR() const {
  return m_text.c_str();
}

void MString::VFORMAT(const wchar_t* format, va_list args) {
  std::wstring text;  // apart, since the arguments may point into this one
  qel::sys::AppendFormatV(text, format, args);
  m_text = std::move(text);
}

bool MString::LOAD_INI_STRING(const wchar_t* file, const wchar_t* section, const wchar_t* key) {
  std::string bytes;
  if (!section || !key || !readAll(file, bytes)) return false;
  return findValue(decoded(std::move(bytes)), section, key, m_text);
}
