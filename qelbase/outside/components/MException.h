#pragma once
// The base of exceptions that stand for a code of the system.

#include <cstdint>

#include "qelbase/export.h"

// Thrown by value, caught as `const MException&`. A copy has the same code and the same table.
class QELBASE_API MException {
 public:
  // What one code is called; the texts live as long as the table.
  struct Row {
    std::uint32_t code;
    const wchar_t* name;
    const wchar_t* description;
  };
  static constexpr std::uint32_t END_OF_TABLE = 0xFFFFFFFF;

  // The table ends with a row of the code END_OF_TABLE, and outlives the exception.
  MException(std::uint32_t code, const Row* table);
  MException(const MException& other);
  MException& operator=(const MException& other) = default;
  virtual ~MException();

  // Of the code's row, as the table has them; those of the last row if the table lacks the code.
  virtual const wchar_t* GetName() const;
  virtual const wchar_t* GetDescription() const;

  std::uint32_t GetCode() const { return m_code; }

 protected:
  const Row& FindRow() const;

  std::uint32_t m_code;
  const Row* m_table;
};
