// What bagWriteRow and the update functions leave in the file, in whatever order rows come.

#include "bag/bag.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "bag/bag_fixture.h"
#include "bag/test_grid.h"

namespace quarro::bag {
namespace {

TEST_F(BagFile, DoesNotNeedItsDefinitionAfterCreation) {
  ASSERT_EQ(create({.name = "grid", .rows = 1, .columns = 3}), kBagSuccess);
  bagFreeDefinition(&definition_);
  EXPECT_EQ(writeElevations(0, 0, {-1, -2, -3}), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  EXPECT_EQ(Reader(path_).records<float>("elevation"), std::vector<float>({-1, -2, -3}));
}

TEST_F(BagFile, StatesTheDefinitionsExtremesUntilTheyAreUpdated) {
  ASSERT_EQ(define(folder_, {.name = "grid", .rows = 2, .columns = 2}, &definition_), kBagSuccess);
  definition_.min_elevation_m = -30.5F;
  definition_.max_elevation_m = -10.25F;
  definition_.min_uncertainty_m = 0.5F;
  definition_.max_uncertainty_m = 1.5F;
  ASSERT_EQ(bagFileCreate(path_.c_str(), &definition_, &file_), kBagSuccess);
  const std::vector<float> uncertainties = {7, 9};
  EXPECT_EQ(bagWriteRow(file_, 0, 0, 1, kSurfaceUncertainty, uncertainties.data()), kBagSuccess);
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceUncertainty), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  const Reader reader(path_);
  EXPECT_EQ(reader.attribute("elevation", "Minimum Elevation Value"), -30.5);
  EXPECT_EQ(reader.attribute("elevation", "Maximum Elevation Value"), -10.25);
  EXPECT_EQ(reader.attribute("uncertainty", "Minimum Uncertainty Value"), 7);
  EXPECT_EQ(reader.attribute("uncertainty", "Maximum Uncertainty Value"), 9);
}

TEST_F(BagFile, ExtremesLeaveOutNullsAndNumbersThatAreNone) {
  ASSERT_EQ(create({.name = "grid", .rows = 2, .columns = 3}), kBagSuccess);
  EXPECT_EQ(writeElevations(0, 0, {-3, kBagNullValue, -8}), kBagSuccess);
  EXPECT_EQ(writeElevations(1, 0, {std::nanf(""), 2, kBagNullValue}), kBagSuccess);
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceElevation), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  EXPECT_EQ(Reader(path_).attribute("elevation", "Minimum Elevation Value"), -8);
  EXPECT_EQ(Reader(path_).attribute("elevation", "Maximum Elevation Value"), 2);
}

TEST_F(BagFile, LayersOfNullsAloneStateTheirNull) {
  ASSERT_EQ(create({.name = "grid", .rows = 2, .columns = 2}), kBagSuccess);
  ASSERT_EQ(bagCreateVariableResolutionLayers(file_, 0, 1), kBagSuccess);
  const std::vector<bagRefinementMetadataRecord> none(2, {kBagNullIndex, 0, 0, -1, -1, -1, -1});
  for (const std::uint32_t row : {0U, 1U}) {
    EXPECT_EQ(writeElevations(row, 0, {kBagNullValue, kBagNullValue}), kBagSuccess);
    EXPECT_EQ(bagWriteRow(file_, row, 0, 1, kSurfaceRefinementMetadata, none.data()), kBagSuccess);
  }
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceElevation), kBagSuccess);
  for (const int surface : {kSurfaceNodeGroup, kSurfaceRefinementMetadata, kSurfaceRefinement,
                            kSurfaceRefinementNodeGroup}) {
    EXPECT_EQ(bagUpdateOptSurface(file_, surface), kBagSuccess);
  }
  EXPECT_EQ(close(), kBagSuccess);
  const Reader reader(path_);
  EXPECT_EQ(reader.attribute("elevation", "Minimum Elevation Value"), kBagNullValue);
  EXPECT_EQ(reader.attribute("elevation", "Maximum Elevation Value"), kBagNullValue);
  EXPECT_EQ(reader.attribute("varres_metadata", "min_dimensions_x"), 0);
  EXPECT_EQ(reader.attribute("varres_metadata", "min_resolution_x"), 16);
  EXPECT_EQ(reader.attribute("varres_metadata", "max_resolution_y"), 16);
  EXPECT_EQ(reader.attribute("varres_refinements", "min_depth"), kBagNullValue);
  EXPECT_EQ(reader.attribute("varres_nodes", "max_n_samples"), 0);
  EXPECT_TRUE(reader.records<bagRefinementRecord>("varres_refinements").empty());
  EXPECT_TRUE(reader.records<bagRefinementNodeRecord>("varres_nodes").empty());
}

TEST_F(BagFile, ElementsNeverWrittenAreNull) {
  ASSERT_EQ(create({.name = "grid", .rows = 40, .columns = 5}), kBagSuccess);
  EXPECT_EQ(writeElevations(33, 1, {-1, -2}), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  std::vector<float> expected(200, kBagNullValue);
  expected[33 * 5 + 1] = -1;
  expected[33 * 5 + 2] = -2;
  EXPECT_EQ(Reader(path_).records<float>("elevation"), expected);
}

TEST_F(BagFile, RowsInAnyOrderAndOverlappingRunsEndAsTheLastWriteLeftThem) {
  constexpr std::uint32_t kRows = 70;
  constexpr std::uint32_t kColumns = 2500;
  ASSERT_EQ(create({.name = "grid", .rows = kRows, .columns = kColumns}), kBagSuccess);
  constexpr unsigned kSeed = 20240506;
  std::mt19937 random(kSeed);
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  std::vector<float> model(std::size_t{kRows} * kColumns, kBagNullValue);
  for (int run = 0; run < 300; ++run) {
    const std::uint32_t row = random() % kRows;
    const std::uint32_t first = random() % kColumns;
    const std::uint32_t count = 1 + random() % (kColumns - first);
    std::vector<float> elevations(count);
    for (float& elevation : elevations) elevation = -static_cast<float>(random() % 100000);
    std::copy(elevations.begin(), elevations.end(),
              model.begin() + static_cast<std::ptrdiff_t>(row) * kColumns + first);
    ASSERT_EQ(writeElevations(row, first, elevations), kBagSuccess);
    if (run % 100 == 50) {
      EXPECT_EQ(bagUpdateSurface(file_, kSurfaceElevation), kBagSuccess);
    }
  }
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceElevation), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  const Reader reader(path_);
  EXPECT_EQ(reader.records<float>("elevation"), model);
  std::erase(model, kBagNullValue);
  EXPECT_EQ(reader.attribute("elevation", "Minimum Elevation Value"),
            *std::min_element(model.begin(), model.end()));
  EXPECT_EQ(reader.attribute("elevation", "Maximum Elevation Value"),
            *std::max_element(model.begin(), model.end()));
}

TEST_F(BagFile, ExtremesForgetWhatWasOverwritten) {
  ASSERT_EQ(create({.name = "grid", .rows = 1, .columns = 2}), kBagSuccess);
  EXPECT_EQ(writeElevations(0, 0, {-1, -900}), kBagSuccess);
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceElevation), kBagSuccess);
  EXPECT_EQ(writeElevations(0, 1, {-2}), kBagSuccess);
  EXPECT_EQ(bagUpdateSurface(file_, kSurfaceElevation), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  EXPECT_EQ(Reader(path_).attribute("elevation", "Minimum Elevation Value"), -2);
}

TEST_F(BagFile, RunsOfRefinementsLieEndToEndAcrossChunks) {
  // More than two windows of the one-row layers, in runs that fit no chunk.
  constexpr std::uint32_t kNodes = 300001;
  ASSERT_EQ(create({.name = "grid", .rows = 2, .columns = 2}), kBagSuccess);
  ASSERT_EQ(bagCreateVariableResolutionLayers(file_, kNodes, 1), kBagSuccess);
  std::vector<bagRefinementRecord> refinements;
  std::vector<bagRefinementNodeRecord> nodes;
  for (std::uint32_t node = 0; node < kNodes; ++node) {
    refinements.push_back({-static_cast<float>(node), static_cast<float>(node) / 2});
    nodes.push_back({static_cast<float>(node % 5), node % 7, node});
  }
  refinements[17] = {kBagNullValue, kBagNullValue};
  nodes[17] = {kBagNullValue, 0, 0};
  for (std::uint32_t first = 0; first < kNodes;) {
    const std::uint32_t last = std::min(kNodes, first + 777) - 1;
    ASSERT_EQ(bagWriteRow(file_, 0, first, last, kSurfaceRefinement, &refinements[first]), 0);
    ASSERT_EQ(bagWriteRow(file_, 0, first, last, kSurfaceRefinementNodeGroup, &nodes[first]), 0);
    first = last + 1;
  }
  EXPECT_EQ(bagUpdateOptSurface(file_, kSurfaceRefinement), kBagSuccess);
  EXPECT_EQ(bagUpdateOptSurface(file_, kSurfaceRefinementNodeGroup), kBagSuccess);
  EXPECT_EQ(close(), kBagSuccess);
  const Reader reader(path_);
  const auto read_refinements = reader.records<bagRefinementRecord>("varres_refinements");
  const auto read_nodes = reader.records<bagRefinementNodeRecord>("varres_nodes");
  ASSERT_EQ(read_refinements.size(), kNodes);
  ASSERT_EQ(read_nodes.size(), kNodes);
  for (std::uint32_t node = 0; node < kNodes; ++node) {
    ASSERT_EQ(read_refinements[node].elevation_m, refinements[node].elevation_m) << node;
    ASSERT_EQ(read_refinements[node].uncertainty_m, refinements[node].uncertainty_m) << node;
    ASSERT_EQ(read_nodes[node].hypothesis_strength, nodes[node].hypothesis_strength) << node;
    ASSERT_EQ(read_nodes[node].hypothesis_count, nodes[node].hypothesis_count) << node;
    ASSERT_EQ(read_nodes[node].sample_count, nodes[node].sample_count) << node;
  }
  EXPECT_EQ(reader.attribute("varres_refinements", "min_depth"), -300000);
  EXPECT_EQ(reader.attribute("varres_refinements", "max_depth"), 0);
  EXPECT_EQ(reader.attribute("varres_refinements", "max_uncrt"), 150000);
  EXPECT_EQ(reader.attribute("varres_nodes", "min_num_hypotheses"), 0);
  EXPECT_EQ(reader.attribute("varres_nodes", "max_n_samples"), 300000);
}

TEST(BagFiles, AreWrittenByManyThreadsAtOnceAsByOneAlone) {
  const TestFolder folder;
  const TestGrid grid = {.name = "grid",
                         .rows = 100,
                         .columns = 1100,
                         .nodes_per_side = [](std::uint32_t row, std::uint32_t column) {
                           return (row + column) % 7 == 0 ? 3U : 0U;
                         }};
  ASSERT_EQ(writeGrid(folder / "alone.bag", grid), kBagSuccess);
  std::vector<bagError> statuses(6, -1);
  std::vector<std::thread> threads;
  for (std::size_t index = 0; index < statuses.size(); ++index) {
    threads.emplace_back([&, index] {
      statuses[index] = writeGrid(folder / (std::to_string(index) + ".bag"), grid);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(statuses, std::vector<bagError>(6, kBagSuccess));
  const std::string alone = readText(folder / "alone.bag");
  for (std::size_t index = 0; index < statuses.size(); ++index) {
    EXPECT_TRUE(readText(folder / (std::to_string(index) + ".bag")) == alone) << index;
  }
}

}  // namespace
}  // namespace quarro::bag
