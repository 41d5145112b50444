// Prints how near the depths of each scenario come to the truth, as a table or as CSV.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <string>
#include <vector>

#include "bench/accuracy/checks.h"
#include "bench/accuracy/judgement.h"
#include "bench/accuracy/scenarios.h"
#include "bench/accuracy/survey_run.h"
#include "support/test_directory.h"

namespace quarro::accuracy {
namespace {

void PrintRow(const Scenario& scenario, const SurveyRun& run, const char* level,
              const MethodErrors& row, std::ofstream& csv) {
  const Errors& e = row.errors;
  std::printf("%-16s %9llu %-4s %-6s %8llu %7.4f %7.4f %7.4f %8.4f %6.3f %9.6f %6.3f %7llu %6.3f\n",
              scenario.name.c_str(), static_cast<unsigned long long>(run.sounding_count), level,
              row.method.c_str(), static_cast<unsigned long long>(e.nodes), e.rmse_m, e.median_m,
              e.p95_m, e.p999_m, e.covered, e.wrong, e.wrong_marked,
              static_cast<unsigned long long>(e.without), e.hypotheses);
  csv << scenario.name << ',' << run.sounding_count << ',' << level << ',' << row.method << ','
      << e.nodes << ',' << e.rmse_m << ',' << e.median_m << ',' << e.p95_m << ',' << e.p999_m << ','
      << e.covered << ',' << e.wrong << ',' << e.wrong_marked << ',' << e.without << ','
      << e.hypotheses << '\n';
}

// Arguments: the CSV file, then settings Section/Key=Value, then names of scenarios (none: all).
int Main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "syntax: accuracy CSV [Section/Key=Value ...] [SCENARIO ...]\n");
    return 2;
  }
  std::ofstream csv(argv[1]);
  csv << "scenario,soundings,level,method,nodes,rmse_m,median_m,p95_m,p999_m,covered,wrong,"
         "wrong_marked,without,hypotheses\n";
  MParams params;
  std::vector<std::string> names;
  for (int i = 2; i < argc; ++i) {
    const std::string word = argv[i];
    const auto slash = word.find('/');
    const auto equals = word.find('=');
    if (equals == std::string::npos) {
      names.push_back(word);
    } else {
      params.Set(word.substr(0, slash), word.substr(slash + 1, equals - slash - 1),
                 word.substr(equals + 1));
    }
  }
  std::printf("%-16s %9s %-4s %-6s %8s %7s %7s %7s %8s %6s %9s %6s %7s %6s\n", "scenario",
              "soundings", "lvl", "method", "nodes", "rmse", "median", "95%", "99.9%", "cover",
              "wrong", "marked", "without", "hypos");
  std::vector<Check> checks;
  for (const Scenario& scenario : Scenarios()) {
    if (!names.empty() && std::find(names.begin(), names.end(), scenario.name) == names.end()) {
      continue;
    }
    const TestDirectory folder;
    const SurveyRun run = RunScenario(scenario, folder.Path(), params);
    for (const auto& row : JudgeLow(scenario, run)) PrintRow(scenario, run, "low", row, csv);
    for (const auto& row : JudgeFull(scenario, run)) PrintRow(scenario, run, "full", row, csv);
    std::fflush(stdout);
    const auto found = ChecksOf(scenario, run);
    checks.insert(checks.end(), found.begin(), found.end());
  }
  std::printf("\n%-16s %-58s %9s  %s\n", "scenario", "check", "value", "wanted");
  for (const Check& check : checks) {
    std::printf("%-16s %-58s %9.4f  %s\n", check.scenario.c_str(), check.what.c_str(), check.value,
                check.wanted.c_str());
  }
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
