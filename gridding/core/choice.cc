#include "gridding/core/choice.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "gridding/core/local_trend.h"
#include "gridding/core/median.h"

namespace quarro::core {

namespace {

// The hypothesis with most support, wherever it stands in the list.
const Hypothesis& BestSupported(std::span<const Hypothesis> hypotheses) {
  const Hypothesis* best = hypotheses.data();
  for (const Hypothesis& other : hypotheses) {
    if (other.sample_count > best->sample_count ||
        (other.sample_count == best->sample_count && other.depth_m < best->depth_m)) {
      best = &other;
    }
  }
  return *best;
}

bool IsAmbiguous(std::span<const Hypothesis> hypotheses, double ambiguous_share) {
  const Hypothesis& best = BestSupported(hypotheses);
  return std::any_of(hypotheses.begin(), hypotheses.end(), [&](const Hypothesis& other) {
    return &other != &best && other.sample_count >= ambiguous_share * best.sample_count;
  });
}

struct Witness {
  double east_m;  // of the node that asks
  double north_m;
  double depth_m;
  double sigma_m;
};

// The unambiguous nodes around one place of the centre cell.
class Witnesses {
 public:
  Witnesses(const RefinedNeighbourhood& cells, const GridSettings& settings)
      : cells_(cells), settings_(settings) {}

  // `east_m` and `north_m` are of the cell's node.
  const std::vector<Witness>& Around(double east_m, double north_m, double reach_m) {
    found_.clear();
    for (std::size_t i = 0; i < cells_.size(); ++i) {
      if (cells_[i] != nullptr) {
        Ask(*cells_[i], east_m - Shift(i % 3), north_m - Shift(i / 3), reach_m);
      }
    }
    return found_;
  }

 private:
  double Shift(std::size_t step) const {
    return (static_cast<double>(step) - 1.0) * settings_.resolution_m;
  }

  void Ask(const Refinement& cell, double east_m, double north_m, double reach_m) {
    const double spacing_m = settings_.resolution_m / cell.nodes_per_side;
    const double edge_m = 0.5 * settings_.resolution_m - 0.5 * spacing_m;
    const auto first = [&](double offset_m) {
      return std::max(0L, std::lround(std::ceil((offset_m - reach_m + edge_m) / spacing_m)));
    };
    const auto last = [&](double offset_m) {
      return std::min(static_cast<long>(cell.nodes_per_side) - 1,
                      std::lround(std::floor((offset_m + reach_m + edge_m) / spacing_m)));
    };
    for (long row = first(north_m); row <= last(north_m); ++row) {
      for (long column = first(east_m); column <= last(east_m); ++column) {
        const auto node = cell.Node(static_cast<std::size_t>(row) * cell.nodes_per_side +
                                    static_cast<std::size_t>(column));
        const double away_east_m = static_cast<double>(column) * spacing_m - edge_m - east_m;
        const double away_north_m = static_cast<double>(row) * spacing_m - edge_m - north_m;
        if (away_east_m * away_east_m + away_north_m * away_north_m > reach_m * reach_m) continue;
        if (node.empty() || IsAmbiguous(node, settings_.estimator.ambiguous_share)) continue;
        const Hypothesis& best = BestSupported(node);
        found_.push_back({away_east_m, away_north_m, best.depth_m, std::sqrt(best.variance_m2)});
      }
    }
  }

  const RefinedNeighbourhood& cells_;
  const GridSettings& settings_;
  std::vector<Witness> found_;
};

// What the witnesses lead one to expect at the node, and how far they differ from it themselves.
struct Expectation {
  double depth_m;
  double scatter_m;
  double agreement_sigmas;
  bool Holds(const Hypothesis& hypothesis) const {
    const double sigma_m = std::sqrt(hypothesis.variance_m2 + scatter_m * scatter_m);
    return std::abs(hypothesis.depth_m - depth_m) <= agreement_sigmas * sigma_m;
  }
};

Expectation Expected(const std::vector<Witness>& witnesses, double reach_m,
                     const EstimatorSettings& settings) {
  std::vector<NodeSounding> around;
  around.reserve(witnesses.size());
  for (const Witness& witness : witnesses) {
    around.push_back({.east_m = static_cast<float>(witness.east_m),
                      .north_m = static_cast<float>(witness.north_m),
                      .depth_m = static_cast<float>(witness.depth_m),
                      .sigma_v_m = static_cast<float>(witness.sigma_m)});
  }
  const LocalTrend trend = TrendAround(around, reach_m, settings.unknown_slope);
  std::vector<double> depths_m;
  depths_m.reserve(witnesses.size());
  for (const Witness& witness : witnesses) {
    depths_m.push_back(witness.depth_m - trend.east * witness.east_m -
                       trend.north * witness.north_m);
  }
  const auto [depth_m, scatter_m] = CentreAndScatterOf(depths_m);
  return {
      .depth_m = depth_m, .scatter_m = scatter_m, .agreement_sigmas = settings.agreement_sigmas};
}

// Unless the hypothesis with most support agrees with the expectation, the nearest of the competing
// ones that does comes first.
void MoveAgreeingToFront(std::span<Hypothesis> hypotheses, const Expectation& expected,
                         double ambiguous_share) {
  if (expected.Holds(hypotheses.front())) return;
  const auto least = ambiguous_share * hypotheses.front().sample_count;
  std::size_t nearest = 0;
  for (std::size_t i = 1; i < hypotheses.size() && hypotheses[i].sample_count >= least; ++i) {
    if (expected.Holds(hypotheses[i]) &&
        std::abs(hypotheses[i].depth_m - expected.depth_m) <
            std::abs(hypotheses[nearest].depth_m - expected.depth_m)) {
      nearest = i;
    }
  }
  std::rotate(hypotheses.begin(), hypotheses.begin() + static_cast<std::ptrdiff_t>(nearest),
              hypotheses.begin() + static_cast<std::ptrdiff_t>(nearest) + 1);
}

}  // namespace

void ChooseHypotheses(const RefinedNeighbourhood& cells, const GridSettings& settings,
                      Refinement& centre) {
  const EstimatorSettings& estimator = settings.estimator;
  const double spacing_m = settings.resolution_m / centre.nodes_per_side;
  const double edge_m = 0.5 * settings.resolution_m - 0.5 * spacing_m;
  const double reach_m = estimator.neighbour_reach * spacing_m;
  Witnesses witnesses(cells, settings);
  // Answers are gathered before any list is touched, so that no choice hangs on another.
  std::vector<std::pair<std::size_t, Expectation>> expected;
  const std::size_t nodes = centre.first.size() - 1;
  for (std::size_t node = 0; node < nodes; ++node) {
    if (centre.Node(node).size() < 2) continue;
    if (!estimator.ask_neighbours || !IsAmbiguous(centre.Node(node), estimator.ambiguous_share)) {
      continue;
    }
    const std::size_t row = node / centre.nodes_per_side;
    const std::size_t column = node % centre.nodes_per_side;
    const double east_m = static_cast<double>(column) * spacing_m - edge_m;
    const double north_m = static_cast<double>(row) * spacing_m - edge_m;
    const auto& around = witnesses.Around(east_m, north_m, reach_m);
    if (around.size() >= static_cast<std::size_t>(estimator.fewest_neighbours)) {
      expected.emplace_back(node, Expected(around, reach_m, estimator));
    }
  }
  for (std::size_t node = 0; node < nodes; ++node) OrderBySupport(centre.MutableNode(node));
  for (const auto& [node, expectation] : expected) {
    MoveAgreeingToFront(centre.MutableNode(node), expectation, estimator.ambiguous_share);
  }
}

}  // namespace quarro::core
