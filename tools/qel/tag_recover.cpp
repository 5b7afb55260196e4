#include "tag_recover.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "disk.h"
#include "session.h"
#include "tag_copy.h"

namespace qel::tool {
namespace {

// A top-level record of a source, and what must be cut out of it.
struct Candidate {
  MTag tag;
  std::vector<Splice> cuts;
  std::string damage;    // what is wrong inside
  bool found = false;    // stood behind damage
  bool wrapped = false;  // some body in it is no run of sub-tags

  std::int64_t end() const { return tag.m_data_position + tag.m_skip; }
  bool sound() const { return damage.empty(); }
};

struct Source {
  std::string native;
  std::unique_ptr<MFile> file;  // null if it is not there
  std::vector<Candidate> records;
  std::vector<Finding> damages;  // at top level
  std::optional<MTag> head;
};

// Walks a source and notes its records and their damage.
class Survey {
 public:
  explicit Survey(Source& source) : m_source(source) {}

  void Run() {
    TagWalker walker(
        *m_source.file, [this](const Finding& finding) { Note(finding); }, true);
    if (walker.ReadHead()) m_source.head = walker.Head();
    TagNode node;
    while (walker.Next(node)) Take(node);
  }

 private:
  void Take(const TagNode& node) {
    m_open.resize(node.depth);
    m_open.push_back(node.tag);
    if (node.depth == 0) m_source.records.push_back({node.tag, {}, {}, m_broken});
  }

  void Note(const Finding& finding) {
    if (finding.rule == Rule::kTooDeep) return;  // sound as far as anybody can see
    if (finding.depth == 0) {
      m_broken = m_broken || (finding.position > 0 && finding.rule != Rule::kStrayHead);
      m_source.damages.push_back(finding);
      return;
    }
    Candidate& record = m_source.records.back();
    if (record.sound()) record.damage = Describe(finding, false);
    record.cuts.push_back(CutOf(finding, record));
  }

  // Takes the damaged bytes out. A body of which nothing would be left is no run of sub-tags: it
  // moves into a DATA tag as it is.
  Splice CutOf(const Finding& finding, Candidate& record) {
    m_open.resize(finding.depth);
    std::vector<std::int64_t> enclosing;
    for (const MTag& tag : m_open) enclosing.push_back(tag.m_position);
    const MTag& body = m_open.back();
    const bool something_left =
        finding.position > body.m_data_position || finding.end < body.m_data_position + body.m_skip;
    if (something_left || finding.rule == Rule::kStrayHead) {
      return {finding.position, finding.end, std::move(enclosing), {}};
    }
    record.wrapped = true;
    const auto write_header = [body](const NamedFile& target) {
      MTag data("DATA", body.m_version[0], body.m_version[1]);
      data.m_skip = body.m_skip;
      WriteHeader(target, data);
    };
    return {finding.position, finding.position, std::move(enclosing), write_header};
  }

  Source& m_source;
  bool m_broken = false;     // there was damage at top level
  std::vector<MTag> m_open;  // the tag just given, and those around it before
};

Source Open(const std::string& native) {
  Source source;
  source.native = native;
  if (native.empty() || !Exists(native)) return source;
  source.file = OpenForReading(native);
  SizeOf({*source.file, native});
  Survey(source).Run();
  return source;
}

// Why the backup's record is the better one of a pair; null if it isn't.
const char* WhyOutdated(const Candidate& record, const Candidate& backup, bool last) {
  if (!backup.sound()) return nullptr;
  if (!record.sound()) return "damaged, and the backup's is whole";
  if (record.tag.m_skip == 0 && backup.tag.m_skip > 0) return "empty, and the backup's is not";
  return last && !HoldsTags(record.tag) ? "the last of the file, maybe half written" : nullptr;
}

// What the writing of a record leaves at top level when its end never came.
bool IsStray(const Candidate& record) {
  return record.tag.m_skip == 0 && NameOf(record.tag) == "DATA";
}

// The backup's records, each given out at most once.
class Backups {
 public:
  explicit Backups(const Source& source) {
    for (const Candidate& record : source.records) m_left[KeyOf(record)].push_back(&record);
  }
  // The first left of the record's name and major version, or null.
  const Candidate* TakeEqual(const Candidate& record) {
    const auto found = m_left.find(KeyOf(record));
    if (found == m_left.end() || found->second.empty()) return nullptr;
    const Candidate* taken = found->second.front();
    found->second.pop_front();
    return taken;
  }
  bool TakeItself(const Candidate& record) {
    auto& left = m_left[KeyOf(record)];
    if (left.empty() || left.front() != &record) return false;
    left.pop_front();
    return true;
  }

 private:
  using Key = std::pair<std::string, unsigned char>;
  static Key KeyOf(const Candidate& record) {
    return {std::string(NameOf(record.tag)), record.tag.m_version[0]};
  }
  std::map<Key, std::deque<const Candidate*>> m_left;
};

class Recovery {
 public:
  Recovery(const Source& newer, const Source& older, const SalvageReport& report)
      : m_newer(newer), m_older(older), m_report(report) {}

  void Write(const NamedFile& target) {
    Backups backups(m_older);
    for (const Candidate& record : m_newer.records) {
      WriteBetter(record, backups.TakeEqual(record), target);
    }
    for (const Candidate& record : m_older.records) {
      if (backups.TakeItself(record)) WriteRecord(m_older, record, target);
    }
    ReportLost(m_newer);
    ReportLost(m_older);
  }

 private:
  void WriteBetter(const Candidate& record, const Candidate* backup, const NamedFile& target) {
    const bool last = &record == &m_newer.records.back();
    const char* why = backup ? WhyOutdated(record, *backup, last) : nullptr;
    if (!backup && IsStray(record)) {
      return Tell(Salvage::Kind::kLost, m_newer, record, "an empty DATA tag outside of any record");
    }
    if (!why) return WriteRecord(m_newer, record, target);
    Tell(Salvage::Kind::kOutdated, m_newer, record, why);
    WriteRecord(m_older, *backup, target);
  }

  void WriteRecord(const Source& source, const Candidate& record, const NamedFile& target) {
    const NamedFile from{*source.file, source.native};
    CopyWithSplices(from, record.tag.m_position, record.end(), record.cuts, target);
    const auto whole = record.found ? Salvage::Kind::kFound : Salvage::Kind::kKept;
    const auto damaged = record.wrapped ? Salvage::Kind::kWrapped : Salvage::Kind::kRepaired;
    Tell(record.sound() ? whole : damaged, source, record, record.damage);
  }

  void Tell(Salvage::Kind kind, const Source& source, const Candidate& record,
            const std::string& why) {
    m_report({kind, &source.native, record.tag.m_position, record.end() - record.tag.m_position,
              std::string(NameOf(record.tag)), why});
  }

  void ReportLost(const Source& source) {
    for (const Finding& damage : source.damages) {
      if (damage.rule == Rule::kHeadSkip || damage.rule == Rule::kStrayHead) continue;
      m_report({Salvage::Kind::kLost, &source.native, damage.position, damage.end - damage.position,
                damage.name, DescribeRule(damage, false)});
    }
  }

  const Source& m_newer;
  const Source& m_older;
  const SalvageReport& m_report;
};

constexpr std::array<std::string_view, 6> kKindNames{"kept",    "found",    "repaired",
                                                     "wrapped", "outdated", "lost"};

}  // namespace

std::string_view SalvageName(Salvage::Kind kind) {
  return kKindNames[static_cast<std::size_t>(kind)];
}

void Recover(const std::string& native, const std::string& backup, const std::string& made,
             const SalvageReport& report) {
  const Source newer = Open(native);
  const Source older = Open(backup);
  if (!newer.file && !older.file) throw Trouble(native, std::strerror(ENOENT));
  if (newer.records.empty() && older.records.empty() && !newer.head && !older.head) {
    throw Trouble(native, "nothing in it is a tagged file");
  }
  NewFile file = NewFile::Creating(made);
  const NamedFile target{file.file(), made};
  const MTag head = newer.head ? *newer.head : older.head.value_or(MTag("QELCOM"));
  WriteHead(target, head.m_version[0], head.m_version[1]);
  Recovery(newer, older, report).Write(target);
  file.Commit();
}

}  // namespace qel::tool
