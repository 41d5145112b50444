// The surveys by which the estimator is judged.
#pragma once

#include <string>
#include <vector>

#include "simulate/survey_options.h"

namespace quarro::accuracy {

struct Scenario {
  std::string name;
  std::string what;  // in a few words, for the table's legend
  simulate::SurveyOptions survey;
  float resolution_m = 0.0F;
  float min_resolution_m = 0.0F;
  bool by_count = false;  // the hypothesis with most soundings, whatever the neighbours say
};

const std::vector<Scenario>& Scenarios();

}  // namespace quarro::accuracy
