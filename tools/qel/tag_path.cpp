#include "tag_path.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <stdexcept>

namespace qel::tool {
namespace {

constexpr std::size_t kNameSize = 6;

[[noreturn]] void Refuse(std::string_view step, const char* why) {
  throw std::invalid_argument(std::string(step) + ": " + why);
}

// The byte behind a backslash; moves `text` behind it.
char Unescape(std::string_view step, std::string_view& text) {
  if (!text.empty() && text[0] == '\\') {
    text.remove_prefix(1);
    return '\\';
  }
  unsigned value = 0;
  const bool hex =
      text.size() >= 3 && text[0] == 'x' &&
      std::from_chars(text.data() + 1, text.data() + 3, value, 16).ptr == text.data() + 3;
  if (!hex) Refuse(step, "a backslash needs a backslash or xNN behind it");
  text.remove_prefix(3);
  return static_cast<char>(value);
}

std::string ParseName(std::string_view step, std::string_view text) {
  if (text.empty()) Refuse(step, "a name is missing; an empty one is written \\x00");
  std::string name;
  while (!text.empty()) {
    const char c = text[0];
    text.remove_prefix(1);
    name += c == '\\' ? Unescape(step, text) : c;
  }
  name.resize(std::min(name.size(), name.find('\0')));
  if (name.size() > kNameSize) Refuse(step, "a name has at most 6 bytes");
  return name;
}

PathStep ParseStep(std::string_view step) {
  const std::size_t bracket = step.find('[');
  PathStep parsed;
  parsed.name = ParseName(step, step.substr(0, bracket));
  if (bracket == std::string_view::npos) return parsed;
  const std::string_view number = step.substr(bracket + 1);
  const char* const end = number.data() + number.size();
  const auto [stop, error] = std::from_chars(number.data(), end, parsed.index);
  if (error != std::errc{} || stop + 1 != end || *stop != ']' || parsed.index == 0) {
    Refuse(step, "[n] takes a number from 1");
  }
  return parsed;
}

bool Plain(char c) {
  return c > ' ' && c < 0x7F && c != '/' && c != '[' && c != ']' && c != '\\';
}

}  // namespace

TagPath ParseTagPath(std::string_view text) {
  TagPath path;
  for (;;) {
    const std::size_t slash = text.find('/');
    path.push_back(ParseStep(text.substr(0, slash)));
    if (slash == std::string_view::npos) return path;
    text.remove_prefix(slash + 1);
  }
}

std::string StepText(std::string_view name, std::size_t index) {
  std::string text;
  for (const char c : name) {
    if (Plain(c)) {
      text += c;
      continue;
    }
    std::array<char, 8> escape{};
    std::snprintf(escape.data(), escape.size(), "\\x%02x",
                  static_cast<unsigned>(static_cast<unsigned char>(c)));
    text += escape.data();
  }
  if (text.empty()) text = "\\x00";
  if (index > 1) text.append("[").append(std::to_string(index)).append("]");
  return text;
}

Place Locate(MFile& file, const TagPath& path, const TagWalker::Report& report) {
  TagWalker walker(file, report);
  Place place;
  place.end = kHeaderSize;
  if (!walker.ReadHead()) return place;
  TagNode node;
  while (walker.Next(node)) {
    const std::size_t level = place.chain.size();
    if (node.depth < level) break;  // the level of the next step is over
    const PathStep& step = path[level];
    const bool hit = NameOf(node.tag) == step.name && ++place.equal_names == step.index;
    place.end = node.tag.m_data_position + node.tag.m_skip;
    if (!hit) {
      walker.StepOver();
      continue;
    }
    place.chain.push_back(node.tag);
    if (place.Found(path)) break;
    place.equal_names = 0;
    place.end = node.tag.m_data_position;
    if (!node.holds_tags) break;
  }
  return place;
}

std::string PathNamer::Name(const TagNode& node) {
  m_levels.resize(node.depth + 1);
  Level& level = m_levels.back();
  if (level.counts.empty()) level.prefix = m_path.size();
  m_path.resize(level.prefix);
  if (node.depth > 0) m_path += '/';
  m_path += StepText(NameOf(node.tag), ++level.counts[std::string(NameOf(node.tag))]);
  return m_path;
}

}  // namespace qel::tool
