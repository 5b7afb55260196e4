// The buffered file beside stdio and the bare system calls, on a memory file system.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qelbase/outside/components/MFile.h"

namespace {

const std::string folder = "/dev/shm/";
const std::string small_file = folder + "qel_outside_small";
const std::string large_file = folder + "qel_outside_large";
const std::string target_file = folder + "qel_outside_target";

struct Load {
  std::string file;
  long records;
  std::int32_t body;
  std::int64_t bytes() const { return records * (12L + body); }
};
const Load small_load{small_file, 1000000, 64};
const Load large_load{large_file, 10000, 105 * 1024};

std::wstring wideName(const std::string& name) {
  return L"C:" + std::wstring(name.begin(), name.end());
}

// What the tag writer does: a header with an open length, the body, the length patched in.
void writeRecords(const Load& load) {
  MFile file;
  if (!file.OPEN_WRITE(wideName(load.file).c_str())) std::abort();
  const std::vector<char> body(static_cast<std::size_t>(load.body), 'b');
  const unsigned char version[2] = {1, 0};
  for (long i = 0; i < load.records; ++i) {
    const std::int64_t start = file.TELL();
    std::int32_t skip = 0;
    file.WRITE("RECORD", 6);
    file.WRITE(version, 1);
    file.WRITE(version + 1, 1);
    file.WRITE(&skip, 1);
    file.WRITE(body.data(), body.size());
    skip = load.body;
    file.OVERWRITE(start + 8, &skip, 4);
  }
  file.CLOSE();
  if (file.GET_RESULT() != 0) std::abort();
}

// The same with the moves that any file class has: back to the header, all of it again, forward.
void rewriteHeaders(const Load& load) {
  MFile file;
  if (!file.OPEN_WRITE(wideName(load.file).c_str())) std::abort();
  const std::vector<char> body(static_cast<std::size_t>(load.body), 'b');
  const auto header = [&file](std::int32_t skip) {
    const unsigned char version[2] = {1, 0};
    file.WRITE("RECORD", 6);
    file.WRITE(version, 1);
    file.WRITE(version + 1, 1);
    file.WRITE(&skip, 1);
  };
  for (long i = 0; i < load.records; ++i) {
    const std::int64_t start = file.TELL();
    header(0);
    file.WRITE(body.data(), body.size());
    const std::int64_t end = file.TELL();
    file.SEEK(start, 0);
    header(load.body);
    file.SEEK(end, 0);
  }
  file.CLOSE();
  if (file.GET_RESULT() != 0) std::abort();
}

void writeRecordsStdio(const Load& load) {
  FILE* file = std::fopen(load.file.c_str(), "wb");
  std::setvbuf(file, nullptr, _IOFBF, 262144);
  const std::vector<char> body(static_cast<std::size_t>(load.body), 'b');
  for (long i = 0; i < load.records; ++i) {
    const long start = std::ftell(file);
    std::int32_t skip = 0;
    std::fwrite("RECORD\1\0", 1, 8, file);
    std::fwrite(&skip, 4, 1, file);
    std::fwrite(body.data(), 1, body.size(), file);
    const long end = std::ftell(file);
    skip = load.body;
    std::fseek(file, start, SEEK_SET);
    std::fwrite("RECORD\1\0", 1, 8, file);
    std::fwrite(&skip, 4, 1, file);
    std::fseek(file, end, SEEK_SET);
  }
  std::fclose(file);
}

void writeBare(const Load& load) {
  const int fd = ::open(load.file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  const std::vector<char> piece(262144, 'b');
  for (std::int64_t left = load.bytes(); left > 0;) {
    left -=
        ::write(fd, piece.data(), static_cast<std::size_t>(std::min<std::int64_t>(left, 262144)));
  }
  ::close(fd);
}

struct Node {
  std::int64_t position;
  std::int32_t skip;
  char name[7];
};

std::size_t listRecords(const Load& load, std::vector<Node>& nodes) {
  MFile file;
  if (!file.OPEN_READ(wideName(load.file).c_str())) std::abort();
  nodes.clear();
  Node node{};
  unsigned char version[2];
  for (;;) {
    if (file.READ(node.name, 6) != 6 || file.READ(version, 1) != 1 ||
        file.READ(version + 1, 1) != 1 || file.READ(&node.skip, 1) != 1) {
      break;
    }
    node.position = file.TELL();
    nodes.push_back(node);
    file.SKIP(node.skip);
  }
  return nodes.size();
}

std::size_t listRecordsStdio(const Load& load, std::vector<Node>& nodes) {
  FILE* file = std::fopen(load.file.c_str(), "rb");
  std::setvbuf(file, nullptr, _IOFBF, 262144);
  nodes.clear();
  Node node{};
  unsigned char version[2];
  while (std::fread(node.name, 1, 6, file) == 6 && std::fread(version, 1, 2, file) == 2 &&
         std::fread(&node.skip, 4, 1, file) == 1) {
    node.position = std::ftell(file);
    nodes.push_back(node);
    std::fseek(file, node.skip, SEEK_CUR);
  }
  std::fclose(file);
  return nodes.size();
}

void readBare(const Load& load) {
  const int fd = ::open(load.file.c_str(), O_RDONLY);
  std::vector<char> piece(262144);
  while (::read(fd, piece.data(), piece.size()) > 0) benchmark::ClobberMemory();
  ::close(fd);
}

void preadHeaders(const Load& load) {
  const int fd = ::open(load.file.c_str(), O_RDONLY);
  char header[12];
  std::int64_t position = 0;
  while (::pread(fd, header, 12, position) == 12) {
    std::int32_t skip = 0;
    std::memcpy(&skip, header + 8, 4);
    position += 12 + skip;
  }
  ::close(fd);
}

void copyOurs() {
  MFile from;
  MFile to;
  if (!from.OPEN_READ(wideName(large_file).c_str()) ||
      !to.OPEN_WRITE(wideName(target_file).c_str())) {
    std::abort();
  }
  if (to.COPY(from) != large_load.bytes()) std::abort();
}

void copyKernel() {
  const int from = ::open(large_file.c_str(), O_RDONLY);
  const int to = ::open(target_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  while (::copy_file_range(from, nullptr, to, nullptr, 1U << 30, 0) > 0) {
  }
  ::close(from);
  ::close(to);
}

// Each case makes the file it reads anew, as the case before may have left other bytes in it.
template <typename Run>
void add(const char* name, const Load& load, bool reads, Run run) {
  benchmark::RegisterBenchmark(
      name,
      [run, &load, reads](benchmark::State& state) {
        if (reads) writeRecords(load);
        ::unlink(target_file.c_str());
        if (!reads) ::unlink(load.file.c_str());
        for (auto _ : state) run();
        state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * load.bytes());
      })
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

const bool registered = [] {
  static std::vector<Node> nodes;
  add("write_small/ours", small_load, false, [] { writeRecords(small_load); });
  add("rewrite_small/ours", small_load, false, [] { rewriteHeaders(small_load); });
  add("rewrite_small/limit_write", small_load, false, [] { writeBare(small_load); });
  add("write_small/stdio", small_load, false, [] { writeRecordsStdio(small_load); });
  add("write_small/limit_write", small_load, false, [] { writeBare(small_load); });
  add("list_small/ours", small_load, true, [] { listRecords(small_load, nodes); });
  add("list_small/stdio", small_load, true, [] { listRecordsStdio(small_load, nodes); });
  add("list_small/limit_read", small_load, true, [] { readBare(small_load); });
  add("write_large/ours", large_load, false, [] { writeRecords(large_load); });
  add("write_large/limit_write", large_load, false, [] { writeBare(large_load); });
  add("list_large/ours", large_load, true, [] { listRecords(large_load, nodes); });
  add("list_large/stdio", large_load, true, [] { listRecordsStdio(large_load, nodes); });
  add("list_large/limit_pread", large_load, true, [] { preadHeaders(large_load); });
  add("copy_large/ours", large_load, true, [] { copyOurs(); });
  add("copy_large/limit_copy_file_range", large_load, true, [] { copyKernel(); });
  std::atexit([] {
    for (const Load* load : {&small_load, &large_load}) ::unlink(load->file.c_str());
    ::unlink(target_file.c_str());
  });
  return true;
}();

}  // namespace
