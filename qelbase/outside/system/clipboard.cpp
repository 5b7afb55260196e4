// Who has the clipboard open, and the blocks that go in and out.

#include "qelbase/outside/system/clipboard.h"

#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

#include "qelbase/outside/system/clipboard_internal.h"
#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/memory_internal.h"

namespace qel::sys {

namespace {

using clipboard::Place;
using clipboard::Texts;

// --- folders -----------------------------------------------------------------------------------

std::string baseFolder() {
  std::string runtime = NativeEnvironmentValue("XDG_RUNTIME_DIR");
  if (runtime.starts_with('/')) return runtime;
  return BaseFolder("XDG_STATE_HOME", "/.local/state");
}

int makeFolders(const std::string& native) {
  struct stat status {};
  for (std::size_t end = 0; end != native.npos;) {
    end = native.find('/', end + 1);
    const std::string folder = native.substr(0, end);
    if (Calls().mkdir(folder.c_str(), 0700) != 0 && Calls().stat(folder.c_str(), &status) != 0) {
      return -1;
    }
  }
  return 0;
}

std::string folderOf(const std::string& display) {
  return baseFolder() + "/qelbase/clipboard" + (display.empty() ? "" : "-" + display);
}

struct Surroundings {
  std::string folder;  // holds the lock, and the texts where there is no desktop
  std::unique_ptr<Place> place;
};

Surroundings lookAround() {
  const std::string display = clipboard::DisplayName();
  if (!display.empty()) {
    if (auto desktop = clipboard::DesktopPlace()) return {folderOf(display), std::move(desktop)};
  }
  std::string folder = folderOf({});
  auto place = clipboard::FolderPlace(folder);
  return {std::move(folder), std::move(place)};
}

// --- who has it open ---------------------------------------------------------------------------

struct Session {
  Descriptor lock;
  std::unique_ptr<Place> place;
  std::vector<HGLOBAL> blocks;  // handed in and out

  void freeBlocks() {
    for (const HGLOBAL block : blocks) FreeTakenBlock(block);
    blocks.clear();
  }
};

// The process and the thread that have it open here; 0 if nobody has. Only that thread touches the
// session.
std::atomic<std::uint64_t> opener{0};

Session& session() {
  static Lasting<Session> kept;  // threads may end later than this file's statics
  return *kept;
}

std::uint64_t callingThread() {
  const auto process = static_cast<std::uint64_t>(getpid());
  return process << 32 | static_cast<std::uint32_t>(syscall(SYS_gettid));
}

bool isOpener() {
  if (opener.load() == callingThread()) return true;
  SetLastError(ERROR_CLIPBOARD_NOT_OPEN);
  return false;
}

// A fork carried the session here. The lock and the place stay with the parent: its connection must
// not be closed in its name.
void abandonSession() {
  session().lock = {};
  (void)session().place.release();
  session().freeBlocks();
}

bool claim() {
  const std::uint64_t self = callingThread();
  std::uint64_t found = 0;
  while (!opener.compare_exchange_strong(found, self)) {
    if (found >> 32 == self >> 32) return false;
    if (!opener.compare_exchange_strong(found, self)) continue;
    abandonSession();
    return true;
  }
  return true;
}

// A lock of the process: a fork doesn't carry it on, and it ends with the process.
DWORD takeLock(const std::string& folder, Descriptor& lock) {
  if (makeFolders(folder) != 0) return ErrorOfPath(errno, folder);
  const std::string file = folder + "/lock";
  lock = Descriptor::open(file, O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
  if (!lock) return ErrorOfPath(errno, file);
  struct flock range {};
  range.l_type = F_WRLCK;
  range.l_whence = SEEK_SET;
  if (Calls().lock(lock.get(), F_SETLK, &range) == 0) return ERROR_SUCCESS;
  return errno == EAGAIN || errno == EACCES ? ERROR_ACCESS_DENIED : ErrorFromErrno(errno);
}

DWORD beginSession() {
  try {
    Surroundings found = lookAround();
    session().place = std::move(found.place);
    return takeLock(found.folder, session().lock);
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
}

void endSession() {
  session().freeBlocks();
  session().place.reset();
  session().lock = {};
  opener.store(0);
}

// Closes for a thread that ends with the clipboard open.
struct ThreadEnd {
  ~ThreadEnd() {
    if (opener.load() == callingThread()) endSession();
  }
  void watch() {}
};

// --- blocks ------------------------------------------------------------------------------------

BOOL fail(DWORD code) {
  SetLastError(code);
  return 0;
}

HGLOBAL noBlock(DWORD code) {
  SetLastError(code);
  return nullptr;
}

bool isKnown(UINT format) {
  return std::ranges::find(clipboard::kFormats, format) != std::end(clipboard::kFormats);
}

std::size_t unitOf(UINT format) {
  return format == CF_UNICODETEXT ? 2 : 1;
}

// The text up to its zero.
std::string_view untilZero(std::string_view bytes, std::size_t unit) {
  constexpr std::string_view zeros("\0\0", 2);
  for (std::size_t i = 0; i + unit <= bytes.size(); i += unit) {
    if (bytes.substr(i, unit) == zeros.substr(0, unit)) return bytes.substr(0, i);
  }
  return bytes.substr(0, bytes.size() - bytes.size() % unit);
}

std::string textIn(HGLOBAL block, UINT format) {
  const std::size_t size = GlobalSize(block);
  const void* data = size > 0 ? GlobalLock(block) : nullptr;
  if (!data) return {};
  std::string text(untilZero({static_cast<const char*>(data), size}, unitOf(format)));
  GlobalUnlock(block);
  return text;
}

HGLOBAL blockOf(std::string_view text, std::size_t unit) {
  const HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE | GMEM_DDESHARE, text.size() + unit);
  if (!block) return nullptr;
  char* data = static_cast<char*>(GlobalLock(block));
  std::memcpy(data, text.data(), text.size());
  std::memset(data + text.size(), 0, unit);
  GlobalUnlock(block);
  (void)TakeBlock(block);
  return block;
}

// Adds a text to those that are there.
DWORD addText(UINT format, HGLOBAL block) {
  Place& place = *session().place;
  Texts texts;
  for (const UINT other : clipboard::kFormats) {
    if (other == format || !place.has(other)) continue;
    const DWORD code = place.read(other, texts[other]);
    if (code != ERROR_SUCCESS) return code;
  }
  texts[format] = textIn(block, format);
  return place.put(texts);
}

}  // namespace

BOOL OpenClipboard(HWND /*owner*/) {
  if (!claim()) return fail(ERROR_ACCESS_DENIED);
  thread_local ThreadEnd end;
  end.watch();
  const DWORD code = beginSession();
  if (code == ERROR_SUCCESS) return 1;
  endSession();
  return fail(code);
}

BOOL CloseClipboard() {
  if (!isOpener()) return 0;
  endSession();
  return 1;
}

BOOL EmptyClipboard() {
  if (!isOpener()) return 0;
  session().freeBlocks();
  const DWORD code = session().place->empty();
  return code == ERROR_SUCCESS ? 1 : fail(code);
}

BOOL IsClipboardFormatAvailable(UINT format) {
  const LastErrorKeeper keeper;
  if (!isKnown(format)) return 0;
  try {
    return lookAround().place->has(format) ? 1 : 0;
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

HGLOBAL SetClipboardData(UINT format, HGLOBAL block) {
  if (!isOpener()) return nullptr;
  if (!isKnown(format)) return noBlock(ERROR_INVALID_PARAMETER);
  if (!TakeBlock(block)) return nullptr;
  DWORD code = ERROR_NOT_ENOUGH_MEMORY;
  try {
    session().blocks.reserve(session().blocks.size() + 1);
    code = addText(format, block);
  } catch (const std::bad_alloc&) {
  }
  if (code != ERROR_SUCCESS) {
    GiveBlockBack(block);
    return noBlock(code);
  }
  session().blocks.push_back(block);
  return block;
}

HGLOBAL GetClipboardData(UINT format) {
  if (!isOpener()) return nullptr;
  if (!isKnown(format)) return noBlock(ERROR_FILE_NOT_FOUND);
  try {
    std::string text;
    const DWORD code = session().place->read(format, text);
    if (code != ERROR_SUCCESS) return noBlock(code);
    session().blocks.reserve(session().blocks.size() + 1);
    const std::size_t unit = unitOf(format);
    const HGLOBAL block = blockOf(untilZero(text, unit), unit);
    if (block) session().blocks.push_back(block);
    return block;
  } catch (const std::bad_alloc&) {
    return noBlock(ERROR_NOT_ENOUGH_MEMORY);
  }
}

}  // namespace qel::sys
