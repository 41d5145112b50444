#include "gridding/store/snapshot.h"

#include <algorithm>
#include <utility>

#include "gridding/store/cell_key.h"
#include "gridding/store/grid_folder.h"
#include "gridding/store/schema.h"

namespace quarro::store {

namespace {

constexpr int kReaderCache_kib = 4 * 1024;
constexpr std::size_t kIdleReaders = 8;
constexpr const char* kDoesNotMatch = " does not match its checksum";

LineRecord ReadLine(Connection& connection, const Statement& row) {
  LineRecord line{.sequence = static_cast<std::uint32_t>(row.Integer(0)),
                  .name = row.Text(1),
                  .digest = {},
                  .file_bytes = static_cast<std::uint64_t>(row.Integer(3)),
                  .soundings = static_cast<std::uint64_t>(row.Integer(4)),
                  .account = row.Text(5)};
  const auto digest = row.Blob(2);
  if (digest.size() != line.digest.size()) {
    connection.FailDamaged("the record of line " + std::to_string(line.sequence) +
                           " has no whole digest");
  }
  std::copy(digest.begin(), digest.end(), line.digest.begin());
  return line;
}

constexpr const char* kVisitStates =
    "SELECT c.cell, c.state, c.checksum, h.cell IS NOT NULL FROM cells AS c "
    "LEFT JOIN changed_cells AS h ON h.cell = c.cell "
    "WHERE c.cell BETWEEN ?1 AND ?2 ORDER BY c.cell";
constexpr const char* kVisitStatesAndRefinements =
    "SELECT c.cell, c.state, c.checksum, h.cell IS NOT NULL, r.block, r.checksum FROM cells AS c "
    "LEFT JOIN changed_cells AS h ON h.cell = c.cell "
    "LEFT JOIN refinements AS r ON r.cell = c.cell "
    "WHERE c.cell BETWEEN ?1 AND ?2 ORDER BY c.cell";

// The first key at or after `cell` in row-major order that lies in the range, when `cell` does not;
// nothing beyond its end.
std::optional<std::int64_t> NextInRange(CellIndex cell, const CellRange& range) {
  const std::int32_t west = range.south_west.column;
  if (cell.column < west) return KeyOf({.row = cell.row, .column = west});
  if (cell.row >= range.north_east.row) return std::nullopt;
  return KeyOf({.row = cell.row + 1, .column = west});
}

}  // namespace

Reader::Reader(const std::filesystem::path& database, const std::string& grid)
    : connection(database, grid, Connection::Mode::kRead, kReaderCache_kib),
      select_totals(connection, kSelectTotals),
      select_cell_state(connection, kSelectCellState),
      select_soundings(connection,
                       "SELECT data, checksum, line, part FROM soundings WHERE cell = ? "
                       "ORDER BY line, part") {}

std::unique_ptr<Reader> ReaderPool::Take() {
  folder_.Check();
  {
    const std::lock_guard lock(mutex_);
    if (!idle_.empty()) {
      auto reader = std::move(idle_.back());
      idle_.pop_back();
      return reader;
    }
  }
  auto reader = std::make_unique<Reader>(folder_.Path() / kDatabaseFile, folder_.Grid());
  folder_.Check();  // what lies at the path is the grid's only if nobody put another one there
  return reader;
}

void ReaderPool::GiveBack(std::unique_ptr<Reader> reader) {
  const std::lock_guard lock(mutex_);
  if (idle_.size() < kIdleReaders) idle_.push_back(std::move(reader));
}

SqliteSnapshot::SqliteSnapshot(ReaderPool& pool) : pool_(pool), reader_(pool.Take()) {
  // A failure here leaves the connection to be closed, not to the pool. The transaction begins with
  // its first read.
  reader_->connection.Execute("BEGIN");
  totals_ = ReadTotals(reader_->connection, reader_->select_totals);
}

SqliteSnapshot::~SqliteSnapshot() {
  try {
    EndTransaction();
  } catch (const StoreError&) {
    reader_.reset();  // a connection in doubt is not used again
  }
}

void SqliteSnapshot::EndTransaction() {
  reader_->connection.Execute("ROLLBACK");
  pool_.GiveBack(std::move(reader_));
}

Totals SqliteSnapshot::GetTotals() {
  Totals totals = totals_;
  totals.bytes_on_disc = BytesInFolder(pool_.Folder());
  return totals;
}

std::vector<LineRecord> SqliteSnapshot::Lines() {
  Statement select(reader_->connection,
                   "SELECT sequence, name, digest, file_bytes, soundings, account FROM lines "
                   "ORDER BY sequence");
  std::vector<LineRecord> lines;
  while (select.Step([] { return "reading its lines"; })) {
    lines.push_back(ReadLine(reader_->connection, select));
  }
  return lines;
}

std::string SqliteSnapshot::Setting(const std::string& key) {
  Statement select(reader_->connection, "SELECT value FROM settings WHERE key = ?");
  select.Bind(1, key);
  const bool found = select.Step([&key] { return "reading the setting " + key; });
  return found ? select.Text(0) : std::string();
}

void SqliteSnapshot::VisitCells(const CellRange& range, bool with_refinements,
                                const std::function<void(const Cell&)>& visit) {
  if (range.north_east.row < range.south_west.row) return;
  if (range.north_east.column < range.south_west.column) return;
  Connection& connection = reader_->connection;
  Statement select(connection, with_refinements ? kVisitStatesAndRefinements : kVisitStates);
  select.Bind(2, KeyOf(range.north_east));
  std::int64_t next = KeyOf(range.south_west);
  select.Bind(1, next);
  while (select.Step(
      [next] { return "reading the cells from " + Describe(CellOfKey(next)) + " on"; })) {
    const std::int64_t key = select.Integer(0);
    const CellIndex index = CellOfKey(key);
    if (!range.Contains(index)) {
      const auto jump = NextInRange(index, range);
      if (!jump) return;
      next = *jump;
      select.Reset();
      select.Bind(1, next);
      continue;
    }
    Cell cell{.index = index,
              .state = select.Blob(1),
              .refinement = {},
              .changed = select.Integer(3) != 0};
    if (BlockChecksum(cell.state, key) != select.Integer(2)) {
      connection.FailDamaged("the state of " + Describe(index) + kDoesNotMatch);
    }
    if (with_refinements && !select.IsNull(5)) {
      cell.refinement = select.Blob(4);
      if (BlockChecksum(cell.refinement, key) != select.Integer(5)) {
        connection.FailDamaged("the refinement of " + Describe(index) + kDoesNotMatch);
      }
    }
    visit(cell);
    next = key;
  }
}

std::vector<CellIndex> SqliteSnapshot::ChangedCells() {
  Statement select(reader_->connection, "SELECT cell FROM changed_cells ORDER BY cell");
  std::vector<CellIndex> cells;
  while (select.Step([] { return "reading which cells have changed"; })) {
    cells.push_back(CellOfKey(select.Integer(0)));
  }
  return cells;
}

bool SqliteSnapshot::CellState(CellIndex cell, Bytes& state) {
  return ReadCellBlock(reader_->connection, reader_->select_cell_state, "state", cell, state);
}

void SqliteSnapshot::AppendSoundings(CellIndex cell, Bytes& out, std::vector<LineRun>& runs) {
  const std::size_t runs_before = runs.size();
  Statement& select = reader_->select_soundings;
  const ResetAtEnd reset(select);
  const std::int64_t key = KeyOf(cell);
  select.Bind(1, key);
  for (std::int64_t blocks = 0; StepToBlock(select, cell, blocks); ++blocks) {
    const auto block = select.Blob(0);
    const std::int64_t line = select.Integer(2);
    if (BlockChecksum(block, key, line, select.Integer(3)) != select.Integer(1)) {
      reader_->connection.FailDamaged("a block of soundings of " + Describe(cell) + " from " +
                                      DescribeLine(line) + kDoesNotMatch);
    }
    out.insert(out.end(), block.begin(), block.end());
    if (runs.size() == runs_before || runs.back().line != line) {
      runs.push_back({.line = static_cast<std::uint32_t>(line), .bytes = 0});
    }
    runs.back().bytes += block.size();
  }
}

// A failure names the line whose block comes after the `blocks` of the cell that were read.
bool SqliteSnapshot::StepToBlock(Statement& select, CellIndex cell, std::int64_t blocks) {
  try {
    return select.Step([cell] { return "reading the soundings of " + Describe(cell); });
  } catch (const StoreError& failure) {
    throw StoreError(failure.what() + LineOfBlock(cell, blocks));
  }
}

// " from line 3 (c.gsf)", as the index tells it; nothing where that cannot be read either.
std::string SqliteSnapshot::LineOfBlock(CellIndex cell, std::int64_t block) {
  try {
    Statement select(reader_->connection,
                     "SELECT line FROM soundings WHERE cell = ? ORDER BY line, part "
                     "LIMIT 1 OFFSET ?");
    select.Bind(1, KeyOf(cell)).Bind(2, block);
    const bool found = select.Step([] { return std::string(); });
    return found ? " from " + DescribeLine(select.Integer(0)) : std::string();
  } catch (const StoreError&) {
    return {};
  }
}

std::string SqliteSnapshot::DescribeLine(std::int64_t sequence) {
  Statement select(reader_->connection, "SELECT name FROM lines WHERE sequence = ?");
  select.Bind(1, sequence);
  const std::string line = "line " + std::to_string(sequence);
  return select.Step([] { return "reading its lines"; }) ? line + " (" + select.Text(0) + ")"
                                                         : line;
}

std::optional<LineRecord> SqliteSnapshot::FindLine(const Digest& digest) {
  Statement select(reader_->connection,
                   "SELECT sequence, name, digest, file_bytes, soundings, account FROM lines "
                   "WHERE digest = ? ORDER BY sequence LIMIT 1");
  select.Bind(1, std::span<const std::byte>(digest));
  if (!select.Step([] { return "looking for a line"; })) return std::nullopt;
  return ReadLine(reader_->connection, select);
}

bool ReadCellBlock(Connection& connection, Statement& select, const char* what, CellIndex cell,
                   Bytes& block) {
  const ResetAtEnd reset(select);
  const std::int64_t key = KeyOf(cell);
  select.Bind(1, key);
  if (!select.Step([&] { return std::string("reading the ") + what + " of " + Describe(cell); })) {
    return false;
  }
  const auto bytes = select.Blob(0);
  if (BlockChecksum(bytes, key) != select.Integer(1)) {
    connection.FailDamaged(std::string("the ") + what + " of " + Describe(cell) + kDoesNotMatch);
  }
  block.assign(bytes.begin(), bytes.end());
  return true;
}

}  // namespace quarro::store
