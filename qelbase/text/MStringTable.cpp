#include "qelbase/text/MStringTable.h"

void MStringTable::SetMessageFor(long id, const std::wstring& text) {
  m_messages[static_cast<std::int32_t>(id)] = text;
}

void MStringTable::SetMessageForTemporary(long id, const std::wstring& text) {
  m_temporary[static_cast<std::int32_t>(id)] = text;
}

void MStringTable::ResetTemporary(long id) {
  m_temporary.erase(static_cast<std::int32_t>(id));
}

std::wstring MStringTable::GetMessageFor(long id) const {
  for (const auto* table : {&m_temporary, &m_messages}) {
    const auto found = table->find(static_cast<std::int32_t>(id));
    if (found != table->end()) return found->second;
  }
  return {};
}
