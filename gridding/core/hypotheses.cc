#include "gridding/core/hypotheses.h"

#include <algorithm>
#include <cmath>

namespace quarro::core {

float HypothesisStrength(std::span<const Hypothesis> hypotheses) {
  if (hypotheses.size() < 2) return 0.0F;
  std::uint32_t runner_up = 0;
  for (const Hypothesis& other : hypotheses.subspan(1)) {
    runner_up = std::max(runner_up, other.sample_count);
  }
  const float ratio =
      static_cast<float>(runner_up) / static_cast<float>(hypotheses.front().sample_count);
  return std::min(5.0F, 5.0F * ratio);
}

bool IsPossible(const Hypothesis& hypothesis) {
  return std::isfinite(hypothesis.depth_m) && std::isfinite(hypothesis.variance_m2) &&
         hypothesis.variance_m2 >= 0.0F;
}

void OrderBySupport(std::span<Hypothesis> hypotheses) {
  if (hypotheses.size() < 2) return;
  std::sort(hypotheses.begin(), hypotheses.end(), [](const Hypothesis& a, const Hypothesis& b) {
    if (a.sample_count != b.sample_count) return a.sample_count > b.sample_count;
    if (a.depth_m != b.depth_m) return a.depth_m < b.depth_m;
    return a.variance_m2 < b.variance_m2;
  });
}

}  // namespace quarro::core
