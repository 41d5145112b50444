#include "gridding/store/cell_key.h"

#include <bit>

#include <xxhash.h>

namespace quarro::store {

std::string Describe(CellIndex cell) {
  return "cell (row " + std::to_string(cell.row) + ", column " + std::to_string(cell.column) + ")";
}

std::int64_t BlockChecksum(std::span<const std::byte> block, std::int64_t key, std::int64_t line,
                           std::int64_t part) {
  // Odd multipliers keep cell, line and part apart in the seed.
  const std::uint64_t seed = static_cast<std::uint64_t>(key) +
                             static_cast<std::uint64_t>(line) * 0x9e3779b97f4a7c15U +
                             static_cast<std::uint64_t>(part) * 0xc2b2ae3d27d4eb4fU;
  return std::bit_cast<std::int64_t>(
      std::uint64_t{XXH3_64bits_withSeed(block.data(), block.size(), seed)});
}

}  // namespace quarro::store
