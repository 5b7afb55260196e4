// put, rm and convert with each system call failing or the process killed at it: the name has the
// old content or the new, success is told for the new alone, and a failure leaves nothing beside.

#include <gtest/gtest.h>

#include <optional>

#include "Tool.h"
#include "session.h"
#include "tag_edit.h"
#include "tests/support/FaultyCalls.h"

using namespace qeltest;
using namespace qel::tool;

namespace {

const std::string old = old_head + tag("A", std::string(1000, 'a'), 1, 0) + tag("B", "bbb", 1, 0);

struct Change {
  const char* name;
  std::function<void(const std::string& file, const std::string& input)> make;
  std::string after;
};
std::ostream& operator<<(std::ostream& stream, const Change& change) {
  return stream << change.name;
}

const Change changes[] = {
    {"put", [](const auto& file, const auto& input) { PutRecord(file, "A", input, {}, {}); },
     old_head + tag("A", "new body", 1, 0) + tag("B", "bbb", 1, 0)},
    {"rm", [](const auto& file, const auto&) { RemoveRecords(file, {"A"}, {}); },
     old_head + tag("B", "bbb", 1, 0)},
    {"convert", [](const auto& file, const auto&) { ConvertFile(file, CurrentVersion(), {}, {}); },
     head + tag("A", tag("DATA", std::string(1000, 'a'), 1, 0)) +
         tag("B", tag("DATA", "bbb", 1, 0))},
};

class TagEditFault : public testing::TestWithParam<Change> {
 protected:
  void prepare() {
    m_tool.emplace();
    m_tool->write("a.abc", old);
    m_tool->write("input", "new body");
    m_told = {};
  }
  // True if the change claims to be done.
  bool change() {
    try {
      GetParam().make((m_tool->folder() / "a.abc").string(), (m_tool->folder() / "input").string());
      return true;
    } catch (const Trouble& trouble) {
      m_told = trouble.what();
      return false;
    }
  }
  std::optional<Tool> m_tool;
  std::string m_told;
};

TEST_P(TagEditFault, EveryFailureLeavesOldOrNew) {
  bool done = false;
  std::vector<Fault> faults = usualFaults();
  faults.push_back({.kind = Fault::fail_once, .error = EIO, .reading = true});
  faults.push_back({.kind = Fault::fail_for_good, .error = EIO, .reading = true});
  forEachFault([&] { prepare(); }, [&] { done = change(); },
               [&](const Fault& fault) {
                 const std::string bytes = m_tool->read("a.abc");
                 // Only a failed sync of the folder comes behind the renaming.
                 const bool renamed = m_told.find("replaced, but") == 0;
                 EXPECT_EQ(bytes, done || renamed ? GetParam().after : old) << m_told;
                 EXPECT_TRUE(done || !m_told.empty());
                 EXPECT_TRUE(fault.struck || done) << m_told;
                 // Nothing can be taken away while unlink fails for good.
                 if (fault.kind != Fault::fail_for_good) {
                   EXPECT_EQ(m_tool->files(), 2U) << m_told;
                 }
               },
               faults);
}

// A power cut keeps what was synced: the bytes before the name leads to them, then the name.
TEST_P(TagEditFault, SyncsTheBytesBeforeTheRenamingAndTheFolderAfterIt) {
  static std::string calls;
  prepare();
  qel::sys::SystemCalls& table = qel::sys::Calls();
  const qel::sys::SystemCalls kept = table;
  calls.clear();
  table.write = [](int fd, const void* bytes, size_t size) {
    calls += 'w';
    return ::write(fd, bytes, size);
  };
  table.pwrite = [](int fd, const void* bytes, size_t size, off_t at) {
    calls += 'w';
    return ::pwrite(fd, bytes, size, at);
  };
  table.fsync = [](int fd) {
    calls += 's';
    return ::fsync(fd);
  };
  table.rename = [](const char* from, const char* to) {
    calls += 'r';
    return ::rename(from, to);
  };
  EXPECT_TRUE(change());
  table = kept;
  EXPECT_EQ(calls.substr(calls.find_last_of('w') + 1), "srs") << calls;
}

TEST_P(TagEditFault, KilledAnywhereLeavesOldOrNew) {
  forEachKill([&] { prepare(); }, [&] { change(); },
              [&](const Fault&) {
                const std::string bytes = m_tool->read("a.abc");
                EXPECT_TRUE(bytes == old || bytes == GetParam().after);
                prepare();
                EXPECT_TRUE(change());
              });
}

INSTANTIATE_TEST_SUITE_P(Rows, TagEditFault, testing::ValuesIn(changes),
                         testing::PrintToStringParamName());

}  // namespace
