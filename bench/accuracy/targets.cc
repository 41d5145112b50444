#include "bench/accuracy/targets.h"

namespace quarro::accuracy {

namespace {

constexpr double kNearTheOracle = 1.1;
constexpr double kNearTheOracleAmongFish = 1.3;
constexpr double kFewSpikes = 0.05;

class Targets {
 public:
  Targets(const Scenario& scenario, const std::string& level,
          const std::vector<MethodErrors>& table)
      : scenario_(scenario),
        level_(level),
        quarro_(ErrorsOf(table, "quarro")),
        oracle_(ErrorsOf(table, "oracle")),
        median_(ErrorsOf(table, "median")) {}

  std::vector<Check> All() {
    const simulate::SurveyOptions& survey = scenario_.survey;
    const bool has_obstacles = survey.seafloor == "rocks";
    if (scenario_.by_count) {
      // Beside what stands on the floor, nodes are wrong by that and not by fish.
      if (level_ == "full" && !has_obstacles) Want("wrong nodes", quarro_.wrong, 0.0, 1.0 / 2000.0);
      return checks_;
    }
    if (survey.spikes <= kFewSpikes && survey.offset_lines.empty()) WantNearness();
    if (survey.spikes > kFewSpikes) {
      Want("wrong nodes", quarro_.wrong, 0.0, 1.0 / 200.0);
      if (quarro_.wrong > 0.0) Want("wrong nodes that are marked", quarro_.wrong_marked, 0.5, 1.0);
    }
    if (survey.bursts > 0 && level_ == "full") {
      Want("RMSE over the oracle's", quarro_.rmse_m / oracle_.rmse_m, 0.0, kNearTheOracleAmongFish);
      Want("RMSE over the oracle's, with nodes that met fish alone",
           quarro_.rmse_everywhere_m / oracle_.rmse_m, 0.0, kNearTheOracleAmongFish);
      if (!has_obstacles) {
        Want("wrong nodes", quarro_.wrong, 0.0, 1.0 / 20000.0);
        Want("wrong nodes, with those that met fish alone", quarro_.wrong_everywhere, 0.0,
             1.0 / 20000.0);
      }
    }
    if (survey.seafloor == "slope" && survey.spikes == 0.0 && level_ == "low") {
      Want("hypotheses a node", quarro_.hypotheses, 1.0, 1.1);
    }
    return checks_;
  }

 private:
  void Want(const std::string& what, double value, double least, double most) {
    checks_.push_back({scenario_.name, level_ + " resolution: " + what, value, least, most});
  }

  void WantNearness() {
    struct Measure {
      const char* what;
      double Errors::*error_m;
    };
    for (const Measure& measure :
         {Measure{"median of errors", &Errors::median_m}, Measure{"95 % of errors", &Errors::p95_m},
          Measure{"99.9 % of errors", &Errors::p999_m}}) {
      const double error_m = quarro_.*measure.error_m;
      Want(std::string(measure.what) + " over the oracle's", error_m / (oracle_.*measure.error_m),
           0.0, kNearTheOracle);
      Want(std::string(measure.what) + " over the block median's",
           error_m / (median_.*measure.error_m), 0.0, 1.0);
    }
    Want("share within 1.96 sigma", quarro_.covered, 0.93, 0.97);
  }

  const Scenario& scenario_;
  const std::string level_;
  const Errors& quarro_;
  const Errors& oracle_;
  const Errors& median_;
  std::vector<Check> checks_;
};

}  // namespace

std::vector<Check> TargetsOf(const Scenario& scenario, const std::string& level,
                             const std::vector<MethodErrors>& table) {
  return Targets(scenario, level, table).All();
}

}  // namespace quarro::accuracy
