// Refinement of the cells of one block.
#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "gridding/core/refinement.h"
#include "gridding/service/cell_blocks.h"
#include "gridding/service/traces.h"
#include "gridding/store/grid_store.h"

namespace quarro::service {

// Shares an amount of memory out among threads. Any thread.
class MemoryGate {
 public:
  explicit MemoryGate(std::uint64_t bytes) : bytes_(bytes) {}
  std::uint64_t bytes() const { return bytes_; }

  // Waits until `bytes` are free; more than there are at all count as all of them.
  void Acquire(std::uint64_t bytes);
  void Release(std::uint64_t bytes);
  // Keeps what is told of the first cell that needs more by itself than there is.
  void NoteExcess(const std::string& text);
  std::string Excess();  // empty: none did

 private:
  const std::uint64_t bytes_;
  std::condition_variable changed_;
  std::mutex mutex_;  // guards all below
  std::uint64_t used_ = 0;
  std::string excess_;
};

struct RefinedCell {
  core::CellIndex cell;
  store::Bytes block;  // empty: the cell is not refined
  std::uint64_t nodes = 0;
};

// Refines blocks one after another. It holds three rows of cells of a block, so that each cell's
// soundings are read about once, or only a cell and what it needs of its neighbours where three
// rows of them are more than the gate gives. One thread at a time.
class BlockRefiner {
 public:
  // The references must outlive this.
  BlockRefiner(store::Snapshot& snapshot, const core::GridSettings& settings, MemoryGate& gate);

  // Adds an entry to `out` for each cell of the mask that has data, row-major.
  void Refine(core::CellIndex block, std::uint64_t mask, const TraceList& traces,
              std::vector<RefinedCell>& out);

 private:
  struct Slot {
    core::CellSoundings soundings;
    std::int64_t row = -1;  // in the block and its ring; -1: nothing loaded
  };

  void FindCells(core::CellIndex first);
  std::uint64_t BytesOfRows() const;
  void RefineCell(core::CellIndex cell, std::int32_t row, std::int32_t column,
                  const TraceList& traces, RefinedCell& out);
  const core::CellSoundings* Soundings(core::CellIndex cell, std::int32_t row, std::int32_t column);
  void RefineLargeCell(core::CellIndex cell, std::int32_t row, std::int32_t column,
                       const TraceList& traces, RefinedCell& out);
  void CheckMemory(core::CellIndex cell, std::uint64_t soundings);
  void KeepWithinReach(double east_m, double north_m, core::CellSoundings& cell) const;
  Slot& SlotAt(std::int32_t row, std::int32_t column) {
    return slots_[static_cast<std::size_t>(row % 3)][static_cast<std::size_t>(column)];
  }

  store::Snapshot& snapshot_;
  const core::GridSettings settings_;
  MemoryGate& gate_;
  core::CellRefiner refiner_;
  core::CellState state_;
  core::Refinement refinement_;
  // Of the block and its ring, row-major.
  std::array<std::uint64_t, CellBlocks::kRingCells> counts_{};
  std::array<std::uint32_t, CellBlocks::kRingCells> nodes_per_side_{};
  std::array<std::array<Slot, CellBlocks::kRingSide>, 3> slots_;  // row modulo 3, column
  double reach_m_ = 0.0;  // above 0: what lies farther than this from the cell's node is not held
  store::Bytes bytes_;
  std::vector<store::Snapshot::LineRun> runs_;
};

}  // namespace quarro::service
