#include <cstring>
#include <string>

#include "qelbase/outside/components/MFile.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/tagged/MTagList.h"
#include "qelbase/tagged/storage_internal.h"
#include "qelbase/tagged/tags_internal.h"

using qel::tagged::BufferSize;
using qel::tagged::FileLock;
using QelSDK::Common::Logging::LogMessage;

namespace {

// Logs one line; always false.
template <class... Pieces>
bool fail(const Pieces&... pieces) {
  qel::tagged::LogFailure(L"In MTagList::CONVERT() : ", pieces...);
  return false;
}

// "2.1", in decimal.
std::wstring versionText(const MTag& tag) {
  return std::to_wstring(tag.m_version[0]) + L'.' + std::to_wstring(tag.m_version[1]);
}

bool readHead(const std::wstring& file, MTag& head) {
  MFile input(BufferSize);
  if (!input.OPEN_READ(file.c_str())) return fail(L"Could not open file '", file, L"'");
  if (head.READ(input)) return true;
  return fail(L"Could not read header tag from '", file, L"'");
}

// Whether the file, whose version is not below the wanted one, is of that version.
bool isConverted(const std::wstring& file, const MTag& head, const MTag& wanted) {
  if (head.m_version[0] > wanted.m_version[0]) {
    return fail(L"File '", file, L"' contains a newer version number V", versionText(head),
                L", cannot process !");
  }
  fail(L"File '", file, L"' already contains version V", versionText(head));
  return true;
}

// Puts an old tag down as the new one with a "DATA" tag inside, which becomes the entry. The input
// stands on the body.
bool nest(MFile& input, MFile& output, MTag& entry, const MTag& wanted) {
  MTag outer = entry;
  outer.m_version[0] = wanted.m_version[0];
  outer.m_version[1] = wanted.m_version[1];
  std::memcpy(entry.m_name, "DATA", 5);  // a sixth letter stays; readers look at five bytes
  return outer.WRITE(output) && entry.WRITE(output) &&
         output.COPY(input, entry.m_skip) == entry.m_skip && entry.UPDATE_SKIP(output) &&
         outer.UPDATE_SKIP(output);
}

}  // namespace

bool MTagList::CONVERT(const MFileName& name, unsigned char major, unsigned char minor) {
  const bool to_present = major == 0 && minor == 0;
  const MTag wanted = to_present ? MTag("QELCOM") : MTag("QELCOM", major, minor);
  const std::wstring file = name.GET();
  FileLock lock(file, FileLock::Try);
  if (lock.isTaken()) return fail(L"Could not open file '", file, L"'");
  MTag old;
  if (!readHead(file, old)) return false;
  if (old.m_version[0] >= wanted.m_version[0]) return isConverted(file, old, wanted);

  MFileName temporary;
  MFile input(BufferSize);
  if (!qel::tagged::MoveOnlyCopy(qel::tagged::FollowLinks(file), temporary) ||
      !input.OPEN_READ(temporary.GET())) {
    return fail(L"Could not read the tagged file '", temporary.GET(), L".");
  }
  const bool rewritten = rewriteAs(file, wanted, input);
  // What stands behind the last tag doesn't go over; it isn't thrown away either.
  if (rewritten && input.FEOF()) {
    input.CLOSE();
    temporary.REMOVE();
    return true;
  }
  LogMessage where(L"In MTagList::CONVERT() : The old content of '");
  where << file << L"' is in '" << temporary.GET() << L"'";
  qel::tagged::GetLibraryLogger().LogInformation(where);
  return rewritten;
}

// Writes the new file from the old one, onto the disk.
bool MTagList::rewriteAs(const std::wstring& file, const MTag& wanted, MFile& input) {
  qel::tagged::CreateLike(input.GET_FILENAME(), qel::tagged::FollowLinks(file));
  MFile output(BufferSize);
  if (!output.OPEN_WRITE(file.c_str())) {
    return fail(L"Could not create the file '", file, L"'");
  }
  const FileLock lock(file, FileLock::Wait);  // until here it was empty
  if (!BUILD_TAG_LIST(input) || input.GET_RESULT() != 0) {
    return fail(L"Could not build tag list of given file '", file, L"'");
  }
  if (writeNested(input, output, wanted) && input.GET_RESULT() == 0 && output.SYNC() &&
      qel::tagged::SyncFolderOf(qel::tagged::FollowLinks(file))) {
    return true;
  }
  return fail(L"Error writing to file '", file, L"'");
}

// Leaves the input behind the last body.
bool MTagList::writeNested(MFile& input, MFile& output, const MTag& wanted) {
  MTag head = wanted;
  if (!head.WRITE(output) || !head.UPDATE_SKIP(output)) return false;
  input.SEEK(m_head.m_data_position, 0);
  for (MTag* entry = NEXT_TAG(input, nullptr, true); entry; entry = NEXT_TAG(input, entry, true)) {
    if (!nest(input, output, *entry, wanted)) return false;
  }
  return true;
}
