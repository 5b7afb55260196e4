// Opening, and the list of tags; what happens to the old file is in MFileTagged_backup.cpp.
#include "qelbase/tagged/MFileTagged.h"

#include <string>

#include "qelbase/outside/system/errors.h"
#include "qelbase/tagged/TagNodes_internal.h"
#include "qelbase/tagged/storage_internal.h"
#include "qelbase/tagged/tags_internal.h"

using qel::tagged::Admits;
using qel::tagged::KeyOf;

MFileTagged::MFileTagged()
    : MFile(qel::tagged::BufferSize), m_nodes(std::make_unique<qel::tagged::TagNodes>()) {}

MFileTagged::~MFileTagged() = default;

bool MFileTagged::_OPEN(const wchar_t* name, int mode) {
  const std::wstring own_name = name ? name : L"";  // `name` may point into this object
  MFile::CLOSE();
  m_backup_name.FREE();
  m_tags = nullptr;
  m_nodes = std::make_unique<qel::tagged::TagNodes>();
  if (mode == 2) return openWrite(own_name);
  if (mode != 1 && mode != 3) return _Fail(qel::sys::ERROR_INVALID_PARAMETER);
  if (!MFile::_OPEN(own_name.c_str(), mode)) return false;
  scan();
  return true;
}

bool MFileTagged::openWrite(const std::wstring& name) {
  const std::uint32_t earlier = GET_RESULT();
  RESET_RESULT();
  const bool opened = setAside(name) && openFresh(name);
  if (earlier != 0) {  // the first error is what the caller is to find
    RESET_RESULT();
    _Fail(earlier);
  }
  return opened;
}

bool MFileTagged::openFresh(const std::wstring& name) {
  if (!m_backup_name.IS_EMPTY()) {
    qel::tagged::CreateLike(m_backup_name.GET(), qel::tagged::FollowLinks(name));
  }
  MTag head("QELCOM");
  if (MFile::_OPEN(name.c_str(), 2) && head.WRITE(*this) && head.UPDATE_SKIP(*this)) return true;
  MFile::CLOSE();
  return false;
}

// Lists the tags. True if the file is whole: it ends where its last tag ends.
bool MFileTagged::scan() {
  return qel::tagged::WalkRecords(*this, [this](const MTag& tag) { append(tag); });
}

MTag* MFileTagged::append(const MTag& tag) {
  MTag* const node = m_nodes->list.add(tag);
  node->m_next = nullptr;
  (m_tags ? m_nodes->last->m_next : m_tags) = node;
  m_nodes->last = node;
  return node;
}

inline void MFileTagged::completeList() {
  if (m_nodes->behind.count() != 0) appendWritten();
}

// Makes nodes of the tags that were written since the list was last looked at.
void MFileTagged::appendWritten() {
  m_nodes->behind.forEach([this](const qel::tagged::WrittenTag& tag) { append(tag.node()); });
  m_nodes->behind.clear();
}

// --- Tags ---

bool MFileTagged::READ_TAG(MTag& tag) {
  return tag.READ(*this);
}

bool MFileTagged::WRITE_TAG_BEGIN(MTag& tag) {
  const bool is_node = tag.m_position >= 0 && m_nodes->list.contains(&tag);
  MTag* const next = is_node ? tag.m_next : nullptr;  // `tag` may come from another list
  MTag* const old = is_node && !tag.m_written ? &tag : findUnwritten(tag);
  if (old) {
    old->m_version[1] = tag.m_version[1];  // the major ones are equal
    writeHeader(*old);
    tag = *old;
    if (is_node) tag.m_next = next;
  } else {
    const bool was_updated = tag.m_updated;
    writeHeader(tag);
    tag.m_updated = was_updated;
    tag.m_next = next;
    m_nodes->behind.add(qel::tagged::WrittenTag(tag));
  }
  return true;
}

MTag* MFileTagged::findUnwritten(const MTag& like) {
  if (!m_tags) return nullptr;
  return m_nodes->unwritten.find(qel::tagged::TagChain(m_tags), m_nodes->list.count(), like);
}

void MFileTagged::writeHeader(MTag& tag) {
  qel::tagged::WriteHeader(*this, tag);
  tag.m_written = true;  // even if it failed: its positions are no longer those of the old file
  tag.m_skip = 0;
}

bool MFileTagged::WRITE_TAG_END(MTag& tag) {
  if (tag.m_position < 0) return false;
  const std::int64_t skip = POSITION() - tag.m_data_position;
  if (!qel::tagged::FitsSkip(skip)) {
    qel::tagged::LogUnfitSkip(L"In MFileTagged::WRITE_TAG_END() : ", tag, skip);
    return false;
  }
  tag.m_skip = skip;
  tag.m_updated = false;
  const auto header = qel::tagged::Encode(tag);
  if (OVERWRITE(tag.m_position, header.data(), header.size())) tag.m_written = true;
  return true;
}

// `after` may be a copy that is older than the list.
MTag* MFileTagged::behind(const MTag* after) const {
  if (after && after == m_nodes->handed_out) return after->m_next;
  MTag* const next = after ? after->m_next : m_tags;
  return m_nodes->list.contains(next) ? next : nullptr;
}

MTag* MFileTagged::handOut(MTag* node, bool seek) {
  if (seek) SEEK(node->m_data_position, 0);
  m_nodes->handed_out = node;
  return node;
}

MTag* MFileTagged::NEXT_TAG(const MTag* after, bool seek) {
  completeList();
  MTag* const node = m_tags ? behind(after) : nullptr;
  return node ? handOut(node, seek) : nullptr;
}

MTag* MFileTagged::FIND_TAG(const MTag* after, MTag& tag, std::uint32_t mode, bool seek) {
  completeList();
  if (!m_tags) return nullptr;
  const std::uint64_t key = KeyOf(tag);
  for (MTag* node = behind(after); node; node = node->m_next) {
    if (!Admits(mode, *node) || KeyOf(*node) != key) continue;
    if (!m_nodes->list.contains(&tag)) tag = *node;
    return handOut(node, seek);
  }
  return nullptr;
}

bool MFileTagged::REMOVE_TAGS(const MTag& tag, [[maybe_unused]] std::uint32_t mode) {
  completeList();
  const std::uint64_t key = KeyOf(tag);
  bool removed = false;
  MTag* last = nullptr;
  for (MTag** link = &m_tags; *link;) {
    if (KeyOf(**link) == key) {
      *link = (*link)->m_next;  // the node's memory goes with the list
      removed = true;
    } else {
      last = *link;
      link = &last->m_next;
    }
  }
  m_nodes->last = last;
  if (removed) m_nodes->unwritten.clear();
  return removed;
}
