#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "qelbase/outside/system/cursor_internal.h"
#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/resources.h"
#include "qelbase/outside/system/resources_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys {

namespace {

bool TakeName(Cursor& cursor, ResourceName& name) {
  char16_t unit;
  if (!cursor.Take(unit)) return false;
  if (unit == 0xFFFF) return cursor.Take(name.number);
  std::u16string text;
  while (unit != 0) {
    text += unit;
    if (!cursor.Take(unit)) return false;
  }
  name.text = FromUtf16(text);
  return true;
}

bool TakeHeader(Bytes header, ResourceEntry& entry) {
  Cursor cursor(header);
  DWORD version;
  WORD flags;
  return cursor.Skip(8) && TakeName(cursor, entry.type) && TakeName(cursor, entry.name) &&
         cursor.Align() && cursor.Take(version) && cursor.Take(flags) &&
         cursor.Take(entry.language);
}

constexpr WORD kNeutral = 0;
constexpr WORD kUsEnglish = 0x409;
constexpr WORD kPrimary = 0x3FF;  // the bits of a language without its country

constexpr std::pair<std::string_view, WORD> kLanguages[] = {
    {"ar", 0x01}, {"bg", 0x02}, {"zh", 0x04}, {"cs", 0x05}, {"da", 0x06}, {"de", 0x07},
    {"el", 0x08}, {"en", 0x09}, {"es", 0x0A}, {"fi", 0x0B}, {"fr", 0x0C}, {"he", 0x0D},
    {"hu", 0x0E}, {"it", 0x10}, {"ja", 0x11}, {"ko", 0x12}, {"nl", 0x13}, {"nb", 0x14},
    {"pl", 0x15}, {"pt", 0x16}, {"ro", 0x18}, {"ru", 0x19}, {"hr", 0x1A}, {"sk", 0x1B},
    {"sv", 0x1D}, {"th", 0x1E}, {"tr", 0x1F}, {"uk", 0x22}, {"sl", 0x24}, {"vi", 0x2A},
};

WORD LanguageOfEnvironment() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);
    if (!value || !*value) continue;
    const std::string_view language = std::string_view(value).substr(0, 2);
    const auto found = std::find_if(std::begin(kLanguages), std::end(kLanguages),
                                    [&](const auto& row) { return row.first == language; });
    return found != std::end(kLanguages) ? found->second : kUsEnglish;
  }
  return kUsEnglish;
}

constinit std::atomic<WORD> user_language{0};

WORD UserLanguage() {
  static const WORD of_environment = LanguageOfEnvironment();
  const WORD set = user_language;
  return set != 0 ? set : of_environment;
}

}  // namespace

int RankOfLanguage(WORD language) {
  const WORD user = UserLanguage();
  if (language == kNeutral) return 0;
  if (language == user) return 1;
  if ((language & kPrimary) == (user & kPrimary)) return 2;
  return language == kUsEnglish ? 3 : 4;
}

void SetUserLanguage(WORD language) {
  user_language = language;
}

ResourceName ResourceName::FromCaller(const wchar_t* name) {
  ResourceName result;
  const auto value = reinterpret_cast<std::uintptr_t>(name);
  if (value < 0x10000) {
    result.number = static_cast<WORD>(value);
  } else if (*name == L'#') {
    result.number = static_cast<WORD>(wcstoul(name + 1, nullptr, 10));
  } else {
    result.text = name;
  }
  return result;
}

bool ResourceName::Matches(const ResourceName& other) const {
  if (text && other.text) return CompareNoCase(*text, *other.text) == 0;
  return !text && !other.text && number == other.number;
}

bool ResourceReader::Next(ResourceEntry& entry) {
  Cursor cursor(m_rest);
  DWORD data_size;
  DWORD header_size;
  if (!cursor.Take(data_size) || !cursor.Take(header_size)) return false;
  if (header_size > m_rest.size() || data_size > m_rest.size() - header_size) return false;
  entry = {};
  if (!TakeHeader(m_rest.first(header_size), entry)) return false;
  entry.header = m_rest.data();
  entry.data = m_rest.subspan(header_size, data_size);
  const std::size_t size = PadTo4(std::size_t{header_size} + data_size);
  m_rest = m_rest.subspan(std::min(size, m_rest.size()));
  return true;
}

std::wstring StringOfBlock(Bytes block, unsigned place) {
  Cursor cursor(block);
  WORD length = 0;
  for (unsigned i = 0; i < place; ++i) {
    if (!cursor.Take(length) || !cursor.Skip(std::size_t{length} * sizeof(char16_t))) return {};
  }
  if (!cursor.Take(length)) return {};
  std::u16string units(length, u'\0');
  for (char16_t& unit : units) {
    if (!cursor.Take(unit)) return {};
  }
  return FromUtf16(units);
}

bool NextResourceNote(Bytes& segment, Bytes& file) {
  static constexpr char kOwner[] = "QelBase";
  static constexpr DWORD kType = 0x52;
  for (;;) {
    Cursor cursor(segment);
    DWORD name_size;
    DWORD size;
    DWORD type;
    if (!cursor.Take(name_size) || !cursor.Take(size) || !cursor.Take(type)) return false;
    const std::size_t name_at = cursor.at();
    if (!cursor.Skip(PadTo4(name_size))) return false;
    const std::size_t at = cursor.at();
    if (!cursor.Skip(size)) return false;
    const Bytes whole = segment;
    segment = segment.subspan(std::min(PadTo4(at + size), segment.size()));
    const bool ours = type == kType && name_size == sizeof kOwner &&
                      std::memcmp(whole.data() + name_at, kOwner, sizeof kOwner) == 0;
    if (!ours) continue;
    file = whole.subspan(at, size);
    return true;
  }
}

std::optional<ResourceEntry> ChooseResource(Bytes file, const ResourceName& type,
                                            const ResourceName& name, DWORD& error) {
  std::optional<ResourceEntry> best;
  bool has_type = false;
  ResourceReader reader(file);
  for (ResourceEntry entry; reader.Next(entry);) {
    if (!entry.type.Matches(type)) continue;
    has_type = true;
    if (!entry.name.Matches(name)) continue;
    if (!best || RankOfLanguage(entry.language) < RankOfLanguage(best->language)) best = entry;
  }
  if (!best) error = has_type ? ERROR_RESOURCE_NAME_NOT_FOUND : ERROR_RESOURCE_TYPE_NOT_FOUND;
  return best;
}

}  // namespace qel::sys
