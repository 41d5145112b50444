// Which hypothesis a refined node reports where several compete.
#pragma once

#include <array>

#include "gridding/core/refinement.h"
#include "gridding/core/settings.h"

namespace quarro::core {

// A cell's refinement and those of its neighbours, row-major from the south-west; null for a cell
// without one.
using RefinedNeighbourhood = std::array<const Refinement*, 9>;

// Chooses for each node of the centre cell anew, whatever was chosen before, and moves the chosen
// hypothesis to the front of the node's list.
//
// By support the one with most soundings is reported. By neighbours a node where another has at
// least `competing_share` of the soundings of the first asks the unambiguous nodes (no other has
// `ambiguous_share`) within `neighbour_reach` spacings of it what to expect: the median of their
// depths, each carried to the node along their common slope, with their scatter about it. The first
// hypothesis stays where it agrees with that, within `agreement_sigmas` standard uncertainties of
// both; otherwise the nearest competing one that agrees is reported, and where none does, the
// first. A school of fish outnumbers the seafloor at a few nodes only, and the nodes around it
// tell. What several survey lines have met, with `kept_soundings` and more, stays, since fish do
// not come back; so does a node's only hypothesis, a wreck or rock that every sounding of the node
// has met.
//
// `centre` is the refinement that cells[kCentre] points to, or a copy of it.
void ChooseHypotheses(const RefinedNeighbourhood& cells, const GridSettings& settings,
                      Refinement& centre);

}  // namespace quarro::core
