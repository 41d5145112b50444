// The true depths of a simulated survey, as text.
#pragma once

#include <cstdint>
#include <string>

#include "simulate/survey_options.h"

namespace quarro::simulate {

// Writes a line "easting northing depth" (metres of the survey's UTM zone, three decimals, depth
// positive down) for each node of a lattice through the projection's origin, that of a grid of this
// spacing, within the rectangle about the survey's lines. Returns the number of lines written.
// Throws SimulationError.
std::uint64_t WriteTruthOfLattice(const SurveyOptions& options, double spacing_m,
                                  const std::string& path);

// The same at the positions that begin the lines of the text file `positions` (what follows the
// first two numbers is passed over; blank lines and lines that begin with '#' are skipped).
std::uint64_t WriteTruthAt(const SurveyOptions& options, const std::string& positions,
                           const std::string& path);

}  // namespace quarro::simulate
