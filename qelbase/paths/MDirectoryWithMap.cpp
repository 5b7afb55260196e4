#include "qelbase/paths/MDirectoryWithMap.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/listings_internal.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/paths/folder_functions.h"
#include "qelbase/paths/map_file_internal.h"

namespace {

using qel::paths::Joined;
using qel::paths::MapRecord;
using qel::sys::Entry;
using qel::sys::EntryList;
using qel::sys::IsDots;

constexpr std::uint32_t kAbsent = 0xFFFFFFFF;
// So many names may go before the index is built again.
constexpr std::int64_t kMostRemoved = 64;
constexpr std::uint32_t kContradiction = qel::sys::ERROR_NOT_REGISTRY_FILE;

const wchar_t* TextOf(const wchar_t* text) {
  return text ? text : L"";
}

// Or a new one on the way to replace it.
bool IsMapFile(const CStringW& name, const wchar_t* map_file) {
  return name.CompareNoCase(map_file) == 0 ||
         qel::paths::IsPassingMapFile(name.GetString(), map_file);
}

}  // namespace

const wchar_t MDirectoryWithMap::mg_map_file_name_default[5] = L".map";
const wchar_t MDirectoryWithMap::mg_maped_nonmapped_devider[3] = L"->";

MDirectoryWithMap::MDirectoryWithMap() = default;
MDirectoryWithMap::~MDirectoryWithMap() = default;

// --- the tables --------------------------------------------------------------------------------

void MDirectoryWithMap::Clear() {
  m_names.RemoveAll();
  m_flags.RemoveAll();
  m_map.RemoveAll();
  m_mapped.clear();
  m_index.clear();
  m_is_indexed = false;
  m_removed = 0;
  m_has_twins = false;
  m_map_folder.Empty();
  m_known.clear();
}

void MDirectoryWithMap::ClearMapFromUnusedNames() {
  if (m_map.IsEmpty()) return;
  qel::framework::StringTable<bool> used;
  for (std::int64_t i = 0; i < m_names.GetSize(); ++i) {
    const wchar_t* name = m_names[i].GetString();
    if (Name2MappedName(name, nullptr) && !used.findFolded(name)) used.add(name);
  }
  std::vector<MapRecord> unused;
  CStringW name, mapped;
  for (POSITION at = m_map.GetStartPosition(); at;) {
    m_map.GetNextAssoc(at, name, mapped);
    if (!used.findFolded(name.GetString()))
      unused.push_back({name.GetString(), mapped.GetString()});
  }
  for (const MapRecord& record : unused) {
    _RemoveRecord(record.name);
    auto* entry = m_known.findFolded(record.mapped);
    Names::valueOf(entry ? entry : m_known.add(record.mapped)) = record.name;
  }
}

void MDirectoryWithMap::_AddName(CStringW name, std::uint16_t flags) {
  const std::int64_t place = m_names.GetSize();
  m_names.SetSize(place + 1);
  m_names[place] = std::move(name);
  m_flags.Add(flags);
  if (m_is_indexed) _AddToIndex(place);
}

void MDirectoryWithMap::_AddToIndex(std::int64_t place) const {
  const wchar_t* name = m_names[place].GetString();
  auto* exact = m_index.find(name);
  m_has_twins = m_has_twins || exact || m_index.findFolded(name);
  Index::valueOf(exact ? exact : m_index.add(name)) = place;
}

void MDirectoryWithMap::_SetRecord(const CStringW& name, const CStringW& mapped) {
  _RemoveRecord(name);
  m_map[name] = mapped;
  auto* entry = m_mapped.findFolded(mapped.GetString());
  Names::valueOf(entry ? entry : m_mapped.add(mapped.GetString())) = name;
}

void MDirectoryWithMap::_RemoveRecord(const CStringW& name) {
  CStringW mapped;
  if (!m_map.Lookup(name, mapped)) return;
  m_map.RemoveKey(name);
  auto* entry = m_mapped.findFolded(mapped.GetString());
  if (entry && Names::valueOf(entry).CompareNoCase(name) == 0) m_mapped.remove(entry);
}

void MDirectoryWithMap::_BuildIndex() const {
  m_index.clear();
  m_removed = 0;
  m_has_twins = false;
  m_is_indexed = true;
  m_index.reserve(static_cast<std::size_t>(m_names.GetSize()));
  for (std::int64_t i = 0; i < m_names.GetSize(); ++i) _AddToIndex(i);
}

std::int64_t MDirectoryWithMap::_Position(const wchar_t* name) const {
  if (!m_is_indexed || m_removed > kMostRemoved) _BuildIndex();
  auto* entry = m_index.find(name);
  if (!entry && m_has_twins) {
    std::int64_t i = m_names.GetUpperBound();
    while (i >= 0 && m_names[i].CompareNoCase(name) != 0) --i;
    return i;
  }
  if (!entry) entry = m_index.findFolded(name);
  if (!entry) return -1;
  // What was removed in front of it has moved it forwards.
  const std::int64_t last = std::min(Index::valueOf(entry), m_names.GetUpperBound());
  for (std::int64_t i = last; i >= 0 && i >= Index::valueOf(entry) - m_removed; --i) {
    if (m_names[i] == entry->text()) return i;
  }
  return -1;
}

std::int64_t MDirectoryWithMap::GetCount() const {
  return m_names.GetSize();
}

void MDirectoryWithMap::GetName(CStringW& result, std::int64_t index) const {
  result = m_names[index];
}

CStringW& MDirectoryWithMap::GetMappedName(CStringW& result, std::int64_t index) const {
  result = m_names[index];
  if ((m_flags[index] & ENTRY_MAPPED) != 0) m_map.Lookup(m_names[index], result);
  return result;
}

std::uint16_t MDirectoryWithMap::GetNameFlags(std::int64_t index) const {
  return m_flags[index];
}

std::uint32_t MDirectoryWithMap::GetNameIndex(const wchar_t* name) const {
  const std::int64_t position = _Position(TextOf(name));
  return position < 0 ? kAbsent : static_cast<std::uint32_t>(position);
}

std::uint32_t MDirectoryWithMap::GetMappedNameIndex(const wchar_t* name) const {
  CStringW on_disk = name;
  MappedName2Name(name, &on_disk);
  return GetNameIndex(on_disk);
}

bool MDirectoryWithMap::Name2MappedName(const wchar_t* name, CStringW* result) const {
  CStringW mapped;
  if (!m_map.Lookup(TextOf(name), mapped)) return false;
  if (result) *result = mapped;
  return true;
}

bool MDirectoryWithMap::MappedName2Name(const wchar_t* mapped, CStringW* result) const {
  auto* entry = m_mapped.findFolded(TextOf(mapped));
  if (entry && result) *result = Names::valueOf(entry);
  return entry != nullptr;
}

bool MDirectoryWithMap::GetNonmappedName(CStringW& result, const wchar_t* name) const {
  if (MappedName2Name(name, &result)) return true;
  const std::uint32_t index = GetNameIndex(name);
  if (index != kAbsent) result = m_names[index];
  return index != kAbsent;
}

std::uint16_t MDirectoryWithMap::RemoveName(const wchar_t* name) {
  const std::int64_t position = _Position(TextOf(name));
  if (position < 0) return 0;
  const CStringW removed = m_names[position];
  const std::uint16_t flags = m_flags[position];
  m_names.RemoveAt(position);
  m_flags.RemoveAt(position);
  if (auto* entry = m_index.find(removed.GetString())) m_index.remove(entry);
  ++m_removed;
  _RemoveRecord(removed);
  return flags;
}

// --- the map file ------------------------------------------------------------------------------

void MDirectoryWithMap::_WriteMapFileEntry(std::string& bytes, const CStringW& name,
                                           const CStringW& mapped) {
  bytes += qel::paths::MapFileText({name.GetString(), mapped.GetString()});
}

std::uint32_t MDirectoryWithMap::WriteMapFile(const wchar_t* path, const wchar_t* sub_name) const {
  CStringW file = path;
  if (sub_name) AssurePathAppend(file, sub_name);
  std::string bytes;
  CStringW name, mapped;
  for (POSITION at = m_map.GetStartPosition(); at;) {
    m_map.GetNextAssoc(at, name, mapped);
    _WriteMapFileEntry(bytes, name, mapped);
  }
  return qel::paths::ReplaceMapFile(file, bytes);
}

std::uint32_t MDirectoryWithMap::_ReadRecords(const CStringW& folder, const wchar_t* map_file) {
  std::vector<MapRecord> records;
  const std::uint32_t code = qel::paths::ReadMapFile(Joined(folder, map_file), records);
  if (code != 0) return code;
  for (const MapRecord& record : records) {
    const CStringW name = record.name, mapped = record.mapped;
    CStringW other;
    if (MappedName2Name(mapped, &other) && other != name) return kContradiction;
    _SetRecord(name, mapped);
  }
  return 0;
}

// --- reading a folder --------------------------------------------------------------------------

std::uint32_t MDirectoryWithMap::Read(const wchar_t* path, std::uint16_t flags,
                                      const wchar_t* map_file, const wchar_t* pattern,
                                      const wchar_t* prefix) {
  if (!prefix) Clear();
  CStringW folder = path;
  AssurePath(folder);
  const wchar_t* map_name = map_file ? map_file : mg_map_file_name_default;
  bool keeps = false;
  const std::uint32_t code =
      _Read(folder, flags, map_name, pattern ? pattern : L"*.*", TextOf(prefix), keeps);
  if (code != 0 && !keeps) Clear();
  const bool knows_map = code == 0 && !prefix && !map_file && (flags & READ_MAP) != 0;
  if (knows_map) m_map_folder = folder;
  return code;
}

// `keeps` is set where a failure leaves the tables to the call for the sub-folder, which emptied
// them.
std::uint32_t MDirectoryWithMap::_Read(const CStringW& folder, std::uint16_t flags,
                                       const wchar_t* map_file, const wchar_t* pattern,
                                       const CStringW& prefix, bool& keeps) {
  std::uint32_t code = 0;
  if ((flags & READ_MAP) != 0) code = _ReadRecords(folder, map_file);
  if (code != 0) return code;
  const bool descends = (flags & READ_DESCEND) != 0;
  // Each sub-folder looks the names of all others up.
  if (descends && !m_is_indexed) _BuildIndex();
  if (descends) code = _ReadSubFolders(folder, flags, map_file, pattern, prefix);
  if (code != 0) {
    keeps = true;
    return code;
  }
  code = _ReadEntries(folder, flags, map_file, pattern, prefix);
  if (descends && code == qel::sys::ERROR_FILE_NOT_FOUND) return 0;
  if (code == 0) ClearMapFromUnusedNames();
  return code;
}

std::uint32_t MDirectoryWithMap::_ReadSubFolders(const CStringW& folder, std::uint16_t flags,
                                                 const wchar_t* map_file, const wchar_t* pattern,
                                                 const CStringW& prefix) {
  EntryList entries;
  if (qel::sys::ListEntries(Joined(folder, L"*.*").GetString(), entries) != 0) return 0;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const Entry entry = entries[i];
    if (!entry.is_folder || entry.is_link || IsDots(entry.native)) continue;
    const CStringW name = entry.name();
    const CStringW sub_prefix = prefix.IsEmpty() ? name : prefix + L"\\" + name;
    const std::uint32_t code = Read(Joined(folder, name), flags, map_file, pattern, sub_prefix);
    if (code != 0) return code;
  }
  return 0;
}

std::uint32_t MDirectoryWithMap::_ReadEntries(const CStringW& folder, std::uint16_t flags,
                                              const wchar_t* map_file, const wchar_t* pattern,
                                              const CStringW& prefix) {
  EntryList entries;
  const std::wstring search = std::wstring(folder.GetString()) + pattern;
  const std::uint32_t code = qel::sys::ListEntries(search, entries);
  if (code != 0) return code;
  const bool reads_map = (flags & READ_MAP) != 0;
  m_names.SetSize(m_names.GetSize(), static_cast<std::int64_t>(entries.size()));
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const Entry entry = entries[i];
    const bool is_dots = IsDots(entry.native);
    const std::uint16_t kind = entry.is_folder ? ENTRY_FOLDER : ENTRY_FILE;
    if ((flags & kind) == 0 || (is_dots && (flags & READ_DOTS) == 0)) continue;
    CStringW name = entry.name();
    if (!entry.is_folder && reads_map && IsMapFile(name, map_file)) continue;
    if (!prefix.IsEmpty()) name = prefix + L"\\" + name;
    if (MappedName2Name(name, nullptr)) return kContradiction;
    int entry_flags = is_dots ? ENTRY_DOTS | ENTRY_FOLDER : kind;
    if (Name2MappedName(name, nullptr)) entry_flags |= ENTRY_MAPPED;
    _AddName(std::move(name), static_cast<std::uint16_t>(entry_flags));
  }
  return 0;
}
