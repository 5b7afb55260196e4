#pragma once
// The memory of a tagged file's list, and what makes its use fast.

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "qelbase/tagged/MTag.h"
#include "qelbase/tagged/UnwrittenTags_internal.h"
#include "qelbase/tagged/tags_internal.h"

namespace qel::tagged {

// Values in blocks that double, so that there are few of them. A value never moves, and all go at
// once.
template <class T>
class Arena {
 public:
  T* add(const T& value) {
    if (m_next == m_end) addBlock();
    ++m_count;
    return new (m_next++) T(value);
  }

  void clear() { *this = {}; }
  std::size_t count() const { return m_count; }

  bool contains(const T* value) const {
    const std::less<const void*> before;
    for (auto block = m_blocks.rbegin(); block != m_blocks.rend(); ++block) {
      const std::byte* const begin = block->bytes.get();
      if (before(value, begin) || !before(value, begin + block->size)) continue;
      const auto offset = reinterpret_cast<const std::byte*>(value) - begin;
      const bool is_made = block != m_blocks.rbegin() || before(value, m_next);
      return is_made && offset % static_cast<std::ptrdiff_t>(sizeof(T)) == 0;
    }
    return false;
  }

  // In the order of their coming.
  template <class Use>
  void forEach(Use use) const {
    std::size_t left = m_count;
    for (const Block& block : m_blocks) {
      const T* value = reinterpret_cast<const T*>(block.bytes.get());
      const std::size_t here = std::min(left, block.size / sizeof(T));
      for (const T* const end = value + here; value != end; ++value) use(*value);
      left -= here;
    }
  }

 private:
  static_assert(std::is_trivially_destructible_v<T>);

  struct Free {
    void operator()(std::byte* bytes) const { std::free(bytes); }
  };
  struct Block {
    std::unique_ptr<std::byte, Free> bytes;
    std::size_t size;
  };

  // Large blocks lie on huge pages where the system has them: touching a million nodes for the
  // first time costs more than filling them otherwise.
  [[gnu::noinline]] void addBlock() {
    constexpr std::size_t huge_page = std::size_t{2} << 20;
    const std::size_t wanted = (std::size_t{64} << m_blocks.size()) * sizeof(T);
    const bool is_large = wanted >= huge_page;
    const std::size_t alignment = is_large ? huge_page : std::size_t{64};
    const std::size_t size = (wanted + alignment - 1) / alignment * alignment;
    auto* const bytes = static_cast<std::byte*>(std::aligned_alloc(alignment, size));
    if (!bytes) throw std::bad_alloc();
    m_blocks.push_back({std::unique_ptr<std::byte, Free>(bytes), size});
    if (is_large) madvise(bytes, size, MADV_HUGEPAGE);
    m_next = reinterpret_cast<T*>(bytes);
    m_end = m_next + size / sizeof(T);
  }

  std::vector<Block> m_blocks;
  T* m_next = nullptr;
  T* m_end = nullptr;
  std::size_t m_count = 0;
};

// What makes a list node of a tag that was written: a third of its size.
struct WrittenTag {
  std::uint64_t front;  // name and version as in the header
  std::int64_t position;

  explicit WrittenTag(const MTag& tag) : front(FrontOf(tag)), position(tag.m_position) {}

  MTag node() const {
    MTag tag;
    SetFront(tag, front);
    tag.m_written = true;
    tag.m_position = position;
    tag.m_data_position = position + MTag::HeaderSize;
    return tag;
  }
};

struct TagNodes {
  Arena<MTag> list;            // removed ones included
  MTag* last = nullptr;        // of the list
  Arena<WrittenTag> behind;    // tags behind the last node, which nobody has asked for yet
  MTag* handed_out = nullptr;  // the latest; once there is one, the caller may have changed nodes
  UnwrittenTags unwritten;
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
