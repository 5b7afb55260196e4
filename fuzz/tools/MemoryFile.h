#pragma once
// Bytes as a file that lives in memory.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

class MemoryFile {
 public:
  MemoryFile(const std::uint8_t* data, std::size_t size) : m_fd(memfd_create("fuzz", MFD_CLOEXEC)) {
    if (m_fd < 0 || write(m_fd, data, size) != static_cast<ssize_t>(size)) std::abort();
  }
  ~MemoryFile() { close(m_fd); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string native() const { return "/proc/self/fd/" + std::to_string(m_fd); }

 private:
  int m_fd;
};
