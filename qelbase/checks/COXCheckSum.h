#pragma once
// Additive checksums: the sum of all bytes and the start value, cut to the width.

#include "qelbase/checks/COXCheckBase.h"

class QELBASE_API COXCheckSum8 : public COXCheckBase {
 public:
  COXCheckSum8();
  using COXCheckBase::CalculateBlock;
  DWORD CalculateBlock(const void* data, DWORD length, DWORD initial) override;
};

class QELBASE_API COXCheckSum16 : public COXCheckBase {
 public:
  COXCheckSum16();
  using COXCheckBase::CalculateBlock;
  DWORD CalculateBlock(const void* data, DWORD length, DWORD initial) override;
};

// The start value counts as -1 at 32 bits: a fresh object over the one byte 1 gives 0.
class QELBASE_API COXCheckSum32 : public COXCheckBase {
 public:
  COXCheckSum32();
  using COXCheckBase::CalculateBlock;
  DWORD CalculateBlock(const void* data, DWORD length, DWORD initial) override;
};
