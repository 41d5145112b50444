#include "gridding/core/settings.h"

#include <gtest/gtest.h>

#include "support/exceptions.h"

namespace quarro::core {
namespace {

TEST(EstimatorSettings, AnEmptyParameterFileGivesTheDefaults) {
  const EstimatorSettings settings = ReadEstimatorSettings(MParams());
  EXPECT_EQ(settings.capture_radius, EstimatorSettings{}.capture_radius);
  EXPECT_EQ(settings.queue_length, EstimatorSettings{}.queue_length);
}

TEST(EstimatorSettings, TakeWhatTheParametersSay) {
  MParams params;
  params.Set("Estimator", "QueueLength", "5");
  params.Set("Estimator", "OutlierSigmas", "3.5");
  params.Set("Refinement", "SoundingsPerNode", "8");
  EXPECT_EQ(ReadEstimatorSettings(params).queue_length, 5);
  EXPECT_EQ(ReadEstimatorSettings(params).outlier_sigmas, 3.5);
  EXPECT_EQ(ReadRefinementSettings(params).soundings_per_node, 8.0);
}

TEST(EstimatorSettings, RefuseAValueOutOfRange) {
  MParams params;
  params.Set("Estimator", "CaptureRadius", "9");
  EXPECT_THROW(ReadEstimatorSettings(params), ExSGClientBase);
  params.Set("Refinement", "SoundingsPerNode", "many");
  EXPECT_THROW(ReadRefinementSettings(params), ExSGClientBase);
}

}  // namespace
}  // namespace quarro::core
