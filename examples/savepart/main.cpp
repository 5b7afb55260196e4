// savepart [--progress=MODE] PART OUT: saves a 3D part into a tagged file while a progress bar
// runs, saves it again with one record changed, and shows what the file holds. Ctrl-C breaks a save
// off; the file is then what it was before.
//
// The file has these records at top level. The bytes of each lie in a DATA tag inside, as the
// present format version wants it; numbers are little-endian.
//
//   NAME   the part's name, UTF-8
//   COLOR  red, green, blue, alpha, a byte each
//   BOX    lowest x, y, z, highest x, y, z, as 32-bit floats
//   MESH   two records of its own:
//            POINTS  x, y, z of each point, as 32-bit floats
//            TRIS    three point numbers for each triangle, as 32-bit integers
//   SUM    FNV-1a of 64 bits over the bytes of POINTS and TRIS, low half first

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/names.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/progress/MProgress.h"
#include "qelbase/tagged/MFileTagged.h"

#include "Part.h"
#include "terminal/ProgressDisplay.h"

extern char** environ;

namespace {

// The library is told Windows paths; this is the one for a native name.
std::wstring libraryName(const std::string& native) {
  return qel::sys::FromNative(std::filesystem::absolute(native).string());
}

// --- Progress ----------------------------------------------------------------------------------

struct Aborted : std::runtime_error {
  Aborted() : runtime_error("broken off; the file is as it was") {}
};

// Moves the bar of a scope, and ends the operation if the user wishes so.
void step(MProgress& scope, double amount = 1) {
  scope.Increment(amount);
  if (MProgress::GetAbortFlag()) throw Aborted();
}

// --- Writing records ---------------------------------------------------------------------------

// A tag: its header, then whatever `body` writes, then the true length in the header. Tags nest by
// calling this inside `body`.
void writeTag(MFileTagged& file, const char* name, const std::function<void()>& body) {
  MTag tag(name);
  file.WRITE_TAG_BEGIN(tag);
  body();
  if (!file.WRITE_TAG_END(tag)) throw std::runtime_error(std::string(name) + " is too long");
}

void writeBytes(MFileTagged& file, const char* name, const void* bytes, std::size_t size) {
  writeTag(file, name, [&] {
    writeTag(file, "DATA", [&] { file.WRITE(static_cast<const char*>(bytes), size); });
  });
}

// The file has 32-bit integers; a float travels as the integer with its bits. Many numbers go in
// pieces, under a scope of their own.
void writeNumbers(MFileTagged& file, const char* name, const std::vector<std::int32_t>& numbers) {
  constexpr std::size_t piece = 16384;
  MProgress scope(0, static_cast<double>(numbers.size()));
  scope.SetText(std::wstring(name, name + std::strlen(name)).c_str());
  writeTag(file, name, [&] {
    writeTag(file, "DATA", [&] {
      for (std::size_t at = 0; at < numbers.size(); at += piece) {
        const std::size_t count = std::min(piece, numbers.size() - at);
        file.WRITE(numbers.data() + at, count);
        step(scope, static_cast<double>(count));
      }
    });
  });
}

template <typename Floats>
std::vector<std::int32_t> bitsOf(const Floats& values) {
  std::vector<std::int32_t> bits;
  bits.reserve(values.size());
  for (const float value : values) bits.push_back(std::bit_cast<std::int32_t>(value));
  return bits;
}

std::vector<std::int32_t> halvesOf(std::uint64_t value) {
  return {static_cast<std::int32_t>(value), static_cast<std::int32_t>(value >> 32)};
}

// --- Saving ------------------------------------------------------------------------------------

[[noreturn]] void fail(const MFileTagged& file) {
  using namespace qel::sys;
  switch (file.GET_RESULT()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      throw std::runtime_error("there is no such folder");
    case ERROR_ACCESS_DENIED:
      throw std::runtime_error("may not be written, or is a folder");
    case ERROR_DISK_FULL:
      throw std::runtime_error("the disk is full");
    default:
      throw std::runtime_error("cannot be written, code " + std::to_string(file.GET_RESULT()));
  }
}

// One save. Unless it is finished, the file gets its old content back, or goes if there was none.
class Save {
 public:
  explicit Save(const std::string& out)
      : m_name(libraryName(std::filesystem::weakly_canonical(out)).c_str(), false),
        m_existed(m_name.DOES_EXIST()) {
    if (!m_file.OPEN_WRITE(m_name.GET())) fail(m_file);
  }
  ~Save() {
    if (!m_finished) abandon();
  }
  Save(const Save&) = delete;
  Save& operator=(const Save&) = delete;

  MFileTagged& file() { return m_file; }

  // The operations on tags look at no transfer; the first error of any of them stays in the result.
  void finish() {
    m_file.CLOSE();
    if (m_file.GET_RESULT() != 0) fail(m_file);
    m_finished = true;
  }

 private:
  // The old content lies beside the file, under the extension .bak.
  void abandon() {
    m_file.MFile::CLOSE();  // without copying the old records
    MFileName backup(m_name);
    backup.SET_EXT_PART(L".bak", 256);
    std::string name, old;
    std::error_code ignored;
    if (!qel::sys::ToNative(m_name.GET(), name) || !qel::sys::ToNative(backup.GET(), old)) return;
    if (m_existed) {
      std::filesystem::rename(old, name, ignored);
    } else {
      std::filesystem::remove(name, ignored);
    }
  }

  MFileTagged m_file;
  MFileName m_name;
  bool m_existed;
  bool m_finished = false;
};

void savePart(const Part& part, const std::string& out) {
  Save save(out);
  MFileTagged& file = save.file();
  MProgress records(0, 6);
  records.SetText(L"Saving");
  records.SetAdjustByLowerLevels(true);
  writeBytes(file, "NAME", part.name.data(), part.name.size());
  step(records);
  writeBytes(file, "COLOR", part.colour.data(), part.colour.size());
  step(records);
  writeNumbers(file, "BOX", bitsOf(part.boundingBox()));
  step(records);
  writeTag(file, "MESH", [&] {
    writeNumbers(file, "POINTS", bitsOf(part.points));
    step(records);
    writeNumbers(file, "TRIS", part.triangles);
    step(records);
  });
  writeNumbers(file, "SUM", halvesOf(part.checksum()));
  step(records);
  save.finish();
}

// Writes only COLOR. All other records of the file are kept: CLOSE copies them over untouched.
void saveColour(const Part& part, const std::string& out) {
  Save save(out);
  MProgress records(0, 1);
  records.SetText(L"Saving the colour again");
  writeBytes(save.file(), "COLOR", part.colour.data(), part.colour.size());
  step(records);
  save.finish();
}

// --- Showing -----------------------------------------------------------------------------------

// The tool `qel`: beside this program, or on the PATH.
std::string findTool() {
  std::error_code ignored;
  const auto beside =
      std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path() / "qel";
  return std::filesystem::is_regular_file(beside, ignored) ? beside.string() : "qel";
}

int showTree(const std::string& out) {
  std::string words[] = {findTool(), "tag", "tree", "--", out};
  char* arguments[] = {words[0].data(), words[1].data(), words[2].data(),
                       words[3].data(), words[4].data(), nullptr};
  pid_t child = 0;
  const int error = posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments, environ);
  if (error != 0) {
    throw std::runtime_error("saved, but qel cannot be run to show it: " +
                             std::system_category().message(error));
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 2;
}

void saveTwice(Part& part, const std::string& out, qel::terminal::Mode mode) {
  const qel::terminal::ProgressDisplay display(mode);
  savePart(part, out);
  part.colour = {255, 140, 0, 255};
  saveColour(part, out);
}

int run(const std::string& model, const std::string& out, qel::terminal::Mode mode) {
  std::string place = model;  // what a message is about
  try {
    Part part = readPart(model);
    place = out;
    saveTwice(part, out, mode);
    return showTree(out);
  } catch (const Aborted& aborted) {
    std::fprintf(stderr, "savepart: %s: %s\n", place.c_str(), aborted.what());
    return 130;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "savepart: %s: %s\n", place.c_str(), error.what());
    return 2;
  }
}

}  // namespace

int main(int argc, char** argv) {
  constexpr std::string_view option = "--progress=";
  auto mode = qel::terminal::Mode::automatic;
  std::vector<std::string> words(argv + 1, argv + argc);
  const bool has_option = !words.empty() && words[0].starts_with(option);
  const bool known = !has_option || qel::terminal::ParseMode(words[0].substr(option.size()), mode);
  if (has_option) words.erase(words.begin());
  if (!known || words.size() != 2) {
    std::fprintf(stderr, "usage: savepart [--progress=auto|bars|lines|json|none] PART OUT\n");
    return 2;
  }
  return run(words[0], words[1], mode);
}
