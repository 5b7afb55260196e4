#include "qelbase/tagged/MTagList.h"

#include <algorithm>
#include <functional>

#include "qelbase/outside/components/MFile.h"
#include "qelbase/tagged/UnwrittenTags_internal.h"
#include "qelbase/tagged/tags_internal.h"

using qel::tagged::Admits;
using qel::tagged::KeyOf;
using qel::tagged::ReadSound;

namespace {

// How many calls of BUILD_TAG_TREE this thread is in.
thread_local int tree_depth = 0;

struct DepthGuard {
  DepthGuard() { ++tree_depth; }
  ~DepthGuard() { --tree_depth; }
  DepthGuard(const DepthGuard&) = delete;
  DepthGuard& operator=(const DepthGuard&) = delete;
};

bool canHoldSubTags(const MTag& tag) {
  if (tag.m_version[0] < 2 || qel::tagged::IsData(tag)) return false;
  const bool is_version_2_0 = tag.m_version[0] == 2 && tag.m_version[1] == 0;
  if (qel::tagged::IsMuid(tag) && !is_version_2_0) return false;
  return tag.m_skip >= MTag::HeaderSize;
}

// What the tree takes to hold sub-tags.
bool isBranch(const MTag& tag) {
  return !qel::tagged::IsData(tag) && !qel::tagged::IsMuid(tag) && tag.m_skip >= MTag::HeaderSize;
}

// One level of the tree: the tags up to `end` (-1: no limit), the last of which ended at `behind`.
struct Level {
  std::int64_t behind;
  std::int64_t end;
  bool isFull() const { return end != -1 && behind >= end; }
};

bool passesVersionTest(std::uint32_t test, const MTag& entry, const MTag& tag) {
  if (test == 0) return true;
  if (test == 1) return entry.m_version[0] <= tag.m_version[0];
  return entry.m_version[0] == tag.m_version[0];
}

}  // namespace

MTagList::MTagList() : m_head("QELCOM"), m_unwritten(new qel::tagged::UnwrittenTags) {}

MTagList::~MTagList() = default;

void MTagList::clear() {
  m_tags.clear();
  m_unwritten->clear();
}

// --- Reading ---

void MTagList::keep(const MTag& tag) {
  if (qel::tagged::IsHead(tag)) {
    m_head = tag;
  } else {
    m_tags.push_back(tag);
  }
}

void MTagList::readRun(MFile& file, std::uint64_t limit) {
  clear();
  std::uint64_t count = 0;
  for (MTag tag; ReadSound(file, tag); file.SEEK(tag.m_skip, 1)) {
    keep(tag);
    count += static_cast<std::uint64_t>(MTag::HeaderSize + tag.m_skip);
    if (limit != NoLimit && count >= limit) break;
  }
}

bool MTagList::BUILD_TAG_LIST(MFile& file) {
  if (!file.IS_OPEN()) return false;
  const std::int64_t position = file.TELL();
  file.REWIND();
  const bool sound = m_head.READ(file) && qel::tagged::IsHead(m_head);
  if (sound) readRun(file, NoLimit);
  file.SEEK(position, 0);
  return sound;
}

bool MTagList::BUILD_TAG_LIST(MFile& file, std::uint64_t size) {
  if (!file.IS_OPEN()) return false;
  readRun(file, size);
  return true;
}

bool MTagList::BUILD_TAG_LIST(MFile& file, const MTag& tag, bool seek) {
  if (!canHoldSubTags(tag) || !file.IS_OPEN()) return false;
  if (seek && !file.SEEK(tag.m_data_position, 0)) {
    qel::tagged::LogFailure(L"In MTagList::CONVERT() : Could not find given tag data position");
    return false;
  }
  readRun(file, static_cast<std::uint64_t>(tag.m_skip));  // `tag` may be an entry of the table
  return true;
}

void MTagList::BUILD_TAG_TREE(MFile& file, std::int64_t begin, std::int64_t end) {
  if (tree_depth == 0) clear();
  m_unwritten->clear();
  const DepthGuard guard;
  file.SEEK(0, 2);
  const std::int64_t size = file.TELL();
  file.SEEK(begin, 0);

  // Sub-tags that overrun their parents are met more than once; a sound file has no more tags than
  // headers fit into it.
  std::int64_t room = size / MTag::HeaderSize;
  std::vector<Level> levels{{begin, end}};
  while (room > 0 && !levels.empty()) {
    MTag tag;
    if (ReadSound(file, tag) && tag.m_data_position + tag.m_skip <= size) {
      keep(tag);
      --room;
      levels.back().behind = tag.m_data_position + tag.m_skip;
      if (isBranch(tag)) {
        levels.push_back({tag.m_data_position, tag.m_data_position + tag.m_skip});
        continue;  // the file stands on the first sub-tag
      }
    } else {
      levels.pop_back();
    }
    while (!levels.empty() && levels.back().isFull()) levels.pop_back();
    if (!levels.empty()) file.SEEK(levels.back().behind, 0);
  }
}

// --- Finding ---

bool MTagList::contains(const MTag* tag) const {
  const MTag* const begin = m_tags.data();
  const std::less<const MTag*> before;
  return !before(tag, begin) && before(tag, begin + m_tags.size());
}

std::size_t MTagList::indexBehind(const MTag* after) const {
  if (!after) return 0;
  if (!contains(after)) return m_tags.size();
  const auto index = static_cast<std::size_t>(after - m_tags.data());
  return &m_tags[index] == after ? index + 1 : m_tags.size();
}

MTag* MTagList::NEXT_TAG(MFile& file, const MTag* after, bool seek) {
  const std::size_t index = indexBehind(after);
  if (index >= m_tags.size()) return nullptr;
  if (seek) file.SEEK(m_tags[index].m_data_position, 0);
  return &m_tags[index];
}

MTag* MTagList::FIND_TAG(MFile& file, const MTag* after, MTag& tag, std::uint32_t mode, bool seek) {
  return FIND_TAG_EX(file, after, tag, 2, mode, seek);
}

MTag* MTagList::FIND_TAG_EX(MFile& file, const MTag* after, MTag& tag, std::uint32_t version_test,
                            std::uint32_t mode, bool seek) {
  if (m_tags.empty() || !tag.m_name[0]) return nullptr;
  const auto hit = std::find_if(m_tags.begin() + static_cast<std::ptrdiff_t>(indexBehind(after)),
                                m_tags.end(), [&](const MTag& entry) {
                                  return Admits(mode, entry) && entry.COMPARE(tag, 0) &&
                                         passesVersionTest(version_test, entry, tag);
                                });
  if (hit == m_tags.end()) return nullptr;
  if (seek) file.SEEK(hit->m_data_position, 0);
  if (!contains(&tag)) tag = *hit;
  return &*hit;
}

bool MTagList::REMOVE_TAGS(const MTag& tag, std::uint32_t mode) {
  const std::uint64_t key = KeyOf(tag);  // `tag` may be one of those that go
  const std::size_t removed = std::erase_if(
      m_tags, [&](const MTag& entry) { return Admits(mode, entry) && KeyOf(entry) == key; });
  if (removed > 0) m_unwritten->clear();
  return removed > 0;
}

// --- Writing ---

MTag& MTagList::append(const MTag& tag) {
  if (m_tags.size() == m_tags.capacity()) m_unwritten->clear();  // the entries move
  return m_tags.emplace_back(tag);
}

bool MTagList::WRITE_TAG_BEGIN(MFile& file, MTag& tag) {
  const bool is_entry = contains(&tag);
  const std::size_t own = is_entry ? indexBehind(&tag) - 1 : 0;
  MTag* entry = tag.m_name[0] ? m_unwritten->find(m_tags, m_tags.size(), tag) : nullptr;
  if (!entry) entry = &append(tag);
  entry->m_written = false;
  const bool written = entry->WRITE(file);
  entry->m_skip = 0;
  if (!written) m_unwritten->clear();
  (is_entry ? m_tags[own] : tag) = *entry;
  return written;
}

bool MTagList::WRITE_TAG_END(MFile& file, MTag& tag) {
  return tag.UPDATE_SKIP(file);
}
