#include "book.h"

#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace qel::help {

namespace {

namespace fs = std::filesystem;

constexpr const char* kContextFile = "context.map";
constexpr std::array kFirstPages = {"index.html", "index.htm"};
constexpr std::uintmax_t kLargestFile = std::uintmax_t{16} << 20;

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text, std::string_view blanks = kBlanks) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string_view takeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

// Takes a decimal number, or a hexadecimal one behind 0x, with all up to the next blank.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
  const std::size_t end = std::min(text.find_first_of(kBlanks), text.size());
  std::string_view digits = text.substr(0, end);
  const bool is_hexadecimal = digits.starts_with("0x") || digits.starts_with("0X");
  if (is_hexadecimal) digits.remove_prefix(2);
  std::uint64_t number = 0;
  const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number,
                                             is_hexadecimal ? 16 : 10);
  if (error != std::errc() || stop != digits.data() + digits.size()) return std::nullopt;
  text = trimmed(text.substr(end));
  return number;
}

std::string bytesOf(const std::string& file) {
  std::error_code error;
  if (!fs::is_regular_file(file, error) || fs::file_size(file, error) > kLargestFile) return {};
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

bool isPlain(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         std::string_view("-._~/").find(c) != std::string_view::npos;
}

}  // namespace

Address ParseAddress(std::wstring_view path) {
  const std::size_t mark = path.find(L"::");
  Address address;
  if (mark == path.npos) {
    address.file = path.substr(0, path.find(L'>'));
    return address;
  }
  address.file = path.substr(0, mark);
  std::wstring_view topic = path.substr(mark + 2);
  topic = topic.substr(0, topic.find(L'>'));
  const std::size_t first = topic.find_first_not_of(L"/\\");
  if (first != topic.npos) address.topic = topic.substr(first);
  return address;
}

std::optional<std::string> FindContext(std::string_view map, std::uint64_t number) {
  while (!map.empty()) {
    std::string_view line = trimmed(takeLine(map));
    if (takeNumber(line) == number && !line.empty()) return std::string(line);
  }
  return std::nullopt;
}

std::optional<std::string> FindPopup(std::string_view texts, std::uint64_t number) {
  constexpr std::string_view head = ".topic";
  bool is_inside = false;
  std::string text;
  while (!texts.empty()) {
    const std::string_view line = takeLine(texts);
    if (line.starts_with(head)) {
      if (is_inside) break;
      std::string_view rest = trimmed(line.substr(head.size()));
      is_inside = takeNumber(rest) == number;
    } else if (is_inside) {
      text.append(trimmed(line, "\r")).append("\n");
    }
  }
  if (!is_inside) return std::nullopt;
  return std::string(trimmed(text, "\r\n"));
}

std::string FileUri(std::string_view native) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string uri = "file://";
  for (const char c : native) {
    const auto byte = static_cast<unsigned char>(c);
    if (isPlain(c)) {
      uri += c;
    } else {
      uri += {'%', digits[byte >> 4], digits[byte & 15]};
    }
  }
  return uri;
}

std::string PageOf(std::string_view text) {
  std::string page =
      "<!DOCTYPE html><meta charset=\"utf-8\"><title>Help</title><p style=\"white-space: "
      "pre-line\">";
  for (const char c : text) {
    if (c == '<') {
      page += "&lt;";
    } else if (c == '&') {
      page += "&amp;";
    } else {
      page += c;
    }
  }
  return page + "\n";
}

std::optional<Book> Book::find(const std::string& native_file) {
  std::error_code error;
  const fs::path file = fs::absolute(native_file, error);
  for (const fs::path& folder : {file, fs::path(file).replace_extension()}) {
    if (fs::is_directory(folder, error)) return Book(folder.string());
  }
  return std::nullopt;
}

std::optional<std::string> Book::fileOf(std::string_view topic) const {
  std::string name(topic);
  for (char& c : name) {
    if (c == '\\') c = '/';
  }
  const fs::path path(name);
  if (path.is_absolute() || name.find('\0') != name.npos) return std::nullopt;
  for (const fs::path& part : path) {
    if (part == "..") return std::nullopt;
  }
  std::string file = m_folder + "/" + name;
  std::error_code error;
  return fs::is_regular_file(file, error) ? std::optional(file) : std::nullopt;
}

std::optional<std::string> Book::uriOf(std::string_view topic) const {
  const std::size_t anchor = std::min(topic.find('#'), topic.size());
  if (anchor > 0) {
    const auto file = fileOf(topic.substr(0, anchor));
    if (!file) return std::nullopt;
    return FileUri(*file) + std::string(topic.substr(anchor));
  }
  for (const char* page : kFirstPages) {
    if (const auto file = fileOf(page)) return FileUri(*file) + std::string(topic);
  }
  return std::nullopt;
}

std::optional<std::string> Book::uriOfContext(std::uint64_t number) const {
  const auto topic = FindContext(bytesOf(m_folder + "/" + kContextFile), number);
  return topic ? uriOf(*topic) : std::nullopt;
}

std::optional<std::string> Book::popup(std::string_view topic, std::uint64_t number) const {
  const auto file = fileOf(topic);
  return file ? FindPopup(bytesOf(*file), number) : std::nullopt;
}

}  // namespace qel::help
