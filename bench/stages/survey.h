// The data of the stages: a simulated survey, and what each stage makes of it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "engine/results.h"
#include "gridding/core/binning.h"
#include "gridding/core/refinement.h"
#include "gridding/core/settings.h"
#include "gridding/survey/georeference.h"
#include "gridding/survey/soundings.h"
#include "support/test_directory.h"

namespace quarro::bench {

inline constexpr float kCell_m = 32.0F;
inline constexpr float kFinestNode_m = 0.5F;

// A harbour survey of 0.8 million soundings. Made at the first call; its files go with the program.
struct Survey {
  Survey();

  TestDirectory folder;
  std::vector<std::string> files;
  std::uint64_t file_bytes = 0;
  std::uint64_t beams = 0;
  int utm_zone = 0;
  survey::UncertaintyModel model;
  core::GridSettings settings;
  std::vector<survey::PingChunk> chunks;
  std::vector<survey::Soundings> placed;   // chunk by chunk
  std::vector<core::BinnedChunk> binned;   // chunk by chunk
  std::vector<std::uint32_t> chunk_lines;  // of each chunk, from 1
  std::map<core::CellIndex, core::CellSoundings> cells;
  std::uint64_t soundings = 0;  // in cells
};
const Survey& TheSurvey();

// A cell to refine, with its neighbours.
struct RefinableCell {
  core::Neighbourhood cells{};
  std::uint32_t nodes_per_side = 0;
};
const std::vector<RefinableCell>& RefinableCells();

// Full-resolution depths of the survey as the engine delivers them, side by side several times over
// so that a writer has something to do. All copies share the refinements of the first.
struct DepthMosaic {
  std::shared_ptr<const ResultDepth> depths;
  std::uint64_t nodes = 0;
  std::uint64_t cells = 0;
};
const DepthMosaic& TheDepths();

}  // namespace quarro::bench
