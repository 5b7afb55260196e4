// A viewer of help books: shows pages and pop-ups of unpacked books in the user's browser, or
// prints them on standard error where there is no desktop. Its entry is number 15.

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "qelbase/outside/system/names.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/platform/help_viewer_internal.h"

#include "book.h"

namespace {

using namespace qel::help;
using qel::platform::TextPopup;

// --- showing -------------------------------------------------------------------------------------

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

bool isOnPath(const std::string& program) {
  const std::string path = variable("PATH") + ":";
  for (std::size_t begin = 0, end = 0; (end = path.find(':', begin)) != path.npos;
       begin = end + 1) {
    const std::string file = path.substr(begin, end - begin) + "/" + program;
    if (file[0] == '/' && begin < end && access(file.c_str(), X_OK) == 0) return true;
  }
  return false;
}

bool hasDesktop() {
  return !(variable("DISPLAY") + variable("WAYLAND_DISPLAY")).empty() && isOnPath("xdg-open");
}

// The shell ends at once and leaves the browser's starter to run by itself.
bool openInBrowser(std::string uri) {
  std::string shell = "/bin/sh";
  std::string option = "-c";
  std::string script = "xdg-open \"$1\" </dev/null >/dev/null 2>&1 &";
  char* const arguments[] = {shell.data(), option.data(), script.data(),
                             shell.data(), uri.data(),    nullptr};
  pid_t process = 0;
  if (posix_spawn(&process, shell.c_str(), nullptr, nullptr, arguments, environ) != 0) return false;
  while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
  }
  return true;
}

bool showPage(const std::optional<std::string>& uri) {
  if (!uri) return false;
  if (hasDesktop()) return openInBrowser(*uri);
  std::cerr << "Help: " << *uri << std::endl;
  return true;
}

// The page of a pop-up: one a user, in the folder that ends with the session.
std::optional<std::string> popupFile(const std::string& text) {
  const std::string runtime = variable("XDG_RUNTIME_DIR");
  if (!runtime.starts_with('/')) return std::nullopt;
  const std::string folder = runtime + "/qelbase";
  mkdir(folder.c_str(), 0700);
  std::string file = folder + "/help.html";
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream << PageOf(text);
  return stream.flush() ? std::optional(file) : std::nullopt;
}

bool showText(const std::optional<std::string>& text) {
  if (!text) return false;
  const auto file = hasDesktop() ? popupFile(*text) : std::nullopt;
  if (file) return openInBrowser(FileUri(*file));
  std::cerr << "Help: " << *text << std::endl;
  return true;
}

// --- commands ------------------------------------------------------------------------------------

std::string utf8(const std::wstring& text) {
  return qel::sys::Narrow(text, qel::sys::CP_UTF8);
}

bool showPopup(const Book& book, const std::string& topic, const TextPopup* popup) {
  if (!popup || popup->size != sizeof(TextPopup)) return false;
  if (popup->string == 0 && popup->text) return showText(utf8(popup->text));
  return showText(book.popup(topic, popup->string));
}

bool run(const wchar_t* path, UINT command, std::uint64_t data) {
  const Address address = ParseAddress(path ? path : L"");
  std::string file;
  if (!qel::sys::ToNative(address.file, file)) return false;
  const std::optional<Book> book = Book::find(file);
  if (!book) return false;
  switch (command) {
    case qel::platform::kDisplayTopic:
      return showPage(book->uriOf(utf8(address.topic)));
    case qel::platform::kDisplayTextPopup:
      return showPopup(*book, utf8(address.topic), reinterpret_cast<const TextPopup*>(data));
    case qel::platform::kHelpContext:
      return showPage(book->uriOfContext(data));
    default:
      return false;
  }
}

}  // namespace

// Non-null if something was shown. Nothing is thrown into the caller.
extern "C" __attribute__((visibility("default"))) HWND ordinal_15(HWND /*owner*/,
                                                                  const wchar_t* path, UINT command,
                                                                  std::uint64_t data) {
  try {
    return reinterpret_cast<HWND>(static_cast<std::uintptr_t>(run(path, command, data) ? 1 : 0));
  } catch (const std::exception&) {
    return nullptr;
  }
}
