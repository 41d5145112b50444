#include "gridding/service/touched_cells.h"

#include <algorithm>
#include <utility>

#include <tbb/blocked_range.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include "gridding/service/task_body.h"

namespace quarro::service {

namespace {

// A cell that this many chunks did not touch is taken for left behind.
constexpr std::uint64_t kChunksHeld = 4;
constexpr std::size_t kCellsATask = 4;
// What a cell takes beside its fresh soundings: its state with the soundings near its node, that
// state encoded, and the places that keep them.
constexpr std::uint64_t kBytesOfCell = 2048;

}  // namespace

struct TouchedCells::Compute {
  Compute(const core::GridSettings& settings, std::uint32_t threads)
      : arena(static_cast<int>(threads)), estimators(settings) {}

  // Calls body(i) for each i below `count`.
  template <typename Body>
  void ForEach(std::size_t count, const Body& body) {
    const auto task = [&body](const tbb::blocked_range<std::size_t>& range) {
      for (std::size_t i = range.begin(); i != range.end(); ++i) body(i);
    };
    hand_over.Cross();
    arena.execute([&] {
      tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, kCellsATask),
                        TaskBody(hand_over, task));
    });
    hand_over.Cross();
  }

  HandOver hand_over;
  tbb::task_arena arena;
  tbb::enumerable_thread_specific<core::LowResolutionEstimator> estimators;
};

TouchedCells::TouchedCells(store::LineWriter& writer, const core::GridSettings& settings,
                           const TraceList& traces, Line line, const Limits& limits)
    : writer_(writer),
      settings_(settings),
      traces_(traces),
      line_(std::move(line)),
      limits_(limits),
      compute_(std::make_unique<Compute>(settings_, limits.threads)) {}

TouchedCells::~TouchedCells() = default;

std::size_t TouchedCells::Hash::operator()(core::CellIndex cell) const {
  const auto key = (static_cast<std::uint64_t>(static_cast<std::uint32_t>(cell.row)) << 32U) |
                   static_cast<std::uint32_t>(cell.column);
  return static_cast<std::size_t>((key * 0x9e3779b97f4a7c15U) >> 16U);
}

TouchedCells::Cell& TouchedCells::CellAt(core::CellIndex index) {
  std::unique_ptr<Cell>& slot = cells_[index];
  if (!slot) {
    slot = std::make_unique<Cell>();
    held_bytes_ += kBytesOfCell;
    slot->index = index;
    bytes_.clear();
    if (writer_.CellState(index, bytes_)) core::Decode(bytes_, slot->state);
  }
  return *slot;
}

void TouchedCells::Add(const core::BinnedChunk& chunk) {
  ++chunk_;
  std::vector<Cell*> cells;
  cells.reserve(chunk.runs.size());
  for (const auto& run : chunk.runs) {
    Cell& cell = CellAt(run.cell);
    cell.last_chunk = chunk_;
    cells.push_back(&cell);
  }
  compute_->ForEach(cells.size(), [&](std::size_t i) {
    const auto soundings = chunk.SoundingsOf(chunk.runs[i]);
    core::AddSoundings(soundings, line_.sequence, settings_, cells[i]->state);
    cells[i]->fresh.insert(cells[i]->fresh.end(), soundings.begin(), soundings.end());
  });
  soundings_ += chunk.soundings.size();
  held_bytes_ += chunk.soundings.size() * sizeof(core::PackedSounding);
  if (held_bytes_ > limits_.memory_bytes) {
    Finish();
  } else {
    WriteOut([&](const Cell& cell) { return cell.last_chunk + kChunksHeld <= chunk_; });
  }
}

void TouchedCells::Finish() {
  WriteOut([](const Cell&) { return true; });
}

template <typename Leaves>
void TouchedCells::WriteOut(const Leaves& leaves) {
  std::vector<Cell*> leaving;
  for (const auto& [index, cell] : cells_) {
    if (leaves(*cell)) leaving.push_back(cell.get());
  }
  std::sort(leaving.begin(), leaving.end(),
            [](const Cell* a, const Cell* b) { return a->index < b->index; });
  EstimateAndEncode(leaving);
  for (const Cell* cell : leaving) {
    const core::CellIndex index = cell->index;
    writer_.PutCell(index, cell->encoded);
    writer_.AppendSoundings(index, std::as_bytes(std::span(cell->fresh)), cell->fresh.size());
    held_bytes_ -= kBytesOfCell + cell->fresh.size() * sizeof(core::PackedSounding);
    cells_.erase(index);
  }
}

void TouchedCells::EstimateAndEncode(std::vector<Cell*>& cells) {
  compute_->ForEach(cells.size(), [&](std::size_t i) {
    Estimate(*cells[i]);
    core::Encode(cells[i]->state, cells[i]->encoded);
  });
}

void TouchedCells::Estimate(Cell& cell) {
  core::LowResolutionEstimator& estimator = compute_->estimators.local();
  estimator.Estimate(cell.state);
  if (traces_.empty()) return;
  for (const auto& trace : TracesIn(traces_, cell.index)) {
    trace->Step("# low resolution, with line \"" + line_.name + "\"");
    estimator.Estimate(cell.state, trace.get());
    trace->Flush();
  }
}

}  // namespace quarro::service
