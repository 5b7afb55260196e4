// The sub-command `ver`: the version resources of programs and libraries.

#include <CLI/CLI.hpp>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/outside/system/version.h"

#include "commands.h"
#include "disk.h"
#include "json_list.h"

namespace qel::tool {
namespace {

using Version = std::array<std::uint32_t, 4>;

struct FileVersion {
  bool has_resource = false;
  Version file{};
  Version product{};
  std::vector<sys::VersionText> texts;
};

Version PartsOf(std::uint32_t first, std::uint32_t second) {
  return {first >> 16, first & 0xFFFF, second >> 16, second & 0xFFFF};
}

std::string Dotted(const Version& version) {
  std::string text;
  for (const std::uint32_t part : version) text += (text.empty() ? "" : ".") + std::to_string(part);
  return text;
}

std::string Utf8(const std::wstring& text) {
  return sys::Narrow(text, sys::CP_UTF8);
}

// What the library's code means for this file; nothing for a file that just has no version.
std::optional<std::string> ReasonOf(DWORD error) {
  switch (error) {
    case sys::ERROR_RESOURCE_DATA_NOT_FOUND:
    case sys::ERROR_RESOURCE_TYPE_NOT_FOUND:
    case sys::ERROR_RESOURCE_NAME_NOT_FOUND:
      return std::nullopt;
    case sys::ERROR_BAD_EXE_FORMAT:
      return "no program or library, or a damaged one";
    case sys::ERROR_FILE_TOO_LARGE:
      return "too many notes";
    default:
      return "cannot be read (error " + std::to_string(error) + ")";
  }
}

FileVersion ReadFile(const std::string& native) {
  if (!Exists(native)) throw Trouble(native, "there is no such file");
  if (!IsRegularFile(native)) throw Trouble(native, "not a regular file");
  const std::wstring name = LibraryName(native);
  FileVersion version;
  const DWORD size = sys::GetFileVersionInfoSizeW(name.c_str(), nullptr);
  std::vector<std::byte> block(size);
  if (size == 0 || !sys::GetFileVersionInfoW(name.c_str(), 0, size, block.data())) {
    if (const auto reason = ReasonOf(sys::GetLastError())) throw Trouble(native, *reason);
    return version;
  }
  const void* value = nullptr;
  UINT length = 0;
  sys::VS_FIXEDFILEINFO fixed{};
  if (!sys::VerQueryValueW(block.data(), L"\\", &value, &length) || length < sizeof fixed)
    throw Trouble(native, "its version resource is damaged");
  std::memcpy(&fixed, value, sizeof fixed);
  if (fixed.dwSignature != sys::VS_FFI_SIGNATURE)
    throw Trouble(native, "its version resource is damaged");
  version.has_resource = true;
  version.file = PartsOf(fixed.dwFileVersionMS, fixed.dwFileVersionLS);
  version.product = PartsOf(fixed.dwProductVersionMS, fixed.dwProductVersionLS);
  version.texts = sys::VersionTexts(block.data());
  return version;
}

// One to four numbers below 65536 with points between them; nothing for another text.
std::optional<Version> ParseVersion(const std::string& text) {
  Version version{};
  std::size_t part = 0;
  std::size_t digits = 0;
  for (const char c : text) {
    if (c == '.' && digits > 0 && part < 3) {
      ++part;
      digits = 0;
    } else if (c >= '0' && c <= '9') {
      version[part] = version[part] * 10 + static_cast<std::uint32_t>(c - '0');
      if (++digits > 5 || version[part] > 0xFFFF) return std::nullopt;
    } else {
      return std::nullopt;
    }
  }
  return digits > 0 ? std::optional(version) : std::nullopt;
}

struct Arguments {
  std::vector<std::string> files;
  std::string newer_than;
  bool json = false;
};

Version VersionToBeat(const std::string& text) {
  if (const auto version = ParseVersion(text)) return *version;
  const FileVersion file = ReadFile(text);
  if (!file.has_resource) throw Trouble(text, "no version A.B.C.D, and a file without one");
  return file.file;
}

void PrintText(Session& session, const std::string& file, const FileVersion& version) {
  if (!version.has_resource) {
    session.Print(Printable(file) + ": no version\n");
    return;
  }
  session.Print(Printable(file) + ": " + Dotted(version.file) + "\n");
  session.Print("  product " + Dotted(version.product) + "\n");
  for (const sys::VersionText& row : version.texts) {
    session.Print("  " + Printable(Utf8(row.table)) + "  " + Printable(Utf8(row.name)) + "  " +
                  Printable(Utf8(row.text)) + "\n");
  }
}

nlohmann::json JsonOf(const std::string& file, const FileVersion& version) {
  nlohmann::json out = {{"file", file}, {"version", nullptr}};
  if (!version.has_resource) return out;
  out["version"] = Dotted(version.file);
  out["product"] = Dotted(version.product);
  out["texts"] = nlohmann::json::array();
  for (const sys::VersionText& row : version.texts) {
    out["texts"].push_back(
        {{"language", Utf8(row.table)}, {"name", Utf8(row.name)}, {"text", Utf8(row.text)}});
  }
  return out;
}

void Show(Session& session, const Arguments& arguments) {
  std::optional<Version> limit;
  if (!arguments.newer_than.empty()) limit = VersionToBeat(arguments.newer_than);
  std::optional<JsonList> list;
  if (arguments.json) list.emplace(session);
  for (const std::string& file : arguments.files) {
    try {
      const FileVersion version = ReadFile(file);
      const bool is_newer = version.has_resource && (!limit || version.file > *limit);
      if (!is_newer) session.Raise(kFindings);
      nlohmann::json row = arguments.json ? JsonOf(file, version) : nlohmann::json();
      if (limit && arguments.json) row["newer"] = is_newer;
      if (list) list->Add(row);
      if (!list) PrintText(session, file, version);
      if (limit && !list && version.has_resource && !is_newer)
        session.Warn(file, "not newer than " + Dotted(*limit));
    } catch (const Trouble& trouble) {
      session.Complain(trouble);
    }
  }
  if (list) list->Close();
  if (list) session.Print("\n");
}

constexpr const char* kFooter =
    R"(Reads the version resources of PE files (32 and 64 bit) and of ELF files that carry resources. The
exit code is 1 if a file has no version, or with --newer-than an older or the same one.)";

void AddVer(CLI::App& ver, Session& session) {
  const auto arguments = std::make_shared<Arguments>();
  ver.require_subcommand(0);
  ver.footer(kFooter);
  ver.add_option("FILE", arguments->files, "Programs and libraries")->required();
  ver.add_option(
      "--newer-than", arguments->newer_than,
      "Every FILE must have a newer file version than this one, A.B.C.D or that of a file");
  ver.add_flag("--json", arguments->json, "Print JSON");
  ver.callback([arguments, &session] { Show(session, *arguments); });
}

const Registration kVer({"ver", "Version resources of programs and libraries", AddVer});

}  // namespace
}  // namespace qel::tool
