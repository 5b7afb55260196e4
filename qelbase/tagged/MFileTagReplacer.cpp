#include "qelbase/tagged/MFileTagReplacer.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t kFileBuffer = 262144;
constexpr std::size_t kLineBuffer = 4096;
constexpr std::size_t kMostGrowth = 1 << 20;
constexpr char kLineEnd = '\r';

std::string_view View(const CStringA& text) {
  return {text.GetString(), static_cast<std::size_t>(text.GetLength())};
}

// glibc's search is far ahead of std::string's on short markers.
std::size_t Find(std::string_view text, std::string_view marker, std::size_t from) {
  const void* found =
      ::memmem(text.data() + from, text.size() - from, marker.data(), marker.size());
  if (!found) return std::string_view::npos;
  return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

bool Holds(std::string_view text, std::string_view marker) {
  return Find(text, marker, 0) != std::string_view::npos;
}

// All occurrences, in one pass.
void ReplaceAll(std::string& text, std::string_view marker, std::string_view replacement) {
  if (marker.empty()) return;
  std::string replaced;
  std::size_t from = 0;
  for (auto at = Find(text, marker, 0); at != std::string::npos; at = Find(text, marker, from)) {
    replaced.append(text, from, at - from).append(replacement);
    from = at + marker.size();
  }
  replaced.append(text, from);
  text.swap(replaced);
}

void ReplaceByKeptRule(std::string& text, std::string_view marker, std::string_view replacement) {
  const bool once = Holds(replacement, marker);
  const std::size_t limit = text.size() + kMostGrowth;
  // A replacement as long as its marker can only move it: each pass by a place.
  std::size_t passes = text.size() + 1;
  do {
    ReplaceAll(text, marker, replacement);
  } while (!once && Holds(text, marker) && text.size() < limit && --passes != 0);
}

template <class Rules>
void DeleteAll(Rules& rules) {
  for (const MReplaceTag* rule : rules) delete rule;
  rules.clear();
}

}  // namespace

// The lines of the source, and what comes behind the last of them.
class MFileTagReplacer::Template {
 public:
  explicit Template(MFile& source) : m_source(source), m_buffer(kLineBuffer) {}

  // The next line without its end; false if no line end comes any more.
  bool NextLine(std::string& line) {
    if (TakeLine(line)) return true;
    const std::size_t length = LengthToLineEnd();
    if (length == 0) return false;
    m_buffer.resize(length + 1);
    const bool taken = TakeLine(line);
    m_buffer.resize(kLineBuffer);
    return taken;
  }

  std::size_t Rest(char* buffer) { return m_source.READ(buffer, kLineBuffer); }

 private:
  bool TakeLine(std::string& line) {
    static constexpr char kTerminators[] = {kLineEnd, '\0'};
    const auto length = m_source.READ_STRING_UNTIL(m_buffer.data(), kTerminators, m_buffer.size());
    if (length == static_cast<std::size_t>(-1)) return false;
    line.assign(m_buffer.data(), length);
    return true;
  }

  // From the position on, the line end included; 0 if there is none. The position stays.
  std::size_t LengthToLineEnd() {
    const std::int64_t start = m_source.TELL();
    std::size_t length = 0;
    std::vector<char> block(kFileBuffer);
    std::size_t found = 0;
    while (found == 0) {
      const std::size_t count = m_source.READ(block.data(), block.size());
      if (count == 0) break;
      if (const void* end = std::memchr(block.data(), kLineEnd, count)) {
        found = length + static_cast<std::size_t>(static_cast<const char*>(end) - block.data()) + 1;
      }
      length += count;
    }
    return m_source.SEEK(start, 0) ? found : 0;
  }

  MFile& m_source;
  std::vector<char> m_buffer;
};

MFileTagReplacer::MFileTagReplacer() : MFile(kFileBuffer) {}

MFileTagReplacer::~MFileTagReplacer() {
  ClearTags();
  _ClearCopyTags();
}

void MFileTagReplacer::Append(MReplaceTag* tag) {
  if (tag) m_tags.push_back(tag);
}

void MFileTagReplacer::ClearTags() {
  DeleteAll(m_tags);
}
void MFileTagReplacer::_ClearCopyTags() {
  DeleteAll(m_copy_tags);
}

void MFileTagReplacer::ResetTagList() {
  _ClearCopyTags();
  m_copy_tags.reserve(m_tags.size());
  for (const MReplaceTag* tag : m_tags) m_copy_tags.push_back(new MReplaceTag(*tag));
}

MFileTagReplacer::Outcome MFileTagReplacer::Replace(std::string& line) {
  Outcome outcome;
  for (auto at = m_copy_tags.begin(); at != m_copy_tags.end();) {
    const MReplaceTag& rule = **at;
    if (!Holds(line, View(rule.m_search))) {
      ++at;
      continue;
    }
    if (rule.m_keep) {
      ReplaceByKeptRule(line, View(rule.m_search), View(rule.m_replacement));
      outcome.kept_again |= !rule.m_last;
      ++at;
    } else {
      ReplaceAll(line, View(rule.m_search), View(rule.m_replacement));
      outcome.again |= !rule.m_last;
      delete *at;
      at = m_copy_tags.erase(at);
    }
  }
  return outcome;
}

bool MFileTagReplacer::ReplaceAllTagsInString(const char* text, CStringA& result) {
  std::string line = text ? text : "";
  const Outcome outcome = Replace(line);
  result = CStringA(line);
  return !outcome.again && !outcome.kept_again;
}

void MFileTagReplacer::WriteLine(const std::string& line) {
  WRITE(line.data(), line.size());
  WRITE(&kLineEnd, 1);
}

bool MFileTagReplacer::ReplaceAllTagsInFile(MFile& source) {
  ResetTagList();
  Template lines(source);
  std::string original;
  std::string line;
  while (!source.FEOF()) {
    if (!lines.NextLine(original)) {
      char rest[kLineBuffer];
      WRITE(rest, lines.Rest(rest));
      break;
    }
    Outcome outcome;
    do {
      line = original;
      outcome = Replace(line);
      WriteLine(line);
    } while (outcome.again);
  }
  return true;
}
