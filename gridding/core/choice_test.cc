#include "gridding/core/choice.h"

#include <gtest/gtest.h>

namespace quarro::core {
namespace {

constexpr std::uint32_t kSide = 9;

GridSettings Settings() {
  GridSettings settings;
  settings.resolution_m = 9.0;
  settings.min_resolution_m = 0.5;
  return settings;
}

Refinement Flat(float depth_m) {
  Refinement refinement;
  refinement.nodes_per_side = kSide;
  for (std::uint32_t i = 0; i <= kSide * kSide; ++i) refinement.first.push_back(i);
  refinement.hypotheses.assign(kSide * kSide, {depth_m, 0.01F, 10});
  return refinement;
}

void SetNode(Refinement& refinement, std::size_t node, const HypothesisList& list) {
  const auto begin = refinement.hypotheses.begin() + refinement.first[node];
  refinement.hypotheses.insert(refinement.hypotheses.erase(begin), list.begin(), list.end());
  for (std::size_t i = node + 1; i < refinement.first.size(); ++i) {
    refinement.first[i] += static_cast<std::uint32_t>(list.size() - 1);
  }
}

void Choose(Refinement& centre, const GridSettings& settings) {
  RefinedNeighbourhood cells{};
  cells[kCentre] = &centre;
  Refinement chosen = centre;
  ChooseHypotheses(cells, settings, chosen);
  centre = chosen;
}

constexpr std::size_t kMiddle = 40;
constexpr Hypothesis kFish{21.0F, 0.01F, 12};
constexpr Hypothesis kFloor{30.05F, 0.02F, 5};

TEST(ChooseHypotheses, AFewFishThatOutnumberTheSeafloorAreOverruledByTheNeighbours) {
  Refinement cell = Flat(30.0F);
  SetNode(cell, kMiddle, {kFish, kFloor});
  Choose(cell, Settings());
  EXPECT_EQ(cell.Node(kMiddle)[0], kFloor);
  EXPECT_EQ(cell.Node(kMiddle)[1], kFish);
}

TEST(ChooseHypotheses, BySupportTheHypothesisWithMostSoundingsIsReported) {
  GridSettings settings = Settings();
  settings.estimator.ask_neighbours = false;
  Refinement cell = Flat(30.0F);
  SetNode(cell, kMiddle, {kFloor, kFish});
  Choose(cell, settings);
  EXPECT_EQ(cell.Node(kMiddle)[0], kFish);
}

TEST(ChooseHypotheses, ANodeWithOneHypothesisIsLeftAsItIs) {
  Refinement cell = Flat(30.0F);
  const HypothesisList wreck = {{25.0F, 0.01F, 9}};
  SetNode(cell, kMiddle, wreck);
  Choose(cell, Settings());
  EXPECT_EQ(cell.Node(kMiddle)[0], wreck[0]);
}

TEST(ChooseHypotheses, WhatTwoLinesHaveMetStays) {
  Refinement cell = Flat(30.0F);
  const Hypothesis rock{28.0F, 0.01F, 6, 1};
  SetNode(cell, kMiddle, {rock, kFloor});
  Choose(cell, Settings());
  EXPECT_EQ(cell.Node(kMiddle)[0], rock);
}

TEST(ChooseHypotheses, SpikesThatTwoLinesAgreeOnByChanceAreOverruled) {
  Refinement cell = Flat(30.0F);
  SetNode(cell, kMiddle, {{28.0F, 0.01F, 3, 1}, {30.05F, 0.02F, 2}});
  Choose(cell, Settings());
  EXPECT_EQ(cell.Node(kMiddle)[0].depth_m, 30.05F);
}

// Of 14 soundings against one the node is no ambiguous one, but it asks others than itself.
TEST(ChooseHypotheses, ANodeIsNotItsOwnWitness) {
  const Hypothesis many{28.0F, 0.01F, 14};
  for (const int wanted : {79, 80, 81}) {
    Refinement cell = Flat(30.0F);
    SetNode(cell, kMiddle, {many, {30.0F, 0.05F, 1}});
    GridSettings settings = Settings();
    settings.estimator.neighbour_reach = 20.0;  // all 80 others of the cell
    settings.estimator.fewest_neighbours = wanted;
    Choose(cell, settings);
    EXPECT_EQ(cell.Node(kMiddle)[0].depth_m, wanted <= 80 ? 30.0F : 28.0F) << wanted;
  }
}

TEST(ChooseHypotheses, ALoneSpikeDoesNotCompete) {
  Refinement cell = Flat(30.0F);
  const Hypothesis rock{28.0F, 0.01F, 21};
  const Hypothesis spike{30.0F, 0.05F, 1};
  SetNode(cell, kMiddle, {rock, spike});
  Choose(cell, Settings());
  EXPECT_EQ(cell.Node(kMiddle)[0], rock);
}

TEST(ChooseHypotheses, AHypothesisThatAgreesWithTheNeighboursIsNotPassedOverForANearerOne) {
  Refinement cell = Flat(30.0F);
  for (std::size_t node = 0; node < cell.hypotheses.size(); ++node) {
    cell.hypotheses[node].depth_m += 0.1F * (static_cast<float>(node % 7) - 3.0F);
  }
  const Hypothesis first{30.5F, 0.01F, 8};
  const Hypothesis nearer{29.9F, 0.3F, 2};
  SetNode(cell, kMiddle, {first, nearer});
  Choose(cell, Settings());
  EXPECT_EQ(cell.Node(kMiddle)[0], first);
}

TEST(ChooseHypotheses, AHypothesisThatDisagreesWithTheNeighboursTooIsNotTaken) {
  Refinement cell = Flat(30.0F);
  const Hypothesis rock{28.0F, 0.01F, 8};
  const Hypothesis spikes{31.5F, 0.05F, 2};
  SetNode(cell, kMiddle, {rock, spikes});
  Choose(cell, Settings());
  EXPECT_EQ(cell.Node(kMiddle)[0], rock);
}

TEST(ChooseHypotheses, TheSlopeOfTheNeighboursIsHeeded) {
  Refinement cell = Flat(0.0F);
  for (std::size_t node = 0; node < cell.hypotheses.size(); ++node) {
    cell.hypotheses[node].depth_m = 30.0F + 2.0F * static_cast<float>(node % kSide);
  }
  // At the east edge all neighbours are shallower; the level expected is theirs carried on.
  const std::size_t east_edge = 4 * kSide + 8;
  const Hypothesis middle_of_neighbours{41.0F, 0.01F, 8};
  const Hypothesis on_the_slope{46.1F, 0.02F, 7};
  SetNode(cell, east_edge, {middle_of_neighbours, on_the_slope});
  Choose(cell, Settings());
  EXPECT_EQ(cell.Node(east_edge)[0], on_the_slope);
}

TEST(ChooseHypotheses, NeighboursInTheNextCellAreAskedToo) {
  Refinement cell = Flat(30.0F);
  // The whole western half of the cell but one node has no data.
  const std::size_t west_edge = 4 * kSide;
  for (std::size_t node = 0; node < kSide * kSide; ++node) {
    if (node != west_edge) SetNode(cell, node, {});
  }
  SetNode(cell, west_edge, {kFish, kFloor});
  Choose(cell, Settings());
  EXPECT_EQ(cell.Node(west_edge)[0], kFish);

  const Refinement west = Flat(30.0F);
  RefinedNeighbourhood cells{};
  cells[kCentre] = &cell;
  cells[kCentre - 1] = &west;
  Refinement chosen = cell;
  ChooseHypotheses(cells, Settings(), chosen);
  EXPECT_EQ(chosen.Node(west_edge)[0], kFloor);
}

TEST(ChooseHypotheses, ChoosingAgainChangesNothing) {
  Refinement cell = Flat(30.0F);
  SetNode(cell, kMiddle, {kFish, kFloor});
  SetNode(cell, kMiddle + 1, {{22.0F, 0.01F, 9}, {29.8F, 0.02F, 4}});
  Choose(cell, Settings());
  const Refinement once = cell;
  Choose(cell, Settings());
  EXPECT_EQ(cell.hypotheses, once.hypotheses);
}

}  // namespace
}  // namespace quarro::core
