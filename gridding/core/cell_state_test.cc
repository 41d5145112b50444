#include "gridding/core/cell_state.h"

#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "gridding/core/encoding.h"

namespace quarro::core {
namespace {

GridSettings Settings(double resolution_m, double min_resolution_m) {
  GridSettings settings;
  settings.resolution_m = resolution_m;
  settings.min_resolution_m = min_resolution_m;
  settings.estimator.low_resolution_soundings = 20;
  return settings;
}

PackedSounding At(double east_m, double north_m, float depth_m, float sigma_v_m = 0.1F,
                  float sigma_h_m = 0.1F) {
  return Pack({east_m, north_m}, {0, 0}, depth_m, sigma_v_m, sigma_h_m);
}

std::vector<PackedSounding> Scattered(unsigned seed, int count, double half_m, double slope) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> place(-half_m, half_m);
  std::normal_distribution<double> noise(0.0, 0.1);
  std::vector<PackedSounding> soundings;
  for (int i = 0; i < count; ++i) {
    const double east_m = place(random);
    soundings.push_back(
        At(east_m, place(random), static_cast<float>(30.0 + slope * east_m + noise(random))));
  }
  return soundings;
}

TEST(CellStatistics, TellWhatTheSoundingsHold) {
  CellState state;
  const std::vector<PackedSounding> soundings = {At(-4.9, -4.9, 10.0F, 0.25F, 1.0F),
                                                 At(4.9, -4.9, 12.0F, 0.25F, 3.0F),
                                                 At(4.9, 4.9, 14.0F, 0.5F, 1.0F)};
  AddSoundings(soundings, 1, Settings(10.0, 1.0), state);
  const CellStatistics& statistics = state.statistics;
  EXPECT_EQ(statistics.soundings, 3U);
  EXPECT_EQ(statistics.occupancy, (1ULL << 0U) | (1ULL << 7U) | (1ULL << 63U));
  EXPECT_DOUBLE_EQ(statistics.CoveredFraction(), 3.0 / 64.0);
  EXPECT_DOUBLE_EQ(statistics.MeanDepth(), 12.0);
  EXPECT_DOUBLE_EQ(statistics.DepthDeviation(), 2.0);
  EXPECT_EQ(statistics.shallowest_m, 10.0F);
  EXPECT_EQ(statistics.deepest_m, 14.0F);
  EXPECT_NEAR(statistics.VerticalSigma(), std::sqrt((0.0625 + 0.0625 + 0.25) / 3.0), 1e-12);
  EXPECT_NEAR(statistics.HorizontalSigma(), std::sqrt(11.0 / 3.0), 1e-12);
}

TEST(NodesPerSide, FollowTheDensityOverTheCoveredPart) {
  GridSettings settings = Settings(16.0, 0.1);
  CellStatistics statistics;
  statistics.soundings = 500;
  statistics.occupancy = ~0ULL;
  EXPECT_EQ(NodesPerSide(statistics, settings), 10U);
  statistics.soundings = 499;
  EXPECT_EQ(NodesPerSide(statistics, settings), 9U);
  statistics.occupancy = 0xffffULL;  // a quarter of the cell: four times the density
  EXPECT_EQ(NodesPerSide(statistics, settings), 19U);
}

TEST(NodesPerSide, AreCappedByTheMinimumResolutionAndTheHorizontalUncertainty) {
  GridSettings settings = Settings(16.0, 0.5);
  CellStatistics statistics;
  statistics.soundings = 1000000;
  statistics.occupancy = ~0ULL;
  EXPECT_EQ(NodesPerSide(statistics, settings), 32U);
  statistics.horizontal_variance_sum_m2 = 4.0 * 1000000;
  EXPECT_EQ(NodesPerSide(statistics, settings), 8U);
  settings.resolution_m = 12.3;
  settings.min_resolution_m = 4.1;
  EXPECT_EQ(NodesPerSide(statistics, settings), 3U);
}

TEST(NodesPerSide, IsOneForACellThatSupportsNoMore) {
  CellStatistics statistics;
  EXPECT_EQ(NodesPerSide(statistics, Settings(16.0, 0.5)), 1U);
  statistics.soundings = 19;
  statistics.occupancy = ~0ULL;
  EXPECT_EQ(NodesPerSide(statistics, Settings(16.0, 0.5)), 1U);
}

TEST(CellState, WhatIsKeptNearTheNodeDoesNotDependOnThePortionsItCameIn) {
  const auto soundings = Scattered(3, 2000, 8.0, 0.0);
  const GridSettings settings = Settings(16.0, 0.5);
  CellState at_once;
  AddSoundings(soundings, 1, settings, at_once);
  CellState in_portions;
  for (std::size_t first = 0; first < soundings.size(); first += 37) {
    const std::size_t count = std::min<std::size_t>(37, soundings.size() - first);
    AddSoundings(std::span(soundings).subspan(first, count), 1, settings, in_portions);
  }
  EXPECT_EQ(in_portions.near, at_once.near);
  EXPECT_EQ(at_once.near.size(), 20U);
}

TEST(CellState, WhatIsKeptNearTheNodeIsKnownByLine) {
  const GridSettings settings = Settings(16.0, 0.5);
  CellState state;
  AddSoundings(std::vector{At(7.0, 0.0, 1.0F), At(0.1, 0.0, 2.0F)}, 1, settings, state);
  AddSoundings(std::vector{At(0.0, 7.0, 3.0F)}, 2, settings, state);
  AddSoundings(std::vector(18, At(0.2, 0.0, 4.0F)), 3, settings, state);
  EXPECT_EQ(state.near_lines, (std::vector<LineRun>{{1, 2}, {2, 1}, {3, 18}}));
  AddSoundings(std::vector(18, At(0.0, 0.2, 5.0F)), 3, settings, state);
  EXPECT_EQ(state.near_lines, (std::vector<LineRun>{{1, 1}, {3, 36}}));
  EXPECT_EQ(state.near.front().depth_m, 2.0F);
  EXPECT_EQ(state.near.size(), 37U);
}

TEST(LowResolutionEstimator, ACellWithOneSoundingHasADepth) {
  CellState state;
  const GridSettings settings = Settings(16.0, 0.5);
  AddSoundings(std::vector{At(7.0, 7.0, 25.0F)}, 1, settings, state);
  LowResolutionEstimator(settings).Estimate(state);
  ASSERT_EQ(state.low.size(), 1U);
  EXPECT_EQ(state.low[0].depth_m, 25.0F);
}

TEST(LowResolutionEstimator, ADepthCarriedFarFromItsSoundingsIsUncertain) {
  CellState state;
  const GridSettings settings = Settings(16.0, 0.5);
  AddSoundings(std::vector{At(6.0, 0.0, 25.0F), At(6.1, 0.0, 25.0F)}, 1, settings, state);
  LowResolutionEstimator(settings).Estimate(state);
  const double carried_m = 6.0 * settings.estimator.unknown_slope;
  EXPECT_NEAR(std::sqrt(state.low[0].variance_m2), carried_m, 0.1 * carried_m);
}

TEST(LowResolutionEstimator, OnASteepSlopeTheDepthAtTheNodeIsRightAndNotAmbiguous) {
  const GridSettings settings = Settings(32.0, 0.5);
  LowResolutionEstimator estimator(settings);
  int covered = 0;
  std::size_t hypotheses = 0;
  constexpr int kCells = 1000;
  for (unsigned seed = 0; seed < kCells; ++seed) {
    CellState state;
    AddSoundings(Scattered(seed, 1000, 16.0, 0.3), 1, settings, state);
    estimator.Estimate(state);
    hypotheses += state.low.size();
    const Hypothesis& best = state.low.front();
    if (std::abs(best.depth_m - 30.0) <= 1.96 * std::sqrt(best.variance_m2)) ++covered;
  }
  EXPECT_GE(covered, static_cast<int>(0.92 * kCells));
  EXPECT_LE(hypotheses, static_cast<std::size_t>(1.1 * kCells));
}

// The edge of a survey crosses the cell: all soundings lie in its east, some of them spikes.
struct EdgeResult {
  double rms_m = 0.0;
  double rms_of_mean_m = 0.0;
  double covered = 0.0;
};

EdgeResult AtTheEdge(double slope, double spikes) {
  const GridSettings settings = Settings(16.0, 0.5);
  LowResolutionEstimator estimator(settings);
  EdgeResult result;
  constexpr unsigned kCells = 1000;
  for (unsigned seed = 0; seed < kCells; ++seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> share(0.0, 1.0);
    std::vector<PackedSounding> soundings;
    double good_sum_m = 0.0;
    double good = 0.0;
    for (PackedSounding sounding : Scattered(seed, 100, 8.0, slope)) {
      if (sounding.east_m < 3.0F) continue;
      if (share(random) < spikes) {
        sounding.depth_m -= 6.0F;
      } else {
        good_sum_m += sounding.depth_m;
        good += 1.0;
      }
      soundings.push_back(sounding);
    }
    CellState state;
    AddSoundings(soundings, 1, settings, state);
    estimator.Estimate(state);
    const double off_m = state.low.front().depth_m - 30.0;
    const double mean_off_m = good_sum_m / good - 30.0;
    result.rms_m += off_m * off_m;
    result.rms_of_mean_m += mean_off_m * mean_off_m;
    if (std::abs(off_m) <= 1.96 * std::sqrt(state.low.front().variance_m2)) result.covered += 1.0;
  }
  result.rms_m = std::sqrt(result.rms_m / kCells);
  result.rms_of_mean_m = std::sqrt(result.rms_of_mean_m / kCells);
  result.covered /= kCells;
  return result;
}

TEST(LowResolutionEstimator, NoiseAndSpikesAreNotCarriedBeyondTheEdgeOfASurvey) {
  const EdgeResult level = AtTheEdge(0.0, 0.05);
  // Nobody knows that the floor is level there; the mean of the good soundings happens to be right.
  EXPECT_LE(level.rms_m, 3.0 * level.rms_of_mean_m);
  EXPECT_GE(level.covered, 0.93);
}

TEST(LowResolutionEstimator, ASlopeIsCarriedBeyondTheEdgeOfASurvey) {
  const EdgeResult steep = AtTheEdge(0.3, 0.05);
  EXPECT_LE(steep.rms_m, 0.5 * steep.rms_of_mean_m);
  EXPECT_GE(steep.covered, 0.93);
}

// A survey that ends in the corner of a cell: noise over a metre is no relief.
TEST(LowResolutionEstimator, SoundingsInACornerTellNoSlopeOfTheCell) {
  const GridSettings settings = Settings(32.0, 0.5);
  LowResolutionEstimator estimator(settings);
  int covered = 0;
  constexpr unsigned kCells = 300;
  for (unsigned seed = 0; seed < kCells; ++seed) {
    std::vector<PackedSounding> soundings;
    for (PackedSounding sounding : Scattered(seed, 200, 0.5, 0.3)) {
      sounding.east_m += 14.5F;
      sounding.north_m += 14.5F;
      sounding.depth_m += 0.3F * 14.5F;
      soundings.push_back(sounding);
    }
    CellState state;
    AddSoundings(soundings, 1, settings, state);
    estimator.Estimate(state);
    const Hypothesis& best = state.low.front();
    if (std::abs(best.depth_m - 30.0) <= 1.96 * std::sqrt(best.variance_m2)) ++covered;
  }
  EXPECT_GE(covered, 270);
}

TEST(LowResolutionEstimator, OneBeamInThreeWrongLeavesTheOthersTogether) {
  int good = 0;
  for (unsigned seed = 0; seed < 200; ++seed) {
    auto soundings = Scattered(seed, 20, 2.0, 0.0);
    for (std::size_t i = 0; i < soundings.size(); i += 3) soundings[i].depth_m -= 6.0F;
    CellState state;
    AddSoundings(soundings, 1, Settings(16.0, 0.5), state);
    LowResolutionEstimator(Settings(16.0, 0.5)).Estimate(state);
    if (std::abs(state.low.front().depth_m - 30.0) < 0.2) ++good;
  }
  EXPECT_GE(good, 190);
}

TEST(CellState, ReadsBackAsItWasWritten) {
  CellState state;
  const GridSettings settings = Settings(16.0, 0.5);
  AddSoundings(Scattered(5, 300, 8.0, 0.1), 1, settings, state);
  AddSoundings(Scattered(6, 300, 8.0, 0.1), 4, settings, state);
  LowResolutionEstimator(settings).Estimate(state);
  std::vector<std::byte> bytes;
  Encode(state, bytes);
  CellState copy;
  Decode(bytes, copy);
  EXPECT_EQ(copy.near, state.near);
  EXPECT_EQ(copy.near_lines, state.near_lines);
  EXPECT_EQ(copy.low, state.low);
  EXPECT_EQ(copy.statistics.soundings, state.statistics.soundings);
  std::vector<std::byte> again;
  Encode(copy, again);
  EXPECT_EQ(again, bytes);
}

TEST(CellState, BytesOfTheWrongLengthAreRefused) {
  CellState state;
  std::vector<std::byte> bytes;
  Encode(state, bytes);
  bytes.push_back(std::byte{0});
  EXPECT_THROW(Decode(bytes, state), EncodingError);
  bytes.resize(bytes.size() - 5);
  EXPECT_THROW(Decode(bytes, state), EncodingError);
  EXPECT_THROW(Decode({}, state), EncodingError);
}

TEST(CellState, ValuesThatNoCellHasAreRefused) {
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
  CellState good;
  const GridSettings settings = Settings(16.0, 0.5);
  AddSoundings(Scattered(5, 30, 8.0, 0.1), 1, settings, good);
  LowResolutionEstimator(settings).Estimate(good);
  std::vector<CellState> wrong(10, good);
  wrong[0].near.front().east_m = kNaN;
  wrong[1].near.back().sigma_v_code = 0;
  wrong[2].low.front().depth_m = kNaN;
  wrong[3].low.front().variance_m2 = -1.0F;
  wrong[4].statistics.depth_sum_m = kNaN;
  wrong[5].statistics.horizontal_variance_sum_m2 = -1.0;
  wrong[6].statistics.occupancy = 0;                  // of a cell with soundings
  wrong[7].statistics.soundings = ~std::uint64_t{0};  // with one more there would be none
  wrong[8].statistics.deepest_m = 1e30F;
  wrong[9] = CellState();
  wrong[9].statistics.shallowest_m = -1e30F;  // of a cell without soundings
  for (const CellState& state : wrong) {
    std::vector<std::byte> bytes;
    Encode(state, bytes);
    CellState copy;
    EXPECT_THROW(Decode(bytes, copy), EncodingError);
  }
}

}  // namespace
}  // namespace quarro::core
