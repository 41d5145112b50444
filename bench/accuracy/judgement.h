// Depths against the truth, beside those of simpler methods.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bench/accuracy/survey_run.h"

namespace quarro::accuracy {

// Errors of one method at all nodes of one resolution, in metres.
struct Errors {
  std::uint64_t nodes = 0;    // with a value
  std::uint64_t without = 0;  // nodes inside coverage without one
  // Nodes with no good sounding within reach. They are in none of the other figures, since there is
  // no oracle to compare with, but in those `everywhere`, which only Quarro has.
  std::uint64_t blind = 0;
  double rmse_everywhere_m = 0.0;
  double wrong_everywhere = 0.0;
  double rmse_m = 0.0;
  double median_m = 0.0;
  double p95_m = 0.0;
  double p999_m = 0.0;
  // Of methods that report a sigma; else not a number.
  double covered = 0.0;       // share of errors within 1.96 sigma
  double wrong = 0.0;         // share of nodes off by more than 3 sigma and more than 1 % of depth
  double wrong_marked = 0.0;  // of the wrong: share with strength above 0 and several hypotheses
  double hypotheses = 0.0;    // a node
};

struct MethodErrors {
  std::string method;  // "quarro", "oracle", "median", "mean"
  Errors errors;
};

// The row of a method. Throws std::logic_error where the table has none.
const Errors& ErrorsOf(const std::vector<MethodErrors>& table, const std::string& method);

// The oracle is the inverse-variance mean of the good soundings that the node captures, good being
// within 5 standard uncertainties of the truth at the sounding's own place; block median and block
// mean are of all soundings in the node's own square. A node is inside coverage when the square
// holds a sounding. All methods are judged on the same nodes.
std::vector<MethodErrors> JudgeFull(const Scenario& scenario, const SurveyRun& run);
std::vector<MethodErrors> JudgeLow(const Scenario& scenario, const SurveyRun& run);

}  // namespace quarro::accuracy
