#pragma once
// Folders under names that a file system refuses.

#include <cstdint>
#include <string>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CArrays.h"
#include "qelbase/outside/framework/StringTable.h"
#include "qelbase/text/CMapStringI.h"

namespace qel::paths {
struct MapRecord;
}

// Asked before each removal of DeleteFolder.
class QELBASE_API IDirectoryRemoveAsker {
 public:
  // 0 goes on; 0xFFFFFFFF stops with code 1223; any other value stops with that value as the code.
  // Must not change the folder.
  virtual std::uint32_t AskRemove(bool is_folder, const wchar_t* path, const wchar_t* name) = 0;

 protected:
  ~IDirectoryRemoveAsker() = default;
};

// The listing of a folder in which an entry can have two names: its *name* on the disk, and the
// *mapped name* that the caller wanted. A folder whose wanted name the file system refuses (too
// long, with a separator or another character in it that no name may have) is created under a
// generated one, and the pair is recorded in the map file, ".map" in the parent folder
// (docs/formats/folder-map.md). Callers work with the wanted name throughout.
//
// Names are looked up without regard to case; where two names of a folder differ in case alone, the
// exact one wins. Searches by either name take the same time in a folder of any size.
//
// Codes: 0, one of the system's, or
//   2     a listing without DESCEND found nothing      29    the map file can't be written
//   5     the map file that DeleteFolder needs is gone  30    the map file can't be read
//   4     no name is free                              87    a name that is not below the folder
//   123   a name that no record can hold               1017  the map file contradicts itself
//   1223  the asker cancelled
//
// No locks: an object belongs to one thread at a time, and the map file is not protected against a
// second process. It is never half-written: a new file takes the old one's place, and a record is
// appended before its folder is made.
class QELBASE_API MDirectoryWithMap {
 public:
  enum EntryFlag : std::uint16_t {
    ENTRY_MAPPED = 1,
    ENTRY_DOTS = 2,  // "." or ".."; with ENTRY_FOLDER
    ENTRY_FOLDER = 4,
    ENTRY_FILE = 8,
  };
  enum ReadFlag : std::uint16_t {
    READ_MAP = 1,  // and leave the map file out of the listing
    READ_DOTS = 2,
    READ_FOLDERS = 4,
    READ_FILES = 8,
    READ_DESCEND = 16,  // into sub-folders, but not through links
  };

  static const wchar_t mg_map_file_name_default[5];    // ".map"
  static const wchar_t mg_maped_nonmapped_devider[3];  // "->"

  MDirectoryWithMap();
  ~MDirectoryWithMap();
  MDirectoryWithMap(const MDirectoryWithMap&) = delete;
  MDirectoryWithMap& operator=(const MDirectoryWithMap&) = delete;

  // Fills the tables from a folder; they are empty after a failure. `map_file` null: the default
  // name. `pattern` null: all. With a `prefix` the tables are added to, and it stands with a
  // backslash in front of each name. Without READ_DESCEND a folder in which nothing answers to the
  // pattern gives 2. A map file that can't be opened counts as none; its records for names that are
  // not listed are dropped.
  std::uint32_t Read(const wchar_t* path, std::uint16_t flags, const wchar_t* map_file,
                     const wchar_t* pattern, const wchar_t* prefix);
  void Clear();
  void ClearMapFromUnusedNames();  // drops the records of names that are not in the tables

  // An index from 0 to GetCount() - 1; any other throws std::out_of_range.
  std::int64_t GetCount() const;
  void GetName(CStringW& result, std::int64_t index) const;
  // The mapped name if there is one, else the name.
  CStringW& GetMappedName(CStringW& result, std::int64_t index) const;
  std::uint16_t GetNameFlags(std::int64_t index) const;

  // 0xFFFFFFFF if absent.
  std::uint32_t GetNameIndex(const wchar_t* name) const;
  std::uint32_t GetMappedNameIndex(const wchar_t* name) const;  // of a mapped name, else of a name
  // `result` may be null, and is left alone on a miss.
  bool Name2MappedName(const wchar_t* name, CStringW* result) const;
  bool MappedName2Name(const wchar_t* mapped, CStringW* result) const;
  // The name on the disk behind a mapped name or a name; false if it is neither.
  bool GetNonmappedName(CStringW& result, const wchar_t* name) const;
  std::uint16_t RemoveName(const wchar_t* name);  // out of all tables; its flags, 0 if absent

  // Replaces the map file with what the map holds now. A `sub_name` is joined to `path`.
  std::uint32_t WriteMapFile(const wchar_t* path, const wchar_t* sub_name) const;

  // Finds or creates the folder `name` in `folder` (with a closing backslash), which becomes its
  // path, closed by a backslash. With `read` the folder is read first. After a failure no new
  // folder and no new record is left. A record whose folder is gone is replaced.
  std::uint32_t CheckCreateFolder(CStringW& folder, const wchar_t* name, bool read);

  // Removes the folder `name` of `folder` with all its content, and its record. `folder` becomes
  // its path; after a failure, the path where it failed. Everything is looked at before anything is
  // removed; `asker` may be null. Links are removed and never followed, and nothing on another
  // mounted file system is touched (17). A read-only file stops the removal (5), as does one that
  // is open without sharing its deletion (32).
  std::uint32_t DeleteFolder(CStringW& folder, const wchar_t* name, bool read,
                             IDirectoryRemoveAsker* asker);

 protected:
  // Appends the bytes of one record to those of a map file.
  static void _WriteMapFileEntry(std::string& bytes, const CStringW& name, const CStringW& mapped);

 private:
  using Index = qel::framework::StringTable<std::int64_t>;
  using Names = qel::framework::StringTable<CStringW>;

  std::uint32_t _Read(const CStringW& folder, std::uint16_t flags, const wchar_t* map_file,
                      const wchar_t* pattern, const CStringW& prefix, bool& keeps);
  std::uint32_t _ReadRecords(const CStringW& folder, const wchar_t* map_file);
  std::uint32_t _ReadSubFolders(const CStringW& folder, std::uint16_t flags,
                                const wchar_t* map_file, const wchar_t* pattern,
                                const CStringW& prefix);
  std::uint32_t _ReadEntries(const CStringW& folder, std::uint16_t flags, const wchar_t* map_file,
                             const wchar_t* pattern, const CStringW& prefix);
  void _AddName(CStringW name, std::uint16_t flags);
  void _SetRecord(const CStringW& name, const CStringW& mapped);
  void _RemoveRecord(const CStringW& name);
  std::int64_t _Position(const wchar_t* name) const;
  void _BuildIndex() const;
  void _AddToIndex(std::int64_t place) const;

  std::uint32_t _KnowRecords(const CStringW& folder);
  bool _FindKnown(const CStringW& folder, const CStringW& name, CStringW& on_disk);
  std::uint32_t _GenerateName(const CStringW& folder, const wchar_t* pattern, CStringW& result);
  std::uint32_t _CreateMapped(const CStringW& folder, const CStringW& name, CStringW& on_disk);
  std::uint32_t _CreateUnder(const CStringW& folder, const qel::paths::MapRecord& record);
  std::uint32_t _ReplaceStale(const CStringW& folder, const qel::paths::MapRecord& record);
  void _Enter(const CStringW& on_disk, const CStringW& name, bool is_new);

  CStringArray m_names;           // on the disk, relative to the folder that was read
  CWordArray m_flags;             // EntryFlag, one for each name
  CMapStringIToString m_map{10};  // from name to mapped name

  Names m_mapped;  // from mapped name to name
  // From name to its place, or to one behind it. Built by the first search, kept up from then on.
  mutable Index m_index;
  mutable bool m_is_indexed = false;
  mutable std::int64_t m_removed = 0;  // names removed since the index was built
  mutable bool m_has_twins = false;    // names that are equal, or differ in case alone
  CStringW m_map_folder;               // the folder whose map file is known
  Names m_known;            // its records that are not in the map, from mapped name to name
  DWORD m_last_number = 0;  // of a generated name
};
