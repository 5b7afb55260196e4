#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <exception>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/files_internal.h"
#include "qelbase/outside/system/names_internal.h"
#include "qelbase/outside/system/registry_hive_internal.h"
#include "qelbase/outside/system/registry_internal.h"
#include "qelbase/outside/system/text.h"

namespace qel::sys::registry {

namespace {

// Told to the people who mend hives in docs/formats/hive.md.
constexpr const char* kTables[] = {
    R"(CREATE TABLE keys(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  parent INTEGER NOT NULL,
  folded TEXT NOT NULL,
  name TEXT NOT NULL,
  class TEXT NOT NULL DEFAULT '',
  created INTEGER NOT NULL DEFAULT 0,
  subkeys_changed INTEGER NOT NULL DEFAULT 0,
  values_changed INTEGER NOT NULL DEFAULT 0,
  security_changed INTEGER NOT NULL DEFAULT 0,
  security BLOB,
  until_boot TEXT,
  file TEXT,
  UNIQUE(parent, folded)))",
    R"(CREATE TABLE entries(
  id INTEGER PRIMARY KEY,
  key INTEGER NOT NULL,
  folded TEXT NOT NULL,
  name TEXT NOT NULL,
  type INTEGER NOT NULL,
  data BLOB NOT NULL,
  changed INTEGER NOT NULL DEFAULT 0,
  UNIQUE(key, folded)))",
    "PRAGMA application_id = 1365593160",
    "PRAGMA user_version = 2",
};
static_assert(kApplicationId == 1365593160);
constexpr std::int64_t kLayout = 2;

constexpr mode_t kAnyWriter = 0222;

// What waits for another process to mend the log. On a disk that takes no writes nobody comes.
constexpr int kMostTries = 2000;  // a millisecond each

std::string nextFile(const std::string& file) {
  return file + "-next";
}

bool makeFolders(const std::string& folder, mode_t mode) {
  if (Calls().mkdir(folder.c_str(), mode) == 0 || errno == EEXIST) return true;
  if (errno != ENOENT || folder == "/" || folder == ".") return false;
  return makeFolders(ParentOf(folder), mode) &&
         (Calls().mkdir(folder.c_str(), mode) == 0 || errno == EEXIST);
}

// The system's yes or no; where it can give neither, its failure.
bool isYes(int result) {
  if (result == 0) return true;
  switch (errno) {
    case ENOENT:
    case ENOTDIR:
    case EACCES:
    case EPERM:
    case EROFS:
      return false;
    default:
      throw DatabaseFailure{SQLITE_CANTOPEN, errno};
  }
}

// By the mode bits first: they bind the super-user too.
bool mayWrite(const std::string& name) {
  struct stat status {};
  return isYes(Calls().stat(name.c_str(), &status)) && (status.st_mode & kAnyWriter) != 0 &&
         isYes(Calls().faccessat(AT_FDCWD, name.c_str(), W_OK, AT_EACCESS));
}

bool exists(const std::string& name) {
  struct stat status {};
  return isYes(Calls().stat(name.c_str(), &status));
}

// Shared for the time of a transaction. One inside another is behind the gate already, where a fork
// that waits at it must not come between.
class TransactionGate {
 public:
  TransactionGate() {
    if (m_depth++ == 0) ForkGate().lock_shared();
  }
  ~TransactionGate() {
    if (--m_depth == 0) ForkGate().unlock_shared();
  }
  TransactionGate(const TransactionGate&) = delete;
  TransactionGate& operator=(const TransactionGate&) = delete;

 private:
  static constinit thread_local int m_depth;
};
constinit thread_local int TransactionGate::m_depth = 0;

class Transaction {
 public:
  Transaction(Connection& connection, const char* begin) : m_connection(connection) {
    m_connection.execute(begin);
  }
  ~Transaction() {
    if (m_done) return;
    try {
      m_connection.execute("ROLLBACK");
    } catch (const DatabaseFailure&) {
      m_done = true;  // the database has rolled back by itself
    }
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void commit() {
    m_connection.execute("COMMIT");
    m_done = true;
  }

 private:
  Connection& m_connection;
  bool m_done = false;
};

std::int64_t layoutOf(Connection& connection) {
  Statement version = connection.prepare("PRAGMA user_version");
  return version.step() ? version.number(0) : 0;
}

// The first form of layout 1 had the times of its keys only.
void upgrade(Connection& connection) {
  if (layoutOf(connection) == kLayout) return;
  if (!HasValueTimes(connection)) {
    connection.execute("ALTER TABLE entries ADD COLUMN changed INTEGER NOT NULL DEFAULT 0");
  }
  connection.execute("PRAGMA user_version = 2");
}

// A file with tables of its own is left alone, and so is a hive of a later layout.
bool isHive(Connection& connection) {
  Statement id = connection.prepare("PRAGMA application_id");
  return id.step() && id.number(0) == kApplicationId && layoutOf(connection) <= kLayout;
}

bool isNew(Connection& connection) {
  Statement count = connection.prepare("SELECT count(*) FROM sqlite_schema");
  return count.step() && count.number(0) == 0;
}

}  // namespace

// A connection for the time of one transaction.
class Hive::Lease {
 public:
  explicit Lease(Hive& hive) : m_hive(hive) {
    std::unique_lock lock(hive.m_pool_mutex);
    // A database in memory is its one connection.
    const bool one = hive.m_plan.file.empty() || hive.m_empty;
    hive.m_returned.wait(lock, [&] { return !one || hive.m_leased == 0; });
    if (!hive.m_pool.empty()) {
      m_connection = std::move(hive.m_pool.back());
      hive.m_pool.pop_back();
    }
    ++hive.m_leased;
    lock.unlock();
    try {
      if (!m_connection) m_connection = hive.connect();
    } catch (const DatabaseFailure&) {
      giveBack();
      throw;
    }
  }
  ~Lease() { giveBack(); }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;
  Connection& operator*() { return *m_connection; }

 private:
  // A connection to a file that has failed may have fallen back to reading: the next one is new.
  bool isTrusted() const {
    const bool in_memory = m_hive.m_plan.file.empty() || m_hive.m_empty;
    return in_memory || std::uncaught_exceptions() == m_exceptions;
  }
  void giveBack() {
    if (!isTrusted()) m_connection.reset();
    const std::scoped_lock lock(m_hive.m_pool_mutex);
    if (m_connection) m_hive.m_pool.push_back(std::move(m_connection));
    --m_hive.m_leased;
    m_hive.m_returned.notify_all();
  }
  Hive& m_hive;
  std::unique_ptr<Connection> m_connection;
  int m_exceptions = std::uncaught_exceptions();
};

std::unique_ptr<Connection> Hive::connect() {
  if (m_plan.file.empty() || m_empty) {
    return std::make_unique<Connection>(":memory:", SQLITE_OPEN_READWRITE);
  }
  if (m_immutable) {
    std::string uri = "file:";
    for (const char c : m_plan.file) {
      constexpr char kDigits[] = "0123456789ABCDEF";
      const auto byte = static_cast<unsigned char>(c);
      const bool plain = c == '/' || c == '.' || c == '-' || c == '_' || std::isalnum(byte) != 0;
      if (plain) {
        uri += c;
      } else {
        uri += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
      }
    }
    return std::make_unique<Connection>(uri + "?immutable=1",
                                        SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
  }
  if (!m_writable) return std::make_unique<Connection>(m_plan.file, SQLITE_OPEN_READONLY);
  auto connection =
      std::make_unique<Connection>(m_plan.file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  connection->execute("PRAGMA synchronous = NORMAL");
  return connection;
}

DWORD Hive::open() {
  if (m_open.load(std::memory_order_acquire)) return ERROR_SUCCESS;
  const std::scoped_lock lock(m_open_mutex);
  if (m_open.load()) return ERROR_SUCCESS;
  try {
    const DWORD code = openLocked();
    if (code == ERROR_SUCCESS) {
      m_open.store(true, std::memory_order_release);
    } else {
      m_sequence.close();
      const std::scoped_lock pool(m_pool_mutex);
      m_pool.clear();
    }
    return code;
  } catch (const DatabaseFailure& failure) {
    m_sequence.close();
    const std::scoped_lock pool(m_pool_mutex);
    m_pool.clear();
    return failure.code();
  }
}

DWORD Hive::openLocked() {
  m_immutable = false;
  m_empty = false;
  if (!m_plan.file.empty()) return openFile();
  m_writable = true;
  Lease lease(*this);
  makeContent(*lease);
  m_writable = false;
  return ERROR_SUCCESS;
}

DWORD Hive::openFile() {
  const std::string folder = ParentOf(m_plan.file);
  const mode_t folder_mode = m_plan.mode | (m_plan.mode & 0444) >> 2;
  bool there = exists(m_plan.file);
  if (!there) {
    const bool folder_there = makeFolders(folder, folder_mode);
    const int error = errno;
    there = exists(m_plan.file);  // another process was faster
    if (!there && (!folder_there || !mayWrite(folder))) {
      if (!m_plan.may_be_missing) {
        return folder_there ? ERROR_ACCESS_DENIED : ErrorOfPath(error, folder);
      }
      m_empty = true;
      Lease lease(*this);
      makeContent(*lease);
      m_writable = false;
      return ERROR_SUCCESS;
    }
  }
  m_writable = mayWrite(folder) && (!there || mayWrite(m_plan.file));
  m_folder_synced = false;
  const bool shares = m_sequence.open(m_plan.file + "-seq", m_writable, m_plan.mode);
  if (m_writable && !shares) return ErrorFromErrno(errno);
  if (m_writable) {
    if (exists(nextFile(m_plan.file)) && m_sequence.alone()) replaceByNext();
    m_sequence.share();
    if (there && isReady()) return ERROR_SUCCESS;
    const std::scoped_lock writer(m_writer_mutex);
    m_sequence.beginWrite();
    struct End {
      Sequence& sequence;
      ~End() { sequence.endWrite(); }
    } end{m_sequence};
    if (!there) {  // with the mode that it is to have
      const Descriptor made = Descriptor::open(m_plan.file, O_RDWR | O_CREAT, m_plan.mode);
      if (!made) return ErrorFromErrno(errno);
    }
    Lease lease(*this);
    if (!isHive(*lease) && !isNew(*lease)) return ERROR_NOT_REGISTRY_FILE;
    (*lease).execute("PRAGMA journal_mode = WAL");
    makeContent(*lease);
    return ERROR_SUCCESS;
  }
  // Without the log of writes beside it the file stands for itself.
  m_immutable = !exists(m_plan.file + "-wal");
  Lease lease(*this);
  if (!isHive(*lease)) return ERROR_NOT_REGISTRY_FILE;
  return HasValueTimes(*lease) ? ERROR_SUCCESS : ERROR_BADDB;  // who may write it must upgrade it
}

// True if opening has nothing to write, so that it waits for no writer.
bool Hive::isReady() {
  if (m_sequence.hasDeadWriter()) return false;
  Lease lease(*this);
  if (!isHive(*lease) || layoutOf(*lease) != kLayout) return false;
  {
    Statement mode = (*lease).prepare("PRAGMA journal_mode");
    if (!mode.step() || mode.bytes(0) != "wal") return false;
  }
  return !HasStaleKeys(*lease);
}

void Hive::replaceByNext() {
  const std::string next = nextFile(m_plan.file);
  // The log belongs to the old file.
  Calls().unlink((m_plan.file + "-wal").c_str());
  Calls().unlink((m_plan.file + "-shm").c_str());
  if (Calls().rename(next.c_str(), m_plan.file.c_str()) != 0) return;
  (void)SyncFolder(ParentOf(m_plan.file));
}

void Hive::makeContent(Connection& connection) {
  Transaction transaction(connection, "BEGIN IMMEDIATE");
  if (!isHive(connection)) {
    for (const char* sql : kTables) connection.execute(sql);
    const std::uint64_t now = FileTimeNow();
    for (KeyId id = kRoot; id <= m_plan.roots; ++id) {
      const std::string folded = std::to_string(id);
      connection
          .prepare("INSERT INTO keys(id, parent, folded, name, created) VALUES(?, 0, ?, '', ?)")
          .bind(id)
          .bind(std::string_view(folded))
          .bind(now)
          .run();
    }
    for (const std::wstring& path : m_plan.first_keys) {
      KeyId id = 0;
      if (MakePath(connection, kRoot, path, now, id) != ERROR_SUCCESS) break;
    }
  }
  upgrade(connection);
  DropStaleKeys(connection);
  transaction.commit();
  if (m_plan.is_hardware) FillHardware(connection);
}

bool Hive::isWritable() {
  return open() == ERROR_SUCCESS && m_writable;
}

DWORD Hive::read(const Reading& run) {
  for (int tries = 0;; ++tries) {
    const TransactionGate gate;
    try {
      if (m_immutable && exists(m_plan.file + "-wal")) close();  // somebody began to write
      if (const DWORD code = open()) return code;
      Lease lease(*this);
      Transaction transaction(*lease, "BEGIN");
      const DWORD code = run(*lease);
      transaction.commit();
      return code;
    } catch (const DatabaseFailure& failure) {
      if (!failure.isPassing() || tries == kMostTries) return failure.code();
    }
    usleep(1000);
  }
}

DWORD Hive::write(const Writing& run) {
  for (;;) {
    const TransactionGate gate;
    if (const DWORD code = open()) return code;
    if (!m_writable) return ERROR_ACCESS_DENIED;
    try {
      const std::scoped_lock writer(m_writer_mutex);
      Lease lease(*this);
      struct Write {
        Sequence& sequence;
        std::uint64_t stamp = sequence.beginWrite();
        ~Write() { sequence.endWrite(); }
      } write{m_sequence};
      Transaction transaction(*lease, "BEGIN IMMEDIATE");
      const DWORD code = run(*lease, write.stamp);
      if (code == ERROR_SUCCESS) transaction.commit();
      return code;
    } catch (const DatabaseFailure& failure) {
      if (!failure.isPassing()) return failure.code();
    }
    usleep(1000);
  }
}

DWORD Hive::flush() {
  const TransactionGate gate;
  if (const DWORD code = open()) return code;
  if (!m_writable) return ERROR_SUCCESS;
  try {
    Lease lease(*this);
    (*lease).syncLog();
  } catch (const DatabaseFailure& failure) {
    return failure.code();
  }
  if (m_folder_synced) return ERROR_SUCCESS;  // no file has come since
  if (SyncFolder(ParentOf(m_plan.file)) != 0) return ErrorFromErrno(errno);
  m_folder_synced = true;
  return ERROR_SUCCESS;
}

DWORD Hive::makeSingleFile() {
  try {
    Lease lease(*this);
    (*lease).execute("PRAGMA journal_mode = DELETE");
    return ERROR_SUCCESS;
  } catch (const DatabaseFailure& failure) {
    return failure.code();
  }
}

void Hive::close() {
  const std::scoped_lock lock(m_open_mutex, m_writer_mutex);
  std::unique_lock pool(m_pool_mutex);
  m_returned.wait(pool, [&] { return m_leased == 0; });
  m_pool.clear();
  m_sequence.close();
  m_open = false;
}

// ForkGate() is held by the caller: no transaction is under way.
void Hive::prepareFork() {
  m_open_mutex.lock();
  m_writer_mutex.lock();
  m_pool_mutex.lock();
  m_cache.mutex().lock();
  if (m_plan.file.empty() || m_empty) return;
  for (const auto& connection : m_pool) connection->writeNothingAtClose();
  m_pool.clear();
}

void Hive::afterFork(bool in_child) {
  // Locks of the sequence belong to parent and child together until one opens it anew.
  if (in_child && !m_plan.file.empty() && !m_empty) {
    m_sequence.close();
    m_open = false;
  }
  m_cache.mutex().unlock();
  m_pool_mutex.unlock();
  m_writer_mutex.unlock();
  m_open_mutex.unlock();
}

}  // namespace qel::sys::registry
