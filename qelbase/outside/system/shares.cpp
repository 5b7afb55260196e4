#include <sys/file.h>

#include <array>
#include <cerrno>

#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/handles.h"
#include "qelbase/outside/system/shares_internal.h"
#include "qelbase/outside/system/syscalls_internal.h"

namespace qel::sys {

namespace {

// Each holder has a read lock on one byte for each thing that it does, and on one for each thing
// that it denies the others. Read locks do not collide; asking for a write lock, without taking
// it, shows those of the others.
constexpr off_t first_byte = off_t{1} << 62;
constexpr int kinds = 3;

struct Kind {
  DWORD access;
  DWORD share;
};
constexpr std::array<Kind, kinds> kind_table = {{
    {GENERIC_READ | GENERIC_EXECUTE | GENERIC_ALL | 0x21, FILE_SHARE_READ},
    {GENERIC_WRITE | GENERIC_ALL | 0x6, FILE_SHARE_WRITE},
    {DELETE_ACCESS | GENERIC_ALL, FILE_SHARE_DELETE},
}};

constexpr off_t byteOfUse(int kind) {
  return first_byte + kind;
}
constexpr off_t byteOfDenial(int kind) {
  return first_byte + kinds + kind;
}

struct flock range(short type, off_t byte) {
  struct flock result {};
  result.l_type = type;
  result.l_whence = SEEK_SET;
  result.l_start = byte;
  result.l_len = 1;
  return result;
}

// 0, or errno.
int take(int descriptor, off_t byte) {
  struct flock wanted = range(F_RDLCK, byte);
  const auto lock = [&] { return Calls().lock(descriptor, F_OFD_SETLK, &wanted); };
  return UntilNotInterrupted(lock) == 0 ? 0 : errno;
}

int othersHold(int descriptor, off_t byte, bool& held) {
  struct flock asked = range(F_WRLCK, byte);
  const auto ask = [&] { return Calls().lock(descriptor, F_OFD_GETLK, &asked); };
  if (UntilNotInterrupted(ask) != 0) return errno;
  held = asked.l_type != F_UNLCK;
  return 0;
}

// Two who open at once must not stand back for each other: the one who comes first looks first. A
// program that keeps this lock for itself delays, and does no more.
class Turn {
 public:
  explicit Turn(int descriptor) : m_descriptor(descriptor) {
    constexpr int longest_wait_ms = 50;
    for (int waited = 0; waited < longest_wait_ms; ++waited) {
      m_taken = Calls().flock(descriptor, LOCK_EX | LOCK_NB) == 0;
      if (m_taken || (errno != EWOULDBLOCK && errno != EINTR)) return;
      wait();
    }
  }
  ~Turn() {
    if (m_taken) Calls().flock(m_descriptor, LOCK_UN);
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  static void wait() {
    const timespec pause{.tv_sec = 0, .tv_nsec = 1'000'000};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr);
  }

  int m_descriptor;
  bool m_taken = false;
};

int takeOwn(int descriptor, DWORD access, DWORD sharing) {
  int error = 0;
  for (int kind = 0; kind < kinds && error == 0; ++kind) {
    if ((access & kind_table[kind].access) != 0) error = take(descriptor, byteOfUse(kind));
    const bool denies = (sharing & kind_table[kind].share) == 0;
    if (error == 0 && denies) error = take(descriptor, byteOfDenial(kind));
  }
  return error;
}

int lookAtOthers(int descriptor, DWORD access, DWORD sharing) {
  int error = 0;
  bool held = false;
  for (int kind = 0; kind < kinds && error == 0 && !held; ++kind) {
    const bool uses = (access & kind_table[kind].access) != 0;
    const bool denies = (sharing & kind_table[kind].share) == 0;
    if (uses) error = othersHold(descriptor, byteOfDenial(kind), held);
    if (error == 0 && !held && denies) error = othersHold(descriptor, byteOfUse(kind), held);
  }
  return held ? EWOULDBLOCK : error;
}

}  // namespace

int TakeShare(int descriptor, DWORD access, DWORD sharing) {
  const bool takes_part =
      ((kind_table[0].access | kind_table[1].access | kind_table[2].access) & access) != 0;
  if (!takes_part) return 0;
  const Turn turn(descriptor);
  const int error = takeOwn(descriptor, access, sharing);
  return error != 0 ? error : lookAtOthers(descriptor, access, sharing);
}

bool IsHeldAgainstDeletion(int descriptor) {
  constexpr int deletion = 2;
  bool held = false;
  return othersHold(descriptor, byteOfDenial(deletion), held) == 0 && held;
}

}  // namespace qel::sys
