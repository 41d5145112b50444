#include "gridding/service/cell_blocks.h"

#include <cstdint>
#include <set>

#include <gtest/gtest.h>

namespace quarro::service {
namespace {

std::set<core::CellIndex> CellsOf(const CellBlocks& set) {
  std::set<core::CellIndex> cells;
  for (const auto& [block, mask] : set.blocks()) {
    const core::CellIndex first = CellBlocks::FirstCell(block);
    for (std::int32_t row = 0; row < CellBlocks::kSide; ++row) {
      for (std::int32_t column = 0; column < CellBlocks::kSide; ++column) {
        if (CellBlocks::Contains(mask, row, column)) {
          cells.insert({first.row + row, first.column + column});
        }
      }
    }
  }
  return cells;
}

TEST(CellBlocks, HoldTheCellsAddedOnBothSidesOfTheOrigin) {
  const std::set<core::CellIndex> cells = {{0, 0},  {-1, -1},       {7, 8},
                                           {-8, 3}, {-9, -16},      {1000000, -1000001},
                                           {8, 8},  {INT32_MIN, 0}, {INT32_MAX, INT32_MAX}};
  CellBlocks set;
  for (const core::CellIndex cell : cells) set.Add(cell);
  EXPECT_EQ(CellsOf(set), cells);
}

TEST(CellBlocks, NeighboursCrossTheEdgesOfBlocks) {
  CellBlocks set;
  set.AddWithNeighbours({8, -8});
  EXPECT_EQ(CellsOf(set),
            (std::set<core::CellIndex>{
                {7, -9}, {7, -8}, {7, -7}, {8, -9}, {8, -8}, {8, -7}, {9, -9}, {9, -8}, {9, -7}}));
}

TEST(CellBlocks, NeighboursEndWithTheLattice) {
  CellBlocks set;
  set.AddWithNeighbours({INT32_MAX, INT32_MIN});
  EXPECT_EQ(CellsOf(set), (std::set<core::CellIndex>{{INT32_MAX - 1, INT32_MIN},
                                                     {INT32_MAX - 1, INT32_MIN + 1},
                                                     {INT32_MAX, INT32_MIN},
                                                     {INT32_MAX, INT32_MIN + 1}}));
}

TEST(CellBlocks, WidenedHoldsTheNeighboursOfAll) {
  CellBlocks set;
  set.Add({0, 0});
  set.Add({0, 1});
  EXPECT_EQ(CellsOf(set.Widened()).size(), 12U);
  EXPECT_TRUE(CellsOf(set.Widened()).count({-1, 2}));
}

}  // namespace
}  // namespace quarro::service
