#include "gridding/store/write_transaction.h"

#include <utility>

#include "gridding/store/schema.h"
#include "gridding/store/snapshot.h"

namespace quarro::store {

namespace {

// Pages beyond this go to the log before the commit, so memory does not grow with the line.
constexpr int kWriterCache_kib = 32 * 1024;

// Makes a mark odd from its construction to its end.
class MarkedChange {
 public:
  explicit MarkedChange(std::atomic<std::uint64_t>& mark) : mark_(mark) { ++mark_; }
  ~MarkedChange() { ++mark_; }
  MarkedChange(const MarkedChange&) = delete;
  MarkedChange& operator=(const MarkedChange&) = delete;

 private:
  std::atomic<std::uint64_t>& mark_;
};

}  // namespace

Writer::Writer(const HeldFolder& held)
    : folder(held),
      connection(held.Path() / kDatabaseFile, held.Grid(), Connection::Mode::kWrite,
                 kWriterCache_kib),
      select_totals(connection, kSelectTotals),
      update_totals(connection, kUpdateTotals),
      select_cell_state(connection, kSelectCellState),
      update_cell(connection, "UPDATE cells SET checksum = ?2, state = ?3 WHERE cell = ?1"),
      insert_cell(connection, "INSERT INTO cells (cell, checksum, state) VALUES (?1, ?2, ?3)"),
      mark_changed(connection, "INSERT OR IGNORE INTO changed_cells (cell) VALUES (?)"),
      insert_soundings(connection,
                       "INSERT INTO soundings (cell, line, part, checksum, data) "
                       "VALUES (?, ?, ?, ?, ?)"),
      insert_line(connection,
                  "INSERT INTO lines (sequence, name, digest, file_bytes, soundings, account) "
                  "VALUES (?, ?, ?, ?, ?, ?)"),
      select_nodes(connection, "SELECT nodes FROM refinements WHERE cell = ?"),
      select_refinement(connection, "SELECT block, checksum FROM refinements WHERE cell = ?"),
      put_refinement(connection,
                     "INSERT OR REPLACE INTO refinements (cell, nodes, checksum, block) "
                     "VALUES (?, ?, ?, ?)"),
      remove_refinement(connection, "DELETE FROM refinements WHERE cell = ?"),
      put_setting(connection, "INSERT OR REPLACE INTO settings (key, value) VALUES (?, ?)") {}

WriteTransaction::WriteTransaction(Writer& writer) : writer_(writer) {
  if (writer_.taken.exchange(true)) {
    throw StoreError(writer_.folder.Grid() + ": it is being written already");
  }
  open_ = true;
  try {
    writer_.folder.Check();
    writer_.connection.Execute("BEGIN IMMEDIATE");
    totals_ = ReadTotals(writer_.connection, writer_.select_totals);
  } catch (...) {
    RollBack();
    throw;
  }
}

WriteTransaction::~WriteTransaction() { RollBack(); }

void WriteTransaction::PutSetting(const std::string& key, const std::string& value) {
  Do([&] {
    writer_.put_setting.Bind(1, key).Bind(2, value).Run(
        [&key] { return "writing the setting " + key; });
  });
}

void WriteTransaction::Commit() {
  Do([this] {
    WriteTotals(writer_.update_totals, totals_);
    writer_.folder.Check();
    const MarkedChange change(writer_.mark);
    writer_.connection.Execute("COMMIT");
  });
  End();
}

void WriteTransaction::CheckOpen() const {
  if (!open_)
    throw StoreError(writer_.folder.Grid() + ": what was being written has ended already");
}

void WriteTransaction::RollBack() noexcept {
  if (!open_) return;
  // After some errors SQLite has rolled back on its own; then there is nothing to do.
  sqlite3* const handle = writer_.connection.Handle();
  if (sqlite3_get_autocommit(handle) == 0) {
    sqlite3_exec(handle, "ROLLBACK", nullptr, nullptr, nullptr);
  }
  End();
}

void WriteTransaction::End() noexcept {
  open_ = false;
  writer_.taken = false;
}

}  // namespace quarro::store
