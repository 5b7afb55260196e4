#pragma once
// A folder of its own for each test, removed with all its content at the end.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qeltest {

class TempFolder {
 public:
  explicit TempFolder(const std::filesystem::path& above = std::filesystem::temp_directory_path()) {
    std::string pattern = (above / "qeltest.XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
    m_path = pattern;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return m_path; }
  std::filesystem::path operator/(std::string_view name) const { return m_path / name; }
  // The same place as the library is told it: C:\tmp\...
  std::wstring wide(std::string_view name = {}) const {
    return wideName(name.empty() ? m_path : m_path / name);
  }
  static std::wstring wideName(const std::filesystem::path& path) {
    std::wstring text = L"C:" + path.wstring();
    for (wchar_t& c : text) {
      if (c == L'/') c = L'\\';
    }
    return text;
  }

 private:
  std::filesystem::path m_path;
};

inline std::string readBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeBytes(const std::filesystem::path& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace qeltest
