// One scenario from simulated files to depths at two resolutions, and the soundings behind them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <vector>

#include "bench/accuracy/scenarios.h"
#include "engine/results.h"
#include "gridding/core/lattice.h"
#include "gridding/core/packed_sounding.h"
#include "gridding/core/settings.h"
#include "simulate/seafloor.h"
#include "simulate/survey_plan.h"
#include "support/mparams.h"

namespace quarro::accuracy {

struct SurveyRun {
  core::GridSettings settings;  // with which it was gridded
  std::unique_ptr<ResultDepth> low;
  std::unique_ptr<ResultDepth> full;
  std::unique_ptr<ResultHypos> hypotheses;  // of the refined nodes
  // All soundings as cells keep them, in the order of lines and files.
  std::map<core::CellIndex, std::vector<core::PackedSounding>> soundings;
  // The survey line of each of them, from 0.
  std::map<core::CellIndex, std::vector<std::uint32_t>> lines;
  std::uint64_t sounding_count = 0;
  std::unique_ptr<simulate::SurveyPlan> plan;
  std::unique_ptr<simulate::Seafloor> seafloor;
};

// Simulates the survey into `folder`, grids it with the in-process engine there and reads the
// soundings once more. `params` are the engine's, but for its working directory.
SurveyRun RunScenario(const Scenario& scenario, const std::filesystem::path& folder,
                      MParams params);

}  // namespace quarro::accuracy
