#pragma once
// Cyclic redundancy checks of 16 and 32 bits, for any polynomial.

#include <array>
#include <memory>

#include "qelbase/checks/COXCheckBase.h"

namespace qel::checks {
template <typename T>
struct CrcPlan;
}

// The tables of one CRC class, one for each polynomial, as a singly linked list. T is a 16-bit or a
// 32-bit unsigned integer.
template <typename T>
class QELBASE_API COXCRCTableList {
 public:
  struct QELBASE_API CTable {
    CTable();
    ~CTable();

    std::array<T, 256> m_entries;
    T m_polynomial;
    CTable* m_next;
    // What goes beyond one byte a step; made once with the table.
    std::unique_ptr<const qel::checks::CrcPlan<T>> m_plan;
  };

  constexpr COXCRCTableList() : m_head(nullptr) {}
  COXCRCTableList(const COXCRCTableList&) = delete;
  COXCRCTableList& operator=(const COXCRCTableList&) = delete;

  // Virtual operations, in slot order.
  virtual ~COXCRCTableList();                    // frees every table
  virtual CTable* BuildTable(T polynomial) = 0;  // a new, filled, unlinked table; the caller's

  CTable* m_head;
};

// Most significant bit first, no final inversion: table[(c >> 8) ^ b] ^ (c << 8). With the default
// polynomial and a fresh object this is CRC-16/CCITT-FALSE, "123456789" giving 0x29B1.
//
// Objects with one polynomial share one table. Objects may be made on any threads at once.
class QELBASE_API COXCRC16 : public COXCheckBase {
 public:
  class QELBASE_API CTableList : public COXCRCTableList<WORD> {
   public:
    constexpr CTableList() = default;
    CTable* BuildTable(WORD polynomial) override;
  };

  explicit COXCRC16(WORD polynomial = 0x1021);
  using COXCheckBase::CalculateBlock;
  DWORD CalculateBlock(const void* data, DWORD length, DWORD initial) override;

  static CTableList m_tableList;

 protected:
  const CTableList::CTable* m_table;  // shared; belongs to the list
};

// Least significant bit first: (c >> 8) ^ table[(c & 0xFF) ^ b]; the polynomial is given bit by bit
// reversed. With the default one this is the CRC-32 of IEEE 802.3 without its final inversion
// (CRC-32/JAMCRC), "123456789" giving 0x340BC6D9.
//
// Objects with one polynomial share one table. Objects may be made on any threads at once.
class QELBASE_API COXCRC32 : public COXCheckBase {
 public:
  class QELBASE_API CTableList : public COXCRCTableList<DWORD> {
   public:
    constexpr CTableList() = default;
    CTable* BuildTable(DWORD polynomial) override;
  };

  explicit COXCRC32(DWORD polynomial = 0xEDB88320);
  using COXCheckBase::CalculateBlock;
  DWORD CalculateBlock(const void* data, DWORD length, DWORD initial) override;

  static CTableList m_tableList;

 protected:
  const CTableList::CTable* m_table;  // shared; belongs to the list
};
