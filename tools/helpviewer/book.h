#pragma once
// An unpacked help book: a folder of pages with a map of context numbers and texts for pop-ups.
// docs/guides/help.md tells the form of both files.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qel::help {

// What a viewer is called with: FILE, FILE::/TOPIC or FILE::/TOPIC>WINDOW. Window types mean
// nothing to a browser and are left out.
struct Address {
  std::wstring file;
  std::wstring topic;  // empty: the book's first page
};
[[nodiscard]] Address ParseAddress(std::wstring_view path);

// The topic of a context number in the bytes of a map file; nothing if there is none.
[[nodiscard]] std::optional<std::string> FindContext(std::string_view map, std::uint64_t number);

// The text of a pop-up in the bytes of a text file, without blank lines around it.
[[nodiscard]] std::optional<std::string> FindPopup(std::string_view texts, std::uint64_t number);

// A URI of a file by its absolute native name.
[[nodiscard]] std::string FileUri(std::string_view native);

// The text as a page.
[[nodiscard]] std::string PageOf(std::string_view text);

class Book {
 public:
  // The folder of this name, or of this name without its extension. Nothing if there is neither.
  [[nodiscard]] static std::optional<Book> find(const std::string& native_file);

  // The URI of a page that exists, with the topic's anchor; an empty topic is the first page.
  // Topics that leave the book do not exist.
  [[nodiscard]] std::optional<std::string> uriOf(std::string_view topic) const;
  [[nodiscard]] std::optional<std::string> uriOfContext(std::uint64_t number) const;
  // The text of a pop-up in a file of the book.
  [[nodiscard]] std::optional<std::string> popup(std::string_view topic,
                                                 std::uint64_t number) const;

 private:
  explicit Book(std::string folder) : m_folder(std::move(folder)) {}
  std::optional<std::string> fileOf(std::string_view topic) const;

  std::string m_folder;  // absolute
};

}  // namespace qel::help
