// Splitting 1,000,000 path names into drive, directory, file and extension: 10,000 names, each a
// hundred times, so that it is the splitting that is measured and not the memory.
//
// Folders: a listing of 100,000 entries, with the mapped names of a hundred; the removal of a tree
// of 20,000 files; 10,000 folders under names that the file system refuses.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "qelbase/outside/system/names.h"
#include "qelbase/paths/MDirectoryWithMap.h"
#include "qelbase/paths/MFileName.h"
#include "qelbase/paths/path_functions.h"

#ifdef HAVE_POCO
#include <Poco/Path.h>
#endif

namespace {

constexpr std::size_t kPaths = 10'000;
constexpr int kRounds = 100;

// Absolute names on drives for the most part, some on shares, some relative, some folders; one to
// eight directories deep, with names of 3 to 14 characters.
std::vector<std::string> makePaths(char separator) {
  std::mt19937 random(42);
  const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
  const std::string letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_- ";
  const std::string extensions[] = {".txt", ".stl", ".part", ".ini", ".tmp", ".3mf", "", ".tar.gz"};
  const auto name = [&] {
    std::string text(3 + below(12), 'x');
    for (char& c : text) c = letters[below(static_cast<unsigned>(letters.size()))];
    return text;
  };
  std::vector<std::string> paths(kPaths);
  for (std::string& path : paths) {
    const unsigned kind = below(10);
    if (kind < 7) path = std::string{static_cast<char>('C' + below(4)), ':'} + separator;
    if (kind == 7) path = std::string(2, separator) + name() + separator;
    for (unsigned depth = 1 + below(8); depth > 0; --depth) path += name() + separator;
    if (below(20) != 0) path += name() + extensions[below(8)];
  }
  return paths;
}

const std::vector<std::string>& narrowPaths(char separator) {
  static const std::vector<std::string> slashes = makePaths('/'), backslashes = makePaths('\\');
  return separator == '/' ? slashes : backslashes;
}

const std::vector<std::wstring>& widePaths() {
  static const std::vector<std::wstring> paths = [] {
    std::vector<std::wstring> wide;
    for (const std::string& path : narrowPaths('\\')) wide.emplace_back(path.begin(), path.end());
    return wide;
  }();
  return paths;
}

template <class Paths, class Split>
void splitAll(benchmark::State& state, const Paths& paths, Split split) {
  std::size_t characters = 0;
  for (auto _ : state) {
    for (int round = 0; round < kRounds; ++round) {
      for (const auto& path : paths) characters += split(path);
    }
  }
  benchmark::DoNotOptimize(characters);
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kRounds * paths.size()));
}

void splitOurs(benchmark::State& state) {
  std::wstring drive, dir, file, ext;
  splitAll(state, widePaths(), [&](const std::wstring& path) {
    POSITION_PATH_PARTS(path, drive, dir, file, ext, false);
    return drive.size() + dir.size() + file.size() + ext.size();
  });
}

// The same four parts, by the peer's own rules for paths; with `/`, the one separator that it knows
// on this platform.
void splitBoost(benchmark::State& state) {
  splitAll(state, narrowPaths('/'), [](const std::string& text) {
    const boost::filesystem::path path(text);
    return path.root_path().size() + path.relative_path().parent_path().size() +
           path.stem().size() + path.extension().size();
  });
}

void setOurs(benchmark::State& state) {
  MFileName name;
  splitAll(state, widePaths(), [&](const std::wstring& path) {
    name.SET(path.c_str(), false);
    return static_cast<std::size_t>(name.GET_FILE_PART()[0]);
  });
}

#ifdef HAVE_POCO
// The directories stay the list of names that the peer keeps.
void splitPoco(benchmark::State& state) {
  splitAll(state, narrowPaths('\\'), [](const std::string& text) {
    const Poco::Path path(text, Poco::Path::PATH_WINDOWS);
    return path.getDevice().size() + path.getNode().size() +
           static_cast<std::size_t>(path.depth()) + path.getBaseName().size() +
           path.getExtension().size();
  });
}
BENCHMARK(splitPoco)->Name("split/POCO")->UseRealTime()->Unit(benchmark::kMillisecond);
#endif

// --- folders -----------------------------------------------------------------------------------

namespace fs = std::filesystem;

class Folder {
 public:
  Folder() {
    std::string pattern = (fs::temp_directory_path() / "qelbench.XXXXXX").string();
    path = mkdtemp(pattern.data());
  }
  ~Folder() { fs::remove_all(path); }
  std::wstring wide() const { return qel::sys::FromNative(path.native()); }

  fs::path path;
};

void makeFile(const fs::path& path) {
  ::close(::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
}

const Folder& largeFolder() {
  static const Folder folder;
  static const bool filled = [] {
    std::ofstream map(folder.path / ".map");
    for (int i = 0; i < 100'000; ++i) {
      const std::string name = "entry_" + std::to_string(i * 7919 % 100'000);
      makeFile(folder.path / name);
      if (i % 1000 == 0) map << "\n" << name << "->wanted name " << i;
    }
    return true;
  }();
  (void)filled;
  return folder;
}

void listOurs(benchmark::State& state) {
  const std::wstring folder = largeFolder().wide();
  MDirectoryWithMap map;
  for (auto _ : state) {
    if (map.Read(folder.c_str(), 13, nullptr, nullptr, nullptr) != 0) std::abort();
    if (map.GetCount() != 100'000) std::abort();
  }
}

void listStandard(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<std::pair<std::wstring, bool>> entries;
    for (const auto& entry : fs::directory_iterator(largeFolder().path)) {
      entries.emplace_back(entry.path().filename().wstring(), entry.is_directory());
    }
    benchmark::DoNotOptimize(entries.data());
  }
}

void listReaddir(benchmark::State& state) {
  for (auto _ : state) {
    DIR* folder = opendir(largeFolder().path.c_str());
    std::vector<std::string> names;
    while (const dirent* entry = readdir(folder)) names.emplace_back(entry->d_name);
    closedir(folder);
    benchmark::DoNotOptimize(names.data());
  }
}

void makeTree(const fs::path& root) {
  for (int i = 0; i < 200; ++i) {
    const fs::path sub = root / ("sub" + std::to_string(i));
    fs::create_directories(sub);
    for (int j = 0; j < 100; ++j) makeFile(sub / ("file" + std::to_string(j)));
  }
}

template <class Remove>
void removeTree(benchmark::State& state, Remove remove) {
  const Folder folder;
  for (auto _ : state) {
    state.PauseTiming();
    makeTree(folder.path / "tree");
    state.ResumeTiming();
    remove(folder);
    if (fs::exists(folder.path / "tree")) std::abort();
  }
}

void removeOurs(benchmark::State& state) {
  removeTree(state, [](const Folder& folder) {
    MDirectoryWithMap map;
    CStringW path = folder.wide();
    map.DeleteFolder(path, L"tree", false, nullptr);
  });
}
void removeStandard(benchmark::State& state) {
  removeTree(state, [](const Folder& folder) { fs::remove_all(folder.path / "tree"); });
}
void removeByTool(benchmark::State& state) {
  removeTree(state, [](const Folder& folder) {
    const std::string command = "rm -rf '" + (folder.path / "tree").string() + "'";
    if (std::system(command.c_str()) != 0) std::abort();
  });
}

// 10,000 refused names made by one object; the bound makes as many folders.
void createOurs(benchmark::State& state) {
  for (auto _ : state) {
    const Folder folder;
    MDirectoryWithMap map;
    for (int i = 0; i < 10'000; ++i) {
      CStringW path = folder.wide() + L"\\";
      const std::wstring name = L"wanted?" + std::to_wstring(i);
      if (map.CheckCreateFolder(path, name.c_str(), i == 0) != 0) std::abort();
      if (!map.MappedName2Name(name.c_str(), nullptr)) std::abort();
    }
    state.PauseTiming();
    fs::remove_all(folder.path);
    state.ResumeTiming();
  }
}
void createLimit(benchmark::State& state) {
  for (auto _ : state) {
    const Folder folder;
    for (int i = 0; i < 10'000; ++i) ::mkdir((folder.path / std::to_string(i)).c_str(), 0777);
    state.PauseTiming();
    fs::remove_all(folder.path);
    state.ResumeTiming();
  }
}

#define FOLDER_BENCHMARK(function, name) \
  BENCHMARK(function)->Name(name)->UseRealTime()->Unit(benchmark::kMillisecond)
FOLDER_BENCHMARK(listOurs, "list_100000/ours");
FOLDER_BENCHMARK(listStandard, "list_100000/std::filesystem");
FOLDER_BENCHMARK(listReaddir, "list_100000/limit_readdir");
FOLDER_BENCHMARK(removeOurs, "remove_tree/ours");
FOLDER_BENCHMARK(removeStandard, "remove_tree/std::filesystem");
FOLDER_BENCHMARK(removeByTool, "remove_tree/rm -rf");
FOLDER_BENCHMARK(createOurs, "create_mapped_10000/ours");
FOLDER_BENCHMARK(createLimit, "create_mapped_10000/limit_mkdir");

BENCHMARK(splitOurs)->Name("split/ours")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(splitBoost)->Name("split/Boost")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(setOurs)->Name("set_and_get/ours")->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
