// COPY and READ_STRING_UNTIL of a foreign file, in pieces and orders that the input chooses.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "qelbase/outside/components/MFile.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

std::wstring nameOf(int fd) {
  return L"C:\\proc\\self\\fd\\" + std::to_wstring(fd);
}

int memoryFile(const std::string& content) {
  const int fd = memfd_create("fuzz", MFD_CLOEXEC);
  require(fd >= 0 &&
          write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
  return fd;
}

// A text that was found is the bytes up to the first terminator; one that wasn't consumes nothing.
void readText(MFile& file, const std::string& content, std::size_t size) {
  const auto start = static_cast<std::size_t>(file.TELL());
  std::string buffer(size, '\xEE');
  const std::size_t length = file.READ_STRING_UNTIL(buffer.data(), "\r;", size);
  const std::size_t found = content.find_first_of("\r;", start);
  if (found == content.npos || found - start >= size) {
    require(length == static_cast<std::size_t>(-1));
    require(file.TELL() == static_cast<std::int64_t>(start));
    return;
  }
  require(length == found - start && buffer[length] == '\0');
  require(content.compare(start, length, buffer, 0, length) == 0);
  require(file.TELL() == static_cast<std::int64_t>(found + 1));
}

void copyPart(MFile& file, const std::string& content, std::int64_t count) {
  const int fd = memoryFile("");
  MFile target(12);
  const auto start = static_cast<std::size_t>(file.TELL());
  require(target.OPEN_UPDATE(nameOf(fd).c_str()));
  const std::string expected =
      start < content.size() ? content.substr(start, static_cast<std::size_t>(count)) : "";
  require(target.COPY(file, count) == static_cast<std::int64_t>(expected.size()));
  std::string copied(expected.size() + 1, '\0');
  require(target.REWIND() && target.READ(copied.data(), copied.size()) == expected.size());
  require(copied.compare(0, expected.size(), expected) == 0);
  close(fd);
}

}  // namespace

// Bytes 0 to 3 choose the buffer and the steps, the rest is the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 4) return 0;
  const std::string content(reinterpret_cast<const char*>(data) + 4, size - 4);
  const int fd = memoryFile(content);
  MFile file(data[0]);
  require(file.OPEN_READ(nameOf(fd).c_str()));
  for (int step = 0; step < 16 && !file.FEOF(); ++step) {
    const std::size_t length = data[1 + step % 3] * static_cast<std::size_t>(step % 4);
    if (((data[1] >> step % 8) & 1) != 0) {
      readText(file, content, length);
      file.SKIP(step % 3);
    } else {
      copyPart(file, content, static_cast<std::int64_t>(length));
    }
  }
  require(file.GET_RESULT() == 0);
  close(fd);
  return 0;
}
