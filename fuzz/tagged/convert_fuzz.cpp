// A conversion of any bytes: what it says is true, and every body of the old file stands in the new
// one.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "qelbase/paths/MFileName.h"
#include "qelbase/tagged/MFileTagged.h"
#include "qelbase/tagged/MTagList.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

// `size` may come from a damaged header.
std::string read(MFile& file, std::int64_t position, std::int64_t size) {
  const std::int64_t held = std::max<std::int64_t>(file.SIZE() - position, 0);
  std::string bytes(static_cast<std::size_t>(std::min(size, held)), '\0');
  file.SEEK(position, 0);
  bytes.resize(file.READ(bytes.data(), bytes.size()));
  return bytes;
}

std::string readAll(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The bodies of the top-level tags, or, for `nested` ones, of the "DATA" tags in them.
std::vector<std::string> bodiesOf(const std::wstring& name, bool nested) {
  std::vector<std::string> bodies;
  MFile file;
  MTagList list;
  if (!file.OPEN_READ(name.c_str()) || !list.BUILD_TAG_LIST(file)) return bodies;
  const std::int64_t header = nested ? 12 : 0;
  for (MTag* tag = nullptr; (tag = list.NEXT_TAG(file, tag, false));) {
    require(!nested || read(file, tag->m_data_position, 4) == "DATA");
    bodies.push_back(read(file, tag->m_data_position + header, tag->m_skip - header));
  }
  return bodies;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::filesystem::path folder = "/dev/shm/qelbase-fuzz-" + std::to_string(getpid());
  const std::filesystem::path temporary = folder / "temporary";
  std::filesystem::create_directories(temporary);
  for (const char* variable : {"TMP", "TEMP"}) setenv(variable, temporary.c_str(), 1);
  const std::string path = (folder / "file").string();
  const std::wstring name(path.begin(), path.end());
  const std::string old_file(reinterpret_cast<const char*>(data), size);
  std::ofstream(path, std::ios::binary) << old_file;

  const std::vector<std::string> old_bodies = bodiesOf(name, false);
  MTagList list;
  const bool converted = list.CONVERT(MFileName(name.c_str(), false), 2, 1);
  const bool untouched = std::filesystem::exists(path) && readAll(path) == old_file;
  if (!converted && !untouched) {
    require(!std::filesystem::is_empty(temporary));
    require(readAll(std::filesystem::directory_iterator(temporary)->path()) == old_file);
  }
  if (converted && !untouched) require(bodiesOf(name, true) == old_bodies);
  std::filesystem::remove_all(folder);
  return 0;
}
