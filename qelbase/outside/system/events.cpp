#include "qelbase/outside/system/events.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>

#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"

namespace qel::sys {

namespace {

using Clock = std::chrono::steady_clock;

struct Event {
  Descriptor descriptor;
  bool manual_reset;
};

struct Table {
  std::mutex mutex;
  std::map<std::uintptr_t, std::shared_ptr<Event>> events;
  std::uintptr_t last = 0;
};

// Threads may still wait while the process ends.
Table& table() {
  static Lasting<Table> kept;
  return *kept;
}

// Far from small numbers and addresses, so that a mistaken handle is found out.
constexpr std::uintptr_t kFirst = 0x45560000'00000000;

std::shared_ptr<Event> find(HANDLE handle) {
  const std::scoped_lock lock(table().mutex);
  const auto found = table().events.find(reinterpret_cast<std::uintptr_t>(handle));
  if (found != table().events.end()) return found->second;
  SetLastError(ERROR_INVALID_HANDLE);
  return nullptr;
}

// False if there was no signal to take.
bool drain(const Event& event) {
  eventfd_t count = 0;
  return eventfd_read(event.descriptor.get(), &count) == 0;
}

int millisecondsUntil(Clock::time_point end) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, 1'000'000'000));
}

}  // namespace

HANDLE CreateEventW(BOOL manual_reset, BOOL signalled) {
  Descriptor descriptor(eventfd(signalled ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!descriptor) {
    SetLastError(ErrorFromErrno(errno));
    return nullptr;
  }
  const std::scoped_lock lock(table().mutex);
  const std::uintptr_t handle = kFirst + ++table().last;
  table().events[handle] = std::make_shared<Event>(Event{std::move(descriptor), manual_reset != 0});
  return reinterpret_cast<HANDLE>(handle);
}

BOOL SetEvent(HANDLE handle) {
  const auto event = find(handle);
  if (!event) return 0;
  eventfd_write(event->descriptor.get(), 1);  // a full counter is signalled all the same
  return 1;
}

BOOL ResetEvent(HANDLE handle) {
  const auto event = find(handle);
  if (!event) return 0;
  drain(*event);
  return 1;
}

BOOL CloseEvent(HANDLE handle) {
  if (!find(handle)) return 0;
  const std::scoped_lock lock(table().mutex);
  return table().events.erase(reinterpret_cast<std::uintptr_t>(handle)) != 0;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  const auto event = find(handle);
  if (!event) return WAIT_FAILED;
  const auto end = Clock::now() + std::chrono::milliseconds(milliseconds);
  for (;;) {
    pollfd wait{.fd = event->descriptor.get(), .events = POLLIN, .revents = 0};
    const int left = milliseconds == INFINITE ? -1 : millisecondsUntil(end);
    const int ready = poll(&wait, 1, left);
    if (ready > 0 && (event->manual_reset || drain(*event))) return WAIT_OBJECT_0;
    if (ready == 0 && Clock::now() >= end) return WAIT_TIMEOUT;
  }
}

int EventDescriptor(HANDLE handle) {
  const auto event = find(handle);
  return event ? event->descriptor.get() : -1;
}

}  // namespace qel::sys
