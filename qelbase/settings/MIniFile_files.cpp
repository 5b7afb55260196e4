// Reading and writing of ini files.

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <cwchar>
#include <memory>
#include <utility>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/syscalls_internal.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/outside/system/units_internal.h"
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

// What was read, on a boundary of 16 bits. The values that were found in it keep it.
struct FileBytes {
  std::shared_ptr<char16_t[]> room;
  std::size_t size = 0;

  std::string_view narrow() const { return {reinterpret_cast<const char*>(room.get()), size}; }
  std::u16string_view wide() const { return {room.get(), size / sizeof(char16_t)}; }
};

// All that the stream still has. A read error gives its code; `bytes` has what came before it.
std::uint32_t readAll(std::FILE& stream, FileBytes& bytes) {
  constexpr std::size_t block = 65536;
  const auto roomFor = [](std::size_t size) {
    return std::shared_ptr<char16_t[]>(new char16_t[size / sizeof(char16_t)]);
  };
  struct stat facts {};
  const bool sized = Calls().fstat(fileno(&stream), &facts) == 0 && facts.st_size > 0;
  std::size_t size = sized ? (static_cast<std::size_t>(facts.st_size) / 2 + 1) * 2 : block;
  errno = 0;
  bytes.room = roomFor(size);
  while (const std::size_t got = std::fread(reinterpret_cast<char*>(bytes.room.get()) + bytes.size,
                                            1, size - bytes.size, &stream)) {
    bytes.size += got;
    if (bytes.size < size) continue;
    size *= 2;
    const auto larger = roomFor(size);
    std::memcpy(larger.get(), bytes.room.get(), bytes.size);
    bytes.room = larger;
  }
  if (!std::ferror(&stream)) return 0;
  fail(qel::sys::ErrorFromErrno(errno));
  return lastErrorOrOne();
}

bool isSpace(wchar_t c) {
  return (c <= L' ' || c >= 0x7F) && qel::sys::IsSpace(c);
}

template <typename Char>
std::basic_string_view<Char> trimRight(std::basic_string_view<Char> text) {
  while (!text.empty() && isSpace(static_cast<wchar_t>(text.back()))) text.remove_suffix(1);
  return text;
}
template <typename Char>
std::basic_string_view<Char> trimLeft(std::basic_string_view<Char> text) {
  while (!text.empty() && isSpace(static_cast<wchar_t>(text.front()))) text.remove_prefix(1);
  return text;
}

template <typename Char>
std::size_t findLineFeed(std::basic_string_view<Char> text) {
  return text.find(Char{'\n'});
}
std::size_t findLineFeed(std::u16string_view text) {
  return qel::sys::FindUnit(text, u'\n');
}

// Cuts the next line off `rest`, with its line feed.
template <typename Char>
std::basic_string_view<Char> cutLine(std::basic_string_view<Char>& rest) {
  const std::basic_string_view<Char> line =
      rest.substr(0, std::min(findLineFeed(rest), rest.size() - 1) + 1);
  rest.remove_prefix(line.size());
  return line;
}

// Cuts the next chunk off `rest`: through a line feed, or of the greatest length. What follows a
// zero in it is lost, as is the line feed.
template <typename Char>
std::basic_string_view<Char> takeChunk(std::basic_string_view<Char>& rest) {
  std::basic_string_view<Char> chunk = rest.substr(0, longest_chunk);
  chunk = cutLine(chunk);
  rest.remove_prefix(chunk.size());
  chunk = chunk.substr(0, chunk.find(Char{}));
  if (chunk.ends_with(Char{'\n'})) chunk.remove_suffix(1);
  return chunk;
}

// Whether a line is a single chunk of plain units, as most are.
template <typename Char>
bool isPlainChunk(std::basic_string_view<Char> line) {
  return line.size() < longest_chunk && qel::sys::IsPlain(line);
}

std::wstring wideText(std::wstring text) {
  return text;
}
std::wstring wideText(const std::u16string& text) {
  return qel::sys::FromUtf16(text);
}

}  // namespace

// Takes lines and stores entries: the state of one reading. A plain line is taken as it lies in the
// file, and so is its value; others are made wide first.
class MIniFile::Reader {
 public:
  Reader(MIniFile& model, const FileBytes& bytes) : m_model(model), m_file(bytes.room) {}

  // Narrow text, up to the first line that is none, or to Ctrl-Z.
  std::uint32_t readNarrow(std::string_view bytes) {
    bytes = bytes.substr(0, bytes.find(ctrl_z));
    while (!bytes.empty()) {
      const std::string_view line = cutLine(bytes);
      if (isPlainChunk(line)) {
        takeLine(line);
      } else if (!widen(line)) {
        return fail(qel::sys::ERROR_NO_UNICODE_TRANSLATION);
      } else if (const std::uint32_t code = takeLines(m_text.view())) {
        return code;
      }
    }
    return 0;
  }

  std::uint32_t readWide(std::u16string_view units) {
    while (!units.empty()) {
      const std::u16string_view line = cutLine(units);
      if (isPlainChunk(line)) {
        takeLine(line);
      } else if (const std::uint32_t code = takeChunks(line)) {
        return code;
      }
    }
    return 0;
  }

  void end() { takeLine(std::string_view("d=")); }

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

  std::uint32_t takeLines(std::wstring_view text) {
    const bool is_chunk = text.size() < longest_chunk && text.find(L'\0') == text.npos;
    if (!is_chunk) return takeChunks(text);
    takeLine(text);
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
      takeLine(std::wstring_view(wideText(line)));
      line.clear();
    }
    return 0;
  }

  template <typename Char>
  void takeLine(std::basic_string_view<Char> line) {
    line = trimLeft(trimRight(line));
    const std::size_t equals = line.find(Char{'='});
    if (line.empty()) {
      store();
    } else if (line.size() >= 2 && line.front() == Char{'['} && line.back() == Char{']'}) {
      store();
      copy(line.substr(1, line.size() - 2), m_section);
      m_target = nullptr;
    } else if (isComment(static_cast<wchar_t>(line.front()))) {
      return;
    } else if (equals == 0 || equals == line.npos) {
      extend(equals == 0 ? line.substr(1) : line);
    } else {
      if (m_has_value) store();
      m_pending = true;
      copy(trimRight(line.substr(0, equals)), m_entry);
      begin(trimLeft(line.substr(equals + 1)));
    }
  }

  static bool isComment(wchar_t first) {
    return first == mg_comments_characters[0] || first == mg_comments_characters[1];
  }

  template <typename Char>
  static void copy(std::basic_string_view<Char> from, std::wstring& to) {
    to.resize(from.size());
    qel::sys::CopyUnits(from, to.data());
  }
  static void copy(std::wstring_view from, std::wstring& to) { to = from; }

  // A value in a file of which only some records are kept is not worth keeping the whole file.
  template <typename Char>
  void begin(std::basic_string_view<Char> line) {
    m_has_value = !line.empty();
    m_value = {m_file, line};
    if (m_model.m_filter) m_value.own();
  }
  void begin(std::wstring_view line) {
    m_has_value = !line.empty();
    m_value.own().SetString(line.data(), static_cast<int>(line.size()));
  }

  template <typename Char>
  void extend(std::basic_string_view<Char> line) {
    if (!m_pending) return;
    std::wstring wide;
    copy(line, wide);
    CStringW& value = m_value.own();
    if (m_has_value || line.empty()) value += L'\n';
    value += wide.c_str();
    m_has_value = !value.IsEmpty();
  }

  void store() {
    if (m_pending && m_model.IsRecordInterested(m_section.c_str(), m_entry.c_str())) {
      if (!m_target) m_target = &_TakeSection(m_model, m_section.c_str());
      m_target->entries.Put(m_entry, std::move(m_value));
    }
    m_value = {};
    m_pending = m_has_value = false;
  }

  MIniFile& m_model;
  std::shared_ptr<const void> m_file;
  Buffer m_text;
  std::wstring m_section, m_entry;
  bool m_pending = false;
  bool m_has_value = false;  // one that is not empty
  qel::framework::StoredText m_value;
  Section* m_target = nullptr;  // once something was stored there
};

std::uint32_t MIniFile::Read(std::FILE& stream) {
  Clear(CLEAR_SECTIONS | CLEAR_VALUES);
  return Append(stream);
}

std::uint32_t MIniFile::Append(std::FILE& stream) {
  FileBytes bytes;
  const std::uint32_t damage = readAll(stream, bytes);
  Reader reader(*this, bytes);
  std::uint32_t code = m_wide ? reader.readWide(bytes.wide()) : reader.readNarrow(bytes.narrow());
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

constexpr std::u16string_view line_end = u"\r\n", continued = u"\r\n=";

std::wstring commentText(std::wstring_view comment) {
  std::wstring text = L";";
  wchar_t before = 0;
  for (const wchar_t c : comment) {
    if (c == L'\n' && before != L'\r') text += L'\r';
    text += c;
    if (c == L'\n') text += L';';
    before = c;
  }
  return text;
}

// A descriptor of the new or emptied file, which nobody else has open; -1 and the last error. What
// ends in the middle of writing then leaves a short file, and no mixture of new and old values.
int openAlone(const wchar_t* name) {
  std::string native;
  if (!qel::sys::ToNativeForCreation(name, native)) return -1;
  const int fd = Calls().open(native.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
  if (fd < 0) return fail(qel::sys::ErrorOfPath(errno, native)), -1;
  if (Calls().flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    fail(qel::sys::ERROR_SHARING_VIOLATION);
  } else if (qel::sys::UntilNotInterrupted([fd] { return Calls().ftruncate(fd, 0); }) != 0) {
    fail(qel::sys::ErrorFromErrno(errno));
  } else {
    return fd;
  }
  Calls().close(fd);
  return -1;
}

// Text on its way into a file, in pieces. The first failure, which is the last error, ends it.
class Writer {
 public:
  explicit Writer(int fd) : m_fd(fd), m_units(new char16_t[piece]) {}

  // Each unit of a narrow text is one character.
  template <typename Char>
  Writer& add(std::basic_string_view<Char> text) {
    while (!text.empty()) {
      if (m_used == piece) flush();
      const auto part = text.substr(0, piece - m_used);
      qel::sys::CopyUnits(part, m_units.get() + m_used);
      m_used += part.size();
      text.remove_prefix(part.size());
    }
    return *this;
  }
  Writer& add(std::wstring_view text) {
    if (qel::sys::FitsUnits(text)) return add<wchar_t>(text);
    const std::u16string units = qel::sys::ToUtf16(text);
    return add(std::u16string_view(units));
  }
  // The end of the text. False after a failure.
  bool finish() {
    flush();
    return m_sound;
  }

  void addSection(std::wstring_view name, const MIniFile::Section& section) {
    add(std::u16string_view(u"[")).add(name).add(std::u16string_view(u"]")).add(line_end);
    section.entries.ForEach(
        [this](std::wstring_view entry, const qel::framework::StoredText& value) {
          add(entry).add(std::u16string_view(u" = "));
          value.look([this](auto text) { addValue(text); });
          add(line_end);
        });
    add(line_end);
  }

 private:
  static constexpr std::size_t piece = 65536;  // units

  void flush() {
    std::string_view bytes(reinterpret_cast<const char*>(m_units.get()), m_used * sizeof(char16_t));
    m_used = 0;
    while (m_sound && !bytes.empty()) {
      const ssize_t moved = qel::sys::UntilNotInterrupted(
          [&] { return Calls().write(m_fd, bytes.data(), bytes.size()); });
      m_sound = moved > 0;
      if (!m_sound) return void(fail(qel::sys::ErrorFromErrno(moved < 0 ? errno : ENOSPC)));
      bytes.remove_prefix(static_cast<std::size_t>(moved));
    }
  }

  template <typename Char>
  void addValue(std::basic_string_view<Char> value) {
    if (!value.empty() && value[0] != Char{'\n'} && isSpace(static_cast<wchar_t>(value[0]))) {
      add(continued);
    }
    for (std::size_t end; (end = findLineFeed(value)) != value.npos;) {
      add(value.substr(0, end)).add(continued);
      value.remove_prefix(end + 1);
    }
    add(value);
  }

  int m_fd;
  std::unique_ptr<char16_t[]> m_units;
  std::size_t m_used = 0;
  bool m_sound = true;
};

}  // namespace

std::uint32_t MIniFile::WriteToFile(const wchar_t* name, const wchar_t* comment) const {
  std::array<wchar_t, longest_name + 1> wide_name;
  if (std::wcslen(name) + 2 > longest_name) return fail(qel::sys::ERROR_FILENAME_EXCED_RANGE);

  const int fd = openAlone(MakeUnicodeName(wide_name.data(), name));
  if (fd < 0) return lastErrorOrOne();
  Writer writer(fd);
  if (comment && *comment) writer.add(std::wstring_view(commentText(comment))).add(line_end);
  void* first = nullptr;
  if (Lookup(general.data(), first)) writer.addSection(general, *static_cast<Section*>(first));
  ForEach([&](std::wstring_view key, void* section) {
    if (section != first) writer.addSection(key, *static_cast<Section*>(section));
  });
  const std::uint32_t code = writer.finish() ? 0 : lastErrorOrOne();
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
