#pragma once
// One hive: a database of keys and values, its connections, and what was read from it lately.

#include <pthread.h>
#include <sqlite3.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "qelbase/outside/system/registry_sequence_internal.h"

namespace qel::sys::registry {

using KeyId = std::int64_t;  // never used twice within a hive

// The roots that a machine's hive has; others have the first one alone.
inline constexpr KeyId kRoot = 1;
inline constexpr KeyId kUsersRoot = 2;
inline constexpr KeyId kConfigRoot = 3;
inline constexpr KeyId kDynamicRoot = 4;
inline constexpr KeyId kPerformanceRoot = 5;

inline constexpr std::uint32_t kApplicationId = 0x51654C48;  // "QeLH" in the file's header

// Names as they stand in the database: UTF-8, a lone surrogate as three bytes.
[[nodiscard]] std::string NameBytes(std::wstring_view name);
[[nodiscard]] std::wstring NameText(std::string_view bytes);

// A call of the database that failed, thrown within this folder alone.
struct DatabaseFailure {
  int result;              // with SQLite's extended code
  int error;               // errno of the system call behind it, or 0
  bool isPassing() const;  // trying again helps
  DWORD code() const;
};

// SQLite's way to files that are opened for writing, or not at all.
[[nodiscard]] const char* WritingVfs();

// A prepared statement during one use.
class Statement {
 public:
  Statement(sqlite3* database, sqlite3_stmt* statement) : m_database(database), m_it(statement) {}
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  // Texts and blobs are not copied: they outlive the statement.
  Statement& bind(std::int64_t value);
  Statement& bind(std::uint64_t value) { return bind(static_cast<std::int64_t>(value)); }
  Statement& bind(std::string_view text);
  Statement& bindBytes(std::string_view bytes);
  Statement& bindNull();

  [[nodiscard]] bool step();  // true: a row is there
  void run() {
    while (step()) {
    }
  }

  bool isNull(int column) const;
  std::int64_t number(int column) const;
  std::string_view bytes(int column) const;  // until the next step
  std::wstring name(int column) const { return NameText(bytes(column)); }

 private:
  Statement& check(int result);
  sqlite3* m_database;
  sqlite3_stmt* m_it;
  int m_next = 1;
};

// What threads that do the same at once keep apart, so that they share no cache line. A fork takes
// all locks, and the thread sanitizer's search for deadlocks ends at 64 of them.
#if defined(__SANITIZE_THREAD__)
inline constexpr std::uint32_t kThreadShards = 4;
#else
inline constexpr std::uint32_t kThreadShards = 16;
#endif

inline std::uint32_t ThreadShard() {
  constexpr std::uint64_t kMix = 0x9E37'79B9'7F4A'7C15;
  return static_cast<std::uint32_t>(pthread_self() * kMix >> 60) % kThreadShards;
}

// Readers lock the mutex of their own shard, a writer all of them. A reader takes it once only.
class SpreadMutex {
 public:
  void lock_shared() { m_shards[ThreadShard()].mutex.lock(); }
  void unlock_shared() { m_shards[ThreadShard()].mutex.unlock(); }
  void lock() {
    for (Shard& shard : m_shards) shard.mutex.lock();
  }
  void unlock() {
    for (Shard& shard : m_shards) shard.mutex.unlock();
  }

 private:
  struct alignas(64) Shard {
    std::mutex mutex;
  };
  Shard m_shards[kThreadShards];
};

class Connection {
 public:
  Connection(const std::string& file, int flags);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // `sql` is a literal: statements are kept by its address.
  [[nodiscard]] Statement prepare(const char* sql);
  void execute(const char* sql) { prepare(sql).run(); }
  int changes() const { return sqlite3_changes(m_database); }
  void writeNothingAtClose();
  // What was committed is on the disk then, here or, from a checkpoint on, in the database.
  void syncLog();

 private:
  sqlite3* m_database = nullptr;
  std::unordered_map<const char*, sqlite3_stmt*> m_statements;
};

struct Value {
  DWORD type;
  std::string data;
};

struct Child {
  std::wstring name;
  std::wstring class_name;
  std::uint64_t written;
};

// What one key holds, but for the data of its values.
struct Listing {
  std::wstring class_name;
  std::uint64_t written = 0;
  std::vector<Child> children;  // by upper-cased name
  struct Head {
    std::wstring name;
    std::size_t data_size;
  };
  std::vector<Head> values;  // in the order of their first writing
};

// What was read of a hive, by the names that were asked for; valid while the counter stays at the
// even value at which it was read. Holds codes as well: what is missing is remembered too. Each
// thread has what it found last in front of it, and goes by the same value.
class ReadCache {
 public:
  struct Step {
    DWORD code;
    class Hive* hive;
    KeyId id;
  };
  struct ValueResult {
    DWORD code;
    Value value;
  };

  // What is found lies in `room`, or with the thread until it looks up another one; null if nothing
  // is.
  [[nodiscard]] const Step* find(std::uint64_t at, KeyId key, std::wstring_view path, Step& room);
  [[nodiscard]] const ValueResult* find(std::uint64_t at, KeyId key, std::wstring_view name,
                                        ValueResult& room);
  [[nodiscard]] bool find(std::uint64_t at, KeyId key, std::wstring_view,
                          std::shared_ptr<const Listing>& out);
  void keep(std::uint64_t at, KeyId key, std::wstring_view path, const Step& step);
  void keep(std::uint64_t at, KeyId key, std::wstring_view name, const ValueResult& value);
  void keep(std::uint64_t at, KeyId key, std::wstring_view,
            const std::shared_ptr<const Listing>& listing);

  SpreadMutex& mutex() { return m_mutex; }

 private:
  struct Name {
    KeyId key;
    std::wstring_view text;
  };
  struct StoredName {
    KeyId key;
    std::wstring text;
    operator Name() const { return {key, text}; }
  };
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(const Name& name) const;
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(const Name& a, const Name& b) const {
      return a.key == b.key && a.text == b.text;
    }
  };
  template <typename T>
  using Map = std::unordered_map<StoredName, T, Hash, Equal>;

  template <typename T>
  bool findIn(const Map<T>& map, std::uint64_t at, const Name& name, T& out);
  template <typename T>
  const T* findRecent(const Map<T>& map, std::uint64_t at, const Name& name, T& room);
  template <typename T>
  void keepIn(Map<T>& map, std::uint64_t at, const Name& name, const T& value, std::size_t size);

  SpreadMutex m_mutex;
  std::uint64_t m_at = Sequence::kUnknown;
  std::size_t m_size = 0;  // bytes, about
  Map<Step> m_steps;
  Map<ValueResult> m_values;
  Map<std::shared_ptr<const Listing>> m_listings;
};

// A hive lives as long as the process.
class Hive {
 public:
  struct Plan {
    std::string file;     // native; empty: in memory, for this process
    mode_t mode = 0600;   // of a new file; its folder gets the bits to enter as well
    KeyId roots = kRoot;  // how many
    std::vector<std::wstring> first_keys = {};  // made in a new hive, parents first
    bool may_be_missing = false;  // a file that cannot be made counts as an empty hive
    bool is_hardware = false;     // in memory, read-only, filled from the machine
  };
  // Keys of other hives that hang in below this one in this process.
  struct Mount {
    KeyId parent;
    std::wstring name;
    Hive* hive;
  };

  explicit Hive(Plan plan) : m_plan(std::move(plan)) {}

  [[nodiscard]] DWORD open();
  bool isWritable();
  const std::string& file() const { return m_plan.file; }
  bool isMachine() const { return m_plan.roots > kRoot; }

  // Run in one transaction, again if the database asks for it; a code other than 0 undoes it.
  using Reading = std::function<DWORD(Connection&)>;
  using Writing = std::function<DWORD(Connection&, std::uint64_t stamp)>;
  [[nodiscard]] DWORD read(const Reading& run);
  [[nodiscard]] DWORD write(const Writing& run);  // 5 for a read-only hive
  [[nodiscard]] DWORD flush();

  // For remembering: what read() sees between two equal even values.
  std::uint64_t at() const { return m_sequence.read(); }
  std::uint64_t lastStamp() const { return m_sequence.lastStamp(); }
  ReadCache& cache() { return m_cache; }
  std::vector<Mount>& mounts() { return m_mounts; }

  // Moves the log into the file, so that the file alone is the hive; nobody else has it open.
  [[nodiscard]] DWORD makeSingleFile();

  // Around fork: no connection crosses it.
  void prepareFork();
  void afterFork(bool in_child);
  // Closes the file; what is asked next opens it again.
  void close();

 private:
  class Lease;
  DWORD openLocked();
  DWORD openFile();
  bool isReady();
  void replaceByNext();
  void makeContent(Connection& connection);
  std::unique_ptr<Connection> connect();

  Plan m_plan;
  std::mutex m_open_mutex;
  std::atomic<bool> m_open = false;
  bool m_writable = false;
  std::atomic<bool> m_immutable = false;
  bool m_empty = false;  // no file: an empty hive in memory
  std::atomic<bool> m_folder_synced = false;
  Sequence m_sequence;
  std::mutex m_writer_mutex;
  std::mutex m_pool_mutex;
  std::condition_variable m_returned;
  std::vector<std::unique_ptr<Connection>> m_pool;
  std::size_t m_leased = 0;
  ReadCache m_cache;
  std::vector<Mount> m_mounts;
};

}  // namespace qel::sys::registry
