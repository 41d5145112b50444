// A small survey with spikes must come as near to the truth as the method promises.

#include <cmath>

#include <gtest/gtest.h>

#include "bench/accuracy/checks.h"
#include "bench/accuracy/judgement.h"
#include "bench/accuracy/scenarios.h"
#include "bench/accuracy/survey_run.h"
#include "support/test_directory.h"

namespace quarro::accuracy {
namespace {

Scenario Small(const char* name) {
  for (Scenario scenario : Scenarios()) {
    if (scenario.name != name) continue;
    scenario.survey.lines = 2;
    scenario.survey.line_length_m = 120.0;
    return scenario;
  }
  throw std::logic_error(std::string("no scenario ") + name);
}

const Errors& Of(const std::vector<MethodErrors>& table, const std::string& method) {
  for (const MethodErrors& row : table) {
    if (row.method == method) return row.errors;
  }
  throw std::logic_error("no method " + method);
}

TEST(Accuracy, SpikesInOneOfTwentyBeamsCostLessThanATenthOfTheOraclesErrors) {
  const TestDirectory folder;
  const Scenario scenario = Small("spikes-5");
  const SurveyRun run = RunScenario(scenario, folder.Path(), MParams());
  const auto full = JudgeFull(scenario, run);
  const Errors& quarro = Of(full, "quarro");
  const Errors& oracle = Of(full, "oracle");
  const Errors& median = Of(full, "median");
  EXPECT_GT(quarro.nodes, 10000U);
  EXPECT_EQ(quarro.without, 0U);
  EXPECT_LE(quarro.median_m, 1.1 * oracle.median_m);
  EXPECT_LE(quarro.p95_m, 1.1 * oracle.p95_m);
  EXPECT_LT(quarro.median_m, median.median_m);
  EXPECT_LT(quarro.p95_m, median.p95_m);
  EXPECT_LT(quarro.rmse_m, median.rmse_m);
  EXPECT_GE(quarro.covered, 0.93);
  EXPECT_LE(quarro.covered, 0.97);
}

TEST(Accuracy, OneBeamInFiveWrongLeavesAtMostOneNodeInTwoHundredWrong) {
  const TestDirectory folder;
  const Scenario scenario = Small("spikes-20");
  const SurveyRun run = RunScenario(scenario, folder.Path(), MParams());
  EXPECT_LE(Of(JudgeFull(scenario, run), "quarro").wrong, 0.005);
}

TEST(Accuracy, TheNeighboursOverruleFishAndKeepTheWreck) {
  const TestDirectory folder;
  const Scenario scenario = Small("fish-and-wreck");
  const SurveyRun run = RunScenario(scenario, folder.Path(), MParams());
  const auto full = JudgeFull(scenario, run);
  EXPECT_LE(Of(full, "quarro").rmse_m, 1.3 * Of(full, "oracle").rmse_m);
  const auto checks = ChecksOf(scenario, run);
  ASSERT_FALSE(checks.empty());
  EXPECT_EQ(checks.front().what, "least depth of the wreck less the true one, m");
  EXPECT_LE(std::abs(checks.front().value), 0.3);
}

TEST(Accuracy, ALineThatIsOffGivesTwoHypotheses) {
  const TestDirectory folder;
  const Scenario scenario = Small("offset");
  const SurveyRun run = RunScenario(scenario, folder.Path(), MParams());
  const auto checks = ChecksOf(scenario, run);
  ASSERT_GE(checks.size(), 2U);
  EXPECT_EQ(checks[0].what, "share of shared nodes with two hypotheses");
  EXPECT_GE(checks[0].value, 0.85);
  EXPECT_GE(checks[1].value, 0.9);
}

}  // namespace
}  // namespace quarro::accuracy
