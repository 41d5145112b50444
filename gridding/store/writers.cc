#include "gridding/store/writers.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "gridding/store/cell_key.h"
#include "gridding/store/snapshot.h"

namespace quarro::store {

namespace {

constexpr std::size_t kPendingLimit_bytes = std::size_t{16} * 1024 * 1024;
// Of a block's entry in the map and of the memory that holds it, beside its bytes.
constexpr std::size_t kPlaceOfBlock_bytes = 128;

void Extend(std::optional<CellRange>& extent, CellIndex cell) {
  if (!extent) extent = CellRange{.south_west = cell, .north_east = cell};
  extent->south_west.row = std::min(extent->south_west.row, cell.row);
  extent->south_west.column = std::min(extent->south_west.column, cell.column);
  extent->north_east.row = std::max(extent->north_east.row, cell.row);
  extent->north_east.column = std::max(extent->north_east.column, cell.column);
}

bool IsRefined(std::uint64_t nodes) { return nodes > 1; }

}  // namespace

SqliteLineWriter::SqliteLineWriter(Writer& writer)
    : transaction_(writer), sequence_(NextSequence()) {}

std::uint32_t SqliteLineWriter::NextSequence() {
  Connection& connection = transaction_.GetWriter().connection;
  Statement select(connection, "SELECT max(sequence) FROM lines");
  const auto doing = [] { return "reading its lines"; };
  const std::int64_t last = select.Step(doing) ? select.Integer(0) : 0;
  if (last >= std::numeric_limits<std::uint32_t>::max()) {
    connection.FailDamaged("its lines are numbered up to " + std::to_string(last));
  }
  return static_cast<std::uint32_t>(last + 1);
}

bool SqliteLineWriter::CellState(CellIndex cell, Bytes& state) {
  bool found = false;
  transaction_.Do([&] {
    Writer& writer = transaction_.GetWriter();
    found = ReadCellBlock(writer.connection, writer.select_cell_state, "state", cell, state);
  });
  return found;
}

void SqliteLineWriter::PutCell(CellIndex cell, std::span<const std::byte> state) {
  transaction_.Do([&] {
    WriteCell(cell, state);
    MarkChanged(cell);
  });
}

void SqliteLineWriter::WriteCell(CellIndex cell, std::span<const std::byte> state) {
  Writer& writer = transaction_.GetWriter();
  const std::int64_t key = KeyOf(cell);
  const std::int64_t checksum = BlockChecksum(state, key);
  const auto doing = [cell] { return "writing the state of " + Describe(cell); };
  writer.update_cell.Bind(1, key).Bind(2, checksum).Bind(3, state).Run(doing);
  if (writer.connection.RowsChanged() > 0) return;
  writer.insert_cell.Bind(1, key).Bind(2, checksum).Bind(3, state).Run(doing);
  ++transaction_.GetTotals().cells;
  Extend(transaction_.GetTotals().extent, cell);
}

void SqliteLineWriter::MarkChanged(CellIndex cell) {
  Writer& writer = transaction_.GetWriter();
  writer.mark_changed.Bind(1, KeyOf(cell)).Run([cell] {
    return "marking " + Describe(cell) + " as changed";
  });
  if (writer.connection.RowsChanged() > 0) ++transaction_.GetTotals().cells_changed;
}

void SqliteLineWriter::AppendSoundings(CellIndex cell, std::span<const std::byte> soundings,
                                       std::uint64_t count) {
  transaction_.Do([&] {
    Bytes& block = pending_[KeyOf(cell)];
    if (block.empty()) pending_bytes_ += kPlaceOfBlock_bytes;
    block.insert(block.end(), soundings.begin(), soundings.end());
    pending_bytes_ += soundings.size();
    transaction_.GetTotals().soundings += count;
    if (pending_bytes_ >= kPendingLimit_bytes) WritePending();
  });
}

void SqliteLineWriter::WritePending() {
  Statement& insert = transaction_.GetWriter().insert_soundings;
  for (const auto& [key, block] : pending_) {
    const CellIndex cell = CellOfKey(key);
    insert.Bind(1, key)
        .Bind(2, std::int64_t{sequence_})
        .Bind(3, part_)
        .Bind(4, BlockChecksum(block, key, sequence_, part_))
        .Bind(5, std::span<const std::byte>(block))
        .Run([cell] { return "writing soundings of " + Describe(cell); });
    MarkChanged(cell);
  }
  pending_.clear();
  pending_bytes_ = 0;
  ++part_;
}

void SqliteLineWriter::PutSetting(const std::string& key, const std::string& value) {
  transaction_.PutSetting(key, value);
}

std::uint32_t SqliteLineWriter::Commit(const LineRecord& line) {
  transaction_.Do([&] {
    WritePending();
    InsertLine(line);
    ++transaction_.GetTotals().lines;
  });
  transaction_.Commit();
  return sequence_;
}

void SqliteLineWriter::InsertLine(const LineRecord& line) {
  transaction_.GetWriter()
      .insert_line.Bind(1, std::int64_t{sequence_})
      .Bind(2, line.name)
      .Bind(3, std::span<const std::byte>(line.digest))
      .Bind(4, static_cast<std::int64_t>(line.file_bytes))
      .Bind(5, static_cast<std::int64_t>(line.soundings))
      .Bind(6, line.account)
      .Run([&line] { return "writing the record of line " + line.name; });
}

void SqliteRefinementWriter::Put(CellIndex cell, std::span<const std::byte> block,
                                 std::uint64_t nodes) {
  transaction_.Do([&] {
    TakeFromTotals(cell);
    const std::int64_t key = KeyOf(cell);
    transaction_.GetWriter()
        .put_refinement.Bind(1, key)
        .Bind(2, static_cast<std::int64_t>(nodes))
        .Bind(3, BlockChecksum(block, key))
        .Bind(4, block)
        .Run([cell] { return "writing the refinement of " + Describe(cell); });
    if (!IsRefined(nodes)) return;
    ++transaction_.GetTotals().cells_refined;
    transaction_.GetTotals().nodes_refined += nodes;
  });
}

void SqliteRefinementWriter::Remove(CellIndex cell) {
  transaction_.Do([&] {
    TakeFromTotals(cell);
    transaction_.GetWriter().remove_refinement.Bind(1, KeyOf(cell)).Run([cell] {
      return "removing the refinement of " + Describe(cell);
    });
  });
}

bool SqliteRefinementWriter::Block(CellIndex cell, Bytes& block) {
  bool found = false;
  transaction_.Do([&] {
    Writer& writer = transaction_.GetWriter();
    found = ReadCellBlock(writer.connection, writer.select_refinement, "refinement", cell, block);
  });
  return found;
}

void SqliteRefinementWriter::TakeFromTotals(CellIndex cell) {
  Statement& select = transaction_.GetWriter().select_nodes;
  const ResetAtEnd reset(select);
  select.Bind(1, KeyOf(cell));
  if (!select.Step([cell] { return "reading the refinement of " + Describe(cell); })) return;
  const auto nodes = static_cast<std::uint64_t>(select.Integer(0));
  if (!IsRefined(nodes)) return;
  --transaction_.GetTotals().cells_refined;
  transaction_.GetTotals().nodes_refined -= nodes;
}

void SqliteRefinementWriter::PutSetting(const std::string& key, const std::string& value) {
  transaction_.PutSetting(key, value);
}

void SqliteRefinementWriter::Commit() {
  transaction_.Do([this] {
    transaction_.GetWriter().connection.Execute("DELETE FROM changed_cells");
    transaction_.GetTotals().cells_changed = 0;
  });
  transaction_.Commit();
}

}  // namespace quarro::store
