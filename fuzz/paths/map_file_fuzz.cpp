// Reads arbitrary bytes as the map file of a folder. Records are as the format promises; what can
// be recorded is read again as it was; a listing with the file holds together.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "qelbase/outside/system/names.h"
#include "qelbase/paths/MDirectoryWithMap.h"
#include "qelbase/paths/map_file_internal.h"

namespace {

using qel::paths::MapRecord;

void require(bool holds) {
  if (!holds) std::abort();
}

bool operator==(const MapRecord& a, const MapRecord& b) {
  return a.name == b.name && a.mapped == b.mapped;
}

void checkRecords(std::string_view bytes) {
  std::string written;
  std::vector<MapRecord> kept;
  for (const MapRecord& record : qel::paths::ParseMapFile(bytes)) {
    require(!record.name.empty() && !record.mapped.empty());
    require(record.mapped.find(L'\n') == record.mapped.npos);
    if (!qel::paths::IsRecordable(record)) continue;
    kept.push_back(record);
    written += qel::paths::MapFileText(record);
  }
  const std::vector<MapRecord> again = qel::paths::ParseMapFile(written);
  require(again.size() == kept.size());
  for (std::size_t i = 0; i < kept.size(); ++i) require(again[i] == kept[i]);
}

// Each entry with a mapped name is found by it, and no mapped name is that of an entry.
void checkTables(const MDirectoryWithMap& map) {
  CStringW name, mapped, found;
  for (std::int64_t i = 0; i < map.GetCount(); ++i) {
    map.GetName(name, i);
    require(map.GetNameIndex(name) == static_cast<std::uint32_t>(i));
    const bool is_mapped = (map.GetNameFlags(i) & MDirectoryWithMap::ENTRY_MAPPED) != 0;
    require(is_mapped == map.Name2MappedName(name, &mapped));
    if (is_mapped) require(map.MappedName2Name(mapped, &found) && found.CompareNoCase(name) == 0);
    require(!map.MappedName2Name(name, nullptr));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Still there when the handler runs.
  static const std::string& folder = *new std::string([] {
    const std::string path =
        std::filesystem::temp_directory_path() / ("map_file_fuzz." + std::to_string(getpid()));
    for (const char* name : {"a", "b", "map1a2b", "map1a2c"}) {
      std::filesystem::create_directories(path + "/" + name);
    }
    std::atexit([] { std::filesystem::remove_all(folder); });
    return path;
  }());
  checkRecords({reinterpret_cast<const char*>(data), size});
  std::FILE* file = std::fopen((folder + "/.map").c_str(), "wb");
  if (size > 0) std::fwrite(data, 1, size, file);
  std::fclose(file);
  MDirectoryWithMap map;
  const std::uint32_t code =
      map.Read(qel::sys::FromNative(folder).c_str(), 13, nullptr, nullptr, nullptr);
  require(code == 0 || (code == 1017 && map.GetCount() == 0));
  checkTables(map);
  const std::wstring out = qel::sys::FromNative(folder + "/.map");
  require(map.WriteMapFile(out.c_str(), nullptr) == 0);
  return 0;
}
