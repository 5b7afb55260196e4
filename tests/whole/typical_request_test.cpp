// An application saves a part while a progress bar runs: rooms in concert, as a user sees them.
#include <gtest/gtest.h>

#include <cmath>

#include "qelbase/outside/components/progress.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/progress/MStatusCallbackToMProgressImpl.h"
#include "qelbase/tagged/MFileTagged.h"

#include "tests/progress/progress_support.h"
#include "tests/support/TempFolder.h"

using namespace qeltest;
using QelSDK::Common::IncrementalProgressReporter;
using Tale = std::vector<Told>;

namespace {

constexpr std::size_t kRecords = 4;
constexpr const char* kNames[kRecords] = {"POINTS", "TRIANG", "COLORS", "MUID"};

std::string recordOf(char generation, std::size_t index) {
  return std::string(1000 * (index + 1), static_cast<char>(generation + index));
}

bool writeRecord(MFileTagged& file, const char* name, const std::string& body) {
  MTag tag(name);
  return file.WRITE_TAG_BEGIN(tag) && file.WRITE(body.data(), body.size()) == body.size() &&
         file.WRITE_TAG_END(tag);
}

// The records of the file, "NAME:" and the first byte of the body; "!" where the body is not whole.
std::string contentOf(const std::wstring& name) {
  MFileTagged file;
  if (!file.OPEN_READ(name.c_str())) return "no file";
  std::string content;
  for (MTag* tag = file.NEXT_TAG(nullptr, true); tag; tag = file.NEXT_TAG(tag, true)) {
    std::string body(static_cast<std::size_t>(tag->m_skip), '\0');
    const bool whole = file.READ(body.data(), body.size()) == body.size() &&
                       body.find_first_not_of(body.substr(0, 1)) == std::string::npos;
    if (std::string_view(tag->m_name) == "QELCOM") continue;
    content += std::string(tag->m_name) + ':' + (whole ? body.substr(0, 1) : "!") + ' ';
  }
  return content;
}

class TypicalRequest : public testing::Test {
 protected:
  TypicalRequest() {
    m_name.SET(m_folder.wide("part.qel").c_str(), false);
    MFileTagged file;
    EXPECT_TRUE(file.OPEN_WRITE(m_name.GET()));
    for (std::size_t i = 0; i < kRecords; ++i) {
      EXPECT_TRUE(writeRecord(file, kNames[i], recordOf('a', i)));
    }
    file.CLOSE();
  }

  // Rewrites all records but the last one; the user presses abort before step `abort_at`.
  // Gives how many records were written.
  std::size_t save(int abort_at) {
    int step = 0;
    const auto next = [&] {
      if (step++ == abort_at) MProgressManager::SetAbortFlag(true);
    };
    next();
    IncrementalProgressReporter reporter(300);
    next();
    MFileTagged file;
    EXPECT_TRUE(file.OPEN_WRITE(m_name.GET()));
    EXPECT_TRUE(std::filesystem::exists(m_folder / "part.bak"));
    std::size_t written = 0;
    for (; written < kRecords - 1; ++written) {
      next();
      if (reporter.IsAborted()) break;
      EXPECT_TRUE(writeRecord(file, kNames[written], recordOf('A', written)));
      for (int i = 0; i < 100; ++i) reporter.Increment();
    }
    next();
    reporter.SendNotification("QelSDK.Triangles.Data.MStlFileIO._SaveStl", {});
    next();
    file.CLOSE();
    EXPECT_EQ(file.GET_RESULT(), 0U);
    next();
    return written;
  }

  Tale expectedTale(std::size_t written) const {
    Tale tale{text(0, L""), begun(0)};
    const LPARAM reached = std::lround(static_cast<double>(written) * 100 / 3);
    for (LPARAM figure = 0; figure <= reached && written > 0; ++figure) {
      tale.push_back(percent(0, figure));
    }
    tale.push_back(text(0, L"Saving part"));
    tale.push_back(ended(0));
    return tale;
  }

  TempFolder m_folder;
  MFileName m_name;
};

TEST_F(TypicalRequest, TellsEachStepOnceAndKeepsWhatWasNotRewritten) {
  FrontEnd front_end(1);
  const MStatusCallbackToMProgressImpl bridge;
  EXPECT_EQ(save(-1), 3U);
  const Tale tale = front_end.take();
  EXPECT_EQ(tale.size(), 4U + 101U);  // one message for each whole percent, from 0 on
  EXPECT_EQ(tale, expectedTale(3));
  EXPECT_EQ(contentOf(m_name.GET()), "POINTS:A TRIANG:B COLORS:C MUID:d ");
  EXPECT_FALSE(std::filesystem::exists(m_folder / "part.bak"));
}

TEST_F(TypicalRequest, EndsAtTheNextCheckAfterTheAbortWhateverStepItFallsIn) {
  const std::size_t written_by_abort[] = {0, 0, 0, 1, 2, 3, 3, 3};
  for (int step = 0; step < 8; ++step) {
    FrontEnd front_end(1);
    const MStatusCallbackToMProgressImpl bridge;
    EXPECT_EQ(save(step), written_by_abort[step]) << step;
    EXPECT_EQ(front_end.take(), expectedTale(written_by_abort[step])) << step;
    EXPECT_TRUE(MProgressManager::GetAbortFlag());  // the front-end takes it back itself
  }
}

}  // namespace
