#include "gridding/service/grid_refiner.h"

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include "gridding/service/block_chooser.h"
#include "gridding/service/block_refiner.h"
#include "gridding/service/cell_blocks.h"
#include "gridding/service/estimated_blocks.h"

namespace quarro::service {

namespace {

using Block = std::pair<core::CellIndex, std::uint64_t>;  // and its mask
struct BlockResult {
  Block block;
  std::vector<RefinedCell> cells;
};

// What one thread works with.
struct Worker {
  Worker(OpenGrid& grid, MemoryGate& gate)
      : snapshot(grid.store->TakeSnapshot()),
        refiner(*snapshot, grid.settings, gate),
        chooser(*snapshot, grid.settings) {}

  std::unique_ptr<store::Snapshot> snapshot;
  BlockRefiner refiner;
  BlockChooser chooser;
};

// As many workers as threads.
class WorkerPool {
 public:
  WorkerPool(OpenGrid& grid, std::uint32_t threads, std::uint64_t memory_bytes)
      : gate_(memory_bytes) {
    for (std::uint32_t i = 0; i < threads; ++i) {
      idle_.push_back(std::make_unique<Worker>(grid, gate_));
    }
  }

  std::unique_ptr<Worker> Take() {
    const std::lock_guard lock(mutex_);
    std::unique_ptr<Worker> taken = std::move(idle_.back());
    idle_.pop_back();
    return taken;
  }
  void Return(std::unique_ptr<Worker> worker) {
    const std::lock_guard lock(mutex_);
    idle_.push_back(std::move(worker));
  }

 private:
  MemoryGate gate_;
  std::mutex mutex_;  // guards idle_
  std::vector<std::unique_ptr<Worker>> idle_;
};

// Calls work(worker, block, cells) for every block on `threads` threads, and take(result) for each
// result, one at a time and in the order of the blocks.
template <typename Work, typename Take>
void ForEachBlock(const CellBlocks& cells, WorkerPool& workers, std::uint32_t threads,
                  const CancelFlag& cancelled, const Work& work, const Take& take) {
  using ResultPtr = std::shared_ptr<BlockResult>;
  // Results pass from thread to thread in the pipeline; these order what the threads read and
  // write, which the library does too, but unseen by a sanitizer.
  std::mutex hand_over;
  std::mutex taking;
  const auto order = [&] { const std::lock_guard lock(hand_over); };
  auto next = cells.blocks().begin();
  const auto next_block = [&](tbb::flow_control& control) -> ResultPtr {
    const std::lock_guard lock(hand_over);
    if (next == cells.blocks().end() || cancelled.IsSet()) {
      control.stop();
      return nullptr;
    }
    auto result = std::make_shared<BlockResult>();
    result->block = *next++;
    return result;
  };
  const auto work_on = [&](const ResultPtr& result) -> ResultPtr {
    order();
    auto worker = workers.Take();
    work(*worker, result->block, result->cells);
    workers.Return(std::move(worker));
    order();
    return result;
  };
  const auto take_result = [&](const ResultPtr& result) {
    order();
    const std::lock_guard lock(taking);
    take(*result);
  };
  order();
  tbb::task_arena arena(static_cast<int>(threads));
  arena.execute([&] {
    tbb::parallel_pipeline(
        2 * static_cast<std::size_t>(threads),
        tbb::make_filter<void, ResultPtr>(tbb::filter_mode::serial_in_order, next_block) &
            tbb::make_filter<ResultPtr, ResultPtr>(tbb::filter_mode::parallel, work_on) &
            tbb::make_filter<ResultPtr, void>(tbb::filter_mode::serial_in_order, take_result));
  });
  const std::lock_guard lock(taking);
  ThrowIfCancelled(cancelled);
}

CellBlocks CellsToEstimate(OpenGrid& grid, const std::string& settings_text) {
  CellBlocks cells;
  const auto snapshot = grid.store->TakeSnapshot();
  if (snapshot->Setting(kRefinedWithSetting) == settings_text) {
    for (const core::CellIndex cell : snapshot->ChangedCells()) cells.AddWithNeighbours(cell);
    return cells;
  }
  const auto extent = snapshot->GetTotals().extent;
  if (!extent) return cells;
  snapshot->VisitCells(*extent, false,
                       [&](const store::Snapshot::Cell& cell) { cells.Add(cell.index); });
  return cells;
}

void Write(const std::vector<RefinedCell>& cells, store::RefinementWriter& writer,
           RefinementSummary& summary) {
  for (const RefinedCell& cell : cells) {
    if (cell.block.empty()) {
      writer.Remove(cell.cell);
      continue;
    }
    writer.Put(cell.cell, cell.block, cell.nodes);
    ++summary.cells;
    summary.nodes += cell.nodes;
  }
}

}  // namespace

RefinementSummary RefineGrid(OpenGrid& grid, const TraceList& traces,
                             const RefinementLimits& limits, const CancelFlag& cancelled) {
  RefinementSummary summary;
  const std::string settings_text = RefinementSettingsText(grid.settings);
  const CellBlocks to_estimate = CellsToEstimate(grid, settings_text);
  if (to_estimate.blocks().empty()) return summary;

  WorkerPool workers(grid, limits.threads, limits.memory_bytes);
  EstimatedBlocks estimated(limits.spool_directory, limits.memory_bytes / 4);
  ForEachBlock(
      to_estimate, workers, limits.threads, cancelled,
      [&](Worker& worker, const Block& block, std::vector<RefinedCell>& cells) {
        worker.refiner.Refine(block.first, block.second, traces, cells);
      },
      [&](const BlockResult& result) { estimated.Add(result.block.first, result.cells); });

  // A node asks nodes of the cells around its own, so their choice is open again too.
  const bool ask = grid.settings.estimator.ask_neighbours;
  const CellBlocks to_choose = ask ? to_estimate.Widened() : to_estimate;
  const auto writer = grid.store->BeginRefinement();
  ForEachBlock(
      to_choose, workers, limits.threads, cancelled,
      [&](Worker& worker, const Block& block, std::vector<RefinedCell>& cells) {
        worker.chooser.Choose(block.first, block.second, estimated, cells);
      },
      [&](const BlockResult& result) { Write(result.cells, *writer, summary); });
  writer->PutSetting(kRefinedWithSetting, settings_text);
  writer->Commit();
  return summary;
}

}  // namespace quarro::service
