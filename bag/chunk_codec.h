// Compresses the chunks of a layer on several cores.

#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <vector>

namespace quarro::bag {

// A chunk as HDF5's deflate filter stores it.
using CompressedChunk = std::vector<std::byte>;

// Calls `task` for 0 to `count` - 1, on as many threads as the machine has cores, this one among
// them. Returns when all are done; throws what a task threw.
void forEachInParallel(std::size_t count, const std::function<void(std::size_t)>& task);

// Deflates a chunk at the level that readers expect of a BAG, 1. Throws std::bad_alloc.
CompressedChunk compress(std::span<const std::byte> chunk);

}  // namespace quarro::bag
