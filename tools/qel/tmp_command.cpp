// The sub-command `tmp`: the temporary folders of runs, who holds them, and which are dead.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qelbase/outside/system/handles.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/paths/MTempCleaner.h"

#include "commands.h"
#include "disk.h"
#include "json_list.h"

namespace qel::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLockFile = "__fold__.lock";

struct RunFolder {
  std::string path;
  std::string entry;    // what its program calls itself
  std::string holder;   // the line of its lock file: process, program, host, time; may be empty
  bool is_own = false;  // belongs to this user
  bool is_held = false;
};

// Nothing in the line is trusted; it is cut and shown.
std::string FirstLine(const fs::path& file) {
  constexpr std::size_t longest = 512;
  std::error_code ignored;
  if (!fs::is_regular_file(fs::symlink_status(file, ignored))) return {};
  std::string text(longest, '\0');
  std::ifstream stream(file, std::ios::binary);
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(stream.gcount()));
  return text.substr(0, text.find('\n'));
}

// Tries the lock file as it is, and makes none.
bool IsHeld(const fs::path& file) {
  using namespace qel::sys;
  const HANDLE lock =
      CreateFileW(LibraryName(file).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (lock == INVALID_HANDLE_VALUE) return fs::exists(fs::symlink_status(file));
  CloseHandle(lock);
  return false;
}

std::optional<RunFolder> Look(const fs::path& path) {
  const std::string name = path.filename();
  const std::optional<std::wstring> entry = MTempCleaner::EntryNameOf(sys::FromNative(name));
  std::error_code ignored;
  if (!entry || !fs::is_directory(fs::symlink_status(path, ignored))) return std::nullopt;
  const fs::path lock = path / kLockFile;
  const bool is_own = IsOwn(path);
  return RunFolder{path, fs::path(*entry), FirstLine(lock), is_own, IsHeld(lock)};
}

std::vector<RunFolder> FoldersIn(const std::string& root) {
  std::error_code error;
  fs::directory_iterator entries(root, error);
  if (error) throw Trouble(root, error.message());
  std::vector<RunFolder> folders;
  for (; entries != fs::directory_iterator(); entries.increment(error)) {
    if (error) throw Trouble(root, error.message());
    if (std::optional<RunFolder> found = Look(entries->path())) folders.push_back(*found);
  }
  std::sort(folders.begin(), folders.end(),
            [](const RunFolder& a, const RunFolder& b) { return a.path < b.path; });
  return folders;
}

const char* StateOf(const RunFolder& folder) {
  if (!folder.is_own) return "foreign";
  return folder.is_held ? "live" : "dead";
}

struct Arguments {
  std::string root;
  std::string entry;
  bool json = false;
  bool dry_run = false;

  std::string folder() const {
    if (!root.empty()) return root;
    const char* tmp = std::getenv("TMP");
    return tmp && *tmp ? tmp : "/tmp";
  }
  bool wants(const RunFolder& run) const { return entry.empty() || run.entry == entry; }
};

void List(Session& session, const Arguments& arguments) {
  std::optional<JsonList> list;
  const std::vector<RunFolder> folders = FoldersIn(arguments.folder());
  if (arguments.json) list.emplace(session);
  for (const RunFolder& run : folders) {
    if (!arguments.wants(run)) continue;
    if (list) {
      list->Add({{"folder", run.path},
                 {"entry", run.entry},
                 {"state", StateOf(run)},
                 {"holder", run.holder}});
    } else {
      const std::string who = run.holder.empty() ? "" : "  " + Printable(run.holder);
      session.Print(std::string(StateOf(run)) + "  " + Printable(run.path) + who + "\n");
    }
  }
  if (list) list->Close();
  if (list) session.Print("\n");
}

// What a live run takes meanwhile is left alone: each folder's lock is taken first.
void Sweep(Session& session, const Arguments& arguments) {
  for (const RunFolder& run : FoldersIn(arguments.folder())) {
    if (!arguments.wants(run) || !run.is_own || run.is_held) continue;
    if (!arguments.dry_run) {
      const std::int32_t stayed = MTempCleaner::DeleteDeadRun(LibraryName(run.path).c_str());
      if (stayed < 0) continue;
      if (stayed > 0) session.Warn(run.path, Counted(stayed, "file") + " could not be deleted");
      if (stayed > 0) session.Raise(kFindings);
    }
    session.Print(Printable(run.path) + "\n");
  }
}

constexpr const char* kFooter =
    R"(A run of a program keeps its temporary files in a folder NAME_HH_MM_SS_N below the temporary
folder, and holds a lock file in it. A folder is live while a process holds it, dead when none does, and
foreign if it belongs to another user; foreign folders are never touched.)";

void AddFolders(CLI::App& command, const std::shared_ptr<Arguments>& arguments) {
  command.add_option("FOLDER", arguments->root, "The temporary folder; without it $TMP, else /tmp");
  command.add_option("--name", arguments->entry, "Only runs with this entry name");
}

void AddTmp(CLI::App& tmp, Session& session) {
  const auto arguments = std::make_shared<Arguments>();
  tmp.require_subcommand(1);
  tmp.footer(kFooter);
  CLI::App* list = tmp.add_subcommand("ls", "List the folders of runs, and who holds them");
  AddFolders(*list, arguments);
  list->add_flag("--json", arguments->json, "Print JSON");
  list->callback([arguments, &session] { List(session, *arguments); });
  CLI::App* sweep = tmp.add_subcommand("sweep", "Delete the folders of dead runs");
  AddFolders(*sweep, arguments);
  sweep->add_flag("-n,--dry-run", arguments->dry_run, "Only print what would be deleted");
  sweep->callback([arguments, &session] { Sweep(session, *arguments); });
}

const Registration kTmp({"tmp", "Temporary folders of runs", AddTmp});

}  // namespace
}  // namespace qel::tool
