#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "qelbase/outside/components/MFile.h"
#include "qelbase/outside/system/syscalls_internal.h"

#include "tests/support/TempFolder.h"

namespace {

using qeltest::readBytes;
using qeltest::TempFolder;
using qeltest::writeBytes;

std::string pattern(std::size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>((seed = seed * 1103515245U + 12345U) >> 16);
  return bytes;
}

// --- Any sequence of operations against a plain string ---

const std::vector<std::size_t> buffer_sizes = {0, 1, 12, 4096, 262144};
const std::vector<std::size_t> lengths = {0,    1,    3,    4,     11,    12,    13,   127,
                                          4095, 4096, 4097, 32767, 32768, 33000, 70000};

struct Step {
  int action;
  std::size_t length;
  std::int64_t offset;
  int origin;
};

// What the file promises, the slow way.
struct Model {
  std::string bytes;
  std::int64_t position = 0;
  int mode = 3;

  std::size_t left() const {
    const auto size = static_cast<std::int64_t>(bytes.size());
    return position < size ? static_cast<std::size_t>(size - position) : 0;
  }
  std::string read(std::size_t length) {
    if ((mode & 1) == 0) return {};
    const std::size_t got = std::min(length, left());
    const std::string out = got ? bytes.substr(static_cast<std::size_t>(position), got) : "";
    position += static_cast<std::int64_t>(got);
    return out;
  }
  void write(const std::string& data) {
    if ((mode & 2) == 0 || data.empty()) return;
    const auto at = static_cast<std::size_t>(position);
    if (bytes.size() < at + data.size()) bytes.resize(at + data.size());
    bytes.replace(at, data.size(), data);
    position += static_cast<std::int64_t>(data.size());
  }
};

class Pair {
 public:
  Pair(std::size_t buffer, int mode, const std::string& content) : m_file(buffer) {
    writeBytes(m_folder / "f", content);
    const std::wstring name = m_folder.wide("f");
    const bool opened = mode == 1   ? m_file.OPEN_READ(name.c_str())
                        : mode == 2 ? m_file.OPEN_WRITE(name.c_str())
                                    : m_file.OPEN_UPDATE(name.c_str());
    RC_ASSERT(opened);
    m_model = {mode == 2 ? "" : content, 0, mode};
  }

  void apply(const Step& step) {
    const std::string data = pattern(step.length, ++m_seed);
    switch (step.action) {
      case 0:
        return read(step.length);
      case 1:
        return write(data);
      case 2:
        return seek(step);
      case 3:
        RC_ASSERT(m_file.FLUSH());
        return;
      case 4:
        RC_ASSERT(m_file.SET_BUFFER_SIZE(buffer_sizes[step.length % 5]));
        return;
      case 5:
        return readLongs(step.length % 9);
      case 6:
        return overwrite(step, data);
      case 7:
        return readText(step.length);
      default:
        RC_ASSERT(m_file.CHANGE_MODE(m_model.mode));
        return;
    }
  }

  void compare() {
    RC_ASSERT(m_file.TELL() == m_model.position);
    RC_ASSERT(m_file.SIZE() == static_cast<std::int64_t>(m_model.bytes.size()));
    RC_ASSERT(m_file.FEOF() == (m_model.left() == 0));
  }
  void close() {
    m_file.CLOSE();
    RC_ASSERT(readBytes(m_folder / "f") == m_model.bytes);
  }

 private:
  void read(std::size_t length) {
    std::string got(length, '\0');
    got.resize(m_file.READ(got.data(), length));
    RC_ASSERT(got == m_model.read(length));
  }
  void write(const std::string& data) {
    const std::size_t expected = (m_model.mode & 2) != 0 ? data.size() : 0;
    RC_ASSERT(m_file.WRITE(data.data(), data.size()) == expected);
    m_model.write(data);
  }
  void seek(const Step& step) {
    const auto size = static_cast<std::int64_t>(m_model.bytes.size());
    const std::int64_t base[] = {0, m_model.position, size};
    const std::int64_t target = base[step.origin] + step.offset;
    const bool moved =
        step.origin == 1 ? m_file.SKIP(step.offset) : m_file.SEEK(step.offset, step.origin);
    RC_ASSERT(moved == (target >= 0));
    if (target >= 0) m_model.position = target;
  }
  void readLongs(std::size_t count) {
    std::vector<std::int32_t> values(count);
    const std::size_t got = m_file.READ(values.data(), count);
    const std::size_t whole = (m_model.mode & 1) != 0 ? std::min(count, m_model.left() / 4) : 0;
    RC_ASSERT(got == whole);
    const std::string bytes = m_model.read(whole * 4);
    const bool same = bytes.empty() || std::memcmp(values.data(), bytes.data(), bytes.size()) == 0;
    RC_ASSERT(same);
  }
  void overwrite(const Step& step, const std::string& data) {
    const std::int64_t back = std::min<std::int64_t>(m_model.position, std::abs(step.offset));
    const std::int64_t at = m_model.position - back;
    RC_ASSERT(m_file.OVERWRITE(at, data.data(), data.size()) ==
              ((m_model.mode & 2) != 0 || data.empty()));
    const std::int64_t position = std::exchange(m_model.position, at);
    m_model.write(data);
    m_model.position = position;
  }
  void readText(std::size_t size) {
    std::string buffer(size + 1, '\0');
    const std::size_t length = m_file.READ_STRING_UNTIL(buffer.data(), "\x07\xF0", size);
    const std::int64_t start = m_model.position;
    const std::string ahead = m_model.read(size);
    const std::size_t found = ahead.find_first_of("\x07\xF0");
    RC_ASSERT(length == found);
    if (found != ahead.npos)
      RC_ASSERT(buffer.substr(0, found + 1) == ahead.substr(0, found) + '\0');
    m_model.position = found == ahead.npos ? start : start + static_cast<std::int64_t>(found) + 1;
  }

  TempFolder m_folder;
  MFile m_file;
  Model m_model;
  unsigned m_seed = 0;
};

rc::Gen<Step> anyStep() {
  const auto far = rc::gen::inRange<std::int64_t>(-70000, 70001);
  const auto near = rc::gen::inRange<std::int64_t>(-20, 21);
  return rc::gen::build<Step>(
      rc::gen::set(&Step::action,
                   rc::gen::weightedElement<int>(
                       {{6, 0}, {8, 1}, {8, 2}, {1, 3}, {1, 4}, {3, 5}, {3, 6}, {3, 7}, {1, 8}})),
      rc::gen::set(&Step::length, rc::gen::elementOf(lengths)),
      rc::gen::set(&Step::offset, rc::gen::oneOf(near, near, far)),
      rc::gen::set(&Step::origin, rc::gen::inRange(0, 3)));
}

TEST(MFile, BehavesLikeAPlainString) {
  const bool held = rc::check("MFile behaves like a plain string", [] {
    const auto buffer = *rc::gen::elementOf(buffer_sizes);
    const int mode = *rc::gen::weightedElement<int>({{1, 1}, {1, 2}, {3, 3}});
    Pair pair(buffer, mode, pattern(*rc::gen::elementOf(lengths), 7));
    const auto steps = *rc::gen::container<std::vector<Step>>(anyStep());
    for (Step step : steps) {
      if (mode == 2 && step.action == 8) continue;
      pair.apply(step);
      pair.compare();
    }
    pair.close();
  });
  EXPECT_TRUE(held);
}

// --- Bytes, names and refusals ---

TEST(MFile, FourByteValuesAreLittleEndianInTheFile) {
  TempFolder folder;
  MFile file;
  ASSERT_TRUE(file.OPEN_WRITE(folder.wide("a").c_str()));
  const std::int32_t values[] = {0x01020304, -2};
  EXPECT_EQ(file.WRITE(values, 2), 2U);
  EXPECT_EQ(file.WRITE_STRING("xyz"), 3U);
  file.CLOSE();
  EXPECT_EQ(readBytes(folder / "a"), std::string("\x04\x03\x02\x01\xfe\xff\xff\xffxyz", 11));
}

TEST(MFile, RefusesWhatItCannotOpen) {
  TempFolder folder;
  writeBytes(folder / "locked", "old");
  std::filesystem::permissions(folder / "locked", std::filesystem::perms::owner_read);
  const struct {
    const char* name;
    int mode;
    std::uint32_t code;
  } rows[] = {{"missing", 1, 2}, {"missing", 3, 2}, {"no/such", 2, 3},
              {"", 1, 5},        {"", 2, 5},        {"", 3, 5},
              {"locked", 2, 5},  {"locked", 3, 5},  {"locked/below", 2, 3}};
  for (const auto& row : rows) {
    MFile file;
    const std::wstring name = folder.wide(row.name);
    EXPECT_FALSE(row.mode == 1   ? file.OPEN_READ(name.c_str())
                 : row.mode == 2 ? file.OPEN_WRITE(name.c_str())
                                 : file.OPEN_UPDATE(name.c_str()));
    EXPECT_EQ(file.GET_RESULT(), row.code) << row.name << " in mode " << row.mode;
    EXPECT_FALSE(file.IS_OPEN());
    EXPECT_EQ(file.READ(std::string(4, ' ').data(), 4), 0U);
  }
  EXPECT_EQ(readBytes(folder / "locked"), "old");
  EXPECT_FALSE(std::filesystem::exists(folder / "missing"));
}

TEST(MFile, KeepsTheFirstErrorUntilItIsReset) {
  TempFolder folder;
  writeBytes(folder / "a", "12345");
  MFile file;
  EXPECT_FALSE(file.OPEN_READ(folder.wide("missing").c_str()));
  ASSERT_TRUE(file.OPEN_READ(folder.wide("a").c_str()));
  EXPECT_EQ(file.WRITE("x", 1), 0U);
  EXPECT_EQ(file.GET_RESULT(), 2U);
  file.RESET_RESULT();
  EXPECT_EQ(file.WRITE("x", 1), 0U);
  EXPECT_EQ(file.GET_RESULT(), 5U);
  file.CLOSE();
  file.CLOSE();
  EXPECT_EQ(file.TELL(), -1);
}

TEST(MFile, WorksBehindFourGigabytes) {
  TempFolder folder;
  writeBytes(folder / "big", "");
  std::filesystem::resize_file(folder / "big", std::uintmax_t{5} << 30);
  MFile file;
  ASSERT_TRUE(file.OPEN_UPDATE(folder.wide("big").c_str()));
  EXPECT_EQ(file.SIZE(), std::int64_t{5} << 30);
  ASSERT_TRUE(file.SEEK(-4, 2));
  const std::int32_t value = 77;
  EXPECT_EQ(file.WRITE(&value, 1), 1U);
  EXPECT_TRUE(file.FEOF());
  ASSERT_TRUE(file.SEEK((std::int64_t{5} << 30) - 8, 0));
  std::int32_t read[2] = {1, 1};
  EXPECT_EQ(file.READ(read, 2), 2U);
  EXPECT_EQ(read[0], 0);
  EXPECT_EQ(read[1], 77);
  EXPECT_FALSE(file.SEEK(std::numeric_limits<std::int64_t>::max(), 1));
  EXPECT_FALSE(file.SEEK(std::numeric_limits<std::int64_t>::max(), 0));  // no place to write at
  EXPECT_EQ(file.TELL(), std::int64_t{5} << 30);
}

// A file that is stored in scrambled form: every byte has to pass the slots.
class Scrambled : public MFile {
 protected:
  std::size_t _READ(void* data, std::size_t bytes) override {
    const std::size_t got = MFile::_READ(data, bytes);
    scramble(static_cast<char*>(data), got);
    return got;
  }
  std::size_t _WRITE(const void* data, std::size_t bytes) override {
    std::string copy(static_cast<const char*>(data), bytes);
    scramble(copy.data(), bytes);
    return MFile::_WRITE(copy.data(), bytes);
  }

 private:
  static void scramble(char* data, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; ++i) data[i] = static_cast<char>(data[i] ^ 0x20);
  }
};

TEST(MFile, SubclassesSeeEveryByte) {
  TempFolder folder;
  Scrambled out;
  ASSERT_TRUE(out.OPEN_WRITE(folder.wide("s").c_str()));
  EXPECT_EQ(out.WRITE("ab", 2), 2U);
  EXPECT_EQ(out.WRITE_STRING("cd|ef"), 5U);
  EXPECT_TRUE(out.OVERWRITE(0, "x", 1));
  out.CLOSE();
  EXPECT_EQ(readBytes(folder / "s"), "XBCD\\EF");
  Scrambled in;
  char text[8] = {};
  ASSERT_TRUE(in.OPEN_READ(folder.wide("s").c_str()));
  EXPECT_EQ(in.READ(text, 1), 1U);
  EXPECT_EQ(in.READ_STRING_UNTIL(text, "|", sizeof text), 3U);
  EXPECT_STREQ(text, "bcd");
  MFile plain;
  ASSERT_TRUE(plain.OPEN_WRITE(folder.wide("p").c_str()));
  EXPECT_EQ(plain.COPY(in), 2);
  plain.CLOSE();
  EXPECT_EQ(readBytes(folder / "p"), "ef");
}

// --- Copying ---

// For a scope, the kernel declines to copy between files, as it does between many file systems.
class NoKernelCopy {
 public:
  explicit NoKernelCopy(bool on) : m_calls(qel::sys::Calls()) {
    if (!on) return;
    qel::sys::Calls().copy_file_range = [](int, off_t*, int, off_t*, size_t, unsigned) -> ssize_t {
      errno = EXDEV;
      return -1;
    };
  }
  ~NoKernelCopy() { qel::sys::Calls() = m_calls; }
  NoKernelCopy(const NoKernelCopy&) = delete;
  NoKernelCopy& operator=(const NoKernelCopy&) = delete;

 private:
  qel::sys::SystemCalls m_calls;
};

TEST(MFileCopy, MovesBytesAndBothPositions) {
  const bool held = rc::check("COPY equals substr and replace", [] {
    const NoKernelCopy declined(*rc::gen::arbitrary<bool>());
    const std::string from = pattern(*rc::gen::elementOf(lengths), 3);
    const std::string head = pattern(*rc::gen::elementOf(lengths), 5);
    const auto skip = *rc::gen::elementOf(lengths);
    const auto count = *rc::gen::elementOf(lengths);
    TempFolder folder;
    writeBytes(folder / "from", from);
    MFile source(*rc::gen::elementOf(buffer_sizes));
    MFile target(*rc::gen::elementOf(buffer_sizes));
    RC_ASSERT(source.OPEN_READ(folder.wide("from").c_str()));
    RC_ASSERT(target.OPEN_WRITE(folder.wide("to").c_str()));
    RC_ASSERT(target.WRITE(head.data(), head.size()) == head.size());
    source.SEEK(static_cast<std::int64_t>(skip), 0);
    const std::string part = skip < from.size() ? from.substr(skip, count) : "";
    RC_ASSERT(target.COPY(source, static_cast<std::int64_t>(count)) ==
              static_cast<std::int64_t>(part.size()));
    RC_ASSERT(source.TELL() == static_cast<std::int64_t>(skip + part.size()));
    RC_ASSERT(target.WRITE("!", 1) == 1);
    const std::int64_t rest = target.COPY(source);
    target.CLOSE();
    const std::string tail = skip + count < from.size() ? from.substr(skip + count) : "";
    RC_ASSERT(rest == static_cast<std::int64_t>(tail.size()));
    RC_ASSERT(readBytes(folder / "to") == head + part + '!' + tail);
  });
  EXPECT_TRUE(held);
}

// Onto the same file the target gets what the source held before, overlapping or not.
TEST(MFileCopy, WithinOneFileActsAsIfAllWasReadFirst) {
  for (const bool declined : {false, true}) {
    const NoKernelCopy scope(declined);
    for (const auto& [from, to, count] : {std::tuple<int, int, int>{0, 10, 50},
                                          {10, 0, 50},
                                          {0, 1, 199999},
                                          {100000, 0, 100000},
                                          {0, 70000, 130000},
                                          {0, 200000, 200000},
                                          {5, 5, 1000}}) {
      TempFolder folder;
      std::string bytes = pattern(200000, 9);
      writeBytes(folder / "f", bytes);
      MFile source;
      MFile target;
      ASSERT_TRUE(source.OPEN_READ(folder.wide("f").c_str()));
      ASSERT_TRUE(target.OPEN_UPDATE(folder.wide("f").c_str()));
      source.SEEK(from, 0);
      target.SEEK(to, 0);
      EXPECT_EQ(target.COPY(source, count), count);
      EXPECT_EQ(target.TELL(), to + count);
      target.CLOSE();
      const auto size = static_cast<std::size_t>(count);
      const std::string moved = bytes.substr(static_cast<std::size_t>(from), size);
      const auto end = static_cast<std::size_t>(to) + size;
      if (end > bytes.size()) bytes.resize(end);
      bytes.replace(static_cast<std::size_t>(to), size, moved);
      EXPECT_TRUE(readBytes(folder / "f") == bytes) << from << " to " << to << ", " << count;
    }
  }
}

}  // namespace
