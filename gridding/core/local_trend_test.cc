#include "gridding/core/local_trend.h"

#include <random>

#include <gtest/gtest.h>

namespace quarro::core {
namespace {

constexpr double kUnknownSlope = 0.3;
constexpr double kSigma_m = 0.05;

// Six soundings around a node of a survey with nodes 1 m apart; depth(east, i) is that of the i-th.
template <typename Depth>
std::vector<NodeSounding> Around(const Depth& depth) {
  std::mt19937 random(3);
  std::normal_distribution<double> noise(0.0, kSigma_m);
  std::vector<NodeSounding> soundings;
  for (int i = 0; i < 6; ++i) {
    const double east_m = -0.6 + 0.24 * i;
    soundings.push_back({.east_m = static_cast<float>(east_m),
                         .north_m = 0.0F,
                         .depth_m = static_cast<float>(depth(east_m, i) + noise(random)),
                         .sigma_v_m = static_cast<float>(kSigma_m),
                         .sigma_h_m = 0.1F});
  }
  return soundings;
}

SteepnessCheck Check() { return SteepnessCheck(EstimatorSettings{}); }

TEST(SteepnessCheck, ACliffThatTheSoundingsFollowIsKept) {
  const LocalTrend cliff{.east = 8.0, .north = 0.0, .east_variance = 0.01, .north_variance = 0.01};
  const auto soundings = Around([](double east_m, int) { return 30.0 + 8.0 * east_m; });
  const LocalTrend kept = Check().Checked(soundings, cliff, kUnknownSlope);
  EXPECT_EQ(kept.east, 8.0);
  EXPECT_EQ(kept.east_variance, 0.01);
}

TEST(SteepnessCheck, FishAmongTheSeafloorAreNoSlope) {
  const LocalTrend towards_the_school{.east = 8.0, .north = 0.0};
  const auto soundings = Around([](double, int i) { return i % 3 == 1 ? 21.0 : 30.0; });
  const LocalTrend level = Check().Checked(soundings, towards_the_school, kUnknownSlope);
  EXPECT_EQ(level.east, 0.0);
  EXPECT_EQ(level.east_variance, kUnknownSlope * kUnknownSlope);
}

TEST(SteepnessCheck, ThreeSoundingsOfWhichTwoAgreeAreEnough) {
  const LocalTrend towards_the_school{.east = 8.0, .north = 0.0};
  auto soundings = Around([](double, int i) { return i == 2 ? 21.0 : 30.0; });
  soundings.resize(3);
  EXPECT_EQ(Check().Checked(soundings, towards_the_school, kUnknownSlope).east, 0.0);
}

TEST(SteepnessCheck, AGentleTrendIsNeverDoubted) {
  const LocalTrend gentle{.east = 0.1, .north = 0.0};
  const auto soundings = Around([](double, int i) { return i % 3 == 1 ? 21.0 : 30.0; });
  EXPECT_EQ(Check().Checked(soundings, gentle, kUnknownSlope).east, 0.1);
}

TEST(SteepnessCheck, OneSoundingOrNoneKeepsTheTrend) {
  const LocalTrend steep{.east = 8.0, .north = 0.0};
  auto soundings = Around([](double, int) { return 30.0; });
  EXPECT_EQ(Check().Checked({}, steep, kUnknownSlope).east, 8.0);
  EXPECT_EQ(Check().Checked(std::span(soundings).first(1), steep, kUnknownSlope).east, 8.0);
}

// Each spike spoils two pairs: one sounding in three leaves one pair in three.
TEST(NoiseScale, IsThatOfTheGoodSoundingsWhereTwoPairsInThreeHoldASpike) {
  std::mt19937 random(5);
  std::normal_distribution<double> noise(0.0, kSigma_m);
  std::vector<NodeSounding> soundings;
  for (int i = 0; i < 600; ++i) {
    const double spike_m = i % 3 == 1 ? -3.0 - 0.01 * i : 0.0;
    soundings.push_back({.depth_m = static_cast<float>(30.0 + spike_m + noise(random)),
                         .sigma_v_m = static_cast<float>(kSigma_m)});
  }
  NoiseScale scale(EstimatorSettings{});
  AddDifferences(soundings, {}, scale);
  EXPECT_NEAR(scale.Value(), 1.0, 0.2);
}

}  // namespace
}  // namespace quarro::core
