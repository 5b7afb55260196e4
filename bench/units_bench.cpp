// One million gradient colours and one million scale notifications, beside the plain loop that does
// the same: the bound for what the class and the list of observers add.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "qelbase/units/MGradientColoring.h"
#include "qelbase/units/MInternalUnitsValue.h"

namespace {

constexpr std::size_t million = 1'000'000;

const std::vector<std::uint32_t> stops = {0xFF0000, 0xFFFF00, 0x00FF00, 0x00FFFF, 0x0000FF};

const std::vector<double>& values() {
  static const std::vector<double> all = [] {
    std::mt19937 random(1);
    std::uniform_real_distribution<double> spread(-0.05, 1.05);
    std::vector<double> made(million);
    for (double& value : made) value = spread(random);
    return made;
  }();
  return all;
}

void gradientOurs(benchmark::State& state) {
  const MGradientColoring gradient(stops, 0, 1);
  std::vector<std::uint32_t> colors(million);
  for (auto _ : state) {
    for (std::size_t i = 0; i < million; ++i) colors[i] = gradient.GetColor(values()[i]);
    benchmark::ClobberMemory();
  }
}

void gradientLoop(benchmark::State& state) {
  const double* in = values().data();
  const std::uint32_t* stop = stops.data();
  const double last = static_cast<double>(stops.size() - 1);
  double min = 0, range = 1;
  benchmark::DoNotOptimize(min);
  benchmark::DoNotOptimize(range);
  std::vector<std::uint32_t> colors(million);
  for (auto _ : state) {
    for (std::size_t i = 0; i < million; ++i) {
      const double t = (in[i] - min) / range * last;
      if (t <= 0) {
        colors[i] = stop[0];
      } else if (t >= last) {
        colors[i] = stop[stops.size() - 1];
      } else {
        const int at = static_cast<int>(t);
        const double f = t - at;
        std::uint32_t color = 0;
        for (int shift = 0; shift < 24; shift += 8) {
          const int from = stop[at] >> shift & 0xFF, to = stop[at + 1] >> shift & 0xFF;
          color |= static_cast<std::uint32_t>(static_cast<int>(from * (1 - f) + to * f)) << shift;
        }
        colors[i] = color;
      }
    }
    benchmark::ClobberMemory();
  }
}

using Length = MInternalUnitsValue<double, 1>;

std::unique_ptr<Length[]> lengths() {
  auto made = std::make_unique<Length[]>(million);
  for (std::size_t i = 0; i < million; ++i)
    made[i].SetInDefaultInternalUnits(static_cast<double>(i));
  return made;
}

void scaleOurs(benchmark::State& state) {
  const auto all = lengths();
  double units = 10000;
  for (auto _ : state) {
    units = 30000 - units;
    if (!IInternalUnitsObserver::SetInternalUnits(units)) state.SkipWithError("refused");
  }
  IInternalUnitsObserver::SetInternalUnits(10000);
}

void scaleLoop(benchmark::State& state) {
  const auto all = lengths();
  std::vector<IInternalUnitsObserver*> observers;
  for (std::size_t i = 0; i < million; ++i) observers.push_back(&all[i]);
  double old_units = 10000;
  for (auto _ : state) {
    const double new_units = 30000 - old_units;
    for (IInternalUnitsObserver* each : observers) {
      each->_OnInternalUnitsChange(old_units, new_units, true);
    }
    old_units = new_units;
  }
}

BENCHMARK(gradientOurs)->Name("gradient_1M/ours")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(gradientLoop)
    ->Name("gradient_1M/limit_loop")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(scaleOurs)->Name("scale_1M/ours")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(scaleLoop)->Name("scale_1M/limit_loop")->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
