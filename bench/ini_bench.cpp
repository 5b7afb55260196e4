// An ini file of 10 MB with 100,000 entries: reading, writing, and a value under another case.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "qelbase/outside/system/names.h"
#include "qelbase/settings/MIniFile.h"

#ifdef HAVE_SIMPLEINI
#define SI_NO_CONVERSION  // bytes as they are
#include <SimpleIni.h>
#endif
#ifdef HAVE_GLIB
#include <glib.h>
#endif
#ifdef HAVE_POCO
#include <Poco/AutoPtr.h>
#include <Poco/Util/IniFileConfiguration.h>
#endif

namespace {

constexpr int kSections = 1000;
constexpr int kEntries = 100;  // a section

std::string sectionName(int i) {
  return "Section " + std::to_string(i);
}
std::string entryName(int i) {
  return "entry_number_" + std::to_string(i);
}

struct Files {
  std::filesystem::path folder;
  Files() {
    std::string pattern = "/dev/shm/qelbench.XXXXXX";
    if (!mkdtemp(pattern.data())) std::abort();
    folder = pattern;
    std::ofstream file(folder / "in.ini");
    const std::string value(80, 'v');
    for (int s = 0; s < kSections; ++s) {
      file << '[' << sectionName(s) << "]\n";
      for (int e = 0; e < kEntries; ++e) file << entryName(e) << "=" << value << e << '\n';
    }
  }
  ~Files() { std::filesystem::remove_all(folder); }
  std::string native(const char* name) const { return folder / name; }
  std::wstring wide(const char* name) const { return qel::sys::FromNative(native(name)); }
};
Files& files() {
  static Files kept;
  return kept;
}

void count(benchmark::State& state) {
  const auto size = std::filesystem::file_size(files().native("in.ini"));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
}

// --- ours ---

void readOurs(benchmark::State& state) {
  for (auto _ : state) {
    MIniFile ini;
    if (ini.ReadFromFile(files().wide("in.ini").c_str(), 0) != 0) state.SkipWithError("unread");
    if (ini.GetSectionsCount() != kSections) state.SkipWithError("wrong");
  }
  count(state);
}
BENCHMARK(readOurs)->Name("read/ours")->Unit(benchmark::kMillisecond);

void readWideOurs(benchmark::State& state) {
  MIniFile ini;
  ini.ReadFromFile(files().wide("in.ini").c_str(), 0);
  ini.WriteToFile(files().wide("form.ini").c_str(), nullptr);
  for (auto _ : state) {
    if (ini.ReadFromFile(files().wide("form.ini").c_str(), 0) != 0) state.SkipWithError("unread");
  }
  count(state);
}
BENCHMARK(readWideOurs)->Name("read_wide/ours")->Unit(benchmark::kMillisecond);

void writeOurs(benchmark::State& state) {
  MIniFile ini;
  ini.ReadFromFile(files().wide("in.ini").c_str(), 0);
  for (auto _ : state) {
    if (ini.WriteToFile(files().wide("ours.ini").c_str(), nullptr) != 0) {
      state.SkipWithError("unwritten");
    }
  }
  count(state);
}
BENCHMARK(writeOurs)->Name("write/ours")->Unit(benchmark::kMillisecond);

// Names in capitals, of sections all over the file.
template <typename Char>
struct Names {
  std::vector<std::basic_string<Char>> sections, entries;
  Names() {
    for (int i = 0; i < kSections; ++i) {
      const std::string section = "SECTION " + std::to_string(i * 7 % kSections);
      const std::string entry = "ENTRY_NUMBER_" + std::to_string(i % kEntries);
      sections.emplace_back(section.begin(), section.end());
      entries.emplace_back(entry.begin(), entry.end());
    }
  }
};

void findOurs(benchmark::State& state) {
  MIniFile ini;
  ini.ReadFromFile(files().wide("in.ini").c_str(), 0);
  const Names<wchar_t> names;
  CStringW value;
  for (std::size_t i = 0; auto _ : state) {
    if (!ini.GetValue(value, names.sections[i].c_str(), names.entries[i].c_str())) {
      state.SkipWithError("missing");
    }
    if (++i == names.sections.size()) i = 0;
  }
}
BENCHMARK(findOurs)->Name("other_case/ours");

// --- peers ---

#ifdef HAVE_SIMPLEINI
void readSimpleIni(benchmark::State& state) {
  for (auto _ : state) {
    CSimpleIniA ini;
    if (ini.LoadFile(files().native("in.ini").c_str()) != SI_OK) state.SkipWithError("unread");
  }
  count(state);
}
BENCHMARK(readSimpleIni)->Name("read/SimpleIni")->Unit(benchmark::kMillisecond);

void writeSimpleIni(benchmark::State& state) {
  CSimpleIniA ini;
  ini.LoadFile(files().native("in.ini").c_str());
  for (auto _ : state) {
    if (ini.SaveFile(files().native("simple.ini").c_str()) != SI_OK) state.SkipWithError("bad");
  }
  count(state);
}
BENCHMARK(writeSimpleIni)->Name("write/SimpleIni")->Unit(benchmark::kMillisecond);

void findSimpleIni(benchmark::State& state) {
  CSimpleIniA ini;
  ini.LoadFile(files().native("in.ini").c_str());
  const Names<char> names;
  for (std::size_t i = 0; auto _ : state) {
    if (!ini.GetValue(names.sections[i].c_str(), names.entries[i].c_str())) {
      state.SkipWithError("missing");
    }
    if (++i == names.sections.size()) i = 0;
  }
}
BENCHMARK(findSimpleIni)->Name("other_case/SimpleIni");
#endif

#ifdef HAVE_GLIB
void readGlib(benchmark::State& state) {
  for (auto _ : state) {
    GKeyFile* const ini = g_key_file_new();
    if (!g_key_file_load_from_file(ini, files().native("in.ini").c_str(), G_KEY_FILE_NONE,
                                   nullptr)) {
      state.SkipWithError("unread");
    }
    g_key_file_free(ini);
  }
  count(state);
}
BENCHMARK(readGlib)->Name("read/GKeyFile")->Unit(benchmark::kMillisecond);

void writeGlib(benchmark::State& state) {
  GKeyFile* const ini = g_key_file_new();
  g_key_file_load_from_file(ini, files().native("in.ini").c_str(), G_KEY_FILE_NONE, nullptr);
  for (auto _ : state) {
    gsize length = 0;
    char* const text = g_key_file_to_data(ini, &length, nullptr);
    std::ofstream(files().native("glib.ini"), std::ios::binary)
        .write(text, static_cast<std::streamsize>(length));
    g_free(text);
  }
  g_key_file_free(ini);
  count(state);
}
BENCHMARK(writeGlib)->Name("write/GKeyFile")->Unit(benchmark::kMillisecond);
#endif

#ifdef HAVE_POCO
void readPoco(benchmark::State& state) {
  for (auto _ : state) {
    const Poco::AutoPtr<Poco::Util::IniFileConfiguration> ini(
        new Poco::Util::IniFileConfiguration(files().native("in.ini")));
    benchmark::DoNotOptimize(ini->hasProperty("Section 1.entry_number_1"));
  }
  count(state);
}
BENCHMARK(readPoco)->Name("read/POCO")->Unit(benchmark::kMillisecond);
#endif

void readBoost(benchmark::State& state) {
  for (auto _ : state) {
    boost::property_tree::ptree tree;
    boost::property_tree::read_ini(files().native("in.ini"), tree);
    benchmark::DoNotOptimize(tree.size());
  }
  count(state);
}
BENCHMARK(readBoost)->Name("read/Boost")->Unit(benchmark::kMillisecond);

void writeBoost(benchmark::State& state) {
  boost::property_tree::ptree tree;
  boost::property_tree::read_ini(files().native("in.ini"), tree);
  for (auto _ : state) boost::property_tree::write_ini(files().native("boost.ini"), tree);
  count(state);
}
BENCHMARK(writeBoost)->Name("write/Boost")->Unit(benchmark::kMillisecond);

// --- limits ---

// Lines found, and nothing kept.
void readLines(benchmark::State& state) {
  for (auto _ : state) {
    std::ifstream file(files().native("in.ini"), std::ios::binary);
    std::string bytes(std::filesystem::file_size(files().native("in.ini")), '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    benchmark::DoNotOptimize(std::count(bytes.begin(), bytes.end(), '\n'));
  }
  count(state);
}
BENCHMARK(readLines)->Name("read/limit_lines")->Unit(benchmark::kMillisecond);

// The bytes of the wide file in place of the old ones, from one place in memory.
void writeBytes(benchmark::State& state) {
  MIniFile ini;
  ini.ReadFromFile(files().wide("in.ini").c_str(), 0);
  ini.WriteToFile(files().wide("limit.ini").c_str(), nullptr);
  const std::string name = files().native("limit_u.ini");
  const auto size = std::filesystem::file_size(name);
  const std::string piece(1 << 17, 'x');
  for (auto _ : state) {
    std::ofstream file(name, std::ios::binary);
    for (std::uintmax_t done = 0; done < size; done += piece.size()) {
      const auto part = std::min<std::uintmax_t>(piece.size(), size - done);
      file.write(piece.data(), static_cast<std::streamsize>(part));
    }
    if (!file) state.SkipWithError("unwritten");
  }
  count(state);
}
BENCHMARK(writeBytes)->Name("write/limit_write")->Unit(benchmark::kMillisecond);

}  // namespace
