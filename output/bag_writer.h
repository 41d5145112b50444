// A depth result as a variable-resolution BAG file.
#pragma once

#include <string>

#include "engine/results.h"

namespace quarro {

class CommandState;

// Writes the two-level grid, whose outermost low-resolution nodes lie at the bounds (metres), to
// `path`, replacing what is there. Metadata come from the state's template, grid name and
// projection through a temporary document beside the file, deleted before the return.
//
// On failure, be it of the last write, the reason is logged at level 4 and
// CommandState::bag_output_failed is thrown; a file begun is left under its name with ".incomplete"
// appended. Any thread. Memory holds one row of low-resolution cells, one refinement, and what the
// BAG library holds.
void WriteVariableResolutionBag(CommandState& state, const ResultGrid<DepthCell>& grid,
                                double north, double south, double west, double east,
                                const std::string& path);

}  // namespace quarro
