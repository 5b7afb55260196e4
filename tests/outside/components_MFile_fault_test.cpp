#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

#include "qelbase/outside/components/MFile.h"

#include "tests/support/FaultyCalls.h"
#include "tests/support/TempFolder.h"

namespace {

using qeltest::Fault;
using qeltest::FaultyCalls;
using qeltest::forEachFault;
using qeltest::readBytes;
using qeltest::TempFolder;
using qeltest::writeBytes;

const std::string body(50000, 'b');

// Small and large transfers, a patch inside the buffer, one outside, and a copy.
void writeAll(MFile& file, const std::wstring& name, const std::wstring& source_name) {
  MFile source;
  if (!file.OPEN_WRITE(name.c_str()) || !source.OPEN_READ(source_name.c_str())) return;
  file.WRITE("head", 4);
  file.WRITE(body.data(), 100);
  file.OVERWRITE(0, "HEAD", 4);
  file.WRITE(body.data(), body.size());
  file.COPY(source);
  file.OVERWRITE(1, "o", 1);
  file.WRITE("tail", 4);
  file.CLOSE();
}

class MFileFaults : public testing::TestWithParam<std::size_t> {};

// The result tells the truth: 0 and the file is whole, or an error.
TEST_P(MFileFaults, ClaimNoSuccessThatIsNotTrue) {
  TempFolder folder;
  writeBytes(folder / "source", std::string(40000, 's'));
  const std::string whole =
      "HoAD" + std::string(100, 'b') + body + std::string(40000, 's') + "tail";
  std::uint32_t result = 0;
  forEachFault([&] { writeBytes(folder / "f", "old"); },
               [&] {
                 MFile file(GetParam());
                 writeAll(file, folder.wide("f"), folder.wide("source"));
                 result = file.GET_RESULT();
               },
               [&](const Fault& fault) {
                 EXPECT_TRUE(result != 0 || readBytes(folder / "f") == whole);
                 const bool harmless = !fault.struck || fault.kind == Fault::cut_once ||
                                       fault.kind == Fault::cut_for_good || fault.error == EINTR;
                 EXPECT_TRUE(result == 0 || !harmless);
               });
}

INSTANTIATE_TEST_SUITE_P(Buffers, MFileFaults, testing::Values(0, 12, 4096, 262144));

TEST(MFileFault, TheOnlyWriteOfASmallFileFailsAtClose) {
  TempFolder folder;
  for (const int error : {ENOSPC, EIO}) {
    MFile file;
    ASSERT_TRUE(file.OPEN_WRITE(folder.wide("f").c_str()));
    EXPECT_EQ(file.WRITE("small", 5), 5U);
    const FaultyCalls faulty({.kind = Fault::fail_for_good, .error = error});
    file.CLOSE();
    EXPECT_EQ(file.GET_RESULT(), error == ENOSPC ? 112U : 1117U);
    EXPECT_FALSE(file.IS_OPEN());
  }
}

TEST(MFileFault, AFailedFlushKeepsTheBytesForTheNext) {
  TempFolder folder;
  MFile file;
  ASSERT_TRUE(file.OPEN_WRITE(folder.wide("f").c_str()));
  EXPECT_EQ(file.WRITE("small", 5), 5U);
  {
    const FaultyCalls faulty({.kind = Fault::fail_once, .error = ENOSPC});
    EXPECT_FALSE(file.FLUSH());
  }
  EXPECT_TRUE(file.FLUSH());
  EXPECT_EQ(readBytes(folder / "f"), "small");
  EXPECT_FALSE(file.SYNC()) << "a write had failed";
  EXPECT_EQ(file.GET_RESULT(), 112U);
}

TEST(MFileFault, ReadersGetAllOrAnError) {
  TempFolder folder;
  const std::string content = std::string(100000, 'x') + "end";
  writeBytes(folder / "f", content);
  std::string got;
  std::uint32_t result = 0;
  std::vector<Fault> faults = qeltest::usualFaults();
  for (Fault& fault : faults) fault.reading = true;
  forEachFault([] {},
               [&] {
                 MFile file(4096);
                 got.assign(content.size(), '\0');
                 std::size_t done = 0;
                 if (file.OPEN_READ(folder.wide("f").c_str())) {
                   for (const std::size_t n : {12, 2000, 50000, 60000}) {
                     done += file.READ(got.data() + done, std::min(n, content.size() - done));
                   }
                 }
                 got.resize(done);
                 result = file.GET_RESULT();
               },
               [&](const Fault&) { EXPECT_TRUE(got == content || result != 0) << got.size(); },
               faults);
}

TEST(MFileFault, AFullDeviceIsReported) {
  MFile file;
  ASSERT_TRUE(file.OPEN_UPDATE(L"C:\\dev\\full"));
  EXPECT_EQ(file.WRITE("small", 5), 5U);
  EXPECT_FALSE(file.FLUSH());
  EXPECT_EQ(file.WRITE(body.data(), body.size()), 0U);
  file.CLOSE();
  EXPECT_EQ(file.GET_RESULT(), 112U);
}

}  // namespace
