// Reading and writing of ini files.

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cwchar>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/syscalls_internal.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/settings/MIniFile.h"

namespace {

using qel::sys::Calls;

// Lines come in chunks of this many characters at the most; a shorter one ends the line.
constexpr std::size_t longest_chunk = 255;
// A line that has come to more than this when another chunk arrives is no line.
constexpr std::size_t longest_line = 61440;
constexpr std::size_t longest_name = 259;
constexpr char ctrl_z = '\x1A';

constexpr std::wstring_view general = L"General";

std::uint32_t lastErrorOrOne() {
  const std::uint32_t code = qel::sys::GetLastError();
  return code == 0 ? 1 : code;
}

std::uint32_t fail(std::uint32_t code) {
  qel::sys::SetLastError(code);
  return code;
}

// --- reading -----------------------------------------------------------------------------------

// A stream of a file that somebody else may read and write, too, unless he wants it for himself.
std::FILE* openForReading(const wchar_t* name) {
  std::string native;
  if (!qel::sys::ToNative(name, native)) return nullptr;
  const int fd = Calls().open(native.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY, 0);
  if (fd < 0) return fail(qel::sys::ErrorOfPath(errno, native)), nullptr;
  struct stat facts = {};
  const bool refused = Calls().fstat(fd, &facts) != 0 || S_ISDIR(facts.st_mode);
  const bool taken = Calls().flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  std::FILE* stream = refused || taken ? nullptr : fdopen(fd, "rb");
  if (stream) return stream;
  fail(taken ? qel::sys::ERROR_SHARING_VIOLATION : qel::sys::ERROR_ACCESS_DENIED);
  Calls().close(fd);
  return nullptr;
}

// All that the stream still has. A read error gives its code; `bytes` has what came before it.
std::uint32_t readAll(std::FILE& stream, std::string& bytes) {
  std::array<char, 65536> block;
  errno = 0;
  while (const std::size_t got = std::fread(block.data(), 1, block.size(), &stream)) {
    bytes.append(block.data(), got);
  }
  if (!std::ferror(&stream)) return 0;
  fail(qel::sys::ErrorFromErrno(errno));
  return lastErrorOrOne();
}

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
}

// Appends one line in the process's code page; false for bytes that are no text.
bool appendWidened(std::string_view line, std::wstring& text) {
  if (isAscii(line)) {
    text.append(line.begin(), line.end());
    return true;
  }
  using qel::sys::MultiByteToWideChar;
  const auto convert = [&](wchar_t* dest, int size) {
    return MultiByteToWideChar(qel::sys::CP_ACP, qel::sys::MB_ERR_INVALID_CHARS, line.data(),
                               static_cast<int>(line.size()), dest, size);
  };
  const int length = line.size() > INT32_MAX ? 0 : convert(nullptr, 0);
  if (length == 0) return false;
  const std::size_t start = text.size();
  text.resize(start + static_cast<std::size_t>(length));
  convert(text.data() + start, length);
  return true;
}

// Narrow text up to the first line that is none, or to Ctrl-Z.
std::uint32_t widenLines(std::string_view bytes, std::wstring& text) {
  bytes = bytes.substr(0, bytes.find(ctrl_z));
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const std::size_t end = std::min(bytes.find('\n'), bytes.size() - 1) + 1;
    if (!appendWidened(bytes.substr(0, end), text)) {
      return fail(qel::sys::ERROR_NO_UNICODE_TRANSLATION);
    }
    bytes.remove_prefix(end);
  }
  return 0;
}

std::wstring_view trimRight(std::wstring_view text) {
  while (!text.empty() && qel::sys::IsSpace(text.back())) text.remove_suffix(1);
  return text;
}
std::wstring_view trimLeft(std::wstring_view text) {
  while (!text.empty() && qel::sys::IsSpace(text.front())) text.remove_prefix(1);
  return text;
}

// Cuts the next chunk off `rest`: through a line feed, or of the greatest length. What follows a
// zero in it is lost, as is the line feed.
template <typename Char>
std::basic_string_view<Char> takeChunk(std::basic_string_view<Char>& rest) {
  std::basic_string_view<Char> chunk = rest.substr(0, longest_chunk);
  chunk = chunk.substr(0, std::min(chunk.find(Char{'\n'}), chunk.size() - 1) + 1);
  rest.remove_prefix(chunk.size());
  chunk = chunk.substr(0, chunk.find(Char{}));
  if (chunk.ends_with(Char{'\n'})) chunk.remove_suffix(1);
  return chunk;
}

std::wstring wideLine(const std::wstring& line) {
  return line;
}
std::wstring wideLine(const std::u16string& line) {
  return qel::sys::FromUtf16(line);
}

}  // namespace

// Takes lines and stores entries: the state of one reading.
class MIniFile::Reader {
 public:
  explicit Reader(MIniFile& model) : m_model(model) {}

  template <typename Char>
  std::uint32_t read(std::basic_string_view<Char> text) {
    std::basic_string<Char> line;
    while (!text.empty()) {
      if (line.size() > longest_line) return fail(qel::sys::ERROR_NOT_REGISTRY_FILE);
      const auto chunk = takeChunk(text);
      line += chunk;
      if (chunk.size() == longest_chunk && !text.empty()) continue;
      takeLine(wideLine(line));
      line.clear();
    }
    return 0;
  }

  void end() { takeLine(L"d="); }

 private:
  void takeLine(std::wstring_view line) {
    line = trimLeft(trimRight(line));
    const std::size_t equals = line.find(L'=');
    if (line.empty()) {
      store();
    } else if (line.size() >= 2 && line.front() == L'[' && line.back() == L']') {
      store();
      m_section = line.substr(1, line.size() - 2);
    } else if (std::wstring_view(mg_comments_characters).find(line.front()) != line.npos) {
      return;
    } else if (equals == 0 || equals == line.npos) {
      extend(equals == 0 ? line.substr(1) : line);
    } else {
      if (!m_value.empty()) store();
      m_pending = true;
      m_entry = trimRight(line.substr(0, equals));
      m_value = trimLeft(line.substr(equals + 1));
    }
  }

  void extend(std::wstring_view line) {
    if (!m_pending) return;
    if (!m_value.empty() || line.empty()) m_value += L'\n';
    m_value += line;
  }

  void store() {
    if (m_pending && m_model.IsRecordInterested(m_section.c_str(), m_entry.c_str())) {
      m_model.SetValue(m_section.c_str(), m_entry.c_str(), m_value.c_str(), false);
    }
    m_pending = false;
    m_value.clear();
  }

  MIniFile& m_model;
  bool m_pending = false;
  std::wstring m_section, m_entry, m_value;
};

std::uint32_t MIniFile::Read(std::FILE& stream) {
  Clear(CLEAR_SECTIONS | CLEAR_VALUES);
  return Append(stream);
}

std::uint32_t MIniFile::Append(std::FILE& stream) {
  std::string bytes;
  std::uint32_t damage = readAll(stream, bytes);
  Reader reader(*this);
  std::uint32_t code = 0;
  if (m_wide) {
    std::u16string units(bytes.size() / 2, u'\0');
    bytes.copy(reinterpret_cast<char*>(units.data()), units.size() * 2);
    code = reader.read(std::u16string_view(units));
  } else {
    std::wstring text;
    const std::uint32_t untold = widenLines(bytes, text);
    if (damage == 0) damage = untold;
    code = reader.read(std::wstring_view(text));
  }
  if (code == 0) code = damage;
  if (code == 0) reader.end();
  return code;
}

std::uint32_t MIniFile::ReadFromFile(const wchar_t* name, int flag) {
  std::array<wchar_t, longest_name + 1> wide_name;
  if (std::wcslen(name) + 2 > longest_name) return fail(qel::sys::ERROR_FILENAME_EXCED_RANGE);
  m_wide = true;
  std::FILE* stream = openForReading(MakeUnicodeName(wide_name.data(), name));
  if (!stream) {
    m_wide = false;
    stream = openForReading(name);
  }
  const std::uint32_t code = stream ? 0 : lastErrorOrOne();
  if (flag == 0) Clear(CLEAR_SECTIONS | CLEAR_VALUES);
  if (code == qel::sys::ERROR_FILE_NOT_FOUND) return fail(0);
  if (!stream) return code;
  const std::uint32_t result = Append(*stream);
  std::fclose(stream);
  return result;
}

// --- writing -----------------------------------------------------------------------------------

namespace {

constexpr std::wstring_view line_end = L"\r\n";

std::wstring commentText(std::wstring_view comment) {
  std::wstring text = L";";
  wchar_t before = 0;
  for (const wchar_t c : comment) {
    if (c == L'\n' && before != L'\r') text += L'\r';
    text += c;
    if (c == L'\n') text += L';';
    before = c;
  }
  return text.append(line_end);
}

void appendValue(std::wstring_view value, std::wstring& text) {
  if (!value.empty() && value[0] != L'\n' && qel::sys::IsSpace(value[0])) text += L"\r\n=";
  for (const wchar_t c : value) {
    if (c == L'\n') {
      text += L"\r\n=";
    } else {
      text += c;
    }
  }
}

void appendSection(std::wstring_view name, const MIniFile::Section& section, std::wstring& text) {
  text.append(L"[").append(name).append(L"]").append(line_end);
  CStringW entry, value;
  for (POSITION at = section.entries.GetStartPosition(); at;) {
    section.entries.GetNextAssoc(at, entry, value);
    text.append(entry.GetString()).append(L" = ");
    appendValue(value.GetString(), text);
    text.append(line_end);
  }
  text.append(line_end);
}

// A descriptor of the emptied or new file, which nobody else has open; -1 and the last error.
int openAlone(const wchar_t* name) {
  std::string native;
  if (!qel::sys::ToNativeForCreation(name, native)) return -1;
  const int fd = Calls().open(native.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
  if (fd < 0) return fail(qel::sys::ErrorOfPath(errno, native)), -1;
  if (Calls().flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    fail(qel::sys::ERROR_SHARING_VIOLATION);
  } else if (Calls().ftruncate(fd, 0) != 0) {
    fail(qel::sys::ErrorFromErrno(errno));
  } else {
    return fd;
  }
  Calls().close(fd);
  return -1;
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t moved = Calls().write(fd, bytes.data(), bytes.size());
    if (moved < 0 && errno == EINTR) continue;
    if (moved <= 0) return fail(qel::sys::ErrorFromErrno(moved < 0 ? errno : ENOSPC)), false;
    bytes.remove_prefix(static_cast<std::size_t>(moved));
  }
  return true;
}

}  // namespace

std::uint32_t MIniFile::WriteToFile(const wchar_t* name, const wchar_t* comment) const {
  std::array<wchar_t, longest_name + 1> wide_name;
  if (std::wcslen(name) + 2 > longest_name) return fail(qel::sys::ERROR_FILENAME_EXCED_RANGE);

  std::wstring text;
  if (comment && *comment) text = commentText(comment);
  void* first = nullptr;
  if (Lookup(general.data(), first)) appendSection(general, *static_cast<Section*>(first), text);
  CStringW key;
  void* section = nullptr;
  for (POSITION at = GetStartPosition(); at;) {
    GetNextAssoc(at, key, section);
    if (section == first) continue;
    appendSection(key.GetString(), *static_cast<Section*>(section), text);
  }

  const int fd = openAlone(MakeUnicodeName(wide_name.data(), name));
  if (fd < 0) return lastErrorOrOne();
  const std::uint32_t code = writeAll(fd, qel::sys::ToUtf16Le(text)) ? 0 : lastErrorOrOne();
  if (Calls().close(fd) == 0 || errno == EINTR || code != 0) return code;
  return fail(qel::sys::ErrorFromErrno(errno));
}

wchar_t* MIniFile::MakeUnicodeName(wchar_t* result, const wchar_t* name) {
  const std::wstring_view text(name);
  const std::size_t separator = text.rfind(L'\\');
  std::size_t at = text.rfind(L'.');
  const bool in_last = at != text.npos && (separator == text.npos || at > separator);
  if (!in_last) at = text.empty() ? 0 : text.size() - 1;
  std::wstring wide(text);
  wide.insert(at, L"_u");
  return std::wcscpy(result, wide.c_str());
}
