// Every changing system call of a save and of a conversion fails, is cut short, or is the last.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/FaultyCalls.h"
#include "tests/tagged/tagged_bytes.h"

using qeltest::Fault;
using qeltest::headTag;
using qeltest::readBytes;
using qeltest::record;

namespace {

const std::string large(200000, 'l');
const std::string old_file = headTag(1, 9) + record("A", 1, 0, "small") + record("B", 1, 0, large) +
                             record("C", 1, 0, "last");
const std::string saved_file = headTag() + record("A", 1, 0, "other") + record("NEW", 2, 1, large) +
                               record("B", 1, 0, large) + record("C", 1, 0, "last");
const std::string converted_file = headTag() + record("A", 2, 1, record("DATA", 1, 0, "small")) +
                                   record("B", 2, 1, record("DATA", 1, 0, large)) +
                                   record("C", 2, 1, record("DATA", 1, 0, "last"));

// Of calls that only read, too.
std::vector<Fault> allFaults() {
  std::vector<Fault> faults = qeltest::usualFaults();
  for (Fault& fault : faults) fault.reading = true;
  return faults;
}

class Strained : public testing::Test {
 protected:
  qeltest::TaggedFolder at;
  qeltest::PassingFolder temporary;
  const qeltest::TempFolder* const folders[2] = {&at.folder, &temporary};
  bool sound = false;

  void prepare() {
    for (const qeltest::TempFolder* folder : folders) {
      for (const auto& entry : std::filesystem::directory_iterator(folder->path())) {
        std::filesystem::remove_all(entry);
      }
    }
    at.put(old_file);
    sound = false;
  }

  void save() {
    MFileTagged file;
    if (!file.OPEN_WRITE(at.name.c_str())) return;
    qeltest::writeTag(file, MTag("A", 1, 0), "other");
    qeltest::writeTag(file, MTag("NEW"), large);
    file.CLOSE();
    sound = file.GET_RESULT() == 0;
  }

  void convert() {
    MTagList list;
    sound = list.CONVERT(MFileName(at.name.c_str(), false), 0, 0);
  }

  // How many files hold exactly these bytes.
  int holders(const std::string& bytes) const {
    int count = 0;
    for (const qeltest::TempFolder* folder : folders) {
      for (const auto& entry : std::filesystem::directory_iterator(folder->path())) {
        count += entry.is_regular_file() && readBytes(entry.path()) == bytes;
      }
    }
    return count;
  }
  bool isUnderItsName(const std::string& bytes) const {
    return std::filesystem::exists(at.file) && at.bytes() == bytes;
  }

  // Nothing is lost, and success is not claimed in vain.
  void expectWhole(const std::string& new_file) {
    EXPECT_TRUE(holders(old_file) > 0 || isUnderItsName(new_file));
    if (sound) {
      EXPECT_TRUE(isUnderItsName(new_file));
    }
  }

  // What didn't reach the disk isn't told as saved.
  void expectFailureOfSync(const Fault& fault) const {
    if (fault.struck && fault.call == "fsync" && fault.error == EIO) {
      EXPECT_FALSE(sound);
    }
  }

  // And the next save works, with no byte lost to it.
  void expectSavesAgain() {
    const bool was_old = holders(old_file) > 0;
    save();
    EXPECT_TRUE(sound);
    EXPECT_TRUE(!was_old || holders(old_file) > 0 || isUnderItsName(saved_file));
  }
};

}  // namespace

TEST_F(Strained, SavesOrTellsThatItDidNot) {
  qeltest::forEachFault([&] { prepare(); }, [&] { save(); },
                        [&](const Fault& fault) {
                          expectWhole(saved_file);
                          expectFailureOfSync(fault);
                          if (!fault.struck) {
                            EXPECT_TRUE(sound && at.files().size() == 1);
                          }
                          expectSavesAgain();
                        },
                        allFaults());
}

TEST_F(Strained, SavesNewFilesOrTellsThatItDidNot) {
  // The whole file fits into the buffer: its only write fails in CLOSE.
  const std::string small_file = headTag() + record("NEW", 2, 1, "tiny");
  qeltest::forEachFault(
      [&] {
        prepare();
        std::filesystem::remove(at.file);
      },
      [&] {
        MFileTagged file;
        if (!file.OPEN_WRITE(at.name.c_str())) return;
        qeltest::writeTag(file, MTag("NEW"), "tiny");
        file.CLOSE();
        sound = file.GET_RESULT() == 0;
      },
      [&](const Fault& fault) {
        EXPECT_TRUE(sound || fault.struck);
        if (sound) {
          EXPECT_EQ(at.bytes(), small_file);
        }
      });
}

TEST_F(Strained, ConvertsOrTellsThatItDidNot) {
  qeltest::forEachFault([&] { prepare(); }, [&] { convert(); },
                        [&](const Fault& fault) {
                          expectWhole(converted_file);
                          expectFailureOfSync(fault);
                          if (!fault.struck) {
                            EXPECT_TRUE(sound && holders(old_file) == 0);
                          }
                        },
                        allFaults());
}

TEST_F(Strained, KeepsTheOldContentWhenTheWriterDies) {
  qeltest::forEachKill([&] { prepare(); }, [&] { save(); },
                       [&](const Fault&) {
                         expectWhole(saved_file);
                         expectSavesAgain();
                       });
}

TEST_F(Strained, KeepsTheOldContentWhenTheConverterDies) {
  qeltest::forEachKill([&] { prepare(); }, [&] { convert(); },
                       [&](const Fault&) { expectWhole(converted_file); });
}

TEST_F(Strained, LosesNothingToConversionsAtTheSameTime) {
  for (int round = 0; round < 20; ++round) {
    prepare();
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    std::vector<pid_t> children;
    for (int i = 0; i < 3; ++i) {
      children.push_back(fork());
      if (children.back() != 0) continue;
      close(gate[1]);
      char go;
      (void)!read(gate[0], &go, 1);  // until the parent lets go
      convert();
      _exit(sound ? 0 : 1);
    }
    close(gate[0]);
    close(gate[1]);
    for (const pid_t child : children) waitpid(child, nullptr, 0);
    EXPECT_TRUE(isUnderItsName(converted_file));
    EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
  }
}
