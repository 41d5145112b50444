#include "gridding/core/refinement.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "gridding/core/encoding.h"

namespace quarro::core {

void CellRefiner::Refine(std::uint32_t nodes_per_side, const Neighbourhood& cells, Refinement& out,
                         EstimatorTrace* trace, std::size_t traced_node) {
  side_ = nodes_per_side;
  buckets_ = side_ + 2;
  spacing_m_ = settings_.resolution_m / side_;
  Collect(cells);
  FillBuckets();
  FindMedians();
  FindTrends();
  FindNoise();
  FindLineOffsets();
  FindCaptures();
  out.nodes_per_side = side_;
  out.first.assign(1, 0);
  out.hypotheses.clear();
  NodeSurroundings surroundings;
  surroundings.spacing_m = spacing_m_;
  surroundings.noise_scale = noise_scale_;
  for (std::size_t node = 0; node < trends_.size(); ++node) {
    const auto captured = CapturedBy(node);
    surroundings.trend =
        steepness_.Checked(captured, trends_[node], settings_.estimator.unknown_slope);
    EstimateNode(captured, surroundings, node == traced_node ? trace : nullptr);
    out.hypotheses.insert(out.hypotheses.end(), hypotheses_.begin(), hypotheses_.end());
    out.first.push_back(static_cast<std::uint32_t>(out.hypotheses.size()));
  }
}

// Lines that disagree are estimated apart.
void CellRefiner::EstimateNode(std::span<const NodeSounding> captured,
                               const NodeSurroundings& surroundings, EstimatorTrace* trace) {
  const auto parts = offsets_.Parts(captured);
  estimator_.Estimate(parts.front(), surroundings, hypotheses_, trace);
  for (const auto& part : parts.subspan(1)) {
    estimator_.Estimate(part, surroundings, part_, trace);
    hypotheses_.insert(hypotheses_.end(), part_.begin(), part_.end());
  }
  if (parts.size() == 1) return;
  OrderBySupport(hypotheses_);
  if (hypotheses_.size() > kMostHypotheses) hypotheses_.resize(kMostHypotheses);
}

// Line by line, and in each line cell by cell: the order is the same whatever the order in which
// cells are refined.
void CellRefiner::Collect(const Neighbourhood& cells) {
  placed_.clear();
  std::array<std::size_t, 9> next_run{};
  std::array<std::size_t, 9> next_sounding{};
  for (;;) {
    std::uint32_t line = std::numeric_limits<std::uint32_t>::max();
    bool any = false;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      if (cells[i] == nullptr || next_run[i] == cells[i]->runs.size()) continue;
      line = std::min(line, cells[i]->runs[next_run[i]].line);
      any = true;
    }
    if (!any) return;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      if (cells[i] == nullptr || next_run[i] == cells[i]->runs.size()) continue;
      const LineRun& run = cells[i]->runs[next_run[i]];
      if (run.line != line) continue;
      const std::size_t row = i / 3;
      const std::size_t column = i % 3;
      CollectRun(std::span(cells[i]->soundings).subspan(next_sounding[i], run.count), line,
                 (static_cast<double>(column) - 1.0) * settings_.resolution_m,
                 (static_cast<double>(row) - 1.0) * settings_.resolution_m);
      next_sounding[i] += run.count;
      ++next_run[i];
    }
  }
}

void CellRefiner::CollectRun(std::span<const PackedSounding> run, std::uint32_t line,
                             double shift_east_m, double shift_north_m) {
  const double edge_m = 0.5 * settings_.resolution_m + spacing_m_;
  const double last_bucket = buckets_ - 1.0;
  const auto bucket_along = [&](double offset_m) {
    return static_cast<std::uint32_t>(
        std::clamp((offset_m + edge_m) / spacing_m_, 0.0, last_bucket));
  };
  for (const PackedSounding& sounding : run) {
    const double east_m = sounding.east_m + shift_east_m;
    const double north_m = sounding.north_m + shift_north_m;
    if (std::abs(east_m) > edge_m || std::abs(north_m) > edge_m) continue;
    if (!IsPossible(sounding)) {
      throw EncodingError("the soundings of a cell hold a value that no sounding has");
    }
    placed_.push_back({.sounding = {.east_m = static_cast<float>(east_m),
                                    .north_m = static_cast<float>(north_m),
                                    .depth_m = sounding.depth_m,
                                    .sigma_v_m = sounding.sigma_v_m(),
                                    .sigma_h_m = sounding.sigma_h_m(),
                                    .line = line},
                       .row = bucket_along(north_m),
                       .column = bucket_along(east_m)});
  }
}

void CellRefiner::FillBuckets() {
  const std::size_t count = static_cast<std::size_t>(buckets_) * buckets_;
  const auto bucket_of = [&](const Placed& placed) {
    return static_cast<std::size_t>(placed.row) * buckets_ + placed.column;
  };
  bucket_starts_.assign(count + 1, 0);
  for (const Placed& placed : placed_) ++bucket_starts_[bucket_of(placed) + 1];
  for (std::size_t i = 0; i < count; ++i) bucket_starts_[i + 1] += bucket_starts_[i];
  bucketed_.resize(placed_.size());
  next_.assign(bucket_starts_.begin(), bucket_starts_.end() - 1);
  for (const Placed& placed : placed_) bucketed_[next_[bucket_of(placed)]++] = placed.sounding;
}

// A reach below one spacing leaves four nodes to ask for each sounding: that of its own bucket and
// the three on the side of the bucket where it lies. Each node gets its soundings' places in
// placed_, so in their order. Whether a node reaches a sounding cannot be predicted, so the answer
// moves the end of the list instead of being branched on.
void CellRefiner::FindCaptures() {
  const double reach_m = settings_.estimator.capture_radius * spacing_m_;
  const double reach_squared = reach_m * reach_m;
  const auto is_node = [this](std::int32_t along) {
    return static_cast<std::uint32_t>(along) < side_;  // negative ones become great numbers
  };
  std::size_t found = 0;
  for (std::size_t place = 0; place < placed_.size(); ++place) {
    if (candidates_.size() < found + 4) candidates_.resize(2 * (found + 4));
    const Placed& placed = placed_[place];
    // Buckets begin one before the nodes.
    const auto own_row = static_cast<std::int32_t>(placed.row) - 1;
    const auto own_column = static_cast<std::int32_t>(placed.column) - 1;
    const double from_own_north_m = placed.sounding.north_m - NodeOffset(own_row);
    const double from_own_east_m = placed.sounding.east_m - NodeOffset(own_column);
    const std::int32_t rows[] = {own_row, own_row + (from_own_north_m < 0.0 ? -1 : 1)};
    const std::int32_t columns[] = {own_column, own_column + (from_own_east_m < 0.0 ? -1 : 1)};
    const double north_m[] = {from_own_north_m, spacing_m_ - std::abs(from_own_north_m)};
    const double east_m[] = {from_own_east_m, spacing_m_ - std::abs(from_own_east_m)};
    for (int corner = 0; corner < 4; ++corner) {
      const int to_row = corner / 2;
      const int to_column = corner % 2;
      const double distance_squared =
          east_m[to_column] * east_m[to_column] + north_m[to_row] * north_m[to_row];
      const int reached = static_cast<int>(distance_squared <= reach_squared) &
                          static_cast<int>(is_node(rows[to_row])) &
                          static_cast<int>(is_node(columns[to_column]));
      const std::uint32_t node = static_cast<std::uint32_t>(rows[to_row]) * side_ +
                                 static_cast<std::uint32_t>(columns[to_column]);
      candidates_[found] = {node, static_cast<std::uint32_t>(place)};
      found += static_cast<std::size_t>(reached);
    }
  }
  SortByNode(std::span(candidates_).first(found));
}

void CellRefiner::SortByNode(std::span<const Capture> captures) {
  capture_starts_.assign(trends_.size() + 1, 0);
  for (const Capture& capture : captures) ++capture_starts_[capture.node + 1];
  for (std::size_t i = 0; i < trends_.size(); ++i) capture_starts_[i + 1] += capture_starts_[i];
  captures_.resize(captures.size());
  next_.assign(capture_starts_.begin(), capture_starts_.end() - 1);
  for (const Capture& capture : captures) captures_[next_[capture.node]++] = capture.place;
}

// The soundings of one node, as it sees them. Valid until the next call.
std::span<const NodeSounding> CellRefiner::CapturedBy(std::size_t node) {
  const auto east_m = static_cast<float>(NodeOffset(static_cast<std::int32_t>(node % side_)));
  const auto north_m = static_cast<float>(NodeOffset(static_cast<std::int32_t>(node / side_)));
  captured_.clear();
  for (std::uint32_t i = capture_starts_[node]; i < capture_starts_[node + 1]; ++i) {
    captured_.push_back(placed_[captures_[i]].sounding);
    captured_.back().east_m -= east_m;
    captured_.back().north_m -= north_m;
  }
  return captured_;
}

// Of a column's or row's nodes from the cell's node.
double CellRefiner::NodeOffset(std::int32_t index) const {
  return (static_cast<double>(index) + 0.5) * spacing_m_ - 0.5 * settings_.resolution_m;
}

std::span<const NodeSounding> CellRefiner::Bucket(std::size_t bucket) const {
  return std::span(bucketed_).subspan(bucket_starts_[bucket],
                                      bucket_starts_[bucket + 1] - bucket_starts_[bucket]);
}

void CellRefiner::FindMedians() {
  medians_.assign(static_cast<std::size_t>(buckets_) * buckets_, {});
  for (std::size_t i = 0; i < medians_.size(); ++i) medians_[i] = median_finder_.Of(Bucket(i));
}

// From the relief of the cell's own medians, in which single spikes have no say.
double CellRefiner::UnknownSlope() const {
  double count = 0.0;
  double mean_m = 0.0;
  double square_sum_m2 = 0.0;
  for (std::size_t row = 1; row <= side_; ++row) {
    for (std::size_t column = 1; column <= side_; ++column) {
      const BlockMedian& median = medians_[row * buckets_ + column];
      if (!median.filled) continue;
      count += 1.0;
      const double off_m = median.depth_m - mean_m;
      mean_m += off_m / count;
      square_sum_m2 += off_m * (median.depth_m - mean_m);
    }
  }
  if (count < settings_.estimator.fewest_blocks) return settings_.estimator.unknown_slope;
  const double covered = count / static_cast<double>(trends_.size());
  return std::min(
      settings_.estimator.unknown_slope,
      SlopeOfRelief(std::sqrt(square_sum_m2 / (count - 1.0)), settings_.resolution_m, covered));
}

void CellRefiner::FindTrends() {
  trends_.resize(static_cast<std::size_t>(side_) * side_);
  const double unknown_slope = UnknownSlope();
  std::array<BlockMedian, 9> blocks;
  for (std::size_t row = 0; row < side_; ++row) {
    for (std::size_t column = 0; column < side_; ++column) {
      for (std::size_t i = 0; i < blocks.size(); ++i) {
        blocks[i] = medians_[(row + i / 3) * buckets_ + column + i % 3];
      }
      trends_[row * side_ + column] =
          TrendAcross(blocks, spacing_m_, unknown_slope, settings_.estimator);
    }
  }
}

void CellRefiner::FindNoise() {
  noise_.Clear();
  for (std::size_t row = 0; row < side_; ++row) {
    for (std::size_t column = 0; column < side_; ++column) {
      AddDifferences(Bucket((row + 1) * buckets_ + column + 1), trends_[row * side_ + column],
                     noise_);
    }
  }
  noise_scale_ = noise_.Value();
}

// A few hundred places are enough.
void CellRefiner::FindLineOffsets() {
  offsets_.Clear();
  const std::size_t nodes = trends_.size();
  const std::size_t step =
      std::max<std::size_t>(1, nodes / static_cast<std::size_t>(settings_.estimator.offset_places));
  for (std::size_t node = 0; node < nodes; node += step) {
    const std::size_t bucket = (node / side_ + 1) * buckets_ + node % side_ + 1;
    offsets_.AddBlock(Bucket(bucket), trends_[node]);
  }
  offsets_.Conclude();
}

void Encode(const Refinement& refinement, std::vector<std::byte>& out) {
  out.clear();
  Encoder encoder(out);
  encoder.Put(refinement.nodes_per_side);
  encoder.Put(static_cast<std::uint32_t>(refinement.hypotheses.size()));
  std::vector<std::uint8_t> counts;
  counts.reserve(refinement.first.size());
  for (std::size_t i = 0; i + 1 < refinement.first.size(); ++i) {
    counts.push_back(static_cast<std::uint8_t>(refinement.first[i + 1] - refinement.first[i]));
  }
  encoder.PutArray(std::span<const std::uint8_t>(counts));
  encoder.PutArray(std::span<const Hypothesis>(refinement.hypotheses));
}

void Decode(std::span<const std::byte> bytes, Refinement& refinement) {
  Decoder decoder(bytes, "refinement");
  refinement.nodes_per_side = decoder.Get<std::uint32_t>();
  const auto hypotheses = decoder.Get<std::uint32_t>();
  std::vector<std::uint8_t> counts;
  decoder.GetArray(std::uint64_t{refinement.nodes_per_side} * refinement.nodes_per_side, counts);
  decoder.GetArray(hypotheses, refinement.hypotheses);
  decoder.End();
  refinement.first.assign(1, 0);
  for (const std::uint8_t count : counts) {
    refinement.first.push_back(refinement.first.back() + count);
  }
  if (refinement.first.back() != hypotheses) {
    throw EncodingError("the refinement of a cell does not add up");
  }
  if (refinement.nodes_per_side == 0 ||
      !std::all_of(refinement.hypotheses.begin(), refinement.hypotheses.end(),
                   [](const Hypothesis& hypothesis) { return IsPossible(hypothesis); })) {
    throw EncodingError("the refinement of a cell holds a value that no refinement has");
  }
}

}  // namespace quarro::core
