#pragma once
// The first tag of a name and major version that is not yet rewritten, without a walk for each.

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "qelbase/tagged/tags_internal.h"

namespace qel::tagged {

// Walks the tags as long as that is cheap, which it is for a few rewritten records, and looks them
// up in an index from then on.
class UnwrittenTags {
 public:
  // Must be called when tags move, go or turn unwritten again.
  void clear() { *this = {}; }

  // `tags` is the range of all `count` tags in their order. The tag that is found must be written
  // before the next call. Null if there is none.
  template <class Tags>
  MTag* find(Tags&& tags, std::size_t count, const MTag& like) {
    if (m_indexed) return m_queues.empty() ? nullptr : fromIndex(KeyOf(like));
    if (m_walked > 4 * count) {
      index(tags);
      return fromIndex(KeyOf(like));
    }
    return walk(tags, KeyOf(like));
  }

 private:
  struct Queue {
    std::vector<MTag*> tags;
    std::size_t next = 0;
  };

  static bool isHit(const MTag& tag, std::uint64_t key) {
    return !tag.m_written && KeyOf(tag) == key;
  }

  template <class Tags>
  MTag* walk(Tags& tags, std::uint64_t key) {
    for (MTag& tag : tags) {
      ++m_walked;
      if (isHit(tag, key)) return &tag;
    }
    return nullptr;
  }

  template <class Tags>
  void index(Tags& tags) {
    for (MTag& tag : tags) {
      if (!tag.m_written) m_queues[KeyOf(tag)].tags.push_back(&tag);
    }
    m_indexed = true;
  }

  MTag* fromIndex(std::uint64_t key) {
    const auto at = m_queues.find(key);
    if (at == m_queues.end()) return nullptr;
    Queue& queue = at->second;
    while (queue.next < queue.tags.size()) {
      MTag* const tag = queue.tags[queue.next++];
      if (isHit(*tag, key)) return tag;
    }
    m_queues.erase(at);
    return nullptr;
  }

  bool m_indexed = false;
  std::size_t m_walked = 0;
  std::unordered_map<std::uint64_t, Queue> m_queues;
};

}  // namespace qel::tagged
