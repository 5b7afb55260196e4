#include "qelbase/units/MInternalUnitsValue.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <vector>

namespace {

using QelSDK::Common::MInternalUnits;
using Units = IInternalUnitsObserver;

template <class Value, int Power>
struct Kind {
  using T = Value;
  static constexpr int N = Power;
  using Type = MInternalUnitsValue<T, N>;
};

template <class K>
class InternalUnitsValue : public testing::Test {
 protected:
  void TearDown() override { ASSERT_TRUE(Units::SetInternalUnits(Units::m_default_units)); }
};

using Kinds = testing::Types<Kind<double, 1>, Kind<double, 2>, Kind<double, 3>, Kind<float, 1>,
                             Kind<float, 2>, Kind<float, 3>, Kind<int, 1>, Kind<long, 1>,
                             Kind<unsigned int, 1>, Kind<unsigned long, 1>, Kind<short, 1>,
                             Kind<unsigned short, 1>>;
TYPED_TEST_SUITE(InternalUnitsValue, Kinds);

TYPED_TEST(InternalUnitsValue, FollowsTheScale) {
  using T = typename TypeParam::T;
  constexpr T twice = TypeParam::N == 1 ? 10 : TypeParam::N == 2 ? 20 : 40;
  typename TypeParam::Type value, set_later, untouched;
  value.SetInDefaultInternalUnits(5);
  EXPECT_EQ(T{value}, 5);
  ASSERT_TRUE(Units::SetInternalUnits(20000));
  set_later.SetInDefaultInternalUnits(99);
  set_later.SetInDefaultInternalUnits(5);
  for (const auto* each : {&value, &set_later}) {
    EXPECT_EQ(T{*each}, twice);
    EXPECT_EQ(each->GetInDefaultInternalUnits(), 5);
  }
  EXPECT_EQ(T{untouched}, 0);
  ASSERT_TRUE(MInternalUnits::GetInstance().Set(10000, false));
  EXPECT_EQ(T{value}, twice);
  EXPECT_EQ(value.GetInDefaultInternalUnits(), twice);
}

TYPED_TEST(InternalUnitsValue, ComesBackAfterAChangeThereAndBack) {
  using T = typename TypeParam::T;
  EXPECT_TRUE(rc::check([&](std::int16_t number, std::uint16_t scale) {
    if (!std::is_signed_v<T>) number = static_cast<std::int16_t>(std::abs(number % 1024));
    const T start = static_cast<T>(std::is_floating_point_v<T> ? number / 7.0 : number % 1024);
    typename TypeParam::Type value;
    value.SetInDefaultInternalUnits(start);
    // An integer loses less than one unit of the finer scale.
    Units::SetInternalUnits(10000.0 + (std::is_floating_point_v<T> ? scale : scale * 4));
    Units::SetInternalUnits(10000);
    const double error = std::fabs(static_cast<double>(T{value}) - static_cast<double>(start));
    const double bound = std::is_floating_point_v<T>
                             ? 2 * static_cast<double>(std::numeric_limits<T>::epsilon()) *
                                   std::fabs(static_cast<double>(start)) * TypeParam::N
                             : 1;
    RC_ASSERT(error <= bound);
  }));
}

// Each T by what `_OnInternalUnitsChange` makes of a number and a ratio.
template <class T>
void expectChange(T number, double ratio, T wanted) {
  MInternalUnitsValue<T, 1> value;
  value.SetInDefaultInternalUnits(number);
  EXPECT_TRUE(value._OnInternalUnitsChange(1, ratio, true));
  EXPECT_EQ(T{value}, wanted) << +number << " by " << ratio;
}

TEST(InternalUnitsConversion, TruncatesAndKeepsTheLowBits) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  expectChange<int>(3, 0.5, 1);
  expectChange<int>(-3, 0.5, -1);
  expectChange<int>(INT32_MAX, 2, -2);
  expectChange<long>(INT32_MAX, 2, -2);
  expectChange<long>(0x1'0000'0005, 2, 10);  // only 32 bits are taken
  expectChange<unsigned int>(UINT32_MAX, 2, UINT32_MAX - 1);
  expectChange<unsigned long>(UINT32_MAX, 2, UINT32_MAX - 1);
  expectChange<unsigned int>(1, -1, UINT32_MAX);
  expectChange<short>(INT16_MAX, 2, -2);
  expectChange<unsigned short>(40000, 2, 14464);
  expectChange<int>(3, 0x1p62, 0);
  expectChange<int>(1, 0x1p63 + 0x1p11, 2048);
  expectChange<int>(-1, 0x1p80 + 0x1p31, INT32_MIN);
  for (const double ratio : {infinity, -infinity, std::nan("")}) {
    expectChange<int>(1, ratio, 0);
    expectChange<unsigned short>(1, ratio, 0);
  }
  expectChange<float>(1, 1e300, std::numeric_limits<float>::infinity());
  expectChange<double>(1, infinity, infinity);
}

TEST(InternalUnitsConversion, ComputesInDoubleWhateverTheType) {
  MInternalUnitsValue<float, 3> value;
  value.SetInDefaultInternalUnits(0x1.7311d80000000p+0f);
  value._OnInternalUnitsChange(3, 10, true);
  EXPECT_EQ(float{value}, 0x1.ad7a940000000p+5f);
  MInternalUnitsValue<double, 3> wide;
  wide.SetInDefaultInternalUnits(1.1);
  wide._OnInternalUnitsChange(3, 10, true);
  EXPECT_EQ(double{wide}, 0x1.45ed097b425eep+5);
  EXPECT_TRUE(wide._OnInternalUnitsChange(3, 10, false));
  EXPECT_EQ(double{wide}, 0x1.45ed097b425eep+5);
}

// What the list of observers promises, watched by observers with a script.
struct Watcher : IInternalUnitsObserver {
  std::function<void()> action = [] {};
  int told = 0;
  bool _OnInternalUnitsChange(const double&, const double&, bool) override {
    ++told;
    action();
    return false;
  }
};

struct ComponentWatcher : QelSDK::Common::MInternalUnitsObserver {
  double old_units = 0, new_units = 0;
  bool convert = true;
  void _OnInternalUnitsChange(const double& from, const double& to, const bool& flag) override {
    old_units = from, new_units = to, convert = flag;
  }
};

class InternalUnits : public testing::Test {
 protected:
  void TearDown() override { ASSERT_TRUE(Units::SetInternalUnits(10000)); }
};

TEST_F(InternalUnits, TellBothKindsOfObserver) {
  Watcher here;
  ComponentWatcher below;
  ASSERT_TRUE(MInternalUnits::GetInstance().Set(30000, false));
  EXPECT_EQ(here.told, 1);
  EXPECT_EQ(below.old_units, 10000);
  EXPECT_EQ(below.new_units, 30000);
  EXPECT_FALSE(below.convert);
  EXPECT_FALSE(here.Units::_OnInternalUnitsChange(1, 2, true));
  ASSERT_TRUE(Units::SetInternalUnits(30000));  // no change
  EXPECT_EQ(here.told, 1);
}

TEST_F(InternalUnits, StayForWhatIsNoScaleAndWhileHeldOrTold) {
  Watcher watcher;
  watcher.action = [] {
    EXPECT_FALSE(Units::IsInternalUnitsChangeAllowed());
    EXPECT_FALSE(Units::SetInternalUnits(5));
  };
  for (const double units :
       {0.0, -1.0, -0.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
    EXPECT_FALSE(Units::SetInternalUnits(units));
  }
  {
    const MInternalUnits::Hold hold;
    EXPECT_FALSE(Units::IsInternalUnitsChangeAllowed());
    EXPECT_FALSE(Units::SetInternalUnits(20000));
  }
  EXPECT_EQ(Units::GetInternalUnits(), 10000);
  EXPECT_TRUE(Units::IsInternalUnitsChangeAllowed());
  EXPECT_TRUE(Units::SetInternalUnits(20000));
  EXPECT_EQ(watcher.told, 1);
}

TEST_F(InternalUnits, LeaveCopiesAlone) {
  using Length = MInternalUnitsValue<double, 1>;
  Length original, assigned;
  original.SetInDefaultInternalUnits(7);
  alignas(Length) std::byte place[sizeof(Length)];
  new (place) Length;  // follows, dies; a copy takes its place
  std::launder(reinterpret_cast<Length*>(place))->~Length();
  auto* copy = new (place) Length(original);
  assigned = *copy;
  ASSERT_TRUE(Units::SetInternalUnits(20000));
  EXPECT_EQ(double{original}, 14);
  EXPECT_EQ(double{assigned}, 14);
  EXPECT_EQ(double{*copy}, 7);
  copy->~Length();
  double left = -1;
  std::memcpy(&left, place + sizeof(Length) - sizeof left, sizeof left);
  EXPECT_EQ(left, 0);  // a destroyed value is 0
  ASSERT_TRUE(Units::SetInternalUnits(10000));
  EXPECT_EQ(double{original}, 7);
}

// During a change, a value that waits for its turn still counts in the old scale.
TEST_F(InternalUnits, GiveEachValueItsScaleDuringAChange) {
  MInternalUnitsValue<double, 1> before;
  Watcher watcher;
  MInternalUnitsValue<double, 1> after, set;
  before.SetInDefaultInternalUnits(5);
  after.SetInDefaultInternalUnits(6);
  watcher.action = [&] {
    MInternalUnitsValue<double, 1> born;
    born.SetInDefaultInternalUnits(8);
    EXPECT_EQ(double{born}, 16);
    EXPECT_EQ(before.GetInDefaultInternalUnits(), 5);
    EXPECT_EQ(after.GetInDefaultInternalUnits(), 6);
    set.SetInDefaultInternalUnits(7);
  };
  ASSERT_TRUE(Units::SetInternalUnits(20000));
  EXPECT_EQ(double{after}, 12);
  EXPECT_EQ(double{set}, 14);
}

// Observers destroy and make others while they are told: who was there and still is when the change
// is over was told once, who came during the change was not.
TEST_F(InternalUnits, LetObserversComeAndGoWhileTheyAreTold) {
  EXPECT_TRUE(rc::check([] {
    const auto count = *rc::gen::inRange<std::size_t>(1, 12);
    std::vector<std::unique_ptr<Watcher>> old(count), born;
    for (auto& each : old) each = std::make_unique<Watcher>();
    for (std::size_t i = 0; i < count; ++i) {
      const auto victim = *rc::gen::inRange<std::size_t>(0, 2 * count);
      old[i]->action = [&, i, victim] {
        born.push_back(std::make_unique<Watcher>());
        if (victim < count && victim != i) old[victim].reset();
      };
    }
    RC_ASSERT(Units::SetInternalUnits(20000));
    for (auto& each : old) RC_ASSERT((!each || each->told == 1));
    for (auto& each : born) RC_ASSERT(each->told == 0);
    for (auto& each : old) {
      if (each) each->action = [] {};
    }
    old.front().reset();  // the last one takes its place in the list
    RC_ASSERT(Units::SetInternalUnits(10000));
    for (auto& each : old) RC_ASSERT((!each || each->told == 2));
    for (auto& each : born) RC_ASSERT(each->told == 1);
  }));
}

}  // namespace
