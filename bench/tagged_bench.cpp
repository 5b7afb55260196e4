// Tagged files under two loads, a million records of 64 bytes and ten thousand of 105 KiB: writing
// them, opening and listing them, and rewriting one of them while the rest is kept. All on a memory
// file system. What a case leaves behind or needs beforehand is not timed.
//
// The limits move the same bytes without a thought: write() and read() of the whole file in pieces
// of the library's buffer, pread() of each header, copy_file_range() of the whole file, to take the
// place of the old one.
//
// A third load has 100,000 records: opening it and going through it with NEXT_TAG, or with FIND_TAG
// asking for each record's name behind the one before, and writing every record of it anew.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#ifdef HAVE_HDF5
#include <hdf5.h>
#endif
#ifdef HAVE_LMDB
#include <lmdb.h>
#endif
#ifdef HAVE_LIBZIP
#include <zip.h>
#endif

#include "qelbase/tagged/MFileTagged.h"

namespace {

struct Load {
  const char* name;
  int records;
  std::size_t body;
  std::int64_t bytes() const {
    return 12 + static_cast<std::int64_t>(records) * (12 + static_cast<std::int64_t>(body));
  }
};

constexpr Load small_load = {"small", 1000000, 64};
constexpr Load large_load = {"large", 10000, std::size_t{105} * 1024};
constexpr Load loop_load = {"loop", 100000, 64};
constexpr std::size_t piece = 262144;
constexpr int names = 1000;

const std::string folder = "/dev/shm/qelbase-bench-" + std::to_string(getpid());
const std::string content = [] {
  std::string bytes(1 << 20, '\0');
  unsigned state = 1;
  for (char& byte : bytes) byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
  return bytes;
}();

const char* bodyOf(const Load& load, int record) {
  return content.data() + static_cast<std::size_t>(record) * 64 % (content.size() - load.body);
}

// "R00000" to "R00999" and again.
void nameOf(int record, char (&name)[7]) {
  int number = record % names;
  name[0] = 'R';
  for (int i = 5; i > 0; --i, number /= 10) name[i] = static_cast<char>('0' + number % 10);
  name[6] = '\0';
}

void check(bool sound, const char* what) {
  if (!sound) throw std::runtime_error(what);
}

std::string pathOf(const Load& load, const char* kind) {
  return folder + "/" + load.name + "." + kind;
}

std::wstring wide(const std::string& path) {
  return std::wstring(path.begin(), path.end());
}

// --- ours --------------------------------------------------------------------------------------

void writeRecord(MFileTagged& file, const Load& load, int record) {
  char name[7];
  nameOf(record, name);
  MTag tag(name);
  file.WRITE_TAG_BEGIN(tag);
  file.WRITE(bodyOf(load, record), load.body);
  file.WRITE_TAG_END(tag);
}

void writeOurs(const Load& load) {
  MFileTagged file;
  check(file.OPEN_WRITE(wide(pathOf(load, "qel")).c_str()), "OPEN_WRITE");
  for (int i = 0; i < load.records; ++i) writeRecord(file, load, i);
  file.CLOSE();
  check(file.GET_RESULT() == 0, "CLOSE");
}

void listOurs(const Load& load) {
  MFileTagged file;
  check(file.OPEN_READ(wide(pathOf(load, "qel")).c_str()), "OPEN_READ");
  int count = 0;
  for (MTag* tag = nullptr; (tag = file.NEXT_TAG(tag, false));) ++count;
  check(count == load.records, "records");
}

void rewriteOurs(const Load& load) {
  MFileTagged file;
  check(file.OPEN_WRITE(wide(pathOf(load, "qel")).c_str()), "OPEN_WRITE");
  writeRecord(file, load, names / 2);
  file.CLOSE();
  check(file.GET_RESULT() == 0, "CLOSE");
}

void findOurs(const Load& load) {
  MFileTagged file;
  check(file.OPEN_READ(wide(pathOf(load, "qel")).c_str()), "OPEN_READ");
  MTag* found = nullptr;
  for (int i = 0; i < load.records; ++i) {
    char name[7];
    nameOf(i, name);
    MTag tag(name);
    found = file.FIND_TAG(found, tag, 0, true);
    check(found != nullptr, "FIND_TAG");
  }
}

// --- limits ------------------------------------------------------------------------------------

void writeLimit(const Load& load) {
  const int fd = open(pathOf(load, "raw").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  for (std::int64_t left = load.bytes(); left > 0;) {
    const ssize_t done =
        write(fd, content.data(), static_cast<std::size_t>(std::min<std::int64_t>(left, piece)));
    check(done > 0, "write");
    left -= done;
  }
  close(fd);
}

void readLimit(const Load& load) {
  std::vector<char> buffer(piece);
  const int fd = open(pathOf(load, "qel").c_str(), O_RDONLY);
  while (read(fd, buffer.data(), buffer.size()) > 0) benchmark::DoNotOptimize(buffer.data());
  close(fd);
}

void preadLimit(const Load& load) {
  char header[12];
  const int fd = open(pathOf(load, "qel").c_str(), O_RDONLY);
  off_t position = 12;
  for (int i = 0; i < load.records; ++i) {
    check(pread(fd, header, sizeof header, position) == sizeof header, "pread");
    benchmark::DoNotOptimize(header);
    position += static_cast<off_t>(12 + load.body);
  }
  close(fd);
}

void copyLimit(const Load& load) {
  const int from = open(pathOf(load, "qel").c_str(), O_RDONLY);
  const int to = open(pathOf(load, "raw").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  ssize_t done = 1;
  while (done > 0) done = copy_file_range(from, nullptr, to, nullptr, std::size_t{1} << 30, 0);
  check(done == 0, "copy_file_range");
  close(from);
  close(to);
  std::filesystem::rename(pathOf(load, "raw"), pathOf(load, "qel"));
}

// --- LMDB --------------------------------------------------------------------------------------

#ifdef HAVE_LMDB
class Lmdb {
 public:
  Lmdb(const Load& load, unsigned flags) {
    check(mdb_env_create(&m_env) == 0, "mdb_env_create");
    mdb_env_set_mapsize(m_env, std::size_t{4} << 30);
    check(mdb_env_open(m_env, pathOf(load, "mdb").c_str(),
                       MDB_NOSUBDIR | MDB_NOSYNC | MDB_NOLOCK | flags, 0600) == 0,
          "mdb_env_open");
    const bool reading = (flags & MDB_RDONLY) != 0;
    mdb_txn_begin(m_env, nullptr, reading ? MDB_RDONLY : 0, &m_txn);
    check(mdb_dbi_open(m_txn, nullptr, MDB_INTEGERKEY, &m_dbi) == 0, "mdb_dbi_open");
    mdb_cursor_open(m_txn, m_dbi, &m_cursor);
  }
  ~Lmdb() {
    mdb_cursor_close(m_cursor);
    check(mdb_txn_commit(m_txn) == 0, "mdb_txn_commit");
    mdb_env_close(m_env);
  }
  void put(std::size_t key, const void* data, std::size_t size) {
    MDB_val k{sizeof key, &key};
    MDB_val v{size, const_cast<void*>(data)};
    check(mdb_cursor_put(m_cursor, &k, &v, MDB_APPEND) == 0, "mdb_cursor_put");
  }
  int count() {
    MDB_val k{};
    MDB_val v{};
    int found = 0;
    while (mdb_cursor_get(m_cursor, &k, &v, MDB_NEXT) == 0) found += v.mv_size > 0;
    return found;
  }

 private:
  MDB_env* m_env = nullptr;
  MDB_txn* m_txn = nullptr;
  MDB_dbi m_dbi = 0;
  MDB_cursor* m_cursor = nullptr;
};

void writeLmdb(const Load& load) {
  Lmdb base(load, MDB_WRITEMAP);
  for (int i = 0; i < load.records; ++i) {
    base.put(static_cast<std::size_t>(i), bodyOf(load, i), load.body);
  }
}

void listLmdb(const Load& load) {
  check(Lmdb(load, MDB_RDONLY).count() == load.records, "LMDB records");
}
#endif

// --- SQLite ------------------------------------------------------------------------------------

class Sqlite {
 public:
  explicit Sqlite(const Load& load) {
    check(sqlite3_open(pathOf(load, "sqlite").c_str(), &m_base) == SQLITE_OK, "sqlite3_open");
    run("PRAGMA journal_mode=OFF");
    run("PRAGMA synchronous=OFF");
  }
  ~Sqlite() { sqlite3_close(m_base); }
  void run(const char* text) {
    check(sqlite3_exec(m_base, text, nullptr, nullptr, nullptr) == SQLITE_OK, text);
  }
  sqlite3_stmt* prepare(const char* text) {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(m_base, text, -1, &statement, nullptr) == SQLITE_OK, text);
    return statement;
  }

 private:
  sqlite3* m_base = nullptr;
};

void writeSqlite(const Load& load) {
  Sqlite base(load);
  base.run("CREATE TABLE record (id INTEGER PRIMARY KEY, body BLOB)");
  base.run("BEGIN");
  sqlite3_stmt* insert = base.prepare("INSERT INTO record (body) VALUES (?)");
  for (int i = 0; i < load.records; ++i) {
    sqlite3_bind_blob(insert, 1, bodyOf(load, i), static_cast<int>(load.body), SQLITE_STATIC);
    check(sqlite3_step(insert) == SQLITE_DONE, "insert");
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  base.run("COMMIT");
}

void listSqlite(const Load& load) {
  Sqlite base(load);
  sqlite3_stmt* select = base.prepare("SELECT id, length(body) FROM record");
  int count = 0;
  while (sqlite3_step(select) == SQLITE_ROW) count += sqlite3_column_int(select, 1) > 0;
  sqlite3_finalize(select);
  check(count == load.records, "SQLite records");
}

// --- libzip, stored ----------------------------------------------------------------------------

#ifdef HAVE_LIBZIP
void addZip(zip_t* archive, const Load& load, int record, zip_int64_t index) {
  zip_source_t* source = zip_source_buffer(archive, bodyOf(load, record), load.body, 0);
  if (index < 0) {
    index = zip_file_add(archive, std::to_string(record).c_str(), source, 0);
  } else {
    check(zip_file_replace(archive, static_cast<zip_uint64_t>(index), source, 0) == 0, "replace");
  }
  zip_set_file_compression(archive, static_cast<zip_uint64_t>(index), ZIP_CM_STORE, 0);
}

zip_t* openZip(const Load& load, int flags) {
  zip_t* archive = zip_open(pathOf(load, "zip").c_str(), flags, nullptr);
  check(archive != nullptr, "zip_open");
  return archive;
}

void writeZip(const Load& load) {
  zip_t* archive = openZip(load, ZIP_CREATE | ZIP_TRUNCATE);
  for (int i = 0; i < load.records; ++i) addZip(archive, load, i, -1);
  check(zip_close(archive) == 0, "zip_close");
}

void listZip(const Load& load) {
  zip_t* archive = openZip(load, ZIP_RDONLY);
  check(zip_get_num_entries(archive, 0) == load.records, "zip records");
  zip_discard(archive);
}

void rewriteZip(const Load& load) {
  zip_t* archive = openZip(load, 0);
  addZip(archive, load, names / 2, names / 2);
  check(zip_close(archive) == 0, "zip_close");
}
#endif

// --- HDF5 --------------------------------------------------------------------------------------

#ifdef HAVE_HDF5
void writeHdf5(const Load& load) {
  const hid_t file = H5Fcreate(pathOf(load, "h5").c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
  const hsize_t size = load.body;
  const hid_t space = H5Screate_simple(1, &size, nullptr);
  for (int i = 0; i < load.records; ++i) {
    const hid_t set = H5Dcreate2(file, std::to_string(i).c_str(), H5T_NATIVE_UCHAR, space,
                                 H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
    check(H5Dwrite(set, H5T_NATIVE_UCHAR, H5S_ALL, H5S_ALL, H5P_DEFAULT, bodyOf(load, i)) >= 0,
          "H5Dwrite");
    H5Dclose(set);
  }
  H5Sclose(space);
  check(H5Fclose(file) >= 0, "H5Fclose");
}

herr_t countLink(hid_t, const char*, const H5L_info_t*, void* count) {
  ++*static_cast<int*>(count);
  return 0;
}

void listHdf5(const Load& load) {
  const hid_t file = H5Fopen(pathOf(load, "h5").c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
  int count = 0;
  H5Literate(file, H5_INDEX_NAME, H5_ITER_NATIVE, nullptr, countLink, &count);
  H5Fclose(file);
  check(count == load.records, "HDF5 records");
}
#endif

// --- the cases ---------------------------------------------------------------------------------

using Step = std::function<void(const Load&)>;

struct Competitor {
  const char* name;
  const char* kind;  // of its file
  Step write, list, rewrite;
  bool large_only = false;
};

void add(const std::string& name, const Load& load, const Step& before, const Step& run,
         const Step& after, int repetitions) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [=, &load](benchmark::State& state) {
                                 try {
                                   for (auto _ : state) {
                                     std::filesystem::create_directory(folder);
                                     before(load);
                                     const auto begin = std::chrono::steady_clock::now();
                                     run(load);
                                     const std::chrono::duration<double> seconds =
                                         std::chrono::steady_clock::now() - begin;
                                     state.SetIterationTime(seconds.count());
                                     after(load);
                                   }
                                   state.SetBytesProcessed(state.iterations() * load.bytes());
                                 } catch (const std::exception& error) {
                                   state.SkipWithError(error.what());
                                 }
                               })
      ->UseManualTime()
      ->Iterations(1)
      ->Repetitions(repetitions);
}

const Step nothing = [](const Load&) {};

auto need(const char* kind, const Step& write) {
  return [=](const Load& load) {
    if (!std::filesystem::exists(pathOf(load, kind))) write(load);
  };
}

auto drop(const char* kind) {
  return [=](const Load& load) { std::filesystem::remove(pathOf(load, kind)); };
}

void registerLoops() {
  const Step ours = need("qel", writeOurs);
  add("next_tag_100k/ours", loop_load, ours, listOurs, nothing, 5);
  add("next_tag_100k/limit_read", loop_load, ours, readLimit, nothing, 5);
  add("find_tag_100k/ours", loop_load, ours, findOurs, nothing, 5);
  add("find_tag_100k/limit_read", loop_load, ours, readLimit, nothing, 5);
  add("rewrite_all_100k/ours", loop_load, ours, writeOurs, nothing, 5);
  add("rewrite_all_100k/limit_write", loop_load, drop("raw"), writeLimit, drop("raw"), 5);
}

void registerAll() {
  std::vector<Competitor> all = {
      {"ours", "qel", writeOurs, listOurs, rewriteOurs},
      {"SQLite", "sqlite", writeSqlite, listSqlite, nullptr},
#ifdef HAVE_LMDB
      {"LMDB", "mdb", writeLmdb, listLmdb, nullptr},
#endif
#ifdef HAVE_LIBZIP
      {"libzip", "zip", writeZip, listZip, rewriteZip},
#endif
#ifdef HAVE_HDF5
      {"HDF5", "h5", writeHdf5, listHdf5, nullptr, true},
#endif
  };
  for (const Load* load : {&small_load, &large_load}) {
    const std::string suffix = std::string("_") + load->name + "/";
    for (const Competitor& one : all) {
      if (one.large_only && load != &large_load) continue;
      const bool is_slow = std::string("libzip") == one.name && load == &small_load;
      const bool is_ours = std::string("ours") == one.name;
      const int times = is_ours ? 5 : is_slow ? 1 : 2;
      add("write" + suffix + one.name, *load, drop(one.kind), one.write, nothing, times);
      add("list" + suffix + one.name, *load, need(one.kind, one.write), one.list, nothing,
          is_slow   ? 1
          : is_ours ? 11
                    : 3);
      if (!one.rewrite) continue;
      add("rewrite" + suffix + one.name, *load, need(one.kind, one.write), one.rewrite, nothing,
          times);
    }
    add("write" + suffix + "limit_write", *load, drop("raw"), writeLimit, drop("raw"), 5);
    const Step ours = need("qel", writeOurs);
    if (load == &small_load) {
      add("list" + suffix + "limit_read", *load, ours, readLimit, nothing, 11);
    } else {
      add("list" + suffix + "limit_pread", *load, ours, preadLimit, nothing, 11);
    }
    add("rewrite" + suffix + "limit_copy_file_range", *load, ours, copyLimit, nothing, 5);
  }
}

const bool registered = (registerAll(), registerLoops(),
                         std::atexit([] { std::filesystem::remove_all(folder); }), true);

}  // namespace
