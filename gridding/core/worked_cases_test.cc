// Terms of the estimate at a node, each in a case small enough to be worked by hand.

#include <cmath>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "gridding/core/test_node.h"

namespace quarro::core {
namespace {

// Soundings are taken as they come, which tells what each of them does.
EstimatorSettings WithoutQueue() {
  EstimatorSettings settings;
  settings.queue_length = 1;
  return settings;
}

// So well known that what follows moves it by less than a hundredth of a millimetre.
constexpr float kFounderDepth_m = 20.0F;
NodeSounding Founder() { return At(0, 0, kFounderDepth_m, 0.001F); }

// `count` soundings of one metre's standard uncertainty at the node, off the founder by so many
// metres: so many standard uncertainties is their innovation.
void Append(std::vector<NodeSounding>& soundings, int count, float off_m) {
  soundings.insert(soundings.end(), static_cast<std::size_t>(count),
                   At(0, 0, kFounderDepth_m + off_m, 1.0F));
}

// Both lie one spacing off. Without horizontal error the variance grows by 1 + 1^2 to 0.02, so the
// weight is 50; where 95 % of the errors reach a spacing farther, by 1 + 2^2 to 0.05: 20. Mean
// (50 * 20 + 20 * 20.35) / 70 = 20.1; variance (50^2 + 20^2) * 0.01 / 70^2 = 0.0059184.
TEST(NodeEstimator, OfSoundingsEquallyFarTheBetterPlacedWeighsMore) {
  const HypothesisList hypotheses =
      Estimate({At(1, 0, 20.0F), At(0, 1, 20.35F, 0.1F, static_cast<float>(1.0 / 1.96))});
  ASSERT_EQ(hypotheses.size(), 1U);
  EXPECT_NEAR(hypotheses[0].depth_m, 20.1, 1e-4);
  EXPECT_NEAR(hypotheses[0].variance_m2, 0.0059184, 1e-6);
}

// At the node the uncertain place alone is a distance: weights 100 and 1 / (0.01 * (1 + 1)) = 50;
// mean (100 * 20 + 50 * 20.3) / 150 = 20.1.
TEST(NodeEstimator, AnUncertainPlaceIsADistanceAtTheNodeToo) {
  const HypothesisList hypotheses =
      Estimate({At(0, 0, 20.0F), At(0, 0, 20.3F, 0.1F, static_cast<float>(1.0 / 1.96))});
  ASSERT_EQ(hypotheses.size(), 1U);
  EXPECT_NEAR(hypotheses[0].depth_m, 20.1, 1e-4);
}

// The slope is the root of 0.48^2 + 0.64^2, 0.8; 0.3^2 + (0.8 * 0.5)^2 = 0.09 + 0.16.
TEST(NodeEstimator, AHorizontalErrorOnASlopeIsAVerticalOne) {
  NodeSurroundings surroundings;
  surroundings.trend = {.east = 0.48, .north = 0.64};
  const HypothesisList hypotheses = Estimate({At(0, 0, 20.0F, 0.3F, 0.5F)}, surroundings);
  ASSERT_EQ(hypotheses.size(), 1U);
  EXPECT_NEAR(hypotheses[0].variance_m2, 0.25, 1e-6);
}

TEST(NodeEstimator, AHorizontalErrorOnLevelGroundIsNone) {
  const HypothesisList hypotheses = Estimate({At(0, 0, 20.0F, 0.3F, 0.5F)});
  ASSERT_EQ(hypotheses.size(), 1U);
  EXPECT_NEAR(hypotheses[0].variance_m2, 0.09, 1e-6);
}

// A scatter of 2 stands for vertical errors twice as great. 4 * 0.01, for one sounding; for two
// as near as each other, half of it.
TEST(NodeEstimator, TwiceTheScatterIsFourTimesTheVariance) {
  NodeSurroundings surroundings;
  surroundings.noise_scale = 2.0;
  EXPECT_NEAR(Estimate({At(0, 0, 20.0F)}, surroundings).front().variance_m2, 0.04, 1e-6);
  EXPECT_NEAR(Estimate({At(0, 0, 20.0F), At(0, 0, 20.1F)}, surroundings).front().variance_m2, 0.02,
              1e-6);
}

// (2 * 0.3)^2 + (0.8 * 0.5)^2 = 0.36 + 0.16: differences of soundings tell nothing of what
// horizontal errors add on a slope, which is in what they are measured by.
TEST(NodeEstimator, ScatterScalesTheVerticalErrorAlone) {
  NodeSurroundings surroundings;
  surroundings.trend = {.east = 0.48, .north = 0.64};
  surroundings.noise_scale = 2.0;
  EXPECT_NEAR(Estimate({At(0, 0, 20.0F, 0.3F, 0.5F)}, surroundings).front().variance_m2, 0.52,
              1e-6);
}

// Half a metre off is five standard uncertainties of 0.1 m and 2.5 of 0.2 m; the limit is four.
TEST(NodeEstimator, ScatterDecidesWhatIsAnOutlier) {
  const std::vector<NodeSounding> soundings = {Founder(), At(0, 0, 20.5F)};
  EXPECT_EQ(Estimate(soundings, {}, WithoutQueue()).size(), 2U);
  NodeSurroundings surroundings;
  surroundings.noise_scale = 2.0;
  EXPECT_EQ(Estimate(soundings, surroundings, WithoutQueue()).size(), 1U);
}

// Shift h of 1.5, innovations e of 1.5: each adds h e - h^2 / 2 = 2.25 - 1.125 = 1.125. Four make
// 4.5, five 5.625, which is the first to exceed 5. Away go all five, and the founder is left.
TEST(NodeEstimator, ARunBreaksAwayWhenItsEvidencePassesTheLimit) {
  for (const float off_m : {1.5F, -1.5F}) {
    std::vector<NodeSounding> soundings = {Founder()};
    Append(soundings, 4, off_m);
    const HypothesisList before = Estimate(soundings, {}, WithoutQueue());
    ASSERT_EQ(before.size(), 1U) << off_m;
    EXPECT_EQ(before[0].sample_count, 5U);
    Append(soundings, 1, off_m);
    const HypothesisList after = Estimate(soundings, {}, WithoutQueue());
    ASSERT_EQ(after.size(), 2U) << off_m;
    EXPECT_EQ(after[0].sample_count, 5U);
    EXPECT_NEAR(after[0].depth_m, kFounderDepth_m + off_m, 1e-4);
    EXPECT_NEAR(after[0].variance_m2, 0.2, 1e-4);
    EXPECT_EQ(after[1].sample_count, 1U);
    EXPECT_NEAR(after[1].depth_m, kFounderDepth_m, 1e-4);
  }
}

// As before; 4.5 is beyond a limit of 4.4 and within one of 4.6.
TEST(NodeEstimator, TheLimitOfTheEvidenceIsTheOneThatIsSet) {
  std::vector<NodeSounding> soundings = {Founder()};
  Append(soundings, 4, 1.5F);
  EstimatorSettings settings = WithoutQueue();
  settings.run_evidence = 4.4;
  EXPECT_EQ(Estimate(soundings, {}, settings).size(), 2U);
  settings.run_evidence = 4.6;
  EXPECT_EQ(Estimate(soundings, {}, settings).size(), 1U);
}

// One deeper makes 1.125, the shallower one takes -2.25 - 1.125 from it and leaves nothing, so that
// it takes five more to exceed 5, and only they go.
TEST(NodeEstimator, EvidenceThatFallsBelowNothingStartsAfresh) {
  std::vector<NodeSounding> soundings = {Founder()};
  Append(soundings, 1, 1.0F);
  Append(soundings, 1, -1.5F);
  Append(soundings, 4, 1.5F);
  EXPECT_EQ(Estimate(soundings, {}, WithoutQueue()).size(), 1U);
  Append(soundings, 1, 1.5F);
  const HypothesisList hypotheses = Estimate(soundings, {}, WithoutQueue());
  ASSERT_EQ(hypotheses.size(), 2U);
  EXPECT_EQ(hypotheses[0].sample_count, 5U);
  EXPECT_NEAR(hypotheses[0].depth_m, 21.5, 1e-4);
  EXPECT_EQ(hypotheses[1].sample_count, 3U);
}

// An innovation of 1.996 makes 1.5 * 1.996 - 1.125 = 1.869; one of -0.984 takes 1.476 + 1.125 from
// it, which leaves nothing, and makes 1.476 - 1.125 = 0.351 on the other side.
TEST(NodeEstimator, ATraceTellsTheEvidenceOfBothSides) {
  std::vector<NodeSounding> soundings = {Founder()};
  Append(soundings, 1, 1.996F);
  Append(soundings, 1, -0.984F);
  Append(soundings, 1, 1.996F);
  Recorder recorder;
  Estimate(soundings, {}, WithoutQueue(), &recorder);
  ASSERT_EQ(recorder.lines.size(), 4U);
  EXPECT_THAT(recorder.lines[0], testing::EndsWith("evidence 0.00 0.00"));
  EXPECT_THAT(recorder.lines[1], testing::HasSubstr("innovation 2.00 joins"));
  EXPECT_THAT(recorder.lines[1], testing::EndsWith("samples 2 evidence 1.87 0.00"));
  EXPECT_THAT(recorder.lines[2], testing::EndsWith("samples 3 evidence 0.00 0.35"));
  EXPECT_THAT(recorder.lines[3], testing::EndsWith("samples 4 evidence 1.87 0.00"));
}

// One spacing off the variance 0.01 is doubled, so the limit of four standard uncertainties is at
// 0.566 m; at the node it would be at 0.4 m. The uncertain place, which takes from the weight, is
// no excuse for the depth: with it, it would be at 0.89 m.
TEST(NodeEstimator, AFartherSoundingMayDifferMore) {
  const auto fits = [](float east_m, float off_m) {
    return Estimate({Founder(), At(east_m, 0, kFounderDepth_m + off_m, 0.1F, 0.5F)}, {},
                    WithoutQueue())
               .size() == 1;
  };
  EXPECT_TRUE(fits(0.0F, 0.39F));
  EXPECT_FALSE(fits(0.0F, 0.41F));
  EXPECT_TRUE(fits(1.0F, 0.56F));
  EXPECT_FALSE(fits(1.0F, 0.57F));
  EXPECT_TRUE(fits(1.0F, -0.56F));
  EXPECT_FALSE(fits(1.0F, -0.57F));
}

// Spacings are what distances are measured in: two metres are one spacing of two metres.
TEST(NodeEstimator, DistancesCountInSpacings) {
  NodeSurroundings surroundings;
  surroundings.spacing_m = 2.0;
  const HypothesisList hypotheses = Estimate({At(0, 0, 20.0F), At(0, 2, 20.3F)}, surroundings);
  ASSERT_EQ(hypotheses.size(), 1U);
  EXPECT_NEAR(hypotheses[0].depth_m, 20.1, 1e-5);
}

}  // namespace
}  // namespace quarro::core
