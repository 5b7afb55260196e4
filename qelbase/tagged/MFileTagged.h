#pragma once
// The file object through which applications read and write tagged files.

#include <cstdint>
#include <memory>
#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/components/MFile.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/tagged/MTag.h"

namespace qel::tagged {
struct TagNodes;
}

// An MFile with a list of its top-level tags. Bodies are read and written through MFile's own
// operations, between the tag calls. An object belongs to one thread at a time.
//
// OPEN_WRITE of an existing file keeps the tags that the caller doesn't write again: the old file
// becomes NAME.bak (its extension is replaced; a symbolic link is followed), and CLOSE copies the
// other tags from there behind the new ones, syncs, and removes it. Whatever fails, and wherever
// the process dies, the whole old content stands under one of the two names. docs/durability.md has
// the table.
//
// The opening tells failure by its result. The tag operations and CLOSE look at no transfer: after
// CLOSE, GET_RESULT is 0 exactly if everything went well. If it is not, NAME.bak is still there.
//
// Pointers to tags are nodes of the list, owned by the object, and good until the next opening or
// the end of the object. Nodes are for reading: their names, positions and skips must not be
// changed. Damaged and foreign files give a short or empty list: it ends at the first header that
// can't be read, has a negative skip, or whose body doesn't fit into the file.
class QELBASE_API MFileTagged : public MFile {
 public:
  MFileTagged();
  // Doesn't run this class's CLOSE: a file opened for writing that wasn't closed lacks the tags to
  // be kept, and NAME.bak stays.
  ~MFileTagged() override;
  // Finishes a file opened for writing: the tags that were neither written nor removed are added at
  // the current position, in their old order, byte for byte. Harmless when closed.
  void CLOSE() override;

 protected:
  // Mode 1 read, 2 write, 3 update; any other gives false and leaves the file closed. The file that
  // was open is closed without adding tags to it, and the list begins anew.
  //
  // Mode 1 and 3 leave the position behind the last tag. Mode 2 begins the new file with the head
  // tag. False, and the old file as it is, if it can't be read or can't be renamed to NAME.bak; a
  // file that is itself NAME.bak is refused. An older NAME.bak is removed, unless it holds
  // top-level tags that the file lacks, as an interrupted save leaves it: then it becomes NAME.bak1
  // or the next free number.
  bool _OPEN(const wchar_t* name, int mode) override;

 public:
  bool READ_TAG(MTag& tag);  // the header at the current position

  // Writes a header at the current position, for the first tag of the file with this name and major
  // version that is not yet written, or else for a new one at the end of the list. `tag` becomes a
  // copy of that node. Always true. Tags nest by nesting these brackets; an inner tag takes the
  // place of an old top-level tag of its name and major version, too.
  bool WRITE_TAG_BEGIN(MTag& tag);
  // With the file at the end of the body: puts the length into the header and returns to that end.
  // False, with a log line and the header as it was, for a length that 31 bits can't tell; false
  // for a tag that was never begun.
  bool WRITE_TAG_END(MTag& tag);

  // `seek` true places the file on the body of the tag found; the result of that is not looked at.
  //
  // The node behind `after` (a node or a copy of one), the first if that is null.
  MTag* NEXT_TAG(const MTag* after, bool seek);
  // The first node behind `after` with the name and major version of `tag`; mode 0 looks at all
  // nodes, 1 at those not yet written, others at none. It is copied into `tag`, unless that is
  // itself a node of the list.
  MTag* FIND_TAG(const MTag* after, MTag& tag, std::uint32_t mode, bool seek);
  // Takes all nodes with `tag`'s name and major version out of the list, so that CLOSE doesn't copy
  // them. `mode` is not looked at. True if one went.
  bool REMOVE_TAGS(const MTag& tag, std::uint32_t mode);

 private:
  bool openWrite(const std::wstring& name);
  bool openFresh(const std::wstring& name);
  bool scan();
  MTag* append(const MTag& tag);
  void completeList();
  void appendWritten();
  MTag* findUnwritten(const MTag& like);
  void writeHeader(MTag& tag);
  MTag* behind(const MTag* after) const;
  MTag* handOut(MTag* node, bool seek);

  bool setAside(const std::wstring& given_name);
  bool clearBackupName(const MFileName& backup, bool file_is_whole) const;
  bool isNeeded(MFile& backup, bool file_is_whole) const;
  bool keepOldTags();
  bool copyUnwritten(MFile& backup);

  MTag* m_tags = nullptr;   // head of the list, in file order
  MFileName m_backup_name;  // of the latest opening for writing; empty if there was no old file
  std::unique_ptr<qel::tagged::TagNodes> m_nodes;
};
