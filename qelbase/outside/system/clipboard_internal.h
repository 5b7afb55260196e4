#pragma once
// Where the clipboard's texts are: with the desktop, or in a folder.

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qelbase/outside/system/types.h"

namespace qel::sys::clipboard {

// The texts by format, without their closing zero.
using Texts = std::map<UINT, std::string>;

inline constexpr UINT kFormats[] = {13, 1};

// No clipboard has more: a program that sends without end is cut off.
inline constexpr std::size_t kMostBytes = std::size_t{1} << 30;

// Codes are the system's, 0 for success. Who changes anything has the clipboard open.
class Place {
 public:
  virtual ~Place() = default;
  [[nodiscard]] virtual bool has(UINT format) = 0;
  [[nodiscard]] virtual DWORD read(UINT format, std::string& text) = 0;
  [[nodiscard]] virtual DWORD empty() = 0;
  // These texts, and no others, from now on.
  [[nodiscard]] virtual DWORD put(const Texts& texts) = 0;

 protected:
  Place() = default;
  Place(const Place&) = default;
  Place& operator=(const Place&) = default;
};

// The name of the display that DISPLAY tells, fit for a file name; empty if it tells none.
[[nodiscard]] std::string DisplayName();

// Null if the display cannot be reached.
[[nodiscard]] std::unique_ptr<Place> DesktopPlace();

// Texts in files of their own in an existing folder.
[[nodiscard]] std::unique_ptr<Place> FolderPlace(std::string native_folder);

// A text for the desktop: what is asked for (a target), the type that the answer has, the bytes.
struct Offer {
  std::string target;
  std::string type;
  std::string bytes;
};

// Everything that other programs are offered of the texts, and what this library asks for.
[[nodiscard]] std::vector<Offer> OffersOf(const Texts& texts);

// Text of another program as one of format 13: UTF-8 (or Latin-1), any line ends, up to a zero.
[[nodiscard]] std::string FromForeign(std::string_view bytes, bool is_latin);

// Starts the program that keeps the offers for the desktop, and waits until it does. 0 or the code.
[[nodiscard]] DWORD StartOwner(const std::vector<Offer>& offers);

}  // namespace qel::sys::clipboard
