// The choice of hypotheses for the refined cells of one block.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "gridding/core/refinement.h"
#include "gridding/service/block_refiner.h"
#include "gridding/service/cell_blocks.h"
#include "gridding/service/estimated_blocks.h"
#include "gridding/store/grid_store.h"

namespace quarro::service {

// Chooses block after block. Refinements that were estimated anew replace those of the snapshot.
// One thread at a time.
class BlockChooser {
 public:
  // The references must outlive this.
  BlockChooser(store::Snapshot& snapshot, const core::GridSettings& settings)
      : snapshot_(snapshot), settings_(settings) {}

  // Adds an entry to `out` for each cell of the mask that was estimated anew, and for each other
  // whose block came out different from the one stored.
  void Choose(core::CellIndex block, std::uint64_t mask, const EstimatedBlocks& estimated,
              std::vector<RefinedCell>& out);

 private:
  struct Slot {
    bool estimated = false;  // anew, maybe as not refined
    bool refined = false;
    core::Refinement refinement;
    store::Bytes stored;  // as in the snapshot, when not estimated anew
  };

  void Load(core::CellIndex first, const EstimatedBlocks& estimated);
  void LoadStored(core::CellIndex first);
  Slot& SlotAt(std::int32_t row, std::int32_t column) {
    return slots_[CellBlocks::RingPlace(row, column)];
  }
  void ChooseCell(std::int32_t row, std::int32_t column, core::CellIndex cell,
                  std::vector<RefinedCell>& out);

  store::Snapshot& snapshot_;
  const core::GridSettings settings_;
  std::array<Slot, CellBlocks::kRingCells> slots_;  // row-major
};

}  // namespace quarro::service
