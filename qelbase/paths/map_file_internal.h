#pragma once
// The file that maps names on the disk to the names that were wanted (docs/formats/folder-map.md).

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "qelbase/paths/folder_functions.h"

namespace qel::paths {

// AssurePathAppend on a copy.
[[nodiscard]] inline CStringW Joined(CStringW folder, const wchar_t* tail) {
  AssurePathAppend(folder, tail);
  return folder;
}

struct MapRecord {
  std::wstring name;  // on the disk
  std::wstring mapped;
};

// The records of the bytes of a map file, in order.
[[nodiscard]] std::vector<MapRecord> ParseMapFile(std::string_view bytes);

// The bytes of one record.
[[nodiscard]] std::string MapFileText(const MapRecord& record);

// Whether a reader finds the very record again.
[[nodiscard]] bool IsRecordable(const MapRecord& record);

// Reads a map file by its Windows path. 0, also if there is none that can be opened; 30 if it can't
// be read, or is larger than 16 MiB, as no map is.
[[nodiscard]] std::uint32_t ReadMapFile(const wchar_t* path, std::vector<MapRecord>& records);

// Replaces the file: a new one is written beside it, synced, and renamed. 0 or the code.
[[nodiscard]] std::uint32_t ReplaceMapFile(const wchar_t* path, const std::string& bytes);

// Whether a name is that of a new file on the way to replace the map file `map_name`.
[[nodiscard]] bool IsPassingMapFile(std::wstring_view name, std::wstring_view map_name);

// A record at the end of the file, which is made if there is none. It is taken back unless it is
// kept.
class AppendedRecord {
 public:
  explicit AppendedRecord(const wchar_t* path);
  ~AppendedRecord();
  AppendedRecord(const AppendedRecord&) = delete;
  AppendedRecord& operator=(const AppendedRecord&) = delete;

  bool isOpen() const { return m_descriptor >= 0; }
  [[nodiscard]] std::uint32_t write(const MapRecord& record);  // 0 or the code
  // 0, or the code of what only closing showed, and then the record is taken back.
  [[nodiscard]] std::uint32_t keep();

 private:
  void takeBack();

  std::string m_native;
  int m_descriptor = -1;
  bool m_is_new = false;
  std::int64_t m_old_size = 0;
};

}  // namespace qel::paths
