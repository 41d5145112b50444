// Refinements between their estimate and the choice of hypotheses.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "gridding/service/block_refiner.h"
#include "gridding/service/cell_blocks.h"
#include "gridding/service/result_arena.h"

namespace quarro::service {

// Keeps the refined cells of many blocks, in memory as long as they are few, else in a file without
// a name. One thread adds; once all is added, any thread reads.
class EstimatedBlocks {
 public:
  EstimatedBlocks(std::filesystem::path directory, std::uint64_t heap_bytes)
      : arena_(std::move(directory), heap_bytes) {}

  void Add(core::CellIndex block, const std::vector<RefinedCell>& cells);

  // What was estimated for the cell: empty bytes for one that is not refined; nothing for a cell
  // without data or one that was not estimated.
  std::optional<std::span<const std::byte>> Find(core::CellIndex cell) const;

 private:
  struct Entry {
    std::uint64_t bytes;
    const std::byte* data;
    std::uint32_t place;  // in its block: 8 * row + column
  };
  struct Block {
    const Entry* entries;
    std::uint32_t count;
  };

  ResultArena arena_;
  std::map<core::CellIndex, Block> blocks_;
};

}  // namespace quarro::service
