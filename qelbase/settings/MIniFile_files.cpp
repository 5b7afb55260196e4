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
  constexpr std::size_t block = 65536;
  struct stat facts {};
  const bool sized = Calls().fstat(fileno(&stream), &facts) == 0 && facts.st_size > 0;
  errno = 0;
  bytes.resize(sized ? static_cast<std::size_t>(facts.st_size) + 1 : block);
  std::size_t filled = 0;
  while (const std::size_t got =
             std::fread(bytes.data() + filled, 1, bytes.size() - filled, &stream)) {
    filled += got;
    if (filled == bytes.size()) bytes.resize(filled * 2);
  }
  bytes.resize(filled);
  if (!std::ferror(&stream)) return 0;
  fail(qel::sys::ErrorFromErrno(errno));
  return lastErrorOrOne();
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

std::wstring wideText(std::wstring text) {
  return text;
}
std::wstring wideText(const std::u16string& text) {
  return qel::sys::FromUtf16(text);
}

}  // namespace

// Takes lines and stores entries: the state of one reading.
class MIniFile::Reader {
 public:
  explicit Reader(MIniFile& model) : m_model(model) {}

  // Narrow text, up to the first line that is none, or to Ctrl-Z.
  std::uint32_t readNarrow(std::string_view bytes) {
    bytes = bytes.substr(0, bytes.find(ctrl_z));
    while (!bytes.empty()) {
      const std::string_view line = bytes.substr(0, bytes.find('\n') + 1);  // npos + 1 is 0
      const std::string_view raw = line.empty() ? bytes : line;
      if (!widen(raw)) return fail(qel::sys::ERROR_NO_UNICODE_TRANSLATION);
      if (const std::uint32_t code = takeLines(m_text.view())) return code;
      bytes.remove_prefix(raw.size());
    }
    return 0;
  }

  std::uint32_t readWide(std::u16string_view units) { return takeLines(units); }

  void end() { takeLine(L"d="); }

 private:
  // A buffer that is filled again and again.
  struct Buffer {
    std::wstring room;
    std::size_t used = 0;
    std::wstring_view view() const { return std::wstring_view(room).substr(0, used); }
  };

  // In the process's code page. False for bytes that are no text.
  bool widen(std::string_view bytes) {
    if (bytes.size() > INT32_MAX) return false;
    if (m_text.room.size() < bytes.size()) m_text.room.resize(bytes.size() * 2);
    const int length = qel::sys::MultiByteToWideChar(
        qel::sys::CP_ACP, qel::sys::MB_ERR_INVALID_CHARS, bytes.data(),
        static_cast<int>(bytes.size()), m_text.room.data(), static_cast<int>(bytes.size()));
    m_text.used = static_cast<std::size_t>(length);
    return length > 0;
  }

  // A line of the usual kind: a single chunk.
  static bool isOneChunk(std::wstring_view text) {
    return text.size() < longest_chunk && text.find(L'\0') == text.npos;
  }

  std::uint32_t takeLines(std::wstring_view text) {
    if (!isOneChunk(text)) return takeChunks(text);
    takeLine(text);
    return 0;
  }

  std::uint32_t takeLines(std::u16string_view units) {
    while (!units.empty()) {
      const std::size_t end = std::min(units.find(u'\n'), units.size() - 1) + 1;
      const std::u16string_view line = units.substr(0, end);
      const bool plain = line.size() < longest_chunk && line.find(u'\0') == line.npos;
      if (plain) {
        takeLine(qel::sys::FromUtf16(line));
      } else if (const std::uint32_t code = takeChunks(line)) {
        return code;
      }
      units.remove_prefix(end);
    }
    return 0;
  }

  // Up to a line feed, or to the end of the file.
  template <typename Char>
  std::uint32_t takeChunks(std::basic_string_view<Char> text) {
    std::basic_string<Char> line;
    while (!text.empty()) {
      if (line.size() > longest_line) return fail(qel::sys::ERROR_NOT_REGISTRY_FILE);
      const auto chunk = takeChunk(text);
      line += chunk;
      if (chunk.size() == longest_chunk && !text.empty()) continue;
      takeLine(wideText(line));
      line.clear();
    }
    return 0;
  }

  void takeLine(std::wstring_view line) {
    line = trimLeft(trimRight(line));
    const std::size_t equals = line.find(L'=');
    if (line.empty()) {
      store();
    } else if (line.size() >= 2 && line.front() == L'[' && line.back() == L']') {
      store();
      m_section = line.substr(1, line.size() - 2);
      m_target = nullptr;
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
      if (!m_target) m_target = &_TakeSection(m_model, m_section.c_str());
      m_target->entries[m_entry.c_str()].SetString(m_value.data(),
                                                   static_cast<int>(m_value.size()));
    }
    m_pending = false;
    m_value.clear();
  }

  MIniFile& m_model;
  bool m_pending = false;
  Buffer m_text;
  std::wstring m_section, m_entry, m_value;
  Section* m_target = nullptr;  // once something was stored there
};

std::uint32_t MIniFile::Read(std::FILE& stream) {
  Clear(CLEAR_SECTIONS | CLEAR_VALUES);
  return Append(stream);
}

std::uint32_t MIniFile::Append(std::FILE& stream) {
  std::string bytes;
  const std::uint32_t damage = readAll(stream, bytes);
  Reader reader(*this);
  std::uint32_t code = 0;
  if (m_wide) {
    std::u16string units(bytes.size() / 2, u'\0');
    bytes.copy(reinterpret_cast<char*>(units.data()), units.size() * 2);
    code = reader.readWide(units);
  } else {
    code = reader.readNarrow(bytes);
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

// Text on its way into a file, in pieces. The first failure, which is the last error, ends it.
class Writer {
 public:
  explicit Writer(int fd) : m_fd(fd) {}

  Writer& add(std::wstring_view text) {
    m_text += text;
    return *this;
  }
  bool flush() {
    m_sound = m_sound && writeAll(m_fd, qel::sys::ToUtf16Le(m_text));
    m_text.clear();
    return m_sound;
  }

  void addSection(std::wstring_view name, const MIniFile::Section& section) {
    add(L"[").add(name).add(L"]").add(line_end);
    section.entries.ForEach([&](std::wstring_view entry, const CStringW& value) {
      add(entry).add(L" = ");
      addValue({value.GetString(), static_cast<std::size_t>(value.GetLength())});
      add(line_end);
      if (m_text.size() >= piece) flush();
    });
    add(line_end);
  }

 private:
  static constexpr std::size_t piece = 32768;  // characters

  void addValue(std::wstring_view value) {
    if (!value.empty() && value[0] != L'\n' && qel::sys::IsSpace(value[0])) add(L"\r\n=");
    for (std::size_t end; (end = value.find(L'\n')) != value.npos;) {
      add(value.substr(0, end)).add(L"\r\n=");
      value.remove_prefix(end + 1);
    }
    add(value);
  }

  int m_fd;
  std::wstring m_text;
  bool m_sound = true;
};

}  // namespace

std::uint32_t MIniFile::WriteToFile(const wchar_t* name, const wchar_t* comment) const {
  std::array<wchar_t, longest_name + 1> wide_name;
  if (std::wcslen(name) + 2 > longest_name) return fail(qel::sys::ERROR_FILENAME_EXCED_RANGE);

  const int fd = openAlone(MakeUnicodeName(wide_name.data(), name));
  if (fd < 0) return lastErrorOrOne();
  Writer writer(fd);
  if (comment && *comment) writer.add(commentText(comment));
  void* first = nullptr;
  if (Lookup(general.data(), first)) writer.addSection(general, *static_cast<Section*>(first));
  ForEach([&](std::wstring_view key, void* section) {
    if (section != first) writer.addSection(key, *static_cast<Section*>(section));
  });
  const std::uint32_t code = writer.flush() ? 0 : lastErrorOrOne();
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
