// The sub-command `tag`: its options, and which function each command is.

#include <CLI/CLI.hpp>
#include <charconv>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "json_list.h"
#include "tag_check.h"
#include "tag_edit.h"
#include "tag_recover.h"
#include "tag_show.h"

namespace qel::tool {
namespace {

// What the options of any command are read into.
struct Arguments {
  std::vector<std::string> files;
  std::string file;
  std::string other;  // the second file of a command
  std::string path;
  std::vector<std::string> paths;
  std::string input = "-";
  std::string output;
  std::string folder = ".";
  std::string version;
  std::string backup;
  std::int64_t limit = -1;
  View view;
  EditOptions edit;
};

constexpr const char* kAddressing =
    R"(A tagged file is a run of named, versioned records, which can hold further records. A record is
addressed by the names on the way to it, separated by slashes:

  MESH             the first record MESH at top level
  MESH[2]          the second one of that name, whatever its version
  MESH/POINTS/DATA the raw bytes of POINTS inside MESH

In a name, \xNN stands for one byte and \\ for a backslash; a slash and square brackets are written
\x2f, \x5b and \x5d, an empty name \x00.

Files are told by their names, in any bytes. Positions and sizes are in bytes, in decimal. A size is
that of a body: the header of 12 bytes in front of it is not counted.

put, rm and convert work on a copy beside the file, which takes the file's name when it is whole and
on the disk: at every moment the name has the old content or the new. Mode and owner stay, a
symbolic link keeps leading to the file; other hard links keep the old content. A file that check
finds damaged is left as it is.)";

constexpr const char* kRecovering =
    R"(The records of FILE come first, in their order, then those that only the backup has. Records of
one name and major version are paired in their order; of a pair the one of FILE is taken, unless its
sub-tags are damaged and the backup's are not, or its body is empty and the backup's is not, or it
is the last of FILE, holds raw bytes and may be half written. Damaged sub-tags are cut out of a
record of which there is no sound one; a body that is no run of sub-tags is kept as raw bytes in a
DATA tag. What is in no whole record is told as lost; behind it
records are looked for by their form, and told as found. OUT must not exist; FILE and its backup are
only read.)";

Version ParseVersion(const std::string& text) {
  Version version;
  const char* const end = text.data() + text.size();
  const auto major = std::from_chars(text.data(), end, version.major);
  const bool dot = major.ec == std::errc{} && major.ptr != end && *major.ptr == '.';
  const auto minor = dot ? std::from_chars(major.ptr + 1, end, version.minor) : major;
  if (!dot || minor.ec != std::errc{} || minor.ptr != end) {
    throw CLI::ValidationError("version", "\"" + text + "\" is not MAJOR.MINOR, each 0 to 255");
  }
  return version;
}

// One command under construction.
class Command {
 public:
  Command(CLI::App& tag, Session& session, const char* name, const char* summary)
      : m_session(session), m_app(*tag.add_subcommand(name, summary)) {
    m_app.footer("");  // not the subsystem's
  }

  Command& Files() {
    m_app.add_option("FILE", m_values->files, "Tagged files")->required()->type_name("");
    return *this;
  }
  Command& File(const char* text = "The tagged file") {
    return Word("FILE", m_values->file, text, true);
  }
  Command& Word(const char* name, std::string& value, const char* text, bool required) {
    m_app.add_option(name, value, text)->required(required)->type_name("");
    return *this;
  }
  Command& Paths(bool required) {
    m_app
        .add_option("PATH", m_values->paths,
                    "Records: MESH, MESH[2], MESH/DATA; more in 'qel tag --help'")
        ->required(required)
        ->type_name("");
    return *this;
  }
  Command& Value(const char* name, std::string& value, const char* type, const char* text) {
    m_app.add_option(name, value, text)->type_name(type);
    return *this;
  }
  Command& Json() { return Flag("--json", m_values->view.json, "Print JSON"); }
  Command& Hex() { return Flag("--hex", m_values->view.hex, "Positions and sizes in hexadecimal"); }
  Command& Force() {
    return Flag("-f,--force", m_values->edit.force, "Go on with a file that check finds damaged");
  }
  Command& Flag(const char* name, bool& value, const char* text) {
    m_app.add_flag(name, value, text);
    return *this;
  }
  Command& Footer(const char* text) {
    m_app.footer(text);
    return *this;
  }

  CLI::App& app() { return m_app; }
  Arguments& values() { return *m_values; }

  template <typename Run>
  void Runs(Run run) {
    m_app.callback([values = m_values, run, &session = m_session] { run(session, *values); });
  }

 private:
  Session& m_session;
  CLI::App& m_app;
  std::shared_ptr<Arguments> m_values = std::make_shared<Arguments>();
};

void RunExtract(Session& session, const Arguments& values) {
  if (values.output.empty()) {
    ExtractRecords(session, values.file, values.paths, values.folder);
  } else if (values.paths.size() == 1) {
    ExtractRecord(session, values.file, values.paths[0], values.output);
  } else {
    throw CLI::ValidationError("--output", "takes exactly one PATH");
  }
}

void RunPut(Session&, const Arguments& values) {
  std::optional<Version> version;
  if (!values.version.empty()) version = ParseVersion(values.version);
  PutRecord(values.file, values.path, values.input, version, values.edit);
}

void ConvertOne(Session& session, const std::string& file, const Arguments& values) {
  const Version version = values.version.empty() ? CurrentVersion() : ParseVersion(values.version);
  const auto dropped = [&](const Finding& finding) {
    session.Warn(file, "left out: " + Describe(finding, false));
    session.Raise(kFindings);
  };
  const Converted result = ConvertFile(file, version, values.edit, dropped);
  const std::string major = std::to_string(version.major);
  session.Print(Printable(file) +
                (result == Converted::kAlready
                     ? ": already has major version " + major
                     : ": converted to version " + major + "." + std::to_string(version.minor)) +
                "\n");
}

void RunConvert(Session& session, const Arguments& values) {
  for (const std::string& file : values.files) {
    try {
      ConvertOne(session, file, values);
    } catch (const Trouble& trouble) {
      session.Complain(trouble);
    }
  }
}

std::string SalvageLine(const Salvage& salvage, bool hex) {
  std::string line = std::string(SalvageName(salvage.kind)) + "  " + Printable(*salvage.file) +
                     ": position " + Number(salvage.position, hex) + ": " +
                     Number(salvage.size, hex) + " bytes";
  if (!salvage.name.empty()) line += " of \"" + Printable(salvage.name) + "\"";
  if (!salvage.why.empty()) line += " (" + salvage.why + ")";
  return line + "\n";
}

nlohmann::json SalvageJson(const Salvage& salvage) {
  return {{"result", SalvageName(salvage.kind)}, {"file", *salvage.file},
          {"position", salvage.position},        {"size", salvage.size},
          {"name", Printable(salvage.name)},     {"why", salvage.why}};
}

void RunRecover(Session& session, const Arguments& values) {
  const std::string backup = values.backup.empty() ? LeftBackup(values.file) : values.backup;
  std::optional<JsonList> list;
  if (values.view.json) list.emplace(session);
  const auto report = [&](const Salvage& salvage) {
    if (salvage.kind != Salvage::Kind::kKept) session.Raise(kFindings);
    if (list) {
      list->Add(SalvageJson(salvage));
    } else {
      session.Print(SalvageLine(salvage, values.view.hex));
    }
  };
  Recover(values.file, backup, values.output, report);
  if (list) {
    list->Close();
    session.Print("\n");
  }
}

void AddLooking(CLI::App& tag, Session& session) {
  Command(tag, session, "ls", "List the records at top level")
      .Files()
      .Json()
      .Hex()
      .Runs([](Session& run, const Arguments& a) { ListTags(run, a.files, false, a.view); });
  Command(tag, session, "tree", "List the records at all levels")
      .Files()
      .Json()
      .Hex()
      .Runs([](Session& run, const Arguments& a) { ListTags(run, a.files, true, a.view); });
  Command(tag, session, "cat", "Print the bodies of records as they are")
      .File()
      .Paths(true)
      .Runs([](Session& run, const Arguments& a) { CatRecords(run, a.file, a.paths); });

  Command dump(tag, session, "dump", "Show headers and bodies in hexadecimal");
  dump.File()
      .Paths(false)
      .Hex()
      .app()
      .add_option("--limit", dump.values().limit, "Bytes of each body at the most")
      ->type_name("BYTES")
      ->check(CLI::NonNegativeNumber);
  dump.Runs(
      [](Session& run, const Arguments& a) { DumpRecords(run, a.file, a.paths, a.limit, a.view); });

  Command diff(tag, session, "diff", "Tell what differs between two files");
  diff.Word("A", diff.values().file, "The one file", true)
      .Word("B", diff.values().other, "The other", true)
      .Json()
      .Hex()
      .Runs([](Session& run, const Arguments& a) { DiffFiles(run, a.file, a.other, a.view); });

  Command extract(tag, session, "extract", "Write the bodies of records to files");
  extract.File()
      .Paths(false)
      .Value("-C,--into", extract.values().folder, "FOLDER",
             "Where each raw body becomes a file under its record's path; . without")
      .Value("-o,--output", extract.values().output, "OUT",
             "The one file that the body of the one PATH becomes; - is standard output")
      .Footer("Without PATH all records are written. Existing files are never overwritten.")
      .Runs(RunExtract);
}

void AddChanging(CLI::App& tag, Session& session) {
  Command put(tag, session, "put", "Give a record a new body");
  put.File("The tagged file; made if it does not exist")
      .Word("PATH", put.values().path, "The record; made if it does not exist", true)
      .Word("INPUT", put.values().input, "The file with the body; standard input for - or without",
            false)
      .Value("--version", put.values().version, "MAJOR.MINOR",
             "The version of records that are made; without, that of the file")
      .Force()
      .Runs(RunPut);
  Command(tag, session, "rm", "Take records out")
      .File()
      .Paths(true)
      .Force()
      .Runs([](Session&, const Arguments& a) { RemoveRecords(a.file, a.paths, a.edit); });

  Command convert(tag, session, "convert", "Bring files of an older major version to a newer one");
  convert.Files()
      .Value("--to", convert.values().version, "MAJOR.MINOR",
             "The version wanted; without, the present one")
      .Force()
      .Footer(
          "Each top-level record takes the new version, and its old body moves into a DATA record "
          "inside.\n"
          "With --force, what is no whole record is left out.")
      .Runs(RunConvert);
}

void AddMending(CLI::App& tag, Session& session) {
  Command(tag, session, "check", "Tell by position and rule what is wrong with files")
      .Files()
      .Json()
      .Hex()
      .Runs([](Session& run, const Arguments& a) { CheckFiles(run, a.files, a.view); });

  Command recover(tag, session, "recover", "Make a sound file out of a damaged one and its backup");
  recover.File("The damaged file; may be gone if there is a backup")
      .Word("OUT", recover.values().output, "The file to be made", true)
      .Value("--backup", recover.values().backup, "BACKUP",
             "The backup; without, what an interrupted write has left beside FILE")
      .Json()
      .Hex()
      .Footer(kRecovering)
      .Runs(RunRecover);
}

void AddTagCommands(CLI::App& tag, Session& session) {
  tag.footer(kAddressing);
  AddLooking(tag, session);
  AddChanging(tag, session);
  AddMending(tag, session);
}

const Registration kTag({"tag", "Look at, change and mend tagged files", AddTagCommands});

}  // namespace
}  // namespace qel::tool
