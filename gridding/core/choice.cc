#include "gridding/core/choice.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <utility>
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

// Whether another hypothesis than the best supported has at least that share of its support.
bool HasRival(std::span<const Hypothesis> hypotheses, double share) {
  const Hypothesis& best = BestSupported(hypotheses);
  return std::any_of(hypotheses.begin(), hypotheses.end(), [&](const Hypothesis& other) {
    return &other != &best && other.sample_count >= share * best.sample_count;
  });
}

// What several lines have met stays, whatever the neighbours say.
bool IsMetAgain(const Hypothesis& hypothesis, const EstimatorSettings& estimator) {
  return hypothesis.several_lines != 0 &&
         hypothesis.sample_count >= static_cast<std::uint32_t>(estimator.kept_soundings);
}

// What the nodes around lead one to expect at a node, and how far they differ from it themselves.
struct Expectation {
  double depth_m;
  double scatter_m;
  double agreement_sigmas;
  bool Holds(const Hypothesis& hypothesis) const {
    const double sigma_m = std::sqrt(hypothesis.variance_m2 + scatter_m * scatter_m);
    return std::abs(hypothesis.depth_m - depth_m) <= agreement_sigmas * sigma_m;
  }
};

// Asks the unambiguous nodes around a place of the centre cell: its witnesses.
class Inquiry {
 public:
  Inquiry(const RefinedNeighbourhood& cells, const GridSettings& settings, double reach_m)
      : cells_(cells), settings_(settings), reach_m_(reach_m), trend_finder_(settings.estimator) {}

  // `east_m` and `north_m` are of the cell's node. Nothing where there are too few witnesses.
  std::optional<Expectation> At(double east_m, double north_m) {
    witnesses_.clear();
    for (std::size_t i = 0; i < cells_.size(); ++i) {
      if (cells_[i] == nullptr) continue;
      Ask(*cells_[i], east_m - Shift(i % 3), north_m - Shift(i / 3));
    }
    if (witnesses_.size() < static_cast<std::size_t>(settings_.estimator.fewest_neighbours)) {
      return std::nullopt;
    }
    return Conclusion();
  }

 private:
  struct Witness {
    double east_m;  // of the node that asks
    double north_m;
    double depth_m;
    double sigma_m;
  };

  double Shift(std::size_t step) const {
    return (static_cast<double>(step) - 1.0) * settings_.resolution_m;
  }

  void Ask(const Refinement& cell, double east_m, double north_m) {
    const double spacing_m = settings_.resolution_m / cell.nodes_per_side;
    const double edge_m = 0.5 * settings_.resolution_m - 0.5 * spacing_m;
    const auto first = [&](double offset_m) {
      return std::max(0L, std::lround(std::ceil((offset_m - reach_m_ + edge_m) / spacing_m)));
    };
    const auto last = [&](double offset_m) {
      return std::min(static_cast<long>(cell.nodes_per_side) - 1,
                      std::lround(std::floor((offset_m + reach_m_ + edge_m) / spacing_m)));
    };
    const long last_row = last(north_m);
    const long first_column = first(east_m);
    const long last_column = last(east_m);
    for (long row = first(north_m); row <= last_row; ++row) {
      for (long column = first_column; column <= last_column; ++column) {
        const double away_east_m = static_cast<double>(column) * spacing_m - edge_m - east_m;
        const double away_north_m = static_cast<double>(row) * spacing_m - edge_m - north_m;
        const double away_squared = away_east_m * away_east_m + away_north_m * away_north_m;
        // None is its own witness.
        if (away_squared == 0.0 || away_squared > reach_m_ * reach_m_) continue;
        const auto node = cell.Node(static_cast<std::size_t>(row) * cell.nodes_per_side +
                                    static_cast<std::size_t>(column));
        if (node.empty() || HasRival(node, settings_.estimator.ambiguous_share)) continue;
        const Hypothesis& best = BestSupported(node);
        witnesses_.push_back(
            {away_east_m, away_north_m, best.depth_m, std::sqrt(best.variance_m2)});
      }
    }
  }

  Expectation Conclusion() {
    around_.clear();
    for (const Witness& witness : witnesses_) {
      around_.push_back({.east_m = static_cast<float>(witness.east_m),
                         .north_m = static_cast<float>(witness.north_m),
                         .depth_m = static_cast<float>(witness.depth_m),
                         .sigma_v_m = static_cast<float>(witness.sigma_m)});
    }
    const LocalTrend trend =
        trend_finder_.Around(around_, reach_m_, settings_.estimator.unknown_slope);
    depths_m_.clear();
    for (const Witness& witness : witnesses_) {
      depths_m_.push_back(witness.depth_m - trend.east * witness.east_m -
                          trend.north * witness.north_m);
    }
    const auto [depth_m, scatter_m] = CentreAndScatterOf(depths_m_);
    return {.depth_m = depth_m,
            .scatter_m = scatter_m,
            .agreement_sigmas = settings_.estimator.agreement_sigmas};
  }

  const RefinedNeighbourhood& cells_;
  const GridSettings& settings_;
  const double reach_m_;
  TrendFinder trend_finder_;
  // Working memory of one place.
  std::vector<Witness> witnesses_;
  std::vector<NodeSounding> around_;
  std::vector<double> depths_m_;
};

// Unless the hypothesis with most support agrees with the expectation, the nearest of the competing
// ones that does comes first.
void MoveAgreeingToFront(std::span<Hypothesis> hypotheses, const Expectation& expected,
                         const EstimatorSettings& estimator) {
  if (expected.Holds(hypotheses.front())) return;
  const auto least = estimator.competing_share * hypotheses.front().sample_count;
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

// What to expect at each node of the centre cell that asks and has witnesses enough.
std::vector<std::pair<std::size_t, Expectation>> ExpectationsAtAskingNodes(
    const RefinedNeighbourhood& cells, const GridSettings& settings, const Refinement& centre) {
  const double spacing_m = settings.resolution_m / centre.nodes_per_side;
  const double edge_m = 0.5 * settings.resolution_m - 0.5 * spacing_m;
  Inquiry inquiry(cells, settings, settings.estimator.neighbour_reach * spacing_m);
  std::vector<std::pair<std::size_t, Expectation>> expected;
  for (std::size_t node = 0; node + 1 < centre.first.size(); ++node) {
    const auto hypotheses = centre.Node(node);
    if (hypotheses.size() < 2) continue;
    if (!HasRival(hypotheses, settings.estimator.competing_share)) continue;
    if (IsMetAgain(BestSupported(hypotheses), settings.estimator)) continue;
    const std::size_t row = node / centre.nodes_per_side;
    const std::size_t column = node % centre.nodes_per_side;
    const auto expectation = inquiry.At(static_cast<double>(column) * spacing_m - edge_m,
                                        static_cast<double>(row) * spacing_m - edge_m);
    if (expectation) expected.emplace_back(node, *expectation);
  }
  return expected;
}

}  // namespace

void ChooseHypotheses(const RefinedNeighbourhood& cells, const GridSettings& settings,
                      Refinement& centre) {
  // Answers are gathered before any list is touched, so that no choice hangs on another.
  std::vector<std::pair<std::size_t, Expectation>> expected;
  if (settings.estimator.ask_neighbours) {
    expected = ExpectationsAtAskingNodes(cells, settings, centre);
  }
  for (std::size_t node = 0; node + 1 < centre.first.size(); ++node) {
    OrderBySupport(centre.MutableNode(node));
  }
  for (const auto& [node, expectation] : expected) {
    MoveAgreeingToFront(centre.MutableNode(node), expectation, settings.estimator);
  }
}

}  // namespace quarro::core
