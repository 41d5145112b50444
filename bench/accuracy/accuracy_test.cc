// A small survey with spikes must come as near to the truth as the method promises.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

#include "bench/accuracy/checks.h"
#include "bench/accuracy/judgement.h"
#include "bench/accuracy/scenarios.h"
#include "bench/accuracy/survey_run.h"
#include "bench/accuracy/targets.h"
#include "simulate/command_line.h"
#include "simulate/survey_writer.h"
#include "support/test_directory.h"

namespace quarro::accuracy {
namespace {

Scenario Small(const char* name) {
  for (Scenario scenario : Scenarios()) {
    if (scenario.name != name) continue;
    constexpr double kLength_m = 120.0;
    const double share = kLength_m / scenario.survey.line_length_m;
    const auto part = [&](std::uint32_t count) {
      return static_cast<std::uint32_t>(std::lround(share * count));
    };
    scenario.survey.lines = 2;
    scenario.survey.line_length_m = kLength_m;
    scenario.survey.bursts = part(scenario.survey.bursts);
    scenario.survey.rock_count = part(scenario.survey.rock_count);
    return scenario;
  }
  throw std::logic_error(std::string("no scenario ") + name);
}

// Each that is missed, as a line.
std::string Missed(const std::vector<Check>& checks, const std::string& but_of = "nothing") {
  std::ostringstream text;
  for (const Check& check : checks) {
    if (check.Met() || check.what.find(but_of) != std::string::npos) continue;
    text << check.scenario << ' ' << check.what << ' ' << check.value << '\n';
  }
  return text.str();
}

struct Judged {
  explicit Judged(const Scenario& scenario)
      : run(RunScenario(scenario, folder.Path(), MParams())),
        full(JudgeFull(scenario, run)),
        targets(TargetsOf(scenario, "full", full)),
        checks(ChecksOf(scenario, run)) {}
  TestDirectory folder;
  SurveyRun run;
  std::vector<MethodErrors> full;
  std::vector<Check> targets;
  std::vector<Check> checks;
};

TEST(Accuracy, FewSpikesLeaveTheErrorsNearTheOracles) {
  for (const char* name : {"spikes-1", "spikes-5", "slope-10", "waves"}) {
    const Judged judged(Small(name));
    EXPECT_GT(ErrorsOf(judged.full, "quarro").nodes, 10000U);
    EXPECT_EQ(ErrorsOf(judged.full, "quarro").without, 0U);
    EXPECT_EQ(judged.targets.size(), 7U);
    EXPECT_EQ(Missed(judged.targets), "");
    EXPECT_EQ(Missed(judged.checks), "");
  }
}

TEST(Accuracy, LowResolutionIsNearTheOraclesAndItsSigmasAreHonest) {
  for (const char* name : {"spikes-5", "slope-30-clean"}) {
    const Scenario scenario = Small(name);
    const TestDirectory folder;
    const SurveyRun run = RunScenario(scenario, folder.Path(), MParams());
    const auto low = JudgeLow(scenario, run);
    EXPECT_GT(ErrorsOf(low, "quarro").nodes, 80U);
    EXPECT_EQ(ErrorsOf(low, "quarro").without, 0U);
    EXPECT_LE(ErrorsOf(low, "quarro").rmse_m, 1.1 * ErrorsOf(low, "oracle").rmse_m) << name;
    EXPECT_LE(ErrorsOf(low, "quarro").median_m, 1.2 * ErrorsOf(low, "oracle").median_m) << name;
    EXPECT_GE(ErrorsOf(low, "quarro").covered, 0.9) << name;
    EXPECT_LE(ErrorsOf(low, "quarro").covered, 0.99) << name;
  }
}

TEST(Accuracy, OneBeamInFiveWrongLeavesFewNodesWrongAndTheseMarked) {
  const Judged judged(Small("spikes-20"));
  EXPECT_EQ(judged.targets.size(), 2U);
  EXPECT_EQ(Missed(judged.targets), "");
}

// Where a node met nothing but fish nobody knows the floor. A small survey has few nodes, so two
// of them are more than one in 20,000.
TEST(Accuracy, TheNeighboursOverruleFishAndCountsDoNot) {
  const Judged asked(Small("fish"));
  EXPECT_LE(ErrorsOf(asked.full, "quarro").wrong, 1e-4);
  EXPECT_LE(ErrorsOf(asked.full, "quarro").rmse_m, 1.3 * ErrorsOf(asked.full, "oracle").rmse_m);
  const Judged counted(Small("fish-by-count"));
  EXPECT_GT(ErrorsOf(counted.full, "quarro").wrong, 10.0 * ErrorsOf(asked.full, "quarro").wrong);
  EXPECT_GT(ErrorsOf(counted.full, "quarro").rmse_m, 3.0 * ErrorsOf(asked.full, "quarro").rmse_m);
}

TEST(Accuracy, TheNeighboursOverruleFishAndKeepTheWreck) {
  const Judged judged(Small("fish-and-wreck"));
  EXPECT_EQ(Missed(judged.targets, "fish alone"), "");
  EXPECT_EQ(judged.checks.front().what, "least depth of the wreck less the true one, m");
  EXPECT_EQ(Missed(judged.checks, "share of rocks"), "");
  EXPECT_EQ(judged.checks[1].what, "share of rocks whose least depth is 0.3 m too deep");
  EXPECT_LE(judged.checks[1].value, 0.25);  // of eight
}

TEST(Accuracy, ALineThatIsOffGivesTwoHypotheses) {
  const Judged judged(Small("offset"));
  EXPECT_EQ(judged.checks[0].what, "share of shared nodes with two hypotheses");
  EXPECT_GE(judged.checks[0].value, 0.85);
  EXPECT_GE(judged.checks[1].value, 0.9);
}

// script/demo shows the errors of its own survey.
TEST(Accuracy, TheDemosScenarioIsTheDemosSurvey) {
  std::ifstream script(QUARRO_SOURCE_DIR "/script/demo");
  std::string text((std::istreambuf_iterator<char>(script)), {});
  const auto begin = text.find("Quarro_Simulate\"");
  ASSERT_NE(begin, std::string::npos);
  std::istringstream words(text.substr(begin, text.find("\n\n", begin) - begin));
  std::vector<std::string> arguments;
  const TestDirectory folder;
  const std::string lines = folder.Path() + "/lines";
  for (std::string word; words >> word;) {
    if (word == "\\") continue;
    arguments.push_back(word == "\"$out/lines\"" ? lines : word);
  }
  std::vector<const char*> argv;
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  std::ostringstream out;
  ASSERT_EQ(simulate::Run(static_cast<int>(argv.size()), argv.data(), out, out), 0) << out.str();
  for (const Scenario& scenario : Scenarios()) {
    if (scenario.name != "demo") continue;
    const std::string again = folder.Path() + "/again";
    simulate::WriteSurvey(scenario.survey, again, 0, true);
    for (std::uint32_t line = 0; line < scenario.survey.lines; ++line) {
      const std::string name = "/" + simulate::LineFileName(line);
      std::ifstream one(lines + name, std::ios::binary);
      std::ifstream other(again + name, std::ios::binary);
      ASSERT_TRUE(one && other) << name;
      EXPECT_TRUE(std::equal(std::istreambuf_iterator<char>(one), {},
                             std::istreambuf_iterator<char>(other), {}))
          << name;
    }
    EXPECT_FALSE(
        std::filesystem::exists(lines + "/" + simulate::LineFileName(scenario.survey.lines)));
  }
}

}  // namespace
}  // namespace quarro::accuracy
