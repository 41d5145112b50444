// Any bytes as the soundings that a grid keeps of a cell and its neighbours, refined. The first
// bytes say how many lines there are, how the bytes fall to cells and how fine the nodes are.
#include <algorithm>
#include <array>
#include <cstring>

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/harness.h"
#include "gridding/core/encoding.h"
#include "gridding/core/refinement.h"

namespace {

using quarro::core::CellSoundings;

constexpr std::uint32_t kMostNodes = 20;

CellSoundings Cell(FuzzedDataProvider& input) {
  CellSoundings cell;
  const auto lines = input.ConsumeIntegralInRange<std::uint32_t>(0, 3);
  for (std::uint32_t line = 1; line <= lines; ++line) {
    const auto count = input.ConsumeIntegralInRange<std::uint32_t>(0, 12);
    const auto bytes =
        input.ConsumeBytes<std::uint8_t>(count * sizeof(quarro::core::PackedSounding));
    const std::size_t whole = bytes.size() / sizeof(quarro::core::PackedSounding);
    const std::size_t before = cell.soundings.size();
    cell.soundings.resize(before + whole);
    if (whole != 0) {
      std::memcpy(&cell.soundings[before], bytes.data(),
                  whole * sizeof(quarro::core::PackedSounding));
    }
    cell.runs.push_back({line, static_cast<std::uint32_t>(whole)});
  }
  return cell;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  quarro::core::GridSettings settings;
  settings.resolution_m = 32.0;
  settings.min_resolution_m = 0.5;
  static quarro::core::CellRefiner refiner(settings);

  FuzzedDataProvider input(data, size);
  const auto side = input.ConsumeIntegralInRange<std::uint32_t>(2, kMostNodes);
  const auto present = input.ConsumeIntegral<std::uint16_t>();
  std::array<CellSoundings, 9> cells;
  quarro::core::Neighbourhood neighbourhood{};
  for (std::size_t i = 0; i < cells.size(); ++i) {
    if (i != quarro::core::kCentre && ((present >> i) & 1U) == 0) continue;
    cells[i] = Cell(input);
    neighbourhood[i] = &cells[i];
  }
  quarro::core::Refinement refinement;
  try {
    refiner.Refine(side, neighbourhood, refinement);
  } catch (const quarro::core::EncodingError&) {
    return 0;  // a value that no sounding has
  }
  quarro::fuzz::Require(refinement.first.size() == std::size_t{side} * side + 1 &&
                            refinement.first.back() == refinement.hypotheses.size(),
                        "every node has its list of hypotheses");
  std::vector<std::byte> bytes;
  quarro::core::Encode(refinement, bytes);
  quarro::core::Refinement copy;
  quarro::core::Decode(bytes, copy);
  quarro::fuzz::Require(copy.first == refinement.first, "a refinement is read as it was written");
  return 0;
}
