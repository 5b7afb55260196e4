#pragma once
// What every command shares: how it prints, complains and ends.

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qel::tool {

// Exit codes, from good to bad; a run over several files ends with the worst.
enum ExitCode : int {
  kSound = 0,
  kFindings = 1,  // something was found, or two files differ
  kTrouble = 2,   // wrong use, or something cannot be read or written
};

// Why a command cannot go on with a file.
class Trouble : public std::runtime_error {
 public:
  // `file` is a native name, in any bytes.
  Trouble(std::string file, const std::string& text)
      : runtime_error(text), m_file(std::move(file)) {}
  const std::string& file() const { return m_file; }

 private:
  std::string m_file;
};

// One run of the program. Standard output is for results, standard error for messages.
class Session {
 public:
  explicit Session(std::string program) : m_program(std::move(program)) {}

  int exit_code() const { return m_exit_code; }
  void Raise(ExitCode code) { m_exit_code = code > m_exit_code ? code : m_exit_code; }

  // "program: file: text" on standard error; control characters of the name are escaped.
  void Warn(const std::string& file, const std::string& text) const;
  // The same, and the run ends with kTrouble.
  void Complain(const Trouble& trouble);

  void Print(std::string_view text);
  // Hands the output to the system; a write that failed ends the run with kTrouble.
  void Finish();
  // `text` in a colour (an ANSI code such as "31") when people look on: standard output is a
  // terminal and NO_COLOR is not set.
  std::string Coloured(std::string_view text, std::string_view code) const;

 private:
  std::string m_program;
  int m_exit_code = kSound;
};

// "1 record", "2 records".
std::string Counted(std::uint64_t count, const char* thing);

// A number for people: decimal, or with `hex` as 0x...
std::string Number(std::int64_t value, bool hex);

// UTF-8 for a screen: control characters and bytes that are no UTF-8 become \xNN, a backslash \\.
std::string Printable(std::string_view bytes);

}  // namespace qel::tool
