// The cells that a line is adding soundings to.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "gridding/core/binning.h"
#include "gridding/core/cell_state.h"
#include "gridding/service/traces.h"
#include "gridding/store/grid_store.h"

namespace quarro::service {

// Holds the decoded states of the cells that the line is over, and writes each to the store with
// its new estimate once the line has moved on. Cells are computed on several threads; what is
// written, and in which order, is the same for any number of them. One thread calls.
class TouchedCells {
 public:
  struct Limits {
    std::uint32_t threads = 1;
    std::uint64_t memory_bytes = 0;  // of cells and soundings held back
  };
  // What line it is; its name is for traces.
  struct Line {
    std::uint32_t sequence = 0;
    std::string name;
  };
  // `writer` and `traces` must outlive this.
  TouchedCells(store::LineWriter& writer, const core::GridSettings& settings,
               const TraceList& traces, Line line, const Limits& limits);
  ~TouchedCells();
  TouchedCells(const TouchedCells&) = delete;
  TouchedCells& operator=(const TouchedCells&) = delete;

  void Add(const core::BinnedChunk& chunk);
  // Writes every cell.
  void Finish();

  std::uint64_t soundings() const { return soundings_; }  // added

 private:
  struct Cell {
    core::CellIndex index;
    core::CellState state;
    std::vector<core::PackedSounding> fresh;  // not yet in the store
    std::uint64_t last_chunk = 0;
    store::Bytes encoded;
  };
  struct Hash {
    std::size_t operator()(core::CellIndex cell) const;
  };
  struct Compute;  // arena and estimators

  Cell& CellAt(core::CellIndex index);
  template <typename Leaves>
  void WriteOut(const Leaves& leaves);
  void EstimateAndEncode(std::vector<Cell*>& cells);
  void Estimate(Cell& cell);

  store::LineWriter& writer_;
  const core::GridSettings settings_;
  const TraceList& traces_;
  const Line line_;
  const Limits limits_;
  std::unique_ptr<Compute> compute_;
  std::unordered_map<core::CellIndex, std::unique_ptr<Cell>, Hash> cells_;
  std::uint64_t chunk_ = 0;
  std::uint64_t soundings_ = 0;
  std::uint64_t held_bytes_ = 0;
  store::Bytes bytes_;
};

}  // namespace quarro::service
