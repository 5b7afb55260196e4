#pragma once
// Entries of folders with no more asked of the system than their kind.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qelbase/outside/system/types.h"

namespace qel::sys {

struct Entry {
  std::string_view native;  // its name; a zero follows. Lives until the list changes
  bool is_folder;           // or a link to one
  bool is_link;
  bool is_regular = false;  // a file, and no link

  [[nodiscard]] std::wstring name() const;
};

struct EntryKey {
  std::uint64_t head;  // the first characters behind what the names begin with
  std::uint32_t index;
};

// The entries of one folder, all names in one text.
class EntryList {
 public:
  [[nodiscard]] std::size_t size() const { return m_items.size(); }
  [[nodiscard]] bool empty() const { return m_items.empty(); }
  [[nodiscard]] Entry operator[](std::size_t index) const {
    const Item& item = m_items[index];
    return {nativeOf(item), item.is_folder, item.is_link, item.is_regular};
  }

  void clear();
  void add(const Entry& entry);
  void addFirst(const Entry& entry);  // in front of all others
  // By upper-cased name; names that are equal so, by code.
  void sort();

 private:
  struct Item {
    std::uint64_t start;  // in m_names
    std::uint32_t length;
    bool is_folder;
    bool is_link;
    bool is_regular;
  };

  std::string_view nativeOf(const Item& item) const {
    return {m_names.data() + item.start, item.length};
  }
  Item itemOf(const Entry& entry);
  bool isPlain() const;
  void sortPlain(std::span<EntryKey> keys) const;
  void sortWide(std::span<EntryKey> keys) const;

  std::vector<Item> m_items;
  std::string m_names;
};

// The entries that answer to `path` as in FindFirstFileW, in its order. 0 or the code, and then
// `entries` is empty.
[[nodiscard]] DWORD ListEntries(std::wstring_view path, EntryList& entries);

// All entries of an open folder in that order, without `.` and `..`; is_folder is false for every
// link. Reads from the folder's beginning. 0 or errno.
[[nodiscard]] int ListOpenFolder(int folder, EntryList& entries);

}  // namespace qel::sys
