// Scale, values, unit and listeners on several threads at once. The thread sanitizer is the judge
// of most of it.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <memory>
#include <thread>
#include <vector>

#include "qelbase/units/MInternalUnitsValue.h"
#include "qelbase/units/MUserUnit.h"

namespace {

using Units = IInternalUnitsObserver;

constexpr int rounds = 2000;

// Runs `work` on three threads while `change` is repeated on this one.
template <class Work, class Change>
void runBeside(Work work, Change change) {
  std::atomic<int> running{3};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < rounds; ++round) work();
      --running;
    });
  }
  for (int n = 0; running > 0; ++n) change(n);
  for (std::thread& thread : threads) thread.join();
}

TEST(UnitsThreads, KeepValuesRightWhileTheScaleChanges) {
  std::atomic<int> wrong{0};
  const auto expect = [&](double got, double wanted) {
    if (!(std::fabs(got - wanted) < 1e-6 * wanted)) ++wrong;
  };
  runBeside(
      [&] {
        MInternalUnitsValue<double, 1> length, copied_to;
        const auto volume = std::make_unique<MInternalUnitsValue<float, 3>>();
        const MInternalUnitsValue<int, 1> none;
        length.SetInDefaultInternalUnits(5);
        volume->SetInDefaultInternalUnits(4);
        copied_to = length;
        const MInternalUnitsValue<double, 1> frozen(length);
        expect(length.GetInDefaultInternalUnits(), 5);
        expect(copied_to.GetInDefaultInternalUnits(), 5);
        expect(static_cast<double>(volume->GetInDefaultInternalUnits()), 4);
        expect(none.GetInDefaultInternalUnits() + 1, 1);
        const QelSDK::Common::MInternalUnits::Hold hold;
        expect(double{length}, 5 * Units::GetInternalUnits() / 10000);
      },
      [](int n) { Units::SetInternalUnits(n % 2 ? 10000 : 20000); });
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(Units::SetInternalUnits(10000));
}

struct Guest : IUserUnitDependent {
  std::unique_ptr<int> told = std::make_unique<int>(0);
  Guest() : IUserUnitDependent(NotYet{}) { MUserUnit::GetInstance().AddUserUnitListener(this); }
  ~Guest() override { MUserUnit::GetInstance().RemoveUserUnitListener(this); }
  void OnUserUnitChanged() override { ++*told; }
};

TEST(UnitsThreads, LetListenersComeAndGoWhileTheUnitChanges) {
  MUserUnit& unit = MUserUnit::GetInstance();
  Guest stays;
  int changes = 0;
  runBeside(
      [&] {
        const Guest guest;
        wchar_t text[16];
        unit.PrintMmInUI(text, 16, unit.ConvertFromUIToMm(1), true);
      },
      [&](int n) {
        unit.SetUnit(n % 2 ? MUserUnit::UNIT_MILLIMETRE : MUserUnit::UNIT_INCH);
        ++changes;
      });
  EXPECT_EQ(*stays.told, changes);
  unit.SetUnit(MUserUnit::UNIT_MILLIMETRE);
}

TEST(UnitsThreads, WaitForARunningCallBeforeAListenerIsGone) {
  struct Slow : IUserUnitDependent {
    std::atomic<bool> inside{false}, removing{false}, done{false};
    void OnUserUnitChanged() override {
      inside = true;
      while (!removing) std::this_thread::yield();
      for (int i = 0; i < 1000; ++i) std::this_thread::yield();
      done = true;
    }
  } slow;
  MUserUnit& unit = MUserUnit::GetInstance();
  std::thread setter([&] { unit.SetUnit(MUserUnit::UNIT_INCH); });
  while (!slow.inside) std::this_thread::yield();
  slow.removing = true;
  unit.RemoveUserUnitListener(&slow);
  EXPECT_TRUE(slow.done);
  setter.join();
  unit.SetUnit(MUserUnit::UNIT_MILLIMETRE);
}

}  // namespace
