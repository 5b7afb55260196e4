#pragma once
// Tagged files as bytes, put together without the library, and verbs on files.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "qelbase/outside/components/logging.h"
#include "qelbase/tagged/MFileTagged.h"
#include "qelbase/tagged/MTagList.h"

#include "tests/support/Environment.h"
#include "tests/support/TempFolder.h"

namespace qeltest {

inline std::string header(std::string_view name, int major, int minor, std::uint32_t skip) {
  std::string bytes(name);
  bytes.resize(6);
  bytes += static_cast<char>(major);
  bytes += static_cast<char>(minor);
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(skip >> shift);
  return bytes;
}

inline std::string record(std::string_view name, int major, int minor, std::string_view body) {
  return header(name, major, minor, static_cast<std::uint32_t>(body.size())).append(body);
}

inline std::string headTag(int major = 2, int minor = 1) {
  return header("QELCOM", major, minor, 0);
}

// One file in a folder of its own.
class TaggedFolder {
 public:
  TempFolder folder;
  const std::filesystem::path file = folder / "part.abc";
  const std::filesystem::path bak = folder / "part.bak";
  const std::wstring name = folder.wide("part.abc");

  void put(std::string_view bytes) const { writeBytes(file, bytes); }
  std::string bytes() const { return readBytes(file); }
  void cut(std::size_t size) const { std::filesystem::resize_file(file, size); }
  void nudge(std::size_t at, int by) const {
    std::string changed = bytes();
    changed[at] = static_cast<char>(changed[at] + by);
    put(changed);
  }
  // The files of the folder by name, in order.
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
};

// A folder that passing names are made in while it lives.
class PassingFolder : public TempFolder {
 public:
  PassingFolder() {
    for (const char* variable : {"TMP", "TEMP"}) m_environment.set(variable, path().string());
  }

 private:
  EnvironmentScope m_environment;
};

// The failure lines that are logged while it lives.
class LoggedLines {
 public:
  LoggedLines() {
    using namespace QelSDK::Common::Logging;
    GetLoggerConfiguration().AddHandler(
        1, [this](const LogInfo& info) { lines.push_back(info.text); }, true);
  }
  ~LoggedLines() { QelSDK::Common::Logging::GetLoggerConfiguration().RemoveHandlers(); }
  LoggedLines(const LoggedLines&) = delete;
  LoggedLines& operator=(const LoggedLines&) = delete;

  std::vector<std::wstring> lines;
};

inline void writeTag(MFileTagged& file, MTag tag, std::string_view body) {
  file.WRITE_TAG_BEGIN(tag);
  file.WRITE(body.data(), body.size());
  file.WRITE_TAG_END(tag);
}

// "A B C": the names from the list of `file`, or of `list`.
template <class... File>
std::string namesOf(auto& list, File&... file) {
  std::string names;
  for (MTag* tag = nullptr; (tag = list.NEXT_TAG(file..., tag, false));) {
    names.append(names.empty() ? "" : " ").append(tag->m_name);
  }
  return names;
}

inline std::string bodyOf(MFile& file, const MTag& tag) {
  std::string body(static_cast<std::size_t>(tag.m_skip), '\0');
  file.SEEK(tag.m_data_position, 0);
  body.resize(file.READ(body.data(), body.size()));
  return body;
}

}  // namespace qeltest
