// SQLite's C interface with owners and errors: a connection to one grid's database, its statements.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <sqlite3.h>

#include "gridding/store/grid_store.h"

namespace quarro::store {

// `grid "g" (/dir/g)`, the beginning of every error about a grid that exists.
std::string DescribeGrid(const std::string& name, const std::filesystem::path& folder);

// A connection, used by one thread at a time. Every failure is a StoreError that begins with
// `grid`.
class Connection {
 public:
  enum class Mode { kRead, kWrite, kCreate };
  // How long a connection waits for another one that holds what it needs.
  static constexpr int kBusyTimeout_ms = 10'000;

  Connection(const std::filesystem::path& database, std::string grid, Mode mode, int cache_kib);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection();

  sqlite3* Handle() const { return handle_; }
  void Execute(const char* sql);
  // Leaves the log as it is when this is the last connection to be closed.
  void KeepLogAtClose();
  // Rows that the last statement changed.
  std::int64_t RowsChanged() const { return sqlite3_changes64(handle_); }
  // Throws the error that SQLite's `code` stands for; `doing` says what was tried, or is empty.
  [[noreturn]] void Fail(int code, const std::string& doing) const;
  // Throws for data that was read but cannot be right.
  [[noreturn]] void FailDamaged(const std::string& what) const;

 private:
  void Open(const std::filesystem::path& database, Mode mode);
  void Configure(Mode mode, int cache_kib);
  void UseLog();

  std::string grid_;
  sqlite3* handle_ = nullptr;
};

// A prepared statement of a connection that outlives it. Parameters count from 1, columns from 0.
// Bound blobs and texts are not copied: they live until the statement is reset or bound anew.
class Statement {
 public:
  Statement(Connection& connection, std::string_view sql);
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement();

  Statement& Bind(int parameter, std::int64_t value);
  Statement& Bind(int parameter, double value);
  Statement& Bind(int parameter, std::string_view text);
  Statement& Bind(int parameter, std::span<const std::byte> blob);

  // True when there is a row. `doing` is a function that says what is being done, for the error.
  template <typename Doing>
  bool Step(const Doing& doing) {
    const int code = sqlite3_step(handle_);
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    connection_.Fail(code, doing());
  }
  // Runs a statement without rows and resets it.
  template <typename Doing>
  void Run(const Doing& doing) {
    const int code = sqlite3_step(handle_);
    if (code != SQLITE_DONE) FailAndReset(code, doing());
    sqlite3_reset(handle_);
  }
  void Reset() { sqlite3_reset(handle_); }

  std::int64_t Integer(int column) const { return sqlite3_column_int64(handle_, column); }
  double Real(int column) const { return sqlite3_column_double(handle_, column); }
  bool IsNull(int column) const { return sqlite3_column_type(handle_, column) == SQLITE_NULL; }
  // Valid until the next step or reset.
  std::span<const std::byte> Blob(int column) const;
  std::string Text(int column) const;

 private:
  void Check(int code) const;
  [[noreturn]] void FailAndReset(int code, const std::string& doing);

  Connection& connection_;
  sqlite3_stmt* handle_ = nullptr;
};

// Resets a statement at the end of a scope, so that no half-read one holds on to its data.
class ResetAtEnd {
 public:
  explicit ResetAtEnd(Statement& statement) : statement_(statement) {}
  ResetAtEnd(const ResetAtEnd&) = delete;
  ResetAtEnd& operator=(const ResetAtEnd&) = delete;
  ~ResetAtEnd() { statement_.Reset(); }

 private:
  Statement& statement_;
};

}  // namespace quarro::store
