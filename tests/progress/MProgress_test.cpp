#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <thread>

#include "qelbase/text/resource_strings.h"

#include "tests/progress/progress_support.h"

using namespace qeltest;
using Tale = std::vector<Told>;
using Figures = std::vector<LPARAM>;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A scope that shows what it does without a window.
struct Watched : MProgress {
  using MProgress::MProgress;
  ~Watched() override { End(); }
  void _OnActualUpdate(long figure) override { updates.push_back(figure); }
  Figures updates;
};

}  // namespace

TEST(MProgress, TellsBeginPercentTextAndEndInOrder) {
  FrontEnd front_end;
  {
    MProgress outer;
    outer.SetText(L"100% of %s");
    outer.SetCurrentPosition(0.4);
    outer.SetCurrentPosition(1);
    MProgress inner(0, 4);
    inner.SetText(L"inner");
    inner.Increment();
  }
  EXPECT_EQ(front_end.take(), (Tale{text(0, L""), begun(0), text(0, L"100% of %s"), percent(0, 0),
                                    percent(0, 1), text(1, L""), begun(1), text(1, L"inner"),
                                    percent(1, 25), ended(1), text(0, L"100% of %s"), ended(0)}));
}

TEST(MProgress, ABeginTellsTheTextOfItsOwnScope) {
  MProgress first(0, 1, false);
  MProgress second(0, 1, false);
  first.SetText(L"first");
  second.SetText(L"second");
  FrontEnd front_end;
  first.Begin(0, 1);
  second.Begin(0, 1);
  EXPECT_EQ(front_end.take(), (Tale{text(0, L"first"), begun(0), text(1, L"second"), begun(1)}));
}

struct PositionRow {
  const char* name;
  double lower;
  double upper;
  double position;
  Figures figures;
};
void PrintTo(const PositionRow& row, std::ostream* out) {
  *out << row.name;
}
class Positions : public testing::TestWithParam<PositionRow> {};

TEST_P(Positions, ShowTheirPercentage) {
  const PositionRow& row = GetParam();
  FrontEnd front_end;
  MProgress scope(row.lower, row.upper);
  front_end.take();
  scope.SetCurrentPosition(row.position);
  EXPECT_EQ(front_end.takePercents(), row.figures);
}

INSTANTIATE_TEST_SUITE_P(MProgress, Positions,
                         testing::Values(PositionRow{"FromZeroNotFromLower", 10, 20, 5, {50}},
                                         PositionRow{"BoundsChangePlaces", 20, 10, 5, {50}},
                                         PositionRow{"EmptyRangeIsOne", 5, 5, 0.5, {50}},
                                         PositionRow{"RoundsUp", 0, 100, 99.5, {100}},
                                         PositionRow{"Zero", 0, 100, 0, {0}},
                                         PositionRow{"MinusHalfIsZero", 0, 100, -1.4, {0}},
                                         PositionRow{"BelowZero", 0, 100, -2, {}},
                                         PositionRow{"AboveHundred", 0, 100, 250, {250}},
                                         PositionRow{"Most", 0, 100, 2147483646.5, {2147483647}},
                                         PositionRow{"TooMuch", 0, 100, 2147483647.5, {}},
                                         PositionRow{"Huge", 0, 100, 1e300, {}},
                                         PositionRow{"HugeBelow", 0, 100, -1e300, {}},
                                         PositionRow{"Infinite", 0, 100, kInfinity, {}},
                                         PositionRow{"NoNumber", 0, 100, kNaN, {}},
                                         PositionRow{"NoNumberAsBound", kNaN, 100, 50, {}},
                                         PositionRow{"InfiniteRange", 0, kInfinity, 50, {0}}),
                         [](const auto& row) { return row.param.name; });

TEST(MProgress, IncrementTellsOnlyWhatIsAboveZeroAndForgetsTheWeight) {
  FrontEnd front_end;
  MProgress scope;
  scope.Increment(0.0);
  EXPECT_EQ(front_end.takePercents(), Figures{});
  scope.SetCurrentPosition(10);
  scope.SetNextPosition(40);
  scope.Increment();
  scope.Increment();
  scope.SetNextIncrement(7);
  scope.Increment(3);
  scope.Increment();
  scope.SetChildWeight(5);
  scope.Increment();
  EXPECT_EQ(front_end.takePercents(), (Figures{10, 40, 41, 44, 45, 50}));
}

TEST(MProgress, TheFigureNeverFallsNorRepeats) {
  FrontEnd front_end;
  MProgress scope;
  for (double position : {10.0, 5.0, 10.4, 10.6, 2.0, 12.0}) scope.SetCurrentPosition(position);
  EXPECT_EQ(front_end.takePercents(), (Figures{10, 11, 12}));
  scope.End();
  scope.Begin(0, 100);
  scope.SetCurrentPosition(12);
  EXPECT_EQ(front_end.takePercents(), Figures{});
  scope.SetCurrentPosition(13);
  EXPECT_EQ(front_end.takePercents(), Figures{13});
}

TEST(MProgress, AChildMovesAParentThatAdjustsByItsShare) {
  FrontEnd front_end(2);
  MProgress outer;
  outer.SetCurrentPosition(50);
  outer.SetChildWeight(25);
  {
    MProgress middle;
    MProgress inner;  // a level without a window
    middle.SetChildWeight(100);
    front_end.take();
    inner.SetCurrentPosition(10);
    EXPECT_EQ(front_end.take(), Tale{});
    outer.SetAdjustByLowerLevels(true);
    middle.SetAdjustByLowerLevels(true);
    inner.SetCurrentPosition(40);
    EXPECT_EQ(front_end.take(), (Tale{percent(1, 40), percent(0, 60)}));
    inner.SetCurrentPosition(99.6);
    EXPECT_EQ(front_end.take(), (Tale{percent(1, 100), percent(0, 75)}));
  }
  front_end.take();
  outer.Increment();
  outer.Increment();
  EXPECT_EQ(front_end.takePercents(), (Figures{76}));
}

TEST(MProgress, AParentsShareIsCutNotRounded) {
  FrontEnd front_end;
  MProgress outer;
  outer.SetAdjustByLowerLevels(true);
  outer.SetChildWeight(99.9);
  MProgress inner;
  inner.SetCurrentPosition(100);
  EXPECT_EQ(front_end.takePercents(), (Figures{100, 99}));
}

TEST(MProgress, BeginOfABegunScopeChangesNothing) {
  FrontEnd front_end;
  MProgress scope(0, 10);
  front_end.take();
  scope.Begin(0, 1000);
  EXPECT_EQ(MProgressManager::Begin(&scope), 0u);
  scope.SetCurrentPosition(5);
  scope.End();
  scope.End();
  MProgress next;
  EXPECT_EQ(front_end.take(), (Tale{percent(0, 50), ended(0), text(0, L""), begun(0)}));
}

TEST(MProgress, LevelsStayAsTheyWereGiven) {
  FrontEnd front_end;
  MProgress first;
  MProgress second;
  first.End();
  MProgress third;
  front_end.take();
  second.SetCurrentPosition(20);
  third.SetCurrentPosition(30);
  EXPECT_EQ(front_end.take(), (Tale{percent(1, 20), percent(1, 30)}));
}

TEST(MProgress, AScopeThatHasNotBegunTellsNobodyButItself) {
  FrontEnd front_end;
  Watched scope(0, 100, false);
  scope.Increment(50);
  scope.SetText(nullptr);
  EXPECT_EQ(scope.updates, Figures{});
  scope.SetCurrentPosition(0.2);
  EXPECT_EQ(scope.updates, Figures{0});
  scope.Begin(0, 100);
  scope.SetCurrentPosition(0);
  scope.SetCurrentPosition(60);
  EXPECT_EQ(scope.updates, (Figures{0, 60}));
  EXPECT_EQ(front_end.takePercents(), Figures{60});
}

TEST(MProgress, ASinkHearsEachStepBeforeItAndEachText) {
  struct Sink final : IProgressSink {
    void Notify() override {
      positions.push_back(scope->updates.size());
      if (positions.size() == 2) scope->SetChildWeight(30);
    }
    Watched* scope = nullptr;
    std::vector<std::size_t> positions;
  } sink;
  Watched scope;
  sink.scope = &scope;
  MProgressManager::SetSink(&sink);
  scope.Increment();
  scope.Increment();
  scope.SetCurrentPosition(50);
  scope.SetText(L"x");
  MProgressManager::SetSink(nullptr);
  scope.Increment();
  EXPECT_EQ(sink.positions, (std::vector<std::size_t>{0, 1, 3}));
  EXPECT_EQ(scope.updates, (Figures{1, 31, 50, 51}));
}

TEST(MProgress, TextsByNumberComeFromTheInstalledWrapper) {
  struct Wrapper final : IResStringWrapper {
    bool LoadStringEx(std::wstring& text, unsigned id) override {
      text = std::to_wstring(id) + L"%";
      return true;
    }
    std::int32_t LoadCharEx(wchar_t*, unsigned, unsigned) override { return 0; }
  } wrapper;
  MProgress scope;
  SetMResStringWrapper(&wrapper);
  EXPECT_TRUE(scope.SetText(42u));
  EXPECT_EQ(scope.GetText(), L"42%");
  SetMResStringWrapper(nullptr);
  EXPECT_TRUE(scope.SetText(42u));
  EXPECT_EQ(scope.GetText(), L"");
}

TEST(MProgressManager, TheAbortButtonAndFlagAreTheFrontEnds) {
  MProgressManager::EnableAbortButton(true);  // nobody there
  FrontEnd front_end(2);
  MProgressManager::EnableAbortButton(true);
  MProgress::EnableAbortButton(false);
  EXPECT_EQ(front_end.take(), (Tale{{2028, 0, 1}, {2028, 0, 0}}));
  {
    MProgress scope;
    MProgress::SetAbortFlag(true);
    scope.Increment();
  }
  EXPECT_TRUE(MProgressManager::GetAbortFlag());
  MProgress::ResetAbortFlag();
  EXPECT_FALSE(MProgress::GetAbortFlag());
}

TEST(MProgressManager, IncrementLastMovesTheInnermostScope) {
  MProgress::IncrementLast(5);
  FrontEnd front_end;
  MProgress outer;
  MProgress inner;
  front_end.take();
  MProgressManager::IncrementLast(5);
  EXPECT_EQ(front_end.take(), (Tale{percent(1, 5)}));
}

TEST(MProgressManager, ThePointerListIsTheCallersOwn) {
  MProgress scope;
  auto pointers = MProgress::GetProgressPointers();
  EXPECT_EQ(pointers.size(), 0u);
  pointers.pop_back();
  EXPECT_EQ(pointers.back(), nullptr);
  MProgressManager::push_back(&scope);
  EXPECT_EQ(pointers.back(), &scope);
  EXPECT_EQ(pointers.size(), 1u);
  MProgressManager::pop_back();
  EXPECT_EQ(MProgressManager::back(), nullptr);
}

TEST(MProgressManager, NullScopesAreNoScopes) {
  EXPECT_EQ(MProgressManager::Begin(nullptr), MProgressManager::kNoLevel);
  EXPECT_EQ(MProgressManager::End(nullptr), MProgressManager::kNoLevel);
  MProgressManager::SetText(nullptr);
  MProgressManager::SendMessageUpdate(5, nullptr);
}

TEST(MProgressManager, OtherThreadsWindowsGetPostedMessagesOnlyWhenAllowed) {
  FrontEnd front_end;
  const auto work = [] {
    MProgress scope;
    scope.SetText(L"text of a scope that is gone when it is read");
    scope.SetCurrentPosition(50);
  };
  std::thread(work).join();
  EXPECT_EQ(front_end.pump(), Tale{});
  MProgress::SetProcessOnlyCurrentThreadWindows(false);
  std::thread(work).join();
  EXPECT_EQ(front_end.take(), Tale{});
  EXPECT_EQ(front_end.pump(),
            (Tale{text(0, L""), begun(0), text(0, L"text of a scope that is gone when it is read"),
                  percent(0, 50), ended(0)}));
}

TEST(MProgressManager, AWindowProcedureMayComeBackToTheScopeThatCallsIt) {
  MProgress* scope = nullptr;
  std::vector<LPARAM> figures;
  const HWND window =
      qel::sys::CreateMessageWindow([&](HWND, UINT message, WPARAM, LPARAM value) -> LRESULT {
        if (message == 2025) figures.push_back(value);
        if (message == 2025 && value == 10) scope->SetText(L"back again");
        if (message == 2025 && value == 10) scope->SetCurrentPosition(20);
        return 0;
      });
  MProgressManager::AttachUITarget(window);
  {
    MProgress own;
    scope = &own;
    own.SetCurrentPosition(10);
    EXPECT_EQ(own.GetText(), L"back again");
  }
  MProgressManager::ResetUITargets();
  qel::sys::DestroyWindow(window);
  EXPECT_EQ(figures, (Figures{10, 20}));
}

TEST(MProgressManager, AWindowProcedureMayDestroyTheScopeAboveTheOneThatEnds) {
  for (const UINT when : {MProgressMessage::kEnd, MProgressMessage::kText}) {
    std::unique_ptr<MProgress> outer;
    const HWND window =
        qel::sys::CreateMessageWindow([&](HWND, UINT message, WPARAM, LPARAM) -> LRESULT {
          if (message == when) std::exchange(outer, nullptr).reset();
          return 0;
        });
    outer = std::make_unique<MProgress>();
    MProgress inner;
    MProgressManager::AttachUITarget(window);
    MProgressManager::AttachUITarget(window);
    inner.End();
    MProgressManager::ResetUITargets();
    qel::sys::DestroyWindow(window);
    EXPECT_EQ(outer, nullptr);
  }
}
