#pragma once
// The memory of a tagged file's list, and what makes its use fast.

#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <vector>

#include "qelbase/tagged/MTag.h"
#include "qelbase/tagged/UnwrittenTags_internal.h"

namespace qel::tagged {

// Nodes never move, and all go at once. Blocks double, so that a list has few of them.
class TagNodes {
 public:
  MTag* last = nullptr;     // of the list
  bool handed_out = false;  // the caller has pointers to nodes, and may have changed some
  UnwrittenTags unwritten;

  MTag* add(const MTag& tag) {
    if (m_next == m_end) addBlock();
    ++m_count;
    return new (m_next++) MTag(tag);
  }

  // Removed ones included.
  std::size_t count() const { return m_count; }

  bool contains(const MTag* tag) const {
    const std::less<const void*> before;
    for (auto block = m_blocks.rbegin(); block != m_blocks.rend(); ++block) {
      const std::byte* const begin = block->bytes.get();
      if (before(tag, begin) || !before(tag, begin + block->size)) continue;
      const auto offset = reinterpret_cast<const std::byte*>(tag) - begin;
      const bool is_made = block != m_blocks.rbegin() || before(tag, m_next);
      return is_made && offset % static_cast<std::ptrdiff_t>(sizeof(MTag)) == 0;
    }
    return false;
  }

 private:
  struct Free {
    void operator()(std::byte* bytes) const { std::free(bytes); }
  };
  struct Block {
    std::unique_ptr<std::byte, Free> bytes;
    std::size_t size;
  };

  // Large blocks lie on huge pages where the system has them: touching a million nodes for the
  // first time costs more than filling them otherwise.
  void addBlock() {
    constexpr std::size_t huge_page = std::size_t{2} << 20;
    const std::size_t wanted = (std::size_t{64} << m_blocks.size()) * sizeof(MTag);
    const bool is_large = wanted >= huge_page;
    const std::size_t alignment = is_large ? huge_page : alignof(MTag) * 8;
    const std::size_t size = (wanted + alignment - 1) / alignment * alignment;
    auto* const bytes = static_cast<std::byte*>(std::aligned_alloc(alignment, size));
    if (!bytes) throw std::bad_alloc();
    m_blocks.push_back({std::unique_ptr<std::byte, Free>(bytes), size});
    if (is_large) madvise(bytes, size, MADV_HUGEPAGE);
    m_next = reinterpret_cast<MTag*>(bytes);
    m_end = m_next + size / sizeof(MTag);
  }

  std::vector<Block> m_blocks;
  MTag* m_next = nullptr;
  MTag* m_end = nullptr;
  std::size_t m_count = 0;
};

// The list as a range.
class TagChain {
 public:
  class Iterator {
   public:
    explicit Iterator(MTag* tag) : m_tag(tag) {}
    MTag& operator*() const { return *m_tag; }
    Iterator& operator++() {
      m_tag = m_tag->m_next;
      return *this;
    }
    bool operator!=(const Iterator& other) const { return m_tag != other.m_tag; }

   private:
    MTag* m_tag;
  };

  explicit TagChain(MTag* first) : m_first(first) {}
  Iterator begin() const { return Iterator(m_first); }
  Iterator end() const { return Iterator(nullptr); }

 private:
  MTag* m_first;
};

}  // namespace qel::tagged
