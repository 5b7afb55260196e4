#pragma once
// The registry as one connection to a root and one open key.

#include <cstdint>

#include "qelbase/export.h"
#include "qelbase/outside/framework/CArrays.h"
#include "qelbase/outside/framework/CObject.h"
#include "qelbase/outside/framework/CString.h"
#include "qelbase/outside/system/registry.h"

// Operations give 1 on success, 0 on failure; GetErrorCode() then tells the system's code (87 for a
// refused argument, 6 for a refused connection), and most failures are logged. Subkeys are paths
// below the connected root, values those of the open key. Where an operation opens a key, the one
// that was open before is closed. An object belongs to one thread at a time.
class QELBASE_API COXRegistry : public CObject {
 public:
  enum KeyValueTypes : std::uint32_t {
    typeString = qel::sys::REG_SZ,
    typeBinary = qel::sys::REG_BINARY,
    typeDoubleWord = qel::sys::REG_DWORD,
  };
  enum CreatePermissions : std::uint32_t {  // access masks, combined at will
    permissionRead = qel::sys::KEY_READ,
    permissionWrite = qel::sys::KEY_WRITE,
    permissionAllAccess = qel::sys::KEY_ALL_ACCESS,
  };
  enum CreateOptions : std::uint32_t {
    optionNonVolatile = 0,
    optionVolatile = qel::sys::REG_OPTION_VOLATILE,
  };
  enum CreationDisposition : std::uint32_t {
    dispositionCreated = qel::sys::REG_CREATED_NEW_KEY,
    dispositionOpened = qel::sys::REG_OPENED_EXISTING_KEY,
  };
  enum NotifyChangeFilter : std::uint32_t {  // combined at will
    notifyName = qel::sys::REG_NOTIFY_CHANGE_NAME,
    notifyAttributes = qel::sys::REG_NOTIFY_CHANGE_ATTRIBUTES,
    notifyValues = qel::sys::REG_NOTIFY_CHANGE_LAST_SET,
    notifySecurity = qel::sys::REG_NOTIFY_CHANGE_SECURITY,
  };

  static HKEY keyLocalMachine();
  static HKEY keyClassesRoot();
  static HKEY keyUsers();
  static HKEY keyCurrentUser();
  static const HKEY keyCurrentConfig;
  static const HKEY keyDynamicData;
  static const char m_separator_char;

  COXRegistry();

  static CRuntimeClass* GetThisClass();
  CRuntimeClass* GetRuntimeClass() const override;
  ~COXRegistry() override;

  // 1 also if nothing was connected; every field is then empty.
  virtual int Disconnect();
  // Ends an earlier connection. A null computer means this one; the classes root and the current
  // user take no computer.
  virtual int Connect(HKEY root, const wchar_t* computer = nullptr);
  // A null class counts as an empty one; security and disposition may be null.
  virtual int CreateKey(const wchar_t* subkey, const wchar_t* class_name, CreateOptions options,
                        CreatePermissions permissions,
                        const qel::sys::SECURITY_ATTRIBUTES* security,
                        CreationDisposition* disposition);
  // Without a backslash below the open key; with one, the parent is opened and stays open.
  virtual int DeleteKey(const wchar_t* subkey);
  virtual int DeleteValue(const wchar_t* name);
  virtual int EnumerateKeys(std::uint32_t index, CStringW& name, CStringW& class_name);
  virtual int EnumerateValues(std::uint32_t index, CStringW& name, KeyValueTypes& type,
                              std::uint8_t* data, std::uint32_t& size);
  virtual int FlushRegistry();
  // As large as the longest value when QueryInfo last looked; what is larger fails.
  virtual int GetBinaryValue(const wchar_t* name, CByteArray& value);
  virtual void GetClassNameW(CStringW& name);
  virtual void GetComputerNameW(CStringW& name);
  virtual int GetDoubleWordValue(const wchar_t* name, std::uint32_t& value);
  virtual std::int32_t GetErrorCode();
  virtual void GetKeyName(CStringW& name);
  virtual std::uint32_t GetNumberOfSubkeys();
  virtual std::uint32_t GetNumberOfValues();
  virtual void GetRegistryName(CStringW& name);
  virtual int GetSecurity(std::uint32_t parts, void* descriptor, std::uint32_t& size);
  // At most 1023 characters; an empty text on failure.
  virtual int GetStringValue(const wchar_t* name, CStringW& value);
  virtual int GetValue(const wchar_t* name, CStringW& value);
  virtual int GetValue(const wchar_t* name, std::uint32_t& value);
  virtual int GetValue(const wchar_t* name, CByteArray& value);
  virtual int LoadFromFile(const wchar_t* subkey, const wchar_t* file);
  virtual int NotifyChange(HANDLE event, NotifyChangeFilter filter, int subtree, int asynchronous);
  virtual int OpenKey(const wchar_t* subkey, CreatePermissions permissions);
  // With all access.
  virtual int OpenPath(const wchar_t* path, HKEY root);
  virtual int QueryInfo();
  virtual int QueryValue(const wchar_t* name, KeyValueTypes& type, std::uint8_t* data,
                         std::uint32_t& size);
  virtual int ReplaceFileW(const wchar_t* subkey, const wchar_t* new_file, const wchar_t* old_file);
  virtual int RestoreFromFile(const wchar_t* file, std::uint32_t flags);
  virtual int SaveToFile(const wchar_t* file, const qel::sys::SECURITY_ATTRIBUTES* security);
  virtual int SetBinaryValue(const wchar_t* name, const CByteArray& value);
  virtual int SetDoubleWordValue(const wchar_t* name, std::uint32_t value);
  virtual int SetSecurity(const std::uint32_t& parts, void* descriptor);
  virtual int SetStringValue(const wchar_t* name, const wchar_t* value);
  // Text is handed in as the 16-bit units that are stored.
  virtual int SetValue(const wchar_t* name, KeyValueTypes type, const std::uint8_t* data,
                       std::uint64_t size);
  virtual int SetValue(const wchar_t* name, const wchar_t* value);
  virtual int SetValue(const wchar_t* name, std::uint32_t value);
  virtual int SetValue(const wchar_t* name, const CByteArray& value);
  virtual int UnLoadKey(const wchar_t* subkey);
  // 1: open for writing, made if it was missing. 0 with the key open for reading: it exists and is
  // read-only.
  virtual int CheckAndOpenKeyForWrite(const wchar_t* subkey);

  // Connects to the root and opens each level of a path of at most 259 characters in turn; with all
  // access, missing levels are made.
  int OpenPath(const wchar_t* path, HKEY root, CreatePermissions permissions);

  static CRuntimeClass classCOXRegistry;

 private:
  void closeKey();
  void clear();
  int outcome(std::int32_t code);
  int outcome(std::int32_t code, const wchar_t* text);
  int refuse(const wchar_t* text);
  int openLevels(const CStringW& path, CreatePermissions permissions);

  HKEY m_key = nullptr;
  HKEY m_root = nullptr;
  std::int32_t m_error = 0;
  CStringW m_class_name;
  CStringW m_computer_name;
  CStringW m_key_name;
  CStringW m_registry_name;
  std::uint32_t m_subkeys = 0;
  std::uint32_t m_values = 0;
  std::uint32_t m_longest_subkey = 0;
  std::uint32_t m_longest_class = 0;
  std::uint32_t m_longest_value = 0;
  std::uint32_t m_longest_data = 0;
  std::uint32_t m_descriptor_size = 0;
  qel::sys::FILETIME m_written{0, 0};
};
