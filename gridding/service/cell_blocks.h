// Sets of cells as 8 x 8 blocks with a mask each: a bit or so a cell, whatever their number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

#include "gridding/core/lattice.h"

namespace quarro::service {

class CellBlocks {
 public:
  static constexpr std::int32_t kSide = 8;
  // A block with a ring of cells around it.
  static constexpr std::int32_t kRingSide = kSide + 2;
  static constexpr std::size_t kRingCells = std::size_t{kRingSide} * kRingSide;
  // Of a cell in a block and its ring, counted from the ring's south-west.
  static constexpr std::size_t RingPlace(std::int32_t row, std::int32_t column) {
    return static_cast<std::size_t>(row) * kRingSide + static_cast<std::size_t>(column);
  }

  // Row and column of a block: those of its cells over 8, rounded down. Masks hold bit
  // 8 * row + column of the cells in the block, from the south-west.
  using Blocks = std::map<core::CellIndex, std::uint64_t>;

  void Add(core::CellIndex cell);
  // The cell and its eight neighbours, as far as the lattice reaches.
  void AddWithNeighbours(core::CellIndex cell);

  // All cells of this set and their neighbours.
  CellBlocks Widened() const;

  const Blocks& blocks() const { return blocks_; }  // row-major

  static core::CellIndex FirstCell(core::CellIndex block);
  static core::CellIndex BlockOf(core::CellIndex cell);
  // Of a cell in its block: 8 * row + column.
  static std::uint32_t PlaceOf(core::CellIndex cell);
  // The cell some rows and columns away; nothing beyond the lattice.
  static std::optional<core::CellIndex> Neighbour(core::CellIndex cell, std::int32_t rows,
                                                  std::int32_t columns);
  // The cells of the block that begins at `first`, and a ring of cells around it, as far as the
  // lattice reaches.
  static core::CellRange RangeWithRing(core::CellIndex first);
  static bool Contains(std::uint64_t mask, std::int32_t row, std::int32_t column) {
    return ((mask >> static_cast<unsigned>(kSide * row + column)) & 1U) != 0;
  }

 private:
  Blocks blocks_;
};

}  // namespace quarro::service
