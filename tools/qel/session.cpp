#include "session.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace qel::tool {
namespace {

// The length of the well-formed UTF-8 character at the start of `bytes`; 0 if there is none.
std::size_t CharacterLength(std::string_view bytes) {
  struct Form {
    unsigned char mask, lead;
    std::size_t length;
    std::uint32_t lowest;
  };
  static constexpr std::array<Form, 4> kForms{{{0x80, 0x00, 1, 0},
                                               {0xE0, 0xC0, 2, 0x80},
                                               {0xF0, 0xE0, 3, 0x800},
                                               {0xF8, 0xF0, 4, 0x10000}}};
  const auto first = static_cast<unsigned char>(bytes[0]);
  for (const Form& form : kForms) {
    if ((first & form.mask) != form.lead) continue;
    if (bytes.size() < form.length) return 0;
    std::uint32_t code = first & static_cast<unsigned char>(~form.mask);
    for (std::size_t i = 1; i < form.length; ++i) {
      const auto next = static_cast<unsigned char>(bytes[i]);
      if ((next & 0xC0) != 0x80) return 0;
      code = code << 6 | (next & 0x3F);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < form.lowest || surrogate || code > 0x10FFFF ? 0 : form.length;
  }
  return 0;
}

// C0, DEL and C1, which a terminal may act upon.
bool IsControl(std::string_view character) {
  const auto first = static_cast<unsigned char>(character[0]);
  if (character.size() == 1) return first < 0x20 || first == 0x7F;
  return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

}  // namespace

void Session::Warn(const std::string& file, const std::string& text) const {
  std::fflush(stdout);
  std::fprintf(stderr, "%s: %s: %s\n", m_program.c_str(), Printable(file).c_str(), text.c_str());
}

void Session::Complain(const Trouble& trouble) {
  Warn(trouble.file(), trouble.what());
  Raise(kTrouble);
}

void Session::Print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

void Session::Finish() {
  errno = 0;
  if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return;
  Complain(Trouble("standard output", errno ? std::strerror(errno) : "cannot be written"));
}

std::string Session::Coloured(std::string_view text, std::string_view code) const {
  static const char* const no_color = std::getenv("NO_COLOR");
  static const bool colours = (!no_color || !*no_color) && isatty(STDOUT_FILENO) == 1;
  if (!colours) return std::string(text);
  return "\x1b[" + std::string(code) + "m" + std::string(text) + "\x1b[0m";
}

std::string Counted(std::uint64_t count, const char* thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

std::string Number(std::int64_t value, bool hex) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), hex ? "0x%llx" : "%lld", static_cast<long long>(value));
  return text.data();
}

std::string Printable(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    const std::size_t length = CharacterLength(bytes);
    const std::string_view character = bytes.substr(0, std::max<std::size_t>(length, 1));
    if (character == "\\") {
      text += "\\\\";
    } else if (length > 0 && !IsControl(character)) {
      text += character;
    } else {
      for (const char byte : character) {
        std::array<char, 8> escape{};
        std::snprintf(escape.data(), escape.size(), "\\x%02x",
                      static_cast<unsigned>(static_cast<unsigned char>(byte)));
        text += escape.data();
      }
    }
    bytes.remove_prefix(character.size());
  }
  return text;
}

}  // namespace qel::tool
