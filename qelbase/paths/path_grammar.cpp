#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

#include "qelbase/paths/path_grammar_internal.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace qel::paths {
namespace {

bool EndsElement(wchar_t c) {
  return IsSeparator(c) || c == L':';
}

// The characters of a block that mean something, one bit each, the first the lowest.
struct Masks {
  std::uint32_t separators = 0, colons = 0, dots = 0;
};
constexpr std::size_t kBlock = 16;

#ifdef __SSE2__
Masks Classify(const wchar_t* text) {
  static_assert(sizeof(wchar_t) == 4);
  const auto load = [text](std::size_t i) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
  };
  // Sixteen bytes; a character above 0xFF becomes 0xFF.
  const __m128i bytes =
      _mm_packus_epi16(_mm_packs_epi32(load(0), load(4)), _mm_packs_epi32(load(8), load(12)));
  const auto where = [bytes](char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
  const auto mask = [](__m128i hits) {
    return static_cast<std::uint32_t>(_mm_movemask_epi8(hits));
  };
  return {mask(_mm_or_si128(where('\\'), where('/'))), mask(where(':')), mask(where('.'))};
}
#else
Masks Classify(const wchar_t* text) {
  Masks masks;
  for (std::size_t i = 0; i < kBlock; ++i) {
    masks.separators |= std::uint32_t{IsSeparator(text[i])} << i;
    masks.colons |= std::uint32_t{text[i] == L':'} << i;
    masks.dots |= std::uint32_t{text[i] == L'.'} << i;
  }
  return masks;
}
#endif

// A path with its first and its last block looked at. What is sought lies there as a rule, so that
// no search is a loop whose length the processor has to guess.
class Scan {
 public:
  explicit Scan(std::wstring_view path) : m_path(path) {
    if (path.size() >= kBlock) {
      m_tail_begin = path.size() - kBlock;
      m_head = Classify(path.data());
      m_tail = Classify(path.data() + m_tail_begin);
    } else {
      std::array<wchar_t, kBlock> padded{};
      std::copy(path.begin(), path.end(), padded.begin());
      m_head = m_tail = Classify(padded.data());
    }
  }

  // Each gives the index, or the length of the path if there is none.
  [[nodiscard]] std::size_t Separator(std::size_t from) const {
    return First(m_head.separators, from, IsSeparator);
  }
  [[nodiscard]] std::size_t ElementEnd(std::size_t from) const {
    return First(m_head.separators | m_head.colons, from, EndsElement);
  }

  // Each gives the index behind it. Without one: 0, or what is not above `down_to`.
  [[nodiscard]] std::size_t BehindLastSeparator() const {
    return BehindLast(m_tail.separators, 0, IsSeparator);
  }
  [[nodiscard]] std::size_t BehindLastDot(std::size_t down_to) const {
    return BehindLast(m_tail.dots, down_to, [](wchar_t c) { return c == L'.'; });
  }

 private:
  template <class Predicate>
  std::size_t First(std::uint32_t head, std::size_t from, Predicate predicate) const {
    if (const std::uint32_t rest = from < kBlock ? head >> from : 0; rest != 0) {
      return from + static_cast<std::size_t>(std::countr_zero(rest));
    }
    const auto at = std::find_if(m_path.begin() + std::max(from, std::min(kBlock, m_path.size())),
                                 m_path.end(), predicate);
    return static_cast<std::size_t>(at - m_path.begin());
  }

  template <class Predicate>
  std::size_t BehindLast(std::uint32_t tail, std::size_t down_to, Predicate predicate) const {
    if (tail != 0) return m_tail_begin + static_cast<std::size_t>(std::bit_width(tail));
    std::size_t end = m_tail_begin;
    while (end > down_to && !predicate(m_path[end - 1])) --end;
    return end;
  }

  std::wstring_view m_path;
  std::size_t m_tail_begin = 0;
  Masks m_head, m_tail;
};

std::size_t SkipSeparators(std::wstring_view path, std::size_t from) {
  while (from < path.size() && IsSeparator(path[from])) ++from;
  return from;
}

bool StartsWithTwoSeparators(std::wstring_view path) {
  return path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1]);
}

bool StartsLikeNetwork(std::wstring_view path) {
  return StartsWithTwoSeparators(path) && (path.size() == 2 || !IsSeparator(path[2]));
}

bool StartsLikeLongForm(std::wstring_view path) {  // \\?\ and more
  return path.size() > 4 && StartsWithTwoSeparators(path) && path[2] == L'?' &&
         IsSeparator(path[3]);
}

// The first element of a path, as far as it tells of a root.
struct Root {
  std::wstring_view name;  // `C:`, `\\server`, or empty
  std::size_t length;      // of the element, if it is a name or a separator; else 0
};

[[gnu::always_inline]] inline Root FindRoot(std::wstring_view path, const Scan& scan) {
  const bool network = StartsLikeNetwork(path);
  if (!network && IsSeparator(path[0])) return {{}, 1};
  std::size_t end = scan.ElementEnd(network ? 2 : 0);
  const bool colon = end < path.size() && path[end] == L':';
  if (!colon && !network) return {{}, 0};
  if (colon) ++end;
  return {path.substr(0, end), end};
}

[[gnu::always_inline]] inline std::size_t FindRootDirectory(std::wstring_view path,
                                                            const Scan& scan) {
  const auto separator = [&](std::size_t from) {
    const std::size_t at = scan.Separator(from);
    return at < path.size() ? at : kNone;
  };
  if (path.size() > 2 && path[1] == L':' && IsSeparator(path[2])) return 2;
  if (path.size() == 2 && StartsWithTwoSeparators(path)) return kNone;
  if (StartsLikeLongForm(path)) return separator(4);
  if (path.size() > 3 && StartsLikeNetwork(path)) return separator(2);
  return IsSeparator(path[0]) ? 0 : kNone;
}

// Where the relative path begins: the first element on that neither begins with a separator nor
// ends with a colon.
std::size_t RelativeStart(std::wstring_view path, std::size_t root_length, const Scan& scan) {
  if (root_length == 0) return 0;
  std::size_t start = SkipSeparators(path, root_length);
  while (start < path.size()) {
    const std::size_t end = scan.Separator(start);
    if (path[end - 1] != L':') break;
    start = SkipSeparators(path, end);
  }
  return start;
}

// The name at the end of a path, and the dot that its extension begins with.
struct LastElement {
  std::wstring_view text;
  std::size_t dot;  // in `text`, or its size

  [[nodiscard]] bool IsDot() const { return text.size() == 1 && text[0] == L'.'; }
  [[nodiscard]] bool IsTwoDots() const {
    return text.size() == 2 && text[0] == L'.' && text[1] == L'.';
  }
  [[nodiscard]] std::wstring_view Stem() const { return text.substr(0, dot); }
  [[nodiscard]] std::wstring_view Extension() const { return text.substr(dot); }
};

// Of a path that ends in a separator: that separator if it closes the root, else `.`.
LastElement ClosedElement(std::wstring_view path, std::size_t root_directory) {
  std::size_t run = path.size() - 1;
  while (run > 0 && IsSeparator(path[run - 1])) --run;
  const bool closes_root = root_directory != kNone && run <= root_directory;
  return {closes_root ? path.substr(path.size() - 1) : std::wstring_view(L".", 1), 1};
}

// Where the last element of a path begins that does not end in a separator.
std::size_t OpenElementStart(std::wstring_view path, const Scan& scan) {
  const std::size_t start = scan.BehindLastSeparator();
  if (start == 2 && IsSeparator(path[0])) return 0;  // `\\name`
  if (start > 0) return start;
  return path.substr(0, path.size() - 1).rfind(L':') + 1;  // kNone + 1 is 0
}

LastElement FindLastElement(std::wstring_view path, std::size_t root_directory, const Scan& scan) {
  if (path.size() == 2 && StartsWithTwoSeparators(path)) return {path, path.size()};
  if (IsSeparator(path.back())) return ClosedElement(path, root_directory);
  const std::size_t start = OpenElementStart(path, scan);
  LastElement last{path.substr(start), path.size() - start};
  const std::size_t dot = scan.BehindLastDot(start);
  if (dot > start && !last.IsDot() && !last.IsTwoDots()) last.dot = dot - 1 - start;
  return last;
}

// What is left of a relative path without its last element. A closing separator, either of the two,
// stands for a last element `.` and stays.
std::wstring_view DirectoryOf(std::wstring_view relative, const LastElement& last) {
  if (relative.empty() || relative.back() == L'\\') return relative;
  if (relative.back() == L'/' && last.IsDot()) return relative;
  return relative.substr(0, relative.size() - std::min(relative.size(), last.text.size()));
}

void AppendRoot(std::wstring_view path, std::wstring_view name, std::size_t root_directory,
                std::wstring& drive) {
  if (name.size() == root_directory) {
    drive.append(path.substr(0, root_directory + 1));
  } else {
    drive.append(name);
    if (root_directory != kNone) drive += path[root_directory];
  }
}

// Kept apart, so that the others don't pay for the copy.
[[gnu::noinline]] bool SplitClimbing(std::wstring_view path, std::wstring& drive, std::wstring& dir,
                                     std::wstring& file, std::wstring& ext, bool is_directory) {
  const std::wstring rooted = L'\\' + std::wstring(path);  // so it takes a bare `\` as its drive
  return SplitPath(rooted, drive, dir, file, ext, is_directory);
}

}  // namespace

std::wstring_view RootName(std::wstring_view path) {
  return path.empty() ? path : FindRoot(path, Scan(path)).name;
}

std::size_t RootDirectory(std::wstring_view path) {
  return path.empty() ? kNone : FindRootDirectory(path, Scan(path));
}

bool SplitPath(std::wstring_view path, std::wstring& drive, std::wstring& dir, std::wstring& file,
               std::wstring& ext, bool is_directory) {
  if (path.size() >= 2 && path[0] == L'.' && path[1] == L'.') [[unlikely]] {
    return SplitClimbing(path, drive, dir, file, ext, is_directory);
  }
  drive.clear(), dir.clear(), file.clear(), ext.clear();
  if (path.empty()) return false;
  const Scan scan(path);
  const Root root = FindRoot(path, scan);
  const std::wstring_view relative = path.substr(RelativeStart(path, root.length, scan));
  const std::size_t root_directory = FindRootDirectory(path, scan);
  if (is_directory || root_directory != kNone) AppendRoot(path, root.name, root_directory, drive);
  if (is_directory) {
    dir.append(relative);
    return true;
  }
  const LastElement last = FindLastElement(path, root_directory, scan);
  const std::wstring_view stem = last.Stem();
  const bool is_no_name = stem.size() == 1 && (stem[0] == L'\\' || stem[0] == L'.');
  dir.append(DirectoryOf(relative, last));
  if (!is_no_name) file.append(stem);
  ext.append(last.Extension());
  return true;
}

}  // namespace qel::paths
