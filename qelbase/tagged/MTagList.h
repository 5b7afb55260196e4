#pragma once
// A table of the tags of a file that stays in the caller's hands.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qelbase/export.h"
#include "qelbase/tagged/MTag.h"

class MFile;
class MFileName;

namespace qel::tagged {
class UnwrittenTags;
}

// Reads the headers of an open file into a flat table, finds tags in it, and brackets the writing
// of new ones. Bodies are never read. No reference to a file is kept. A list belongs to one thread
// at a time; different lists may work at the same time.
//
// The pointers that are handed out point into the table and end with the next operation that adds
// or removes entries. Names and versions of entries may be changed through them only until the
// next WRITE_TAG_BEGIN.
//
// Damaged files: reading ends silently at the first header that can't be read or has a negative
// skip, and what was found before stays. No input makes a reader loop, go deeper than memory, or
// keep more tags than the file has room for.
class QELBASE_API MTagList {
 public:
  MTagList();
  ~MTagList();
  MTagList(const MTagList&) = delete;
  MTagList& operator=(const MTagList&) = delete;

  MTag& GET_HEAD_TAG() { return m_head; }               // never in the table
  std::uint64_t SIZE() const { return m_tags.size(); }  // entries

  // All top-level tags of the file, whose position is kept. False if the file is closed or begins
  // with no head tag; the table is then left as it was, and the head holds what was read.
  bool BUILD_TAG_LIST(MFile& file);
  // The run of tags from the current position on, up to the tag that reaches `size` bytes
  // (2^64 - 1: no limit). Bodies are not held against the file's end: a last tag that was cut off
  // is listed. False if the file is closed. The position ends behind the last header read.
  bool BUILD_TAG_LIST(MFile& file, std::uint64_t size);
  // The direct sub-tags of `tag`, with the file placed on its body first if `seek` is true. False,
  // and the table as it was, if the tag can't hold any (major version below 2, "DATA", "MUID" but
  // of version 2.0, less than 12 bytes) or the file is closed or can't be placed.
  bool BUILD_TAG_LIST(MFile& file, const MTag& tag, bool seek);
  // All tags at all depths from position `begin` to `end` (-1: the file's end), each directly
  // before its sub-tags. Every tag but "DATA" and "MUID" is taken to hold sub-tags, whatever its
  // version. A tag that reaches past the end of the file ends its level. Called from within itself
  // (by a file's own reading), it adds to the table.
  void BUILD_TAG_TREE(MFile& file, std::int64_t begin, std::int64_t end);

  // `seek` true places the file on the body of the tag found.
  //
  // The entry behind `after`, the first if that is null. Null at the end, and if `after` is no
  // entry of the table.
  MTag* NEXT_TAG(MFile& file, const MTag* after, bool seek);
  // The first entry behind `after` with the name and major version of `tag`; mode 0 looks at all
  // entries, 1 at those not yet rewritten, others at none. The entry is copied into `tag`, unless
  // that is itself an entry of the table. Null without a hit, and for an empty name.
  MTag* FIND_TAG(MFile& file, const MTag* after, MTag& tag, std::uint32_t mode, bool seek);
  // As FIND_TAG; `version_test` 0 takes every version, 1 a major version not above `tag`'s, others
  // the equal one.
  MTag* FIND_TAG_EX(MFile& file, const MTag* after, MTag& tag, std::uint32_t version_test,
                    std::uint32_t mode, bool seek);

  // Takes entries with `tag`'s name and major version out of the table, `mode` as in FIND_TAG; true
  // if one went. The file is not touched.
  bool REMOVE_TAGS(const MTag& tag, std::uint32_t mode);

  // Writes a header at the file's position: for the first entry of this name and major version that
  // is not yet rewritten, whose minor version is then taken over, or else for a new entry. `tag`
  // becomes a copy of the entry. The body follows through the file, then WRITE_TAG_END with the
  // same `tag`. False if the header could not be written.
  bool WRITE_TAG_BEGIN(MFile& file, MTag& tag);
  // Patches the tag's length, see MTag::UPDATE_SKIP. The entry of the table keeps skip 0.
  bool WRITE_TAG_END(MFile& file, MTag& tag);

  // Rewrites an older tagged file in place into the nested form: each top-level tag gets version
  // `major`.`minor` (0.0: the present one), its body moves into a "DATA" tag of the old version
  // inside it. True if the file now has, or already had, that major version. Nobody may have the
  // file open. Uses this list's head and table as working space.
  //
  // On failure a log line says what happened. The whole old content lies under the given name, or,
  // from the moment at which the file has been moved, under a name in the temporary folder, which a
  // further line of information gives; it is deleted when the new file is complete on the disk.
  bool CONVERT(const MFileName& name, unsigned char major, unsigned char minor);

 private:
  static constexpr std::uint64_t NoLimit = ~std::uint64_t{0};

  void clear();
  void readRun(MFile& file, std::uint64_t limit);
  void keep(const MTag& tag);
  bool contains(const MTag* tag) const;
  // Index of the entry behind `after`; the table's size if there is none.
  std::size_t indexBehind(const MTag* after) const;
  MTag& append(const MTag& tag);
  bool rewriteAs(const std::wstring& file, const MTag& wanted, MFile& input);
  bool writeNested(MFile& input, MFile& output, const MTag& wanted);

  MTag m_head;
  std::vector<MTag> m_tags;  // in file order
  std::unique_ptr<qel::tagged::UnwrittenTags> m_unwritten;
};
