// The grids that tests/judge_bag.py judges, and what it is told of them.

#pragma once

#include <string>
#include <vector>

#include "bag/test_grid.h"

namespace quarro::bag {

std::vector<TestGrid> judgedGrids();

// Writes beside the BAG at `path` the JSON file that tells what it should be.
void describe(const std::string& path, const TestGrid& grid);

}  // namespace quarro::bag
