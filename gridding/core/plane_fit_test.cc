#include "gridding/core/plane_fit.h"

#include <cmath>
#include <random>

#include <gtest/gtest.h>

namespace quarro::core {
namespace {

constexpr double kUnknownSlope = 0.3;
constexpr double kSigma_m = 0.1;

struct Patch {
  double west_m = -3.0;
  double east_m = 3.0;
  double slope = 0.0;  // towards the east
  double spikes = 0.0;
  double sigma_h_m = 0.05;
};

std::vector<NodeSounding> Sounded(unsigned seed, const Patch& patch) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> east(patch.west_m, patch.east_m);
  std::uniform_real_distribution<double> north(-3.0, 3.0);
  std::uniform_real_distribution<double> share(0.0, 1.0);
  std::normal_distribution<double> noise(0.0, kSigma_m);
  std::vector<NodeSounding> soundings;
  for (int i = 0; i < 60; ++i) {
    const double east_m = east(random);
    const double spike_m = share(random) < patch.spikes ? -6.0 : 0.0;
    soundings.push_back(
        {.east_m = static_cast<float>(east_m),
         .north_m = static_cast<float>(north(random)),
         .depth_m = static_cast<float>(30.0 + patch.slope * east_m + spike_m + noise(random)),
         .sigma_v_m = static_cast<float>(kSigma_m),
         .sigma_h_m = static_cast<float>(patch.sigma_h_m)});
  }
  return soundings;
}

LocalTrend Fit(const std::vector<NodeSounding>& soundings, const LocalTrend& start = {},
               const EstimatorSettings& settings = {}) {
  return PlaneFitter(settings).Slope(soundings, start, 1.0, kUnknownSlope);
}

// Three soundings on a line to the north tell nothing of the east. At north -2, 0 and 2 m with
// variances of 0.01 m2 their information of the north slope is (4 + 0 + 4) / 0.01 = 800 beside
// 1 / 0.3^2 = 11.11 of the prior: a slope of 0.1 becomes 0.1 * 800 / 811.11 = 0.09863, its variance
// 1 / 811.11 = 0.0012329.
TEST(PlaneFitter, ThreeSoundingsTellWhatTheyKnow) {
  std::vector<NodeSounding> soundings;
  for (const float north_m : {-2.0F, 0.0F, 2.0F}) {
    soundings.push_back({.east_m = 0.0F,
                         .north_m = north_m,
                         .depth_m = 20.0F + 0.1F * north_m,
                         .sigma_v_m = 0.1F,
                         .sigma_h_m = 0.0F});
  }
  EstimatorSettings settings;
  settings.slope_sigmas = 0.0;
  const LocalTrend trend = Fit(soundings, {.east = 0.0, .north = 0.1}, settings);
  EXPECT_NEAR(trend.north, 0.09863, 1e-5);
  EXPECT_NEAR(trend.north_variance, 0.0012329, 1e-6);
  EXPECT_NEAR(trend.east, 0.0, 1e-12);
  EXPECT_NEAR(trend.east_variance, kUnknownSlope * kUnknownSlope, 1e-9);
  EXPECT_NEAR(trend.covariance, 0.0, 1e-12);
}

// Along the diagonal the slope is known, across it is not; the diagonal itself rises by
// (0.1 + 0.1) / 2 along each axis.
TEST(PlaneFitter, SoundingsOnADiagonalTieTheAxesTogether) {
  std::vector<NodeSounding> soundings;
  for (int i = -10; i <= 10; ++i) {
    const auto step_m = static_cast<float>(i);
    soundings.push_back({.east_m = step_m,
                         .north_m = step_m,
                         .depth_m = 20.0F + 0.2F * step_m,
                         .sigma_v_m = 0.1F,
                         .sigma_h_m = 0.0F});
  }
  const LocalTrend trend = Fit(soundings, {.east = 0.1, .north = 0.1});
  EXPECT_NEAR(trend.east, 0.1, 1e-3);
  EXPECT_NEAR(trend.north, 0.1, 1e-3);
  const double along = trend.east_variance + trend.north_variance + 2.0 * trend.covariance;
  const double across = trend.east_variance + trend.north_variance - 2.0 * trend.covariance;
  EXPECT_NEAR(across, 2.0 * kUnknownSlope * kUnknownSlope, 1e-9);
  EXPECT_LT(along, 1e-4);
}

TEST(PlaneFitter, SpikesHaveNoSay) {
  const LocalTrend trend = Fit(Sounded(1, {.slope = 0.2, .spikes = 0.3}));
  EXPECT_NEAR(trend.east, 0.2, 0.05);
  EXPECT_LT(std::sqrt(trend.east_variance), 0.02);
}

TEST(PlaneFitter, NoiseMakesNoSlope) {
  int level = 0;
  for (unsigned seed = 0; seed < 1000; ++seed) {
    const LocalTrend trend = Fit(Sounded(seed, {}));
    if (trend.east == 0.0 && trend.north == 0.0) ++level;
  }
  // Within two standard uncertainties along both axes: 91 of 100.
  EXPECT_GE(level, 880);
}

TEST(PlaneFitter, TheErrorsOfASlopeAreThoseTold) {
  int covered = 0;
  for (unsigned seed = 0; seed < 1000; ++seed) {
    const LocalTrend trend = Fit(Sounded(seed, {.slope = 0.05, .spikes = 0.05}));
    if (std::abs(trend.east - 0.05) <= 1.96 * std::sqrt(trend.east_variance)) ++covered;
  }
  EXPECT_GE(covered, 910);
  EXPECT_LE(covered, 985);
}

// A strip beside the node that is no wider than its positions are uncertain.
TEST(PlaneFitter, WherePositionsMixOnOneSideTheSlopeIsUnknown) {
  const Patch strip{.west_m = 6.0, .east_m = 8.0, .sigma_h_m = 2.0};
  EXPECT_NEAR(std::sqrt(Fit(Sounded(1, strip)).east_variance), kUnknownSlope, 0.02);
  const Patch around{.west_m = -1.0, .east_m = 1.0, .sigma_h_m = 2.0};
  EXPECT_LT(std::sqrt(Fit(Sounded(1, around)).east_variance), 0.5 * kUnknownSlope);
}

// Far from the node rounding outweighs the spread of soundings at one place.
TEST(PlaneFitter, SoundingsAtOnePlaceFarOffTellNothing) {
  std::mt19937 random(9);
  std::uniform_real_distribution<float> place(-50000.0F, 50000.0F);
  for (int draw = 0; draw < 2000; ++draw) {
    const NodeSounding sounding{.east_m = place(random),
                                .north_m = place(random),
                                .depth_m = 30.0F,
                                .sigma_v_m = 0.001F,
                                .sigma_h_m = 0.05F};
    const std::vector<NodeSounding> soundings(1 + static_cast<std::size_t>(draw % 60), sounding);
    const LocalTrend trend = PlaneFitter(EstimatorSettings{}).Slope(soundings, {}, 1.0, 10.0);
    ASSERT_TRUE(std::abs(trend.east) <= 10.0 && std::abs(trend.north) <= 10.0) << draw;
    ASSERT_TRUE(trend.east_variance >= 0.0 && trend.east_variance <= 101.0) << draw;
    ASSERT_TRUE(trend.north_variance >= 0.0 && trend.north_variance <= 101.0) << draw;
  }
}

TEST(PlaneFitter, WithoutSoundingsOrDoubtTheStartStays) {
  const LocalTrend start{.east = 0.2, .north = 0.1, .east_variance = 0.5, .north_variance = 0.25};
  EXPECT_EQ(Fit({}, start).east, 0.2);
  const LocalTrend kept = PlaneFitter(EstimatorSettings{}).Slope(Sounded(1, {}), start, 1.0, 0.0);
  EXPECT_EQ(kept.north, 0.1);
  EXPECT_EQ(kept.north_variance, 0.25);
}

}  // namespace
}  // namespace quarro::core
