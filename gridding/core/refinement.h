// The nodes of a refined cell.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "gridding/core/cell_state.h"
#include "gridding/core/hypotheses.h"
#include "gridding/core/line_offsets.h"
#include "gridding/core/local_trend.h"
#include "gridding/core/node_estimator.h"
#include "gridding/core/packed_sounding.h"
#include "gridding/core/settings.h"

namespace quarro::core {

// All soundings of one cell, in the order of lines and, in each, of the file.
struct CellSoundings {
  std::vector<PackedSounding> soundings;
  std::vector<LineRun> runs;  // ascending lines; their counts add up to all soundings
};

// A cell and its eight neighbours, row-major from the south-west; null for one without data.
using Neighbourhood = std::array<const CellSoundings*, 9>;
inline constexpr std::size_t kCentre = 4;

// n x n nodes with spacing resolution / n, centred in the cell, row-major from the south-west.
struct Refinement {
  std::uint32_t nodes_per_side = 0;
  std::vector<std::uint32_t> first;    // n * n + 1: where each node's hypotheses begin
  std::vector<Hypothesis> hypotheses;  // of all nodes, each in order of support

  std::span<const Hypothesis> Node(std::size_t index) const {
    return std::span(hypotheses).subspan(first[index], first[index + 1] - first[index]);
  }
  std::span<Hypothesis> MutableNode(std::size_t index) {
    return std::span(hypotheses).subspan(first[index], first[index + 1] - first[index]);
  }
};

// Refines cells one after another. One thread an object, which keeps its working memory.
class CellRefiner {
 public:
  explicit CellRefiner(const GridSettings& settings)
      : settings_(settings),
        estimator_(settings.estimator),
        offsets_(settings.estimator),
        steepness_(settings.estimator),
        noise_(settings.estimator) {}

  // `nodes_per_side` of at least 2. Nodes near the edge take soundings of the neighbours too; those
  // of one line come before those of the next whichever cell they lie in. `traced_node` is the
  // index of the node whose steps go to `trace`, which may be null. Throws EncodingError for a
  // sounding with a value that none has.
  void Refine(std::uint32_t nodes_per_side, const Neighbourhood& cells, Refinement& out,
              EstimatorTrace* trace = nullptr, std::size_t traced_node = 0);

 private:
  struct Placed {
    NodeSounding sounding;  // of the cell's node
    std::uint32_t row;      // of its bucket
    std::uint32_t column;
  };

  struct Capture {
    std::uint32_t node;
    std::uint32_t place;  // in placed_
  };

  void Collect(const Neighbourhood& cells);
  void CollectRun(std::span<const PackedSounding> run, std::uint32_t line, double shift_east_m,
                  double shift_north_m);
  void FillBuckets();
  void FindMedians();
  double UnknownSlope() const;
  void FindTrends();
  void FindNoise();
  void FindLineOffsets();
  void EstimateNode(std::span<const NodeSounding> captured, const NodeSurroundings& surroundings,
                    EstimatorTrace* trace);
  void FindCaptures();
  void SortByNode(std::span<const Capture> captures);
  std::span<const NodeSounding> CapturedBy(std::size_t node);
  double NodeOffset(std::int32_t index) const;
  std::span<const NodeSounding> Bucket(std::size_t bucket) const;

  GridSettings settings_;
  NodeEstimator estimator_;
  LineOffsets offsets_;
  SteepnessCheck steepness_;
  std::uint32_t side_ = 0;  // nodes along a side
  std::uint32_t buckets_ =
      0;  // buckets along a side: the nodes' own squares and a ring around them
  double spacing_m_ = 0.0;
  double noise_scale_ = 1.0;

  std::vector<Placed> placed_;                 // in the order in which nodes take them
  std::vector<std::uint32_t> bucket_starts_;   // one more than buckets
  std::vector<NodeSounding> bucketed_;         // bucket by bucket
  std::vector<BlockMedian> medians_;           // one a bucket
  std::vector<LocalTrend> trends_;             // one a node
  std::vector<Capture> candidates_;            // sounding by sounding
  std::vector<std::uint32_t> capture_starts_;  // one more than nodes
  std::vector<std::uint32_t> captures_;        // places in placed_, node by node
  std::vector<NodeSounding> captured_;         // of one node
  NoiseScale noise_;

  std::vector<std::uint32_t> next_;
  BlockMedianFinder median_finder_;
  HypothesisList hypotheses_;
  HypothesisList part_;
};

// Encode replaces `out`. Decode throws EncodingError for bytes that are no refinement.
void Encode(const Refinement& refinement, std::vector<std::byte>& out);
void Decode(std::span<const std::byte> bytes, Refinement& refinement);

}  // namespace quarro::core
