#include "gridding/service/parameter_table.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gridding/local/engine_test_support.h"
#include "gridding/service/engine_config.h"
#include "gridding/service/test_parameter_manual.h"

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

std::map<std::string, double> ValuesOf(const EngineConfig& config) {
  std::map<std::string, double> values;
  const auto note = [&](const char* key, auto value, auto, auto) {
    values[key] = static_cast<double>(value);
  };
  core::VisitEstimatorSettings(config.estimator, note);
  core::VisitRefinementSettings(config.refinement, note);
  return values;
}

TEST(ParameterTable, HoldsEverySettingOfTheMethod) {
  for (const auto& [key, value] : ValuesOf(ReadEngineConfig(MParams()))) {
    const auto& table = ParameterTable();
    EXPECT_TRUE(std::any_of(table.begin(), table.end(), [&key = key](const ParameterInfo& info) {
      return info.key == key;
    })) << key;
  }
}

// Section, key and default.
using Row = std::vector<std::string>;

TEST(ParameterTable, IsThatOfTheManualWithEveryKeyOnceAndTheSameDefaults) {
  std::vector<Row> manual;
  for (const ManualRow& row : ReadParameterManual()) {
    manual.push_back({row.section, row.key, row.fallback});
  }
  std::vector<Row> table;
  for (const ParameterInfo& info : ParameterTable()) {
    table.push_back({info.section, info.key, info.fallback});
  }
  EXPECT_THAT(manual, ::testing::UnorderedElementsAreArray(table));
}

TEST(ParameterTable, TheManualTellsWhatTheEngineAllows) {
  int told = 0;
  for (const ManualRow& row : ReadParameterManual()) {
    if (row.section == "Network" || row.RefusalSays().empty()) continue;
    EXPECT_THAT(testing::ReasonOf([&] { ReadEngineConfig(row.With("?")); }),
                ::testing::EndsWith(row.RefusalSays()))
        << row.key;
    ++told;
  }
  EXPECT_EQ(told, 41);  // of numbers and flags
}

// Those of section Network have a test beside their reading.
TEST(ParameterTable, EveryDefaultOfTheEngineIsOneThatReadingTakes) {
  MParams params;
  for (const ParameterInfo& info : ParameterTable()) {
    const std::string fallback = info.fallback;
    if (fallback != "all cores") params.Set(info.section, info.key, fallback);
  }
  const EngineConfig given = ReadEngineConfig(params);
  const EngineConfig defaults = ReadEngineConfig(MParams());
  EXPECT_EQ(given.working_directory, defaults.working_directory);
  EXPECT_EQ(given.threads, defaults.threads);
  EXPECT_EQ(given.memory_bytes, defaults.memory_bytes);
  EXPECT_EQ(given.allow_duplicate_lines, defaults.allow_duplicate_lines);
  EXPECT_EQ(given.utm_zone, defaults.utm_zone);
  EXPECT_EQ(ValuesOf(given), ValuesOf(defaults));
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
