#include "gridding/service/cell_blocks.h"

#include <algorithm>
#include <limits>

namespace quarro::service {

namespace {

using Limits = std::numeric_limits<std::int32_t>;

constexpr std::int32_t BlockAlong(std::int32_t index) {
  constexpr std::int64_t kSide = CellBlocks::kSide;
  const std::int64_t wide = index;
  return static_cast<std::int32_t>(wide >= 0 ? wide / kSide : -((kSide - 1 - wide) / kSide));
}

std::int32_t Clamped(std::int64_t index) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(index, Limits::min(), Limits::max()));
}

}  // namespace

void CellBlocks::Add(core::CellIndex cell) {
  blocks_[BlockOf(cell)] |= std::uint64_t{1} << PlaceOf(cell);
}

void CellBlocks::AddWithNeighbours(core::CellIndex cell) {
  for (std::int32_t rows = -1; rows <= 1; ++rows) {
    for (std::int32_t columns = -1; columns <= 1; ++columns) {
      if (const auto neighbour = Neighbour(cell, rows, columns)) Add(*neighbour);
    }
  }
}

CellBlocks CellBlocks::Widened() const {
  CellBlocks widened;
  for (const auto& [block, mask] : blocks_) {
    const core::CellIndex first = FirstCell(block);
    for (std::int32_t row = 0; row < kSide; ++row) {
      for (std::int32_t column = 0; column < kSide; ++column) {
        if (Contains(mask, row, column)) {
          widened.AddWithNeighbours({first.row + row, first.column + column});
        }
      }
    }
  }
  return widened;
}

core::CellIndex CellBlocks::FirstCell(core::CellIndex block) {
  return {block.row * kSide, block.column * kSide};
}

core::CellIndex CellBlocks::BlockOf(core::CellIndex cell) {
  return {BlockAlong(cell.row), BlockAlong(cell.column)};
}

std::uint32_t CellBlocks::PlaceOf(core::CellIndex cell) {
  const core::CellIndex first = FirstCell(BlockOf(cell));
  return static_cast<std::uint32_t>(kSide * (cell.row - first.row) + (cell.column - first.column));
}

std::optional<core::CellIndex> CellBlocks::Neighbour(core::CellIndex cell, std::int32_t rows,
                                                     std::int32_t columns) {
  const core::CellIndex found{Clamped(std::int64_t{cell.row} + rows),
                              Clamped(std::int64_t{cell.column} + columns)};
  if (std::int64_t{found.row} - cell.row != rows ||
      std::int64_t{found.column} - cell.column != columns) {
    return std::nullopt;
  }
  return found;
}

core::CellRange CellBlocks::RangeWithRing(core::CellIndex first) {
  return {{Clamped(std::int64_t{first.row} - 1), Clamped(std::int64_t{first.column} - 1)},
          {Clamped(std::int64_t{first.row} + kSide), Clamped(std::int64_t{first.column} + kSide)}};
}

}  // namespace quarro::service
