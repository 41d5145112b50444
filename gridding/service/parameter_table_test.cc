#include "gridding/service/parameter_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"
#include "gridding/service/engine_config.h"

namespace quarro::service {
namespace {

TEST(ParameterTable, AKeyThatNoModuleKnowsIsWarnedOf) {
  MParams params;
  params.Set("Engine", "Threads", "2");
  params.Set("Engine", "Treads", "2");
  params.Set("Engines", "Threads", "2");
  const testing::EngineLog log;
  WarnOfUnknownParameters(params);
  EXPECT_THAT(log.Text(), ::testing::HasSubstr("3 the parameter file holds the key \"Treads\" in "
                                               "section \"Engine\""));
  EXPECT_THAT(log.Text(), ::testing::HasSubstr("section \"Engines\""));
  EXPECT_EQ(log.Text().find("\"Threads\" in section \"Engine\""), std::string::npos);
}

TEST(ParameterTable, EveryDefaultOfTheEngineIsOneThatReadingTakes) {
  MParams params;
  for (const ParameterInfo& info : ParameterTable()) {
    const std::string fallback = info.fallback;
    if (fallback != "all cores") params.Set(info.section, info.key, fallback);
  }
  const EngineConfig given = ReadEngineConfig(params);
  const EngineConfig defaults = ReadEngineConfig(MParams());
  EXPECT_EQ(given.threads, defaults.threads);
  EXPECT_EQ(given.memory_bytes, defaults.memory_bytes);
  EXPECT_EQ(given.utm_zone, defaults.utm_zone);
  EXPECT_EQ(given.estimator.capture_radius, defaults.estimator.capture_radius);
  EXPECT_EQ(given.estimator.queue_length, defaults.estimator.queue_length);
  EXPECT_EQ(given.estimator.shift_sigmas, defaults.estimator.shift_sigmas);
  EXPECT_EQ(given.estimator.outlier_sigmas, defaults.estimator.outlier_sigmas);
  EXPECT_EQ(given.estimator.run_evidence, defaults.estimator.run_evidence);
  EXPECT_EQ(given.estimator.low_resolution_soundings, defaults.estimator.low_resolution_soundings);
  EXPECT_EQ(given.estimator.ask_neighbours, defaults.estimator.ask_neighbours);
  EXPECT_EQ(given.estimator.ambiguous_share, defaults.estimator.ambiguous_share);
  EXPECT_EQ(given.estimator.neighbour_reach, defaults.estimator.neighbour_reach);
  EXPECT_EQ(given.estimator.fewest_neighbours, defaults.estimator.fewest_neighbours);
  EXPECT_EQ(given.refinement.soundings_per_node, defaults.refinement.soundings_per_node);
  EXPECT_EQ(given.refinement.horizontal_uncertainty_factor,
            defaults.refinement.horizontal_uncertainty_factor);
  EXPECT_EQ(given.uncertainty.vertical_fixed_m, defaults.uncertainty.vertical_fixed_m);
  EXPECT_EQ(given.uncertainty.vertical_proportional, defaults.uncertainty.vertical_proportional);
  EXPECT_EQ(given.uncertainty.horizontal_fixed_m, defaults.uncertainty.horizontal_fixed_m);
  EXPECT_EQ(given.uncertainty.horizontal_proportional,
            defaults.uncertainty.horizontal_proportional);
  EXPECT_EQ(given.uncertainty.angle_growth, defaults.uncertainty.angle_growth);
  EXPECT_EQ(given.uncertainty.least_vertical_m, defaults.uncertainty.least_vertical_m);
  EXPECT_EQ(given.uncertainty.least_horizontal_m, defaults.uncertainty.least_horizontal_m);
}

}  // namespace
}  // namespace quarro::service
