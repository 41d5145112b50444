#include "gridding/service/grid_refiner.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include "gridding/service/block_chooser.h"
#include "gridding/service/block_refiner.h"
#include "gridding/service/cell_blocks.h"
#include "gridding/service/engine_log.h"
#include "gridding/service/estimated_blocks.h"
#include "gridding/service/failures.h"
#include "gridding/service/task_body.h"

namespace quarro::service {

namespace {

// Of refinements that wait for the choice; more go to a file, whose pages the system keeps in
// memory as long as nobody else wants it, so that it costs no time.
constexpr std::uint64_t kMostWaitingBytes = std::uint64_t{32} << 20U;

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
  std::string MemoryExcess() { return gate_.Excess(); }
  void Return(std::unique_ptr<Worker> worker) {
    const std::lock_guard lock(mutex_);
    idle_.push_back(std::move(worker));
  }

 private:
  MemoryGate gate_;
  std::mutex mutex_;  // guards idle_
  std::vector<std::unique_ptr<Worker>> idle_;
};

// Gives blocks out to the threads, and keeps the first failure. Any thread.
class BlockStream {
 public:
  // As many results are in work at the same time as there are `slots`. The references must outlive
  // this.
  BlockStream(const CellBlocks& cells, const CancelFlag& cancelled, std::size_t slots)
      : cancelled_(cancelled),
        next_(cells.blocks().begin()),
        end_(cells.blocks().end()),
        results_(slots) {
    for (BlockResult& result : results_) free_.push_back(&result);
  }
  std::size_t slots() const { return results_.size(); }

  // The next block, to be given back; null at the end and after a failure.
  BlockResult* Next() {
    const std::lock_guard lock(mutex_);
    if (next_ == end_ || failure_ || cancelled_.IsSet()) return nullptr;
    BlockResult* const result = free_.back();
    free_.pop_back();
    result->block = *next_++;
    result->cells.clear();
    return result;
  }
  void GiveBack(BlockResult* result) {
    const std::lock_guard lock(mutex_);
    free_.push_back(result);
  }

  // Calls `action` unless there was a failure, which this may be.
  template <typename Action>
  void Do(const Action& action) {
    if (HasFailed()) return;
    try {
      action();
    } catch (...) {
      const Failure caught(std::current_exception());
      const std::lock_guard lock(mutex_);
      if (!failure_) failure_ = caught;
    }
  }
  // Throws the failure.
  void Finish() {
    const std::lock_guard lock(mutex_);
    if (failure_) failure_->Throw();
    ThrowIfCancelled(cancelled_);
  }

 private:
  bool HasFailed() {
    const std::lock_guard lock(mutex_);
    return failure_.has_value();
  }

  const CancelFlag& cancelled_;
  std::mutex mutex_;  // guards all below
  CellBlocks::Blocks::const_iterator next_;
  const CellBlocks::Blocks::const_iterator end_;
  std::vector<BlockResult> results_;  // each of the thread that works on it
  std::vector<BlockResult*> free_;
  std::optional<Failure> failure_;
};

// Calls work(worker, block, cells) for every block on `threads` threads, and take(result) for each
// result, one at a time and in the order of the blocks.
template <typename Work, typename Take>
void ForEachBlock(const CellBlocks& cells, WorkerPool& workers, std::uint32_t threads,
                  const CancelFlag& cancelled, const Work& work, const Take& take) {
  using tbb::filter_mode;
  BlockStream blocks(cells, cancelled, 2 * std::size_t{threads});
  const auto next_block = [&](tbb::flow_control& control) {
    BlockResult* const result = blocks.Next();
    if (result == nullptr) control.stop();
    return result;
  };
  const auto work_on = [&](BlockResult* result) {
    auto worker = workers.Take();
    blocks.Do([&] { work(*worker, result->block, result->cells); });
    workers.Return(std::move(worker));
    return result;
  };
  const auto take_result = [&](BlockResult* result) {
    blocks.Do([&] { take(*result); });
    blocks.GiveBack(result);
  };
  HandOver hand_over;
  const auto first = tbb::make_filter<void, BlockResult*>(filter_mode::serial_in_order,
                                                          TaskBody(hand_over, next_block));
  const auto second = tbb::make_filter<BlockResult*, BlockResult*>(filter_mode::parallel,
                                                                   TaskBody(hand_over, work_on));
  const auto third = tbb::make_filter<BlockResult*, void>(filter_mode::serial_in_order,
                                                          TaskBody(hand_over, take_result));
  hand_over.Cross();
  tbb::task_arena arena(static_cast<int>(threads));
  arena.execute([&] { tbb::parallel_pipeline(blocks.slots(), first & second & third); });
  hand_over.Cross();
  blocks.Finish();
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
  EstimatedBlocks estimated(limits.spool_directory,
                            std::min(limits.memory_bytes / 4, kMostWaitingBytes));
  ForEachBlock(
      to_estimate, workers, limits.threads, cancelled,
      [&](Worker& worker, const Block& block, std::vector<RefinedCell>& cells) {
        worker.refiner.Refine(block.first, block.second, traces, cells);
      },
      [&](const BlockResult& result) { estimated.Add(result.block.first, result.cells); });

  const std::string excess = workers.MemoryExcess();
  if (!excess.empty()) LogEngine(kLogWarning, excess);

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
