#include "gridding/core/node_estimator.h"

#include <cmath>
#include <random>

#include <gmock/gmock.h>

#include "gridding/core/test_node.h"

namespace quarro::core {
namespace {

std::vector<NodeSounding> Noisy(std::mt19937& random, int count, float depth_m, float sigma_m) {
  std::normal_distribution<float> noise(0.0F, sigma_m);
  std::uniform_real_distribution<float> place(-0.5F, 0.5F);
  std::vector<NodeSounding> soundings;
  for (int i = 0; i < count; ++i) {
    soundings.push_back(At(place(random), place(random), depth_m + noise(random), sigma_m));
  }
  return soundings;
}

TEST(NodeEstimator, NoSoundingsGiveNoHypothesis) { EXPECT_TRUE(Estimate({}).empty()); }

TEST(NodeEstimator, OneSoundingAtTheNodeIsItsOwnEstimate) {
  const HypothesisList hypotheses = Estimate({At(0, 0, 20.0F, 0.25F)});
  ASSERT_EQ(hypotheses.size(), 1U);
  EXPECT_EQ(hypotheses[0].depth_m, 20.0F);
  EXPECT_EQ(hypotheses[0].variance_m2, 0.0625F);
  EXPECT_EQ(hypotheses[0].sample_count, 1U);
}

// Weights: 1/0.01 at the node; at one spacing the variance doubles, so 1/0.02. Mean
// (100 * 20 + 50 * 20.3) / 150 = 20.1; variance (100^2 + 50^2) * 0.01 / 150^2 = 0.0055556.
TEST(NodeEstimator, WeightFallsWithDistanceAndTheVarianceIsThatOfTheWeightedMean) {
  const HypothesisList hypotheses = Estimate({At(0, 0, 20.0F), At(1, 0, 20.3F)});
  ASSERT_EQ(hypotheses.size(), 1U);
  EXPECT_NEAR(hypotheses[0].depth_m, 20.1, 1e-5);
  EXPECT_NEAR(hypotheses[0].variance_m2, 0.0055556, 1e-6);
  EXPECT_EQ(hypotheses[0].sample_count, 2U);
}

TEST(NodeEstimator, TheTrendCarriesSoundingsToTheNode) {
  NodeSurroundings surroundings;
  surroundings.trend = {.east = 0.5, .north = -0.25};
  const HypothesisList hypotheses = Estimate(
      {At(1, 0, 20.5F), At(0, 1, 19.75F), At(-1, -1, 19.75F), At(0, 0, 20.0F)}, surroundings);
  ASSERT_EQ(hypotheses.size(), 1U);
  EXPECT_NEAR(hypotheses[0].depth_m, 20.0, 1e-5);
}

// All of them lie eight metres aside, on a slope of which nothing is known: the depth of the node
// is uncertain by metres, but what they say of each other is not.
TEST(NodeEstimator, ASpikeAmongSoundingsBesideTheNodeIsNoneOfTheirs) {
  NodeSurroundings surroundings;
  surroundings.spacing_m = 10.0;
  surroundings.trend.east_variance = 0.09;
  const HypothesisList hypotheses =
      Estimate({At(8.0F, 0, 20.0F), At(8.1F, 0, 20.1F), At(8.2F, 0, 14.0F), At(8.1F, 0, 19.9F)},
               surroundings);
  ASSERT_EQ(hypotheses.size(), 2U);
  EXPECT_EQ(hypotheses[0].sample_count, 3U);
  EXPECT_NEAR(hypotheses[0].depth_m, 20.0, 0.1);
  EXPECT_NEAR(std::sqrt(hypotheses[0].variance_m2), 8.1 * 0.3, 0.1);
}

TEST(NodeEstimator, ErrorsOfTheSlopeThatHangTogetherCarryTogether) {
  NodeSurroundings surroundings;
  surroundings.trend.east_variance = 0.04;
  surroundings.trend.north_variance = 0.09;
  surroundings.trend.covariance = -0.05;
  const HypothesisList hypotheses = Estimate({At(2.0F, 1.0F, 20.0F)}, surroundings);
  // 0.1^2 + 0.04 * 4 + 0.09 - 2 * 0.05 * 2
  EXPECT_NEAR(hypotheses[0].variance_m2, 0.06, 1e-6);
}

TEST(NodeEstimator, AHypothesisTellsWhetherSeveralLinesHaveMetIt) {
  const auto of_lines = [](const std::vector<std::uint32_t>& lines) {
    std::vector<NodeSounding> soundings;
    for (const std::uint32_t line : lines) {
      soundings.push_back(At(0, 0, 20.0F));
      soundings.back().line = line;
    }
    const HypothesisList hypotheses = Estimate(soundings);
    EXPECT_EQ(hypotheses.size(), 1U);
    return hypotheses.front().several_lines;
  };
  EXPECT_EQ(of_lines({4, 4, 4, 4}), 0U);
  EXPECT_EQ(of_lines({0, 0}), 0U);
  EXPECT_EQ(of_lines({4, 4, 4, 7}), 1U);
  EXPECT_EQ(of_lines({0, 1}), 1U);
}

// The second line breaks away from the first as a run.
TEST(NodeEstimator, LinesThatPartWereMetByOneEach) {
  std::vector<NodeSounding> soundings(6, At(0, 0, 20.0F));
  soundings.resize(12, At(0, 0, 20.35F));
  for (std::size_t i = 0; i < soundings.size(); ++i) soundings[i].line = i < 6 ? 1 : 2;
  const HypothesisList hypotheses = Estimate(soundings);
  ASSERT_EQ(hypotheses.size(), 2U);
  EXPECT_EQ(hypotheses[0].sample_count, 6U);
  EXPECT_EQ(hypotheses[0].several_lines, 0U);
  EXPECT_EQ(hypotheses[1].several_lines, 0U);
}

TEST(NodeEstimator, ADepthIsOneOfThoseSounded) {
  NodeSurroundings surroundings;
  surroundings.trend.east = 2.0;
  const HypothesisList hypotheses =
      Estimate({At(0.5F, 0, 21.0F), At(0.4F, 0, 20.8F)}, surroundings);
  ASSERT_EQ(hypotheses.size(), 1U);
  EXPECT_EQ(hypotheses[0].depth_m, 20.8F);
  // What was moved, from 20.0 m, is uncertain.
  EXPECT_NEAR(hypotheses[0].variance_m2, 0.005 + 0.64, 0.01);
}

TEST(NodeEstimator, EarlySpikesDoNotFoundTheReportedHypothesis) {
  std::mt19937 random(7);
  std::vector<NodeSounding> soundings = {At(0, 0, 5.0F), At(0, 0, 35.0F), At(0, 0, 9.0F)};
  const auto good = Noisy(random, 20, 20.0F, 0.1F);
  soundings.insert(soundings.end(), good.begin(), good.end());
  const HypothesisList hypotheses = Estimate(soundings);
  ASSERT_EQ(hypotheses.size(), 4U);
  EXPECT_NEAR(hypotheses[0].depth_m, 20.0, 0.1);
  EXPECT_EQ(hypotheses[0].sample_count, 20U);
}

// An offset of two standard deviations, so that single soundings of both lines overlap.
TEST(NodeEstimator, OffsetLinesMostlyGiveTwoHypotheses) {
  int found = 0;
  for (unsigned seed = 0; seed < 100; ++seed) {
    std::mt19937 random(seed);
    std::vector<NodeSounding> soundings = Noisy(random, 12, 20.0F, 0.15F);
    auto shifted = Noisy(random, 12, 20.3F, 0.15F);
    for (NodeSounding& sounding : shifted) sounding.line = 1;
    soundings.insert(soundings.end(), shifted.begin(), shifted.end());
    HypothesisList hypotheses = Estimate(soundings);
    if (hypotheses.size() < 2) continue;
    if (hypotheses[0].depth_m > hypotheses[1].depth_m) std::swap(hypotheses[0], hypotheses[1]);
    EXPECT_NEAR(hypotheses[0].depth_m, 20.0, 0.25);
    EXPECT_NEAR(hypotheses[1].depth_m, 20.3, 0.25);
    ++found;
  }
  EXPECT_GE(found, 85);
}

// The first sounding says next to nothing beside the second, which fits it ill but is let in.
TEST(NodeEstimator, ARunThatOutweighsItsHypothesisByFarLeavesNoDepthUndefined) {
  EstimatorSettings settings;
  settings.outlier_sigmas = 100.0;
  NodeEstimator estimator(settings);
  HypothesisList hypotheses;
  estimator.Estimate(std::vector{At(0, 0, 1.0e8F, 1.0e7F), At(0, 0, 20.0F, 0.02F)}, {}, hypotheses);
  ASSERT_FALSE(hypotheses.empty());
  for (const Hypothesis& hypothesis : hypotheses) {
    EXPECT_TRUE(std::isfinite(hypothesis.depth_m));
    EXPECT_GT(hypothesis.variance_m2, 0.0F);
  }
}

TEST(NodeEstimator, PlainNoiseMostlyGivesOneHypothesis) {
  int single = 0;
  for (unsigned seed = 0; seed < 1000; ++seed) {
    std::mt19937 random(seed);
    if (Estimate(Noisy(random, 20, 20.0F, 0.1F)).size() == 1) ++single;
  }
  EXPECT_GE(single, 980);
}

TEST(NodeEstimator, TheReportedVarianceCoversTheErrors) {
  int covered = 0;
  constexpr int kRuns = 4000;
  for (unsigned seed = 0; seed < kRuns; ++seed) {
    std::mt19937 random(seed);
    const Hypothesis best = Estimate(Noisy(random, 15, 20.0F, 0.1F)).front();
    if (std::abs(best.depth_m - 20.0) <= 1.96 * std::sqrt(best.variance_m2)) ++covered;
  }
  EXPECT_GE(covered, static_cast<int>(0.93 * kRuns));
  EXPECT_LE(covered, static_cast<int>(0.97 * kRuns));
}

TEST(NodeEstimator, TwiceTheVarianceAndRootTwoTheResidualsKeepTheHypotheses) {
  for (unsigned seed = 0; seed < 50; ++seed) {
    std::mt19937 random(seed);
    std::vector<NodeSounding> soundings = Noisy(random, 20, 0.0F, 0.1F);
    soundings[3].depth_m = -4.0F;
    const HypothesisList before = Estimate(soundings);
    const float root_two = std::sqrt(2.0F);
    for (NodeSounding& sounding : soundings) {
      sounding.depth_m *= root_two;
      sounding.sigma_v_m *= root_two;
    }
    const HypothesisList after = Estimate(soundings);
    ASSERT_EQ(after.size(), before.size());
    for (std::size_t i = 0; i < after.size(); ++i) {
      EXPECT_EQ(after[i].sample_count, before[i].sample_count);
      EXPECT_NEAR(after[i].depth_m, before[i].depth_m * root_two, 1e-5);
      EXPECT_NEAR(after[i].variance_m2, 2.0F * before[i].variance_m2, 1e-6);
    }
  }
}

TEST(NodeEstimator, ATraceTellsEachStepInALine) {
  Recorder recorder;
  Estimate({At(0, 0, 20.0F), At(0, 0, 20.1F), At(0, 0, 5.0F)}, {}, {}, &recorder);
  ASSERT_EQ(recorder.lines.size(), 3U);
  EXPECT_EQ(
      recorder.lines[0],
      "value 20.000 m sigma 0.100 m innovation 0.00 founds hypothesis 1: depth 20.000 m sigma "
      "0.1000 m samples 1 evidence 0.00 0.00");
  EXPECT_THAT(recorder.lines[1], testing::HasSubstr("joins hypothesis 1: depth 20.050 m"));
  EXPECT_THAT(recorder.lines[2], testing::HasSubstr("founds hypothesis 2: depth 5.000 m"));
}

TEST(HypothesisStrength, IsZeroWithoutCompetitionAndGrowsToFive) {
  EXPECT_EQ(HypothesisStrength(HypothesisList{}), 0.0F);
  EXPECT_EQ(HypothesisStrength(HypothesisList{{20.0F, 0.01F, 12}}), 0.0F);
  EXPECT_EQ(HypothesisStrength(HypothesisList{{20.0F, 0.01F, 10}, {19.0F, 0.01F, 2}}), 1.0F);
  EXPECT_EQ(HypothesisStrength(HypothesisList{{20.0F, 0.01F, 10}, {19.0F, 0.01F, 10}}), 5.0F);
  EXPECT_EQ(HypothesisStrength(HypothesisList{{20.0F, 0.01F, 10}, {19.0F, 0.01F, 30}}), 5.0F);
}

TEST(OrderBySupport, OfEqualSupportTheShallowerComesFirst) {
  HypothesisList hypotheses = {{20.0F, 1.0F, 3}, {25.0F, 1.0F, 5}, {15.0F, 1.0F, 5}};
  OrderBySupport(hypotheses);
  EXPECT_EQ(hypotheses, (HypothesisList{{15.0F, 1.0F, 5}, {25.0F, 1.0F, 5}, {20.0F, 1.0F, 3}}));
}

}  // namespace
}  // namespace quarro::core
