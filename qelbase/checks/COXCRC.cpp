#include "qelbase/checks/COXCRC.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "qelbase/checks/crc_internal.h"

using qel::checks::MakeByteTable;
using qel::checks::MakePlan;
using qel::checks::UpdateCrc;

template <typename T>
COXCRCTableList<T>::CTable::CTable() = default;

template <typename T>
COXCRCTableList<T>::CTable::~CTable() = default;

template <typename T>
COXCRCTableList<T>::~COXCRCTableList() {
  while (m_head) delete std::exchange(m_head, m_head->m_next);
}

template class COXCRCTableList<WORD>;
template class COXCRCTableList<DWORD>;

namespace {

constinit std::mutex g_linking;

template <typename List, typename T>
typename List::CTable* FillTable(T polynomial) {
  auto table = std::make_unique<typename List::CTable>();
  table->m_polynomial = polynomial;
  table->m_next = nullptr;
  table->m_entries = MakeByteTable(polynomial);
  table->m_plan =
      std::make_unique<const qel::checks::CrcPlan<T>>(MakePlan(table->m_entries, polynomial));
  return table.release();
}

// The link that points at the table of `polynomial`, or the empty link at the end of the list.
// Tables are only ever added, filled and whole, so that walking needs no lock.
template <typename Table, typename T>
Table** FindLink(Table** link, T polynomial, Table*& found) {
  while ((found = std::atomic_ref(*link).load(std::memory_order_acquire))) {
    if (found->m_polynomial == polynomial) break;
    link = &found->m_next;
  }
  return link;
}

template <typename List, typename T>
const typename List::CTable* TableOf(List& list, T polynomial) {
  typename List::CTable* table = nullptr;
  auto** link = FindLink(&list.m_head, polynomial, table);
  if (table) return table;
  const std::lock_guard lock(g_linking);
  link = FindLink(link, polynomial, table);
  if (table) return table;
  table = list.BuildTable(polynomial);
  std::atomic_ref(*link).store(table, std::memory_order_release);
  return table;
}

// A block of length 0 leaves the running value uncut.
template <typename T, typename Table>
DWORD FoldBlock(DWORD& value, const Table* table, const void* data, DWORD length, DWORD initial) {
  value = initial;
  if (length != 0) {
    value =
        UpdateCrc(*table->m_plan, static_cast<T>(initial), static_cast<const BYTE*>(data), length);
  }
  return static_cast<T>(value);
}

}  // namespace

COXCRC16::CTableList::CTable* COXCRC16::CTableList::BuildTable(WORD polynomial) {
  return FillTable<CTableList>(polynomial);
}

COXCRC32::CTableList::CTable* COXCRC32::CTableList::BuildTable(DWORD polynomial) {
  return FillTable<CTableList>(polynomial);
}

COXCRC16::COXCRC16(WORD polynomial) : COXCheckBase(size16), m_table(nullptr) {
  m_table = TableOf(m_tableList, polynomial);
}

DWORD COXCRC16::CalculateBlock(const void* data, DWORD length, DWORD initial) {
  return FoldBlock<WORD>(m_value, m_table, data, length, initial);
}

COXCRC32::COXCRC32(DWORD polynomial) : COXCheckBase(size32), m_table(nullptr) {
  m_table = TableOf(m_tableList, polynomial);
}

DWORD COXCRC32::CalculateBlock(const void* data, DWORD length, DWORD initial) {
  return FoldBlock<DWORD>(m_value, m_table, data, length, initial);
}
