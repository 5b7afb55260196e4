#include "qelbase/paths/path_functions.h"

#include <gtest/gtest.h>

#include <ostream>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

namespace {

struct Parts {
  std::wstring drive, dir, file, ext;
  bool operator==(const Parts&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Parts& parts) {
  return out << testing::PrintToString(std::tie(parts.drive, parts.dir, parts.file, parts.ext));
}

Parts split(const std::wstring& path, bool is_directory) {
  Parts parts{L"left", L"over", L"from", L"before"};
  EXPECT_EQ(POSITION_PATH_PARTS(path, parts.drive, parts.dir, parts.file, parts.ext, is_directory),
            !path.empty());
  return parts;
}

// The grammar a second time, slow and obvious: each term is a pattern, each step one line.
class Grammar {
 public:
  explicit Grammar(const std::wstring& path)
      : m_path(path.starts_with(L"..") ? L'\\' + path : path),
        m_first(match(R"(^(?:[\\/]{2}(?![\\/])[^\\/:]*:?|[\\/]|[^\\/:]*:?))")),
        m_root_directory(rootDirectory()) {}

  Parts directory() const { return {rootPath(), relativePath(), L"", L""}; }

  Parts file() const {
    const std::wstring last = lastElement(), relative = relativePath();
    std::wsmatch dot;
    const bool dotted = last != L"." && last != L".." &&
                        std::regex_match(last, dot, std::wregex(LR"(([\s\S]*)(\.[^.]*))"));
    Parts parts{hasRootDirectory() ? rootPath() : L"", L"", dotted ? dot.str(1) : last,
                dotted ? dot.str(2) : L""};
    if (parts.file == L"\\" || parts.file == L".") parts.file.clear();
    if (relative != last) parts.dir = relative;
    const bool closed = parts.dir.ends_with(L'\\') || (parts.dir.ends_with(L'/') && last == L".");
    for (std::size_t i = 0; i < last.size() && !closed && !parts.dir.empty(); ++i) {
      parts.dir.pop_back();
    }
    return parts;
  }

 private:
  std::wstring match(const char* pattern, std::size_t from = 0) const {
    std::wsmatch found;
    const std::wstring rest = m_path.substr(from);
    const std::wregex regex(
        std::wstring(pattern, pattern + std::char_traits<char>::length(pattern)));
    return std::regex_search(rest, found, regex) ? found.str() : L"";
  }

  // The text up to and with the root directory; empty if there is none.
  std::wstring rootDirectory() const {
    if (std::wstring found = match(R"(^[\s\S]:[\\/])"); !found.empty()) return found;
    if (m_path.size() == 2 && !match(R"(^[\\/]{2})").empty()) return L"";
    if (!match(R"(^[\\/]{2}\?[\\/][\s\S])").empty()) return match(R"(^[\s\S]{4}[^\\/]*[\\/])");
    if (!match(R"(^[\\/]{2}[^\\/][\s\S])").empty()) return match(R"(^[\\/]{2}[^\\/]+[\\/])");
    return match(R"(^[\\/])");
  }

  bool hasRootDirectory() const { return !m_root_directory.empty(); }

  std::wstring rootPath() const {
    const bool named = m_first.ends_with(L':') || (m_first.size() > 1 && isSeparator(m_first[0]));
    std::wstring path = named ? m_first : L"";
    return hasRootDirectory() ? path + m_root_directory.back() : path;
  }

  std::wstring relativePath() const {
    if (!m_first.ends_with(L':') && !isSeparator(m_first[0])) return m_path;
    const std::size_t root = m_first.size();
    return m_path.substr(root + match(R"(^(?:[\\/]*[^\\/]*:(?=[\\/]|$))*[\\/]*)", root).size());
  }

  std::wstring lastElement() const {
    if (!match(R"(^[\\/]{2}[^\\/]*$)").empty()) return m_path;
    if (isSeparator(m_path.back())) {
      const bool root =
          hasRootDirectory() && !match(R"(^[\\/]+$)", m_root_directory.size() - 1).empty();
      return root ? m_path.substr(m_path.size() - 1) : L".";
    }
    const bool separated = !match(R"([\\/])").empty();
    return match(separated ? R"([^\\/]+$)" : R"([^:]*[\s\S]$)");
  }

  static bool isSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

  std::wstring m_path, m_first, m_root_directory;
};

void expectGrammar(const std::wstring& path) {
  const Grammar grammar(path);
  EXPECT_EQ(split(path, false), grammar.file()) << testing::PrintToString(path);
  EXPECT_EQ(split(path, true), grammar.directory()) << testing::PrintToString(path);
}

TEST(PathParts, FollowTheToldTable) {
  const std::vector<std::pair<std::wstring, Parts>> rows = {
      {L"C:\\a\\b.txt", {L"C:\\", L"a\\", L"b", L".txt"}},
      {L"C:\\a\\b\\", {L"C:\\", L"a\\b\\", L"", L""}},
      {L"C:\\", {L"C:\\", L"", L"", L""}},
      {L"\\\\server\\share\\f.dat", {L"\\\\server\\", L"share\\", L"f", L".dat"}},
      {L"a\\b.txt", {L"", L"a\\", L"b", L".txt"}},
      {L"b.txt", {L"", L"", L"b", L".txt"}},
      {L"..\\a\\b.txt", {L"\\", L"..\\a\\", L"b", L".txt"}},
      {L".\\a\\b.txt", {L"", L".\\a\\", L"b", L".txt"}},
      {L"C:a\\b.txt", {L"", L"a\\", L"b", L".txt"}},
      {L"C:", {L"", L"", L"C:", L""}},
      {L".", {L"", L"", L"", L""}},
      {L"..", {L"\\", L"", L"..", L""}},
      {L"a\\..", {L"", L"a\\", L"..", L""}},
      {L"a.b.c", {L"", L"", L"a.b", L".c"}},
      {L".hidden", {L"", L"", L"", L".hidden"}},
      {L"name.", {L"", L"", L"name", L"."}},
      {L"\\\\?\\C:\\x\\y.txt", {L"\\\\?\\", L"x\\", L"y", L".txt"}},
      {L"C:/a/b.txt", {L"C:/", L"a/", L"b", L".txt"}},
      {L"C:/a.b/c/", {L"C:/", L"a.b/c/", L"", L""}},  // a closing slash keeps the directory whole
      {L"a/.", {L"", L"a/", L"", L""}},
      {L"C:\\\\a\\\\b", {L"C:\\", L"a\\\\", L"b", L""}},
      {L"\\\\server", {L"", L"", L"\\\\server", L""}},
      {L"", {}},
  };
  for (const auto& [path, parts] : rows) {
    EXPECT_EQ(split(path, false), parts) << testing::PrintToString(path);
  }
  EXPECT_EQ(split(L"C:\\a\\b", true), (Parts{L"C:\\", L"a\\b", L"", L""}));
  EXPECT_EQ(split(L"C:a", true), (Parts{L"C:", L"a", L"", L""}));
}

// And with names that reach over the blocks in which a splitter may look at a text.
TEST(PathParts, AgreeWithTheGrammarForEveryShortText) {
  const std::wstring alphabet = L"\\/:.?a";
  std::vector<std::wstring> texts = {L""};
  for (std::size_t i = 0; i < texts.size() && !testing::Test::HasFailure(); ++i) {
    if (!texts[i].empty()) expectGrammar(texts[i]);
    std::wstring wide = texts[i];
    for (auto at = wide.find(L'a'); at != wide.npos; at = wide.find(L'a', at)) {
      wide.replace(at, 1, std::wstring(11 + i % 7, L'\U0001F600'));
    }
    if (wide != texts[i] && texts[i].size() < 6) expectGrammar(wide);
    if (texts[i].size() == 6) continue;
    for (const wchar_t c : alphabet) texts.push_back(texts[i] + c);
  }
}

TEST(PathParts, ReadAPathThatIsOneOfTheOutputs) {
  Parts parts{L"", L"C:\\long enough to own memory\\name.txt", L"", L""};
  POSITION_PATH_PARTS(parts.dir, parts.drive, parts.dir, parts.file, parts.ext, false);
  EXPECT_EQ(parts, (Parts{L"C:\\", L"long enough to own memory\\", L"name", L".txt"}));
}

TEST(Abbreviation, KeepsWholeDirectoriesFromTheEnd) {
  const wchar_t* path = L"C:\\Users\\me\\docs\\report.txt";
  const std::vector<std::pair<unsigned, std::wstring>> rows = {
      {27, path},
      {26, L"C:\\...\\me\\docs\\report.txt"},
      {23, L"C:\\...\\docs\\report.txt"},
      {21, L"C:\\...\\docs\\report.txt"},  // with a drive, one longer than asked for
      {20, L"C:\\...\\report.txt"},
      {15, L"C:\\...report.txt"},
      {14, L"...report.txt"},
      {13, L"...report.txt"},
      {12, L"report.txt"},
      {5, L"report.txt"},
      {0, L"report.txt"},
  };
  for (const auto& [length, text] : rows) EXPECT_EQ(ABREVIATE_PATH(path, length, false), text);
  EXPECT_EQ(ABREVIATE_PATH(L"C:\\aaaa\\bbbb\\cccc", 12, true), L"C:\\...\\cccc");
  EXPECT_EQ(ABREVIATE_PATH(nullptr, 0, false), L"");
}

TEST(FixFileName, DeletesAtTheStartAndReplacesElsewhere) {
  const std::vector<std::tuple<std::wstring, std::wstring, bool>> rows = {
      {L":a?b", L"a_b", true},      {L"a.txt", L"a.txt", false}, {L"", L"", false},
      {L"\\\\\\a\\", L"a_", true},  {L":\\a", L"_a", true},  // a backslash is looked for first
      {L"<|\"*?>/", L"____", true}, {L"\"", L"", true},
  };
  for (auto [name, fixed, changed] : rows) {
    EXPECT_EQ(MFileUtility::FixFileName(name), changed);
    EXPECT_EQ(name, fixed);
  }
}

}  // namespace
