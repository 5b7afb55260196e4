// The names of a folder, and their order.
#include <algorithm>
#include <array>
#include <span>

#include "qelbase/outside/system/listings_internal.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

namespace {

using Key = EntryKey;
using Keys = std::span<Key>;

// As many characters as fit, with the same number of bits each; a larger one counts as the largest.
template <class Char>
std::uint64_t headOf(std::basic_string_view<Char> upper) {
  constexpr unsigned bits = sizeof(Char) == 1 ? 8 : 16;
  constexpr std::uint32_t largest = (1u << bits) - 1;
  std::uint64_t head = 0;
  for (std::size_t i = 0; i < 64 / bits; ++i) {
    const std::uint32_t c = i < upper.size() ? static_cast<std::uint32_t>(upper[i]) : 0;
    head = head << bits | std::min(c, largest);
  }
  return head;
}

template <class UpperOf>
std::size_t commonLength(Keys keys, UpperOf upper_of) {
  const auto first = upper_of(keys.front().index);
  std::size_t length = first.size();
  for (const Key& key : keys) {
    const auto other = upper_of(key.index).substr(0, length);
    const auto differs = std::ranges::mismatch(other, first).in1;
    length = static_cast<std::size_t>(differs - other.begin());
  }
  return length;
}

// One counting sort for each byte in which heads differ.
void sortByHead(Keys keys) {
  std::uint64_t differing = 0;
  for (const Key& key : keys) differing |= key.head ^ keys.front().head;
  std::vector<Key> sorted(keys.size());
  for (unsigned shift = 0; shift < 64; shift += 8) {
    if ((differing >> shift & 0xFF) == 0) continue;
    std::array<std::uint32_t, 257> start{};
    for (const Key& key : keys) ++start[(key.head >> shift & 0xFF) + 1];
    for (std::size_t i = 1; i < start.size(); ++i) start[i] += start[i - 1];
    for (const Key& key : keys) sorted[start[key.head >> shift & 0xFF]++] = key;
    std::ranges::copy(sorted, keys.begin());
  }
}

// `upper_of(i)` is the upper-cased text of a name; `precedes(i, j)` decides where those are equal.
template <class UpperOf, class Precedes>
void sortKeys(Keys keys, UpperOf upper_of, Precedes precedes) {
  constexpr std::size_t few = 64;
  const std::size_t common = commonLength(keys, upper_of);
  const bool all_equal = std::ranges::all_of(
      keys, [&](const Key& key) { return upper_of(key.index).size() == common; });
  if (keys.size() <= few || all_equal) {
    std::ranges::sort(keys, [&](const Key& a, const Key& b) {
      const int order = upper_of(a.index).compare(upper_of(b.index));
      return order != 0 ? order < 0 : precedes(a.index, b.index);
    });
    return;
  }
  for (Key& key : keys) key.head = headOf(upper_of(key.index).substr(common));
  sortByHead(keys);
  for (auto run = keys.begin(); run != keys.end();) {
    const auto end =
        std::find_if(run, keys.end(), [run](const Key& key) { return key.head != run->head; });
    if (end - run > 1) sortKeys(Keys(run, end), upper_of, precedes);
    run = end;
  }
}

char upperOf(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

}  // namespace

std::wstring Entry::name() const {
  return FromNative(native);
}

void EntryList::clear() {
  m_items.clear();
  m_names.clear();
}

EntryList::Item EntryList::itemOf(const Entry& entry) {
  const std::size_t start = m_names.size();
  m_names.append(entry.native).push_back('\0');
  const auto length = static_cast<std::uint32_t>(entry.native.size());
  return {start, length, entry.is_folder, entry.is_link, entry.is_regular};
}

void EntryList::add(const Entry& entry) {
  m_items.push_back(itemOf(entry));
}

void EntryList::addFirst(const Entry& entry) {
  m_items.insert(m_items.begin(), itemOf(entry));
}

bool EntryList::isPlain() const {
  return std::ranges::all_of(m_items,
                             [this](const Item& item) { return IsPlainName(nativeOf(item)); });
}

// All names are ASCII, so that their bytes can be compared.
void EntryList::sortPlain(Keys keys) const {
  std::string upper = m_names;
  for (char& c : upper) c = upperOf(c);
  const auto upper_of = [&](std::size_t i) {
    return std::string_view(&upper[m_items[i].start], m_items[i].length);
  };
  sortKeys(keys, upper_of, [this](std::size_t a, std::size_t b) {
    return nativeOf(m_items[a]) < nativeOf(m_items[b]);
  });
}

void EntryList::sortWide(Keys keys) const {
  std::vector<std::wstring> names;
  for (const Item& item : m_items) names.push_back(FromNative(nativeOf(item)));
  std::vector<std::wstring> upper = names;
  for (std::wstring& text : upper) std::ranges::transform(text, text.begin(), ToUpper);
  const auto upper_of = [&](std::size_t i) { return std::wstring_view(upper[i]); };
  sortKeys(keys, upper_of, [&](std::size_t a, std::size_t b) { return names[a] < names[b]; });
}

void EntryList::sort() {
  if (m_items.empty()) return;
  std::vector<Key> keys(m_items.size());
  for (std::uint32_t i = 0; i < keys.size(); ++i) keys[i].index = i;
  isPlain() ? sortPlain(keys) : sortWide(keys);
  EntryList sorted;
  sorted.m_items.reserve(m_items.size());
  sorted.m_names.reserve(m_names.size());
  for (const Key& key : keys) sorted.add((*this)[key.index]);
  *this = std::move(sorted);
}

}  // namespace qel::sys
