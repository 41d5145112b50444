// What the grid thread does: opening grids, lines, and the other barriers.
#include <algorithm>
#include <limits>
#include <utility>

#include <tbb/global_control.h>

#include "gridding/service/engine_log.h"
#include "gridding/service/extraction.h"
#include "gridding/service/failures.h"
#include "gridding/service/grid_refiner.h"
#include "gridding/service/grid_session.h"
#include "gridding/service/grid_session_jobs.h"
#include "gridding/service/line_ingest.h"

namespace quarro::service {

namespace {

// Of the engine's memory, what soundings in refinement may take; the rest is for blocks that wait
// to be written, snapshots, and the store.
constexpr std::uint64_t kRefinementShare = 2;

SGBoundingBox BoundsOf(const OpenGrid& grid) {
  return BoundsOfGrid(grid.lattice, grid.store->TakeSnapshot()->GetTotals());
}

std::uint32_t Capped(std::uint64_t count) {
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(count, std::numeric_limits<std::uint32_t>::max()));
}

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

void LogFailure(const std::string& what, const std::exception_ptr& failure) {
  LogEngine(kLogRefusal, what + " failed: " + ReasonOf(failure));
}

}  // namespace

std::shared_ptr<void> GridSession::LimitThreads(std::uint32_t threads) {
  return std::make_shared<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                               threads);
}

// Ends a change of the grid that was to come, however it came out.
class GridSession::ChangeEnd {
 public:
  ChangeEnd(GridSession& session, std::uint64_t sequence)
      : session_(session), sequence_(sequence) {}
  ~ChangeEnd() { session_.EndGridChange(sequence_); }
  ChangeEnd(const ChangeEnd&) = delete;
  ChangeEnd& operator=(const ChangeEnd&) = delete;

 private:
  GridSession& session_;
  std::uint64_t sequence_;
};

OpenGrid& GridSession::GridForWork() {
  OpenGrid* grid = current_.grid();
  if (grid == nullptr) throw ExSGCNoGrid("no grid is open");
  return *grid;
}

void GridSession::SubmitBarrier(const RequestPtr& request,
                                std::function<void(const CancelFlag&)> work) {
  EndLineRun();
  grid_work_.Submit(request, {},
                    [this, request, work = std::move(work)](const CancelFlag& cancelled) {
                      const ChangeEnd end(*this, request->sequence);
                      try {
                        work(cancelled);
                      } catch (...) {
                        LogFailure(RequestKindText(request->kind), std::current_exception());
                        throw;
                      }
                      return FinishedWith(ResultPosAck());
                    });
}

void GridSession::EndGridChange(std::uint64_t sequence) {
  const std::lock_guard lock(mutex_);
  std::erase_if(grid_changes_, [&](const auto& change) { return change.first == sequence; });
}

Finished GridSession::Open(const OpenGridJob& job) {
  const ChangeEnd end(*this, job.request->sequence);
  try {
    const OpenGrid* current = current_.grid();
    const bool is_current = current != nullptr && current->store->Name() == job.name;
    ResultGridLoaded result;
    if (!is_current) {
      // What can fail comes first: a client that is told of a failure goes on with the old grid.
      std::unique_ptr<OpenGrid> next = OpenNew(job);
      result.bounds = BoundsOf(*next);
      current_.Set(std::move(next));
      traces_.StopAll();
    } else if (job.parameters) {
      ReplaceCurrent(job);
      traces_.StopAll();
    } else {
      result.bounds = BoundsOf(GridForWork());
    }
    LogEngine(kLogStep, "grid " + Quoted(job.name) + " is open");
    return FinishedWith(result);
  } catch (...) {
    LogFailure((job.parameters ? "making grid " : "loading grid ") + Quoted(job.name),
               std::current_exception());
    throw;
  }
}

std::unique_ptr<OpenGrid> GridSession::OpenNew(const OpenGridJob& job) {
  try {
    return OpenStore(job);
  } catch (const store::GridInUse& refusal) {
    if (!refusal.by_this_process() || !config_.holder_of) throw;
    const std::string holder = config_.holder_of(job.name);
    if (holder.empty()) throw;
    throw ExSGClientBase(refusal.who() + ", for " + holder);
  }
}

std::unique_ptr<OpenGrid> GridSession::OpenStore(const OpenGridJob& job) {
  if (job.parameters) {
    std::string set_aside_as;
    auto created = store::GridStore::Create(config_.working_directory, job.name, *job.parameters,
                                            set_aside_as);
    if (!set_aside_as.empty()) {
      LogEngine(kLogWarning,
                "there was a grid " + Quoted(job.name) + ": it is kept as " + Quoted(set_aside_as));
    }
    return std::make_unique<OpenGrid>(std::move(created), config_);
  }
  auto grid = std::make_unique<OpenGrid>(
      store::GridStore::Open(config_.working_directory, job.name), config_);
  if (config_.utm_zone != 0 && grid->utm_zone != 0 && grid->utm_zone != config_.utm_zone) {
    LogEngine(kLogWarning, "grid " + Quoted(job.name) + " is in UTM zone " +
                               std::to_string(grid->utm_zone) + ", in which its lines go on; " +
                               "UTMZone of section Projection is " +
                               std::to_string(config_.utm_zone));
  }
  return grid;
}

// A store that is open cannot be set aside, so the current grid is closed first and opened again
// when the new one cannot be made.
void GridSession::ReplaceCurrent(const OpenGridJob& job) {
  current_.BeginReplacement();
  try {
    current_.EndReplacement(OpenNew(job));
    return;
  } catch (...) {
    const std::exception_ptr failure = std::current_exception();
    std::unique_ptr<OpenGrid> reopened;
    try {
      reopened = std::make_unique<OpenGrid>(
          store::GridStore::Open(config_.working_directory, job.name), config_);
    } catch (...) {
      LogFailure("opening grid " + Quoted(job.name) + " again", std::current_exception());
    }
    current_.EndReplacement(std::move(reopened));
    std::rethrow_exception(failure);
  }
}

Finished GridSession::RunLine(const std::shared_ptr<LineJob>& job, const CancelFlag& cancelled) {
  ResultLineAdded result;
  result.line_id = job->line_id;
  try {
    Ingest(*job, cancelled, result);
  } catch (...) {
    LogFailure("line " + std::to_string(job->line_id) + " " + Quoted(job->file_name),
               std::current_exception());
    result.failed = 1;
  }
  job->feed.reset();
  if (job->rendezvous && current_.grid() != nullptr) {
    try {
      Synchronise();
    } catch (...) {
      LogFailure("synchronising after line " + Quoted(job->file_name), std::current_exception());
    }
  }
  return FinishedWith(result);
}

void GridSession::Ingest(LineJob& job, const CancelFlag& cancelled, ResultLineAdded& result) {
  ThrowIfCancelled(cancelled);
  OpenGrid& grid = GridForWork();
  StartFeed(job, ZoneForLines(grid, config_));
  std::shared_ptr<LineJob> next;
  {
    const std::lock_guard lock(mutex_);
    next = std::move(job.next);
  }
  // The line that follows is read ahead while this one is in work, as soon as it is known in which
  // zone. Should this one fail after all, it is read again.
  const auto read_ahead = [&](int utm_zone) {
    if (next && utm_zone != 0) StartFeedAhead(*next, utm_zone);
  };
  read_ahead(ZoneForLines(grid, config_));
  LogEngine(kLogStep,
            "line " + std::to_string(job.line_id) + " " + Quoted(job.file_name) + " begins");
  const survey::BeamAccount account =
      IngestLine(grid, config_, traces_.List(), job.file_name, *job.feed, cancelled, read_ahead);
  result.pings = Capped(account.pings);
  result.soundings_per_ping = account.soundings_per_ping;
  result.rejected_by_flag = Capped(account.flagged);
  result.offered = Capped(account.offered);
  result.used = Capped(account.used);
  const std::string line =
      "line " + std::to_string(job.line_id) + " " + Quoted(job.file_name) + ": ";
  const std::string& remark = job.feed->summary().remark;
  if (!remark.empty()) LogEngine(kLogRefusal, line + remark);
  // Who lost the whole line to refusals is told why without asking for accounts.
  const bool all_refused = account.offered == 0 && account.Refused() != 0;
  LogEngine(all_refused ? kLogRefusal : kLogAccount, line + AccountText(account));
}

void GridSession::StartFeed(LineJob& job, int utm_zone) {
  if (job.feed && job.feed->asked_zone() == utm_zone) return;
  const OpenGrid& grid = GridForWork();
  const std::string path = config_.find_line ? config_.find_line(job.file_name) : job.file_name;
  job.feed = std::make_unique<LineFeed>(path, grid.lattice, utm_zone, config_.uncertainty);
}

void GridSession::StartFeedAhead(LineJob& job, int utm_zone) {
  try {
    StartFeed(job, utm_zone);
  } catch (const ExSGClientBase&) {
    // A file that is not to be read is told of when its line's turn has come.
  }
}

void GridSession::Synchronise() {
  OpenGrid& grid = GridForWork();
  grid.store->Checkpoint();
  LogEngine(kLogStep, "grid " + Quoted(grid.store->Name()) + " is synchronised");
}

void GridSession::RefineGrid(std::uint32_t threads, const ResultCallback& on_done) {
  const RequestPtr request =
      delivery_.Accept(on_done, RequestKind::kRefineGrid, Order::kAfterAllEarlier);
  const std::uint32_t asked = threads == 0 ? config_.threads : std::min(threads, config_.threads);
  SubmitBarrier(request, [this, asked](const CancelFlag& cancelled) {
    ThrowIfCancelled(cancelled);
    OpenGrid& grid = GridForWork();
    const RefinementSummary summary =
        service::RefineGrid(grid, traces_.List(),
                            {.threads = asked,
                             .memory_bytes = config_.memory_bytes / kRefinementShare,
                             .spool_directory = config_.working_directory},
                            cancelled);
    LogEngine(kLogStep, "grid " + Quoted(grid.store->Name()) + ": " +
                            std::to_string(summary.cells) + " cells refined into " +
                            std::to_string(summary.nodes) + " nodes");
  });
}

}  // namespace quarro::service
