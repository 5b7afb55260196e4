#pragma once
// The registry entries of a COM server.

#include "qelbase/export.h"
#include "qelbase/outside/framework/CArrays.h"

// Describes a server by parameters, each the element at the index of its number, and writes or
// removes its entries below HKEY_CLASSES_ROOT: class, program identifier, interface, type library.
// A text is written only if it differs, whatever its case. An identifier gets its braces when it is
// stored. An object belongs to one thread at a time; two registrations at once are not coordinated.
class QELBASE_API CComRegistrar : public CStringArray {
 public:
  enum REGPARAM {
    paramClassId,         // in braces
    paramServerPath,      // empty: the running program
    paramServerKind,      // LS, LSO, INP; anything else writes no server
    paramProgId,          //
    paramName,            // for display
    paramInterfaceId,     // in braces
    paramInterfaceName,   //
    paramLibraryId,       // in braces; a library needs its version too
    paramLibraryName,     // empty: the display name
    paramLibraryVersion,  //
    paramEnd,             // ends a list
  };

  // One line of a list of parameters, which ends with paramEnd.
  struct ParamInit {
    REGPARAM number;
    const wchar_t* text;  // null is empty
  };

  explicit CComRegistrar(const ParamInit* list = nullptr);
  ~CComRegistrar() override;

  CStringW Get(REGPARAM number) const;  // empty if it was never set
  void Set(REGPARAM number, CStringW text);

  // Both store the list first. They give 1 whatever became of each entry: an entry that cannot be
  // written or removed does not keep the others.
  int Register(const ParamInit* list = nullptr);
  int UnRegister(const ParamInit* list = nullptr);

  // Below the class. 1, also for an empty category; 0 if the key cannot be created.
  int RegisterImplementedCategory(CStringW category);
  int RegisterSafeForScripting();  // for scripts and for their data

 protected:
  void InitParams(const ParamInit* list);  // null is ignored

 private:
  CStringW _GetServerPath() const;
  bool _HasLibrary() const;
  void _RegisterClass() const;
  void _RegisterServer(class MRegKey& key) const;
  void _RegisterProgId() const;
  void _RegisterInterface() const;
  void _RegisterLibrary() const;
};
