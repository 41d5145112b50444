#include "gridding/core/settings.h"

#include <string>
#include <type_traits>
#include <utility>
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
  std::vector<std::pair<std::string, std::string>> greatest;
  VisitEstimatorSettings(fallback, [&](const char* key, auto value, auto, auto most) {
    if constexpr (std::is_same_v<decltype(value), bool>) {
      greatest.emplace_back(key, value ? "false" : "true");
    } else {
      greatest.emplace_back(key, std::to_string(most));
    }
  });
  for (const auto& [key, text] : greatest) {
    MParams params;
    params.Set("Estimator", key, text);
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
