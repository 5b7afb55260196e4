// The memory of the machine, as far as this process may use it.

#include <sys/resource.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <string_view>

#include "qelbase/outside/system/machine_internal.h"

namespace qel::sys {

namespace {

constexpr std::uint64_t kUnlimited = UINT64_MAX;
constexpr std::uint64_t kAddressSpace = std::uint64_t{1} << 47;  // of a process on 64 bits

// Lines "Name:  123 kB" in bytes.
std::map<std::string, std::uint64_t> readLines(const std::string& file) {
  std::map<std::string, std::uint64_t> values;
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    std::istringstream words(line);
    std::string name;
    std::uint64_t kilobytes = 0;
    if (words >> name >> kilobytes) values[name] = kilobytes * 1024;
  }
  return values;
}

// The number that a file of a control group holds; `otherwise` for "max" and for no file.
std::uint64_t readLimit(const std::string& file, std::uint64_t otherwise) {
  std::ifstream stream(file);
  std::uint64_t value = 0;
  return stream >> value ? value : otherwise;
}

// Pages of files that the group would give up before it runs out.
std::uint64_t readReclaimable(const std::string& file) {
  std::ifstream stream(file);
  std::uint64_t value = 0;
  for (std::string name; stream >> name >> value;) {
    if (name == "inactive_file" || name == "total_inactive_file") return value;
  }
  return 0;
}

struct GroupFiles {
  const char* folder;
  const char* limit;
  const char* usage;
};
constexpr GroupFiles kUnified = {"/sys/fs/cgroup", "/memory.max", "/memory.current"};
constexpr GroupFiles kMemory = {"/sys/fs/cgroup/memory", "/memory.limit_in_bytes",
                                "/memory.usage_in_bytes"};

struct Limit {
  std::uint64_t total = kUnlimited;
  std::uint64_t available = kUnlimited;
};

// A group may use what all groups above it allow.
void applyGroups(const std::string& root, const GroupFiles& files, std::string group,
                 Limit& limit) {
  while (true) {
    std::string folder = root;
    folder.append(files.folder).append(group);
    const std::uint64_t total = readLimit(folder + files.limit, kUnlimited);
    if (total != kUnlimited) {
      const std::uint64_t used = readLimit(folder + files.usage, 0);
      const std::uint64_t kept = used - std::min(used, readReclaimable(folder + "/memory.stat"));
      limit.total = std::min(limit.total, total);
      limit.available = std::min(limit.available, total - std::min(total, kept));
    }
    const std::size_t cut = group.rfind('/');
    if (cut == std::string::npos) return;
    group.resize(cut);
  }
}

// https://docs.kernel.org/admin-guide/cgroup-v2.html, and cgroup-v1/memory.html
Limit readLimits(const std::string& root) {
  Limit limit;
  std::ifstream stream(root + "/proc/self/cgroup");
  for (std::string line; std::getline(stream, line);) {  // number:controllers:group
    const std::size_t first = line.find(':');
    const std::size_t second = line.find(':', first + 1);
    if (first == std::string::npos || second == std::string::npos) continue;
    std::string controllers = line.substr(first, second - first + 1);  // ":memory,cpu:"
    std::replace(controllers.begin(), controllers.end(), ':', ',');
    std::string group = line.substr(second + 1);
    if (group == "/") group.clear();
    if (controllers == ",,") applyGroups(root, kUnified, group, limit);
    if (controllers.find(",memory,") != std::string::npos) applyGroups(root, kMemory, group, limit);
  }
  return limit;
}

}  // namespace

MEMORYSTATUSEX ReadMemory(const std::string& root) {
  auto lines = readLines(root + "/proc/meminfo");
  const auto own = readLines(root + "/proc/self/status");
  const Limit limit = readLimits(root);
  MEMORYSTATUSEX out{};
  out.dwLength = sizeof out;
  out.ullTotalPhys = std::min(lines["MemTotal:"], limit.total);
  out.ullAvailPhys = std::min({lines["MemAvailable:"], limit.available, out.ullTotalPhys});
  out.ullTotalPageFile = out.ullTotalPhys + lines["SwapTotal:"];
  out.ullAvailPageFile = out.ullAvailPhys + lines["SwapFree:"];
  const auto used = own.find("VmSize:");
  rlimit space{};
  getrlimit(RLIMIT_AS, &space);
  out.ullTotalVirtual = std::min<std::uint64_t>(space.rlim_cur, kAddressSpace);
  out.ullAvailVirtual =
      out.ullTotalVirtual - std::min(out.ullTotalVirtual, used == own.end() ? 0 : used->second);
  if (out.ullTotalPhys > 0) {
    out.dwMemoryLoad = static_cast<DWORD>(
        100 - static_cast<std::uint64_t>(100.0 * static_cast<double>(out.ullAvailPhys) /
                                         static_cast<double>(out.ullTotalPhys)));
  }
  return out;
}

}  // namespace qel::sys
