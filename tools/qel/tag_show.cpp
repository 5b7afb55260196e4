// qel tag cat, dump and extract: what the records hold.

#include "tag_show.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string_view>

#include "disk.h"
#include "tag_copy.h"
#include "tag_path.h"

namespace qel::tool {
namespace {

constexpr std::size_t kPieceSize = 65536;
constexpr std::size_t kLineSize = 16;  // bytes of a body in a line of a dump

// The record at a path. Damage that lies before it on the way is warned of.
MTag Find(Session& session, const NamedFile& source, const std::string& path) {
  const auto warn = [&](const Finding& finding) {
    if (finding.rule == Rule::kHead) throw Trouble(source.native, "no tagged file");
    session.Warn(source.native, Describe(finding, false));
    session.Raise(SeverityOf(finding.rule));
  };
  try {
    const TagPath steps = ParseTagPath(path);
    const Place place = Locate(source.file, steps, warn);
    if (place.Found(steps)) return place.chain.back();
  } catch (const std::invalid_argument& error) {
    throw Trouble(source.native, error.what());
  }
  throw Trouble(source.native, "there is no record " + path);
}

void ForEachPieceOfBody(const NamedFile& source, std::int64_t position, std::int64_t size,
                        const std::function<void(std::string_view)>& part) {
  std::string piece(kPieceSize, '\0');
  bool read = source.file.SEEK(position, 0);
  while (read && size > 0) {
    const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(size, kPieceSize));
    read = source.file.READ(piece.data(), wanted) == wanted;
    if (read) part({piece.data(), wanted});
    size -= static_cast<std::int64_t>(wanted);
  }
  if (read) return;
  ThrowOnError(source.file, source.native);
  throw Trouble(source.native, "position " + std::to_string(position) + ": cannot be read");
}

void PrintBody(Session& session, const NamedFile& source, const MTag& tag) {
  ForEachPieceOfBody(source, tag.m_data_position, tag.m_skip,
                     [&](std::string_view piece) { session.Print(piece); });
}

// A stretch of the file that holds one record, or all.
struct Stretch {
  std::int64_t begin;
  std::int64_t end;
};

std::vector<Stretch> StretchesOf(Session& session, const NamedFile& source,
                                 const std::vector<std::string>& paths) {
  if (paths.empty()) return {{0, SizeOf(source)}};
  std::vector<Stretch> stretches;
  for (const std::string& path : paths) {
    const MTag tag = Find(session, source, path);
    stretches.push_back({tag.m_position, tag.m_data_position + tag.m_skip});
  }
  return stretches;
}

// Goes through the tags that overlap the stretch, those that enclose it among them. Each comes
// with its path.
void WalkStretch(Session& session, const NamedFile& source, const Stretch& stretch,
                 const std::function<void(const TagNode&, const std::string&)>& per_node) {
  TagWalker walker(source.file, [&](const Finding& finding) {
    if (finding.rule == Rule::kHead) throw Trouble(source.native, "no tagged file");
    if (finding.position < stretch.begin || finding.position >= stretch.end) return;
    session.Warn(source.native, Describe(finding, false));
    session.Raise(SeverityOf(finding.rule));
  });
  walker.ReadHead();
  PathNamer namer;
  TagNode node;
  while (walker.Next(node) && node.tag.m_position < stretch.end) {
    const std::string path = namer.Name(node);
    if (node.tag.m_data_position + node.tag.m_skip <= stretch.begin) {
      walker.StepOver();
    } else {
      per_node(node, path);
    }
  }
}

std::string HexLine(std::int64_t position, std::string_view bytes, bool hex) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%12s  ", Number(position, hex).c_str());
  std::string line = text.data();
  std::string letters;
  for (std::size_t i = 0; i < kLineSize; ++i) {
    if (i >= bytes.size()) {
      line += "   ";
      continue;
    }
    const auto byte = static_cast<unsigned char>(bytes[i]);
    std::snprintf(text.data(), text.size(), "%02x ", static_cast<unsigned>(byte));
    line += text.data();
    letters += byte >= 0x20 && byte < 0x7F ? bytes[i] : '.';
  }
  return line + " |" + letters + "|\n";
}

void DumpBytes(Session& session, const NamedFile& source, std::int64_t position, std::int64_t size,
               bool hex) {
  ForEachPieceOfBody(source, position, size, [&](std::string_view piece) {
    for (; !piece.empty(); position += kLineSize) {
      const std::string_view line = piece.substr(0, kLineSize);
      session.Print(HexLine(position, line, hex));
      piece.remove_prefix(line.size());
    }
  });
}

void DumpNode(Session& session, const NamedFile& source, const TagNode& node,
              const std::string& path, std::int64_t limit, View view) {
  const MTag& tag = node.tag;
  session.Print(path + "  version " + std::to_string(tag.m_version[0]) + "." +
                std::to_string(tag.m_version[1]) + ", " + Number(tag.m_skip, view.hex) +
                " bytes\n");
  DumpBytes(session, source, tag.m_position, kHeaderSize, view.hex);
  if (node.holds_tags) return;
  const std::int64_t shown = limit < 0 ? tag.m_skip : std::min(limit, tag.m_skip);
  DumpBytes(session, source, tag.m_data_position, shown, view.hex);
  if (shown < tag.m_skip) {
    session.Print("              ... " + Number(tag.m_skip - shown, view.hex) + " bytes more\n");
  }
}

// A record's path as a relative file name: a name of dots alone would lead elsewhere.
std::string FileNameOf(const std::string& path) {
  std::string name;
  std::size_t begin = 0;
  while (begin <= path.size()) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string step = path.substr(begin, end - begin);
    const bool dots = step.find_first_not_of('.') == std::string::npos;
    name += "/" + (dots ? "\\x2e" + step.substr(1) : step);
    begin = end + 1;
  }
  return name;
}

void CopyBodyTo(const NamedFile& source, const MTag& tag, const std::string& output) {
  CreateFile(output, [&](MFile& made) {
    CopyBytes(source, tag.m_data_position, tag.m_skip, {made, output});
  });
}

}  // namespace

void CatRecords(Session& session, const std::string& file, const std::vector<std::string>& paths) {
  const auto opened = OpenForReading(file);
  const NamedFile source{*opened, file};
  for (const std::string& path : paths) PrintBody(session, source, Find(session, source, path));
}

void DumpRecords(Session& session, const std::string& file, const std::vector<std::string>& paths,
                 std::int64_t limit, View view) {
  const auto opened = OpenForReading(file);
  const NamedFile source{*opened, file};
  for (const Stretch& stretch : StretchesOf(session, source, paths)) {
    WalkStretch(session, source, stretch, [&](const TagNode& node, const std::string& path) {
      if (node.tag.m_position >= stretch.begin) {
        DumpNode(session, source, node, path, limit, view);
      }
    });
  }
}

void ExtractRecords(Session& session, const std::string& file,
                    const std::vector<std::string>& paths, const std::string& folder) {
  const auto opened = OpenForReading(file);
  const NamedFile source{*opened, file};
  MakeFolder(folder);
  for (const Stretch& stretch : StretchesOf(session, source, paths)) {
    WalkStretch(session, source, stretch, [&](const TagNode& node, const std::string& path) {
      const std::string output = folder + FileNameOf(path);
      if (node.holds_tags) {
        MakeFolder(output);
      } else {
        CopyBodyTo(source, node.tag, output);
      }
    });
  }
}

void ExtractRecord(Session& session, const std::string& file, const std::string& path,
                   const std::string& output) {
  const auto opened = OpenForReading(file);
  const NamedFile source{*opened, file};
  const MTag tag = Find(session, source, path);
  if (output == "-") {
    PrintBody(session, source, tag);
  } else {
    CopyBodyTo(source, tag, output);
  }
}

}  // namespace qel::tool
