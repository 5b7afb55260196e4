// The sub-command `sys`: the machine as the library tells programs of it.

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/platform/MSystemInfo.h"

#include "commands.h"
#include "json_list.h"

namespace qel::tool {
namespace {

std::string Utf8(const wchar_t* text) {
  return text ? sys::Narrow(text, sys::CP_UTF8) : std::string();
}

nlohmann::ordered_json FiguresOf(const std::string& folder) {
  const MSystemInfo info;
  int width = 0, height = 0;
  MSystemInfo::GET_RESOLUTION(width, height);
  return {{"system", Utf8(info.GET_OS_STRING())},
          {"description", Utf8(info.GET_OS_DESCRIPTION())},
          {"processor", Utf8(info.GET_PROCESSOR_STRING())},
          {"level", Utf8(info.GET_PROCESSOR_LEVEL_STRING())},
          {"name", Utf8(info.GET_PROCESSOR_STRING3())},
          {"cores", info.GET_NUM_PROCESSOR_CORES()},
          {"memory", MSystemInfo::GET_PHYSICAL_MEMORY()},
          {"free memory", MSystemInfo::GET_FREE_PHYSICAL_MEMORY()},
          {"virtual memory", MSystemInfo::GET_VIRTUAL_MEMORY()},
          {"free virtual memory", MSystemInfo::GET_FREE_VIRTUAL_MEMORY()},
          {"free disk", info.GET_FREE_DISK_SPACE(sys::FromNative(folder).c_str())},
          {"width", width},
          {"height", height},
          {"colour depth", static_cast<int>(MSystemInfo::GET_COLOR_DEPTH())}};
}

struct Arguments {
  std::string folder = ".";
  bool json = false;
};

void Show(Session& session, const Arguments& arguments) {
  const nlohmann::ordered_json figures = FiguresOf(arguments.folder);
  if (figures["free disk"] == 0) {
    session.Warn(arguments.folder, "no disk, or no space left on it");
    session.Raise(kFindings);
  }
  if (arguments.json) {
    session.Print(figures.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
    return;
  }
  for (const auto& [name, value] : figures.items()) {
    const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
    session.Print(name + std::string(20 - name.size(), ' ') + Printable(text) + "\n");
  }
}

constexpr const char* kFooter =
    R"(Sizes are in bytes; colour depth is the library's number: 0 two colours, 1 sixteen, 2 a palette of
256, 3 other depths, 4 for 24 and 5 for 32 bits. The exit code is 1 if the folder has no space left.)";

void AddSys(CLI::App& app, Session& session) {
  const auto arguments = std::make_shared<Arguments>();
  app.require_subcommand(0);
  app.footer(kFooter);
  app.add_option("FOLDER", arguments->folder,
                 "Whose disk is looked at; without it the current one");
  app.add_flag("--json", arguments->json, "Print JSON");
  app.callback([arguments, &session] { Show(session, *arguments); });
}

const Registration kSys({"sys", "System, processor, memory, screen and disk", AddSys});

}  // namespace
}  // namespace qel::tool
