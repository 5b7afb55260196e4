#pragma once
// Writing tagged files piece by piece.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "qelbase/outside/components/MFile.h"
#include "qelbase/tagged/MTag.h"

namespace qel::tool {

// A file that is read or written, and the name that messages give it.
struct NamedFile {
  MFile& file;
  const std::string& native;
};

// In bytes; throws Trouble if the system cannot tell.
std::int64_t SizeOf(const NamedFile& file);

// Bytes [begin, end) of the source give way to what `write` writes.
struct Splice {
  std::int64_t begin = 0;
  std::int64_t end = 0;
  std::vector<std::int64_t> enclosing;  // positions of the headers whose bodies this changes
  std::function<void(const NamedFile& target)> write;  // may be empty
};

// Copies bytes [begin, end) of the source to the target's position, with the splices made and the
// enclosing skips corrected. The splices lie in that stretch, in order, and do not overlap; so do
// the headers that they name. Throws Trouble, also when a skip leaves its 31 bits.
void CopyWithSplices(const NamedFile& source, std::int64_t begin, std::int64_t end,
                     const std::vector<Splice>& splices, const NamedFile& target);

// Copies `size` bytes from `position` of the source to the target's position.
void CopyBytes(const NamedFile& source, std::int64_t position, std::int64_t size,
               const NamedFile& target);

// Writes a header with the skip that `tag` holds, at the target's position, and takes that over
// into `tag`.
void WriteHeader(const NamedFile& target, MTag& tag);

// The body of `tag` has just been written: its skip becomes true.
void CloseTag(const NamedFile& target, MTag& tag);

// A head tag of the version.
void WriteHead(const NamedFile& target, unsigned char major, unsigned char minor);

}  // namespace qel::tool
