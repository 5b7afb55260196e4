#include "qelbase/settings/MIniFile.h"

#include <algorithm>
#include <cmath>

#include "qelbase/outside/system/text.h"

namespace {

using Section = MIniFile::Section;

Section* findSection(const CMapStringIToPtr& map, const wchar_t* name) {
  void* found = nullptr;
  map.Lookup(name, found);
  return static_cast<Section*>(found);
}

template <typename Visit>
void forEachSection(const CMapStringIToPtr& map, Visit visit) {
  CStringW name;
  void* section = nullptr;
  for (POSITION at = map.GetStartPosition(); at;) {
    map.GetNextAssoc(at, name, section);
    visit(static_cast<Section*>(section));
  }
}

void removeSections(CMapStringIToPtr& map) {
  forEachSection(map, [](Section* section) { delete section; });
  map.RemoveAll();
}

void emptyValues(Section* section) {
  CStringW name, value;
  for (POSITION at = section->entries.GetStartPosition(); at;) {
    section->entries.GetNextAssoc(at, name, value);
    section->entries[name] = L"";
  }
}

bool isOneOf(const CStringW& text, std::initializer_list<const wchar_t*> words) {
  return std::any_of(words.begin(), words.end(),
                     [&](const wchar_t* word) { return text.CompareNoCase(word) == 0; });
}

struct Digits {
  const wchar_t* begin;
  int base;
};

Digits digitsOf(const wchar_t* text) {
  if (text[0] != L'0') return {text, 10};
  if (text[1] == L'x' || text[1] == L'X') return {text + 2, 16};
  if (text[1] == L'b' || text[1] == L'B') return {text + 2, 2};
  return {text, 10};
}

bool stoppedAtText(const wchar_t* end) {
  return *end != L'\0' && !qel::sys::IsSpace(*end);
}

}  // namespace

const wchar_t MIniFile::mg_comments_characters[3] = L";#";

MIniFile::MIniFile() = default;

MIniFile::~MIniFile() {
  Clear(CLEAR_SECTIONS | CLEAR_VALUES | CLEAR_FILTER);
}

void MIniFile::Clear(std::uint32_t flags) {
  if ((flags & CLEAR_SECTIONS) != 0) {
    removeSections(*this);
  } else if ((flags & CLEAR_VALUES) != 0) {
    forEachSection(*this, emptyValues);
  }
  if ((flags & CLEAR_FILTER) != 0 && m_filter) removeSections(*m_filter);
}

MIniFile::Section& MIniFile::_TakeSection(CMapStringIToPtr& map, const wchar_t* name) {
  void*& place = map[name];
  if (!place) place = new Section{.name = name};
  return *static_cast<Section*>(place);
}

// --- by number ---

std::uint32_t MIniFile::GetSectionsCount() const {
  return static_cast<std::uint32_t>(GetCount());
}

MIniFile::Section* MIniFile::_SectionAt(std::uint32_t index) const {
  CStringW name;
  void* section = nullptr;
  POSITION at = GetStartPosition();
  for (std::uint32_t i = 0; at && i <= index; ++i) GetNextAssoc(at, name, section);
  return static_cast<Section*>(section);
}

std::uint32_t MIniFile::GetEntriesCount(std::uint32_t section) const {
  const Section* found = _SectionAt(section);
  return found ? static_cast<std::uint32_t>(found->entries.GetCount()) : 0;
}

CStringW& MIniFile::GetSectionName(CStringW& result, std::uint32_t section) const {
  const Section* found = _SectionAt(section);
  if (found) result = found->name;
  return result;
}

CStringW& MIniFile::GetEntryName(CStringW& result, std::uint32_t section, std::uint32_t entry,
                                 int value) const {
  const Section* found = _SectionAt(section);
  if (!found) return result;
  CStringW name, text;
  POSITION at = found->entries.GetStartPosition();
  for (std::uint32_t i = 0; at && i <= entry; ++i) found->entries.GetNextAssoc(at, name, text);
  return result = value != 0 ? text : name;
}

// --- by name ---

bool MIniFile::HasValue(const wchar_t* section, const wchar_t* entry) const {
  CStringW ignored;
  return GetValue(ignored, section, entry);
}

bool MIniFile::GetValue(CStringW& result, const wchar_t* section, const wchar_t* entry) const {
  const Section* found = findSection(*this, section);
  return found && found->entries.Lookup(entry, result);
}

CStringW& MIniFile::GetValue(CStringW& result, const wchar_t* section, const wchar_t* entry,
                             const wchar_t* default_value) const {
  if (!GetValue(result, section, entry)) result = default_value;
  return result;
}

CStringW& MIniFile::GetValue(CStringW& result, const wchar_t* section, const wchar_t* entry,
                             const CStringW& default_value) const {
  return GetValue(result, section, entry, default_value.GetString());
}

std::uint32_t MIniFile::GetValueDWORD(const wchar_t* section, const wchar_t* entry,
                                      std::uint32_t default_value) const {
  CStringW text;
  if (!GetValue(text, section, entry)) return default_value;
  if (isOneOf(text, {L"true", L"on"})) return 1;
  if (isOneOf(text, {L"false", L"off"})) return 0;
  const Digits digits = digitsOf(text);
  const wchar_t* end = digits.begin;
  const std::uint32_t number = qel::sys::wcstoul(digits.begin, &end, digits.base);
  const bool suspicious = number == 0 || number == UINT32_MAX;
  return suspicious && stoppedAtText(end) ? default_value : number;
}

double MIniFile::GetValueDouble(const wchar_t* section, const wchar_t* entry,
                                double default_value) const {
  CStringW text;
  if (!GetValue(text, section, entry) || text.Trim().IsEmpty()) return default_value;
  const wchar_t* end = text;
  const double number = qel::sys::wcstod(text, &end);
  const bool no_number = number == 0 && stoppedAtText(end);
  return std::isinf(number) || no_number ? default_value : number;
}

bool MIniFile::SetValue(const wchar_t* section, const wchar_t* entry, const wchar_t* text,
                        bool report) {
  const bool new_section = !findSection(*this, section);
  Section& target = _TakeSection(*this, section);
  if (!entry) return new_section;
  if (!text) text = L"";
  CStringW old;
  if (report && target.entries.Lookup(entry, old) && old == text) return new_section;
  target.entries[entry] = text;
  return true;
}

bool MIniFile::SetValue(const wchar_t* section, const wchar_t* entry, std::uint32_t number,
                        bool report) {
  return SetValue(section, entry, std::to_wstring(number).c_str(), report);
}

// --- the filter ---

void MIniFile::AddInterestedRecord(const wchar_t* section, const wchar_t* entry) {
  if (!m_filter) m_filter = std::make_unique<CMapStringIToPtr>(std::uint16_t{10});
  Section& records = _TakeSection(*m_filter, section);
  if (entry) {
    records.entries[entry];
  } else {
    records.entries.RemoveAll();
  }
}

void MIniFile::SetInterestedRecord(const wchar_t* section, const wchar_t* entry) {
  if (!section) return Clear(CLEAR_FILTER);
  // AddInterestedRecord copies nothing that lies in the filter, so the names are kept over Clear.
  const CStringW section_name(section), entry_name(entry);
  Clear(CLEAR_FILTER);
  AddInterestedRecord(section_name, entry ? entry_name.GetString() : nullptr);
}

bool MIniFile::IsRecordInterested(const wchar_t* section, const wchar_t* entry) const {
  if (!m_filter) return true;
  const Section* records = findSection(*m_filter, section);
  if (!records) return false;
  CStringW ignored;
  return !entry || records->entries.IsEmpty() != 0 || records->entries.Lookup(entry, ignored);
}
