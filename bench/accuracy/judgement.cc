#include "bench/accuracy/judgement.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>
#include <stdexcept>

#include "gridding/core/median.h"
#include "gridding/core/settings.h"

namespace quarro::accuracy {

namespace {

constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double kGoodSigmas = 5.0;

struct Estimate {
  double depth_m = kNotANumber;
  double sigma_m = kNotANumber;
  std::uint32_t hypotheses = 0;
  float strength = 0.0F;
};

class Tally {
 public:
  void Add(const Estimate& estimate, double truth_m) {
    if (std::isnan(estimate.depth_m)) {
      ++errors_.without;
      return;
    }
    const double error_m = std::abs(estimate.depth_m - truth_m);
    absolute_m_.push_back(error_m);
    square_sum_ += error_m * error_m;
    hypotheses_ += estimate.hypotheses;
    if (error_m <= 1.96 * estimate.sigma_m) ++covered_;
    if (error_m > 3.0 * estimate.sigma_m && error_m > 0.01 * truth_m) {
      ++wrong_;
      if (estimate.strength > 0.0F && estimate.hypotheses > 1) ++wrong_marked_;
    }
  }

  Errors Sum(bool has_sigma) {
    if (absolute_m_.empty()) return errors_;
    const auto count = static_cast<double>(absolute_m_.size());
    errors_.nodes = absolute_m_.size();
    errors_.rmse_m = std::sqrt(square_sum_ / count);
    errors_.median_m = Quantile(0.5);
    errors_.p95_m = Quantile(0.95);
    errors_.p999_m = Quantile(0.999);
    errors_.covered = has_sigma ? static_cast<double>(covered_) / count : kNotANumber;
    errors_.wrong = has_sigma ? static_cast<double>(wrong_) / count : kNotANumber;
    errors_.wrong_marked = wrong_ == 0 || !has_sigma
                               ? kNotANumber
                               : static_cast<double>(wrong_marked_) / static_cast<double>(wrong_);
    errors_.hypotheses = hypotheses_ == 0 ? kNotANumber : static_cast<double>(hypotheses_) / count;
    return errors_;
  }

 private:
  double Quantile(double part) {
    const auto place = static_cast<std::size_t>(part * static_cast<double>(absolute_m_.size() - 1));
    const auto at = absolute_m_.begin() + static_cast<std::ptrdiff_t>(place);
    std::nth_element(absolute_m_.begin(), at, absolute_m_.end());
    return *at;
  }

  Errors errors_;
  std::vector<double> absolute_m_;
  double square_sum_ = 0.0;
  std::uint64_t covered_ = 0;
  std::uint64_t wrong_ = 0;
  std::uint64_t wrong_marked_ = 0;
  std::uint64_t hypotheses_ = 0;
};

// A sounding with the distance to the node that asks.
struct Near {
  double east_m;
  double north_m;
  double depth_m;
  double sigma_v_m;
  bool good;
};

// The soundings of a cell and its neighbours, by ascending easting, each judged once against the
// truth.
class Surroundings {
 public:
  Surroundings(const SurveyRun& run, const core::Lattice& lattice) : run_(run), lattice_(lattice) {}

  const std::vector<Near>& Of(core::CellIndex cell) {
    if (filled_ && cell == cell_) return soundings_;
    filled_ = true;
    cell_ = cell;
    soundings_.clear();
    for (std::int32_t row = -1; row <= 1; ++row) {
      for (std::int32_t column = -1; column <= 1; ++column) {
        Append({cell.row + row, cell.column + column});
      }
    }
    std::sort(soundings_.begin(), soundings_.end(),
              [](const Near& a, const Near& b) { return a.east_m < b.east_m; });
    return soundings_;
  }

 private:
  void Append(core::CellIndex cell) {
    const auto found = run_.soundings.find(cell);
    if (found == run_.soundings.end()) return;
    const core::Position node = lattice_.NodeOf(cell);
    for (const core::PackedSounding& sounding : found->second) {
      const double east_m = node.easting_m + sounding.east_m;
      const double north_m = node.northing_m + sounding.north_m;
      const double truth_m = run_.seafloor->DepthAt({east_m, north_m});
      const double off_m = std::abs(sounding.depth_m - truth_m);
      soundings_.push_back({east_m, north_m, sounding.depth_m, sounding.sigma_v_m(),
                            off_m <= kGoodSigmas * Sigma(sounding, east_m, north_m, truth_m)});
    }
  }

  // With the part that the slope makes of the horizontal error.
  double Sigma(const core::PackedSounding& sounding, double east_m, double north_m,
               double truth_m) const {
    const double step_m = std::max<double>(0.1, sounding.sigma_h_m());
    const double rise_m =
        std::max({std::abs(run_.seafloor->DepthAt({east_m + step_m, north_m}) - truth_m),
                  std::abs(run_.seafloor->DepthAt({east_m - step_m, north_m}) - truth_m),
                  std::abs(run_.seafloor->DepthAt({east_m, north_m + step_m}) - truth_m),
                  std::abs(run_.seafloor->DepthAt({east_m, north_m - step_m}) - truth_m)});
    return std::hypot(sounding.sigma_v_m(), rise_m);
  }

  const SurveyRun& run_;
  const core::Lattice& lattice_;
  bool filled_ = false;
  core::CellIndex cell_;
  std::vector<Near> soundings_;
};

// Where soundings may come from: a low-resolution node takes those of its own cell alone.
struct Square {
  double east_m;
  double north_m;
  double half_m;
  bool Holds(const Near& sounding) const {
    return std::abs(sounding.east_m - east_m) <= half_m &&
           std::abs(sounding.north_m - north_m) <= half_m;
  }
};
constexpr double kAnywhere_m = 1e9;

// Those no farther than `reach_m` east or west, of soundings that ascend by easting.
std::span<const Near> Strip(const std::vector<Near>& soundings, double east_m, double reach_m) {
  const auto west_of = [](const Near& sounding, double at_m) { return sounding.east_m < at_m; };
  const auto first =
      std::lower_bound(soundings.begin(), soundings.end(), east_m - reach_m, west_of);
  const auto last = std::lower_bound(first, soundings.end(), east_m + reach_m + 1e-6, west_of);
  return {first, last};
}

Estimate Oracle(const std::vector<Near>& soundings, double east_m, double north_m, double reach_m,
                const Square& within) {
  double weights = 0.0;
  double depths = 0.0;
  for (const Near& sounding : Strip(soundings, east_m, reach_m)) {
    if (!sounding.good) continue;
    if (std::hypot(sounding.east_m - east_m, sounding.north_m - north_m) > reach_m) continue;
    if (!within.Holds(sounding)) continue;
    const double weight = 1.0 / (sounding.sigma_v_m * sounding.sigma_v_m);
    weights += weight;
    depths += weight * sounding.depth_m;
  }
  if (weights == 0.0) return {};
  return {.depth_m = depths / weights, .sigma_m = 1.0 / std::sqrt(weights), .hypotheses = 1};
}

std::vector<double> DepthsInSquare(const std::vector<Near>& soundings, double east_m,
                                   double north_m, double side_m) {
  std::vector<double> depths;
  for (const Near& sounding : Strip(soundings, east_m, 0.5 * side_m)) {
    if (std::abs(sounding.east_m - east_m) <= 0.5 * side_m &&
        std::abs(sounding.north_m - north_m) <= 0.5 * side_m) {
      depths.push_back(sounding.depth_m);
    }
  }
  return depths;
}

class Table {
 public:
  // Judges one node. Nodes outside coverage without a value count for nothing.
  void Add(const NodalDepth& estimate, double truth_m, const std::vector<Near>& soundings,
           double east_m, double north_m, double side_m, double reach_m, double within_half_m) {
    std::vector<double> square = DepthsInSquare(soundings, east_m, north_m, side_m);
    Estimate own;
    if (estimate.depth_m != kNoDepth) {
      own = {estimate.depth_m, std::sqrt(estimate.variance_m2), estimate.hypothesis_count,
             estimate.hypothesis_strength};
    }
    if (square.empty() && std::isnan(own.depth_m)) return;
    const Estimate oracle =
        Oracle(soundings, east_m, north_m, reach_m, {east_m, north_m, within_half_m});
    // Compared where all have a value; a node that only Quarro lacks is counted against it.
    if (square.empty()) return;
    everywhere_.Add(own, truth_m);
    if (std::isnan(oracle.depth_m)) {
      ++blind_;
      return;
    }
    quarro_.Add(own, truth_m);
    oracle_.Add(oracle, truth_m);
    double sum = 0.0;
    for (const double depth_m : square) sum += depth_m;
    mean_.Add({.depth_m = sum / static_cast<double>(square.size())}, truth_m);
    median_.Add({.depth_m = core::MedianOf(square)}, truth_m);
  }

  std::vector<MethodErrors> Sum() {
    std::vector<MethodErrors> rows = {{"quarro", quarro_.Sum(true)},
                                      {"oracle", oracle_.Sum(true)},
                                      {"median", median_.Sum(false)},
                                      {"mean", mean_.Sum(false)}};
    for (MethodErrors& row : rows) {
      row.errors.blind = blind_;
      row.errors.rmse_everywhere_m = row.errors.wrong_everywhere = kNotANumber;
    }
    const Errors everywhere = everywhere_.Sum(true);
    rows.front().errors.rmse_everywhere_m = everywhere.rmse_m;
    rows.front().errors.wrong_everywhere = everywhere.wrong;
    return rows;
  }

 private:
  Tally quarro_;
  Tally oracle_;
  Tally median_;
  Tally mean_;
  Tally everywhere_;
  std::uint64_t blind_ = 0;
};

double NthNearest(const std::vector<Near>& soundings, const core::Position& node, double half_m,
                  std::size_t n) {
  std::vector<double> distances;
  for (const Near& sounding : soundings) {
    const double east_m = sounding.east_m - node.easting_m;
    const double north_m = sounding.north_m - node.northing_m;
    if (std::abs(east_m) <= half_m && std::abs(north_m) <= half_m) {
      distances.push_back(std::hypot(east_m, north_m));
    }
  }
  if (distances.empty()) return 0.0;
  const std::size_t place = std::min(n, distances.size()) - 1;
  std::nth_element(distances.begin(), distances.begin() + static_cast<std::ptrdiff_t>(place),
                   distances.end());
  return distances[place];
}

core::CellIndex CellAt(const ResultDepth& result, const core::Lattice& lattice, std::uint32_t row,
                       std::uint32_t column) {
  const core::CellIndex first = lattice.CellOf(result.bounds.west(), result.bounds.south());
  return {first.row + static_cast<std::int32_t>(row),
          first.column + static_cast<std::int32_t>(column)};
}

}  // namespace

const Errors& ErrorsOf(const std::vector<MethodErrors>& table, const std::string& method) {
  for (const MethodErrors& row : table) {
    if (row.method == method) return row.errors;
  }
  throw std::logic_error("the table has no method " + method);
}

std::vector<MethodErrors> JudgeFull(const Scenario& scenario, const SurveyRun& run) {
  const core::Lattice lattice(scenario.resolution_m);
  Surroundings surroundings(run, lattice);
  const double capture = run.settings.estimator.capture_radius;
  Table table;
  const auto& grid = run.full->grid;
  for (std::uint32_t row = 0; row < grid.rows; ++row) {
    for (std::uint32_t column = 0; column < grid.columns; ++column) {
      const DepthCell& cell = grid.At(row, column);
      if (cell.refinement == nullptr) continue;
      const core::CellIndex index = CellAt(*run.full, lattice, row, column);
      const core::Position centre = lattice.NodeOf(index);
      const std::vector<Near>& soundings = surroundings.Of(index);
      const std::uint32_t side = cell.refinement->nodes_a;
      const double spacing_m = lattice.spacing_m() / side;
      for (std::uint32_t node = 0; node < side * side; ++node) {
        const std::uint32_t node_row = node / side;
        const std::uint32_t node_column = node % side;
        const double east_m =
            centre.easting_m + (node_column + 0.5) * spacing_m - 0.5 * lattice.spacing_m();
        const double north_m =
            centre.northing_m + (node_row + 0.5) * spacing_m - 0.5 * lattice.spacing_m();
        table.Add(cell.refinement->nodes[node].estimate, run.seafloor->DepthAt({east_m, north_m}),
                  soundings, east_m, north_m, spacing_m, capture * spacing_m, kAnywhere_m);
      }
    }
  }
  return table.Sum();
}

std::vector<MethodErrors> JudgeLow(const Scenario& scenario, const SurveyRun& run) {
  const core::Lattice lattice(scenario.resolution_m);
  Surroundings surroundings(run, lattice);
  const core::EstimatorSettings& settings = run.settings.estimator;
  Table table;
  const auto& grid = run.low->grid;
  for (std::uint32_t row = 0; row < grid.rows; ++row) {
    for (std::uint32_t column = 0; column < grid.columns; ++column) {
      const core::CellIndex index = CellAt(*run.low, lattice, row, column);
      const core::Position node = lattice.NodeOf(index);
      const std::vector<Near>& soundings = surroundings.Of(index);
      const double reach_m =
          std::max(settings.capture_radius * scenario.min_resolution_m,
                   NthNearest(soundings, node, 0.5 * lattice.spacing_m(),
                              static_cast<std::size_t>(settings.low_resolution_soundings)));
      table.Add(grid.At(row, column).estimate,
                run.seafloor->DepthAt({node.easting_m, node.northing_m}), soundings, node.easting_m,
                node.northing_m, lattice.spacing_m(), reach_m, 0.5 * lattice.spacing_m());
    }
  }
  return table.Sum();
}

}  // namespace quarro::accuracy
