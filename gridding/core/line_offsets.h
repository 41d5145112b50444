// Survey lines that disagree: a tide, a draught or a sound speed that was wrong on one of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "gridding/core/local_trend.h"
#include "gridding/core/node_estimator.h"
#include "gridding/core/settings.h"

namespace quarro::core {

// Finds the offsets between the lines of a cell. A node holds too few soundings to tell an offset
// of two standard deviations from noise, but a cell has hundreds of places that two lines have
// sounded both. The offset of a pair of lines is the median of the differences of their medians at
// those places, and is taken for real when it exceeds `offset_sigmas` times its own standard
// uncertainty, which the scatter of the differences tells.
//
// Where an offset is real, each node asks whether it matters there: whether it exceeds
// `split_sigmas` standard uncertainties of the difference between what the lines say of the node.
// If so, lines that disagree are estimated apart, and the node has a hypothesis of each.
//
// One thread an object, which keeps its working memory.
class LineOffsets {
 public:
  explicit LineOffsets(const EstimatorSettings& settings) : settings_(settings) {}

  void Clear();
  // The soundings of one small block, those of a line together.
  void AddBlock(std::span<const NodeSounding> soundings, const LocalTrend& trend);
  // After the last block.
  void Conclude();

  // The soundings of one node, in the order of lines, as parts that are to be estimated apart: one
  // part, `soundings` itself, unless an offset matters here. What it gives is valid until the next
  // call.
  std::span<const std::span<const NodeSounding>> Parts(std::span<const NodeSounding> soundings);

 private:
  struct BlockLine {
    std::size_t index;  // of the line
    double depth_m;
  };
  struct Pair {
    std::vector<double> differences_m;  // of the later line from the earlier
    double offset_m = 0.0;
    bool real = false;
  };
  std::size_t IndexOf(std::uint32_t line);
  Pair& PairOf(std::size_t earlier, std::size_t later);
  void Judge(Pair& pair) const;
  bool JoinsGroup(std::size_t line, std::size_t group);
  bool Matters(std::size_t a, std::size_t b) const;

  EstimatorSettings settings_;
  std::vector<std::uint32_t> lines_;  // that share a block with another, as they came
  std::vector<std::size_t> groups_;   // one a line: lines that agree
  std::size_t group_count_ = 0;
  std::vector<Pair> pairs_;              // of line i and j < i at i (i - 1) / 2 + j
  std::vector<double> group_offsets_m_;  // greatest real offset between two groups, row-major

  std::vector<BlockLine> block_;
  std::vector<double> depths_m_;
  std::vector<double> information_;  // 1 / variance of the mean of a group's soundings at a node
  std::vector<NodeSounding> ordered_;
  std::vector<std::span<const NodeSounding>> parts_;
};

}  // namespace quarro::core
