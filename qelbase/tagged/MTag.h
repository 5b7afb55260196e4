#pragma once
// One named, versioned record of a tagged file: its 12-byte header and where it lies.

#include <cstdint>
#include <cstring>

#include "qelbase/export.h"

class MFile;

// A plain value. The header on disk is six name bytes (filled up with zeros), major and minor
// version, and the skip: the 32-bit length of the body, sub-tags included, the header itself not.
//
// READ, WRITE and UPDATE_SKIP tell failure by their result; the file's GET_RESULT knows why. After
// a failure the file's position is where the failed transfer left it, and the tag's positions are
// those of the attempted header.
class QELBASE_API MTag {
 public:
  static constexpr int HeaderSize = 12;

  // The version of what is written now, 2.1.
  static const unsigned char m_file_vmajor;
  static const unsigned char m_file_vminor;

  char m_name[7];                // up to six bytes and a zero
  bool m_written;                // the header was written since the tag was last read or created
  bool m_updated;                // UPDATE_SKIP has patched the skip on disk
  unsigned char m_version[2];    // major, minor
  std::int64_t m_position;       // of the header in the file; -1 while not placed
  std::int64_t m_data_position;  // of the body: m_position + 12; -1 while not placed
  std::int64_t m_skip;           // bytes in the body
  MTag* m_next;                  // next node in the list of MFileTagged; null otherwise

  MTag();  // no name, version 1.0
  // Not placed, skip 0, of the version given or else of the present one. A name of more than six
  // bytes is cut; null gives the empty name.
  explicit MTag(const char* name);
  MTag(const char* name, unsigned char major, unsigned char minor);
  void INIT(const char* name);
  void INIT(const char* name, unsigned char major, unsigned char minor);

  // Everything is copied but m_updated: a copy starts with false, a target keeps its own.
  MTag(const MTag& other) : m_updated(false) { *this = other; }
  inline MTag& operator=(const MTag& other);

  // Names and major versions are equal. Names compare byte by byte up to the zero.
  bool operator==(const MTag& other) const;
  // Names are equal and, unless `mode` is 0, this tag's major version is not below `other`'s
  // (mode 1) or equals it (other modes).
  bool COMPARE(const MTag& other, std::uint32_t mode) const;

  // The header at the file's current position. A negative skip, which no sound file holds, is given
  // as it is read.
  bool READ(MFile& file);
  // Writes the header at the file's current position, with the low 32 bits of the skip.
  bool WRITE(MFile& file);
  // Called with the file at the end of the body: patches the written header's skip and returns to
  // that end. True without doing anything if it was called before. A length that 31 bits can't tell
  // is refused with a log line: false, and the header keeps its skip on disk and here.
  bool UPDATE_SKIP(MFile& file);
  void UNDO_UPDATE() { m_updated = false; }  // lets UPDATE_SKIP work again

  unsigned char* VERSION() { return m_version; }  // major, minor; may be changed
  const unsigned char* VERSION() const { return m_version; }
};

inline MTag& MTag::operator=(const MTag& other) {
  if (this == &other) return *this;
  std::memcpy(m_name, other.m_name, 6);  // as it was put down, so that the copy needn't wait for it
  m_name[6] = other.m_name[6];
  m_written = other.m_written;
  m_version[0] = other.m_version[0];
  m_version[1] = other.m_version[1];
  m_position = other.m_position;
  m_data_position = other.m_data_position;
  m_skip = other.m_skip;
  m_next = other.m_next;
  return *this;
}
