#include "qelbase/tagged/MTag.h"

#include <cstring>

#include "qelbase/outside/components/MFile.h"
#include "qelbase/tagged/tags_internal.h"

using qel::tagged::FitsSkip;
using qel::tagged::HeaderBytes;

const unsigned char MTag::m_file_vmajor = 2;
const unsigned char MTag::m_file_vminor = 1;

MTag::MTag() {
  INIT(nullptr, 1, 0);
}

MTag::MTag(const char* name) {
  INIT(name);
}

MTag::MTag(const char* name, unsigned char major, unsigned char minor) {
  INIT(name, major, minor);
}

void MTag::INIT(const char* name) {
  INIT(name, m_file_vmajor, m_file_vminor);
}

void MTag::INIT(const char* name, unsigned char major, unsigned char minor) {
  std::uint64_t bits = 0;
  for (int i = 0; name && i < 6 && name[i]; ++i) {
    bits |= static_cast<std::uint64_t>(static_cast<unsigned char>(name[i])) << (8 * i);
  }
  qel::tagged::SetNameBits(*this, bits);
  m_name[6] = '\0';
  m_written = false;
  m_updated = false;
  m_version[0] = major;
  m_version[1] = minor;
  m_position = -1;
  m_data_position = -1;
  m_skip = 0;
  m_next = nullptr;
}

bool MTag::operator==(const MTag& other) const {
  return qel::tagged::KeyOf(*this) == qel::tagged::KeyOf(other);
}

bool MTag::COMPARE(const MTag& other, std::uint32_t mode) const {
  if (std::strcmp(m_name, other.m_name) != 0) return false;
  if (mode == 0) return true;
  if (m_version[0] < other.m_version[0]) return false;
  return mode == 1 || m_version[0] == other.m_version[0];
}

bool MTag::READ(MFile& file) {
  m_position = file.TELL();
  m_data_position = m_position + HeaderSize;
  HeaderBytes bytes;
  if (file.READ(bytes.data(), bytes.size()) != bytes.size()) return false;
  qel::tagged::Decode(bytes.data(), *this);
  return true;
}

bool MTag::WRITE(MFile& file) {
  return qel::tagged::WriteHeader(file, *this);
}

bool MTag::UPDATE_SKIP(MFile& file) {
  if (m_updated) return true;
  if (m_position < 0) return false;
  const std::int64_t skip = file.TELL() - m_data_position;
  if (!FitsSkip(skip)) {
    qel::tagged::LogUnfitSkip(L"In MTag::UPDATE_SKIP() : ", *this, skip);
    return false;
  }
  m_skip = skip;
  if (!file.SEEK(m_position + 8, 0)) return false;
  const auto value = static_cast<std::int32_t>(m_skip);
  if (file.WRITE(&value, 1) != 1) return false;
  file.SEEK(m_data_position + m_skip, 0);
  m_updated = true;
  return true;
}
