#pragma once
// A registry key that opens when it is first needed, with typed values.

#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CArrays.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/outside/system/types.h"

// Names a key by a parent handle and a path below it. Reading opens it without making anything,
// writing makes it with all missing parents; a failed opening is tried again by the next operation.
//
// Operations give 1 on success, 0 on failure, and GetLastError() then tells why. Nothing throws,
// nothing is logged. Get leaves its output alone on failure unless it is said; the form that ends
// in D gives the default instead. Set with a remove flag other than 0 deletes the value. A null
// name is the key's default value. An object belongs to one thread at a time.
class QELBASE_API MRegKey {
 public:
  // Last errors beside the system's codes.
  static constexpr std::int32_t NO_HANDLE = static_cast<std::int32_t>(0x80070006);
  static constexpr std::int32_t WRONG_FORM = static_cast<std::int32_t>(0x80004005);  // type, size
  static constexpr std::int32_t WRONG_STRUCT = static_cast<std::int32_t>(0x8000FFFF);

  MRegKey();
  MRegKey(HKEY handle, int owner);
  // A key below the parent's, through its handle if it has one. A handle that `parent` owns is
  // closed when this constructor ends, so hand in a copy, or a key that does not own. An empty name
  // is the parent's own key.
  MRegKey(const wchar_t* subkey, MRegKey parent);
  // Uses the source's handle without owning it; the name is the source's whole path.
  MRegKey(MRegKey& other);
  MRegKey& operator=(MRegKey& other);
  virtual ~MRegKey();

 protected:
  virtual CStringW _GetSubKeyName();

 public:
  // Takes a handle; with `owner` other than 0 it is closed here. Name and parent stay.
  void Attach(HKEY handle, int owner);
  MRegKey& Create();
  operator HKEY();  // null on failure
  bool operator!();
  std::int32_t GetLastError() const { return m_last_error; }
  void GetParams(HKEY& parent, CStringW& subkey);
  int GetSubKeyName(std::uint32_t index, CStringW& name);  // empty on failure
  void GetSubKeyNames(CStringArray& names);
  int DeleteValue(const wchar_t* name);  // 1 also for a missing value
  // With all below it, leaves first. Refuses CLSID, AppID, TypeLib and Interface of the classes
  // root.
  int DeleteSubKey(const wchar_t* name);

  int GetRegStr(const wchar_t* name, CStringW& value);
  CStringW GetRegStrD(const wchar_t* name, const CStringW& otherwise);
  int SetRegStr(const wchar_t* name, const wchar_t* value, int remove = 0);
  int SetRegStrE(const wchar_t* name, const wchar_t* value);  // removes for an empty text
  // Writes only if the text differs, whatever its case.
  int UpdRegStr(const wchar_t* name, const wchar_t* value, int remove = 0);
  int UpdRegStrE(const wchar_t* name, const wchar_t* value);

  int GetRegDWORD(const wchar_t* name, std::uint32_t& value);
  std::uint32_t GetRegDWORDD(const wchar_t* name, std::uint32_t otherwise);
  int SetRegDWORD(const wchar_t* name, std::uint32_t value, int remove = 0);

  // Numbers of 32 bits as decimal text, with nothing behind the number.
  int GetRegInt(const wchar_t* name, int& value);
  int GetRegIntD(const wchar_t* name, int otherwise);
  int SetRegInt(const wchar_t* name, int value, int remove = 0);
  int GetRegLong(const wchar_t* name, long& value);
  long GetRegLongD(const wchar_t* name, long otherwise);
  int SetRegLong(const wchar_t* name, long value, int remove = 0);
  int GetRegULong(const wchar_t* name, unsigned long& value);
  unsigned long GetRegULongD(const wchar_t* name, unsigned long otherwise);
  int SetRegULong(const wchar_t* name, unsigned long value, int remove = 0);

  // The bytes are the caller's, to be freed by delete[]; null and 0 on failure.
  int GetRegBinary(const wchar_t* name, std::uint8_t*& data, std::uint32_t& size);
  int GetRegBinary(const wchar_t* name, CByteArray& value);  // empty on failure
  int SetRegBinary(const wchar_t* name, const std::uint8_t* data, std::uint32_t size,
                   int remove = 0);
  int SetRegBinary(const wchar_t* name, const CByteArray& value, int remove = 0);

  // Only a value of exactly this size; a null pointer asks whether there is one, and leaves
  // WRONG_STRUCT as the last error also where the answer is 1.
  int GetRegStruct(const wchar_t* name, void* data, std::uint32_t size);
  int SetRegStruct(const wchar_t* name, const void* data, std::uint32_t size, int remove = 0);

 protected:
  void CommonInit(const wchar_t* subkey, HKEY parent);
  int Open(const wchar_t* subkey, HKEY parent, int create);
  void Close();
  int ValidHandle(int create);
  int _DeleteSubKey(const wchar_t* subkey);
  int IsVeryImportantSubKey(CStringW name);
  int _SetRegStr(const wchar_t* name, const wchar_t* value);
  int _SetRegDWORD(const wchar_t* name, std::uint32_t value);
  int _SetRegLong(const wchar_t* name, long value);
  int _SetRegULong(const wchar_t* name, unsigned long value);
  int _SetRegBinary(const wchar_t* name, const std::uint8_t* data, std::uint32_t size);

  static CStringW JoinKeyPath(CStringW left, CStringW right);
  // As operator=, but with the name as it is, so that the copy makes its path by itself.
  void AssignWithName(const MRegKey& other);

 private:
  int begin(int create);
  int writeValue(const wchar_t* name, std::uint32_t type, const void* data, std::size_t size);
  int findValue(const wchar_t* name, std::uint32_t expected, std::uint32_t& size);
  int readValue(const wchar_t* name, void* data, std::uint32_t& size);
  int wrongForm(std::int32_t code = WRONG_FORM);

  HKEY m_handle = nullptr;
  CStringW m_subkey;
  HKEY m_parent = nullptr;
  std::int32_t m_last_error = NO_HANDLE;
  std::int32_t m_owner = 1;
};
