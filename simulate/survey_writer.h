// Writes a simulated survey as files.
#pragma once

#include <cstdint>
#include <string>

#include "simulate/line_simulator.h"
#include "simulate/survey_options.h"

namespace quarro::simulate {

struct SurveySummary {
  std::uint32_t lines = 0;
  std::uint64_t pings = 0;
  BeamCounts counts;
  int zone = 0;
};

// Writes line_001.gsf and so on into `directory`, which it makes where it is missing, on as many
// threads as told (0: one a core); the bytes are the same for any number of them. Throws
// SimulationError or survey::LineError, also for a file that exists already unless `overwrite`.
SurveySummary WriteSurvey(const SurveyOptions& options, const std::string& directory,
                          unsigned threads, bool overwrite);

// "line_001.gsf" for line 0.
std::string LineFileName(std::uint32_t line);

}  // namespace quarro::simulate
