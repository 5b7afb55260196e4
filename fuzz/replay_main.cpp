// Feeds every seed of a fuzz target to it once, so that the ordinary test run replays all findings,
// and then, where a number is given, that many damaged copies of them.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Input = std::vector<std::uint8_t>;

std::vector<std::filesystem::path> filesIn(const char* folder) {
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) paths.push_back(entry.path());
  }
  std::ranges::sort(paths);
  return paths;
}

// A few bytes become limits or chance; now and then the end is cut or a piece stands twice.
void damage(Input& input, std::mt19937& random) {
  constexpr std::array<std::uint8_t, 6> limits = {0, 1, 0x7F, 0x80, 0xFE, 0xFF};
  const auto below = [&](std::size_t n) { return n == 0 ? 0 : random() % n; };
  for (auto left = 1 + below(6); left > 0 && !input.empty(); --left) {
    input[below(input.size())] =
        below(2) == 0 ? limits[below(limits.size())] : static_cast<std::uint8_t>(random());
  }
  if (below(8) == 0) input.resize(below(input.size()));
  if (below(8) == 0) {
    const auto begin = static_cast<std::ptrdiff_t>(below(input.size()));
    const Input piece(input.begin() + begin, input.end());
    input.insert(input.begin() + static_cast<std::ptrdiff_t>(below(input.size())), piece.begin(),
                 piece.end());
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<Input> seeds;
  for (const auto& path : filesIn(argc > 1 ? argv[1] : ".")) {
    std::ifstream file(path, std::ios::binary);
    const Input& seed =
        seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    std::fprintf(stderr, "%s\n", path.c_str());
    LLVMFuzzerTestOneInput(seed.data(), seed.size());
  }
  std::printf("%zu seeds replayed\n", seeds.size());
  if (seeds.empty()) return 1;
  const long copies = argc > 2 ? std::strtol(argv[2], nullptr, 10) : 0;
  std::mt19937 random(20260101);  // the same copies in every run
  for (long i = 0; i < copies; ++i) {
    Input input = seeds[static_cast<std::size_t>(i) % seeds.size()];
    damage(input, random);
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::printf("%ld damaged copies tried\n", copies);
  return 0;
}
