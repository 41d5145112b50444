// What tests of the estimate at a node begin with.
#pragma once

#include <string>
#include <vector>

#include "gridding/core/node_estimator.h"

namespace quarro::core {

// A sounding of line 0, its place from the node.
inline NodeSounding At(float east_m, float north_m, float depth_m, float sigma_v_m = 0.1F,
                       float sigma_h_m = 0.0F) {
  return {east_m, north_m, depth_m, sigma_v_m, sigma_h_m, 0};
}

// Keeps what it is told.
struct Recorder : public EstimatorTrace {
  void Step(const std::string& line) override { lines.push_back(line); }
  std::vector<std::string> lines;
};

inline HypothesisList Estimate(const std::vector<NodeSounding>& soundings,
                               const NodeSurroundings& surroundings = {},
                               const EstimatorSettings& settings = {},
                               EstimatorTrace* trace = nullptr) {
  NodeEstimator estimator{settings};
  HypothesisList hypotheses;
  estimator.Estimate(soundings, surroundings, hypotheses, trace);
  return hypotheses;
}

}  // namespace quarro::core
