// How cells and their blocks are told apart in the database.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>

#include "gridding/store/grid_store.h"

namespace quarro::store {

// Keys sort as cells do, row by row from the south-west.
constexpr std::int64_t KeyOf(CellIndex cell) {
  constexpr std::int64_t kWestmost = std::numeric_limits<std::int32_t>::min();
  return cell.row * (std::int64_t{1} << 32) + (cell.column - kWestmost);
}

constexpr CellIndex CellOfKey(std::int64_t key) {
  constexpr std::int64_t kWestmost = std::numeric_limits<std::int32_t>::min();
  return {.row = static_cast<std::int32_t>(key >> 32),
          .column = static_cast<std::int32_t>((key & 0xffffffff) + kWestmost)};
}

// "cell (row 3, column -4)"
std::string Describe(CellIndex cell);

// Checksum of a block, bound to the cell (and line and part) that it belongs to, so that a block in
// another's place fails as a changed one does.
std::int64_t BlockChecksum(std::span<const std::byte> block, std::int64_t key,
                           std::int64_t line = 0, std::int64_t part = 0);

}  // namespace quarro::store
