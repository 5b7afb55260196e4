#include "tag_search.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "tag_walk.h"

namespace qel::tool {
namespace {

constexpr std::size_t kPieceSize = 65536;
constexpr int kConfirming = 2;  // headers behind the first
constexpr unsigned char kHighestMajor = 9;
constexpr unsigned char kHighestMinor = 99;

std::int64_t SkipOf(const char* header) {
  std::uint32_t skip = 0;
  for (std::size_t i = 12; i > 8; --i) skip = skip << 8 | static_cast<unsigned char>(header[i - 1]);
  return static_cast<std::int32_t>(skip);
}

// Letters, filled up with zeros; sensible versions; a body that fits into `left`, header included.
bool LooksLikeHeader(const char* header, std::int64_t left) {
  const auto major = static_cast<unsigned char>(header[6]);
  const auto minor = static_cast<unsigned char>(header[7]);
  if (major == 0 || major > kHighestMajor || minor > kHighestMinor) return false;
  const std::string_view field(header, 6);
  const std::string_view name = field.substr(0, field.find('\0'));
  const auto is_letter = [](char c) { return c >= ' ' && c < 0x7F; };
  const auto is_zero = [](char c) { return c == '\0'; };
  if (name.empty() || !std::all_of(name.begin(), name.end(), is_letter)) return false;
  if (!std::all_of(field.begin() + name.size(), field.end(), is_zero)) return false;
  const std::int64_t skip = SkipOf(header);
  return skip >= 0 && skip <= left - kHeaderSize && name != "QELCOM";
}

// Whether the records behind the one at `position`, which is `header`, confirm it.
bool IsConfirmed(MFile& file, std::int64_t position, std::int64_t end, const char* header) {
  std::array<char, kHeaderSize> next{};
  for (int i = 0; i < kConfirming; ++i) {
    position += kHeaderSize + SkipOf(header);
    if (position == end) return true;
    if (end - position < kHeaderSize || !file.SEEK(position, 0)) return false;
    if (file.READ(next.data(), next.size()) != next.size()) return false;
    header = next.data();
    if (!LooksLikeHeader(header, end - position)) return false;
  }
  return true;
}

bool StandsInside(const char* header) {
  return std::memcmp(header, "DATA", 5) == 0 || std::memcmp(header, "MUID", 5) == 0;
}

}  // namespace

std::int64_t FindRecords(MFile& file, std::int64_t begin, std::int64_t end, bool top_level) {
  std::string piece(kPieceSize, '\0');
  while (end - begin >= kHeaderSize) {
    const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(end - begin, kPieceSize));
    if (!file.SEEK(begin, 0) || file.READ(piece.data(), wanted) != wanted) return end;
    const std::size_t starts = wanted - kHeaderSize + 1;
    for (std::size_t i = 0; i < starts; ++i, ++begin) {
      const char* header = piece.data() + i;
      if (!LooksLikeHeader(header, end - begin) || (top_level && StandsInside(header))) continue;
      if (IsConfirmed(file, begin, end, header)) return begin;
    }
  }
  return end;
}

}  // namespace qel::tool
