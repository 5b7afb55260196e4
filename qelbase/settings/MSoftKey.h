#pragma once
// Keys of the product: software\company\product\version, and what lies below.

#include "qelbase/settings/MRegKey.h"

// The path is made anew at each opening, from three names that all keys of the process share. An
// empty name takes no part in it. The names have no lock: set them by Init before other threads
// use keys.
class QELBASE_API MSoftKey : public MRegKey {
 public:
  static CStringW m_CompanyName;     // "!TestCompany" unless told otherwise
  static CStringW m_ProductName;     // the program's name without extension
  static CStringW m_ProductVersion;  // empty

  MSoftKey(const wchar_t* subkey, HKEY parent);  // a null subkey is the version's own key
  MSoftKey(const MSoftKey& other);               // names the same key and shares its handle
  MSoftKey& operator=(const MSoftKey& other);

  // Null stands for the names that hold without Init.
  static void Init(const wchar_t* product, const wchar_t* version, const wchar_t* company);

 protected:
  CStringW _GetSubKeyName() override;
  static CStringW GetDefaultProductName();
};

class QELBASE_API MSoftKeyCU : public MSoftKey {  // of the current user
 public:
  explicit MSoftKeyCU(const wchar_t* subkey = nullptr);
  MSoftKeyCU(const MSoftKeyCU& other) = default;
  MSoftKeyCU& operator=(const MSoftKeyCU& other) = default;
};

class QELBASE_API MSoftKeyLM : public MSoftKey {  // of the local machine
 public:
  explicit MSoftKeyLM(const wchar_t* subkey = nullptr);
  MSoftKeyLM(const MSoftKeyLM& other) = default;
  MSoftKeyLM& operator=(const MSoftKeyLM& other) = default;
};
