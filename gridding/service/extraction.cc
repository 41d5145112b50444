#include "gridding/service/extraction.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <locale>
#include <sstream>
#include <utility>

#include "gridding/core/cell_state.h"
#include "gridding/core/refinement.h"
#include "gridding/service/result_arena.h"
#include "support/exceptions.h"

namespace quarro::service {

namespace {

std::string TextOf(const SGBoundingBox& box) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << '(' << box << ')';
  return text.str();
}

void CheckSize(const core::CellRange& range, const SGBoundingBox& box) {
  if (range.Rows() <= kMostCellsInResult / range.Columns()) return;
  throw ExSGClientBase(
      "the box " + TextOf(box) + " covers " + std::to_string(range.Rows()) + " rows of " +
      std::to_string(range.Columns()) + " low-resolution cells, more than the " +
      std::to_string(kMostCellsInResult) + " that one result may hold: ask for smaller boxes");
}

// Two along an axis: the cell after the last, or before the first at the end of the lattice.
void WidenToTwo(std::int32_t& first, std::int32_t& last) {
  if (first != last) return;
  if (last != std::numeric_limits<std::int32_t>::max()) {
    ++last;
  } else {
    --first;
  }
}

NodalDepth Reported(std::span<const core::Hypothesis> hypotheses) {
  if (hypotheses.empty()) return {};
  return {.depth_m = hypotheses.front().depth_m,
          .variance_m2 = hypotheses.front().variance_m2,
          .hypothesis_count = static_cast<std::uint32_t>(hypotheses.size()),
          .hypothesis_strength = core::HypothesisStrength(hypotheses)};
}

std::uint16_t SampleCount(std::span<const core::Hypothesis> hypotheses) {
  if (hypotheses.empty()) return 0;
  return static_cast<std::uint16_t>(std::min<std::uint32_t>(
      hypotheses.front().sample_count, std::numeric_limits<std::uint16_t>::max()));
}

const RefinementBlock* BlockOf(const core::Refinement& refinement, ResultArena& arena) {
  const std::uint32_t side = refinement.nodes_per_side;
  const std::uint64_t count = std::uint64_t{side} * side;
  auto* nodes = arena.Array<RefinedNode>(count);
  for (std::uint64_t i = 0; i < count; ++i) {
    const auto hypotheses = refinement.Node(i);
    nodes[i] = {.estimate = Reported(hypotheses), .sample_count = SampleCount(hypotheses)};
  }
  auto* block = arena.Array<RefinementBlock>(1);
  *block = {.nodes_a = side, .nodes_b = side, .nodes = nodes};
  return block;
}

ResolutionRecord RecordOf(const core::CellState& state, const core::GridSettings& settings) {
  const core::CellStatistics& statistics = state.statistics;
  ResolutionRecord record;
  record.soundings = static_cast<std::uint32_t>(
      std::min<std::uint64_t>(statistics.soundings, std::numeric_limits<std::uint32_t>::max()));
  if (statistics.soundings == 0) return record;
  const double covered_m2 =
      statistics.CoveredFraction() * settings.resolution_m * settings.resolution_m;
  record.node_spacing_m = settings.resolution_m / core::NodesPerSide(statistics, settings);
  record.mean_depth_m = statistics.MeanDepth();
  record.depth_deviation_m = statistics.DepthDeviation();
  record.shallowest_m = statistics.shallowest_m;
  record.deepest_m = statistics.deepest_m;
  record.mean_vertical_sigma_m = statistics.VerticalSigma();
  record.mean_horizontal_sigma_m = statistics.HorizontalSigma();
  record.density_per_m2 = static_cast<double>(statistics.soundings) / covered_m2;
  record.covered_fraction = statistics.CoveredFraction();
  record.occupancy = statistics.occupancy;
  record.covered_area_m2 = covered_m2;
  const NodalDepth low = Reported(state.low);
  record.depth_m = low.depth_m;
  record.uncertainty_m = std::sqrt(low.variance_m2);
  record.hypothesis_strength = low.hypothesis_strength;
  return record;
}

// Of a cell of the range, row by row from the south-west.
std::uint64_t PlaceIn(const core::CellRange& range, core::CellIndex cell) {
  const auto row = static_cast<std::uint64_t>(cell.row - range.south_west.row);
  const auto column = static_cast<std::uint64_t>(cell.column - range.south_west.column);
  return row * range.Columns() + column;
}

}  // namespace

core::CellRange CellsOfResult(const core::Lattice& lattice, const SGBoundingBox& box) {
  core::CellRange range;
  if (!lattice.CellsInBox(box.west(), box.south(), box.east(), box.north(), range)) {
    throw ExSGClientBase("no node of the grid's cells, " + std::to_string(lattice.spacing_m()) +
                         " m apart, lies in the box " + TextOf(box) + ": ask for a larger one");
  }
  WidenToTwo(range.south_west.row, range.north_east.row);
  WidenToTwo(range.south_west.column, range.north_east.column);
  CheckSize(range, box);
  return range;
}

SGBoundingBox BoundsOfGrid(const core::Lattice& lattice, const store::Totals& totals) {
  if (!totals.extent) return {};
  const core::Position south_west = lattice.NodeOf(totals.extent->south_west);
  const core::Position north_east = lattice.NodeOf(totals.extent->north_east);
  return {south_west.easting_m, south_west.northing_m, north_east.easting_m, north_east.northing_m};
}

Extractor::Extractor(store::Snapshot& snapshot, const core::GridSettings& settings,
                     const core::Lattice& lattice, std::filesystem::path directory,
                     std::uint64_t heap_bytes, const CancelFlag& cancelled)
    : snapshot_(snapshot),
      settings_(settings),
      lattice_(lattice),
      directory_(std::move(directory)),
      heap_bytes_(heap_bytes),
      cancelled_(cancelled) {}

void Extractor::Visit(const core::CellRange& range, bool with_refinements,
                      const std::function<void(const store::Snapshot::Cell&)>& visit) {
  snapshot_.VisitCells(range, with_refinements, [&](const store::Snapshot::Cell& cell) {
    ThrowIfCancelled(cancelled_);
    visit(cell);
  });
}

SGBoundingBox Extractor::BoundsOf(const core::CellRange& range) const {
  return BoundsOfGrid(lattice_, {.extent = range});
}

// A result with a record for each cell of the range, in `arena`.
template <typename Result, typename Record>
std::unique_ptr<Result> Extractor::GridOver(const core::CellRange& range,
                                            const ExtractRequest& request,
                                            const std::shared_ptr<ResultArena>& arena,
                                            Record*& records) const {
  auto result = std::make_unique<Result>();
  result->result_number = request.result_number;
  result->bounds = BoundsOf(range);
  result->grid.rows = static_cast<std::uint32_t>(range.Rows());
  result->grid.columns = static_cast<std::uint32_t>(range.Columns());
  records = arena->Array<Record>(range.Rows() * range.Columns());
  result->grid.cells = records;
  result->grid.storage = arena;
  return result;
}

Finished Extractor::Resolution(const ExtractRequest& request) {
  const core::CellRange range = CellsOfResult(lattice_, request.box);
  const auto arena = std::make_shared<ResultArena>(directory_, heap_bytes_);
  ResolutionRecord* records = nullptr;
  auto result = GridOver<ResultResolution>(range, request, arena, records);
  for (std::uint64_t row = 0; row < range.Rows(); ++row) {
    for (std::uint64_t column = 0; column < range.Columns(); ++column) {
      const core::Position node =
          lattice_.NodeOf({range.south_west.row + static_cast<std::int32_t>(row),
                           range.south_west.column + static_cast<std::int32_t>(column)});
      ResolutionRecord& record = records[row * range.Columns() + column];
      record.easting_m = node.easting_m;
      record.northing_m = node.northing_m;
    }
  }
  core::CellState state;
  Visit(range, false, [&](const store::Snapshot::Cell& cell) {
    core::Decode(cell.state, state);
    ResolutionRecord& record = records[PlaceIn(range, cell.index)];
    ResolutionRecord filled = RecordOf(state, settings_);
    filled.easting_m = record.easting_m;
    filled.northing_m = record.northing_m;
    record = filled;
  });
  return {std::move(result), arena->bytes()};
}

Finished Extractor::Depth(const ExtractRequest& request) {
  const core::CellRange range = CellsOfResult(lattice_, request.box);
  const auto arena = std::make_shared<ResultArena>(directory_, heap_bytes_);
  DepthCell* cells = nullptr;
  auto result = GridOver<ResultDepth>(range, request, arena, cells);
  core::CellState state;
  core::Refinement refinement;
  Visit(range, request.full_resolution, [&](const store::Snapshot::Cell& cell) {
    core::Decode(cell.state, state);
    DepthCell& out = cells[PlaceIn(range, cell.index)];
    out.estimate = Reported(state.low);
    if (cell.refinement.empty()) return;
    core::Decode(cell.refinement, refinement);
    out.resolution_m = static_cast<float>(settings_.resolution_m / refinement.nodes_per_side);
    out.refinement = BlockOf(refinement, *arena);
  });
  return {std::move(result), arena->bytes()};
}

Finished Extractor::Hypotheses(const ExtractRequest& request) {
  if (!request.full_resolution) {
    const core::CellRange range = CellsOfResult(lattice_, request.box);
    return HypothesesOf(request, range, BoundsOf(range));
  }
  // Refined nodes lie in the box whose cells' own nodes do not, so the cells at the box's edges
  // count too; the box is cut to where there is data, since far beyond it no cell can be named.
  core::CellRange range;
  const SGBoundingBox& box = request.box;
  const auto extent = snapshot_.GetTotals().extent;
  const bool has_node =
      lattice_.CellsInBox(box.west(), box.south(), box.east(), box.north(), range);
  if (has_node) CheckSize(range, box);
  const SGBoundingBox bounds = has_node ? BoundsOf(range) : box;
  Finished extract;
  if (extent) {
    const double half_m = 0.5 * lattice_.spacing_m();
    const SGBoundingBox data = BoundsOf(*extent);
    const double west = std::max(box.west(), data.west() - half_m);
    const double south = std::max(box.south(), data.south() - half_m);
    const double east = std::min(box.east(), data.east() + half_m);
    const double north = std::min(box.north(), data.north() + half_m);
    if (west <= east && south <= north) {
      range = {lattice_.CellOf(west, south), lattice_.CellOf(east, north)};
      extract = HypothesesOf(request, range, bounds);
    }
  }
  if (!extract.result) {
    auto result = std::make_unique<ResultHypos>();
    result->result_number = request.result_number;
    result->bounds = bounds;
    extract.result = std::move(result);
  }
  if (!has_node && static_cast<const ResultHypos&>(*extract.result).count == 0) {
    throw ExSGClientBase("no node of the grid lies in the box " + TextOf(box) +
                         ": ask for a larger one");
  }
  return extract;
}

// Calls visit(position, spacing, hypotheses) for each node that the request selects.
template <typename Visitor>
void Extractor::VisitHypotheses(const ExtractRequest& request, const core::CellRange& range,
                                const Visitor& visit) {
  core::CellState state;
  core::Refinement refinement;
  Visit(range, request.full_resolution, [&](const store::Snapshot::Cell& cell) {
    const core::Position centre = lattice_.NodeOf(cell.index);
    if (cell.refinement.empty()) {
      if (!request.box.Contains(centre.easting_m, centre.northing_m)) return;
      core::Decode(cell.state, state);
      visit(centre, kNotRefined, std::span<const core::Hypothesis>(state.low));
      return;
    }
    core::Decode(cell.refinement, refinement);
    const std::uint32_t side = refinement.nodes_per_side;
    const double spacing_m = settings_.resolution_m / side;
    const double to_first_m = 0.5 * spacing_m - 0.5 * settings_.resolution_m;
    for (std::uint32_t row = 0; row < side; ++row) {
      for (std::uint32_t column = 0; column < side; ++column) {
        const core::Position node{centre.easting_m + to_first_m + column * spacing_m,
                                  centre.northing_m + to_first_m + row * spacing_m};
        const auto hypotheses = refinement.Node(std::size_t{row} * side + column);
        if (hypotheses.empty() || !request.box.Contains(node.easting_m, node.northing_m)) continue;
        visit(node, static_cast<float>(spacing_m), hypotheses);
      }
    }
  });
}

Finished Extractor::HypothesesOf(const ExtractRequest& request, const core::CellRange& range,
                                 const SGBoundingBox& bounds_without_nodes) {
  auto result = std::make_unique<ResultHypos>();
  result->result_number = request.result_number;
  result->bounds = bounds_without_nodes;
  std::uint64_t count = 0;
  double west = std::numeric_limits<double>::max();
  double south = west;
  double east = std::numeric_limits<double>::lowest();
  double north = east;
  VisitHypotheses(request, range, [&](core::Position node, float, const auto&) {
    ++count;
    west = std::min(west, node.easting_m);
    south = std::min(south, node.northing_m);
    east = std::max(east, node.easting_m);
    north = std::max(north, node.northing_m);
  });
  if (request.full_resolution && count != 0) result->bounds = {west, south, east, north};
  const auto arena = std::make_shared<ResultArena>(directory_, heap_bytes_);
  auto* nodes = arena->Array<NodalHypos>(count);
  result->count = count;
  result->nodes = nodes;
  result->storage = arena;
  std::uint64_t i = 0;
  VisitHypotheses(request, range, [&](core::Position node, float spacing_m, const auto& list) {
    auto* hypotheses = arena->Array<Hypothesis>(list.size());
    for (std::size_t k = 0; k < list.size(); ++k) {
      hypotheses[k] = {list[k].depth_m, list[k].variance_m2, list[k].sample_count};
    }
    nodes[i++] = {.easting_m = node.easting_m,
                  .northing_m = node.northing_m,
                  .resolution_m = spacing_m,
                  .hypothesis_strength = core::HypothesisStrength(list),
                  .count = static_cast<std::uint32_t>(list.size()),
                  .hypotheses = hypotheses};
  });
  return {std::move(result), arena->bytes()};
}

}  // namespace quarro::service
