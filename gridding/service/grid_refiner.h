// Refinement of the cells of a grid that need it.
#pragma once

#include <cstdint>
#include <filesystem>

#include "gridding/service/job_queue.h"
#include "gridding/service/open_grid.h"
#include "gridding/service/traces.h"

namespace quarro::service {

struct RefinementSummary {
  std::uint64_t cells = 0;  // whose block was written
  std::uint64_t nodes = 0;
};

struct RefinementLimits {
  std::uint32_t threads = 1;       // that compute at the same time
  std::uint64_t memory_bytes = 0;  // for soundings in work
  std::filesystem::path spool_directory;
};

// Estimates the cells that lines changed since the last refinement and the cells next to one of
// them, or all cells when the settings of the method are others than those of the last refinement;
// then chooses hypotheses in them and in the cells around them. Commits all of it or nothing. The
// result does not depend on `limits`. The grid thread. Throws ExSGClientBase, also when cancelled.
RefinementSummary RefineGrid(OpenGrid& grid, const TraceList& traces,
                             const RefinementLimits& limits, const CancelFlag& cancelled);

}  // namespace quarro::service
