// Every reader of tags on any bytes: what it lists lies inside the file, and reading again gives
// the same.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "qelbase/tagged/MFileTagged.h"
#include "qelbase/tagged/MTagList.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

std::vector<MTag> entriesOf(MTagList& list, MFile& file) {
  std::vector<MTag> tags;
  for (MTag* tag = nullptr; (tag = list.NEXT_TAG(file, tag, false));) tags.push_back(*tag);
  return tags;
}

void requireSame(const std::vector<MTag>& a, const std::vector<MTag>& b) {
  require(a.size() == b.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    require(a[i] == b[i] && a[i].m_position == b[i].m_position && a[i].m_skip == b[i].m_skip);
  }
}

// A list tells headers that stand in the file; `whole` bodies stand there, too.
void requireInside(const std::vector<MTag>& tags, std::int64_t size, bool whole) {
  require(static_cast<std::int64_t>(tags.size()) <= size / 12);
  for (const MTag& tag : tags) {
    require(tag.m_position >= 0 && tag.m_data_position == tag.m_position + 12 && tag.m_skip >= 0);
    require(tag.m_data_position + (whole ? tag.m_skip : 0) <= size);
  }
}

std::vector<MTag> buildList(MFile& file) {
  MTagList list;
  list.BUILD_TAG_LIST(file);
  return entriesOf(list, file);
}

std::vector<MTag> buildTree(MFile& file) {
  MTagList list;
  list.BUILD_TAG_TREE(file, 0, -1);
  return entriesOf(list, file);
}

std::vector<MTag> buildSubTags(MFile& file, const MTag& tag) {
  MTagList list;
  list.BUILD_TAG_LIST(file, tag, true);
  return entriesOf(list, file);
}

std::vector<MTag> scan(const wchar_t* name) {
  MFileTagged file;
  std::vector<MTag> tags;
  require(file.OPEN_READ(name));
  for (MTag* tag = nullptr; (tag = file.NEXT_TAG(tag, true));) tags.push_back(*tag);
  return tags;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path = "/dev/shm/qelbase-fuzz-" + std::to_string(getpid());
  const std::wstring name(path.begin(), path.end());
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  const auto bytes = static_cast<std::int64_t>(size);
  {
    MFile file;
    require(file.OPEN_READ(name.c_str()));
    const std::vector<MTag> list = buildList(file);
    requireInside(list, bytes, false);
    requireSame(list, buildList(file));
    for (const MTag& tag : list) requireInside(buildSubTags(file, tag), bytes, false);
    const std::vector<MTag> tree = buildTree(file);
    requireInside(tree, bytes, true);
    requireSame(tree, buildTree(file));
    require(file.GET_RESULT() == 0);
  }
  const std::vector<MTag> scanned = scan(name.c_str());
  requireInside(scanned, bytes, true);
  requireSame(scanned, scan(name.c_str()));
  std::filesystem::remove(path);
  return 0;
}
