#include "qelbase/outside/components/MException.h"

MException::MException(std::uint32_t code, const Row* table) : m_code(code), m_table(table) {}

MException::MException(const MException& other) = default;

MException::~MException() = default;

const MException::Row& MException::FindRow() const {
  const Row* row = m_table;
  while (row->code != m_code && row->code != END_OF_TABLE) ++row;
  return *row;
}

const wchar_t* MException::GetName() const {
  return FindRow().name;
}

const wchar_t* MException::GetDescription() const {
  return FindRow().description;
}
