// A shared object that tests load.
#include <cstdint>
#include <cstdlib>

struct VersionRecord {
  std::uint32_t size, major, minor, build, platform;
};

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED std::int32_t result;
std::int32_t result = 0;
EXPORTED VersionRecord version;
VersionRecord version = {0, 5, 50, 4134, 600};

EXPORTED std::int32_t DllGetVersion(VersionRecord* out) {
  if (out->size != sizeof *out || out->major != 0) return static_cast<std::int32_t>(0x80070057);
  *out = version;
  return result;
}

EXPORTED int ordinal_15(int number) {
  if (number < 0) std::abort();
  return number + 15;
}
