// qel tag ls, tree and check: what the files hold and whether they are sound.

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

#include "disk.h"
#include "json_list.h"
#include "tag_check.h"
#include "tag_path.h"
#include "tag_show.h"

namespace qel::tool {
namespace {

using nlohmann::json;

constexpr std::size_t kMaxIndent = 32;  // levels; deeper ones tell their depth in digits
constexpr const char* kTagColour = "1;34";
constexpr const char* kFindingColour = "31";

std::string VersionText(const MTag& tag) {
  return std::to_string(tag.m_version[0]) + "." + std::to_string(tag.m_version[1]);
}

std::string Indented(const TagNode& node, const std::string& name) {
  std::string indent(2 * std::min(node.depth, kMaxIndent), ' ');
  if (node.depth > kMaxIndent) indent.append("[").append(std::to_string(node.depth)).append("] ");
  return indent + name;
}

std::string Row(const std::string& position, const std::string& size, const std::string& version,
                const std::string& name) {
  std::array<char, 96> columns{};
  std::snprintf(columns.data(), columns.size(), "%12s %12s  %-7s  ", position.c_str(), size.c_str(),
                version.c_str());
  return columns.data() + name + "\n";
}

void PrintRow(Session& session, const TagNode& node, View view) {
  const std::string name = StepText(NameOf(node.tag));
  session.Print(Row(Number(node.tag.m_position, view.hex), Number(node.tag.m_skip, view.hex),
                    VersionText(node.tag),
                    Indented(node, node.holds_tags ? session.Coloured(name, kTagColour) : name)));
}

json NodeJson(const TagNode& node) {
  return {{"name", StepText(NameOf(node.tag))},
          {"version", VersionText(node.tag)},
          {"position", node.tag.m_position},
          {"size", node.tag.m_skip},
          {"depth", node.depth},
          {"holds_tags", node.holds_tags}};
}

json FindingJson(const Finding& finding) {
  json value{{"rule", RuleName(finding.rule)},
             {"position", finding.position},
             {"text", Describe(finding, false)}};
  if (!finding.name.empty()) value["name"] = Printable(finding.name);
  return value;
}

// The members of one file's object that stand before its list.
void OpenObject(Session& session, const std::string& file, const json& more) {
  session.Print("{\"file\":" + JsonText(file) + ",");
  for (const auto& [name, value] : more.items()) {
    session.Print(JsonText(name) + ":" + JsonText(value) + ",");
  }
}

// Goes through the files; one that cannot be read is complained about, and the others follow.
template <typename PerFile>
void ForEachFile(Session& session, const std::vector<std::string>& files, PerFile per_file) {
  for (const std::string& file : files) {
    try {
      per_file(file);
    } catch (const Trouble& trouble) {
      session.Complain(trouble);
    }
  }
}

class Lister {
 public:
  Lister(Session& session, bool all_levels, View view)
      : m_session(session), m_all_levels(all_levels), m_view(view) {}

  void Run(const std::vector<std::string>& files) {
    std::optional<JsonList> list;
    if (m_view.json) list.emplace(m_session);
    ForEachFile(m_session, files, [&](const std::string& name) {
      const auto file = OpenForReading(name);
      TagWalker walker(*file, [&](const Finding& finding) { Note(name, finding); });
      if (!walker.ReadHead()) throw Trouble(name, "no tagged file");
      if (m_view.json) {
        list->Next();
        PrintJson(name, walker);
      } else {
        PrintRows(name, files.size() > 1, walker);
      }
    });
    if (list) {
      list->Close();
      m_session.Print("\n");
    }
  }

 private:
  void Note(const std::string& name, const Finding& finding) {
    if (finding.rule == Rule::kHead) return;  // the caller throws
    m_session.Warn(name, Describe(finding, m_view.hex));
    m_session.Raise(SeverityOf(finding.rule));
  }

  template <typename PerNode>
  void Walk(TagWalker& walker, PerNode per_node) const {
    TagNode node;
    while (walker.Next(node)) {
      per_node(node);
      if (!m_all_levels) walker.StepOver();
    }
  }

  void PrintRows(const std::string& name, bool with_name, TagWalker& walker) {
    if (with_name) m_session.Print(Printable(name) + ":\n");
    m_session.Print(Row("position", "size", "version", "name"));
    m_session.Print(Row(Number(0, m_view.hex), "", VersionText(walker.Head()), "QELCOM"));
    Walk(walker, [&](const TagNode& node) { PrintRow(m_session, node, m_view); });
  }

  void PrintJson(const std::string& name, TagWalker& walker) {
    OpenObject(m_session, name, {{"version", VersionText(walker.Head())}});
    m_session.Print("\"records\":");
    JsonList records(m_session);
    Walk(walker, [&](const TagNode& node) { records.Add(NodeJson(node)); });
    records.Close();
    m_session.Print("}");
  }

  Session& m_session;
  bool m_all_levels;
  View m_view;
};

void CheckOne(Session& session, const std::string& file, View view) {
  const std::string name = Printable(file);
  const CheckResult result = CheckFile(file, [&](const Finding& finding) {
    session.Raise(SeverityOf(finding.rule));
    session.Print(name + ": " + session.Coloured(Describe(finding, view.hex), kFindingColour) +
                  "\n");
  });
  const std::string records = Counted(result.records, "record");
  if (result.findings == 0) {
    session.Print(name + ": sound, " + records + "\n");
  } else {
    session.Print(name + ": " + Counted(result.findings, "finding") + ", " + records + "\n");
  }
}

void CheckOneAsJson(Session& session, const std::string& file, JsonList& list) {
  OpenForReading(file);  // before anything is printed
  list.Next();
  OpenObject(session, file, json::object());
  session.Print("\"findings\":");
  JsonList findings(session);
  const CheckResult result = CheckFile(file, [&](const Finding& finding) {
    session.Raise(SeverityOf(finding.rule));
    findings.Add(FindingJson(finding));
  });
  findings.Close();
  session.Print(",\"records\":" + std::to_string(result.records) +
                ",\"sound\":" + (result.findings == 0 ? "true" : "false") + "}");
}

// A file that is gone while its backup is there deserves more than "no such file".
void RequireExisting(const std::string& file) {
  if (Exists(file)) return;
  const std::string backup = LeftBackup(file);
  if (backup.empty()) return;
  throw Trouble(
      file, "does not exist, but an interrupted write has left its backup " + Printable(backup));
}

}  // namespace

void ListTags(Session& session, const std::vector<std::string>& files, bool all_levels, View view) {
  Lister(session, all_levels, view).Run(files);
}

void CheckFiles(Session& session, const std::vector<std::string>& files, View view) {
  std::optional<JsonList> list;
  if (view.json) list.emplace(session);
  ForEachFile(session, files, [&](const std::string& file) {
    RequireExisting(file);
    if (list) {
      CheckOneAsJson(session, file, *list);
    } else {
      CheckOne(session, file, view);
    }
  });
  if (list) {
    list->Close();
    session.Print("\n");
  }
}

}  // namespace qel::tool
