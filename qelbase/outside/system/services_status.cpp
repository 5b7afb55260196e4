// The status file of a service: who runs it, how it stands, and the control that is under way.

#include <sys/file.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/services_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys::services {

namespace {

constexpr std::array<char, 8> kMagic = {'Q', 'E', 'L', 'S', 'V', 'C', '0', '1'};
constexpr off_t kArgumentsAt = 4096;  // the status has a page for itself
constexpr std::size_t kMostArgumentBytes = 1U << 20;

// Bytes of the file that are locked.
constexpr off_t kHandleByte = 0;
constexpr off_t kControlByte = 1;

struct flock byteLock(short type, off_t byte) {
  struct flock range {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  range.l_start = byte;
  range.l_len = 1;
  return range;
}

// 0, or errno.
int lockByte(int file, short type, off_t byte) {
  struct flock range = byteLock(type, byte);
  while (Calls().lock(file, F_OFD_SETLK, &range) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

bool writeAt(int file, const char* data, std::size_t size, off_t at) {
  while (size > 0) {
    const ssize_t written = Calls().pwrite(file, data, size, at);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    data += written;
    size -= static_cast<std::size_t>(written);
    at += written;
  }
  return true;
}

bool readAt(int file, char* data, std::size_t size, off_t at) {
  while (size > 0) {
    const ssize_t got = Calls().pread(file, data, size, at);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    data += got;
    size -= static_cast<std::size_t>(got);
    at += got;
  }
  return true;
}

// Gives the file its page, so that no full disk is met in memory. 0 or a code.
DWORD makeWhole(const Descriptor& file) {
  struct stat status {};
  if (Calls().fstat(file.get(), &status) != 0) return ErrorFromErrno(errno);
  if (!S_ISREG(status.st_mode)) return ERROR_INVALID_DATA;
  if (status.st_size >= kArgumentsAt) return ERROR_SUCCESS;
  std::array<char, kArgumentsAt> page{};
  std::ranges::copy(kMagic, page.begin());
  return writeAt(file.get(), page.data(), page.size(), 0) ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

// --- runs as words -----------------------------------------------------------------------------

using Words = std::array<std::uint32_t, SharedStatus::kRunWords>;

Words wordsOf(const Run& run) {
  const SERVICE_STATUS& status = run.status;
  return {run.process.id,
          static_cast<std::uint32_t>(run.process.started),
          static_cast<std::uint32_t>(run.process.started >> 32),
          run.process.boot,
          run.launched_at,
          static_cast<std::uint32_t>(run.dispatcher),
          status.dwServiceType,
          status.dwCurrentState,
          status.dwControlsAccepted,
          status.dwWin32ExitCode,
          status.dwServiceSpecificExitCode,
          status.dwCheckPoint,
          status.dwWaitHint};
}

Run runOf(const Words& words) {
  return {.process = {.id = words[0],
                      .started = words[1] | std::uint64_t{words[2]} << 32,
                      .boot = words[3]},
          .launched_at = words[4],
          .dispatcher = static_cast<Dispatcher>(words[5]),
          .status = {words[6], words[7], words[8], words[9], words[10], words[11], words[12]}};
}

}  // namespace

bool Run::isOverdue() const {
  return dispatcher == Dispatcher::none && status.dwCurrentState == SERVICE_START_PENDING &&
         GetTickCount() - launched_at > kLimit;
}

// --- the file ----------------------------------------------------------------------------------

std::shared_ptr<StatusFile> StatusFile::open(const std::wstring& name, bool may_make, DWORD& code) {
  const std::string native = ServiceFolder() + "/" + StatusName(name);
  const int flags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | (may_make ? O_CREAT : 0);
  Descriptor file = Descriptor::open(native, flags, 0600);
  if (!file) {
    code = errno == ENOENT ? ERROR_SERVICE_NEVER_STARTED : ErrorFromErrno(errno);
    return nullptr;
  }
  code = makeWhole(file);
  return code == ERROR_SUCCESS ? map(std::move(file), code) : nullptr;
}

std::shared_ptr<StatusFile> StatusFile::reopen(DWORD& code) const {
  Descriptor file = Descriptor::open("/proc/self/fd/" + std::to_string(m_file.get()), O_RDWR);
  code = file ? ERROR_SUCCESS : ErrorFromErrno(errno);
  return file ? map(std::move(file), code) : nullptr;
}

std::shared_ptr<StatusFile> StatusFile::map(Descriptor file, DWORD& code) {
  void* const memory = Calls().mmap(nullptr, sizeof(SharedStatus), PROT_READ | PROT_WRITE,
                                    MAP_SHARED, file.get(), 0);
  if (memory == MAP_FAILED) {
    code = ErrorFromErrno(errno);
    return nullptr;
  }
  std::shared_ptr<StatusFile> result(new StatusFile);
  result->m_file = std::move(file);
  result->m_shared = static_cast<SharedStatus*>(memory);
  code = result->m_shared->magic == kMagic ? ERROR_SUCCESS : ERROR_INVALID_DATA;
  return code == ERROR_SUCCESS ? result : nullptr;
}

StatusFile::~StatusFile() {
  const LastErrorKeeper keeper;
  lockByte(m_file.get(), F_UNLCK, kControlByte);
  munmap(m_shared, sizeof *m_shared);
}

void RemoveStatusFile(const std::wstring& name) {
  Calls().unlink((ServiceFolder() + "/" + StatusName(name)).c_str());
}

// --- runs --------------------------------------------------------------------------------------

// Words are published one by one, and read the other way round: who reads a word of a later run
// also sees a number that is too far from the one that it began with.
void StatusFile::publish(const Run& run) const {
  const Words words = wordsOf(run);
  std::uint32_t number = m_shared->number.load(std::memory_order_acquire) + 1;
  if (number == 0) number = SharedStatus::kRuns;
  auto& slot = m_shared->runs[number % SharedStatus::kRuns];
  for (std::size_t i = 0; i < words.size(); ++i) {
    slot[i].store(words[i], std::memory_order_release);
  }
  m_shared->number.store(number, std::memory_order_release);
  WakeWord(m_shared->number);
}

std::optional<Run> StatusFile::lastRun() const {
  while (const std::uint32_t number = m_shared->number.load(std::memory_order_acquire)) {
    const auto& slot = m_shared->runs[number % SharedStatus::kRuns];
    Words words;
    for (std::size_t i = 0; i < words.size(); ++i) {
      words[i] = slot[i].load(std::memory_order_acquire);
    }
    const std::uint32_t later = m_shared->number.load(std::memory_order_acquire) - number;
    if (later < SharedStatus::kRuns - 1) return runOf(words);
  }
  return std::nullopt;
}

std::optional<Run> StatusFile::run() const {
  std::optional<Run> run = lastRun();
  if (!run || run->status.dwCurrentState == SERVICE_STOPPED || IsAlive(run->process)) return run;
  // It may have reported its end before it died.
  run = lastRun();
  if (run->status.dwCurrentState == SERVICE_STOPPED || IsAlive(run->process)) return run;
  run->status = {.dwServiceType = run->status.dwServiceType,
                 .dwCurrentState = SERVICE_STOPPED,
                 .dwControlsAccepted = 0,
                 .dwWin32ExitCode = ERROR_PROCESS_ABORTED,
                 .dwServiceSpecificExitCode = 0,
                 .dwCheckPoint = 0,
                 .dwWaitHint = 0};
  return run;
}

void StatusFile::waitForRun(std::uint32_t seen) const {
  constexpr int slice_ms = 10;  // what a death, which wakes nobody, is noticed after
  WaitOnWord(m_shared->number, seen, slice_ms);
}

// --- arguments ---------------------------------------------------------------------------------

DWORD StatusFile::writeArguments(const std::vector<std::wstring>& arguments) const {
  std::wstring texts;
  for (const std::wstring& argument : arguments) texts.append(argument).push_back(L'\0');
  const std::string bytes = ToUtf16Le(texts);
  if (bytes.size() > kMostArgumentBytes) return ERROR_INVALID_PARAMETER;
  const auto size = static_cast<std::uint32_t>(bytes.size());
  std::string block(reinterpret_cast<const char*>(&size), sizeof size);
  block += bytes;
  const bool written = writeAt(m_file.get(), block.data(), block.size(), kArgumentsAt);
  return written ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

std::vector<std::wstring> StatusFile::readArguments() const {
  std::vector<std::wstring> arguments;
  std::uint32_t size = 0;
  if (!readAt(m_file.get(), reinterpret_cast<char*>(&size), sizeof size, kArgumentsAt)) return {};
  std::string bytes(std::min<std::size_t>(size, kMostArgumentBytes), '\0');
  if (!readAt(m_file.get(), bytes.data(), bytes.size(), kArgumentsAt + sizeof size)) return {};
  const std::wstring texts = FromUtf16Le(bytes);
  std::size_t at = 0;
  for (std::size_t end = 0; (end = texts.find(L'\0', at)) != std::wstring::npos; at = end + 1) {
    arguments.push_back(texts.substr(at, end - at));
  }
  return arguments;
}

// --- locks -------------------------------------------------------------------------------------

DWORD StatusFile::holdHandle() const {
  return ErrorFromErrno(lockByte(m_file.get(), F_RDLCK, kHandleByte));
}

bool StatusFile::isHeldElsewhere() const {
  struct flock range = byteLock(F_WRLCK, kHandleByte);
  while (Calls().lock(m_file.get(), F_OFD_GETLK, &range) != 0) {
    if (errno != EINTR) return true;  // for all that is known
  }
  return range.l_type != F_UNLCK;
}

bool StatusFile::tryLockControls() const {
  return lockByte(m_file.get(), F_WRLCK, kControlByte) == 0;
}

void SweepService(const std::wstring& name) {
  Record record;
  if (ReadRecord(name, record) != ERROR_SUCCESS || !record.marked) return;
  DWORD code = ERROR_SUCCESS;
  if (const auto file = StatusFile::open(name, false, code)) {
    const std::optional<Run> run = file->run();
    const bool runs = run && run->status.dwCurrentState != SERVICE_STOPPED;
    if (runs || file->isHeldElsewhere()) return;
  } else if (code != ERROR_SERVICE_NEVER_STARTED) {
    return;
  }
  RemoveStatusFile(name);
  (void)DeleteRecord(name);  // what could not be deleted waits for the next sweep
}

}  // namespace qel::sys::services
