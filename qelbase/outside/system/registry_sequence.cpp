#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <new>

#include "qelbase/outside/system/registry_sequence_internal.h"

namespace qel::sys::registry {

namespace {

constexpr std::uint64_t kMagic = 0x3151'4553'4C45'51;  // "QELSEQ1"
constexpr off_t kWriterByte = 0;
constexpr off_t kInUseByte = 1;

std::atomic_ref<std::uint64_t> atomic(std::uint64_t& word) {
  return std::atomic_ref<std::uint64_t>(word);
}

void* mapZeros(void* address) {
  const int fixed = address ? MAP_FIXED : 0;
  return mmap(address, sizeof(SharedCounters), PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | fixed, -1,
              0);
}

bool lockByte(int fd, off_t byte, short type, bool wait) {
  struct flock range {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  range.l_start = byte;
  range.l_len = 1;
  int result = 0;
  do {
    result = fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &range);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

}  // namespace

std::uint64_t FileTimeNow() {
  using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  constexpr std::int64_t kFrom1601To1970 = 116'444'736'000'000'000;
  return static_cast<std::uint64_t>(std::chrono::duration_cast<Ticks>(now).count() +
                                    kFrom1601To1970);
}

Sequence::Sequence() : m_shared(static_cast<SharedCounters*>(mapZeros(nullptr))) {
  if (m_shared == MAP_FAILED) throw std::bad_alloc();
}

Sequence::~Sequence() {
  munmap(m_shared, sizeof(SharedCounters));
}

bool Sequence::open(const std::string& file, bool writable, mode_t mode) {
  close();
  Descriptor opened = Descriptor::open(file, writable ? O_RDWR | O_CREAT : O_RDONLY, mode);
  if (!opened) return false;
  struct stat status {};
  if (Calls().fstat(opened.get(), &status) != 0) return false;
  const bool whole = status.st_size >= static_cast<off_t>(sizeof(SharedCounters));
  if (!whole && !writable) return errno = EINVAL, false;
  // Growing keeps what another process has written meanwhile.
  if (!whole && Calls().ftruncate(opened.get(), sizeof(SharedCounters)) != 0) return false;
  if (mmap(m_shared, sizeof(SharedCounters), writable ? PROT_READ | PROT_WRITE : PROT_READ,
           MAP_SHARED | MAP_FIXED, opened.get(), 0) == MAP_FAILED) {
    const int error = errno;
    mapZeros(m_shared);  // the address stays good
    return errno = error, false;
  }
  m_writable = writable;
  m_file = std::move(opened);
  // A writer that is at work, or stopped there, is waited for only by the first ones.
  if (!writable || atomic(m_shared->magic).load() == kMagic) return true;
  if (!lockByte(m_file.get(), kWriterByte, F_WRLCK, true)) return close(), false;
  if (m_shared->magic != kMagic) {
    atomic(m_shared->counter).store(FileTimeNow() & ~1ULL);  // one that nobody remembers
    atomic(m_shared->magic).store(kMagic);
  }
  lockByte(m_file.get(), kWriterByte, F_UNLCK, false);
  return true;
}

void Sequence::close() {
  if (m_file) mapZeros(m_shared);
  m_writable = false;
  m_file = Descriptor();
}

bool Sequence::hasDeadWriter() const {
  if (!m_writable || read() != kUnknown) return false;
  if (!lockByte(m_file.get(), kWriterByte, F_WRLCK, false)) return false;
  lockByte(m_file.get(), kWriterByte, F_UNLCK, false);
  return true;
}

std::uint64_t Sequence::lastStamp() const {
  return atomic(m_shared->last_stamp).load();
}

std::uint64_t Sequence::beginWrite() {
  if (!m_writable) return FileTimeNow();
  lockByte(m_file.get(), kWriterByte, F_WRLCK, true);
  // Odd and new, also behind a writer that died.
  const std::uint64_t counter = atomic(m_shared->counter).load();
  atomic(m_shared->counter).store((counter | 1) + (counter & 1) * 2);
  const std::uint64_t stamp = std::max(FileTimeNow(), lastStamp() + 1);
  atomic(m_shared->last_stamp).store(stamp);
  return stamp;
}

void Sequence::endWrite() {
  if (!m_writable) return;
  const std::uint64_t even = atomic(m_shared->counter).load() + 1;
  atomic(m_shared->counter).store(even);
  // A watcher that misses this write wakes up at the next one.
  if (Calls().pwrite(m_file.get(), &even, sizeof even, offsetof(SharedCounters, writes)) < 0) {
    errno = 0;
  }
  lockByte(m_file.get(), kWriterByte, F_UNLCK, false);
}

void Sequence::share() {
  if (m_file) lockByte(m_file.get(), kInUseByte, F_RDLCK, true);
}

bool Sequence::alone() {
  return m_writable && lockByte(m_file.get(), kInUseByte, F_WRLCK, false);
}

}  // namespace qel::sys::registry
