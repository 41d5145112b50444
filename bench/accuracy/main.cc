// Prints how near the depths of each scenario come to the truth, as a table or as CSV.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/accuracy/checks.h"
#include "bench/accuracy/judgement.h"
#include "bench/accuracy/scenarios.h"
#include "bench/accuracy/survey_run.h"
#include "bench/accuracy/targets.h"
#include "support/test_directory.h"

namespace quarro::accuracy {
namespace {

void PrintRow(const Scenario& scenario, const SurveyRun& run, const char* level,
              const MethodErrors& row, std::ofstream& csv) {
  const Errors& e = row.errors;
  std::printf(
      "%-16s %9llu %-4s %-6s %8llu %7.4f %7.4f %7.4f %8.4f %6.3f %9.6f %6.3f %7llu %6llu %6.3f\n",
      scenario.name.c_str(), static_cast<unsigned long long>(run.sounding_count), level,
      row.method.c_str(), static_cast<unsigned long long>(e.nodes), e.rmse_m, e.median_m, e.p95_m,
      e.p999_m, e.covered, e.wrong, e.wrong_marked, static_cast<unsigned long long>(e.without),
      static_cast<unsigned long long>(e.blind), e.hypotheses);
  csv << scenario.name << ',' << run.sounding_count << ',' << level << ',' << row.method << ','
      << e.nodes << ',' << e.rmse_m << ',' << e.median_m << ',' << e.p95_m << ',' << e.p999_m << ','
      << e.covered << ',' << e.wrong << ',' << e.wrong_marked << ',' << e.without << ',' << e.blind
      << ',' << e.rmse_everywhere_m << ',' << e.wrong_everywhere << ',' << e.hypotheses << '\n';
}

struct Arguments {
  std::string csv;
  MParams params;
  std::vector<std::string> scenarios;  // none: all
};

bool IsScenario(const std::string& name) {
  const auto& all = Scenarios();
  return std::any_of(all.begin(), all.end(), [&](const auto& one) { return one.name == name; });
}

// The CSV file, then settings Section/Key=Value and names of scenarios.
Arguments Read(int argc, char** argv) {
  Arguments arguments;
  arguments.csv = argv[1];
  for (int i = 2; i < argc; ++i) {
    const std::string word = argv[i];
    const auto equals = word.find('=');
    const auto slash = word.find('/');
    if (equals == std::string::npos) {
      if (!IsScenario(word)) {
        std::string names;
        for (const Scenario& scenario : Scenarios()) names += " " + scenario.name;
        throw std::runtime_error("there is no scenario \"" + word + "\"; there are" + names);
      }
      arguments.scenarios.push_back(word);
    } else if (slash < equals) {
      arguments.params.Set(word.substr(0, slash), word.substr(slash + 1, equals - slash - 1),
                           word.substr(equals + 1));
    } else {
      throw std::runtime_error("\"" + word + "\" is no setting: give Section/Key=Value");
    }
  }
  return arguments;
}

void PrintChecks(const std::vector<Check>& checks, bool missed_only) {
  for (const Check& check : checks) {
    if (missed_only && check.Met()) continue;
    std::printf("%-16s %-70s %9.5f  %g to %g %s\n", check.scenario.c_str(), check.what.c_str(),
                check.value, check.least, check.most, check.Met() ? "met" : "missed");
  }
}

int Main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "syntax: accuracy CSV [Section/Key=Value ...] [SCENARIO ...]\n");
    return 2;
  }
  const Arguments arguments = Read(argc, argv);
  std::ofstream csv(arguments.csv);
  csv << "scenario,soundings,level,method,nodes,rmse_m,median_m,p95_m,p999_m,covered,wrong,"
         "wrong_marked,without,blind,rmse_everywhere_m,wrong_everywhere,hypotheses\n";
  std::printf("%-16s %9s %-4s %-6s %8s %7s %7s %7s %8s %6s %9s %6s %7s %6s %6s\n", "scenario",
              "soundings", "lvl", "method", "nodes", "rmse", "median", "95%", "99.9%", "cover",
              "wrong", "marked", "without", "blind", "hypos");
  std::vector<Check> checks;
  std::vector<Check> targets;
  for (const Scenario& scenario : Scenarios()) {
    const auto& wanted = arguments.scenarios;
    if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), scenario.name) == wanted.end()) {
      continue;
    }
    const TestDirectory folder;
    const SurveyRun run = RunScenario(scenario, folder.Path(), arguments.params);
    struct Level {
      const char* name;
      decltype(&JudgeLow) judge;
    };
    for (const auto& [level, judge] : {Level{"low", JudgeLow}, Level{"full", JudgeFull}}) {
      const auto table = judge(scenario, run);
      for (const MethodErrors& row : table) PrintRow(scenario, run, level, row, csv);
      const auto found = TargetsOf(scenario, level, table);
      targets.insert(targets.end(), found.begin(), found.end());
    }
    std::fflush(stdout);
    const auto found = ChecksOf(scenario, run);
    checks.insert(checks.end(), found.begin(), found.end());
  }
  csv.close();
  if (!csv) throw std::runtime_error("cannot write \"" + arguments.csv + "\"");
  std::printf("\nSingle figures\n");
  PrintChecks(checks, false);
  const auto met =
      std::count_if(targets.begin(), targets.end(), [](const Check& check) { return check.Met(); });
  std::printf("\nOf %zu targets of errors %td are met; missed are\n", targets.size(), met);
  PrintChecks(targets, true);
  return 0;
}

}  // namespace
}  // namespace quarro::accuracy

int main(int argc, char** argv) {
  try {
    return quarro::accuracy::Main(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "accuracy: %s\n", error.what());
    return 1;
  }
}
