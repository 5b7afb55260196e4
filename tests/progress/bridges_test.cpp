#include <gtest/gtest.h>

#include <boost/any.hpp>
#include <condition_variable>
#include <cstdarg>
#include <memory>
#include <mutex>
#include <thread>

#include "qelbase/outside/components/formatting.h"
#include "qelbase/outside/components/logging.h"
#include "qelbase/outside/system/clock.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/progress/MProgressTimer.h"
#include "qelbase/progress/MStatusCallbackToMProgressImpl.h"
#include "qelbase/progress/ProgressLocalizer.h"
#include "qelbase/progress/ProgressToStatusCallback.h"

#include "tests/progress/progress_support.h"

using namespace qeltest;
using QelBase::ProgressLocalizer;
using QelSDK::Common::IncrementalProgressReporter;
using Status = IStatusCallback;
using Tale = std::vector<Told>;

namespace {

const HWND kWindow = reinterpret_cast<HWND>(0x1234);

// Hears what the bridge ignores, with the arguments put into the format.
class Listener : public MStatusCallbackToMProgressImpl {
 public:
  using MStatusCallbackToMProgressImpl::MStatusCallbackToMProgressImpl;
  using MStatusCallbackToMProgressImpl::StatusBegin;
  using MStatusCallbackToMProgressImpl::StatusError;
  void StatusBegin(double, double, const wchar_t*, va_list) override {}
  void StatusEnd() override { heard.push_back(L"end"); }
  void StatusError(const wchar_t* text, va_list args) override {
    heard.push_back(QelStdBase::FormatStringV(text, args));
  }
  void StatusBeginQelResString(double from, double to, unsigned id, va_list args) override {
    heard.push_back(std::to_wstring(static_cast<int>(from + to)) + L" " + std::to_wstring(id) +
                    L" " + QelStdBase::FormatStringV(L"%d", args));
  }
  bool StatusText(short level, const wchar_t* text, va_list args) override {
    heard.push_back(std::to_wstring(level) + QelStdBase::FormatStringV(text, args));
    return false;
  }
  HWND StatusParent(HWND parent) override { return parent; }
  std::vector<std::wstring> heard;
};

}  // namespace

TEST(IStatusCallback, WithoutAReceiverReportsAreAcceptedAndNothingIsAborted) {
  ASSERT_FALSE(Status::HasInstance());
  MProgressManager::SetAbortFlag(true);
  EXPECT_TRUE(Status::STATUS_INC(1) && Status::STATUS_COUNT(1) && Status::STATUS_TEXT(0, L"x"));
  EXPECT_TRUE(Status::STATUS_TEXT_INFO(L"") && Status::STATUS_TEXT_WARNING(L"") &&
              Status::STATUS_TEXT_ERROR(L""));
  EXPECT_FALSE(Status::STATUS_GET_ABORT());
  EXPECT_EQ(Status::STATUS_PARENT(kWindow), nullptr);
  Status::STATUS_BEGIN(0, 1, L"x");
  MProgressManager::ResetAbortFlag();
}

TEST(IStatusCallback, ForwardsArgumentsAndResults) {
  Listener listener;
  Status::STATUS_ERROR(L"%d of %s", 3, L"three");
  Status::STATUS_BEGIN_QEL_RES_STRING(1, 2, 77u, 5);
  EXPECT_FALSE(Status::STATUS_TEXT(-4, L" %d", 9));
  EXPECT_EQ(Status::STATUS_PARENT(kWindow), kWindow);
  EXPECT_EQ(listener.heard, (std::vector<std::wstring>{L"3 of three", L"3 77 5", L"-4 9"}));
}

TEST(IStatusCallback, ASessionEndsAtTheReceiverOfThatMoment) {
  auto session = std::make_unique<Status::Session>(0, 1, L"x");
  Listener listener;
  session.reset();
  EXPECT_EQ(listener.heard, (std::vector<std::wstring>{L"end"}));
  session = std::make_unique<Status::Session>(0, 1, L"100%%");
  listener.StopListen();
  session.reset();
  EXPECT_EQ(listener.heard.size(), 1u);
}

TEST(StatusBridge, OpensMovesAndClosesScopes) {
  FrontEnd front_end;
  const MStatusCallbackToMProgressImpl bridge;
  EXPECT_FALSE(Status::STATUS_INC(1));
  Status::STATUS_END();
  Status::STATUS_BEGIN(0, 200, L"%d%% of %s", 5, L"all");
  EXPECT_TRUE(Status::STATUS_COUNT(50));
  EXPECT_TRUE(Status::STATUS_INC(2));
  EXPECT_TRUE(Status::STATUS_TEXT(0, L"kept as it comes: %s"));
  Status::STATUS_BEGIN(0, 1, static_cast<const wchar_t*>(nullptr));
  EXPECT_FALSE(Status::STATUS_TEXT(0, L"lost"));
  Status::STATUS_END();
  Status::STATUS_END();
  EXPECT_EQ(front_end.take(), (Tale{text(0, L"5% of all"), begun(0), percent(0, 25), percent(0, 26),
                                    text(0, L"kept as it comes: %s"), text(1, L""), begun(1),
                                    ended(1), text(0, L"kept as it comes: %s"), ended(0)}));
}

TEST(StatusBridge, EachThreadMovesItsOwnScope) {
  FrontEnd front_end;
  MProgress::SetProcessOnlyCurrentThreadWindows(false);
  MStatusCallbackToMProgressImpl bridge;
  Status::STATUS_BEGIN(0, 100, L"");
  std::thread([] {
    EXPECT_FALSE(Status::STATUS_INC(1));
    Status::STATUS_BEGIN(0, 100, L"");
    Status::STATUS_INC(70);
    Status::STATUS_END();
  }).join();
  Status::STATUS_INC(30);
  const auto own = front_end.takePercents();
  EXPECT_EQ(own, std::vector<LPARAM>{30});
  front_end.pump();
  Status::STATUS_END();
}

TEST(StatusBridge, OnlyTheRegisteredBridgeIsAsked) {
  FrontEnd front_end;
  MStatusCallbackToMProgressImpl idle(false);
  EXPECT_FALSE(Status::HasInstance());
  va_list none{};
  idle.StatusBegin(0, 1, 0u, none);
  EXPECT_FALSE(idle.StatusInc(1));
  EXPECT_EQ(front_end.take(), Tale{});
  idle.StartListen();
  Status::STATUS_BEGIN(0, 1, 0u);
  EXPECT_TRUE(Status::STATUS_INC(1));
  EXPECT_FALSE(Status::STATUS_TEXT_ERROR(L"x"));
  Status::STATUS_END();
  EXPECT_EQ(front_end.take(), (Tale{text(0, L""), begun(0), percent(0, 100), ended(0)}));
  { const MStatusCallbackToMProgressImpl other(false); }
  EXPECT_FALSE(Status::HasInstance());
}

TEST(DelegateBridge, AReporterMovesTheWindowAndHearsOfTheAbort) {
  FrontEnd front_end;
  const MStatusCallbackToMProgressImpl bridge;
  {
    IncrementalProgressReporter reporter(200);
    SetProgressText(reporter, L"QelSDK.Triangles.Data.MStlFileIO._SaveStl");
    reporter.SetCurrent(50);
    IncrementalProgressReporter hidden(10, reporter.GetChildDelegate());
    hidden.Increment(5);
    EXPECT_FALSE(reporter.IsAborted() || hidden.IsAborted());
    MProgressManager::SetAbortFlag(true);
    EXPECT_TRUE(reporter.IsAborted());
    EXPECT_FALSE(hidden.IsAborted());
    SetProgressText(reporter, L"Größe: 100%");
    SetProgressText(reporter, L"");
    reporter.Increment(~0ull);
  }
  EXPECT_EQ(front_end.take(),
            (Tale{text(0, L""), begun(0), text(0, L"Saving part"), percent(0, 25),
                  text(0, L"Größe: 100%"), text(0, L""), percent(0, 100), ended(0)}));
}

TEST(DelegateBridge, ATotalOfZeroStaysAtZero) {
  FrontEnd front_end;
  const MStatusCallbackToMProgressImpl bridge;
  IncrementalProgressReporter reporter(0);
  reporter.Increment(7);
  EXPECT_EQ(front_end.takePercents(), std::vector<LPARAM>{0});
}

TEST(DelegateBridge, ADelegateDoesNotTravelWithACopy) {
  struct Reporting : IProgressAble {
    using IProgressAble::m_delegate;
  };
  Reporting a;
  Reporting b;
  a.SetProgressDelegate(QelSDK::Common::ProgressDelegateProvider::GetStubDelegate());
  const Reporting copy(a);
  EXPECT_EQ(copy.m_delegate, nullptr);
  b = a;
  EXPECT_EQ(b.m_delegate, nullptr);
  a = b;
  EXPECT_NE(a.m_delegate, nullptr);
}

struct KeyRow {
  const char* key;
  const wchar_t* text;
};
class Keys : public testing::TestWithParam<KeyRow> {};

TEST_P(Keys, GiveTheirTexts) {
  EXPECT_EQ(ProgressLocalizer::Localize(GetParam().key), GetParam().text);
}

#define DATA "QelSDK.Triangles.Data."
#define FIELD "QelSDK.Triangles.Tooling.M2dField."
INSTANTIATE_TEST_SUITE_P(
    ProgressLocalizer, Keys,
    testing::Values(
        KeyRow{"", L""}, KeyRow{DATA "MStlBase.LoadCompressed", L""},
        KeyRow{DATA "MStlBase.LoadCompressed.1", L"Reading"},
        KeyRow{DATA "MStlBase.LoadCompressed.2", L"Uncompressing"},
        KeyRow{DATA "MStlBase.LoadCompressed.3",
               L"QelSDK.Triangles.Data.MStlBase.LoadCompressed.3"},
        KeyRow{DATA "MStlBaseFileUtilities.ReadAsciiAndRemoveIndenticalTriangles",
               L"Loading ASCII"},
        KeyRow{DATA "MStlBaseFileUtilities.ReadAsciiAndRemoveIndenticalTriangles.2", L""},
        KeyRow{DATA "MContourEdgesOverlapper.MContourEdgesOverlapper", L"Preparing data"},
        KeyRow{FIELD "EliminatePointsOnEdgeOfTriangles", L"Retriangulating"},
        KeyRow{FIELD "EliminatePointsOnEdgesOfTriangles", L"Preparing data mode 1"},
        KeyRow{FIELD "CalculatePartingPlanes.5", L"Calculating parting lines (upper, undercuts)"},
        KeyRow{"QelStlCutting.MStlBaseOperatorPlaneCut.Operate", L"Cut with plane"},
        KeyRow{"QelStlCutting.PinAttachFunctions.AttachHoles", L""},
        KeyRow{"qelStlCutting.PinAttachFunctions.AttachHoles",
               L"qelStlCutting.PinAttachFunctions.AttachHoles"},
        KeyRow{"QelStlCutting.MCutter.MAKE_CUT ", L"QelStlCutting.MCutter.MAKE_CUT "},
        KeyRow{"Gr\xC3\xB6\xC3\x9F"
               "e",
               L"Größe"}));

TEST(MProgressTimer, TellsIntervalsInWallClockSecondsSinceConstruction) {
  namespace Logging = QelSDK::Common::Logging;
  std::vector<std::wstring> lines;
  qel::sys::ClockOverride clock;
  clock.setClock(1000);
  Logging::GetLoggerConfiguration().AddHandler(
      0, [&](const Logging::LogInfo& info) { lines.emplace_back(info.text); }, true);
  MProgressTimer timer(false);
  clock.advance(500);
  timer.StepComplete(L"unseen");
  timer.Enable();
  timer.StepComplete(L"100%");
  clock.advance(1000);
  timer.StepStarted(L"b");
  clock.advance(250);
  timer.StepComplete(L"b");
  timer.Complete(L"all");
  Logging::GetLoggerConfiguration().RemoveHandlers();
  EXPECT_EQ(lines,
            (std::vector<std::wstring>{L"Done 100% in 0.500000 s.", L"Started b, t = 1.500000.",
                                       L"Done b in 1.250000 s.", L"Done all in 1.750000 s."}));
}
