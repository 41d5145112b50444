// What the calling thread does: accepting requests. grid_session_work.cc has the grid thread's
// part.
#include "gridding/service/grid_session.h"

#include <cmath>
#include <limits>
#include <locale>
#include <sstream>
#include <system_error>
#include <utility>

#include "engine/exceptions.h"
#include "gridding/service/extraction.h"
#include "gridding/service/grid_session_jobs.h"
#include "gridding/service/queries.h"

namespace quarro::service {

namespace {

constexpr const char* kNoGrid = "no grid is open";
constexpr float kWidestCell_m = 100000.0F;
constexpr float kClosestNodes_m = 0.001F;

template <typename Result>
void Deliver(Delivery& delivery, const RequestPtr& request, Result result) {
  delivery.Deliver(request, std::make_unique<Result>(std::move(result)), sizeof(Result));
}

// Low-resolution cells in a box that may be refused for having too many.
double CellsIn(const core::Lattice& lattice, const SGBoundingBox& box) {
  core::CellRange range;
  if (!lattice.CellsInBox(box.west(), box.south(), box.east(), box.north(), range)) return 1.0;
  const double cells = static_cast<double>(range.Rows()) * static_cast<double>(range.Columns());
  return cells > static_cast<double>(kMostCellsInResult) ? 0.0 : cells;
}

Finished Run(Extractor& extractor, RequestKind kind, const ExtractRequest& request) {
  switch (kind) {
    case RequestKind::kResolution:
      return extractor.Resolution(request);
    case RequestKind::kDepth:
      return extractor.Depth(request);
    default:
      return extractor.Hypotheses(request);
  }
}

void CheckResolutions(float resolution_m, float min_resolution_m) {
  const auto text = [&] {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << "a resolution of " << resolution_m << " m with a minimum of " << min_resolution_m
        << " m ";
    return out.str();
  };
  if (!std::isfinite(resolution_m) || !std::isfinite(min_resolution_m) || resolution_m <= 0.0F ||
      min_resolution_m <= 0.0F) {
    throw ExSGClientBase(text() + "is refused: both must be finite and above 0");
  }
  if (min_resolution_m > resolution_m) {
    throw ExSGClientBase(text() + "is refused: the minimum must not be above the resolution");
  }
  if (resolution_m > kWidestCell_m || min_resolution_m < kClosestNodes_m) {
    throw ExSGClientBase(text() +
                         "is refused: cells are at most 100 km wide, and nodes at least 1 mm "
                         "apart");
  }
}

// The cell that column and row, counted from the south-west cell of the grid's bounds, name.
core::CellIndex CountedCell(store::Snapshot& snapshot, std::uint32_t column, std::uint32_t row) {
  const auto extent = snapshot.GetTotals().extent;
  if (!extent) throw ExSGClientBase("the grid has no data yet, from which cells could be counted");
  if (column >= extent->Columns() || row >= extent->Rows()) {
    throw ExSGClientBase("column " + std::to_string(column) + " row " + std::to_string(row) +
                         " is no cell of the grid, which has " + std::to_string(extent->Columns()) +
                         " columns and " + std::to_string(extent->Rows()) +
                         " rows, counted from 0 in the south-west");
  }
  return {static_cast<std::int32_t>(extent->south_west.row + std::int64_t{row}),
          static_cast<std::int32_t>(extent->south_west.column + std::int64_t{column})};
}

}  // namespace

GridSession::GridSession(EngineConfig config, Delivery& delivery)
    : config_(std::move(config)),
      delivery_(delivery),
      thread_limit_(LimitThreads(config_.threads)),
      traces_(config_.working_directory),
      requests_(kRequestThreads, delivery),
      grid_work_(1, delivery) {
  std::error_code error;
  if (!std::filesystem::is_directory(config_.working_directory, error)) {
    throw ExSGClientBase("the working directory \"" + config_.working_directory.string() +
                         "\" is no directory: make it, or set WorkingDirectory of section Engine");
  }
}

GridSession::~GridSession() { Finish(); }

void GridSession::Finish() {
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(finished_, true)) return;
  }
  delivery_.WaitForAll();
  current_.Set(nullptr);
}

void GridSession::CancelAll(const char* reason) {
  CancelBefore(std::numeric_limits<std::uint64_t>::max(), reason);
}

void GridSession::CancelBefore(std::uint64_t sequence, const char* reason) {
  grid_work_.CancelBefore(sequence, reason);
  requests_.CancelBefore(sequence, reason);
  delivery_.FailUnannounced(sequence, std::make_exception_ptr(ExSGClientBase(reason)));
}

void GridSession::RequestServerStatistics(const ResultCallback& on_done) {
  ResultServStats statistics;
  statistics.threads = config_.threads;
  statistics.priority_queue_length = static_cast<std::uint32_t>(requests_.waiting());
  statistics.run_queue_length = static_cast<std::uint32_t>(grid_work_.unfinished());
  statistics.priority_queue_duration_s = static_cast<float>(requests_.ExpectedSeconds());
  statistics.results_waiting = static_cast<std::uint32_t>(delivery_.pool().size());
  Deliver(delivery_, delivery_.Accept(on_done, RequestKind::kStatistics, Order::kFree), statistics);
}

// The grid as it is now; without one the request has failed.
GridSession::Lease GridSession::TakeLease(const RequestPtr& request, CurrentGrid::Use use) {
  try {
    Lease lease = current_.TakeLease(use);
    if (!lease) throw ExSGCNoGrid(kNoGrid);
    return lease;
  } catch (...) {
    delivery_.Fail(request, std::current_exception());
    return nullptr;
  }
}

void GridSession::SubmitTrace(const ResultCallback& on_done,
                              const std::function<std::string(CurrentGrid::Lease&)>& change) {
  const RequestPtr request = delivery_.Accept(on_done, RequestKind::kTrace, Order::kFree);
  const Lease lease = TakeLease(request, CurrentGrid::Use::kNow);
  if (!lease) return;
  try {
    ResultDebug result;
    result.output_file = change(*lease);
    Deliver(delivery_, request, std::move(result));
  } catch (...) {
    delivery_.Fail(request, std::current_exception());
  }
}

void GridSession::DebugCell(std::uint32_t column, std::uint32_t row, bool on,
                            const ResultCallback& on_done) {
  SubmitTrace(on_done, [&](CurrentGrid::Lease& lease) {
    const core::Lattice& lattice = lease.grid().lattice;
    const core::CellIndex cell = CountedCell(*lease.state().Borrow(), column, row);
    const core::Position node = lattice.NodeOf(cell);
    return on ? traces_.Start(Trace::Place::kCell, lease.grid().store->Name(), lattice, cell, node)
              : traces_.Stop(Trace::Place::kCell, cell, node);
  });
}

void GridSession::DebugAt(double easting_m, double northing_m, bool on,
                          const ResultCallback& on_done) {
  SubmitTrace(on_done, [&](CurrentGrid::Lease& lease) {
    const core::Lattice& lattice = lease.grid().lattice;
    if (!lattice.InReach(easting_m, northing_m)) {
      throw ExSGClientBase("the position " + std::to_string(easting_m) + " " +
                           std::to_string(northing_m) + " lies beyond the reach of the grid");
    }
    const core::CellIndex cell = lattice.CellOf(easting_m, northing_m);
    const core::Position at{easting_m, northing_m};
    return on ? traces_.Start(Trace::Place::kPosition, lease.grid().store->Name(), lattice, cell,
                              at)
              : traces_.Stop(Trace::Place::kPosition, cell, at);
  });
}

void GridSession::DebugOffEverywhere(const ResultCallback& on_done) {
  SubmitTrace(on_done, [&](CurrentGrid::Lease&) { return traces_.StopAll(); });
}

void GridSession::RequestQuery(std::uint32_t kind, const ResultCallback& on_done) {
  const RequestPtr request = delivery_.Accept(on_done, RequestKind::kQuery, Order::kFree);
  if (kind == kQueryTraces || kind == kQueryResults) {
    ResultQuery result;
    result.lines = kind == kQueryTraces ? traces_.Describe() : delivery_.pool().Describe();
    if (result.lines.empty()) result.lines.emplace_back("no results wait");
    Deliver(delivery_, request, std::move(result));
    return;
  }
  if (kind != kQueryStatus && kind != kQueryBounds) {
    delivery_.Fail(request, std::make_exception_ptr(ExSGClientBase("there is no query of kind " +
                                                                   std::to_string(kind))));
    return;
  }
  const Lease lease = TakeLease(request, CurrentGrid::Use::kNow);
  if (!lease) return;
  try {
    AnswerOfGrid(kind, *lease, request);
  } catch (...) {
    delivery_.Fail(request, std::current_exception());
  }
}

void GridSession::AnswerOfGrid(std::uint32_t kind, CurrentGrid::Lease& lease,
                               const RequestPtr& request) {
  const OpenGrid& grid = lease.grid();
  const GridState::Loan snapshot = lease.state().Borrow();
  if (kind == kQueryBounds) {
    ResultBBox result;
    result.bounds = BoundsOfGrid(grid.lattice, (*snapshot).GetTotals());
    Deliver(delivery_, request, result);
    return;
  }
  ResultQuery result;
  result.lines =
      DescribeGrid(grid.store->Name(), grid.store->Parameters(), grid.lattice, *snapshot);
  Deliver(delivery_, request, std::move(result));
}

void GridSession::PurgeResults(const std::set<std::uint32_t>& result_numbers,
                               const ResultCallback& on_done) {
  const RequestPtr request = delivery_.Accept(on_done, RequestKind::kPurge, Order::kFree);
  delivery_.pool().Purge(result_numbers);
  Deliver(delivery_, request, ResultPosAck());
}

void GridSession::PurgeAllResults(const ResultCallback& on_done) {
  const RequestPtr request = delivery_.Accept(on_done, RequestKind::kPurge, Order::kFree);
  delivery_.pool().PurgeAll();
  Deliver(delivery_, request, ResultPosAck());
}

void GridSession::SubmitExtract(RequestKind kind, const SGBoundingBox& box,
                                std::uint32_t result_number, bool full_resolution,
                                const ResultCallback& on_done) {
  const RequestPtr request = delivery_.Accept(on_done, kind, Order::kFree, result_number);
  const Lease lease = TakeLease(request, CurrentGrid::Use::kLater);
  if (!lease) return;
  const ExtractRequest asked{box, result_number, full_resolution};
  const RequestSize size{CellsIn(lease->grid().lattice, box), full_resolution};
  requests_.Submit(request, size, [this, kind, lease, asked](const CancelFlag& cancelled) {
    const OpenGrid& grid = lease->grid();
    const GridState::Loan snapshot = lease->state().Borrow();
    Extractor extractor(*snapshot, grid.settings, grid.lattice, config_.working_directory,
                        config_.result_heap_bytes, cancelled);
    Finished finished = Run(extractor, kind, asked);
    ThrowIfCancelled(cancelled);
    return finished;
  });
}

void GridSession::RequestResolution(const SGBoundingBox& box, std::uint32_t result_number,
                                    const ResultCallback& on_done) {
  SubmitExtract(RequestKind::kResolution, box, result_number, false, on_done);
}

void GridSession::RequestDepth(const SGBoundingBox& box, std::uint32_t result_number,
                               bool full_resolution, const ResultCallback& on_done) {
  SubmitExtract(RequestKind::kDepth, box, result_number, full_resolution, on_done);
}

void GridSession::RequestHypotheses(const SGBoundingBox& box, std::uint32_t result_number,
                                    bool full_resolution, const ResultCallback& on_done) {
  SubmitExtract(RequestKind::kHypotheses, box, result_number, full_resolution, on_done);
}

void GridSession::ConstructGrid(const std::string& name, float resolution_m, float min_resolution_m,
                                const ResultCallback& on_done) {
  CheckResolutions(resolution_m, min_resolution_m);
  const store::GridParameters parameters{resolution_m, min_resolution_m};
  SubmitOpening(name, &parameters, on_done);
}

void GridSession::LoadGrid(const std::string& name, const ResultCallback& on_done) {
  SubmitOpening(name, nullptr, on_done);
}

void GridSession::SubmitOpening(const std::string& name, const store::GridParameters* parameters,
                                const ResultCallback& on_done) {
  OpenGridJob job;
  job.request = delivery_.Accept(on_done, RequestKind::kOpenGrid, Order::kAfterAllEarlier);
  job.name = name;
  if (parameters != nullptr) job.parameters = *parameters;
  EndLineRun();
  {
    const std::lock_guard lock(mutex_);
    grid_changes_.emplace_back(job.request->sequence, true);
  }
  grid_work_.Submit(job.request, {}, [this, job](const CancelFlag&) { return Open(job); });
}

// A line submitted next does not follow a line directly.
void GridSession::EndLineRun() {
  const std::lock_guard lock(mutex_);
  last_line_.reset();
}

bool GridSession::GridToCome() {
  {
    const std::lock_guard lock(mutex_);
    if (!grid_changes_.empty()) return grid_changes_.back().second;
  }
  return current_.HasGrid();
}

void GridSession::AddLine(const std::string& file_name, std::uint32_t line_id, bool rendezvous,
                          const ResultCallback& on_done) {
  if (!GridToCome()) {
    throw ExSGCNoGrid("no grid is open, so line \"" + file_name + "\" was not taken");
  }
  auto job = std::make_shared<LineJob>();
  job->request = delivery_.Accept(on_done, RequestKind::kLine, Order::kInOrder);
  job->file_name = file_name;
  job->line_id = line_id;
  job->rendezvous = rendezvous;
  {
    const std::lock_guard lock(mutex_);
    if (last_line_) last_line_->next = job;
    last_line_ = job;
  }
  grid_work_.Submit(job->request, {},
                    [this, job](const CancelFlag& cancelled) { return RunLine(job, cancelled); });
}

void GridSession::DropGrid(bool asap, const ResultCallback& on_done) {
  const RequestPtr request =
      delivery_.Accept(on_done, RequestKind::kDropGrid, Order::kAfterAllEarlier);
  {
    const std::lock_guard lock(mutex_);
    grid_changes_.emplace_back(request->sequence, false);
  }
  if (asap) CancelBefore(request->sequence, "the grid was dropped at once");
  SubmitBarrier(request, [this](const CancelFlag&) {
    GridForWork();
    current_.Set(nullptr);
    traces_.StopAll();
  });
}

void GridSession::SynchGrid(const ResultCallback& on_done) {
  const RequestPtr request =
      delivery_.Accept(on_done, RequestKind::kSynchGrid, Order::kAfterAllEarlier);
  SubmitBarrier(request, [this](const CancelFlag& cancelled) {
    ThrowIfCancelled(cancelled);
    Synchronise();
  });
}

}  // namespace quarro::service
