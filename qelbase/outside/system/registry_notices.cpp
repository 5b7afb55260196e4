// Notices of changes. Every writer ends by a write to the file beside the hive, which inotify sees;
// the times of change in the rows then tell whether it was one that somebody waits for.

#include <dlfcn.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>

#include <cerrno>
#include <list>
#include <thread>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/events.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/registry_internal.h"

namespace qel::sys {

using namespace registry;

namespace registry {
namespace {

struct Notice {
  HKEY handle;
  std::vector<Place> places;
  bool subtree;
  DWORD filter;
  HANDLE event;
  std::uint64_t since;
  std::thread::id asker;
};

struct Notices {
  std::mutex mutex;
  std::list<Notice> waiting;
  // Ever: most programs never ask, and close keys without taking the lock.
  std::atomic<bool> asked = false;
  Descriptor watch;  // inotify; empty while no thread runs
  Descriptor wake;
  std::vector<std::string> folders;
};

Notices& notices() {
  static Lasting<Notices> kept;
  return *kept;
}

bool isDue(const Notice& notice) {
  for (const Place& place : notice.places) {
    if (LatestChange(place, notice.subtree, notice.filter) > notice.since) return true;
  }
  return false;
}

// A hive whose writer is at work, or died at it: its last write may have woken nobody.
bool isInDoubt(const Notice& notice) {
  for (const Place& place : notice.places) {
    if (place.hive->at() == Sequence::kUnknown) return true;
  }
  return false;
}

// Signals what is due; true if somebody still waits in doubt.
bool signalDue() {
  std::list<Notice> open;
  {
    const std::scoped_lock lock(notices().mutex);
    open = notices().waiting;
  }
  bool doubt = false;
  for (const Notice& notice : open) {
    if (!isDue(notice)) {
      doubt = doubt || isInDoubt(notice);
      continue;
    }
    const std::scoped_lock lock(notices().mutex);
    notices().waiting.remove_if([&](const Notice& waiting) {
      if (waiting.event != notice.event || waiting.handle != notice.handle) return false;
      SetEvent(waiting.event);
      return true;
    });
  }
  return doubt;
}

void watchLoop(int watch, int wake) {
  constexpr int kDoubtMilliseconds = 20;
  for (bool doubt = false;;) {
    pollfd files[2] = {{watch, POLLIN, 0}, {wake, POLLIN, 0}};
    poll(files, 2, doubt ? kDoubtMilliseconds : -1);
    alignas(inotify_event) char events[4096];
    while (read(watch, events, sizeof events) > 0) {
    }
    eventfd_t count = 0;
    eventfd_read(wake, &count);
    doubt = signalDue();
  }
}

// The thread runs to the end of the process, so its code must.
void stayLoaded() {
  Dl_info self{};
  if (dladdr(reinterpret_cast<const void*>(&watchLoop), &self) == 0) return;
  dlopen(self.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
}

DWORD startWatching(const Notice& notice) {
  Notices& all = notices();
  if (!all.watch) {
    all.watch = Descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    all.wake = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!all.watch || !all.wake) {
      const DWORD code = ErrorFromErrno(errno);
      all.watch = Descriptor();
      return code;
    }
    stayLoaded();
    std::thread(watchLoop, all.watch.get(), all.wake.get()).detach();
  }
  for (const Place& place : notice.places) {
    if (place.hive->file().empty()) continue;
    const std::string folder = ParentOf(place.hive->file());
    if (inotify_add_watch(all.watch.get(), folder.c_str(), IN_MODIFY) < 0 && errno != ENOENT) {
      return ErrorFromErrno(errno);
    }
  }
  return ERROR_SUCCESS;
}

// The end of a thread that asked signals what it asked for.
struct ThreadEnd {
  bool armed = false;
  ~ThreadEnd() {
    if (!armed) return;
    const std::scoped_lock lock(notices().mutex);
    notices().waiting.remove_if([](const Notice& notice) {
      if (notice.asker != std::this_thread::get_id()) return false;
      SetEvent(notice.event);
      return true;
    });
  }
};
thread_local ThreadEnd thread_end;

}  // namespace

void SignalClosedKey(HKEY handle) {
  if (!notices().asked) return;
  const std::scoped_lock lock(notices().mutex);
  notices().waiting.remove_if([&](const Notice& notice) {
    if (notice.handle != handle) return false;
    SetEvent(notice.event);
    return true;
  });
}

void LockNotices() {
  notices().mutex.lock();
}

void UnlockNotices(bool in_child) {
  if (in_child) {  // its thread is the parent's
    notices().waiting.clear();
    notices().watch = Descriptor();
    notices().wake = Descriptor();
  }
  notices().mutex.unlock();
}

}  // namespace registry

LSTATUS RegNotifyChangeKeyValue(HKEY handle, BOOL subtree, DWORD filter, HANDLE event,
                                BOOL asynchronous) {
  constexpr DWORD kFilters = 0xF;
  OpenKey key;
  if (const DWORD code = KeyOfHandle(handle, KEY_NOTIFY, key)) return LSTATUS(code);
  if (filter == 0 || (filter & ~kFilters)) return ERROR_INVALID_PARAMETER;
  Layers layers;
  if (const DWORD code = FindLayers(key, layers)) return LSTATUS(code);
  const HANDLE own = asynchronous ? event : CreateEventW(0, 0);
  if (!asynchronous && !own) return ERROR_TOO_MANY_OPEN_FILES;
  Notice notice{handle, {layers.begin(), layers.end()}, subtree != 0, filter, own,
                0,      std::this_thread::get_id()};
  for (const Place& place : notice.places) {
    notice.since = std::max(notice.since, LatestChange(place, notice.subtree, filter));
  }
  DWORD code = notice.since == UINT64_MAX ? ERROR_KEY_DELETED : ERROR_SUCCESS;
  if (code == ERROR_SUCCESS) {
    const std::scoped_lock lock(notices().mutex);
    notices().asked = true;
    code = startWatching(notice);
    if (code == ERROR_SUCCESS) notices().waiting.push_back(notice);
  }
  if (code == ERROR_SUCCESS) {
    thread_end.armed = true;
    eventfd_write(notices().wake.get(), 1);  // what changed since it was looked at
    if (!asynchronous) WaitForSingleObject(own, INFINITE);
  }
  if (!asynchronous) CloseEvent(own);
  return LSTATUS(code);
}

}  // namespace qel::sys
