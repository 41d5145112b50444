#include "gridding/core/lattice.h"

#include <gtest/gtest.h>

namespace quarro::core {
namespace {

TEST(Lattice, SpacingIsTheShortestDecimalOfTheSinglePrecisionNumber) {
  EXPECT_EQ(Lattice(12.3F).spacing_m(), 12.3);
  EXPECT_EQ(Lattice(0.1F).spacing_m(), 0.1);
  EXPECT_EQ(Lattice(800.0F).spacing_m(), 800.0);
}

TEST(Lattice, NodesStandAtMultiplesOfTheSpacing) {
  const Lattice lattice(12.3F);
  const Position node = lattice.NodeOf({.row = 400000, .column = -3});
  EXPECT_EQ(node.northing_m, 400000 * 12.3);
  EXPECT_EQ(node.easting_m, -3 * 12.3);
}

TEST(Lattice, WestAndSouthEdgesBelongToTheCellBefore) {
  const Lattice lattice(10.0F);
  EXPECT_EQ(lattice.CellOf(5.0, 15.0), (CellIndex{.row = 1, .column = 0}));
  EXPECT_EQ(lattice.CellOf(5.0001, 15.0001), (CellIndex{.row = 2, .column = 1}));
  EXPECT_EQ(lattice.CellOf(-5.0, -15.0), (CellIndex{.row = -2, .column = -1}));
  EXPECT_EQ(lattice.CellOf(0.0, 0.0), (CellIndex{.row = 0, .column = 0}));
}

TEST(Lattice, PositionsBeyondTheLastCellAreOutOfReach) {
  const Lattice lattice(1.0F);
  EXPECT_TRUE(lattice.InReach(2.0e9, -2.0e9));
  EXPECT_FALSE(lattice.InReach(3.0e9, 0.0));
  EXPECT_FALSE(lattice.InReach(0.0, -3.0e9));
}

TEST(Lattice, CellsInABoxAreThoseWhoseNodesLieInItOrOnItsEdge) {
  const Lattice lattice(10.0F);
  CellRange range;
  ASSERT_TRUE(lattice.CellsInBox(10.0, 0.0, 39.9, 20.0, range));
  EXPECT_EQ(range, (CellRange{{.row = 0, .column = 1}, {.row = 2, .column = 3}}));
  EXPECT_EQ(range.Rows(), 3U);
  EXPECT_EQ(range.Columns(), 3U);
}

TEST(Lattice, ABoxBetweenNodesHoldsNoCell) {
  CellRange range;
  EXPECT_FALSE(Lattice(10.0F).CellsInBox(11.0, 0.0, 19.0, 20.0, range));
}

TEST(Lattice, ABoxOfNodePositionsFindsTheseNodesFarFromTheOrigin) {
  const Lattice lattice(12.3F);
  for (std::int32_t i = 400000; i < 400300; ++i) {
    const Position node = lattice.NodeOf({.row = i, .column = i});
    CellRange range;
    ASSERT_TRUE(lattice.CellsInBox(node.easting_m, node.northing_m, node.easting_m, node.northing_m,
                                   range));
    EXPECT_EQ(range, (CellRange{{.row = i, .column = i}, {.row = i, .column = i}}));
    EXPECT_EQ(lattice.CellOf(node.easting_m, node.northing_m), range.south_west);
  }
}

}  // namespace
}  // namespace quarro::core
