// Each opener holds a shared lock on one byte for each thing that it does or denies, and asks who
// else holds the bytes that speak against it. The locks belong to the open file, not to the
// process, so that two openers in one process see each other too.
#include <limits>
#include <string>

#include "qelbase/outside/framework/sharing_internal.h"

namespace qel::framework {

namespace {

enum Mark { kReads, kWrites, kDeniesReading, kDeniesWriting };

// Behind the end of any file.
constexpr off_t kFirstMark = std::numeric_limits<off_t>::max() - 16;

struct flock LockOf(Mark mark, short type) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = kFirstMark + mark;
  lock.l_len = 1;
  return lock;
}

bool Hold(int file, Mark mark) {
  struct flock lock = LockOf(mark, F_RDLCK);
  return fcntl(file, F_OFD_SETLK, &lock) == 0;
}

bool IsHeldElsewhere(int file, Mark mark) {
  struct flock lock = LockOf(mark, F_WRLCK);
  return fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace

bool TakeShares(int file, const Shares& shares, qel::sys::Descriptor& helper) {
  int holder = file;
  if (!shares.reads) {  // a shared lock needs a descriptor for reading
    helper = qel::sys::Descriptor::open("/proc/self/fd/" + std::to_string(file), O_RDONLY);
    if (!helper) return true;
    holder = helper.get();
  }
  const struct {
    bool wanted;
    Mark mine;
    Mark against;
  } rows[] = {{shares.reads, kReads, kDeniesReading},
              {shares.writes, kWrites, kDeniesWriting},
              {shares.denies_reading, kDeniesReading, kReads},
              {shares.denies_writing, kDeniesWriting, kWrites}};
  // All are held before the first is asked about: of two openers at least one sees the other.
  for (const auto& row : rows) {
    if (row.wanted) Hold(holder, row.mine);
  }
  for (const auto& row : rows) {
    if (row.wanted && IsHeldElsewhere(holder, row.against)) return false;
  }
  return true;
}

}  // namespace qel::framework
