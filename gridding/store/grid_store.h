// A grid on disc: a folder with one SQLite database in it.
//
// The store keeps bytes by cell and line and knows nothing of their meaning; every block carries
// its own checksum. One writer at a time; any number of snapshots beside it. Errors are StoreError.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "gridding/core/lattice.h"
#include "support/exceptions.h"

namespace quarro::store {

using core::CellIndex;
using core::CellRange;
using Bytes = std::vector<std::byte>;
using Digest = std::array<std::byte, 16>;  // of a line file's bytes

// A grid that cannot be made, opened, read or written. The text names the grid's folder and the
// cause: no such grid, in use (and by whom), another format version, damaged (and where), disk
// full.
class StoreError : public ExSGClientBase {
 public:
  using ExSGClientBase::ExSGClientBase;
};

// The grid is open already.
class GridInUse : public StoreError {
 public:
  GridInUse(const std::string& reason, bool by_this_process)
      : StoreError(reason), by_this_process_(by_this_process) {}
  bool by_this_process() const { return by_this_process_; }

 private:
  bool by_this_process_;
};

struct GridParameters {
  float resolution_m = 0.0F;
  float min_resolution_m = 0.0F;
};

struct LineRecord {
  std::uint32_t sequence = 0;  // the grid's own, from 1, in the order of commitment
  std::string name;            // the file as it was submitted
  Digest digest{};
  std::uint64_t file_bytes = 0;
  std::uint64_t soundings = 0;  // used
  std::string account;          // what became of its beams, in plain text
};

struct Totals {
  std::uint64_t lines = 0;
  std::uint64_t soundings = 0;
  std::uint64_t cells = 0;
  std::uint64_t cells_refined = 0;  // with a block of more than one node
  std::uint64_t nodes_refined = 0;
  std::uint64_t cells_changed = 0;  // since the last refinement
  std::uint64_t bytes_on_disc = 0;  // database, log and all
  std::optional<CellRange> extent;  // of the cells with data
};

// The grid as it was when the snapshot was taken. One thread at a time; it may outlive later
// writes, and must be gone before its GridStore is.
class Snapshot {
 public:
  virtual ~Snapshot() = default;
  virtual Totals GetTotals() = 0;
  virtual std::vector<LineRecord> Lines() = 0;
  // A setting kept with the grid, empty when it was never set.
  virtual std::string Setting(const std::string& key) = 0;

  struct Cell {
    CellIndex index;
    std::span<const std::byte> state;       // as PutCell got it; valid during the visit
    std::span<const std::byte> refinement;  // empty when the cell has none
    bool changed = false;                   // since the last refinement
  };
  // Visits the cells of the range that have data, row by row from the south-west. Blocks of
  // refinements are read only when asked for.
  virtual void VisitCells(const CellRange& range, bool with_refinements,
                          const std::function<void(const Cell&)>& visit) = 0;
  // Cells that lines have touched since the last refinement, row-major.
  virtual std::vector<CellIndex> ChangedCells() = 0;
  // State of one cell; false when it has no data.
  virtual bool CellState(CellIndex cell, Bytes& state) = 0;
  struct LineRun {
    std::uint32_t line = 0;  // sequence number
    std::size_t bytes = 0;
  };
  // Appends the cell's soundings to `out`, in the order of lines and, in each, of the file; and to
  // `runs` how many bytes are of which line, one entry a line, ascending.
  virtual void AppendSoundings(CellIndex cell, Bytes& out, std::vector<LineRun>& runs) = 0;
};

// One line on its way in. Nothing of it is visible, or stays, without Commit.
class LineWriter {
 public:
  virtual ~LineWriter() = default;  // rolls back what was not committed
  // State of one cell with this line's own changes; false when it has none.
  virtual bool CellState(CellIndex cell, Bytes& state) = 0;
  virtual void PutCell(CellIndex cell, std::span<const std::byte> state) = 0;
  // Adds soundings of this line behind those that the cell has of it already. `count` is how many.
  virtual void AppendSoundings(CellIndex cell, std::span<const std::byte> soundings,
                               std::uint64_t count) = 0;
  virtual void PutSetting(const std::string& key, const std::string& value) = 0;
  // Makes the line visible and durable; gives the sequence number that it got. `line.sequence` is
  // not read.
  virtual std::uint32_t Commit(const LineRecord& line) = 0;
};

// One refinement of the grid, all or nothing.
class RefinementWriter {
 public:
  virtual ~RefinementWriter() = default;  // rolls back what was not committed
  // Replaces a cell's block. `nodes` is the number of its nodes, for the totals.
  virtual void Put(CellIndex cell, std::span<const std::byte> block, std::uint64_t nodes) = 0;
  // Takes a cell's block away.
  virtual void Remove(CellIndex cell) = 0;
  // A cell's block as it stands, this refinement's own changes included; false when it has none.
  virtual bool Block(CellIndex cell, Bytes& block) = 0;
  virtual void PutSetting(const std::string& key, const std::string& value) = 0;
  // Marks every cell as unchanged and makes the refinement visible and durable.
  virtual void Commit() = 0;
};

class GridStore {
 public:
  // Makes the grid's folder under `working_directory` (which must exist). A grid of that name is
  // set aside under a new name, given in `set_aside_as` (else left empty); it must not be in use,
  // unless by the caller, which closes it first. Names with a slash, a leading dot, control
  // characters or nothing in them are refused.
  static std::unique_ptr<GridStore> Create(const std::filesystem::path& working_directory,
                                           const std::string& name,
                                           const GridParameters& parameters,
                                           std::string& set_aside_as);
  static std::unique_ptr<GridStore> Open(const std::filesystem::path& working_directory,
                                         const std::string& name);
  virtual ~GridStore() = default;

  virtual const std::string& Name() const = 0;
  virtual const GridParameters& Parameters() const = 0;

  // Any thread. Snapshots taken while nothing writes show the same grid.
  virtual std::unique_ptr<Snapshot> TakeSnapshot() = 0;
  // Grows by one when a line or refinement begins to become visible, and by one when it is. While
  // it is the same even number before one snapshot and after another, both show the same grid. Any
  // thread.
  virtual std::uint64_t WriteMark() const = 0;
  // The line whose file had these bytes.
  virtual std::optional<LineRecord> FindLine(const Digest& digest) = 0;

  // The writing thread; one writer at a time.
  virtual std::unique_ptr<LineWriter> BeginLine() = 0;
  virtual std::unique_ptr<RefinementWriter> BeginRefinement() = 0;
  // Moves everything from the write-ahead log to the database and waits for the disc.
  virtual void Checkpoint() = 0;
};

}  // namespace quarro::store
