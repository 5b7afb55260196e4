// The sub-command `sum`: check values of files, and lists of them that are checked again later.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qelbase/checks/COXCRC.h"
#include "qelbase/checks/COXCheckSum.h"
#include "qelbase/checks/CSHA1.h"

#include "commands.h"
#include "disk.h"
#include "json_list.h"

namespace qel::tool {
namespace {

// --- the values --------------------------------------------------------------------------------

// One value over the pieces of a file.
class Sum {
 public:
  virtual ~Sum() = default;
  virtual void Add(std::string_view piece) = 0;
  virtual std::string Hex() = 0;
};

// A piece for the interfaces that take 32 bits at a time.
constexpr std::size_t kPiece = 1 << 20;

template <typename Check, int digits>
class CheckSum : public Sum {
 public:
  void Add(std::string_view piece) override {
    m_value = m_check.CalculateBlock(piece.data(), static_cast<DWORD>(piece.size()));
  }
  std::string Hex() override {
    std::array<char, 9> text{};
    std::snprintf(text.data(), text.size(), "%0*x", digits, m_value);
    return text.data();
  }

 private:
  Check m_check;
  DWORD m_value = m_check.CalculateBlock("", 0);
};

class Sha1 : public Sum {
 public:
  void Add(std::string_view piece) override {
    m_hash.Update(reinterpret_cast<const unsigned char*>(piece.data()),
                  static_cast<std::uint32_t>(piece.size()));
  }
  std::string Hex() override {
    m_hash.Final();
    std::array<unsigned char, 20> digest{};
    m_hash.GetHash(digest.data());
    std::string text;
    for (const unsigned char byte : digest) {
      for (const int shift : {4, 0}) text += "0123456789abcdef"[byte >> shift & 15];
    }
    return text;
  }

 private:
  CSHA1 m_hash;
};

template <typename Kind>
std::unique_ptr<Sum> Make() {
  return std::make_unique<Kind>();
}

struct Algorithm {
  const char* name;
  const char* summary;
  std::unique_ptr<Sum> (*make)();
};

constexpr Algorithm kAlgorithms[] = {
    {"sha1", "SHA-1", Make<Sha1>},
    {"crc32", "CRC-32 without the final inversion", Make<CheckSum<COXCRC32, 8>>},
    {"crc16", "CRC-16, most significant bit first", Make<CheckSum<COXCRC16, 4>>},
    {"sum8", "The sum of all bytes, cut to 8 bits", Make<CheckSum<COXCheckSum8, 2>>},
    {"sum16", "The sum of all bytes, cut to 16 bits", Make<CheckSum<COXCheckSum16, 4>>},
    {"sum32", "The sum of all bytes, cut to 32 bits", Make<CheckSum<COXCheckSum32, 8>>},
};

std::string SumOf(const std::string& file, const Algorithm& algorithm) {
  const std::unique_ptr<Sum> sum = algorithm.make();
  ForEachPiece(file, [&](std::string_view bytes) {
    for (; !bytes.empty(); bytes.remove_prefix(std::min(kPiece, bytes.size()))) {
      sum->Add(bytes.substr(0, kPiece));
    }
    return true;
  });
  return sum->Hex();
}

// --- lists -------------------------------------------------------------------------------------

// A line is the value, two blanks and the file's name. In a name, a backslash is written \\ and a
// line feed \n; the line then begins with a backslash.
std::string LineOf(const std::string& sum, const std::string& file) {
  std::string name;
  for (const char c : file) name += c == '\n' ? "\\n" : c == '\\' ? "\\\\" : std::string(1, c);
  return (name == file ? "" : "\\") + sum + "  " + name + "\n";
}

struct Line {
  std::string sum;
  std::string file;
};

std::optional<std::string> Unescaped(std::string_view text) {
  std::string name;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      name += text[i];
    } else if (++i < text.size() && (text[i] == 'n' || text[i] == '\\')) {
      name += text[i] == 'n' ? '\n' : '\\';
    } else {
      return std::nullopt;
    }
  }
  return name;
}

// Nothing for a line that is none of a list with values of this many digits. A star in the place of
// the second blank, as other programs write it for binary files, is taken too.
std::optional<Line> ParseLine(std::string_view line, std::size_t digits) {
  const bool escaped = line.starts_with('\\');
  if (escaped) line.remove_prefix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (line.size() < digits + 3 || line[digits] != ' ') return std::nullopt;
  if (line[digits + 1] != ' ' && line[digits + 1] != '*') return std::nullopt;
  std::string sum(line.substr(0, digits));
  if (sum.find_first_not_of("0123456789abcdefABCDEF") != sum.npos) return std::nullopt;
  std::transform(sum.begin(), sum.end(), sum.begin(),
                 [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c; });
  const std::string name(line.substr(digits + 2));
  const std::optional<std::string> file = escaped ? Unescaped(name) : name;
  return file ? std::optional(Line{sum, *file}) : std::nullopt;
}

// Gives each line of a file to `take`, without its end; a line longer than any sound one is cut.
void ForEachLine(const std::string& file, const std::function<void(std::string_view)>& take) {
  constexpr std::size_t longest = 65536;
  std::string line;
  ForEachPiece(file, [&](std::string_view bytes) {
    for (const char c : bytes) {
      if (c == '\n') {
        take(line);
        line.clear();
      } else if (line.size() < longest) {
        line += c;
      }
    }
    return true;
  });
  if (!line.empty()) take(line);
}

// --- the command -------------------------------------------------------------------------------

struct Arguments {
  std::vector<std::string> files;
  std::array<bool, std::size(kAlgorithms)> chosen{};
  bool check = false;
  bool json = false;

  const Algorithm& algorithm() const {
    const auto at = std::find(chosen.begin(), chosen.end(), true);
    return kAlgorithms[at == chosen.end() ? 0 : at - chosen.begin()];
  }
};

void PrintSums(Session& session, const Arguments& arguments) {
  std::optional<JsonList> list;
  if (arguments.json) list.emplace(session);
  for (const std::string& file : arguments.files) {
    try {
      const std::string sum = SumOf(file, arguments.algorithm());
      if (list) {
        list->Add({{"file", file}, {"algorithm", arguments.algorithm().name}, {"sum", sum}});
      } else {
        session.Print(LineOf(sum, file));
      }
    } catch (const Trouble& trouble) {
      session.Complain(trouble);
    }
  }
  if (list) list->Close();
  if (list) session.Print("\n");
}

void CheckLine(Session& session, const Line& line, const Algorithm& algorithm) {
  try {
    const bool same = SumOf(line.file, algorithm) == line.sum;
    session.Print(Printable(line.file) + (same ? ": OK\n" : ": FAILED\n"));
    if (!same) session.Raise(kFindings);
  } catch (const Trouble& trouble) {
    session.Complain(trouble);
  }
}

void CheckList(Session& session, const std::string& list, const Algorithm& algorithm) {
  const std::size_t digits = algorithm.make()->Hex().size();
  std::size_t number = 0, sound = 0;
  ForEachLine(list, [&](std::string_view text) {
    ++number;
    if (text.empty()) return;
    if (const std::optional<Line> line = ParseLine(text, digits)) {
      ++sound;
      CheckLine(session, *line, algorithm);
    } else {
      session.Warn(list, "line " + std::to_string(number) + " is no line of a list");
      session.Raise(kFindings);
    }
  });
  if (sound == 0) throw Trouble(list, std::string("no list of ") + algorithm.name + " values");
}

void CheckLists(Session& session, const Arguments& arguments) {
  for (const std::string& list : arguments.files) {
    try {
      CheckList(session, list, arguments.algorithm());
    } catch (const Trouble& trouble) {
      session.Complain(trouble);
    }
  }
}

constexpr const char* kFooter =
    R"(One of the values is chosen by its option; without one it is SHA-1. A line of the output is the
value in hexadecimal digits, two blanks and the file's name; a name with a backslash or a line feed in it
is written with \\ and \n, behind a backslash at the start of the line.

With --check each FILE is such a list: its files are read again and told as OK or FAILED.)";

void AddSum(CLI::App& sum, Session& session) {
  const auto arguments = std::make_shared<Arguments>();
  sum.require_subcommand(0);
  sum.add_option("FILE", arguments->files, "The files; - is standard input")->required();
  for (std::size_t i = 0; i < std::size(kAlgorithms); ++i) {
    sum.add_flag(std::string("--") + kAlgorithms[i].name, arguments->chosen[i],
                 kAlgorithms[i].summary);
  }
  sum.add_flag("-c,--check", arguments->check, "Read values from the files and check them");
  sum.add_flag("--json", arguments->json, "Print JSON");
  sum.footer(kFooter);
  sum.callback([arguments, &session] {
    if (std::count(arguments->chosen.begin(), arguments->chosen.end(), true) > 1) {
      throw CLI::ValidationError("one value at a time");
    }
    if (arguments->check && arguments->json) {
      throw CLI::ValidationError("--check and --json exclude each other");
    }
    (arguments->check ? CheckLists : PrintSums)(session, *arguments);
  });
}

const Registration kSum({"sum", "Compute and check checksums of files", AddSum});

}  // namespace
}  // namespace qel::tool
