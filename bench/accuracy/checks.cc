#include "bench/accuracy/checks.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <stdexcept>
#include <utility>

#include "gridding/core/cell_state.h"
#include "gridding/core/settings.h"
#include "simulate/obstacles.h"

namespace quarro::accuracy {

namespace {

// Calls visit(sounding, line) for the soundings within `reach_m` of a place.
template <typename Visit>
void VisitNear(const SurveyRun& run, const core::Lattice& lattice, double easting_m,
               double northing_m, double reach_m, const Visit& visit) {
  const core::CellIndex own = lattice.CellOf(easting_m, northing_m);
  for (int i = 0; i < 9; ++i) {
    const core::CellIndex cell{own.row + i / 3 - 1, own.column + i % 3 - 1};
    const auto found = run.soundings.find(cell);
    if (found == run.soundings.end()) continue;
    const core::Position node = lattice.NodeOf(cell);
    const auto& lines = run.lines.at(cell);
    for (std::size_t k = 0; k < lines.size(); ++k) {
      const core::PackedSounding& sounding = found->second[k];
      const double east_m = node.easting_m + sounding.east_m - easting_m;
      const double north_m = node.northing_m + sounding.north_m - northing_m;
      if (east_m * east_m + north_m * north_m <= reach_m * reach_m) visit(sounding, lines[k]);
    }
  }
}

bool AnyNear(const NodalHypos& node, double floor_m) {
  return std::any_of(node.hypotheses, node.hypotheses + node.count, [&](const Hypothesis& one) {
    return std::abs(one.depth_m - floor_m) <= 1.96 * std::sqrt(one.variance_m2);
  });
}

// The wreck's own square, a little over.
void CheckWreck(const Scenario& scenario, const SurveyRun& run, std::vector<Check>& checks) {
  const simulate::SurveyOptions& survey = scenario.survey;
  const bool has_wreck = survey.seafloor == "rocks" && survey.wreck_height_m > 0.0;
  if (!has_wreck) return;
  const double middle_east_m = run.plan->origin().easting_m + survey.wreck_east_m;
  const double middle_north_m = run.plan->origin().northing_m + survey.wreck_north_m;
  const double half_m = 0.5 * survey.wreck_length_m + survey.wreck_width_m;
  double least_m = std::numeric_limits<double>::max();
  double true_least_m = least_m;
  for (std::uint64_t i = 0; i < run.hypotheses->count; ++i) {
    const NodalHypos& node = run.hypotheses->nodes[i];
    const double true_m = run.seafloor->DepthAt({node.easting_m, node.northing_m});
    if (std::abs(node.easting_m - middle_east_m) > half_m ||
        std::abs(node.northing_m - middle_north_m) > half_m || node.count == 0) {
      continue;
    }
    true_least_m = std::min(true_least_m, true_m);
    // Beside the wreck a node that noise makes shallow says nothing of the wreck.
    if (survey.depth_m - true_m < 0.9 * survey.wreck_height_m) continue;
    least_m = std::min<double>(least_m, node.hypotheses[0].depth_m);
  }
  checks.push_back({scenario.name, "least depth of the wreck less the true one, m",
                    least_m - true_least_m, -0.3, 0.3});
}

// Rocks about as wide as two or three nodes are what asking the neighbours may cost.
void CheckRocks(const Scenario& scenario, const SurveyRun& run, std::vector<Check>& checks) {
  const simulate::SurveyOptions& survey = scenario.survey;
  if (survey.seafloor != "rocks" || survey.rock_count == 0) return;
  constexpr double kTooDeep_m = 0.3;
  const simulate::Rocks rocks(survey, simulate::Area::OfLines(survey, run.plan->origin()));
  double shown = 0.0;
  double flattened = 0.0;
  for (const survey::GridPoint& middle : rocks.middles()) {
    double least_m = std::numeric_limits<double>::max();
    for (std::uint64_t i = 0; i < run.hypotheses->count; ++i) {
      const NodalHypos& node = run.hypotheses->nodes[i];
      if (node.count == 0 ||
          std::hypot(node.easting_m - middle.easting_m, node.northing_m - middle.northing_m) >
              0.5 * survey.rock_width_m + node.resolution_m) {
        continue;
      }
      least_m = std::min<double>(least_m, node.hypotheses[0].depth_m);
    }
    if (least_m == std::numeric_limits<double>::max()) continue;  // beyond the survey
    shown += 1.0;
    if (least_m > run.seafloor->DepthAt(middle) + kTooDeep_m) flattened += 1.0;
  }
  if (shown == 0.0) return;
  checks.push_back({scenario.name, "share of rocks whose least depth is 0.3 m too deep",
                    flattened / shown, 0.0, 0.1});
}

void CheckOffset(const Scenario& scenario, const SurveyRun& run, std::vector<Check>& checks) {
  const auto& offset_lines = scenario.survey.offset_lines;
  if (offset_lines.empty()) return;
  const core::Lattice lattice(scenario.resolution_m);
  const double capture = run.settings.estimator.capture_radius;
  double nodes = 0.0;
  double doubled = 0.0;
  double both_right = 0.0;
  for (std::uint64_t i = 0; i < run.hypotheses->count; ++i) {
    const NodalHypos& node = run.hypotheses->nodes[i];
    if (node.resolution_m <= 0.0F) continue;
    int off = 0;
    int right = 0;
    VisitNear(run, lattice, node.easting_m, node.northing_m, capture * node.resolution_m,
              [&](const core::PackedSounding&, std::uint32_t line) {
                const bool is_off = std::find(offset_lines.begin(), offset_lines.end(), line + 1) !=
                                    offset_lines.end();
                ++(is_off ? off : right);
              });
    if (off < 2 || right < 2) continue;
    const double true_m = run.seafloor->DepthAt({node.easting_m, node.northing_m});
    nodes += 1.0;
    if (node.count < 2) continue;
    doubled += 1.0;
    if (AnyNear(node, true_m) && AnyNear(node, true_m + scenario.survey.offset_m))
      both_right += 1.0;
  }
  if (doubled == 0.0) throw std::runtime_error("no node has met both kinds of lines");
  checks.push_back(
      {scenario.name, "share of shared nodes with two hypotheses", doubled / nodes, 0.9, 1.0});
  // 0.95 squared.
  checks.push_back({scenario.name, "share of these with each floor within 1.96 sigma of one",
                    both_right / doubled, 0.9, 1.0});
}

// Of the cell's 64 squares, those with a sounding: counted anew, since the engine's own mask sets
// the spacing that is checked.
double CoveredShare(const std::vector<core::PackedSounding>& soundings, double cell_m) {
  constexpr double kSquares = 8.0;
  std::set<std::pair<double, double>> filled;
  for (const core::PackedSounding& sounding : soundings) {
    const auto square = [&](double offset_m) {
      return std::clamp(std::floor((offset_m / cell_m + 0.5) * kSquares), 0.0, kSquares - 1.0);
    };
    filled.emplace(square(sounding.east_m), square(sounding.north_m));
  }
  return static_cast<double>(filled.size()) / (kSquares * kSquares);
}

void CheckSpacing(const Scenario& scenario, const SurveyRun& run, std::vector<Check>& checks) {
  const core::Lattice lattice(scenario.resolution_m);
  const core::GridSettings& settings = run.settings;
  double least = std::numeric_limits<double>::max();
  double most = 0.0;
  double without = 0.0;
  const auto& grid = run.full->grid;
  const core::CellIndex first = lattice.CellOf(run.full->bounds.west(), run.full->bounds.south());
  for (const auto& [index, soundings] : run.soundings) {
    const DepthCell& cell = grid.At(static_cast<std::uint32_t>(index.row - first.row),
                                    static_cast<std::uint32_t>(index.column - first.column));
    if (cell.estimate.depth_m == kNoDepth) without += 1.0;
    if (cell.refinement == nullptr || cell.refinement->nodes_a < 3) continue;
    core::CellState state;
    core::AddSoundings(soundings, 0, settings, state);
    const double side = cell.refinement->nodes_a;
    const double finest_m =
        std::max(settings.min_resolution_m, settings.refinement.horizontal_uncertainty_factor *
                                                state.statistics.HorizontalSigma());
    if (settings.resolution_m / (side + 1.0) < finest_m) continue;
    const double a_node = static_cast<double>(soundings.size()) /
                          (side * side * CoveredShare(soundings, settings.resolution_m));
    least = std::min(least, a_node);
    most = std::max(most, a_node);
  }
  double beyond = 0.0;
  for (std::uint64_t i = 0; i < run.hypotheses->count; ++i) {
    const NodalHypos& node = run.hypotheses->nodes[i];
    if (node.resolution_m <= 0.0F) continue;
    bool any = false;
    VisitNear(run, lattice, node.easting_m, node.northing_m,
              settings.estimator.capture_radius * node.resolution_m * (1.0 + 1e-5),
              [&](const core::PackedSounding&, std::uint32_t) { any = true; });
    if (!any && node.count > 0) beyond += 1.0;
  }
  const double wanted = settings.refinement.soundings_per_node;
  if (most > 0.0) {
    checks.push_back({scenario.name, "least soundings a node, refined 3 x 3 or finer, not capped",
                      least, wanted, 2.0 * wanted});
    checks.push_back({scenario.name, "most soundings a node there", most, wanted, 2.0 * wanted});
  }
  checks.push_back({scenario.name, "cells with data and no depth", without, 0.0, 0.0});
  checks.push_back(
      {scenario.name, "refined nodes with a depth and no sounding within reach", beyond, 0.0, 0.0});
}

}  // namespace

std::vector<Check> ChecksOf(const Scenario& scenario, const SurveyRun& run) {
  std::vector<Check> checks;
  CheckWreck(scenario, run, checks);
  CheckRocks(scenario, run, checks);
  CheckOffset(scenario, run, checks);
  CheckSpacing(scenario, run, checks);
  return checks;
}

}  // namespace quarro::accuracy
