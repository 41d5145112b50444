// The computation: low-resolution states, the estimate of a node, the refinement of a cell.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/stages/bandwidth.h"
#include "bench/stages/survey.h"
#include "gridding/core/cell_state.h"
#include "gridding/core/node_estimator.h"
#include "gridding/core/refinement.h"

namespace quarro::bench {

namespace {

using CellStates = std::map<core::CellIndex, core::CellState>;

void AddToStates(const Survey& survey, std::map<core::CellIndex, core::CellState*>& places) {
  for (std::size_t i = 0; i < survey.binned.size(); ++i) {
    const core::BinnedChunk& chunk = survey.binned[i];
    for (const core::BinnedChunk::Run& run : chunk.runs) {
      core::AddSoundings(chunk.SoundingsOf(run), survey.chunk_lines[i], survey.settings,
                         *places[run.cell]);
    }
  }
}

// Statistics and the soundings near the nodes; the states are forgotten after each iteration.
void LowResolutionAdd(benchmark::State& state) {
  const Survey& survey = TheSurvey();
  for ([[maybe_unused]] auto iteration : state) {
    state.PauseTiming();
    CellStates states;
    std::map<core::CellIndex, core::CellState*> places;
    for (const auto& cell : survey.cells) places[cell.first] = &states[cell.first];
    state.ResumeTiming();
    AddToStates(survey, places);
    benchmark::ClobberMemory();
    state.PauseTiming();
    states.clear();
    state.ResumeTiming();
  }
  ReportRates(state, survey.soundings, survey.soundings * sizeof(core::PackedSounding));
}
BENCHMARK(LowResolutionAdd)->Unit(benchmark::kMillisecond);

// Items are cells.
void LowResolutionEstimate(benchmark::State& state) {
  const Survey& survey = TheSurvey();
  CellStates states;
  std::map<core::CellIndex, core::CellState*> places;
  for (const auto& cell : survey.cells) places[cell.first] = &states[cell.first];
  AddToStates(survey, places);
  std::uint64_t near = 0;
  for (const auto& cell : states) near += cell.second.near.size();
  core::LowResolutionEstimator estimator(survey.settings);
  for ([[maybe_unused]] auto iteration : state) {
    for (auto& cell : states) {
      estimator.Estimate(cell.second);
      benchmark::DoNotOptimize(cell.second.low.data());
    }
  }
  ReportRates(state, states.size(), near * sizeof(core::PackedSounding));
}
BENCHMARK(LowResolutionEstimate)->Unit(benchmark::kMillisecond);

// What a node of the benchmark has captured.
struct Node {
  double spacing_m = 0.0;
  std::vector<core::NodeSounding> soundings;
};

// Parts the cell into squares, of which most hold so many soundings, and appends a node in the
// middle of each that does, with the first of them.
void AppendNodes(const core::CellSoundings& cell, std::size_t soundings_per_node,
                 std::vector<Node>& nodes) {
  const double wanted = 1.5 * static_cast<double>(soundings_per_node);
  const double side = std::floor(std::sqrt(static_cast<double>(cell.soundings.size()) / wanted));
  if (side < 1.0) return;
  const double spacing_m = kCell_m / side;
  std::vector<Node> squares(static_cast<std::size_t>(side * side));
  std::size_t index = 0;
  for (const core::LineRun& run : cell.runs) {
    for (std::uint32_t i = 0; i < run.count; ++i, ++index) {
      const core::PackedSounding& sounding = cell.soundings[index];
      const auto along = [&](double offset_m) {
        return std::clamp(std::floor((offset_m + 0.5 * kCell_m) / spacing_m), 0.0, side - 1.0);
      };
      const double column = along(sounding.east_m);
      const double row = along(sounding.north_m);
      Node& node = squares[static_cast<std::size_t>(row * side + column)];
      if (node.soundings.size() == soundings_per_node) continue;
      const auto from_middle = [&](double offset_m, double place) {
        return static_cast<float>(offset_m + 0.5 * kCell_m - (place + 0.5) * spacing_m);
      };
      node.spacing_m = spacing_m;
      node.soundings.push_back({.east_m = from_middle(sounding.east_m, column),
                                .north_m = from_middle(sounding.north_m, row),
                                .depth_m = sounding.depth_m,
                                .sigma_v_m = sounding.sigma_v_m(),
                                .sigma_h_m = sounding.sigma_h_m(),
                                .line = run.line});
    }
  }
  for (Node& node : squares) {
    if (node.soundings.size() == soundings_per_node) nodes.push_back(std::move(node));
  }
}

// Soundings of the densest cells as nodes capture them: by place, so many a node.
std::vector<Node> NodesOf(std::size_t soundings_per_node) {
  constexpr std::size_t kMostNodes = 20000;
  std::vector<const core::CellSoundings*> cells;
  for (const auto& cell : TheSurvey().cells) cells.push_back(&cell.second);
  std::stable_sort(cells.begin(), cells.end(), [](const auto* a, const auto* b) {
    return a->soundings.size() > b->soundings.size();
  });
  std::vector<Node> nodes;
  for (const core::CellSoundings* cell : cells) {
    if (nodes.size() >= kMostNodes) break;
    AppendNodes(*cell, soundings_per_node, nodes);
  }
  return nodes;
}

// Items are nodes; the argument is how many soundings each has captured.
void NodeEstimate(benchmark::State& state) {
  const auto soundings_per_node = static_cast<std::size_t>(state.range(0));
  const auto nodes = NodesOf(soundings_per_node);
  core::NodeEstimator estimator(TheSurvey().settings.estimator);
  core::NodeSurroundings surroundings;
  surroundings.trend = {.east = 0.02, .north = 0.01, .east_variance = 1e-5, .north_variance = 1e-5};
  core::HypothesisList hypotheses;
  for ([[maybe_unused]] auto iteration : state) {
    for (const Node& node : nodes) {
      surroundings.spacing_m = node.spacing_m;
      estimator.Estimate(node.soundings, surroundings, hypotheses);
      benchmark::DoNotOptimize(hypotheses.data());
    }
  }
  ReportRates(state, nodes.size(), nodes.size() * soundings_per_node * sizeof(core::NodeSounding));
  state.counters["soundings_per_second"] =
      benchmark::Counter(static_cast<double>(nodes.size() * soundings_per_node) *
                             static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
}
BENCHMARK(NodeEstimate)->Arg(9)->Arg(20)->Arg(60)->Unit(benchmark::kMillisecond);

// Items are nodes.
void RefineCells(benchmark::State& state) {
  const auto& cells = RefinableCells();
  std::uint64_t nodes = 0;
  std::uint64_t soundings = 0;
  for (const RefinableCell& cell : cells) {
    nodes += std::uint64_t{cell.nodes_per_side} * cell.nodes_per_side;
    soundings += cell.cells[core::kCentre]->soundings.size();
  }
  core::CellRefiner refiner(TheSurvey().settings);
  core::Refinement refinement;
  for ([[maybe_unused]] auto iteration : state) {
    for (const RefinableCell& cell : cells) {
      refiner.Refine(cell.nodes_per_side, cell.cells, refinement);
      benchmark::DoNotOptimize(refinement.hypotheses.data());
    }
  }
  ReportRates(state, nodes, soundings * sizeof(core::PackedSounding));
  const auto iterations = static_cast<double>(state.iterations());
  state.counters["soundings_per_second"] =
      benchmark::Counter(static_cast<double>(soundings) * iterations, benchmark::Counter::kIsRate);
  state.counters["cells_per_second"] = benchmark::Counter(
      static_cast<double>(cells.size()) * iterations, benchmark::Counter::kIsRate);
}
BENCHMARK(RefineCells)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace quarro::bench
