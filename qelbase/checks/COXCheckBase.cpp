#include "qelbase/checks/COXCheckBase.h"

#include <algorithm>
#include <memory>

namespace {
constexpr DWORD kStart = 0xFFFFFFFF;
constexpr DWORD kWholeFile = 0xFFFFFFFF;
constexpr DWORD kFileBlock = 2048;
}  // namespace

COXCheckBase::COXCheckBase() : COXCheckBase(sizeNone) {}
COXCheckBase::COXCheckBase(ESize size) : m_value(kStart), m_size(size) {}
COXCheckBase::COXCheckBase(const COXCheckBase& other) = default;
COXCheckBase& COXCheckBase::operator=(const COXCheckBase& other) = default;
COXCheckBase::~COXCheckBase() = default;

void COXCheckBase::Reset() {
  m_value = kStart;
}

DWORD COXCheckBase::CalculateBlock(const void* data, DWORD length) {
  return CalculateBlock(data, length, m_value);
}

// By value, as the slot is told.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
DWORD COXCheckBase::CalculateFile(std::wstring file_name) {
  CFile file;
  CFileException failure;
  if (!file.Open(file_name.c_str(), CFile::modeRead | CFile::shareDenyWrite, &failure)) {
    throw new CFileException(failure.m_cause, failure.m_lOsError, file_name);
  }
  const DWORD value_on_entry = m_value;
  try {
    const DWORD result = CalculateFile(&file, kWholeFile, kFileBlock);
    file.Close();
    return result;
  } catch (CFileException*) {
    m_value = value_on_entry;
    file.Abort();
    throw;
  }
}

DWORD COXCheckBase::CalculateFile(CFile* file, DWORD length, DWORD block_size) {
  const DWORD value_on_entry = m_value;
  DWORD wanted = std::min(length, block_size);
  const auto buffer = std::make_unique_for_overwrite<BYTE[]>(wanted);
  try {
    DWORD left = length;
    for (;;) {
      const DWORD got = file->Read(buffer.get(), wanted);
      CalculateBlock(buffer.get(), got, m_value);
      left -= got;
      const bool file_ended = got < wanted;
      wanted = std::min(wanted, left);
      if (wanted == 0 || file_ended) return m_value;
    }
  } catch (CFileException*) {
    m_value = value_on_entry;
    throw;
  }
}
