// What a single figure tells of a survey: the least depth of a wreck, the offset of a line, the
// spacing of nodes.
#pragma once

#include <string>
#include <vector>

#include "bench/accuracy/survey_run.h"

namespace quarro::accuracy {

struct Check {
  std::string scenario;
  std::string what;
  double value = 0.0;
  double least = 0.0;  // that is wanted
  double most = 0.0;
  bool Met() const { return value >= least && value <= most; }
};

// Those that concern this scenario:
//  - with a wreck, how much its least reported depth at full resolution differs from the true one;
//  - with rocks, the share of those whose least reported depth is 0.3 m deeper than the true one;
//  - with lines that are off, of the nodes that took two soundings and more of both kinds of lines
//    the share with two hypotheses and more, and the share with one for each floor within 1.96
//    times its own sigma;
//  - of any, soundings a node over the cells refined three by three or finer that neither the
//    minimum resolution nor the horizontal uncertainty caps, cells with data and no depth, and
//    nodes with a depth where no sounding is within reach.
std::vector<Check> ChecksOf(const Scenario& scenario, const SurveyRun& run);

}  // namespace quarro::accuracy
