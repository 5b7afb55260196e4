#pragma once
// Walks the tags of a tagged file, however large and however damaged, in bounded memory.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qelbase/outside/components/MFile.h"
#include "qelbase/tagged/MTag.h"

#include "session.h"

namespace qel::tool {

inline constexpr std::int64_t kHeaderSize = 12;

// What can be wrong with a tagged file.
enum class Rule {
  kHead,        // the file does not begin with a whole head tag
  kHeadSkip,    // the head tag tells a body; it has none
  kStrayHead,   // a head tag stands behind the start of the file
  kTrailing,    // fewer bytes are left than a header takes
  kNegative,    // a skip below 0
  kCutBody,     // a body runs past the end of the file
  kOverrun,     // the body of a sub-tag runs past the body that encloses it
  kZeroHeader,  // zero bytes where a header should stand
  kTooDeep,     // more levels than the walker follows
  kUnreadable,  // the system cannot read here
  kBackup,      // an interrupted write has left its backup
};

// A stable word for the rule, such as "cut-body".
std::string_view RuleName(Rule rule);

// kTrouble where the system cannot read, else kFindings.
ExitCode SeverityOf(Rule rule);

struct Finding {
  Rule rule{};
  std::int64_t position = 0;  // in bytes from the start of the file
  std::string name;           // the tag's, in raw bytes; or the backup's file name
  std::int64_t told = 0;      // what the file says, in bytes
  std::int64_t present = 0;   // what there is, in bytes
  std::size_t depth = 0;      // the level that is damaged, 0 at top
  std::int64_t end = 0;       // where the bytes that no tag explains end
};

// "cut-body: the body of ...", for people; with the place, "position 40: cut-body: ...".
std::string DescribeRule(const Finding& finding, bool hex);
std::string Describe(const Finding& finding, bool hex);

struct TagNode {
  MTag tag;
  std::size_t depth = 0;    // 0 at top level
  bool holds_tags = false;  // the body is a run of sub-tags, not raw bytes
};

// Whether the format says that the tag's body is a run of sub-tags.
bool HoldsTags(const MTag& tag);
bool IsHeadTag(const MTag& tag);
// The name's bytes up to the first zero.
std::string_view NameOf(const MTag& tag);

// Gives tag after tag in file order, each directly before its sub-tags. Damage is reported and ends
// the level that it stands in, as it does for every reader; the walk goes on behind the enclosing
// tag. With `search` it goes on at the next records of that level that can be found. Every position
// and skip that is given lies inside the file. Memory: one small entry a level, at most kMaxDepth.
class TagWalker {
 public:
  using Report = std::function<void(const Finding&)>;
  static constexpr std::size_t kMaxDepth = 65536;

  // `file` is open for reading, stays the caller's, and may be moved between the calls.
  TagWalker(MFile& file, Report report, bool search = false);

  // Reads the head tag. False, with a finding, when the file is no tagged file; Next then starts
  // at position 12 all the same.
  bool ReadHead();
  const MTag& Head() const { return m_head; }

  // The next tag; false at the end.
  bool Next(TagNode& node);
  // The next call of Next leaves out the sub-tags of the tag just given.
  void StepOver() { m_enter = false; }

 private:
  struct Level {
    std::int64_t next;  // position of the next header
    std::int64_t end;   // where the enclosing body or the file ends
  };

  void Enter();
  bool ReadTag(MTag& tag);
  bool ReadHeader(const Level& level, MTag& tag);
  std::optional<Rule> WhatIsWrong(const Level& level, const MTag& tag) const;
  void PassDamage(Rule rule, Level& level, const MTag& tag);
  bool Damage(Rule rule, const Level& level, const MTag* tag = nullptr) {
    return Damage(rule, level, tag, level.end);
  }
  bool Damage(Rule rule, const Level& level, const MTag* tag, std::int64_t end);

  MFile& m_file;
  Report m_report;
  bool m_search;
  MTag m_head;
  std::vector<Level> m_levels;
  Level m_body{};        // the body of the tag just given
  bool m_enter = false;  // ... is to be walked
};

}  // namespace qel::tool
