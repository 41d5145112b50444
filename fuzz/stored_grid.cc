// Records of a grid with right checksums and any content: the results that are extracted from them,
// and a refinement of them.
#include <cstring>
#include <limits>
#include <map>
#include <type_traits>

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/harness.h"
#include "gridding/core/cell_state.h"
#include "gridding/core/refinement.h"
#include "gridding/service/block_chooser.h"
#include "gridding/service/block_refiner.h"
#include "gridding/service/extraction.h"

namespace {

using quarro::core::CellIndex;
using quarro::core::CellRange;
using quarro::store::Bytes;

constexpr float kResolution_m = 16.0F;
constexpr std::int32_t kCells = 3;  // along a side

// Values of any bits, zeros when the input has no more.
template <typename Value>
Value Any(FuzzedDataProvider& input) {
  static_assert(std::is_trivially_copyable_v<Value>);
  Value value{};
  input.ConsumeData(&value, sizeof value);
  return value;
}
template <typename Value>
std::vector<Value> AnyList(FuzzedDataProvider& input, std::size_t most) {
  std::vector<Value> list(input.ConsumeIntegralInRange<std::size_t>(0, most));
  for (Value& value : list) value = Any<Value>(input);
  return list;
}

Bytes AnyState(FuzzedDataProvider& input) {
  quarro::core::CellState state;
  state.statistics = Any<quarro::core::CellStatistics>(input);
  state.low = AnyList<quarro::core::Hypothesis>(input, 3);
  state.near = AnyList<quarro::core::PackedSounding>(input, 4);
  state.near_lines = {{1, static_cast<std::uint32_t>(state.near.size())}};
  Bytes bytes;
  quarro::core::Encode(state, bytes);
  return bytes;
}

Bytes AnyRefinement(FuzzedDataProvider& input) {
  quarro::core::Refinement refinement;
  refinement.nodes_per_side = input.ConsumeIntegralInRange<std::uint32_t>(0, 4);
  refinement.first.assign(1, 0);
  for (std::uint32_t i = 0; i < refinement.nodes_per_side * refinement.nodes_per_side; ++i) {
    const auto list = AnyList<quarro::core::Hypothesis>(input, 3);
    refinement.hypotheses.insert(refinement.hypotheses.end(), list.begin(), list.end());
    refinement.first.push_back(static_cast<std::uint32_t>(refinement.hypotheses.size()));
  }
  Bytes bytes;
  quarro::core::Encode(refinement, bytes);
  return bytes;
}

// A few cells around the lattice's origin.
class AnySnapshot : public quarro::store::Snapshot {
 public:
  explicit AnySnapshot(FuzzedDataProvider& input) {
    for (std::int32_t row = 0; row < kCells; ++row) {
      for (std::int32_t column = 0; column < kCells; ++column) {
        if (!input.ConsumeBool()) continue;
        Stored& cell = cells_[{row, column}];
        cell.state = AnyState(input);
        if (input.ConsumeBool()) cell.refinement = AnyRefinement(input);
        const auto blocks = input.ConsumeIntegralInRange<int>(0, 2);
        for (int i = 0; i < blocks; ++i) cell.soundings.push_back(AnyList<std::byte>(input, 100));
      }
    }
  }

  quarro::store::Totals GetTotals() override {
    return {.cells = cells_.size(), .extent = CellRange{{0, 0}, {kCells - 1, kCells - 1}}};
  }
  std::vector<quarro::store::LineRecord> Lines() override { return {}; }
  std::string Setting(const std::string& /*key*/) override { return {}; }
  void VisitCells(const CellRange& range, bool with_refinements,
                  const std::function<void(const Cell&)>& visit) override {
    for (const auto& [index, cell] : cells_) {
      if (!range.Contains(index)) continue;
      visit({.index = index,
             .state = cell.state,
             .refinement = with_refinements ? std::span<const std::byte>(cell.refinement)
                                            : std::span<const std::byte>(),
             .changed = false});
    }
  }
  std::vector<CellIndex> ChangedCells() override { return {}; }
  bool CellState(CellIndex cell, Bytes& state) override {
    state = cells_[cell].state;
    return true;
  }
  void AppendSoundings(CellIndex cell, Bytes& out, std::vector<LineRun>& runs) override {
    std::uint32_t line = 0;
    for (const Bytes& block : cells_[cell].soundings) {
      out.insert(out.end(), block.begin(), block.end());
      runs.push_back({.line = ++line, .bytes = block.size()});
    }
  }

 private:
  struct Stored {
    Bytes state;
    Bytes refinement;
    std::vector<Bytes> soundings;
  };
  std::map<CellIndex, Stored> cells_;
};

// Runs a step that may refuse a record with the reason.
template <typename Step>
void MayRefuse(const Step& step) {
  try {
    step();
  } catch (const quarro::ExTarn&) {
    return;
  }
}

void Refine(quarro::store::Snapshot& snapshot, const quarro::core::GridSettings& settings) {
  constexpr std::uint64_t kAllCells = std::numeric_limits<std::uint64_t>::max();
  constexpr std::uint64_t kHeap = std::uint64_t{1} << 20U;
  quarro::service::MemoryGate gate(kHeap);
  std::vector<quarro::service::RefinedCell> refined;
  quarro::service::BlockRefiner(snapshot, settings, gate).Refine({0, 0}, kAllCells, {}, refined);
  quarro::service::EstimatedBlocks estimated(".", kHeap);
  estimated.Add({0, 0}, refined);
  std::vector<quarro::service::RefinedCell> chosen;
  quarro::service::BlockChooser(snapshot, settings).Choose({0, 0}, kAllCells, estimated, chosen);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const quarro::fuzz::ScratchFolder folder;
  FuzzedDataProvider input(data, size);
  quarro::core::GridSettings settings;
  settings.resolution_m = kResolution_m;
  settings.min_resolution_m = kResolution_m / 6.0;
  AnySnapshot snapshot(input);
  const quarro::service::CancelFlag cancelled;
  quarro::service::Extractor extractor(snapshot, settings, quarro::core::Lattice(kResolution_m),
                                       ".", 1U << 20U, cancelled);
  const quarro::SGBoundingBox box(0.0, 0.0, kCells * kResolution_m, kCells * kResolution_m);
  MayRefuse([&] { extractor.Resolution({box, 1, false}); });
  for (const bool full : {false, true}) {
    MayRefuse([&] { extractor.Depth({box, 2, full}); });
    MayRefuse([&] { extractor.Hypotheses({box, 3, full}); });
  }
  MayRefuse([&] { Refine(snapshot, settings); });
  return 0;
}
