// The constants of the method, each a parameter with a default.
#pragma once

#include "support/mparams.h"

namespace quarro::core {

// Section Estimator.
struct EstimatorSettings {
  // Soundings within this many node spacings of a node are captured by it: half a diagonal of the
  // lattice and a little over.
  double capture_radius = 0.75;
  // Arrivals that wait in the sorted queue; its median goes on when it is full.
  int queue_length = 11;
  // The shift, in standard deviations, of the model that a fit is monitored against.
  double shift_sigmas = 1.5;
  // A sounding farther than this from every hypothesis founds one of its own.
  double outlier_sigmas = 4.0;
  // Evidence (natural logarithm of the Bayes factor) for the shifted model, gathered over a run of
  // soundings on one side, that ends a hypothesis's claim on the soundings that follow.
  double run_evidence = 5.0;
  // Most that the seafloor's slope is thought to deviate from what the soundings around a node
  // tell. Below it, the relief of the whole cell sets the bound.
  double unknown_slope = 0.3;
  // Soundings wanted around a low-resolution node before its reach shrinks.
  int low_resolution_soundings = 20;
  // True: an ambiguous node reports the hypothesis that agrees with its unambiguous neighbours.
  // False: the one with most soundings.
  bool ask_neighbours = true;
  // A node is ambiguous when the runner-up has at least this share of the first one's soundings.
  double ambiguous_share = 0.2;
  // Neighbours are asked within this many node spacings, and heeded when there are enough of them.
  double neighbour_reach = 5.0;
  int fewest_neighbours = 8;
};

// Section Refinement.
struct RefinementSettings {
  // Least mean number of soundings a node over the part of a cell that has data.
  double soundings_per_node = 5.0;
  // Nodes are no closer than this many horizontal standard uncertainties of the cell's soundings.
  double horizontal_uncertainty_factor = 1.0;
};

struct GridSettings {
  double resolution_m = 0.0;      // side of a low-resolution cell
  double min_resolution_m = 0.0;  // nodes are never closer
  EstimatorSettings estimator;
  RefinementSettings refinement;
};

// Throws ExSGClientBase for a value out of range, naming it and what is allowed.
EstimatorSettings ReadEstimatorSettings(const MParams& params);
RefinementSettings ReadRefinementSettings(const MParams& params);

}  // namespace quarro::core
