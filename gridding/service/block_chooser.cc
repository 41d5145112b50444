#include "gridding/service/block_chooser.h"

#include "gridding/core/choice.h"

namespace quarro::service {

void BlockChooser::Choose(core::CellIndex block, std::uint64_t mask,
                          const EstimatedBlocks& estimated, std::vector<RefinedCell>& out) {
  const core::CellIndex first = CellBlocks::FirstCell(block);
  Load(first, estimated);
  for (std::int32_t row = 0; row < CellBlocks::kSide; ++row) {
    for (std::int32_t column = 0; column < CellBlocks::kSide; ++column) {
      if (!CellBlocks::Contains(mask, row, column)) continue;
      ChooseCell(row, column, {first.row + row, first.column + column}, out);
    }
  }
}

void BlockChooser::Load(core::CellIndex first, const EstimatedBlocks& estimated) {
  for (Slot& slot : slots_) slot.estimated = slot.refined = false;
  LoadStored(first);
  for (std::int32_t row = 0; row < CellBlocks::kRingSide; ++row) {
    for (std::int32_t column = 0; column < CellBlocks::kRingSide; ++column) {
      const auto cell = CellBlocks::Neighbour(first, row - 1, column - 1);
      if (!cell) continue;
      const auto block = estimated.Find(*cell);
      if (!block) continue;
      Slot& slot = SlotAt(row, column);
      slot.estimated = true;
      slot.refined = !block->empty();
      if (slot.refined) core::Decode(*block, slot.refinement);
    }
  }
}

void BlockChooser::LoadStored(core::CellIndex first) {
  const core::CellRange range = CellBlocks::RangeWithRing(first);
  snapshot_.VisitCells(range, true, [&](const store::Snapshot::Cell& cell) {
    if (cell.refinement.empty()) return;
    Slot& slot =
        SlotAt(static_cast<std::int32_t>(std::int64_t{cell.index.row} - first.row + 1),
               static_cast<std::int32_t>(std::int64_t{cell.index.column} - first.column + 1));
    core::Decode(cell.refinement, slot.refinement);
    slot.refined = true;
    slot.stored.assign(cell.refinement.begin(), cell.refinement.end());
  });
}

void BlockChooser::ChooseCell(std::int32_t row, std::int32_t column, core::CellIndex cell,
                              std::vector<RefinedCell>& out) {
  Slot& slot = SlotAt(row + 1, column + 1);
  if (!slot.refined) {
    if (slot.estimated) out.push_back({.cell = cell, .block = {}, .nodes = 0});
    return;
  }
  core::RefinedNeighbourhood cells{};
  for (std::int32_t i = 0; i < 9; ++i) {
    const Slot& neighbour = SlotAt(row + i / 3, column + i % 3);
    if (neighbour.refined) cells[static_cast<std::size_t>(i)] = &neighbour.refinement;
  }
  core::ChooseHypotheses(cells, settings_, slot.refinement);
  RefinedCell chosen;
  chosen.cell = cell;
  chosen.nodes = std::uint64_t{slot.refinement.nodes_per_side} * slot.refinement.nodes_per_side;
  core::Encode(slot.refinement, chosen.block);
  if (slot.estimated || chosen.block != slot.stored) out.push_back(std::move(chosen));
}

}  // namespace quarro::service
