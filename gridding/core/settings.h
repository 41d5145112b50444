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
  int low_resolution_soundings = 60;
  // True: an ambiguous node reports the hypothesis that agrees with its unambiguous neighbours.
  // False: the one with most soundings.
  bool ask_neighbours = true;
  // A node is ambiguous when the runner-up has at least this share of the first one's soundings.
  double ambiguous_share = 0.1;
  // Neighbours are asked within this many node spacings, and heeded when there are enough of them.
  double neighbour_reach = 5.0;
  int fewest_neighbours = 8;
  // A hypothesis agrees with its neighbours within this many standard deviations of both.
  double agreement_sigmas = 4.0;
  // An offset between two lines of a cell is real beyond this many of its standard uncertainties.
  double offset_sigmas = 6.0;
  // A real offset matters at a node beyond this many standard uncertainties of the difference
  // between what the lines say of the node.
  double split_sigmas = 0.5;
  // A trend that rises by fewer standard uncertainties within a node's reach is never doubted.
  double steep_sigmas = 3.0;
  // A steep trend is given up where soundings lie closer together without it, by this share.
  double huddle_share = 0.5;
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

// Calls visit(key, value, least, most) for each setting of a section, in the order of the manual.
// The value is a reference to a bool (which has no limits), int or double.
template <typename Settings, typename Visitor>
void VisitEstimatorSettings(Settings& settings, const Visitor& visit) {
  visit("CaptureRadius", settings.capture_radius, 0.5, 0.99);
  visit("QueueLength", settings.queue_length, 1, 101);
  visit("ShiftSigmas", settings.shift_sigmas, 0.1, 10.0);
  visit("OutlierSigmas", settings.outlier_sigmas, 1.0, 100.0);
  visit("RunEvidence", settings.run_evidence, 0.1, 1000.0);
  visit("UnknownSlope", settings.unknown_slope, 0.0, 10.0);
  visit("SteepSigmas", settings.steep_sigmas, 0.0, 1000.0);
  visit("HuddleShare", settings.huddle_share, 0.0, 1.0);
  visit("LowResolutionSoundings", settings.low_resolution_soundings, 1, 10000);
  visit("OffsetSigmas", settings.offset_sigmas, 1.0, 1000.0);
  visit("SplitSigmas", settings.split_sigmas, 0.0, 1000.0);
  visit("AskNeighbours", settings.ask_neighbours, false, true);
  visit("AmbiguousShare", settings.ambiguous_share, 0.0, 1.0);
  visit("NeighbourReach", settings.neighbour_reach, 1.0, 100.0);
  visit("FewestNeighbours", settings.fewest_neighbours, 1, 1000);
  visit("AgreementSigmas", settings.agreement_sigmas, 0.1, 1000.0);
}
template <typename Settings, typename Visitor>
void VisitRefinementSettings(Settings& settings, const Visitor& visit) {
  visit("SoundingsPerNode", settings.soundings_per_node, 1.0, 10000.0);
  visit("HorizontalUncertaintyFactor", settings.horizontal_uncertainty_factor, 0.0, 100.0);
}

// Throws ExSGClientBase for a value out of range, naming it and what is allowed.
EstimatorSettings ReadEstimatorSettings(const MParams& params);
RefinementSettings ReadRefinementSettings(const MParams& params);

}  // namespace quarro::core
