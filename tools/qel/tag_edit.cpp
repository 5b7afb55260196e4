#include "tag_edit.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>

#include "disk.h"
#include "session.h"
#include "tag_check.h"
#include "tag_copy.h"

namespace qel::tool {
namespace {

using Edit = std::function<void(const NamedFile& source, const NamedFile& target)>;

void RequireSound(const std::string& native, EditOptions options) {
  const CheckResult check = CheckFile(native, {});
  if (check.findings == 0) return;
  const std::string first = Describe(*check.first, false);
  if (check.first->rule == Rule::kHead) throw Trouble(native, first);
  if (options.force) return;
  throw Trouble(native, first + "; left as it is ('recover' makes a sound file, --force goes on)");
}

// For a walk behind RequireSound: what was sound has become unreadable, or was let pass by force.
TagWalker::Report Strict(const std::string& native, EditOptions options) {
  return [&native, options](const Finding& finding) {
    if (options.force && finding.rule != Rule::kUnreadable) return;
    throw Trouble(native, Describe(finding, false));
  };
}

void RequireSoundResult(MFile& copy, const std::string& native) {
  const CheckResult check = CheckTags(copy, {});
  if (check.findings == 0) return;
  throw Trouble(native, "would not be sound any more: " + Describe(*check.first, false) +
                            " (raw bytes of a tag NAME of version 2 or above go into NAME/DATA)");
}

// The copy is checked before it takes the file's place.
void Rewrite(const std::string& native, EditOptions options, const Edit& edit) {
  const auto source = OpenForReading(native);
  RequireSound(native, options);
  NewFile copy = NewFile::Replacing(native);
  edit({*source, native}, {copy.file(), native});
  if (!options.force) RequireSoundResult(copy.file(), native);
  copy.Commit();
}

TagPath ParsePath(const std::string& native, const std::string& path) {
  try {
    return ParseTagPath(path);
  } catch (const std::invalid_argument& error) {
    throw Trouble(native, error.what());
  }
}

[[noreturn]] void NotThere(const std::string& native, const PathStep& step, std::size_t there) {
  throw Trouble(native, "there is no " + StepText(step.name, step.index) +
                            (there ? ", only " + std::to_string(there) + " of that name" : ""));
}

void WriteInput(const std::string& input, const NamedFile& target) {
  ForEachPiece(input, [&](std::string_view piece) {
    return target.file.WRITE(piece.data(), piece.size()) == piece.size();
  });
  ThrowOnError(target.file, target.native);
}

// The records of `path` from step `first` on, each inside the one before, the last with the input.
void WriteNested(const TagPath& path, std::size_t first, Version version, const std::string& input,
                 const NamedFile& target) {
  std::vector<MTag> open;
  for (std::size_t i = first; i < path.size(); ++i) {
    open.emplace_back(path[i].name.c_str(), version.major, version.minor);
    WriteHeader(target, open.back());
  }
  WriteInput(input, target);
  for (; !open.empty(); open.pop_back()) CloseTag(target, open.back());
}

// Each missing record is the next of its name, inside a record that can hold it.
void RequireAppendable(const std::string& native, const TagPath& path, const Place& place,
                       Version version) {
  const std::size_t first = place.chain.size();
  if (path[first].index != place.equal_names + 1) {
    NotThere(native, path[first], place.equal_names);
  }
  for (std::size_t i = first + 1; i < path.size(); ++i) {
    if (path[i].index != 1) NotThere(native, path[i], 0);
  }
  for (std::size_t i = 0; i + 1 < path.size(); ++i) {
    MTag parent(path[i].name.c_str(), version.major, version.minor);
    if (i < first) parent = place.chain[i];
    if (parent.m_skip == 0) parent.m_skip = kHeaderSize;
    if (HoldsTags(parent)) continue;
    throw Trouble(native, StepText(path[i].name, path[i].index) + " of version " +
                              std::to_string(parent.m_version[0]) + "." +
                              std::to_string(parent.m_version[1]) +
                              " has raw bytes and cannot hold tags");
  }
}

std::vector<std::int64_t> HeadersOf(const std::vector<MTag>& chain) {
  std::vector<std::int64_t> positions;
  positions.reserve(chain.size());
  for (const MTag& tag : chain) positions.push_back(tag.m_position);
  return positions;
}

Version VersionOfFile(const NamedFile& source, EditOptions options) {
  TagWalker walker(source.file, Strict(source.native, options));
  walker.ReadHead();
  return {walker.Head().m_version[0], walker.Head().m_version[1]};
}

void CreateWithRecord(const std::string& native, const TagPath& path, const std::string& input,
                      Version version) {
  RequireAppendable(native, path, {}, version);
  NewFile made = NewFile::Creating(native);
  const NamedFile target{made.file(), native};
  WriteHead(target, CurrentVersion().major, CurrentVersion().minor);
  WriteNested(path, 0, version, input, target);
  RequireSoundResult(made.file(), native);
  made.Commit();
}

// Where the record's body is replaced, or the missing records are added.
Splice SpliceForPut(const NamedFile& source, const TagPath& path, const std::string& input,
                    std::optional<Version> wanted, EditOptions options) {
  const Place place = Locate(source.file, path, Strict(source.native, options));
  Splice splice{place.end, place.end, HeadersOf(place.chain), {}};
  if (place.Found(path)) {
    splice.begin = place.chain.back().m_data_position;
    splice.end = splice.begin + place.chain.back().m_skip;
    splice.write = [&input](const NamedFile& target) { WriteInput(input, target); };
    return splice;
  }
  const Version version = wanted ? *wanted : VersionOfFile(source, options);
  RequireAppendable(source.native, path, place, version);
  splice.write = [&path, &input, version, first = place.chain.size()](const NamedFile& target) {
    WriteNested(path, first, version, input, target);
  };
  return splice;
}

// In file order, without those that lie inside another.
std::vector<Splice> SplicesForRemoval(const NamedFile& source, const std::vector<TagPath>& paths,
                                      EditOptions options) {
  std::vector<Splice> splices;
  for (const TagPath& path : paths) {
    Place place = Locate(source.file, path, Strict(source.native, options));
    if (!place.Found(path)) NotThere(source.native, path[place.chain.size()], place.equal_names);
    const MTag tag = place.chain.back();
    place.chain.pop_back();
    splices.push_back(
        {tag.m_position, tag.m_data_position + tag.m_skip, HeadersOf(place.chain), {}});
  }
  std::sort(splices.begin(), splices.end(),
            [](const Splice& a, const Splice& b) { return a.begin < b.begin; });
  std::vector<Splice> apart;
  for (Splice& splice : splices) {
    if (apart.empty() || splice.begin >= apart.back().end) apart.push_back(std::move(splice));
  }
  return apart;
}

// A top-level record as the newer version has it: the old one's body inside a DATA tag.
void WriteConverted(const NamedFile& source, const MTag& old, Version version,
                    const NamedFile& target) {
  MTag outer = old;
  outer.m_version[0] = version.major;
  outer.m_version[1] = version.minor;
  outer.m_skip += kHeaderSize;
  if (outer.m_skip > std::numeric_limits<std::int32_t>::max()) {
    throw Trouble(source.native, "position " + std::to_string(old.m_position) +
                                     ": the body is too long to be put inside another tag");
  }
  MTag inner = old;
  std::memcpy(inner.m_name, "DATA", 5);  // the sixth byte stays; readers look at five
  WriteHeader(target, outer);
  WriteHeader(target, inner);
  CopyBytes(source, old.m_data_position, old.m_skip, target);
}

void WriteAllConverted(const NamedFile& source, Version version, const TagWalker::Report& dropped,
                       const NamedFile& target) {
  WriteHead(target, version.major, version.minor);
  TagWalker walker(source.file, dropped);
  walker.ReadHead();
  TagNode node;
  while (walker.Next(node)) {
    walker.StepOver();
    WriteConverted(source, node.tag, version, target);
  }
}

std::string Text(Version version) {
  return std::to_string(version.major) + "." + std::to_string(version.minor);
}

}  // namespace

Version CurrentVersion() {
  return {MTag::m_file_vmajor, MTag::m_file_vminor};
}

void PutRecord(const std::string& native, const std::string& path, const std::string& input,
               std::optional<Version> version, EditOptions options) {
  const TagPath steps = ParsePath(native, path);
  if (!Exists(native)) {
    CreateWithRecord(native, steps, input, version.value_or(CurrentVersion()));
    return;
  }
  Rewrite(native, options, [&](const NamedFile& source, const NamedFile& target) {
    const std::vector<Splice> splices{SpliceForPut(source, steps, input, version, options)};
    CopyWithSplices(source, 0, SizeOf(source), splices, target);
  });
}

void RemoveRecords(const std::string& native, const std::vector<std::string>& paths,
                   EditOptions options) {
  std::vector<TagPath> steps;
  steps.reserve(paths.size());
  for (const std::string& path : paths) steps.push_back(ParsePath(native, path));
  Rewrite(native, options, [&](const NamedFile& source, const NamedFile& target) {
    CopyWithSplices(source, 0, SizeOf(source), SplicesForRemoval(source, steps, options), target);
  });
}

Converted ConvertFile(const std::string& native, Version version, EditOptions options,
                      const TagWalker::Report& dropped) {
  const auto source = OpenForReading(native);
  RequireSound(native, options);
  const Version old = VersionOfFile({*source, native}, options);
  if (old.major == version.major) return Converted::kAlready;
  if (old.major > version.major) {
    throw Trouble(native, "has version " + Text(old) + ", newer than " + Text(version));
  }
  Rewrite(native, options, [&](const NamedFile& from, const NamedFile& target) {
    const auto strict = Strict(native, options);
    const auto drop = [&](const Finding& finding) {
      strict(finding);
      dropped(finding);
    };
    WriteAllConverted(from, version, drop, target);
  });
  return Converted::kDone;
}

}  // namespace qel::tool
