// Opening a key four levels deep and reading a value, and writing one, beside bare stores; from one
// thread, from eight, and from two processes.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "qelbase/outside/system/registry.h"
#include "qelbase/outside/system/registry_internal.h"

#ifdef HAVE_LMDB
#include <lmdb.h>
#endif

using namespace qel::sys;

namespace {

constexpr const wchar_t* kPath = L"Software\\Company\\Product\\1.0";
constexpr const char* kNames[] = {"software", "company", "product", "1.0"};

struct Folder {
  std::filesystem::path path;
  Folder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qelbench.XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no folder");
    path = pattern;
  }
  ~Folder() { std::filesystem::remove_all(path); }
};

// --- ours ---

struct Ours {
  Folder folder;
  Ours() {
    registry::UseRegistryFolder(folder.path.string());
    HKEY key = nullptr;
    RegCreateKeyW(HKEY_CURRENT_USER, kPath, &key);
    RegSetValueExW(key, L"value", 0, REG_DWORD, "1234", 4);
    RegCloseKey(key);
  }
};

void readOurs(benchmark::State& state) {
  static std::unique_ptr<Ours> ours;
  if (state.thread_index() == 0) ours = std::make_unique<Ours>();
  for (auto _ : state) {
    HKEY key = nullptr;
    char data[4];
    DWORD size = sizeof data;
    RegOpenKeyExW(HKEY_CURRENT_USER, kPath, 0, KEY_READ, &key);
    if (RegQueryValueExW(key, L"value", nullptr, nullptr, data, &size) != 0) {
      state.SkipWithError("missing");
    }
    RegCloseKey(key);
    benchmark::DoNotOptimize(data);
  }
}
BENCHMARK(readOurs)->Name("read_four_deep/ours")->UseRealTime();
BENCHMARK(readOurs)->Name("read_four_deep_by_8/ours")->Threads(8)->UseRealTime();

constexpr bool kDurable = true;

void writeOurs(benchmark::State& state, bool durable) {
  const Ours ours;
  HKEY key = nullptr;
  RegOpenKeyW(HKEY_CURRENT_USER, kPath, &key);
  for (std::uint32_t i = 0; auto _ : state) {
    ++i;
    if (RegSetValueExW(key, L"value", 0, REG_DWORD, &i, sizeof i) != 0 ||
        (durable && RegFlushKey(key) != 0)) {
      state.SkipWithError("unwritten");
    }
  }
  RegCloseKey(key);
}
BENCHMARK_CAPTURE(writeOurs, plain, !kDurable)->Name("write/ours")->UseRealTime();
BENCHMARK_CAPTURE(writeOurs, durable, kDurable)->Name("write_durable/ours")->UseRealTime();

// Two processes write side by side; an iteration is kWrites of each.
constexpr int kWrites = 500;

template <typename Write>
void inTwoProcesses(benchmark::State& state, Write write) {
  for (auto _ : state) {
    const pid_t child = fork();
    if (child == 0) {
      write();
      _exit(0);
    }
    write();
    waitpid(child, nullptr, 0);
  }
}

void writeByTwoOurs(benchmark::State& state) {
  const Ours ours;
  inTwoProcesses(state, [] {
    HKEY key = nullptr;
    RegOpenKeyW(HKEY_CURRENT_USER, kPath, &key);
    for (int i = 0; i < kWrites; ++i) RegSetValueExW(key, L"value", 0, REG_DWORD, &i, sizeof i);
    RegCloseKey(key);
  });
}
BENCHMARK(writeByTwoOurs)->Name("write_500_by_2/ours")->UseRealTime();

// --- bare SQLite ---

struct Bare {
  Folder folder;
  sqlite3* database = nullptr;
  sqlite3_stmt *child = nullptr, *value = nullptr, *write = nullptr;
  explicit Bare(bool durable = false) {
    sqlite3_open((folder.path / "bare").c_str(), &database);
    run("PRAGMA journal_mode=WAL");
    run(durable ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
    run("CREATE TABLE k(id INTEGER PRIMARY KEY, parent, name, UNIQUE(parent, name))");
    run("CREATE TABLE v(key, name, data, PRIMARY KEY(key, name)) WITHOUT ROWID");
    for (int i = 0; i < 4; ++i) {
      run(("INSERT INTO k VALUES(" + std::to_string(i + 2) + "," + std::to_string(i + 1) + ",'" +
           kNames[i] + "')")
              .c_str());
    }
    run("INSERT INTO v VALUES(5, 'value', 1234)");
    prepare("SELECT id FROM k WHERE parent=? AND name=?", child);
    prepare("SELECT data FROM v WHERE key=? AND name='value'", value);
    prepare("INSERT INTO v VALUES(5,'value',?) ON CONFLICT DO UPDATE SET data=excluded.data",
            write);
  }
  ~Bare() {
    for (sqlite3_stmt* statement : {child, value, write}) sqlite3_finalize(statement);
    sqlite3_close(database);
  }
  void run(const char* sql) { sqlite3_exec(database, sql, nullptr, nullptr, nullptr); }
  void prepare(const char* sql, sqlite3_stmt*& out) {
    sqlite3_prepare_v2(database, sql, -1, &out, nullptr);
  }
};

void readBare(benchmark::State& state) {
  const Bare bare;
  for (auto _ : state) {
    sqlite3_int64 id = 1;
    for (const char* name : kNames) {
      sqlite3_bind_int64(bare.child, 1, id);
      sqlite3_bind_text(bare.child, 2, name, -1, SQLITE_STATIC);
      sqlite3_step(bare.child);
      id = sqlite3_column_int64(bare.child, 0);
      sqlite3_reset(bare.child);
    }
    sqlite3_bind_int64(bare.value, 1, id);
    if (sqlite3_step(bare.value) != SQLITE_ROW) state.SkipWithError("missing");
    benchmark::DoNotOptimize(sqlite3_column_int64(bare.value, 0));
    sqlite3_reset(bare.value);
  }
}
BENCHMARK(readBare)->Name("read_four_deep/SQLite")->UseRealTime();

void writeBare(benchmark::State& state, bool durable) {
  const Bare bare(durable);
  for (int i = 0; auto _ : state) {
    sqlite3_bind_int(bare.write, 1, ++i);
    sqlite3_step(bare.write);
    sqlite3_reset(bare.write);
  }
}
BENCHMARK_CAPTURE(writeBare, plain, !kDurable)->Name("write/SQLite")->UseRealTime();
BENCHMARK_CAPTURE(writeBare, durable, kDurable)->Name("write_durable/SQLite")->UseRealTime();

void writeByTwoBare(benchmark::State& state) {
  const Bare bare;
  const std::string file = bare.folder.path / "bare";
  inTwoProcesses(state, [&] {
    sqlite3* database = nullptr;
    sqlite3_stmt* write = nullptr;
    sqlite3_open(file.c_str(), &database);
    sqlite3_busy_timeout(database, 10'000);
    sqlite3_exec(database, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
    sqlite3_prepare_v2(
        database, "INSERT INTO v VALUES(5,'value',?) ON CONFLICT DO UPDATE SET data=excluded.data",
        -1, &write, nullptr);
    for (int i = 0; i < kWrites; ++i) {
      sqlite3_bind_int(write, 1, i);
      sqlite3_step(write);
      sqlite3_reset(write);
    }
    sqlite3_finalize(write);
    sqlite3_close(database);
  });
}
BENCHMARK(writeByTwoBare)->Name("write_500_by_2/SQLite")->UseRealTime();

#ifdef HAVE_LMDB
struct Lmdb {
  Folder folder;
  MDB_env* env = nullptr;
  MDB_dbi table = 0;
  std::string path;
  Lmdb() {
    mdb_env_create(&env);
    mdb_env_open(env, folder.path.c_str(), MDB_NOSYNC, 0600);
    for (const char* name : kNames) path += std::string(name) + "\\";
    path += "value";
    MDB_val key{path.size(), path.data()}, data{4, path.data()};
    MDB_txn* txn = nullptr;
    mdb_txn_begin(env, nullptr, 0, &txn);
    mdb_dbi_open(txn, nullptr, MDB_CREATE, &table);
    mdb_put(txn, table, &key, &data, 0);
    mdb_txn_commit(txn);
  }
  ~Lmdb() { mdb_env_close(env); }
};

void readLmdb(benchmark::State& state) {
  static std::unique_ptr<Lmdb> lmdb;
  if (state.thread_index() == 0) lmdb = std::make_unique<Lmdb>();
  for (auto _ : state) {
    MDB_txn* txn = nullptr;
    MDB_val key{lmdb->path.size(), lmdb->path.data()}, data{};
    mdb_txn_begin(lmdb->env, nullptr, MDB_RDONLY, &txn);
    if (mdb_get(txn, lmdb->table, &key, &data) != 0) state.SkipWithError("missing");
    benchmark::DoNotOptimize(data.mv_data);
    mdb_txn_abort(txn);
  }
}
BENCHMARK(readLmdb)->Name("read_four_deep/LMDB")->UseRealTime();
BENCHMARK(readLmdb)->Name("read_four_deep_by_8/LMDB")->Threads(8)->UseRealTime();
#endif

}  // namespace
