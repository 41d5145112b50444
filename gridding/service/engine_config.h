// What the parameter file tells the engine.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "gridding/core/settings.h"
#include "gridding/survey/georeference.h"
#include "support/mparams.h"

namespace quarro::service {

struct EngineConfig {
  std::filesystem::path working_directory = ".";
  std::uint32_t threads = 1;       // that compute at the same time
  std::uint64_t memory_bytes = 0;  // for cells and soundings in work
  bool allow_duplicate_lines = false;
  int utm_zone = 0;  // negative south; 0: taken from the first line
  core::EstimatorSettings estimator;
  core::RefinementSettings refinement;
  survey::UncertaintyModel uncertainty;

  // Gives the path under which the file of a line is opened, from its name in the request; throws
  // ExSGClientBase for a file that is not to be read. Called on the grid thread. Empty: the name.
  std::function<std::string(const std::string& file_name)> find_line;

  // Which other client of this process has the grid open, empty for none. Called on the grid
  // thread.
  std::function<std::string(const std::string& grid_name)> holder_of;

  // Results larger than this are kept in a file in the working directory.
  std::uint64_t result_heap_bytes = std::uint64_t{16} << 20U;
};

// Throws ExSGClientBase for a value out of range, naming it and what is allowed.
EngineConfig ReadEngineConfig(const MParams& params);

}  // namespace quarro::service
