// Progress scopes, step texts and templates beside what they could be built on.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#ifdef HAVE_QT
#include <QCoreApplication>
#include <QFutureWatcher>
#include <QThread>
#endif

#include "qelbase/outside/system/messages.h"
#include "qelbase/outside/system/text.h"
#include "qelbase/progress/MProgress.h"
#include "qelbase/progress/ProgressLocalizer.h"
#include "qelbase/tagged/MFileTagReplacer.h"

namespace sys = qel::sys;

namespace {

// --- A step that passes no whole percent -------------------------------------------------------

constexpr double kManySteps = 1e15;

void incrementOurs(benchmark::State& state) {
  MProgress scope(0, kManySteps);
  for (auto _ : state) scope.Increment();
}
BENCHMARK(incrementOurs)->Name("increment/ours")->UseRealTime();

// The same scope with the standard library's lock.
class StandardScope {
 public:
  __attribute__((noinline)) void Increment() {
    const std::lock_guard lock(m_lock);
    if (m_sink.load(std::memory_order_acquire)) std::abort();
    m_position += m_weight;
    const double product = m_position * m_scaler;
    if (product > 0.0) {
      const int figure = static_cast<int>(product + 0.5);
      if (figure > m_high_water) m_high_water = figure;
    }
    m_weight = 1.0;
  }

 private:
  std::recursive_mutex m_lock;
  std::atomic<void*> m_sink{nullptr};
  double m_position = 0.0;
  double m_weight = 1.0;
  double m_scaler = 100.0 / kManySteps;
  int m_high_water = -1;
};

void incrementStandard(benchmark::State& state) {
  StandardScope scope;
  for (auto _ : state) scope.Increment();
}
BENCHMARK(incrementStandard)->Name("increment/std::recursive_mutex")->UseRealTime();

void incrementThreads(benchmark::State& state) {
  MProgress scope(0, kManySteps);
  for (auto _ : state) scope.Increment();
}
BENCHMARK(incrementThreads)->Name("increment_8_scopes/ours")->Threads(8)->UseRealTime();

void incrementThreadsStandard(benchmark::State& state) {
  StandardScope scope;
  for (auto _ : state) scope.Increment();
}
BENCHMARK(incrementThreadsStandard)
    ->Name("increment_8_scopes/std::recursive_mutex")
    ->Threads(8)
    ->UseRealTime();

// --- Percents that go out ----------------------------------------------------------------------

// A thread with a window that counts what reaches it.
class Receiver {
 public:
  Receiver() : m_thread([this] { Run(); }) { m_ready.wait(false); }
  ~Receiver() {
    sys::PostMessageW(m_window, sys::WM_QUIT, 0, 0);
    m_thread.join();
  }
  HWND window() const { return m_window; }
  long handled() const { return m_handled.load(std::memory_order_acquire); }

 private:
  void Run() {
    m_window = sys::CreateMessageWindow([this](HWND, UINT, WPARAM, LPARAM) -> LRESULT {
      m_handled.store(m_handled.load(std::memory_order_relaxed) + 1, std::memory_order_release);
      return 0;
    });
    m_ready = true;
    m_ready.notify_all();
    sys::MSG message;
    while (sys::GetMessageW(&message, nullptr, 0, 0) > 0) sys::DispatchMessageW(&message);
  }

  HWND m_window = nullptr;
  std::atomic<bool> m_ready{false};
  std::atomic<long> m_handled{0};
  std::thread m_thread;
};

// 100 percents, from the report to the end of the receiver's procedure.
void postedPercents(benchmark::State& state) {
  Receiver receiver;
  MProgressManager::AttachUITarget(receiver.window());
  MProgressManager::SetProcessOnlyCurrentThreadWindows(false);
  for (auto _ : state) {
    const long before = receiver.handled();
    {
      MProgress scope;
      for (int i = 0; i < 100; ++i) scope.Increment();
    }
    while (receiver.handled() < before + 103) std::this_thread::yield();
  }
  MProgressManager::ResetUITargets();
  MProgressManager::SetProcessOnlyCurrentThreadWindows(true);
  state.SetItemsProcessed(state.iterations() * 100);
}
BENCHMARK(postedPercents)->Name("posted_100_percents/ours")->UseRealTime();

#ifdef HAVE_QT

using QtReporter = QFutureWatcher<void>;  // its signal tells a progress value

// A step that is told to a function of the same thread.
void incrementQt(benchmark::State& state) {
  QtReporter reporter;
  QObject receiver;
  double position = 0;
  QObject::connect(
      &reporter, &QtReporter::progressValueChanged, &receiver, [&](int step) { position += step; },
      Qt::DirectConnection);
  for (auto _ : state) Q_EMIT reporter.progressValueChanged(1);
  benchmark::DoNotOptimize(position);
}
BENCHMARK(incrementQt)->Name("increment/Qt_direct_signal")->UseRealTime();

void postedQt(benchmark::State& state) {
  static int argc = 1;
  static char name[] = "bench", *argv[] = {name, nullptr};
  static QCoreApplication application(argc, argv);
  QThread thread;
  QObject receiver;
  receiver.moveToThread(&thread);
  std::atomic<long> handled{0};
  QtReporter reporter;
  QObject::connect(
      &reporter, &QtReporter::progressValueChanged, &receiver,
      [&](int) {
        handled.store(handled.load(std::memory_order_relaxed) + 1, std::memory_order_release);
      },
      Qt::QueuedConnection);
  thread.start();
  for (auto _ : state) {
    const long before = handled.load(std::memory_order_acquire);
    for (int i = 0; i < 100; ++i) Q_EMIT reporter.progressValueChanged(i);
    while (handled.load(std::memory_order_acquire) < before + 100) std::this_thread::yield();
  }
  thread.quit();
  thread.wait();
  state.SetItemsProcessed(state.iterations() * 100);
}
BENCHMARK(postedQt)->Name("posted_100_percents/Qt_queued_signal")->UseRealTime();

#endif

void nestedLevels(benchmark::State& state) {
  std::vector<HWND> windows;
  for (int i = 0; i < 5; ++i) {
    windows.push_back(
        sys::CreateMessageWindow([](HWND, UINT, WPARAM, LPARAM) { return LRESULT{0}; }));
    MProgressManager::AttachUITarget(windows.back());
  }
  for (auto _ : state) {
    MProgress a, b, c, d, e;
    for (MProgress* scope : {&a, &b, &c, &d}) {
      scope->SetAdjustByLowerLevels(true);
      scope->SetChildWeight(100);
    }
    for (int i = 0; i < 100; ++i) e.Increment();
  }
  MProgressManager::ResetUITargets();
  for (HWND window : windows) sys::DestroyWindow(window);
  state.SetItemsProcessed(state.iterations() * 500);
}
BENCHMARK(nestedLevels)->Name("five_levels_100_percents/ours")->UseRealTime();

// --- Step texts --------------------------------------------------------------------------------

const char* const kKnownKeys[] = {
    "QelSDK.Triangles.Data.MStlBase.LoadCompressed.1",
    "QelSDK.Triangles.Data.MStlFileIO._SaveStl",
    "QelSDK.Triangles.Tooling.M2dField.EliminatePointsOnEdgesOfTriangles",
    "QelSDK.Triangles.Tooling.M2dField.CalculatePartingPlanes.4",
    "QelSDK.Triangles.Data.MStlCloner._CloneVectorMaskTriangles",
    "QelStlCutting.MStlBaseOperatorPlaneCut.Operate",
    "QelStlCutting.PinAttachFunctions.AttachHoles",
    "QelSDK.Triangles.Data.MStlCompact.ShareVertices",
};

// As many keys as the library knows, of the same kind.
std::vector<std::pair<std::string, std::wstring>> table() {
  std::vector<std::pair<std::string, std::wstring>> rows;
  for (const char* key : kKnownKeys)
    rows.emplace_back(key, QelBase::ProgressLocalizer::Localize(key));
  for (int i = 0; rows.size() < 141; ++i) {
    rows.emplace_back("QelSDK.Triangles.Data.MStlCloner._Clone" + std::to_string(i * 7919), L"");
  }
  std::sort(rows.begin(), rows.end());
  return rows;
}

template <class Find>
void localize(benchmark::State& state, Find find) {
  const std::vector<std::string> keys(std::begin(kKnownKeys), std::end(kKnownKeys));
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(find(keys[i++ % keys.size()]));
}

void localizeOurs(benchmark::State& state) {
  localize(state, [](const std::string& key) { return QelBase::ProgressLocalizer::Localize(key); });
}
BENCHMARK(localizeOurs)->Name("localize/ours")->UseRealTime();

void localizeHashed(benchmark::State& state) {
  const auto rows = table();
  const std::unordered_map<std::string, std::wstring> map(rows.begin(), rows.end());
  localize(state, [&](const std::string& key) { return std::wstring(map.find(key)->second); });
}
BENCHMARK(localizeHashed)->Name("localize/std::unordered_map")->UseRealTime();

void localizeSorted(benchmark::State& state) {
  const auto rows = table();
  localize(state, [&](const std::string& key) {
    const auto found =
        std::lower_bound(rows.begin(), rows.end(), key,
                         [](const auto& row, const auto& k) { return row.first < k; });
    return std::wstring(found->second);
  });
}
BENCHMARK(localizeSorted)->Name("localize/sorted_array")->UseRealTime();

// --- Templates ---------------------------------------------------------------------------------

constexpr int kRules = 20;
constexpr std::size_t kTemplateSize = 100 << 20;
const std::filesystem::path kFolder = "/dev/shm/qel_progress_bench";

std::string marker(int i) {
  return "$MARK" + std::to_string(100 + i) + "$";
}

// 100 MB of lines of about 80 characters, one in ten with a marker. sed ends its lines in a line
// feed, the replacer in a carriage return.
void writeTemplate(const char* name, char end) {
  std::mt19937 random(1);
  std::string line(80, '.');
  std::string bytes;
  bytes.reserve(kTemplateSize + 200);
  while (bytes.size() < kTemplateSize) {
    for (char& c : line) c = static_cast<char>('a' + random() % 26);
    bytes += line;
    if (random() % 10 == 0) bytes += marker(static_cast<int>(random() % kRules));
    bytes += end;
  }
  std::ofstream(kFolder / name, std::ios::binary) << bytes;
}

void makeTemplates() {
  static const bool made = [] {
    std::filesystem::create_directories(kFolder);
    writeTemplate("cr", '\r');
    writeTemplate("lf", '\n');
    std::atexit([] { std::filesystem::remove_all(kFolder); });
    return true;
  }();
  benchmark::DoNotOptimize(made);
}

std::wstring wideName(const char* name) {
  return L"C:" + (kFolder / name).wstring();
}

void replaceOurs(benchmark::State& state) {
  makeTemplates();
  for (auto _ : state) {
    MFile source;
    MFileTagReplacer target;
    for (int i = 0; i < kRules; ++i) {
      target.Append(new MReplaceTag{marker(i).c_str(), "replaced", true, true});
    }
    if (!source.OPEN_READ(wideName("cr").c_str()) || !target.OPEN_WRITE(wideName("out").c_str())) {
      state.SkipWithError("cannot open");
      break;
    }
    target.ReplaceAllTagsInFile(source);
    target.CLOSE();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kTemplateSize));
}
BENCHMARK(replaceOurs)->Name("template_100MB/ours")->UseRealTime()->Unit(benchmark::kMillisecond);

void replaceSed(benchmark::State& state) {
  makeTemplates();
  {
    std::ofstream script(kFolder / "script");
    for (int i = 0; i < kRules; ++i) {
      script << "s/[$]MARK" << 100 + i << "[$]/replaced/g\n";
    }
  }
  const std::string command = "LC_ALL=C sed -f " + (kFolder / "script").string() + " " +
                              (kFolder / "lf").string() + " > " + (kFolder / "out").string();
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) state.SkipWithError("sed failed");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kTemplateSize));
}
BENCHMARK(replaceSed)->Name("template_100MB/sed")->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
