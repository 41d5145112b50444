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
  out.nodes_per_side = side_;
  out.first.assign(1, 0);
  out.hypotheses.clear();
  NodeSurroundings surroundings;
  surroundings.spacing_m = spacing_m_;
  surroundings.noise_scale = noise_scale_;
  for (std::uint32_t row = 0; row < side_; ++row) {
    for (std::uint32_t column = 0; column < side_; ++column) {
      const std::size_t node = static_cast<std::size_t>(row) * side_ + column;
      Capture(row, column);
      surroundings.trend = trends_[node];
      estimator_.Estimate(captured_, surroundings, hypotheses_,
                          node == traced_node ? trace : nullptr);
      out.hypotheses.insert(out.hypotheses.end(), hypotheses_.begin(), hypotheses_.end());
      out.first.push_back(static_cast<std::uint32_t>(out.hypotheses.size()));
    }
  }
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
      CollectRun(std::span(cells[i]->soundings).subspan(next_sounding[i], run.count), line,
                 (static_cast<double>(i % 3) - 1.0) * settings_.resolution_m,
                 (static_cast<double>(i / 3) - 1.0) * settings_.resolution_m);
      next_sounding[i] += run.count;
      ++next_run[i];
    }
  }
}

void CellRefiner::CollectRun(std::span<const PackedSounding> run, std::uint32_t line,
                             double shift_east_m, double shift_north_m) {
  const double edge_m = 0.5 * settings_.resolution_m + spacing_m_;
  const auto bucket_along = [&](double offset_m) {
    const double along = std::floor((offset_m + edge_m) / spacing_m_);
    return static_cast<std::uint32_t>(std::clamp(along, 0.0, buckets_ - 1.0));
  };
  for (const PackedSounding& sounding : run) {
    const double east_m = sounding.east_m + shift_east_m;
    const double north_m = sounding.north_m + shift_north_m;
    if (std::abs(east_m) > edge_m || std::abs(north_m) > edge_m) continue;
    placed_.push_back({.sounding = {.east_m = static_cast<float>(east_m),
                                    .north_m = static_cast<float>(north_m),
                                    .depth_m = sounding.depth_m,
                                    .sigma_v_m = sounding.sigma_v_m(),
                                    .sigma_h_m = sounding.sigma_h_m(),
                                    .line = line},
                       .bucket = bucket_along(north_m) * buckets_ + bucket_along(east_m)});
  }
}

void CellRefiner::FillBuckets() {
  const std::size_t count = static_cast<std::size_t>(buckets_) * buckets_;
  bucket_starts_.assign(count + 1, 0);
  for (const Placed& placed : placed_) ++bucket_starts_[placed.bucket + 1];
  for (std::size_t i = 0; i < count; ++i) bucket_starts_[i + 1] += bucket_starts_[i];
  bucketed_.resize(placed_.size());
  sequence_.resize(placed_.size());
  std::vector<std::uint32_t> next(bucket_starts_.begin(), bucket_starts_.end() - 1);
  for (std::uint32_t i = 0; i < placed_.size(); ++i) {
    const std::uint32_t slot = next[placed_[i].bucket]++;
    bucketed_[slot] = placed_[i].sounding;
    sequence_[slot] = i;
  }
}

std::span<const NodeSounding> CellRefiner::Bucket(std::size_t bucket) const {
  return std::span(bucketed_).subspan(bucket_starts_[bucket],
                                      bucket_starts_[bucket + 1] - bucket_starts_[bucket]);
}

void CellRefiner::FindMedians() {
  medians_.assign(static_cast<std::size_t>(buckets_) * buckets_, {});
  for (std::size_t i = 0; i < medians_.size(); ++i) {
    const auto soundings = Bucket(i);
    if (soundings.empty()) continue;
    depths_m_.clear();
    double east_sum_m = 0.0;
    double north_sum_m = 0.0;
    for (const NodeSounding& sounding : soundings) {
      depths_m_.push_back(sounding.depth_m);
      east_sum_m += sounding.east_m;
      north_sum_m += sounding.north_m;
    }
    const auto count = static_cast<double>(soundings.size());
    medians_[i] = {.east_m = east_sum_m / count,
                   .north_m = north_sum_m / count,
                   .depth_m = MedianOf(depths_m_),
                   .filled = true};
  }
}

void CellRefiner::FindTrends() {
  trends_.resize(static_cast<std::size_t>(side_) * side_);
  std::array<BlockMedian, 9> blocks;
  for (std::size_t row = 0; row < side_; ++row) {
    for (std::size_t column = 0; column < side_; ++column) {
      for (std::size_t i = 0; i < blocks.size(); ++i) {
        blocks[i] = medians_[(row + i / 3) * buckets_ + column + i % 3];
      }
      trends_[row * side_ + column] = TrendAcross(blocks, spacing_m_);
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

void CellRefiner::Capture(std::uint32_t row, std::uint32_t column) {
  const double node_east_m = (column + 0.5) * spacing_m_ - 0.5 * settings_.resolution_m;
  const double node_north_m = (row + 0.5) * spacing_m_ - 0.5 * settings_.resolution_m;
  const double reach_m = settings_.estimator.capture_radius * spacing_m_;
  captured_order_.clear();
  for (std::size_t i = 0; i < 9; ++i) {
    const std::size_t bucket = (row + i / 3) * buckets_ + column + i % 3;
    for (std::uint32_t slot = bucket_starts_[bucket]; slot < bucket_starts_[bucket + 1]; ++slot) {
      const double east_m = bucketed_[slot].east_m - node_east_m;
      const double north_m = bucketed_[slot].north_m - node_north_m;
      if (east_m * east_m + north_m * north_m > reach_m * reach_m) continue;
      captured_order_.push_back((std::uint64_t{sequence_[slot]} << 32U) | slot);
    }
  }
  std::sort(captured_order_.begin(), captured_order_.end());
  captured_.clear();
  for (const std::uint64_t entry : captured_order_) {
    NodeSounding sounding = bucketed_[static_cast<std::uint32_t>(entry)];
    sounding.east_m = static_cast<float>(sounding.east_m - node_east_m);
    sounding.north_m = static_cast<float>(sounding.north_m - node_north_m);
    captured_.push_back(sounding);
  }
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
}

}  // namespace quarro::core
