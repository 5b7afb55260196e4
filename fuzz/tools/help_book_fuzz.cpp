// Arbitrary bytes as the map and the texts of a help book, and as the path that a viewer gets.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "book.h"

using namespace qel::help;

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  for (const std::uint64_t number : {0ull, 5ull, 0x8000ull}) {
    const auto topic = FindContext(bytes, number);
    require(!topic || (!topic->empty() && topic->find('\n') == topic->npos));
    const auto text = FindPopup(bytes, number);
    if (text) (void)PageOf(*text);
  }
  const Address address = ParseAddress(std::wstring(bytes.begin(), bytes.end()));
  require(address.file.find(L"::") == address.file.npos);
  require(address.topic.find(L'>') == address.topic.npos);
  const std::string uri = FileUri(bytes);
  require(uri.find_first_of(" #?<>\"\n") == uri.npos);
  static const std::optional<Book> empty_book = [] {
    static std::string folder = std::filesystem::temp_directory_path() / "help_book_fuzz.XXXXXX";
    require(mkdtemp(folder.data()) != nullptr);
    std::atexit([] { std::filesystem::remove(folder); });
    return Book::find(folder);
  }();
  require(empty_book && !empty_book->uriOf(bytes) && !empty_book->popup(bytes, 5));
  return 0;
}
