#include "qelbase/outside/system/clock.h"

#include <sched.h>

#include <atomic>
#include <cerrno>
#include <limits>
#include <mutex>
#include <optional>

namespace qel::sys {

struct ClockFacts {
  std::optional<std::int64_t> clock_ms;
  std::optional<std::int64_t> tick_ms;
  std::optional<std::int64_t> utc_ms;
  std::optional<LONGLONG> counter;
  std::optional<std::int64_t> zone_s;
  ClockFacts* outer = nullptr;
};

namespace {

constexpr LONGLONG counts_a_second = 10'000'000;
constexpr DWORD for_ever = 0xFFFFFFFF;

std::mutex facts_lock;
std::atomic<ClockFacts*> innermost = nullptr;

std::int64_t nanoseconds(clockid_t id) {
  timespec now{};
  clock_gettime(id, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

std::int64_t milliseconds(clockid_t id) {
  return nanoseconds(id) / 1'000'000;
}

const std::int64_t load_ms = milliseconds(CLOCK_MONOTONIC);

using Fact = std::optional<std::int64_t> ClockFacts::*;

std::optional<std::int64_t> overridden(Fact fact) {
  if (!innermost.load(std::memory_order_acquire)) return std::nullopt;
  const std::lock_guard guard(facts_lock);
  const ClockFacts* facts = innermost;
  return facts ? facts->*fact : std::nullopt;
}

void set(ClockFacts& facts, Fact fact, std::int64_t value) {
  const std::lock_guard guard(facts_lock);
  facts.*fact = value;
}

void move(ClockFacts& facts, std::int64_t by_ms) {
  const auto add = [](std::optional<std::int64_t>& fact, std::int64_t by) {
    if (fact) *fact += by;
  };
  add(facts.clock_ms, by_ms);
  add(facts.tick_ms, by_ms);
  add(facts.utc_ms, by_ms);
  add(facts.counter, by_ms * (counts_a_second / 1000));
}

bool moveOverride(std::int64_t by_ms) {
  if (!innermost.load(std::memory_order_acquire)) return false;
  const std::lock_guard guard(facts_lock);
  ClockFacts* facts = innermost;
  if (facts) move(*facts, by_ms);
  return facts != nullptr;
}

void wait(DWORD ms) {
  timespec left{.tv_sec = ms / 1000, .tv_nsec = std::int64_t{ms % 1000} * 1'000'000};
  while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
  }
}

}  // namespace

LONG clock() {
  const std::int64_t ms =
      overridden(&ClockFacts::clock_ms).value_or(milliseconds(CLOCK_MONOTONIC) - load_ms);
  return ms <= std::numeric_limits<LONG>::max() ? static_cast<LONG>(ms) : -1;
}

DWORD GetTickCount() {
  return static_cast<DWORD>(
      overridden(&ClockFacts::tick_ms).value_or(milliseconds(CLOCK_BOOTTIME)));
}

std::int64_t _time64(std::int64_t* out) {
  const std::optional<std::int64_t> ms = overridden(&ClockFacts::utc_ms);
  const std::int64_t now = ms ? *ms / 1000 : std::int64_t{std::time(nullptr)};
  if (out) *out = now;
  return now;
}

BOOL QueryPerformanceCounter(LONGLONG* counter) {
  constexpr std::int64_t ns_a_count = 1'000'000'000 / counts_a_second;
  *counter = overridden(&ClockFacts::counter).value_or(nanoseconds(CLOCK_MONOTONIC) / ns_a_count);
  return 1;
}

BOOL QueryPerformanceFrequency(LONGLONG* frequency) {
  *frequency = counts_a_second;
  return 1;
}

void Sleep(DWORD milliseconds) {
  if (moveOverride(milliseconds)) return;
  if (milliseconds == 0) sched_yield();
  do wait(milliseconds);
  while (milliseconds == for_ever);
}

std::tm LocalTime() {
  std::tm local{};
  static_cast<void>(LocalTime(local));
  return local;
}

bool LocalTime(std::tm& local) {
  const std::optional<std::int64_t> zone = overridden(&ClockFacts::zone_s);
  const auto now = static_cast<std::time_t>(_time64(nullptr) + zone.value_or(0));
  std::tm result{};
  if (!(zone ? gmtime_r(&now, &result) : localtime_r(&now, &result))) return false;
  local = result;
  return true;
}

ClockOverride::ClockOverride() : m_facts(std::make_unique<ClockFacts>()) {
  const std::lock_guard guard(facts_lock);
  m_facts->outer = innermost;
  innermost = m_facts.get();
}

ClockOverride::~ClockOverride() {
  const std::lock_guard guard(facts_lock);
  innermost = m_facts->outer;
}

ClockOverride& ClockOverride::setClock(std::int64_t milliseconds) {
  set(*m_facts, &ClockFacts::clock_ms, milliseconds);
  return *this;
}

ClockOverride& ClockOverride::setTickCount(DWORD milliseconds) {
  set(*m_facts, &ClockFacts::tick_ms, milliseconds);
  return *this;
}

ClockOverride& ClockOverride::setTime(std::int64_t seconds) {
  set(*m_facts, &ClockFacts::utc_ms, seconds * 1000);
  return *this;
}

ClockOverride& ClockOverride::setPerformanceCounter(LONGLONG counter) {
  set(*m_facts, &ClockFacts::counter, counter);
  return *this;
}

ClockOverride& ClockOverride::setZone(int seconds_east) {
  set(*m_facts, &ClockFacts::zone_s, seconds_east);
  return *this;
}

void ClockOverride::advance(std::int64_t milliseconds) {
  const std::lock_guard guard(facts_lock);
  move(*m_facts, milliseconds);
}

}  // namespace qel::sys
