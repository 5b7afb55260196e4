// Streams of the C run-time library by wide name.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <string_view>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/outside/system/handles_internal.h"

namespace qel::sys {

namespace {

struct Mode {
  bool reads = false;
  bool writes = false;
  bool appends = false;
  bool is_text = true;
  DWORD disposition = OPEN_EXISTING;
};

// A letter of r, w and a, then + for both directions, b or t, x for a new file alone, and letters
// that mean nothing here. Nothing for any other mode.
std::optional<Mode> parse(std::wstring_view text) {
  Mode mode;
  const wchar_t kind = text.empty() ? L'\0' : text.front();
  if (kind != L'r' && kind != L'w' && kind != L'a') return std::nullopt;
  mode.reads = kind == L'r';
  mode.writes = kind != L'r';
  mode.appends = kind == L'a';
  if (kind == L'w') mode.disposition = CREATE_ALWAYS;
  if (kind == L'a') mode.disposition = OPEN_ALWAYS;
  for (const wchar_t c : text.substr(1)) {
    if (c == L'+') {
      mode.reads = mode.writes = true;
    } else if (c == L'b') {
      mode.is_text = false;
    } else if (c == L'x' && kind == L'w') {
      mode.disposition = CREATE_NEW;
    } else if (std::wstring_view(L"tcnNSRTD ").find(c) == std::wstring_view::npos) {
      return std::nullopt;
    }
  }
  return mode;
}

// A stream that reads text: CR LF comes as LF, and Ctrl-Z is the end. It keeps its own buffer and
// the C library none, so that a position is always that of the next byte in the file.
class TextStream {
 public:
  explicit TextStream(Descriptor file) : m_file(std::move(file)) {}

  ssize_t read(char* out, std::size_t size) {
    std::size_t count = 0;
    while (count < size) {
      const int c = next();
      if (c == failed) return -1;
      if (c == end) break;
      out[count++] = static_cast<char>(c);
    }
    return static_cast<ssize_t>(count);
  }

  // All or nothing is told; 0 is the C library's failure.
  ssize_t write(const char* data, std::size_t size) {
    if (!dropAhead() || !WriteAll(m_file.get(), data, size)) return 0;
    return static_cast<ssize_t>(size);
  }

  int seek(off64_t* offset, int whence) {
    if (!dropAhead()) return -1;
    const off_t position = lseek(m_file.get(), *offset, whence);
    if (position < 0) return -1;
    *offset = position;
    return 0;
  }

  int close() { return m_file.close() ? 0 : -1; }

 private:
  static constexpr int end = -1;
  static constexpr int failed = -2;
  static constexpr char end_of_text = 0x1A;

  int peek() {
    if (m_at < m_size) return static_cast<unsigned char>(m_buffer[m_at]);
    m_at = m_size = 0;
    const ssize_t size = ReadUpTo(m_file.get(), m_buffer.data(), m_buffer.size());
    if (size < 0) return failed;
    m_size = static_cast<std::size_t>(size);
    return m_size == 0 ? end : static_cast<unsigned char>(m_buffer[0]);
  }

  int next() {
    const int c = peek();
    if (c == end_of_text) return end;
    if (c < 0) return c;
    ++m_at;
    if (c != '\r' || peek() != '\n') return c;
    ++m_at;
    return '\n';
  }

  // Back to the byte that comes next.
  bool dropAhead() {
    const auto ahead = static_cast<off_t>(m_size - m_at);
    m_at = m_size = 0;
    return ahead == 0 || lseek(m_file.get(), -ahead, SEEK_CUR) >= 0;
  }

  Descriptor m_file;
  std::array<char, 4096> m_buffer{};
  std::size_t m_at = 0;
  std::size_t m_size = 0;
};

constexpr cookie_io_functions_t text_functions = {
    .read = [](void* stream, char* out,
               std::size_t size) { return static_cast<TextStream*>(stream)->read(out, size); },
    .write = [](void* stream, const char* data,
                std::size_t size) { return static_cast<TextStream*>(stream)->write(data, size); },
    .seek = [](void* stream, off64_t* offset,
               int whence) { return static_cast<TextStream*>(stream)->seek(offset, whence); },
    .close =
        [](void* stream) {
          const std::unique_ptr<TextStream> owner(static_cast<TextStream*>(stream));
          return owner->close();
        },
};

const char* nativeMode(const Mode& mode) {
  if (mode.appends) return mode.reads ? "a+" : "a";
  if (mode.reads && mode.writes) return "r+";
  return mode.reads ? "r" : "w";
}

// What is appended to a text goes before its end, not behind it.
void dropEndOfText(int file) {
  struct stat status {};
  char last = 0;
  if (Calls().fstat(file, &status) != 0 || status.st_size == 0) return;
  if (Calls().pread(file, &last, 1, status.st_size - 1) != 1 || last != 0x1A) return;
  static_cast<void>(Calls().ftruncate(file, status.st_size - 1));
}

std::FILE* streamOf(Descriptor file, const Mode& mode) {
  if (!mode.is_text || !mode.reads) {
    std::FILE* const stream = fdopen(file.get(), nativeMode(mode));
    if (stream) static_cast<void>(file.release());
    return stream;
  }
  if (mode.appends) dropEndOfText(file.get());
  auto text = std::make_unique<TextStream>(std::move(file));
  std::FILE* const stream = fopencookie(text.get(), nativeMode(mode), text_functions);
  if (!stream) return nullptr;
  static_cast<void>(text.release());
  std::setvbuf(stream, nullptr, _IONBF, 0);
  return stream;
}

}  // namespace

std::FILE* _wfopen(const wchar_t* path, const wchar_t* mode) {
  const std::optional<Mode> parsed = parse(mode ? mode : L"");
  if (!parsed || !path) {
    FailRunTime(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const DWORD access = (parsed->reads ? GENERIC_READ : 0) | (parsed->writes ? GENERIC_WRITE : 0);
  const HANDLE handle = CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    parsed->disposition, 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    FailRunTime(GetLastError());
    return nullptr;
  }
  Descriptor file = TakeDescriptor(handle);
  const int flags = fcntl(file.get(), F_GETFL) & ~O_NONBLOCK;
  fcntl(file.get(), F_SETFL, parsed->appends ? flags | O_APPEND : flags);
  return streamOf(std::move(file), *parsed);
}

}  // namespace qel::sys
