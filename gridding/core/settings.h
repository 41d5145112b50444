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
  // Standard deviation of the seafloor's slope where the soundings around a node tell nothing of
  // it. Where the relief of the whole cell explains less, that is taken.
  double unknown_slope = 0.3;
  // In the slope between block medians fewer of its standard uncertainties are none. Blocks whose
  // centres are closer along an axis, in sides of a block, tell nothing of it.
  double trend_sigmas = 1.0;
  double least_run = 0.3;
  // Blocks of a cell with soundings from which its relief bounds the unknown slope: those of the
  // nodes, and at low resolution 8 x 8.
  int fewest_blocks = 9;
  // In the slope of a low-resolution node's plane fewer of its standard uncertainties are none.
  // How the plane is fitted: standard uncertainties from which a sounding counts for nothing, and
  // rounds.
  double slope_sigmas = 2.0;
  double biweight_sigmas = 4.685;
  int plane_rounds = 3;
  // Scatter: pairs of soundings that tell it, times of the noise from which a pair holds a spike,
  // and rounds in which it settles.
  int fewest_pairs = 10;
  double spike_sigmas = 3.5;
  int scatter_rounds = 5;
  // Soundings wanted around a low-resolution node before its reach shrinks.
  int low_resolution_soundings = 60;
  // True: where hypotheses compete, the node reports the one that agrees with its unambiguous
  // neighbours. False: the one with most soundings.
  bool ask_neighbours = true;
  // A node is ambiguous, and no witness for others, when the runner-up has at least this share of
  // the first one's soundings; with the other share it competes, so that neighbours are asked.
  double ambiguous_share = 0.1;
  double competing_share = 0.05;
  // A hypothesis of so many soundings, and of several survey lines, is not overruled.
  int kept_soundings = 4;
  // Neighbours are asked within this many node spacings, and heeded when there are enough of them.
  double neighbour_reach = 5.0;
  int fewest_neighbours = 8;
  // A hypothesis agrees with its neighbours within this many standard deviations of both.
  double agreement_sigmas = 4.0;
  // Offsets between the lines of a cell: places at which they are compared, and how many of both
  // lines tell anything.
  int offset_places = 512;
  int fewest_places = 16;
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
  visit("UnknownSlope", settings.unknown_slope, 0.01, 10.0);
  visit("SteepSigmas", settings.steep_sigmas, 0.0, 1000.0);
  visit("HuddleShare", settings.huddle_share, 0.0, 1.0);
  visit("TrendSigmas", settings.trend_sigmas, 0.0, 1000.0);
  visit("LeastRun", settings.least_run, 0.0, 1.0);
  visit("FewestBlocks", settings.fewest_blocks, 2, 1000);
  visit("SlopeSigmas", settings.slope_sigmas, 0.0, 1000.0);
  visit("BiweightSigmas", settings.biweight_sigmas, 1.0, 1000.0);
  visit("PlaneRounds", settings.plane_rounds, 1, 100);
  visit("FewestPairs", settings.fewest_pairs, 4, 1000);
  visit("SpikeSigmas", settings.spike_sigmas, 1.0, 1000.0);
  visit("ScatterRounds", settings.scatter_rounds, 1, 100);
  visit("LowResolutionSoundings", settings.low_resolution_soundings, 1, 10000);
  visit("OffsetPlaces", settings.offset_places, 1, 1000000);
  visit("FewestPlaces", settings.fewest_places, 2, 1000000);
  visit("OffsetSigmas", settings.offset_sigmas, 1.0, 1000.0);
  visit("SplitSigmas", settings.split_sigmas, 0.0, 1000.0);
  visit("AskNeighbours", settings.ask_neighbours, false, true);
  visit("AmbiguousShare", settings.ambiguous_share, 0.0, 1.0);
  visit("CompetingShare", settings.competing_share, 0.0, 1.0);
  visit("KeptSoundings", settings.kept_soundings, 1, 1000);
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
