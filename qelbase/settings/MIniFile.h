#pragma once
// A whole ini file in memory: sections of named text values.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/text/CMapStringI.h"

// Names of sections and entries are found without regard to case and kept as first written. A value
// may run over several lines. A filter can limit reading to records of interest. For each name
// there are two files: a narrow one, which is only read, and beside it a wide one with "_u" in its
// name, which is preferred for reading and the only one that is written. docs/formats/ini-file.md
// tells both forms.
//
// The base maps section names to Section objects, which the MIniFile owns. Sections and entries are
// numbered in the order of the maps, which is the order in which they were added; finding one by
// number walks there. Values stay where they were read, in the bytes of their file, until they are
// changed; so a value holds on to these bytes.
//
// Pointers to text may be null only where it is said. Codes are the system's, 0 for success. An
// object belongs to one thread at a time.
class QELBASE_API MIniFile : public CMapStringIToPtr {
 public:
  struct Section {
    CStringW name;  // as first given
    CMapStringIToString entries{10};
  };

  // Flags of Clear.
  static constexpr std::uint32_t CLEAR_SECTIONS = 1;
  static constexpr std::uint32_t CLEAR_VALUES = 2;  // keeps the names, unless sections go too
  static constexpr std::uint32_t CLEAR_FILTER = 4;  // the filter stays in force, without records

  MIniFile();
  ~MIniFile() override;

  static const wchar_t mg_comments_characters[3];

  // --- files ---

  // Reads the wide file, or the narrow one where there is none. `flag` 0 replaces the model, else
  // it adds to it. No file at all (2) counts as an empty one. A damaged file gives a code (1017 for
  // an endless line, 1113 for bytes that are no text) and leaves what stands before the damage.
  std::uint32_t ReadFromFile(const wchar_t* name, int flag);
  // Replaces the model, or adds to it, from a stream's position on; wide text as the last
  // ReadFromFile found it, narrow on a new object. The stream stays the caller's.
  std::uint32_t Read(std::FILE& stream);
  std::uint32_t Append(std::FILE& stream);
  // Writes the wide file of `name`. `comment` may be null or empty; it is not read back. 32 if
  // somebody has the file open. A file that fails in the middle stays, with what was written.
  std::uint32_t WriteToFile(const wchar_t* name, const wchar_t* comment) const;
  // The name of the wide file: "_u" before the last dot of the last component, else before its last
  // character. `result` has room for the name and three more; ReadFromFile and WriteToFile take
  // names of up to 257 characters (206 for longer ones).
  static wchar_t* MakeUnicodeName(wchar_t* result, const wchar_t* name);

  // --- the model ---

  void Clear(std::uint32_t flags);
  std::uint32_t GetSectionsCount() const;
  // The section's number must be below GetSectionsCount.
  std::uint32_t GetEntriesCount(std::uint32_t section) const;
  CStringW& GetSectionName(CStringW& result, std::uint32_t section) const;
  // The name of the entry, or its value if `value` is not 0. A number past the end gives the last.
  CStringW& GetEntryName(CStringW& result, std::uint32_t section, std::uint32_t entry,
                         int value) const;

  bool HasValue(const wchar_t* section, const wchar_t* entry) const;
  bool GetValue(CStringW& result, const wchar_t* section, const wchar_t* entry) const;
  CStringW& GetValue(CStringW& result, const wchar_t* section, const wchar_t* entry,
                     const wchar_t* default_value) const;
  CStringW& GetValue(CStringW& result, const wchar_t* section, const wchar_t* entry,
                     const CStringW& default_value) const;
  // Decimal, 0x and 0b numbers, and true, on, false, off. The default if there is no value or no
  // number in it. What follows a number is not looked at.
  std::uint32_t GetValueDWORD(const wchar_t* section, const wchar_t* entry,
                              std::uint32_t default_value) const;
  // The default also for an infinite number. The decimal point is a point in every locale.
  double GetValueDouble(const wchar_t* section, const wchar_t* entry, double default_value) const;

  // Sets a value; a null text is an empty one. With a null `entry` only the section is made, and
  // the result tells whether it is new. With `report` the result tells whether anything changed
  // (case counts), else it is true.
  bool SetValue(const wchar_t* section, const wchar_t* entry, const wchar_t* text, bool report);
  bool SetValue(const wchar_t* section, const wchar_t* entry, std::uint32_t number, bool report);

  // --- the filter ---

  // A null entry stands for the whole section. A null section empties the filter, if there is one.
  void SetInterestedRecord(const wchar_t* section, const wchar_t* entry);
  void AddInterestedRecord(const wchar_t* section, const wchar_t* entry);
  bool IsRecordInterested(const wchar_t* section, const wchar_t* entry) const;

 private:
  class Reader;

  Section* _SectionAt(std::uint32_t index) const;
  static Section& _TakeSection(CMapStringIToPtr& map, const wchar_t* name);  // made if missing

  std::unique_ptr<CMapStringIToPtr> m_filter;
  bool m_wide = false;
};
