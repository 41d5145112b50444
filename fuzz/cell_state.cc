// Any bytes as the state of a cell, and what a grid does with one that decodes: adds a line to it,
// estimates its node, and writes it again.
#include "gridding/core/cell_state.h"

#include <algorithm>
#include <vector>

#include "fuzz/harness.h"
#include "gridding/core/encoding.h"

namespace {

using quarro::fuzz::Require;

constexpr std::uint64_t kMany = std::uint64_t{1} << 40U;

quarro::core::GridSettings Settings() {
  quarro::core::GridSettings settings;
  settings.resolution_m = 32.0;
  settings.min_resolution_m = 0.5;
  return settings;
}

void AddLine(quarro::core::CellState& state) {
  const std::uint32_t line = state.near_lines.empty() ? 1 : state.near_lines.back().line + 1;
  const quarro::core::PackedSounding sounding =
      quarro::core::Pack({3.0, 4.0}, {0.0, 0.0}, 20.0F, 0.1F, 0.2F);
  quarro::core::AddSoundings({&sounding, 1}, line, Settings(), state);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static quarro::core::LowResolutionEstimator estimator(Settings());
  const auto bytes = quarro::fuzz::BytesOf({data, size});
  quarro::core::CellState state;
  try {
    quarro::core::Decode(bytes, state);
  } catch (const quarro::core::EncodingError&) {
    return 0;
  }
  std::vector<std::byte> again;
  quarro::core::Encode(state, again);
  Require(std::equal(again.begin(), again.end(), bytes.begin(), bytes.end()),
          "a state encodes to the bytes that it was decoded from");
  Require(quarro::core::NodesPerSide(state.statistics, Settings()) <= 64,
          "nodes are no closer than the minimum resolution");
  // One more than the most that a cell is taken to have would be refused.
  if (state.statistics.soundings > kMany) return 0;
  AddLine(state);
  estimator.Estimate(state);
  quarro::core::Encode(state, again);
  quarro::core::CellState copy;
  quarro::core::Decode(again, copy);
  return 0;
}
