// The survey with which tests of the simulator begin.
#pragma once

#include "simulate/survey_options.h"

namespace quarro::simulate {

// Three lines of 126 pings.
inline SurveyOptions SmallSurvey() {
  SurveyOptions options;
  options.lines = 3;
  options.line_length_m = 100.0;
  options.beams = 64;
  return options;
}

}  // namespace quarro::simulate
