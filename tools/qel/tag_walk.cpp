#include "tag_walk.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "session.h"
#include "tag_search.h"

namespace qel::tool {
namespace {

struct RuleText {
  Rule rule;
  std::string_view name;
  std::string_view text;  // %n the name, %t what is told, %p what is present
};

constexpr std::array kRules{
    RuleText{Rule::kHead, "head", "the file does not begin with a head tag \"QELCOM\""},
    RuleText{Rule::kHeadSkip, "head-skip", "the head tag tells a body of %t bytes; it has none"},
    RuleText{Rule::kStrayHead, "stray-head", "a head tag stands inside the file"},
    RuleText{Rule::kTrailing, "trailing-bytes", "%p bytes are left, too few for a header"},
    RuleText{Rule::kNegative, "negative-skip", "the skip of \"%n\" is %t"},
    RuleText{Rule::kCutBody, "cut-body",
             "the body of \"%n\" should have %t bytes, the file has %p"},
    RuleText{Rule::kOverrun, "overrun",
             "the body of \"%n\" should have %t bytes, the enclosing tag has %p"},
    RuleText{Rule::kZeroHeader, "zero-header", "zero bytes stand where a header should"},
    RuleText{Rule::kTooDeep, "too-deep", "the body is nested too deep to be looked into"},
    RuleText{Rule::kUnreadable, "unreadable", "the system cannot read here"},
    RuleText{Rule::kBackup, "backup", "an interrupted write has left its backup %n"},
};

const RuleText& TextOf(Rule rule) {
  return *std::find_if(kRules.begin(), kRules.end(),
                       [rule](const RuleText& row) { return row.rule == rule; });
}

// "DATA" and "MUID" are told on five bytes: four letters and one zero.
bool IsNamed(const MTag& tag, const char (&name)[5]) {
  return std::memcmp(tag.m_name, name, 5) == 0;
}

bool IsZeroHeader(const MTag& tag) {
  static constexpr char kZeros[6] = {};
  return std::memcmp(tag.m_name, kZeros, 6) == 0 && tag.m_version[0] == 0 &&
         tag.m_version[1] == 0 && tag.m_skip == 0;
}

}  // namespace

std::string_view RuleName(Rule rule) {
  return TextOf(rule).name;
}

ExitCode SeverityOf(Rule rule) {
  return rule == Rule::kUnreadable ? kTrouble : kFindings;
}

std::string DescribeRule(const Finding& finding, bool hex) {
  const RuleText& row = TextOf(finding.rule);
  std::string text = std::string(row.name) + ": ";
  for (std::size_t i = 0; i < row.text.size(); ++i) {
    if (row.text[i] != '%') {
      text += row.text[i];
      continue;
    }
    switch (row.text[++i]) {
      case 'n':
        text += Printable(finding.name);
        break;
      case 't':
        text += Number(finding.told, hex && finding.told >= 0);
        break;
      default:
        text += Number(finding.present, hex);
    }
  }
  return text;
}

std::string Describe(const Finding& finding, bool hex) {
  if (finding.rule == Rule::kBackup) return DescribeRule(finding, hex);  // it lies beside the file
  return "position " + Number(finding.position, hex) + ": " + DescribeRule(finding, hex);
}

bool IsHeadTag(const MTag& tag) {
  return std::memcmp(tag.m_name, "QELCOM", 6) == 0;
}

std::string_view NameOf(const MTag& tag) {
  return tag.m_name;
}

bool HoldsTags(const MTag& tag) {
  if (tag.m_version[0] < 2 || tag.m_skip < kHeaderSize || IsNamed(tag, "DATA")) return false;
  return !IsNamed(tag, "MUID") || (tag.m_version[0] == 2 && tag.m_version[1] == 0);
}

TagWalker::TagWalker(MFile& file, Report report, bool search)
    : m_file(file), m_report(std::move(report)), m_search(search) {
  m_levels.push_back({kHeaderSize, file.SIZE()});
}

bool TagWalker::ReadHead() {
  if (m_levels[0].end < 0) return Damage(Rule::kUnreadable, {0, 0});  // the size cannot be told
  const Level header{0, std::min(kHeaderSize, m_levels[0].end)};
  if (!m_file.REWIND() || !m_head.READ(m_file)) {
    return Damage(m_file.GET_RESULT() != 0 ? Rule::kUnreadable : Rule::kHead, header);
  }
  if (!IsHeadTag(m_head)) return Damage(Rule::kHead, header);
  if (m_head.m_skip != 0) Damage(Rule::kHeadSkip, header, &m_head);
  return true;
}

bool TagWalker::Next(TagNode& node) {
  Enter();
  while (!m_levels.empty()) {
    if (ReadTag(node.tag)) {
      node.depth = m_levels.size() - 1;
      node.holds_tags = HoldsTags(node.tag);
      m_enter = node.holds_tags;
      m_body = {node.tag.m_data_position, node.tag.m_data_position + node.tag.m_skip};
      return true;
    }
    m_levels.pop_back();
  }
  return false;
}

void TagWalker::Enter() {
  if (!std::exchange(m_enter, false)) return;
  if (m_levels.size() < kMaxDepth) {
    m_levels.push_back(m_body);
  } else {
    Damage(Rule::kTooDeep, m_body);
  }
}

// The next tag of the innermost level; false at its end and at damage that nothing is found behind.
bool TagWalker::ReadTag(MTag& tag) {
  Level& level = m_levels.back();
  while (ReadHeader(level, tag)) {
    if (IsHeadTag(tag)) {
      Damage(Rule::kStrayHead, {level.next, level.next + kHeaderSize}, &tag);
      level.next += kHeaderSize;
    } else if (const auto rule = WhatIsWrong(level, tag)) {
      PassDamage(*rule, level, tag);
    } else {
      level.next += kHeaderSize + tag.m_skip;
      return true;
    }
  }
  return false;
}

bool TagWalker::ReadHeader(const Level& level, MTag& tag) {
  const std::int64_t left = level.end - level.next;
  if (left <= 0) return false;
  if (left < kHeaderSize) return Damage(Rule::kTrailing, level);
  if (m_file.SEEK(level.next, 0) && tag.READ(m_file)) return true;
  return Damage(Rule::kUnreadable, level);
}

std::optional<Rule> TagWalker::WhatIsWrong(const Level& level, const MTag& tag) const {
  if (IsZeroHeader(tag)) return Rule::kZeroHeader;
  if (tag.m_skip < 0) return Rule::kNegative;
  if (tag.m_skip <= level.end - level.next - kHeaderSize) return std::nullopt;
  return m_levels.size() == 1 ? Rule::kCutBody : Rule::kOverrun;
}

// Reports the damage and moves behind it: to the end of the level, or to what is found again.
void TagWalker::PassDamage(Rule rule, Level& level, const MTag& tag) {
  const std::int64_t found =
      m_search ? FindRecords(m_file, level.next + 1, level.end, m_levels.size() == 1) : level.end;
  Damage(rule, level, &tag, found);
  level.next = found;
}

// Reports that no tag explains what `level` has from its next position to `end`. False, for the
// caller to pass on.
bool TagWalker::Damage(Rule rule, const Level& level, const MTag* tag, std::int64_t end) {
  Finding finding{rule, level.next, {}, 0, level.end - level.next, m_levels.size() - 1, end};
  if (tag) {
    finding.name = NameOf(*tag);
    finding.told = tag->m_skip;
    finding.present -= kHeaderSize;
  }
  if (m_report) m_report(finding);
  return false;
}

}  // namespace qel::tool
