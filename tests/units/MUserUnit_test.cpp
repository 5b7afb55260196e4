#include "qelbase/units/MUserUnit.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <vector>

#include "qelbase/outside/components/MInternalUnits.h"
#include "qelbase/outside/components/MUnit.h"
#include "qelbase/text/resource_strings.h"

namespace {

struct Texts final : IResStringWrapper {
  std::map<unsigned, std::wstring> texts{
      {672, L"mm"}, {673, L"millimetre"}, {674, L"in"}, {675, L"inch"}};

  Texts() { SetMResStringWrapper(this); }
  ~Texts() { SetMResStringWrapper(nullptr); }
  bool LoadStringEx(std::wstring& text, unsigned id) override {
    text = texts[id];
    return !text.empty();
  }
  std::int32_t LoadCharEx(wchar_t*, unsigned, unsigned) override { return 0; }
};

struct Listener : IUserUnitDependent {
  std::function<void()> action = [] {};
  int calls = 0;
  void OnUserUnitChanged() override {
    ++calls;
    action();
  }
};

class SharedUserUnit : public testing::Test {
 protected:
  MUserUnit& unit = MUserUnit::GetInstance();
  void TearDown() override { unit.SetUnit(MUserUnit::UNIT_MILLIMETRE); }
  void change() {
    unit.SetUnit(unit.GetUnit() == MUserUnit::UNIT_INCH ? MUserUnit::UNIT_MILLIMETRE
                                                        : MUserUnit::UNIT_INCH);
  }
};

// In inches. The wanted bits were worked out apart, step by step; any other order of the steps, or
// a reciprocal in place of a division, gives others.
TEST(MUserUnit, ConvertsInTheStatedSteps) {
  const struct {
    double (MUserUnit::*convert)(double) const;
    double from;
    double to;
  } rows[] = {
      {&MUserUnit::ConvertFromMmToUI, 37.9375, 0x1.7e5cb972e5cbap+0},
      {&MUserUnit::ConvertFromUIToMm, 34.875, 0x1.bae9999999999p+9},
      {&MUserUnit::ConvertFromMmSquareToUI, 8.375, 0x1.a95ed5dc18f38p-7},
      {&MUserUnit::ConvertFromUIToMmSquare, 58.625, 0x1.277d028f5c28ep+15},
      {&MUserUnit::ConvertFromMmCubedToUI, 38.6875, 0x1.35712f7a2cceap-9},
      {&MUserUnit::ConvertFromUIToMmCubed, 30.375, 0x1.e617446a7ef9cp+18},
      {&MUserUnit::ConvertFromStlUnitsSquareToUI, 37.1875, 0x1.3ce22150f54a6p-31},
      {&MUserUnit::ConvertFromUIToStlUnitsSquare, 4.25, 0x1.feb9693200000p+37},
      {&MUserUnit::ConvertFromStlUnitsCubedToUI, 38.8125, 0x1.5555a38d854e4p-49},
      {&MUserUnit::ConvertFromUIToStlUnitsCubed, 0.875, 0x1.9787a29c6bcffp+53},
  };
  const MUserUnit inches(MUserUnit::UNIT_INCH);
  for (const auto& row : rows) {
    EXPECT_EQ((inches.*row.convert)(row.from), row.to) << "row " << &row - rows;
  }
  EXPECT_EQ(inches.ConvertFromStlUnitsToUI(254000), 1.0);
  EXPECT_EQ(inches.ConvertFromUIToStlUnits(1.0), 254000);
}

TEST(MUserUnit, BringsEveryStlLengthBack) {
  const MUserUnit units[] = {MUserUnit(MUserUnit::UNIT_MILLIMETRE),
                             MUserUnit(MUserUnit::UNIT_INCH)};
  EXPECT_TRUE(rc::check([&] {
    const auto stl = *rc::gen::oneOf(
        rc::gen::arbitrary<std::int32_t>(),
        rc::gen::element<std::int32_t>(INT32_MIN, INT32_MIN + 1, INT32_MAX - 1, INT32_MAX));
    for (const MUserUnit& unit : units) {
      RC_ASSERT(unit.ConvertFromUIToStlUnits(unit.ConvertFromStlUnitsToUI(stl)) == stl);
    }
  }));
}

TEST(MUnit, RoundsAndSaturatesStlUnits) {
  const struct {
    double mm;
    std::int32_t stl;
  } rows[] = {{1.0, 10000},
              {0.00005, 1},
              {-0.00005, -1},
              {0.000049, 0},
              {214748.3647, INT32_MAX},
              {214748.3648, INT32_MAX},
              {1e300, INT32_MAX},
              {-214748.3649, INT32_MIN},
              {-std::numeric_limits<double>::infinity(), INT32_MIN},
              {std::nan(""), 0}};
  for (const auto& row : rows) EXPECT_EQ(MUnit::ConvertFromMmToStlUnits(row.mm), row.stl) << row.mm;
}

TEST_F(SharedUserUnit, LoadsItsTextsAndTellsOfAChangeAtEachSetting) {
  unit.SetUnit(MUserUnit::UNIT_MILLIMETRE);
  EXPECT_STREQ(unit.GetName(), L"");
  Texts wrapper;
  Listener listener;
  const auto& internal = QelSDK::Common::MInternalUnits::GetInstance();
  MUserUnit(MUserUnit::UNIT_MILLIMETRE).SetUnit(MUserUnit::UNIT_INCH);
  EXPECT_EQ(internal.GetConversionFactor(), 1.0);  // only the shared unit sets it
  const struct {
    int unit, calls;
    double factor;
    const wchar_t *name, *abbreviation;
  } rows[] = {
      {0, 0, 1.0, L"millimetre", L"mm"},
      {1, 1, 25.4, L"inch", L"in"},
      {1, 1, 25.4, L"inch", L"in"},
      {5, 1, 25.4, L"inch", L"in"},  // keeps everything but the number
      {1, 2, 25.4, L"inch", L"in"},
      {0, 3, 1.0, L"millimetre", L"mm"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    unit.SetUnit(static_cast<MUserUnit::UNIT_TYPE>(row.unit));
    EXPECT_EQ(unit.GetUnit(), row.unit);
    EXPECT_STREQ(unit.GetName(), row.name);
    EXPECT_STREQ(unit.GetAbbreviation(), row.abbreviation);
    EXPECT_EQ(internal.GetConversionFactor(), row.factor);
    EXPECT_EQ(unit.ConvertFromUIToMm(2), 2 * row.factor);
    EXPECT_EQ(listener.calls, row.calls);
  }
  wrapper.texts.clear();
  unit.SetUnit(MUserUnit::UNIT_MILLIMETRE);
  EXPECT_STREQ(unit.GetName(), L"");
}

TEST_F(SharedUserUnit, PrintsWithinTheBuffer) {
  Texts wrapper;
  const struct {
    MUserUnit::UNIT_TYPE unit;
    std::size_t size;
    double mm;
    bool with_unit;
    const wchar_t* text;
  } rows[] = {
      {MUserUnit::UNIT_INCH, 32, 25.4, true, L"    1 in"},
      {MUserUnit::UNIT_INCH, 9, 25.4, true, L"    1 in"},
      {MUserUnit::UNIT_INCH, 8, 25.4, true, L""},  // the unit does not fit
      {MUserUnit::UNIT_INCH, 6, 25.4, true, L""},  // the blank does not fit
      {MUserUnit::UNIT_INCH, 6, 25.4, false, L"    1"},
      {MUserUnit::UNIT_INCH, 5, 25.4, true, L""},  // the number does not fit
      {MUserUnit::UNIT_INCH, 32, 31.3, false, L" 1.23"},
      {MUserUnit::UNIT_MILLIMETRE, 32, 123, true, L"1.2e+02 mm"},
      {MUserUnit::UNIT_MILLIMETRE, 32, -0.25, false, L"-0.25"},
  };
  for (const auto& row : rows) {
    wchar_t buffer[34];
    std::fill(std::begin(buffer), std::end(buffer), L'#');
    unit.SetUnit(row.unit);
    unit.PrintMmInUI(buffer, row.size, row.mm, row.with_unit);
    EXPECT_STREQ(buffer, row.text);
    EXPECT_EQ(std::count(buffer + row.size, std::end(buffer), L'#'),
              std::end(buffer) - buffer - static_cast<std::ptrdiff_t>(row.size));
    unit.PrintStlUnitsInUI(buffer, row.size, static_cast<std::int32_t>(std::lround(row.mm * 1e4)),
                           row.with_unit);
    EXPECT_STREQ(buffer, row.text);
  }
  wchar_t untouched = L'#';
  unit.PrintMmInUI(&untouched, 0, 1, true);
  EXPECT_EQ(untouched, L'#');
}

TEST_F(SharedUserUnit, TellsListenersInTheOrderOfTheirAddresses) {
  std::vector<const Listener*> told;
  Listener listeners[3];
  for (Listener& listener : listeners) {
    listener.action = [&told, &listener] { told.push_back(&listener); };
  }
  const Listener copy = listeners[0];  // does not listen
  unit.RemoveUserUnitListener(&listeners[1]);
  change();
  EXPECT_EQ(told, (std::vector<const Listener*>{&listeners[0], &listeners[2]}));
  unit.AddUserUnitListener(&listeners[1]);
  unit.AddUserUnitListener(&listeners[1]);
  told.clear();
  change();
  EXPECT_EQ(told, (std::vector<const Listener*>{&listeners[0], &listeners[1], &listeners[2]}));
}

TEST_F(SharedUserUnit, LetsListenersComeAndGoWhileTheyAreTold) {
  std::unique_ptr<Listener> late;
  auto listeners = std::make_unique<Listener[]>(4);
  Listener& first = listeners[0];
  first.action = [&] {
    unit.RemoveUserUnitListener(&first);
    unit.RemoveUserUnitListener(&listeners[2]);
    late = std::make_unique<Listener>();
    first.action = [] {};
  };
  change();
  EXPECT_EQ(listeners[1].calls, 1);
  EXPECT_EQ(listeners[2].calls, 0);
  EXPECT_EQ(listeners[3].calls, 1);
  EXPECT_EQ(late->calls, 0);
  struct DeletesItself : IUserUnitDependent {
    void OnUserUnitChanged() override { delete this; }
  };
  new DeletesItself;
  change();
  change();
  EXPECT_EQ(late->calls, 2);
}

TEST_F(SharedUserUnit, StaysUsableAfterAListenerThrew) {
  Listener listener;
  listener.action = [] { throw 1; };
  EXPECT_THROW(change(), int);
  unit.RemoveUserUnitListener(&listener);
  change();
  EXPECT_EQ(listener.calls, 1);
}

}  // namespace
