#pragma once
// The registry: a tree of named keys with typed values, shared by all processes of the machine.
//
// The keys of the user and of the machine are two files, the hives, in the folders that
// docs/formats/hive.md names; QEL_REGISTRY in the environment of the process names one folder for
// both instead. Names are found without regard to case and keep the case of their first writing. A
// key's name has 1 to 255 characters without backslash, a value's at most 16383; the nameless value
// is the key's default value.
//
// Every call is one transaction, seen whole or not at all by all threads and processes, and whole
// after the death of the process; what RegFlushKey confirmed survives a power cut too. Calls are
// safe on any thread and wait for each other. Handles live on across fork. All give 0 or an error
// code, and leave outputs and the last error alone on failure unless it is said; among the codes of
// any call are 6 (no such handle), 1018 (the key was deleted), 1009 (damaged hive), 1017 (the
// file is no hive), 112 (disk full) and 1117 (input or output).
//
// Value data are plain bytes. Text among them has 16-bit little-endian units and a closing zero as
// a rule, and its size counts both in bytes. Sizes of names count characters.

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

using LSTATUS = LONG;
using REGSAM = DWORD;

struct SECURITY_ATTRIBUTES {
  DWORD nLength;
  void* lpSecurityDescriptor;  // may be null
  BOOL bInheritHandle;         // not looked at
};

// --- constants ---

// The predefined keys are always open; closing them does nothing.
constexpr std::uintptr_t PredefinedKey(std::uint32_t number) {
  return static_cast<std::uintptr_t>(static_cast<std::int64_t>(static_cast<std::int32_t>(number)));
}
inline const HKEY HKEY_CLASSES_ROOT = reinterpret_cast<HKEY>(PredefinedKey(0x80000000));
inline const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(PredefinedKey(0x80000001));
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(PredefinedKey(0x80000002));
inline const HKEY HKEY_USERS = reinterpret_cast<HKEY>(PredefinedKey(0x80000003));
inline const HKEY HKEY_CURRENT_CONFIG = reinterpret_cast<HKEY>(PredefinedKey(0x80000005));

inline constexpr REGSAM KEY_QUERY_VALUE = 0x1;
inline constexpr REGSAM KEY_SET_VALUE = 0x2;
inline constexpr REGSAM KEY_CREATE_SUB_KEY = 0x4;
inline constexpr REGSAM KEY_ENUMERATE_SUB_KEYS = 0x8;
inline constexpr REGSAM KEY_NOTIFY = 0x10;
inline constexpr REGSAM KEY_READ = 0x20019;
inline constexpr REGSAM KEY_WRITE = 0x20006;
inline constexpr REGSAM KEY_ALL_ACCESS = 0xF003F;
inline constexpr REGSAM MAXIMUM_ALLOWED = 0x02000000;

inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_MULTI_SZ = 7;
inline constexpr DWORD REG_QWORD = 11;

inline constexpr DWORD REG_OPTION_VOLATILE = 1;  // the key lasts until the machine's next start
inline constexpr DWORD REG_CREATED_NEW_KEY = 1;
inline constexpr DWORD REG_OPENED_EXISTING_KEY = 2;
inline constexpr DWORD REG_FORCE_RESTORE = 8;

inline constexpr DWORD REG_NOTIFY_CHANGE_NAME = 1;        // subkeys that come or go
inline constexpr DWORD REG_NOTIFY_CHANGE_ATTRIBUTES = 2;  // never changes here
inline constexpr DWORD REG_NOTIFY_CHANGE_LAST_SET = 4;    // values
inline constexpr DWORD REG_NOTIFY_CHANGE_SECURITY = 8;

// --- keys ---

// Opens `subkey`, a path of names between backslashes. The access is checked against the key and
// kept in the handle: writing to a hive that is read-only gives 5, here already when it is asked
// for. MAXIMUM_ALLOWED takes what there is. A null subkey gives a predefined `key` itself, an empty
// one a new handle (the classes root gives itself). 2 if missing, 161 for a backslash in front.
QELBASE_API LSTATUS RegOpenKeyExW(HKEY key, const wchar_t* subkey, DWORD options, REGSAM access,
                                  HKEY* result);
// With all the access there is. A null or empty subkey gives `key` itself, not to be closed twice.
QELBASE_API LSTATUS RegOpenKeyW(HKEY key, const wchar_t* subkey, HKEY* result);
QELBASE_API LSTATUS RegOpenKeyExA(HKEY key, const char* subkey, DWORD options, REGSAM access,
                                  HKEY* result);
// Opens, or makes the key and all its missing parents. A new key gets the class and the descriptor;
// both may be null. `disposition` may be null. 1021 for a lasting key below a volatile one, 87 for
// a new key straight below the local machine or the users.
QELBASE_API LSTATUS RegCreateKeyExW(HKEY key, const wchar_t* subkey, DWORD reserved,
                                    const wchar_t* class_name, DWORD options, REGSAM access,
                                    const SECURITY_ATTRIBUTES* security, HKEY* result,
                                    DWORD* disposition);
QELBASE_API LSTATUS RegCreateKeyW(HKEY key, const wchar_t* subkey, HKEY* result);
QELBASE_API LSTATUS RegCloseKey(HKEY key);
// 5 while the key has subkeys. Handles to it live on, and give 1018.
QELBASE_API LSTATUS RegDeleteKeyW(HKEY key, const wchar_t* subkey);

// The subkey number `index`, by upper-cased name; 259 behind the last. Sizes count the terminator
// on the way in, not on the way out; 234 for a small buffer. Class and time may be null.
QELBASE_API LSTATUS RegEnumKeyExW(HKEY key, DWORD index, wchar_t* name, DWORD* name_size,
                                  DWORD* reserved, wchar_t* class_name, DWORD* class_size,
                                  FILETIME* written);
QELBASE_API LSTATUS RegEnumKeyW(HKEY key, DWORD index, wchar_t* name, DWORD name_size);
// Any output may be null. Longest names without terminator, data and descriptor in bytes.
QELBASE_API LSTATUS RegQueryInfoKeyW(HKEY key, wchar_t* class_name, DWORD* class_size,
                                     DWORD* reserved, DWORD* subkeys, DWORD* longest_subkey,
                                     DWORD* longest_class, DWORD* values, DWORD* longest_value,
                                     DWORD* longest_data, DWORD* descriptor_size,
                                     FILETIME* written);
// Waits until what was written is on the disk.
QELBASE_API LSTATUS RegFlushKey(HKEY key);
// This machine alone can be reached: null or its name; 53 for another.
QELBASE_API LSTATUS RegConnectRegistryW(const wchar_t* machine, HKEY key, HKEY* result);

// --- values ---

// Null data asks for type and size. A small buffer gives 234 and the needed size. Data without size
// is 87, a missing value 2. Type, data and size may be null.
QELBASE_API LSTATUS RegQueryValueExW(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type,
                                     void* data, DWORD* size);
// Text is given in the default code page.
QELBASE_API LSTATUS RegQueryValueExA(HKEY key, const char* name, DWORD* reserved, DWORD* type,
                                     void* data, DWORD* size);
QELBASE_API LSTATUS RegSetValueExW(HKEY key, const wchar_t* name, DWORD reserved, DWORD type,
                                   const void* data, DWORD size);
QELBASE_API LSTATUS RegDeleteValueW(HKEY key, const wchar_t* name);
// The value number `index`, in the order of their first writing; sizes and ends as for keys.
QELBASE_API LSTATUS RegEnumValueW(HKEY key, DWORD index, wchar_t* name, DWORD* name_size,
                                  DWORD* reserved, DWORD* type, void* data, DWORD* size);

// --- descriptors ---

// `parts`: 1 owner, 2 group, 4 permissions, 8 audit. Descriptors are kept and given back, in the
// form with offsets, and not otherwise looked at. A small buffer gives 122 and the needed size.
QELBASE_API LSTATUS RegGetKeySecurity(HKEY key, DWORD parts, void* descriptor, DWORD* size);
// Takes the form with offsets and the form with pointers; 1338 for anything else. A descriptor
// with offsets must lie whole in the caller's memory.
QELBASE_API LSTATUS RegSetKeySecurity(HKEY key, DWORD parts, const void* descriptor);

// --- notices ---

// Signals the event once, at the next change that `filter` names, by whatever process; also when
// the key is closed or the calling thread ends. Not `asynchronous`: waits for the change. The first
// asynchronous call starts a thread of the library, which ends with the process. In a forked child
// nothing is signalled that was asked for before.
QELBASE_API LSTATUS RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event,
                                            BOOL asynchronous);

// --- files ---

// Writes the key with all below it, without volatile keys, into a new hive file; 183 if it exists.
QELBASE_API LSTATUS RegSaveKeyW(HKEY key, const wchar_t* file, const SECURITY_ATTRIBUTES* security);
// Replaces content and subkeys by those of a saved file; nothing is signalled. 5 while this process
// has a subkey open, unless the flag 8 is given.
QELBASE_API LSTATUS RegRestoreKeyW(HKEY key, const wchar_t* file, DWORD flags);
// Hangs a hive file in as a new key straight below the local machine or the users, for all
// processes, until it is taken out; makes the file if it is missing. 87 for another place or if
// nothing was loaded there.
QELBASE_API LSTATUS RegLoadKeyW(HKEY key, const wchar_t* subkey, const wchar_t* file);
QELBASE_API LSTATUS RegUnLoadKeyW(HKEY key, const wchar_t* subkey);
// Saves the hive that `subkey` of `key` is the root of as `old_file`, and puts `new_file` in its
// place at the next opening of the hive by a process while no other has it open. 87 if it is no
// root.
QELBASE_API LSTATUS RegReplaceKeyW(HKEY key, const wchar_t* subkey, const wchar_t* new_file,
                                   const wchar_t* old_file);

// The machine's name: upper case, at most 15 characters. `size` counts the terminator on the way
// in, not on the way out. 0 and 111 for a small buffer, with the needed size.
QELBASE_API BOOL GetComputerNameW(wchar_t* buffer, DWORD* size);

}  // namespace qel::sys
