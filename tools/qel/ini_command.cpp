// The sub-command `ini`: looks at and mends ini files, narrow and wide.

#include <stdlib.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/settings/MIniFile.h"

#include "commands.h"
#include "disk.h"
#include "ini_text.h"
#include "json_list.h"

namespace qel::tool {
namespace {

constexpr const char* kFiles =
    R"(An application keeps its settings for the name app.ini in two files: app.ini, narrow text that
is only read, and beside it app_u.ini, which it writes and prefers. That one has 16-bit units without a
byte order mark, which editors and grep take for binary. FILE is either of them: both names stand for
the settings as the application sees them.

Names of sections and entries count without regard to case. The section "" holds the entries that stand
before any header.)";

constexpr const char* kConvert =
    R"(The form of INPUT is found by its content: wide text has zero bytes, narrow text (UTF-8) has
none. A byte order mark is left out. Line ends become those of the form: CR LF in the wide one, LF in
the narrow one. Comments and order stay. What is no text becomes U+FFFD, is told by its line, and the
exit code is 1. An existing OUTPUT is replaced.

    qel ini convert app_u.ini app.txt
    editor app.txt
    qel ini convert app.txt app_u.ini)";

struct Arguments {
  std::string file = "-";
  std::string output = "-";
  std::optional<std::string> section;
  std::string name;
  std::string text;
  bool json = false;
};

std::string Narrow(const CStringW& text) {
  return sys::Narrow(text.GetString(), sys::CP_UTF8);
}
std::wstring Wide(const std::string& text) {
  return sys::Widen(text, sys::CP_UTF8);
}

std::string ReadAll(const std::string& file) {
  std::string bytes;
  ForEachPiece(file, [&](std::string_view piece) {
    bytes += piece;
    return true;
  });
  return bytes;
}

// --- the two names of one file -----------------------------------------------------------------

std::wstring WideName(const std::wstring& name) {
  std::vector<wchar_t> wide(name.size() + 4);
  return MIniFile::MakeUnicodeName(wide.data(), name.c_str());
}

// The name that the application uses: a wide file's own without its mark.
std::wstring NameOfSettings(const std::string& file) {
  std::wstring name = LibraryName(file);
  if (!IsRegularFile(file) || !DecodeIni(ReadAll(file)).is_wide) return name;
  std::wstring plain = name;
  const std::size_t mark = plain.rfind(L"_u");
  if (mark != plain.npos) plain.erase(mark, 2);
  return WideName(plain) == name ? plain : name;
}

std::string NativeName(const std::wstring& name) {
  std::string native;
  if (!sys::ToNative(name.c_str(), native)) throw Trouble(Narrow(name.c_str()), "no file name");
  return native;
}

// --- reading -----------------------------------------------------------------------------------

std::uint32_t ReadBytes(const std::string& bytes, MIniFile& ini) {
  if (bytes.empty()) return 0;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(
      fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb"), std::fclose);
  if (!stream) throw Trouble("-", "no memory");
  return ini.Read(*stream);
}

// Why the reading of `file` stopped, with the place.
std::string DamageText(const std::string& file, std::uint32_t code) {
  if (code == sys::ERROR_NOT_REGISTRY_FILE) return "a line is longer than 61440 characters";
  if (code != sys::ERROR_NO_UNICODE_TRANSLATION) return CodeText(code);
  const std::vector<std::size_t> lines = DecodeIni(ReadAll(file)).damaged_lines;
  return (lines.empty() ? "" : "line " + std::to_string(lines[0]) + ": ") +
         "bytes that are no text";
}

// Reads what the application would; throws with what is read in `ini` when the file is damaged.
void Load(const std::string& file, MIniFile& ini) {
  if (file == "-") {
    const std::uint32_t code = ReadBytes(NarrowIni(DecodeIni(ReadAll(file)).text), ini);
    if (code != 0) throw Trouble(file, DamageText(file, code));
    return;
  }
  const std::wstring name = NameOfSettings(file);
  const std::string wide = NativeName(WideName(name));
  const std::string& there = Exists(wide) ? wide : file;
  if (!Exists(there)) throw Trouble(file, CodeText(sys::ERROR_FILE_NOT_FOUND));
  const std::uint32_t code = ini.ReadFromFile(name.c_str(), 0);
  if (code != 0) throw Trouble(there, DamageText(there, code));
}

// --- commands ----------------------------------------------------------------------------------

using Section = MIniFile::Section;

template <typename Visit>
void ForEachEntry(const Section& section, Visit visit) {
  CStringW name, value;
  for (POSITION at = section.entries.GetStartPosition(); at;) {
    section.entries.GetNextAssoc(at, name, value);
    visit(Narrow(name), Narrow(value));
  }
}

void PrintSection(Session& session, const std::string& title, const Section& section) {
  session.Print("[" + Printable(title) + "]\n");
  ForEachEntry(section, [&](const std::string& name, const std::string& value) {
    session.Print(Printable(name) + " = " + Printable(value) + "\n");
  });
}

nlohmann::json SectionRow(const std::string& title, const Section& section) {
  nlohmann::json row{{"section", title}, {"entries", nlohmann::json::array()}};
  ForEachEntry(section, [&](const std::string& name, const std::string& value) {
    row["entries"].push_back({{"name", name}, {"value", value}});
  });
  return row;
}

void ListSections(Session& session, const Arguments& values, const MIniFile& ini) {
  std::optional<JsonList> list;
  if (values.json) list.emplace(session);
  bool found = !values.section;
  CStringW title;
  void* section = nullptr;
  for (POSITION at = ini.GetStartPosition(); at;) {
    ini.GetNextAssoc(at, title, section);
    if (values.section && title.CompareNoCase(Wide(*values.section).c_str()) != 0) continue;
    found = true;
    const Section& it = *static_cast<Section*>(section);
    list ? list->Add(SectionRow(Narrow(title), it)) : PrintSection(session, Narrow(title), it);
  }
  if (list) list->Close();
  if (list) session.Print("\n");
  if (!found) throw Trouble(values.file, "no section [" + *values.section + "]");
}

// What stands before a damage is shown too.
void RunList(Session& session, const Arguments& values) {
  MIniFile ini;
  try {
    Load(values.file, ini);
  } catch (const Trouble& damage) {
    if (ini.GetSectionsCount() == 0) throw;
    session.Complain(damage);
  }
  ListSections(session, values, ini);
}

void RunGet(Session& session, const Arguments& values) {
  MIniFile ini;
  Load(values.file, ini);
  CStringW value;
  if (!ini.GetValue(value, Wide(*values.section).c_str(), Wide(values.name).c_str())) {
    throw Trouble(values.file, "no entry " + values.name + " in section [" + *values.section + "]");
  }
  session.Print(Narrow(value) + "\n");
}

void ReplaceOrCreate(const std::string& file, std::string_view bytes) {
  NewFile made = Exists(file) ? NewFile::Replacing(file) : NewFile::Creating(file);
  made.file().WRITE(bytes.data(), bytes.size());
  made.Commit();
}

// The bytes of the wide file. They are written at a place of their own first, so that the old file
// stays whole whatever happens.
std::string WrittenForm(const MIniFile& ini) {
  std::string folder = std::filesystem::temp_directory_path() / "qel-ini.XXXXXX";
  if (!mkdtemp(folder.data())) throw Trouble(folder, "cannot be made");
  const std::unique_ptr<const std::string, void (*)(const std::string*)> removed(
      &folder, [](const std::string* path) {
        std::error_code ignored;
        std::filesystem::remove_all(*path, ignored);
      });
  const std::wstring name = LibraryName(folder + "/passing.ini");
  const std::uint32_t code = ini.WriteToFile(name.c_str(), nullptr);
  if (code != 0) throw Trouble(folder, CodeText(code));
  return ReadAll(NativeName(WideName(name)));
}

void RunSet(Session&, const Arguments& values) {
  const std::wstring name = NameOfSettings(values.file);
  const std::string wide = NativeName(WideName(name));
  MIniFile ini;
  if (Exists(values.file) || Exists(wide)) Load(values.file, ini);
  ini.SetValue(Wide(*values.section).c_str(), Wide(values.name).c_str(), Wide(values.text).c_str(),
               false);
  ReplaceOrCreate(wide, WrittenForm(ini));
}

void RunConvert(Session& session, const Arguments& values) {
  const IniText ini = DecodeIni(ReadAll(values.file));
  for (const std::size_t line : ini.damaged_lines) {
    session.Warn(values.file, "line " + std::to_string(line) + ": no text, replaced by U+FFFD");
    session.Raise(kFindings);
  }
  const std::string bytes = ini.is_wide ? NarrowIni(ini.text) : WideIni(ini.text);
  if (values.output == "-") return session.Print(bytes);
  ReplaceOrCreate(values.output, bytes);
}

// --- the table ---------------------------------------------------------------------------------

CLI::App& AddCommand(CLI::App& ini, const char* name, const char* summary) {
  CLI::App& command = *ini.add_subcommand(name, summary);
  command.footer("");  // not the subsystem's
  return command;
}

void AddIniCommands(CLI::App& ini, Session& session) {
  ini.footer(kFiles);
  const auto values = std::make_shared<Arguments>();
  const auto runs = [&](CLI::App& command, void (*run)(Session&, const Arguments&)) {
    command.callback([values, run, &session] { run(session, *values); });
  };
  const auto file = [&](CLI::App& command) {
    command.add_option("FILE", values->file, "The ini file; - is standard input")
        ->required()
        ->type_name("");
  };
  const auto word = [&](CLI::App& command, const char* name, auto& value, const char* text) {
    return command.add_option(name, value, text)->required()->type_name("");
  };

  CLI::App& list = AddCommand(ini, "ls", "List sections, entries and values");
  file(list);
  word(list, "SECTION", values->section, "Only this section")->required(false);
  list.add_flag("--json", values->json, "Print JSON");
  runs(list, RunList);

  CLI::App& get = AddCommand(ini, "get", "Print one value");
  file(get);
  word(get, "SECTION", values->section, "The section");
  word(get, "NAME", values->name, "The entry");
  runs(get, RunGet);

  CLI::App& set = AddCommand(ini, "set", "Write one value into the wide file");
  set.footer(
      "As when the application writes it, comments in the file are lost. A file that is "
      "damaged is left as it is.");
  word(set, "FILE", values->file, "The ini file; made if it is missing");
  word(set, "SECTION", values->section, "The section");
  word(set, "NAME", values->name, "The entry");
  word(set, "VALUE", values->text, "The value; it may have several lines");
  runs(set, RunSet);

  CLI::App& convert = AddCommand(ini, "convert", "Turn the wide form into the narrow one, or back");
  convert.footer(kConvert);
  word(convert, "INPUT", values->file, "The file in either form; standard input for - or without")
      ->required(false);
  word(convert, "OUTPUT", values->output, "The other form; standard output for - or without")
      ->required(false);
  runs(convert, RunConvert);
}

const Registration kIni({"ini", "Look at and change ini files", AddIniCommands});

}  // namespace
}  // namespace qel::tool
