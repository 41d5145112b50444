#include "gridding/core/settings.h"

#include <string>
#include <vector>

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

TEST(EstimatorSettings, EveryOneIsAParameter) {
  const EstimatorSettings fallback;
  std::vector<std::string> keys;
  VisitEstimatorSettings(fallback,
                         [&](const char* key, auto, auto, auto) { keys.emplace_back(key); });
  for (const std::string& key : keys) {
    MParams params;
    params.Set("Estimator", key, key == "AskNeighbours" ? "false" : "1");
    if (key == "CaptureRadius" || key == "HuddleShare") params.Set("Estimator", key, "0.625");
    const EstimatorSettings read = ReadEstimatorSettings(params);
    std::vector<std::string> changed;
    std::vector<double> defaults;
    VisitEstimatorSettings(fallback, [&](const char*, auto value, auto, auto) {
      defaults.push_back(static_cast<double>(value));
    });
    std::size_t i = 0;
    VisitEstimatorSettings(read, [&](const char* name, auto value, auto, auto) {
      if (static_cast<double>(value) != defaults[i++]) changed.emplace_back(name);
    });
    EXPECT_EQ(changed, std::vector<std::string>{key});
  }
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
