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

// Makes the directory of so many lines where it is missing. Throws SimulationError, also for a line
// that exists already unless `overwrite`.
void PrepareDirectory(const std::string& directory, std::uint32_t lines, bool overwrite);

// Writes line_001.gsf and so on into a directory made ready, on as many threads as told (0: one a
// core); the bytes are the same for any number of them. A line bears its name once it is whole. The
// first failure ends the work: throws SimulationError or survey::LineError, and no line but those
// that were whole by then stays.
SurveySummary WriteLines(const SurveyOptions& options, const SurveyPlan& plan,
                         const Seafloor& seafloor, const std::string& directory, unsigned threads);

// All of it.
SurveySummary WriteSurvey(const SurveyOptions& options, const std::string& directory,
                          unsigned threads, bool overwrite);

// "line_001.gsf" for line 0.
std::string LineFileName(std::uint32_t line);

}  // namespace quarro::simulate
