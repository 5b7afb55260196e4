// Connections and statements, and names as the database has them.

#include <unistd.h>

#include <cerrno>
#include <thread>

#include "qelbase/outside/system/errors.h"
#include "qelbase/outside/system/registry_hive_internal.h"

namespace qel::sys::registry {

namespace {

void appendUtf8(std::string& out, std::uint32_t code) {
  const auto tail = [&](int shift) { out += static_cast<char>(0x80 | ((code >> shift) & 0x3F)); };
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | code >> 6);
    tail(0);
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | code >> 12);
    tail(6);
    tail(0);
  } else {
    out += static_cast<char>(0xF0 | code >> 18);
    tail(12);
    tail(6);
    tail(0);
  }
}

constexpr std::uint32_t kReplacement = 0xFFFD;

// Takes one character off the front; ill-formed bytes give U+FFFD, one at a time.
std::uint32_t takeUtf8(std::string_view& bytes) {
  const auto lead = static_cast<unsigned char>(bytes[0]);
  const std::size_t length = lead < 0x80   ? 1
                             : lead < 0xC2 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  std::uint32_t code = length == 1 ? lead : length == 0 ? 0 : lead & (0x7FU >> length);
  bool well_formed = length > 0 && bytes.size() >= length;
  for (std::size_t i = 1; well_formed && i < length; ++i) {
    const auto next = static_cast<unsigned char>(bytes[i]);
    well_formed = (next & 0xC0) == 0x80;
    code = code << 6 | (next & 0x3F);
  }
  const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  well_formed = well_formed && !overlong && code <= 0x10FFFF;
  bytes.remove_prefix(well_formed ? length : 1);
  return well_formed ? code : kReplacement;
}

// Another process has the database for a moment: waits for it, however long it takes.
int waitForOthers(void*, int tries) {
  if (tries < 5) {
    std::this_thread::yield();
  } else {
    usleep(tries < 50 ? 100 : 2000);
  }
  return 1;
}

}  // namespace

std::string NameBytes(std::wstring_view name) {
  std::string bytes;
  bytes.reserve(name.size());
  for (const wchar_t c : name) {
    const auto code = static_cast<char32_t>(c);
    appendUtf8(bytes, code <= 0x10FFFF ? code : kReplacement);
  }
  return bytes;
}

std::wstring NameText(std::string_view bytes) {
  std::wstring name;
  while (!bytes.empty()) name += static_cast<wchar_t>(takeUtf8(bytes));
  return name;
}

// --- DatabaseFailure ---

bool DatabaseFailure::isPassing() const {
  const int kind = result & 0xFF;
  return kind == SQLITE_BUSY || kind == SQLITE_LOCKED || kind == SQLITE_PROTOCOL ||
         kind == SQLITE_SCHEMA || result == SQLITE_READONLY_RECOVERY ||
         result == SQLITE_READONLY_CANTINIT;
}

DWORD DatabaseFailure::code() const {
  switch (result & 0xFF) {
    case SQLITE_FULL:
      return ERROR_DISK_FULL;
    case SQLITE_NOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    case SQLITE_NOTADB:
      return ERROR_NOT_REGISTRY_FILE;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
      return ERROR_ACCESS_DENIED;
    case SQLITE_TOOBIG:
      return ERROR_INVALID_PARAMETER;
    case SQLITE_IOERR:
    case SQLITE_CANTOPEN: {
      const DWORD known = ErrorFromErrno(error);
      return known == ERROR_SUCCESS || known == ERROR_GEN_FAILURE ? ERROR_IO_DEVICE : known;
    }
    default:
      return ERROR_BADDB;
  }
}

// --- Statement ---

Statement::~Statement() {
  sqlite3_reset(m_it);
  sqlite3_clear_bindings(m_it);
}

Statement& Statement::check(int result) {
  if (result == SQLITE_OK) return *this;
  throw DatabaseFailure{sqlite3_extended_errcode(m_database), sqlite3_system_errno(m_database)};
}

Statement& Statement::bind(std::int64_t value) {
  return check(sqlite3_bind_int64(m_it, m_next++, value));
}

Statement& Statement::bind(std::string_view text) {
  return check(sqlite3_bind_text64(m_it, m_next++, text.data() ? text.data() : "", text.size(),
                                   SQLITE_STATIC, SQLITE_UTF8));
}

Statement& Statement::bindBytes(std::string_view bytes) {
  return check(sqlite3_bind_blob64(m_it, m_next++, bytes.data() ? bytes.data() : "", bytes.size(),
                                   SQLITE_STATIC));
}

Statement& Statement::bindNull() {
  return check(sqlite3_bind_null(m_it, m_next++));
}

bool Statement::step() {
  const int result = sqlite3_step(m_it);
  if (result != SQLITE_ROW && result != SQLITE_DONE) check(result);
  return result == SQLITE_ROW;
}

bool Statement::isNull(int column) const {
  return sqlite3_column_type(m_it, column) == SQLITE_NULL;
}

std::int64_t Statement::number(int column) const {
  return sqlite3_column_int64(m_it, column);
}

std::string_view Statement::bytes(int column) const {
  const void* const data = sqlite3_column_blob(m_it, column);
  const int size = sqlite3_column_bytes(m_it, column);
  return data ? std::string_view(static_cast<const char*>(data), static_cast<std::size_t>(size))
              : std::string_view();
}

// --- Connection ---

Connection::Connection(const std::string& file, int flags) {
  const bool writes = (flags & SQLITE_OPEN_READWRITE) != 0;
  const int result = sqlite3_open_v2(file.c_str(), &m_database, flags | SQLITE_OPEN_NOMUTEX,
                                     writes ? WritingVfs() : nullptr);
  if (result != SQLITE_OK) {
    const int error = m_database ? sqlite3_system_errno(m_database) : 0;
    sqlite3_close(m_database);
    throw DatabaseFailure{result, error};
  }
  sqlite3_extended_result_codes(m_database, 1);
  sqlite3_busy_handler(m_database, waitForOthers, nullptr);
  // Files may come from anywhere: what is in them is data, never something to run.
  sqlite3_db_config(m_database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(m_database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(m_database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(m_database, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
  int keep = 1;
  sqlite3_file_control(m_database, "main", SQLITE_FCNTL_PERSIST_WAL, &keep);
}

Connection::~Connection() {
  for (const auto& [sql, statement] : m_statements) sqlite3_finalize(statement);
  sqlite3_close(m_database);
}

Statement Connection::prepare(const char* sql) {
  sqlite3_stmt*& statement = m_statements[sql];
  if (!statement) {
    const int result =
        sqlite3_prepare_v3(m_database, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (result != SQLITE_OK) {
      throw DatabaseFailure{sqlite3_extended_errcode(m_database), sqlite3_system_errno(m_database)};
    }
  }
  return Statement(m_database, statement);
}

void Connection::syncLog() {
  const auto log = [this] {
    sqlite3_file* file = nullptr;
    sqlite3_file_control(m_database, "main", SQLITE_FCNTL_JOURNAL_POINTER, &file);
    return file && file->pMethods ? file : nullptr;
  };
  if (!log()) execute("SELECT 1 FROM keys LIMIT 1");  // the first look at a database opens its log
  sqlite3_file* const file = log();
  if (!file) return;
  int result = SQLITE_OK;
  do {
    errno = 0;
    result = file->pMethods->xSync(file, SQLITE_SYNC_NORMAL | SQLITE_SYNC_DATAONLY);
  } while (result != SQLITE_OK && errno == EINTR);
  if (result != SQLITE_OK) throw DatabaseFailure{result, errno};
}

void Connection::writeNothingAtClose() {
  sqlite3_db_config(m_database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

}  // namespace qel::sys::registry
