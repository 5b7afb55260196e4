#pragma once
// One open descriptor of the system, closed by its owner.

#include <cstddef>
#include <string>
#include <utility>

#include "qelbase/outside/system/syscalls_internal.h"

namespace qel::sys {

// Movable, not copyable; empty when made without a descriptor. An object belongs to one thread at a
// time.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : m_descriptor(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor();  // closes; errno and the last error stay as they are

  // Opens with O_CLOEXEC and goes on after an interruption; empty, and errno, on failure.
  [[nodiscard]] static Descriptor open(const std::string& native, int flags, mode_t mode = 0666);

  // The same for a name in an open folder.
  [[nodiscard]] static Descriptor openIn(int folder, const std::string& name, int flags,
                                         mode_t mode = 0666);

  explicit operator bool() const { return m_descriptor >= 0; }
  int get() const { return m_descriptor; }
  int release() { return std::exchange(m_descriptor, -1); }
  // False, and errno, if the system reports an error that only closing shows. Closed in any case.
  bool close();

 private:
  int m_descriptor = -1;
};

// Writes all bytes, over short transfers and interruptions. False and errno on failure.
[[nodiscard]] bool WriteAll(int descriptor, const void* data, std::size_t size);

// Reads up to `size` bytes; less only at the end of the file. -1 and errno on failure.
[[nodiscard]] ssize_t ReadUpTo(int descriptor, void* data, std::size_t size);

}  // namespace qel::sys
