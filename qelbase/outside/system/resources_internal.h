#pragma once
// The reader of compiled resource files (.res). It trusts nothing: what doesn't fit ends the list.
// Format: https://learn.microsoft.com/windows/win32/menurc/resource-file-formats

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "qelbase/outside/system/cursor_internal.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

// A type or a name: a number, or a text.
struct ResourceName {
  WORD number = 0;
  std::optional<std::wstring> text;

  // From the way callers give it; see resources.h. A null pointer is number 0.
  static ResourceName FromCaller(const wchar_t* name);
  bool Matches(const ResourceName& other) const;
};

struct ResourceEntry {
  ResourceName type;
  ResourceName name;
  WORD language = 0;
  const std::byte* header = nullptr;
  Bytes data;
};

// Goes through the entries of a resource file, or of several, one behind the other.
class ResourceReader {
 public:
  explicit ResourceReader(Bytes file) : m_rest(file) {}
  // False at the end, or where the file is damaged. The bytes belong to the file.
  bool Next(ResourceEntry& entry);

 private:
  Bytes m_rest;
};

// The string with this place (0 to 15) in a string block; empty if there is none.
std::wstring StringOfBlock(Bytes block, unsigned place);

// The content of the notes that hold resource files, among the notes in `segment` (the content of a
// PT_NOTE segment, or of the section ".note.qelbase.resources"). Gives them one by one: true while
// there is a next one.
bool NextResourceNote(Bytes& segment, Bytes& file);

// The place of a language in that rule: the lower, the better.
[[nodiscard]] int RankOfLanguage(WORD language);

// The resource that the language rule chooses among those of this type and name.
// `error` becomes 1812, 1813 or 1814 when there is none.
std::optional<ResourceEntry> ChooseResource(Bytes file, const ResourceName& type,
                                            const ResourceName& name, DWORD& error);

}  // namespace qel::sys
