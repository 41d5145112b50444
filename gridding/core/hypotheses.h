// Hypotheses of a node's depth, and what a node reports of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace quarro::core {

// A Gaussian of the depth with its support.
struct Hypothesis {
  float depth_m = 0.0F;      // positive down
  float variance_m2 = 0.0F;  // of depth_m as an estimate
  std::uint32_t sample_count : 31 = 0;
  std::uint32_t several_lines : 1 = 0;  // 1 when its soundings are of several survey lines
  friend bool operator==(const Hypothesis&, const Hypothesis&) = default;
};

// A node keeps this many, those with most support; beyond lie lone spikes of crowded nodes.
inline constexpr std::size_t kMostHypotheses = 255;

// Of one node, the reported one first, then by falling sample count. Empty: no data.
using HypothesisList = std::vector<Hypothesis>;

// How strongly the runner-up competes with the reported (first) hypothesis: 5 times the ratio of
// their sample counts, so 0 where there is no other and 5 where another has as much support or
// more. A ratio, since the odds of two explanations of independent soundings go with their counts.
float HypothesisStrength(std::span<const Hypothesis> hypotheses);

// False for values that no estimate gives: what is not finite, a negative variance.
bool IsPossible(const Hypothesis& hypothesis);

// Moves the hypothesis with most samples to the front, the rest by falling sample count; of equals
// the shallower one comes first, since it is the safer to report.
void OrderBySupport(std::span<Hypothesis> hypotheses);

}  // namespace quarro::core
