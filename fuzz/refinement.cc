// Any bytes as the refinement of a cell, and the choice of hypotheses in one that decodes.
#include "gridding/core/refinement.h"

#include <algorithm>
#include <vector>

#include "fuzz/harness.h"
#include "gridding/core/choice.h"
#include "gridding/core/encoding.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto bytes = quarro::fuzz::BytesOf({data, size});
  quarro::core::Refinement refinement;
  try {
    quarro::core::Decode(bytes, refinement);
  } catch (const quarro::core::EncodingError&) {
    return 0;
  }
  std::vector<std::byte> again;
  quarro::core::Encode(refinement, again);
  quarro::fuzz::Require(std::equal(again.begin(), again.end(), bytes.begin(), bytes.end()),
                        "a refinement encodes to the bytes that it was decoded from");
  quarro::fuzz::Require(refinement.nodes_per_side > 0, "a refinement has nodes");

  quarro::core::GridSettings settings;
  settings.resolution_m = 32.0;
  settings.min_resolution_m = 0.5;
  const quarro::core::Refinement stored = refinement;
  quarro::core::RefinedNeighbourhood cells{};
  cells.fill(&stored);
  quarro::core::ChooseHypotheses(cells, settings, refinement);
  quarro::fuzz::Require(refinement.hypotheses.size() == stored.hypotheses.size(),
                        "a choice keeps every hypothesis");
  return 0;
}
