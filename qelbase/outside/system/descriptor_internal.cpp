#include "qelbase/outside/system/descriptor_internal.h"

#include <cerrno>

#include "qelbase/outside/system/errors.h"

namespace qel::sys {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    const LastErrorKeeper keeper;
    close();
    m_descriptor = other.release();
  }
  return *this;
}

Descriptor::~Descriptor() {
  const LastErrorKeeper keeper;
  close();
}

Descriptor Descriptor::open(const std::string& native, int flags, mode_t mode) {
  return Descriptor(
      UntilNotInterrupted([&] { return Calls().open(native.c_str(), flags | O_CLOEXEC, mode); }));
}

Descriptor Descriptor::openIn(int folder, const std::string& name, int flags, mode_t mode) {
  return Descriptor(UntilNotInterrupted(
      [&] { return Calls().openat(folder, name.c_str(), flags | O_CLOEXEC, mode); }));
}

bool Descriptor::close() {
  const int descriptor = release();
  return descriptor < 0 || Calls().close(descriptor) == 0;
}

bool WriteAll(int descriptor, const void* data, std::size_t size) {
  const char* at = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t written =
        UntilNotInterrupted([&] { return Calls().write(descriptor, at, size); });
    if (written < 0) return false;
    at += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

ssize_t ReadUpTo(int descriptor, void* data, std::size_t size) {
  std::size_t total = 0;
  while (total < size) {
    char* at = static_cast<char*>(data) + total;
    const ssize_t got =
        UntilNotInterrupted([&] { return Calls().read(descriptor, at, size - total); });
    if (got < 0) return -1;
    if (got == 0) break;
    total += static_cast<std::size_t>(got);
  }
  return static_cast<ssize_t>(total);
}

}  // namespace qel::sys
