#include "gridding/store/database.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include "gridding/store/page_checks.h"

namespace quarro::store {

namespace {

// After this much in the log a commit also moves it to the database.
constexpr int kAutoCheckpointBytes = 64 * 1024 * 1024;
constexpr int kKeptLogBytes = 128 * 1024 * 1024;

std::string SystemText(int error) { return std::system_category().message(error); }

int DiscError(int code, sqlite3* handle) {
  const int seen_below = TakeLastDiscError();
  const int kind = code & 0xff;
  if (kind != SQLITE_IOERR && kind != SQLITE_CANTOPEN) return 0;
  if (kind == SQLITE_IOERR && seen_below != 0) return seen_below;
  return handle == nullptr ? 0 : sqlite3_system_errno(handle);
}

// SQLite's result code in plain words.
std::string CauseOf(int code, sqlite3* handle) {
  const int error = DiscError(code, handle);
  std::string own = handle == nullptr ? sqlite3_errstr(code) : sqlite3_errmsg(handle);
  const std::string why = error == 0 ? own : SystemText(error);
  if (code == SQLITE_IOERR_DATA) return "the database is damaged (a page fails its checksum)";
  switch (code & 0xff) {
    case SQLITE_FULL:
      return "the disk is full";
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return "the database is damaged (" + own + ")";
    case SQLITE_READONLY:
    case SQLITE_PERM:
      return "the database cannot be written (" + why + ")";
    case SQLITE_CANTOPEN:
      return "the database cannot be opened (" + why + ")";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return "the database is held by another program (" + own + ")";
    case SQLITE_NOMEM:
      return "there is no memory left for the database";
    case SQLITE_IOERR:
      if (error == ENOSPC || error == EDQUOT) return "the disk is full (" + why + ")";
      return "the disk cannot be read or written (" + why + ")";
    default:
      return own;
  }
}

int OpenFlags(Connection::Mode mode) {
  switch (mode) {
    case Connection::Mode::kRead:
      return SQLITE_OPEN_READONLY;
    case Connection::Mode::kWrite:
      return SQLITE_OPEN_READWRITE;
    case Connection::Mode::kCreate:
      return SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  }
  return SQLITE_OPEN_READONLY;
}

}  // namespace

std::string DescribeGrid(const std::string& name, const std::filesystem::path& folder) {
  return "grid \"" + name + "\" (" + folder.string() + ")";
}

Connection::Connection(const std::filesystem::path& database, std::string grid, Mode mode,
                       int cache_kib)
    : grid_(std::move(grid)) {
  try {
    Open(database, mode);
    Configure(mode, cache_kib);
  } catch (...) {
    sqlite3_close_v2(handle_);
    throw;
  }
}

Connection::~Connection() { sqlite3_close_v2(handle_); }

void Connection::Open(const std::filesystem::path& database, Mode mode) {
  const int flags = OpenFlags(mode) | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  const int code = sqlite3_open_v2(database.c_str(), &handle_, flags, CheckedFileSystem());
  if (code != SQLITE_OK) Fail(code, "opening it");
  sqlite3_busy_timeout(handle_, kBusyTimeout_ms);
}

void Connection::Configure(Mode mode, int cache_kib) {
  sqlite3_db_config(handle_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(handle_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  Execute("PRAGMA mmap_size = 0");
  Execute("PRAGMA cell_size_check = ON");
  Execute("PRAGMA temp_store = MEMORY");
  Execute("PRAGMA secure_delete = OFF");
  Execute(("PRAGMA cache_size = -" + std::to_string(cache_kib)).c_str());
  if (mode == Mode::kCreate) {
    Execute(("PRAGMA page_size = " + std::to_string(kPageBytes)).c_str());
    int reserved = kPageChecksumBytes;
    const int code = sqlite3_file_control(handle_, "main", SQLITE_FCNTL_RESERVE_BYTES, &reserved);
    if (code != SQLITE_OK) Fail(code, "making it");
  }
  if (mode == Mode::kRead) return;
  Execute("PRAGMA synchronous = FULL");
  UseLog();
  Execute(
      ("PRAGMA wal_autocheckpoint = " + std::to_string(kAutoCheckpointBytes / kPageBytes)).c_str());
  Execute(("PRAGMA journal_size_limit = " + std::to_string(kKeptLogBytes)).c_str());
}

void Connection::UseLog() {
  Statement set(*this, "PRAGMA journal_mode = WAL");
  set.Step([] { return "opening its log"; });
  if (set.Text(0) != "wal") {
    throw StoreError(grid_ + ": its file system does not support a write-ahead log");
  }
}

void Connection::Execute(const char* sql) {
  const int code = sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) Fail(code, "");
}

void Connection::KeepLogAtClose() {
  sqlite3_db_config(handle_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

void Connection::Fail(int code, const std::string& doing) const {
  std::string text = grid_ + ": " + CauseOf(code, handle_);
  if (!doing.empty()) text += ", while " + doing;
  throw StoreError(text);
}

void Connection::FailDamaged(const std::string& what) const {
  throw StoreError(grid_ + ": the database is damaged: " + what);
}

Statement::Statement(Connection& connection, std::string_view sql) : connection_(connection) {
  const int code = sqlite3_prepare_v3(connection.Handle(), sql.data(), static_cast<int>(sql.size()),
                                      SQLITE_PREPARE_PERSISTENT, &handle_, nullptr);
  if (code != SQLITE_OK) connection.Fail(code, "reading its tables");
}

Statement::~Statement() { sqlite3_finalize(handle_); }

Statement& Statement::Bind(int parameter, std::int64_t value) {
  Check(sqlite3_bind_int64(handle_, parameter, value));
  return *this;
}

Statement& Statement::Bind(int parameter, double value) {
  Check(sqlite3_bind_double(handle_, parameter, value));
  return *this;
}

Statement& Statement::Bind(int parameter, std::string_view text) {
  // A null pointer would bind NULL.
  const char* const data = text.data() == nullptr ? "" : text.data();
  Check(sqlite3_bind_text64(handle_, parameter, data, text.size(), SQLITE_STATIC, SQLITE_UTF8));
  return *this;
}

Statement& Statement::Bind(int parameter, std::span<const std::byte> blob) {
  const void* const data = blob.empty() ? static_cast<const void*>("") : blob.data();
  Check(sqlite3_bind_blob64(handle_, parameter, data, blob.size(), SQLITE_STATIC));
  return *this;
}

std::span<const std::byte> Statement::Blob(int column) const {
  const void* const data = sqlite3_column_blob(handle_, column);
  const int bytes = sqlite3_column_bytes(handle_, column);
  if (data == nullptr && sqlite3_errcode(sqlite3_db_handle(handle_)) == SQLITE_NOMEM) {
    connection_.Fail(SQLITE_NOMEM, "");
  }
  return {static_cast<const std::byte*>(data), static_cast<std::size_t>(bytes)};
}

std::string Statement::Text(int column) const {
  const auto* const data = reinterpret_cast<const char*>(sqlite3_column_text(handle_, column));
  const int bytes = sqlite3_column_bytes(handle_, column);
  return data == nullptr ? std::string() : std::string(data, static_cast<std::size_t>(bytes));
}

void Statement::Check(int code) const {
  if (code != SQLITE_OK) connection_.Fail(code, "preparing a statement");
}

void Statement::FailAndReset(int code, const std::string& doing) {
  try {
    connection_.Fail(code, doing);
  } catch (...) {
    Reset();
    throw;
  }
}

}  // namespace quarro::store
