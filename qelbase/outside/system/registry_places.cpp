// Where the hives lie, and the keys that hang between them.

#include <pthread.h>
#include <unistd.h>

#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>
#endif

#include "qelbase/outside/system/environment_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/lasting_internal.h"
#include "qelbase/outside/system/registry_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys::registry {

namespace {

struct Hives {
  std::mutex mutex;
  std::map<std::string, std::unique_ptr<Hive>> by_file;
  std::vector<std::unique_ptr<Hive>> hardware;
  std::atomic<Hive*> user = nullptr;
  std::atomic<Hive*> machine = nullptr;
};

// Calls may still come while the process ends. An unloading closes the hives before what they are
// open through.
Hives& hives() {
  static Lasting<Hives> kept([] {
    (void)WritingVfs();
    return Hives();
  });
  return *kept;
}

template <typename Visit>
void forEachHive(Visit visit) {
  for (const auto& [file, hive] : hives().by_file) visit(*hive);
  for (const auto& hive : hives().hardware) visit(*hive);
}

void beforeFork() {
  LockNotices();
  ForkGate().lock();
  LockHandles();
  hives().mutex.lock();
  forEachHive([](Hive& hive) { hive.prepareFork(); });
}

// Such a lock knows the thread that has it by the system's number, which is another in a child.
void unlockAfterFork(std::shared_mutex& mutex, bool in_child) {
  if (in_child) {
#ifdef __SANITIZE_THREAD__
    __tsan_mutex_pre_unlock(&mutex, 0);
    __tsan_mutex_post_unlock(&mutex, 0);
#endif
    std::construct_at(&mutex);
  } else {
    mutex.unlock();
  }
}

void afterFork(bool in_child) {
  forEachHive([&](Hive& hive) { hive.afterFork(in_child); });
  hives().mutex.unlock();
  UnlockHandles();
  unlockAfterFork(ForkGate(), in_child);
  UnlockNotices(in_child);
}

void watchForks() {
  static const int kOnce = pthread_atfork(
      beforeFork, [] { afterFork(false); }, [] { afterFork(true); });
  (void)kOnce;
}

std::string folderOf(const char* variable, const std::string& otherwise) {
  // By the XDG rules a relative name counts as none.
  const std::string value = NativeEnvironmentValue(variable);
  return !value.empty() && value[0] == '/' ? value : otherwise;
}

std::string userFolder() {
  std::string own = NativeEnvironmentValue("QEL_REGISTRY");
  if (!own.empty()) return own;
  const std::string home = folderOf("HOME", "/");
  return folderOf("XDG_CONFIG_HOME", (home == "/" ? "" : home) + "/.config") + "/qelbase/registry";
}

std::string machineFolder() {
  std::string own = NativeEnvironmentValue("QEL_REGISTRY");
  if (!own.empty()) return own;
  const std::string folders = NativeEnvironmentValue("XDG_CONFIG_DIRS");
  const std::string first = folders.substr(0, folders.find(':'));
  return (!first.empty() && first[0] == '/' ? first : "/etc/xdg") + "/qelbase/registry";
}

Hive& addHive(Hive::Plan plan) {
  auto& hive = hives().by_file[plan.file];
  if (!hive) hive = std::make_unique<Hive>(std::move(plan));
  return *hive;
}

void placeHives(const std::string& user_folder, const std::string& machine_folder) {
  watchForks();
  Hives& all = hives();
  Hive& user = addHive({.file = user_folder + "/user.hive",
                        .mode = 0600,
                        .roots = kRoot,
                        .first_keys = {L"Software\\Classes"}});
  Hive& machine = addHive({.file = machine_folder + "/machine.hive",
                           .mode = 0644,
                           .roots = kPerformanceRoot,
                           .first_keys = {L"Software\\Classes", L"System"},
                           .may_be_missing = true});
  if (machine.mounts().empty()) {
    all.hardware.push_back(std::make_unique<Hive>(Hive::Plan{.file = {}, .is_hardware = true}));
    machine.mounts() = {{kRoot, L"HARDWARE", all.hardware.back().get()},
                        {kUsersRoot, UserKeyName(), &user}};
  }
  all.user = &user;
  all.machine = &machine;
}

Hive& placed(const std::atomic<Hive*>& hive) {
  if (Hive* const known = hive.load(std::memory_order_acquire)) return *known;
  const std::scoped_lock lock(hives().mutex);
  if (!hive.load()) placeHives(userFolder(), machineFolder());
  return *hive.load();
}

}  // namespace

std::shared_mutex& ForkGate() {
  static Lasting<std::shared_mutex> kept;
  return *kept;
}

Hive& UserHive() {
  return placed(hives().user);
}

Hive& MachineHive() {
  return placed(hives().machine);
}

Hive& HiveOfFile(const std::string& native) {
  const std::scoped_lock lock(hives().mutex);
  return addHive({.file = native});
}

std::wstring UserKeyName() {
  return std::to_wstring(geteuid());
}

void UseRegistryFolder(const std::string& native) {
  ForgetKeys();
  const std::scoped_lock lock(hives().mutex);
  forEachHive([](Hive& hive) {
    if (!hive.file().empty()) hive.close();
  });
  placeHives(native, native);
}

}  // namespace qel::sys::registry
