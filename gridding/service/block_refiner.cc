#include "gridding/service/block_refiner.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "gridding/core/encoding.h"
#include "gridding/store/cell_key.h"

namespace quarro::service {

namespace {

// What a sounding takes while its cell and the cells around it are in work: itself, and its copies
// in the refiner.
constexpr std::uint64_t kBytesHeld = 2 * sizeof(core::PackedSounding);
constexpr std::uint64_t kBytesInWork = 96;
// Of one cell by itself, with the nodes that its soundings make.
constexpr std::uint64_t kBytesAlone = 200;

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

void MemoryGate::NoteExcess(const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (excess_.empty()) excess_ = text;
}

std::string MemoryGate::Excess() {
  const std::lock_guard lock(mutex_);
  return excess_;
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
      if (cell_by_cell) {
        RefineLargeCell(cell, row, column, traces, out.back());
      } else {
        RefineCell(cell, row, column, traces, out.back());
      }
    }
  }
}

// Holds nothing of other cells but what the cell's edge nodes can reach, and nothing afterwards.
void BlockRefiner::RefineLargeCell(core::CellIndex cell, std::int32_t row, std::int32_t column,
                                   const TraceList& traces, RefinedCell& out) {
  const std::size_t place = CellBlocks::RingPlace(row + 1, column + 1);
  CheckMemory(cell, counts_[place]);
  const std::uint32_t side = nodes_per_side_[place];
  // The refiner looks one node spacing beyond the edge; a little more does no harm.
  constexpr double kMargin = 1.01;
  reach_m_ = (0.5 + kMargin / side) * settings_.resolution_m;
  RefineCell(cell, row, column, traces, out);
  reach_m_ = 0.0;
  for (auto& slots : slots_) slots.fill({});
  bytes_ = {};
  refiner_ = core::CellRefiner(settings_);
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
    if (reach_m_ > 0.0 && i != core::kCentre) {
      KeepWithinReach(to_east * settings_.resolution_m, to_north * settings_.resolution_m,
                      SlotAt(ring_row, ring_column).soundings);
    }
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

// The nodes of a cell are estimated together, so its soundings are all in memory.
void BlockRefiner::CheckMemory(core::CellIndex cell, std::uint64_t soundings) {
  const std::uint64_t bytes = kBytesAlone * soundings;
  if (bytes <= gate_.bytes()) return;
  gate_.NoteExcess(store::Describe(cell) + " holds " + std::to_string(soundings) +
                   " soundings, whose refinement takes some " + std::to_string(bytes >> 20U) +
                   " MiB, more than the half of MemoryMiB of section Engine: make a grid of "
                   "smaller cells, or raise MemoryMiB");
}

// Drops the soundings of a cell so far away from which the cell in work cannot be reached.
void BlockRefiner::KeepWithinReach(double east_m, double north_m, core::CellSoundings& cell) const {
  std::vector<core::PackedSounding> kept;
  std::size_t next = 0;
  for (core::LineRun& run : cell.runs) {
    const std::size_t before = kept.size();
    for (const std::size_t end = next + run.count; next != end; ++next) {
      const core::PackedSounding& sounding = cell.soundings[next];
      if (std::abs(sounding.east_m + east_m) > reach_m_) continue;
      if (std::abs(sounding.north_m + north_m) > reach_m_) continue;
      kept.push_back(sounding);
    }
    run.count = static_cast<std::uint32_t>(kept.size() - before);
  }
  kept.shrink_to_fit();
  cell.soundings = std::move(kept);
}

const core::CellSoundings* BlockRefiner::Soundings(core::CellIndex cell, std::int32_t row,
                                                   std::int32_t column) {
  Slot& slot = SlotAt(row, column);
  if (slot.row == row) return &slot.soundings;
  bytes_.clear();
  runs_.clear();
  snapshot_.AppendSoundings(cell, bytes_, runs_);
  constexpr std::size_t kSize = sizeof(core::PackedSounding);
  slot.soundings.runs.clear();
  for (const auto& run : runs_) {
    if (run.bytes % kSize != 0) {
      throw core::EncodingError("the soundings of a cell have the wrong length");
    }
    slot.soundings.runs.push_back({run.line, static_cast<std::uint32_t>(run.bytes / kSize)});
  }
  slot.soundings.soundings.resize(bytes_.size() / kSize);
  if (!bytes_.empty()) {
    std::memcpy(slot.soundings.soundings.data(), bytes_.data(), bytes_.size());
  }
  slot.row = row;
  return &slot.soundings;
}

}  // namespace quarro::service
