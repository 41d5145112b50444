// What holds of every survey line that a reader takes, whatever its bytes.
#pragma once

#include "gridding/survey/line_reader.h"

namespace quarro::fuzz {

// Reads the line to its end and places its beams; checks that every beam is accounted for and that
// no sounding offered to a grid is one that cannot be. Throws LineError as the reader does.
void ReadAndPlace(survey::LineReader& reader);

}  // namespace quarro::fuzz
