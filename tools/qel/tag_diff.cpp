// qel tag diff: what differs between two files.

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <unordered_map>

#include "disk.h"
#include "json_list.h"
#include "tag_copy.h"
#include "tag_path.h"
#include "tag_show.h"

namespace qel::tool {
namespace {

using nlohmann::json;

constexpr std::size_t kPieceSize = 65536;

struct Entry {
  std::string path;
  TagNode node;
};

struct Side {
  std::string native;
  std::unique_ptr<MFile> file;
  std::vector<Entry> entries;
  std::unordered_map<std::string, std::size_t> by_path;
  std::string version;
};

std::string VersionText(const MTag& tag) {
  return std::to_string(tag.m_version[0]) + "." + std::to_string(tag.m_version[1]);
}

Side Read(Session& session, const std::string& native) {
  Side side{native, OpenForReading(native), {}, {}, {}};
  TagWalker walker(*side.file, [&](const Finding& finding) {
    if (finding.rule == Rule::kHead) throw Trouble(native, "no tagged file");
    session.Warn(native, Describe(finding, false));
    session.Raise(SeverityOf(finding.rule));
  });
  walker.ReadHead();
  side.version = VersionText(walker.Head());
  PathNamer namer;
  TagNode node;
  while (walker.Next(node)) {
    const std::string path = namer.Name(node);
    side.by_path.emplace(path, side.entries.size());
    side.entries.push_back({path, node});
  }
  return side;
}

class Differ {
 public:
  Differ(Session& session, const Side& a, const Side& b, View view)
      : m_session(session), m_a(a), m_b(b), m_view(view) {}

  void Run() {
    if (m_view.json) m_list.emplace(m_session);
    if (m_a.version != m_b.version) Tell('~', "QELCOM", m_a.version + " -> " + m_b.version);
    for (const Entry& entry : m_a.entries) {
      const auto found = m_b.by_path.find(entry.path);
      if (found == m_b.by_path.end()) {
        Tell('-', entry.path, Size(entry.node));
      } else {
        Compare(entry, m_b.entries[found->second].node);
      }
    }
    for (const Entry& entry : m_b.entries) {
      if (!m_a.by_path.count(entry.path)) Tell('+', entry.path, Size(entry.node));
    }
    if (m_list) {
      m_list->Close();
      m_session.Print("\n");
    }
  }

 private:
  std::string Size(const TagNode& node) const {
    return Number(node.tag.m_skip, m_view.hex) + " bytes";
  }

  void Compare(const Entry& a, const TagNode& b) {
    const std::string version_a = VersionText(a.node.tag);
    const std::string version_b = VersionText(b.tag);
    if (version_a != version_b) Tell('~', a.path, "version " + version_a + " -> " + version_b);
    if (a.node.holds_tags && b.holds_tags) return;  // their sub-tags tell
    const std::int64_t same = EqualBytes(a.node.tag, b.tag);
    if (same < std::max(a.node.tag.m_skip, b.tag.m_skip)) {
      Tell('~', a.path,
           Size(a.node) + " -> " + Size(b) + ", differ from byte " + Number(same, m_view.hex) +
               " of the body on");
    }
  }

  // How many bytes the two bodies begin with in common.
  std::int64_t EqualBytes(const MTag& a, const MTag& b) {
    const std::int64_t size = std::min(a.m_skip, b.m_skip);
    for (std::int64_t done = 0; done < size; done += kPieceSize) {
      const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(size - done, kPieceSize));
      Fill(m_a, a.m_data_position + done, wanted, m_piece_a);
      Fill(m_b, b.m_data_position + done, wanted, m_piece_b);
      const auto end = std::mismatch(m_piece_a.begin(), m_piece_a.end(), m_piece_b.begin()).first;
      if (end != m_piece_a.end()) return done + (end - m_piece_a.begin());
    }
    return size;
  }

  static void Fill(const Side& side, std::int64_t position, std::size_t size, std::string& piece) {
    piece.resize(size);
    if (side.file->SEEK(position, 0) && side.file->READ(piece.data(), size) == size) return;
    ThrowOnError(*side.file, side.native);
    throw Trouble(side.native, "position " + std::to_string(position) + ": cannot be read");
  }

  void Tell(char kind, const std::string& path, const std::string& text) {
    m_session.Raise(kFindings);
    if (m_list) {
      m_list->Add({{"change", std::string(1, kind)}, {"path", path}, {"text", text}});
    } else {
      const char* colour = kind == '-' ? "31" : kind == '+' ? "32" : "33";
      m_session.Print(m_session.Coloured(std::string(1, kind) + " " + path, colour) + "  " + text +
                      "\n");
    }
  }

  Session& m_session;
  const Side& m_a;
  const Side& m_b;
  View m_view;
  std::optional<JsonList> m_list;
  std::string m_piece_a;
  std::string m_piece_b;
};

}  // namespace

void DiffFiles(Session& session, const std::string& a, const std::string& b, View view) {
  const Side side_a = Read(session, a);
  const Side side_b = Read(session, b);
  Differ(session, side_a, side_b, view).Run();
}

}  // namespace qel::tool
