#include "tag_copy.h"

#include <limits>
#include <map>

#include "disk.h"
#include "session.h"
#include "tag_walk.h"

namespace qel::tool {
namespace {

constexpr std::int64_t kSkipOffset = 8;
constexpr std::int64_t kMaxSkip = std::numeric_limits<std::int32_t>::max();

[[noreturn]] void FailWriting(const NamedFile& target) {
  ThrowOnError(target.file, target.native);
  throw Trouble(target.native, "cannot be written");
}

void AddToSkip(const NamedFile& target, std::int64_t header, std::int64_t growth) {
  std::int32_t skip = 0;
  if (!target.file.SEEK(header + kSkipOffset, 0) || target.file.READ(&skip, 1) != 1) {
    FailWriting(target);
  }
  const std::int64_t sum = skip + growth;
  if (sum < 0 || sum > kMaxSkip) {
    throw Trouble(target.native, "position " + std::to_string(header) + ": a body of " +
                                     std::to_string(sum) + " bytes cannot be told in a tag");
  }
  skip = static_cast<std::int32_t>(sum);
  if (!target.file.SEEK(header + kSkipOffset, 0) || target.file.WRITE(&skip, 1) != 1) {
    FailWriting(target);
  }
}

// `shift` leads from positions in the source to those in the target, before any splice.
void CorrectSkips(const std::vector<Splice>& splices, const std::vector<std::int64_t>& growths,
                  std::int64_t shift, const NamedFile& target) {
  std::map<std::int64_t, std::int64_t> bodies;  // how much each grows, by its header's position
  for (std::size_t i = 0; i < splices.size(); ++i) {
    for (const std::int64_t header : splices[i].enclosing) bodies[header] += growths[i];
  }
  std::size_t passed = 0;
  for (const auto& [header, growth] : bodies) {
    for (; passed < splices.size() && splices[passed].begin <= header; ++passed) {
      shift += growths[passed];
    }
    AddToSkip(target, header + shift, growth);
  }
}

}  // namespace

std::int64_t SizeOf(const NamedFile& file) {
  const std::int64_t size = file.file.SIZE();
  if (size < 0) throw Trouble(file.native, "its size cannot be told");
  return size;
}

void CopyBytes(const NamedFile& source, std::int64_t position, std::int64_t size,
               const NamedFile& target) {
  const bool placed = source.file.SEEK(position, 0);
  if (placed && target.file.COPY(source.file, size) == size) return;
  ThrowOnError(source.file, source.native);
  ThrowOnError(target.file, target.native);
  throw Trouble(source.native, "position " + std::to_string(position) + ": " +
                                   std::to_string(size) + " bytes cannot be copied");
}

void CopyWithSplices(const NamedFile& source, std::int64_t begin, std::int64_t end,
                     const std::vector<Splice>& splices, const NamedFile& target) {
  const std::int64_t shift = target.file.TELL() - begin;
  std::vector<std::int64_t> growths;
  for (const Splice& splice : splices) {
    CopyBytes(source, begin, splice.begin - begin, target);
    const std::int64_t before = target.file.TELL();
    if (splice.write) splice.write(target);
    growths.push_back(target.file.TELL() - before - (splice.end - splice.begin));
    begin = splice.end;
  }
  CopyBytes(source, begin, end - begin, target);
  const std::int64_t written = target.file.TELL();
  CorrectSkips(splices, growths, shift, target);
  if (!target.file.SEEK(written, 0)) FailWriting(target);
}

void WriteHeader(const NamedFile& target, MTag& tag) {
  if (!tag.WRITE(target.file)) FailWriting(target);
}

void CloseTag(const NamedFile& target, MTag& tag) {
  if (tag.UPDATE_SKIP(target.file)) return;
  ThrowOnError(target.file, target.native);
  throw Trouble(target.native, "position " + std::to_string(tag.m_position) + ": a body of " +
                                   std::to_string(target.file.TELL() - tag.m_data_position) +
                                   " bytes cannot be told in a tag");
}

void WriteHead(const NamedFile& target, unsigned char major, unsigned char minor) {
  MTag head("QELCOM", major, minor);
  WriteHeader(target, head);
}

}  // namespace qel::tool
