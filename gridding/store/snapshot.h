// Reading a grid: one connection a snapshot, kept for the next one when it is gone.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "gridding/store/database.h"
#include "gridding/store/grid_store.h"
#include "gridding/store/held_folder.h"

namespace quarro::store {

// A connection that reads, with the statements that are run often.
struct Reader {
  Reader(const std::filesystem::path& database, const std::string& grid);

  Connection connection;
  Statement select_totals;
  Statement select_cell_state;
  Statement select_soundings;
};

// Any thread.
class ReaderPool {
 public:
  // `folder` outlives this.
  explicit ReaderPool(const HeldFolder& folder) : folder_(folder) {}
  // Throws StoreError when the folder was moved or removed.
  std::unique_ptr<Reader> Take();
  void GiveBack(std::unique_ptr<Reader> reader);
  const std::filesystem::path& Folder() const { return folder_.Path(); }

 private:
  const HeldFolder& folder_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<Reader>> idle_;  // guarded by mutex_
};

class SqliteSnapshot : public Snapshot {
 public:
  explicit SqliteSnapshot(ReaderPool& pool);
  SqliteSnapshot(const SqliteSnapshot&) = delete;
  SqliteSnapshot& operator=(const SqliteSnapshot&) = delete;
  ~SqliteSnapshot() override;

  Totals GetTotals() override;
  std::vector<LineRecord> Lines() override;
  std::string Setting(const std::string& key) override;
  void VisitCells(const CellRange& range, bool with_refinements,
                  const std::function<void(const Cell&)>& visit) override;
  std::vector<CellIndex> ChangedCells() override;
  bool CellState(CellIndex cell, Bytes& state) override;
  void AppendSoundings(CellIndex cell, Bytes& out, std::vector<LineRun>& runs) override;

  std::optional<LineRecord> FindLine(const Digest& digest);

 private:
  void EndTransaction();
  std::string DescribeLine(std::int64_t sequence);
  bool StepToBlock(Statement& select, CellIndex cell, std::int64_t blocks);
  std::string LineOfBlock(CellIndex cell, std::int64_t block);

  ReaderPool& pool_;
  std::unique_ptr<Reader> reader_;
  Totals totals_;
};

// The row of a statement that selects block and checksum of one cell, verified. `what` the block is
// goes into the text of a failure. False when there is none.
bool ReadCellBlock(Connection& connection, Statement& select, const char* what, CellIndex cell,
                   Bytes& block);
inline constexpr const char* kSelectCellState = "SELECT state, checksum FROM cells WHERE cell = ?";

}  // namespace quarro::store
