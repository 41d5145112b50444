// Bounding boxes as the operator types them.
#pragma once

#include "cli/command_state.h"
#include "cli/command_table.h"
#include "support/sg_bounding_box.h"

namespace quarro {

enum class BoxForm {
  kRectangle,  // west, south, east, north
  kCircle,     // east, north, radius: the square of half-side radius around the point
};

// Reads the four or three words of a box, which must be there, and leaves `word` behind them.
// Throws CommandProcessor::bad_command after having logged why.
SGBoundingBox ParseBoundingBox(CommandState& state, WordIterator& word, BoxForm form);

}  // namespace quarro
