// The main program of every benchmark: runs each case and its peers several times in turn, and
// prints one row a case with the median of ours and the ratios to the others. A benchmark is named
// CASE/ours, CASE/<peer> or CASE/limit_<what>; arguments behind that belong to the case.
// A ratio above 1 means that ours is that many times faster.

#include <benchmark/benchmark.h>
#include <sys/utsname.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Series {
  std::string name;
  std::vector<double> seconds;  // one iteration, for each repetition
  double bytes_per_second = 0;
  double median() const {
    std::vector<double> sorted = seconds;
    std::sort(sorted.begin(), sorted.end());
    return sorted[sorted.size() / 2];
  }
};

struct Case {
  std::string name;
  std::vector<Series> series;
};

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  for (std::size_t end; (end = text.find(separator, begin)) != std::string::npos; begin = end + 1) {
    parts.push_back(text.substr(begin, end - begin));
  }
  parts.push_back(text.substr(begin));
  return parts;
}

template <typename T>
T& entry(std::vector<T>& list, const std::string& name) {
  const auto at =
      std::find_if(list.begin(), list.end(), [&](const T& t) { return t.name == name; });
  if (at != list.end()) return *at;
  list.emplace_back().name = name;
  return list.back();
}

std::string readable(double seconds) {
  static constexpr struct {
    double scale;
    const char* unit;
  } units[] = {{1, "s"}, {1e-3, "ms"}, {1e-6, "us"}, {1e-9, "ns"}};
  const auto* unit = std::find_if(std::begin(units), std::end(units) - 1,
                                  [&](const auto& u) { return seconds >= u.scale; });
  char text[32];
  std::snprintf(text, sizeof text, "%.3g %s", seconds / unit->scale, unit->unit);
  return text;
}

class TableReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        m_failed = true;
        continue;
      }
      add(run);
    }
  }

  bool failed() const { return m_failed; }

  void print() const {
    for (const Case& c : m_cases) {
      const auto ours = std::find_if(c.series.begin(), c.series.end(),
                                     [](const Series& s) { return s.name == "ours"; });
      if (ours == c.series.end()) continue;
      const double median = ours->median();
      std::printf("| %s | %s", c.name.c_str(), readable(median).c_str());
      if (ours->bytes_per_second > 0) std::printf(", %.2f GB/s", ours->bytes_per_second / 1e9);
      std::printf(" |");
      const char* separator = " ";
      for (const Series& other : c.series) {
        if (&other == &*ours) continue;
        std::printf("%s%s %.2f", separator, other.name.c_str(), other.median() / median);
        separator = ", ";
      }
      std::printf(" |\n");
    }
  }

 private:
  void add(const Run& run) {
    std::vector<std::string> parts = split(run.run_name.function_name, '/');
    if (parts.size() < 2) parts.push_back("ours");
    std::string name = parts[0];
    for (std::size_t i = 2; i < parts.size(); ++i) name += "/" + parts[i];
    if (!run.run_name.args.empty()) name += "/" + run.run_name.args;
    Series& series = entry(entry(m_cases, name).series, parts[1]);
    series.seconds.push_back(run.real_accumulated_time / static_cast<double>(run.iterations));
    const auto rate = run.counters.find("bytes_per_second");
    if (rate != run.counters.end()) series.bytes_per_second = rate->second;
  }

  std::vector<Case> m_cases;
  bool m_failed = false;
};

#if defined(__clang__)
constexpr const char* compiler = __VERSION__;
#else
constexpr const char* compiler = "g++ " __VERSION__;
#endif

void printMachine() {
  std::string model = "unknown processor", line;
  std::ifstream cpuinfo("/proc/cpuinfo");
  while (std::getline(cpuinfo, line)) {
    if (line.rfind("model name", 0) == 0) {
      model = line.substr(line.find(':') + 2);
      break;
    }
  }
  utsname system{};
  uname(&system);
  std::printf("%s, %u cores, Linux %s, %s\n\n", model.c_str(), std::thread::hardware_concurrency(),
              system.release, compiler);
  std::printf("| case | ours, median | times faster than |\n|---|---|---|\n");
}

}  // namespace

int main(int argc, char** argv) {
  // The house's settings come first, so that those of the command line win.
  std::string defaults[] = {"--benchmark_repetitions=5", "--benchmark_min_time=0.05",
                            "--benchmark_enable_random_interleaving=true"};
  std::vector<char*> arguments{argv[0]};
  for (std::string& text : defaults) arguments.push_back(text.data());
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  int count = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

  printMachine();
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.print();
  return reporter.failed() ? 1 : 0;
}
