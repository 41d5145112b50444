#include "gridding/service/block_refiner.h"

#include <algorithm>
#include <cstring>

namespace quarro::service {

namespace {

// What a sounding takes while its cell and the cells around it are in work: itself, and its copies
// in the refiner.
constexpr std::uint64_t kBytesHeld = 2 * sizeof(core::PackedSounding);
constexpr std::uint64_t kBytesInWork = 96;

class GateShare {
 public:
  GateShare(MemoryGate& gate, std::uint64_t bytes) : gate_(gate), bytes_(bytes) {
    gate_.Acquire(bytes_);
  }
  ~GateShare() { gate_.Release(bytes_); }
  GateShare(const GateShare&) = delete;
  GateShare& operator=(const GateShare&) = delete;

 private:
  MemoryGate& gate_;
  std::uint64_t bytes_;
};

}  // namespace

void MemoryGate::Acquire(std::uint64_t bytes) {
  const std::uint64_t wanted = std::min(bytes, bytes_);
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return wanted <= bytes_ - used_; });
  used_ += wanted;
}

void MemoryGate::Release(std::uint64_t bytes) {
  {
    const std::lock_guard lock(mutex_);
    used_ -= std::min(bytes, bytes_);
  }
  changed_.notify_all();
}

BlockRefiner::BlockRefiner(store::Snapshot& snapshot, const core::GridSettings& settings,
                           MemoryGate& gate)
    : snapshot_(snapshot), settings_(settings), gate_(gate), refiner_(settings) {}

void BlockRefiner::Refine(core::CellIndex block, std::uint64_t mask, const TraceList& traces,
                          std::vector<RefinedCell>& out) {
  const core::CellIndex first = CellBlocks::FirstCell(block);
  FindCells(first);
  const std::uint64_t bytes = BytesOfRows();
  const bool cell_by_cell = bytes > gate_.bytes();
  const GateShare share(gate_, bytes);
  for (auto& row : slots_) {
    for (Slot& slot : row) slot.row = -1;
  }
  for (std::int32_t row = 0; row < CellBlocks::kSide; ++row) {
    for (std::int32_t column = 0; column < CellBlocks::kSide; ++column) {
      const auto place = CellBlocks::RingPlace(row + 1, column + 1);
      if (!CellBlocks::Contains(mask, row, column) || counts_[place] == 0) continue;
      const core::CellIndex cell{first.row + row, first.column + column};
      out.push_back({.cell = cell, .block = {}, .nodes = 0});
      if (nodes_per_side_[place] < 2) continue;
      if (cell_by_cell) ForgetAllBut(row, column);
      RefineCell(cell, row, column, traces, out.back());
    }
  }
}

// Counts and nodes of the block's cells and of those around it.
void BlockRefiner::FindCells(core::CellIndex first) {
  counts_.fill(0);
  nodes_per_side_.fill(0);
  const core::CellRange range = CellBlocks::RangeWithRing(first);
  snapshot_.VisitCells(range, false, [&](const store::Snapshot::Cell& cell) {
    core::Decode(cell.state, state_);
    const auto row = std::int64_t{cell.index.row} - first.row + 1;
    const auto column = std::int64_t{cell.index.column} - first.column + 1;
    const auto place =
        CellBlocks::RingPlace(static_cast<std::int32_t>(row), static_cast<std::int32_t>(column));
    counts_[place] = state_.statistics.soundings;
    nodes_per_side_[place] = core::NodesPerSide(state_.statistics, settings_);
  });
}

std::uint64_t BlockRefiner::BytesOfRows() const {
  std::uint64_t most_in_rows = 0;
  std::uint64_t most_in_work = 0;
  for (std::int32_t row = 0; row + 3 <= CellBlocks::kRingSide; ++row) {
    const auto* begin = &counts_[CellBlocks::RingPlace(row, 0)];
    std::uint64_t in_rows = 0;
    for (std::int32_t i = 0; i < 3 * CellBlocks::kRingSide; ++i) in_rows += begin[i];
    most_in_rows = std::max(most_in_rows, in_rows);
    for (std::int32_t column = 0; column + 3 <= CellBlocks::kRingSide; ++column) {
      std::uint64_t in_work = 0;
      for (std::int32_t i = 0; i < 9; ++i)
        in_work += begin[(i / 3) * CellBlocks::kRingSide + column + i % 3];
      most_in_work = std::max(most_in_work, in_work);
    }
  }
  return kBytesHeld * most_in_rows + kBytesInWork * most_in_work;
}

void BlockRefiner::RefineCell(core::CellIndex cell, std::int32_t row, std::int32_t column,
                              const TraceList& traces, RefinedCell& out) {
  core::Neighbourhood cells{};
  for (std::int32_t i = 0; i < 9; ++i) {
    const std::int32_t to_north = i / 3 - 1;
    const std::int32_t to_east = i % 3 - 1;
    const std::int32_t ring_row = row + 1 + to_north;
    const std::int32_t ring_column = column + 1 + to_east;
    if (counts_[CellBlocks::RingPlace(ring_row, ring_column)] == 0) continue;
    cells[static_cast<std::size_t>(i)] =
        Soundings({cell.row + to_north, cell.column + to_east}, ring_row, ring_column);
  }
  const std::uint32_t side = nodes_per_side_[CellBlocks::RingPlace(row + 1, column + 1)];
  refiner_.Refine(side, cells, refinement_);
  for (const auto& trace : TracesIn(traces, cell)) {
    trace->Step("# refinement into " + std::to_string(side) + " x " + std::to_string(side) +
                " nodes");
    refiner_.Refine(side, cells, refinement_, trace.get(),
                    trace->NodeNearest(side, settings_.resolution_m));
    trace->Flush();
  }
  core::Encode(refinement_, out.block);
  out.nodes = std::uint64_t{side} * side;
}

const core::CellSoundings* BlockRefiner::Soundings(core::CellIndex cell, std::int32_t row,
                                                   std::int32_t column) {
  Slot& slot = slots_[static_cast<std::size_t>(row % 3)][static_cast<std::size_t>(column)];
  if (slot.row == row) return &slot.soundings;
  bytes_.clear();
  runs_.clear();
  snapshot_.AppendSoundings(cell, bytes_, runs_);
  constexpr std::size_t kSize = sizeof(core::PackedSounding);
  slot.soundings.soundings.resize(bytes_.size() / kSize);
  if (!bytes_.empty()) {
    std::memcpy(slot.soundings.soundings.data(), bytes_.data(),
                slot.soundings.soundings.size() * kSize);
  }
  slot.soundings.runs.clear();
  for (const auto& run : runs_) {
    slot.soundings.runs.push_back({run.line, static_cast<std::uint32_t>(run.bytes / kSize)});
  }
  slot.row = row;
  return &slot.soundings;
}

void BlockRefiner::ForgetAllBut(std::int32_t row, std::int32_t column) {
  for (auto& slots : slots_) {
    for (std::int32_t i = 0; i < CellBlocks::kRingSide; ++i) {
      Slot& slot = slots[static_cast<std::size_t>(i)];
      const bool wanted = i >= column && i <= column + 2 && slot.row >= row && slot.row <= row + 2;
      if (!wanted) slot = Slot();
    }
  }
}

}  // namespace quarro::service
