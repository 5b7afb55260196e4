// Version resources in PE and ELF files.
// PE: https://learn.microsoft.com/windows/win32/debug/pe-format

#include <elf.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string_view>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/resources.h"
#include "qelbase/outside/system/resources_internal.h"
#include "qelbase/outside/system/version_internal.h"

namespace qel::sys {

bool ByteSource::Read(std::uint64_t at, void* data, std::size_t size) {
  if (at > m_size || size > m_size - at) {
    m_error = ERROR_BAD_EXE_FORMAT;
    return false;
  }
  errno = 0;
  if (size == 0 || m_reader(at, data, size)) return true;
  m_error = errno != 0 ? ErrorFromErrno(errno) : ERROR_BAD_EXE_FORMAT;  // shorter than it was
  return false;
}

namespace {

constexpr WORD kVersionName = 1;
constexpr std::size_t kLongestResource = 0xFFFF;  // its length is a 16-bit number

// --- PE ------------------------------------------------------------------------------------------

struct Section {
  std::array<char, 8> name;
  DWORD virtual_size;
  DWORD address;
  DWORD raw_size;
  DWORD raw_at;
  std::array<char, 16> unused;
};
static_assert(sizeof(Section) == 40);

struct Directory {
  DWORD address;
  DWORD size;
};

struct TableHeader {
  std::array<char, 12> unused;
  WORD named;
  WORD numbered;
};

struct TableEntry {
  DWORD id;
  DWORD offset;
};

struct Leaf {
  DWORD address;
  DWORD size;
  DWORD code_page;
  DWORD unused;
};

constexpr DWORD kHighBit = 0x80000000;  // of an id: it is a name; of an offset: to another table

class PeFile {
 public:
  explicit PeFile(ByteSource& file) : m_file(file) {}

  DWORD Open();
  DWORD ReadVersion(std::vector<std::byte>& resource);

 private:
  DWORD ReadDirectories(std::uint64_t optional_header, WORD size);
  // The place in the file of `size` bytes at an address of the loaded image.
  std::optional<std::uint64_t> FindAddress(std::uint64_t address, std::size_t size) const;
  DWORD ReadAt(std::uint64_t address, void* data, std::size_t size);
  DWORD ReadTable(DWORD offset, std::vector<TableEntry>& entries);
  // The offset that stands under `id` in a table; `missing` if there is none.
  DWORD FindNumber(DWORD table, WORD id, DWORD missing, DWORD& offset);
  DWORD ChooseLanguage(DWORD table, DWORD& offset);

  ByteSource& m_file;
  std::vector<Section> m_sections;
  Directory m_resources{};
};

DWORD PeFile::Open() {
  DWORD start = 0;
  DWORD signature = 0;
  WORD section_count = 0;
  WORD header_size = 0;
  constexpr DWORD kSignature = 0x4550;  // "PE", two zeros
  constexpr std::uint64_t kHeader = 24;
  if (!m_file.Take(0x3C, start) || !m_file.Take(start, signature)) return m_file.error();
  if (signature != kSignature) return ERROR_BAD_EXE_FORMAT;
  if (!m_file.Take(start + 6ULL, section_count) || !m_file.Take(start + 20ULL, header_size))
    return m_file.error();
  if (const DWORD error = ReadDirectories(start + kHeader, header_size)) return error;
  m_sections.resize(section_count);
  return m_file.Read(start + kHeader + header_size, m_sections.data(),
                     m_sections.size() * sizeof(Section))
             ? ERROR_SUCCESS
             : m_file.error();
}

DWORD PeFile::ReadDirectories(std::uint64_t optional_header, WORD size) {
  constexpr WORD kMagic32 = 0x10B, kMagic64 = 0x20B;
  constexpr std::size_t kResources = 2;
  WORD magic = 0;
  if (!m_file.Take(optional_header, magic)) return m_file.error();
  if (magic != kMagic32 && magic != kMagic64) return ERROR_BAD_EXE_FORMAT;
  const std::size_t directories = magic == kMagic32 ? 96 : 112;
  const std::size_t at = directories + kResources * sizeof(Directory);
  DWORD count = 0;
  if (!m_file.Take(optional_header + directories - sizeof count, count)) return m_file.error();
  if (count <= kResources || size < at + sizeof(Directory)) return ERROR_RESOURCE_DATA_NOT_FOUND;
  if (!m_file.Take(optional_header + at, m_resources)) return m_file.error();
  const bool has_resources = m_resources.address != 0 && m_resources.size != 0;
  return has_resources ? ERROR_SUCCESS : ERROR_RESOURCE_DATA_NOT_FOUND;
}

std::optional<std::uint64_t> PeFile::FindAddress(std::uint64_t address, std::size_t size) const {
  for (const Section& section : m_sections) {
    const std::uint64_t offset = address - section.address;
    const bool holds = address >= section.address && offset <= section.raw_size &&
                       size <= section.raw_size - offset;
    if (holds) return section.raw_at + offset;
  }
  return std::nullopt;
}

DWORD PeFile::ReadAt(std::uint64_t address, void* data, std::size_t size) {
  const std::optional<std::uint64_t> at = FindAddress(address, size);
  if (!at) return ERROR_BAD_EXE_FORMAT;
  return m_file.Read(*at, data, size) ? ERROR_SUCCESS : m_file.error();
}

DWORD PeFile::ReadTable(DWORD offset, std::vector<TableEntry>& entries) {
  const std::uint64_t at = std::uint64_t{m_resources.address} + offset;
  TableHeader header{};
  if (const DWORD error = ReadAt(at, &header, sizeof header)) return error;
  entries.resize(std::size_t{header.named} + header.numbered);
  return ReadAt(at + sizeof header, entries.data(), entries.size() * sizeof(TableEntry));
}

DWORD PeFile::FindNumber(DWORD table, WORD id, DWORD missing, DWORD& offset) {
  std::vector<TableEntry> entries;
  if (const DWORD error = ReadTable(table, entries)) return error;
  const auto found = std::find_if(entries.begin(), entries.end(),
                                  [id](const TableEntry& entry) { return entry.id == id; });
  if (found == entries.end()) return missing;
  offset = found->offset;
  return ERROR_SUCCESS;
}

DWORD PeFile::ChooseLanguage(DWORD table, DWORD& offset) {
  std::vector<TableEntry> entries;
  if (const DWORD error = ReadTable(table, entries)) return error;
  std::erase_if(entries, [](const TableEntry& entry) { return (entry.id & kHighBit) != 0; });
  const auto rank = [](const TableEntry& entry) {
    return RankOfLanguage(static_cast<WORD>(entry.id));
  };
  const auto best =
      std::min_element(entries.begin(), entries.end(),
                       [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
  if (best == entries.end()) return ERROR_RESOURCE_NAME_NOT_FOUND;
  offset = best->offset;
  return ERROR_SUCCESS;
}

// Three levels, no more: a table that leads back to itself is a leaf where none may be.
DWORD PeFile::ReadVersion(std::vector<std::byte>& resource) {
  DWORD offset = 0;
  if (const DWORD error = FindNumber(0, RT_VERSION, ERROR_RESOURCE_TYPE_NOT_FOUND, offset))
    return error;
  if ((offset & kHighBit) == 0) return ERROR_BAD_EXE_FORMAT;
  if (const DWORD error =
          FindNumber(offset & ~kHighBit, kVersionName, ERROR_RESOURCE_NAME_NOT_FOUND, offset))
    return error;
  if ((offset & kHighBit) == 0) return ERROR_BAD_EXE_FORMAT;
  if (const DWORD error = ChooseLanguage(offset & ~kHighBit, offset)) return error;
  if ((offset & kHighBit) != 0) return ERROR_BAD_EXE_FORMAT;
  Leaf leaf{};
  if (const DWORD error = ReadAt(std::uint64_t{m_resources.address} + offset, &leaf, sizeof leaf))
    return error;
  resource.resize(std::min<std::size_t>(leaf.size, kLongestResource));
  return ReadAt(leaf.address, resource.data(), resource.size());
}

// --- ELF -----------------------------------------------------------------------------------------

constexpr std::uint64_t kMostNotes = 64 << 20;

// What the first resource file among the notes of a segment says that has a version; the code
// that tells most, if none has.
DWORD FindInNotes(Bytes segment, DWORD error, std::vector<std::byte>& resource) {
  const ResourceName type{RT_VERSION, {}};
  const ResourceName name{kVersionName, {}};
  for (Bytes notes = segment, file; NextResourceNote(notes, file);) {
    DWORD file_error = error;
    if (const auto found = ChooseResource(file, type, name, file_error)) {
      const Bytes data = found->data.first(std::min(found->data.size(), kLongestResource));
      resource.assign(data.begin(), data.end());
      return ERROR_SUCCESS;
    }
    error = std::max(error, file_error);
  }
  return error;
}

template <class Header, class Segment>
DWORD ReadElf(ByteSource& file, std::vector<std::byte>& resource) {
  Header header{};
  if (!file.Take(0, header)) return file.error();
  if (header.e_phnum != 0 && header.e_phentsize != sizeof(Segment)) return ERROR_BAD_EXE_FORMAT;
  std::vector<Segment> segments(header.e_phnum);
  if (!file.Read(header.e_phoff, segments.data(), segments.size() * sizeof(Segment)))
    return file.error();
  DWORD error = ERROR_RESOURCE_DATA_NOT_FOUND;
  std::uint64_t notes = 0;
  for (const Segment& segment : segments) {
    if (segment.p_type != PT_NOTE) continue;
    notes += std::min<std::uint64_t>(segment.p_filesz, kMostNotes + 1);
    if (notes > kMostNotes) return ERROR_FILE_TOO_LARGE;
    std::vector<std::byte> bytes(segment.p_filesz);
    if (!file.Read(segment.p_offset, bytes.data(), bytes.size())) return file.error();
    error = FindInNotes(bytes, error, resource);
    if (error == ERROR_SUCCESS) break;
  }
  return error;
}

}  // namespace

DWORD ReadPeVersion(ByteSource& file, std::vector<std::byte>& resource) {
  PeFile pe(file);
  if (const DWORD error = pe.Open()) return error;
  return pe.ReadVersion(resource);
}

DWORD ReadElfVersion(ByteSource& file, std::vector<std::byte>& resource) {
  std::array<unsigned char, EI_NIDENT> identity{};
  if (!file.Take(0, identity)) return file.error();
  if (identity[EI_DATA] != ELFDATA2LSB) return ERROR_RESOURCE_DATA_NOT_FOUND;
  return identity[EI_CLASS] == ELFCLASS64 ? ReadElf<Elf64_Ehdr, Elf64_Phdr>(file, resource)
                                          : ReadElf<Elf32_Ehdr, Elf32_Phdr>(file, resource);
}

DWORD ReadVersionResource(ByteSource& file, std::vector<std::byte>& resource) {
  std::array<char, SELFMAG> magic{};
  if (!file.Take(0, magic)) return file.error();
  const std::string_view start(magic.data(), magic.size());
  DWORD error = ERROR_BAD_EXE_FORMAT;
  if (start == ELFMAG) error = ReadElfVersion(file, resource);
  if (start.starts_with("MZ")) error = ReadPeVersion(file, resource);
  if (error == ERROR_SUCCESS && resource.empty()) error = ERROR_RESOURCE_DATA_NOT_FOUND;
  return error;
}

}  // namespace qel::sys
