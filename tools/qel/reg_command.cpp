// The sub-command `reg`: looks at and mends what applications keep in the registry.

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/events.h"
#include "qelbase/outside/system/registry.h"
#include "qelbase/outside/system/text.h"

#include "commands.h"
#include "json_list.h"
#include "reg_text.h"

namespace qel::tool {
namespace {

constexpr const char* kNaming =
    R"(A key is a root and names between backslashes: HKCU\Software\Company\Product. The roots are HKCR
(classes), HKCU (the user), HKLM (the machine), HKU (the users) and HKCC (the present
configuration), or their long names. A value is told by its name; without one it is the default
value.

Value texts are those of .reg files: "text", dword:0000002a, hex:01,02 or hex(7):61,00,00,00. What
has no such form is taken as text.

The hives lie in qelbase/registry below XDG_CONFIG_HOME and below the first of XDG_CONFIG_DIRS;
QEL_REGISTRY names one folder for both instead.)";

struct Arguments {
  std::string key;
  std::string name;
  std::string text;
  std::string file = "-";
  bool json = false;
  bool tree = false;
  bool count_one = false;
};

struct Root {
  const wchar_t* brief;
  const wchar_t* name;
  std::uint32_t number;
};
constexpr Root kRoots[] = {{L"HKCR", L"HKEY_CLASSES_ROOT", 0x80000000},
                           {L"HKCU", L"HKEY_CURRENT_USER", 0x80000001},
                           {L"HKLM", L"HKEY_LOCAL_MACHINE", 0x80000002},
                           {L"HKU", L"HKEY_USERS", 0x80000003},
                           {L"HKCC", L"HKEY_CURRENT_CONFIG", 0x80000005}};

std::wstring Wide(const std::string& text) {
  return sys::Widen(text, sys::CP_UTF8);
}
std::string Narrow(std::wstring_view text) {
  return sys::Narrow(text, sys::CP_UTF8);
}

void Check(LONG code, const std::string& key) {
  if (code == 0) return;
  switch (static_cast<DWORD>(code)) {
    case sys::ERROR_FILE_NOT_FOUND:
      throw Trouble(key, "does not exist");
    case sys::ERROR_ACCESS_DENIED:
      throw Trouble(key, "access denied, or it has keys below");
    default:
      throw Trouble(key, "system code " + std::to_string(code));
  }
}

// A path told by the user: its root, and the rest.
struct Place {
  std::string told;
  HKEY root = nullptr;
  std::wstring root_name;
  std::wstring path;

  explicit Place(const std::string& text) : told(text) {
    const std::wstring wide = Wide(text);
    const std::size_t cut = std::min(wide.find(L'\\'), wide.size());
    const std::wstring first = wide.substr(0, cut);
    for (const Root& row : kRoots) {
      if (sys::CompareNoCase(first, row.brief) != 0 && sys::CompareNoCase(first, row.name) != 0) {
        continue;
      }
      root = reinterpret_cast<HKEY>(sys::PredefinedKey(row.number));
      root_name = row.name;
    }
    if (!root) throw Trouble(text, "no root such as HKCU or HKLM in front");
    if (cut < wide.size()) path = wide.substr(cut + 1);
    while (path.ends_with(L'\\')) path.pop_back();
  }
  std::wstring whole() const { return path.empty() ? root_name : root_name + L'\\' + path; }
};

class Key {
 public:
  Key(const Place& place, bool create) : m_told(place.told) {
    Check(create ? sys::RegCreateKeyW(place.root, place.path.c_str(), &m_handle)
                 : sys::RegOpenKeyW(place.root, place.path.c_str(), &m_handle),
          place.told);
  }
  ~Key() { sys::RegCloseKey(m_handle); }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  HKEY get() const { return m_handle; }

  std::vector<std::wstring> Subkeys() const {
    std::vector<std::wstring> names;
    std::vector<wchar_t> name(256);
    for (DWORD i = 0;; ++i) {
      const LONG code = sys::RegEnumKeyW(m_handle, i, name.data(), 256);
      if (code == LONG(sys::ERROR_NO_MORE_ITEMS)) return names;
      Check(code, m_told);
      names.emplace_back(name.data());
    }
  }

  std::vector<RegValue> Values() const {
    std::vector<RegValue> values;
    std::vector<wchar_t> name(16384);
    for (DWORD i = 0;; ++i) {
      DWORD length = 16384, size = 0, type = 0;
      const LONG code =
          sys::RegEnumValueW(m_handle, i, name.data(), &length, nullptr, &type, nullptr, &size);
      if (code == LONG(sys::ERROR_NO_MORE_ITEMS)) return values;
      Check(code, m_told);
      values.push_back({std::wstring(name.data(), length), false, type, {}});
      Check(Read(values.back().name, values.back()), m_told);
    }
  }

  LONG Read(const std::wstring& name, RegValue& value) const {
    DWORD size = 0;
    LONG code = sys::RegQueryValueExW(m_handle, name.c_str(), nullptr, nullptr, nullptr, &size);
    if (code != 0) return code;
    do {  // it may have grown
      value.data.resize(size);
      code = sys::RegQueryValueExW(m_handle, name.c_str(), nullptr, &value.type, value.data.data(),
                                   &size);
    } while (code == LONG(sys::ERROR_MORE_DATA));
    value.data.resize(size);
    return code;
  }

 private:
  std::string m_told;
  HKEY m_handle = nullptr;
};

void DeleteBelow(HKEY parent, const std::wstring& name, const std::string& told) {
  HKEY key = nullptr;
  Check(sys::RegOpenKeyW(parent, name.c_str(), &key), told);
  wchar_t child[256];
  while (sys::RegEnumKeyW(key, 0, child, 256) == 0) DeleteBelow(key, child, told);
  sys::RegCloseKey(key);
  Check(sys::RegDeleteKeyW(parent, name.c_str()), told);
}

template <typename Visit>
void ForEachKey(const Place& place, bool tree, const Visit& visit) {
  std::vector<std::wstring> subkeys;
  {
    const Key key(place, false);
    visit(place, key);
    if (tree) subkeys = key.Subkeys();
  }
  for (const std::wstring& name : subkeys) {
    Place child = place;
    child.path += (child.path.empty() ? L"" : L"\\") + name;
    child.told = Narrow(child.whole());
    ForEachKey(child, tree, visit);
  }
}

void RunList(Session& session, const Arguments& values) {
  std::optional<JsonList> list;
  if (values.json) list.emplace(session);
  ForEachKey(Place(values.key), values.tree, [&](const Place& place, const Key& key) {
    const std::string path = Narrow(place.whole());
    if (list) {
      nlohmann::json row{
          {"key", path}, {"subkeys", nlohmann::json::array()}, {"values", nlohmann::json::array()}};
      for (const std::wstring& name : key.Subkeys()) row["subkeys"].push_back(Narrow(name));
      for (const RegValue& value : key.Values()) {
        row["values"].push_back({{"name", Narrow(value.name)},
                                 {"type", value.type},
                                 {"data", Narrow(RegValueText(value.type, value.data))}});
      }
      list->Add(row);
      return;
    }
    if (values.tree) session.Print("[" + Printable(path) + "]\n");
    for (const std::wstring& name : key.Subkeys()) {
      if (!values.tree) session.Print(Printable(Narrow(name)) + "\\\n");
    }
    for (const RegValue& value : key.Values()) {
      session.Print((value.name.empty() ? "@" : Printable(Narrow(value.name))) + "=" +
                    Narrow(RegValueText(value.type, value.data)) + "\n");
    }
  });
  if (list) {
    list->Close();
    session.Print("\n");
  }
}

void RunGet(Session& session, const Arguments& values) {
  const Key key(Place(values.key), false);
  RegValue value;
  Check(key.Read(Wide(values.name), value), values.key + " " + values.name);
  const std::wstring text = value.type == sys::REG_SZ || value.type == sys::REG_EXPAND_SZ
                                ? sys::FromUtf16Le(value.data).c_str()
                                : RegValueText(value.type, value.data);
  session.Print(Narrow(text) + "\n");
}

void SetValue(const Key& key, const RegValue& value, const std::string& told) {
  if (value.is_deleted) {
    const LONG code = sys::RegDeleteValueW(key.get(), value.name.c_str());
    if (code != LONG(sys::ERROR_FILE_NOT_FOUND)) Check(code, told);
    return;
  }
  Check(sys::RegSetValueExW(key.get(), value.name.c_str(), 0, value.type, value.data.data(),
                            static_cast<DWORD>(value.data.size())),
        told);
}

void RunSet(Session&, const Arguments& values) {
  RegValue value;
  value.name = Wide(values.name);
  if (!ParseRegValue(Wide(values.text), value.type, value.data)) {
    value.type = sys::REG_SZ;
    value.data = sys::ToUtf16Le(Wide(values.text) + L'\0');
  }
  SetValue(Key(Place(values.key), true), value, values.key);
}

void RunRemove(Session&, const Arguments& values) {
  const Place place(values.key);
  if (!values.name.empty()) {
    const Key key(place, false);
    Check(sys::RegDeleteValueW(key.get(), Wide(values.name).c_str()),
          values.key + " " + values.name);
    return;
  }
  if (place.path.empty()) throw Trouble(values.key, "a root stays");
  DeleteBelow(place.root, place.path, values.key);
}

void RunExport(Session& session, const Arguments& values) {
  std::wstring text = RegHeader();
  ForEachKey(Place(values.key), true, [&](const Place& place, const Key& key) {
    text += RegSectionText({place.whole(), false, key.Values()});
  });
  const std::string bytes = RegBytes(text);
  if (values.file == "-") return session.Print(bytes);
  std::ofstream file(values.file, std::ios::binary | std::ios::trunc);
  file << bytes;
  if (!file.flush()) throw Trouble(values.file, "cannot be written");
}

std::string ReadAll(const std::string& name) {
  if (name == "-") return {std::istreambuf_iterator<char>(std::cin), {}};
  std::ifstream file(name, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), {}};
  if (!file) throw Trouble(name, "cannot be read");
  return bytes;
}

void RunImport(Session&, const Arguments& values) {
  // Read whole before anything is changed.
  for (const RegSection& section : ParseRegText(values.file, ReadAll(values.file))) {
    const Place place(Narrow(section.path));
    if (!section.is_deleted) {
      const Key key(place, true);
      for (const RegValue& value : section.values) SetValue(key, value, place.told);
      continue;
    }
    HKEY there = nullptr;
    if (place.path.empty()) throw Trouble(place.told, "a root stays");
    if (sys::RegOpenKeyW(place.root, place.path.c_str(), &there) != 0) continue;
    sys::RegCloseKey(there);
    DeleteBelow(place.root, place.path, place.told);
  }
}

void RunWatch(Session& session, const Arguments& values) {
  constexpr DWORD kEverything = 0xF;
  const Key key(Place(values.key), false);
  do {
    Check(sys::RegNotifyChangeKeyValue(key.get(), 1, kEverything, nullptr, 0), values.key);
    session.Print(values.key + ": changed\n");
    session.Finish();
  } while (!values.count_one);
}

// One command under construction.
class Command {
 public:
  Command(CLI::App& reg, Session& session, const char* name, const char* summary)
      : m_session(session), m_app(*reg.add_subcommand(name, summary)) {
    m_app.footer("");  // not the subsystem's
  }
  Command& Word(const char* name, std::string Arguments::*value, const char* text,
                bool required = true) {
    m_app.add_option(name, (*m_values).*value, text)->required(required)->type_name("");
    return *this;
  }
  Command& Flag(const char* name, bool Arguments::*value, const char* text) {
    m_app.add_flag(name, (*m_values).*value, text);
    return *this;
  }
  void Runs(void (*run)(Session&, const Arguments&)) {
    m_app.callback([values = m_values, run, &session = m_session] { run(session, *values); });
  }

 private:
  Session& m_session;
  CLI::App& m_app;
  std::shared_ptr<Arguments> m_values = std::make_shared<Arguments>();
};

void AddRegCommands(CLI::App& reg, Session& session) {
  reg.footer(kNaming);
  constexpr const char* kKey = "The key: HKCU\\Software\\Company";
  Command(reg, session, "ls", "List subkeys and values")
      .Word("KEY", &Arguments::key, kKey)
      .Flag("-r,--recursive", &Arguments::tree, "All keys below as well")
      .Flag("--json", &Arguments::json, "Print JSON")
      .Runs(RunList);
  Command(reg, session, "get", "Print one value")
      .Word("KEY", &Arguments::key, kKey)
      .Word("NAME", &Arguments::name, "The value; without, the default value", false)
      .Runs(RunGet);
  Command(reg, session, "set", "Write one value; the key is made if it is missing")
      .Word("KEY", &Arguments::key, kKey)
      .Word("NAME", &Arguments::name, "The value; \"\" is the default value")
      .Word("VALUE", &Arguments::text, "Text, or the form of a .reg file")
      .Runs(RunSet);
  Command(reg, session, "rm", "Delete a value, or a key with all below it")
      .Word("KEY", &Arguments::key, kKey)
      .Word("NAME", &Arguments::name, "The value; without, the key goes", false)
      .Runs(RunRemove);
  Command(reg, session, "export", "Write a key with all below it as registry text")
      .Word("KEY", &Arguments::key, kKey)
      .Word("FILE", &Arguments::file, "The .reg file; standard output for - or without", false)
      .Runs(RunExport);
  Command(reg, session, "import", "Take over registry text")
      .Word("FILE", &Arguments::file, "The .reg file; standard input for - or without", false)
      .Runs(RunImport);
  Command(reg, session, "watch", "Tell each change of a key and what is below it")
      .Word("KEY", &Arguments::key, kKey)
      .Flag("--once", &Arguments::count_one, "End at the first change")
      .Runs(RunWatch);
}

const Registration kReg({"reg", "Look at and change the registry", AddRegCommands});

}  // namespace
}  // namespace qel::tool
