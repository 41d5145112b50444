// The engine behind one client: its grid, its requests, and the threads that work on them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "engine/results.h"
#include "gridding/service/delivery.h"
#include "gridding/service/engine_config.h"
#include "gridding/service/job_queue.h"
#include "gridding/service/open_grid.h"
#include "gridding/service/traces.h"
#include "support/sg_bounding_box.h"

namespace quarro::service {

// Takes the requests of one client and carries them out; results and failures go to a Delivery.
//
// One grid thread runs lines and barriers (opening, dropping, synchronising and refining the grid)
// in the order of their submission. Result requests, queries and traces run on request threads
// beside it, on a snapshot of the grid taken when they are accepted. Requests come from one thread
// at a time, which may be a call-back's.
//
// Each operation is that of the same name in SGClientBase. What throws ExSGClientBase was not
// accepted; everything else is answered once through the Delivery.
class GridSession {
 public:
  // `delivery` must outlive this. Throws ExSGClientBase when the working directory is none.
  GridSession(EngineConfig config, Delivery& delivery);
  // Finishes.
  ~GridSession();
  GridSession(const GridSession&) = delete;
  GridSession& operator=(const GridSession&) = delete;

  // Carries out what was accepted, what call-backs ask for meanwhile included, waits until its
  // call-backs have returned, and closes the grid. Not on a call-back's thread. Nothing may be
  // asked for afterwards.
  void Finish();

  // Any thread. What was accepted and has not begun fails, and what has begun ends early, for
  // `reason`: a literal, or as long-lived. The grid stays.
  void CancelAll(const char* reason);

  void RequestServerStatistics(const ResultCallback& on_done);
  void DebugCell(std::uint32_t column, std::uint32_t row, bool on, const ResultCallback& on_done);
  void DebugAt(double easting_m, double northing_m, bool on, const ResultCallback& on_done);
  void DebugOffEverywhere(const ResultCallback& on_done);
  void RequestQuery(std::uint32_t kind, const ResultCallback& on_done);
  void PurgeResults(const std::set<std::uint32_t>& result_numbers, const ResultCallback& on_done);
  void PurgeAllResults(const ResultCallback& on_done);

  // Throws for resolutions that are not finite, not positive, or a minimum above the resolution.
  void ConstructGrid(const std::string& name, float resolution_m, float min_resolution_m,
                     const ResultCallback& on_done);
  void LoadGrid(const std::string& name, const ResultCallback& on_done);
  // Throws ExSGCNoGrid when no grid is open and none is being opened by an earlier request.
  void AddLine(const std::string& file_name, std::uint32_t line_id, bool rendezvous,
               const ResultCallback& on_done);
  void RequestResolution(const SGBoundingBox& box, std::uint32_t result_number,
                         const ResultCallback& on_done);
  void RequestDepth(const SGBoundingBox& box, std::uint32_t result_number, bool full_resolution,
                    const ResultCallback& on_done);
  void RequestHypotheses(const SGBoundingBox& box, std::uint32_t result_number,
                         bool full_resolution, const ResultCallback& on_done);
  void DropGrid(bool asap, const ResultCallback& on_done);
  void SynchGrid(const ResultCallback& on_done);
  void RefineGrid(std::uint32_t threads, const ResultCallback& on_done);

  // Request threads, on which results are extracted.
  static constexpr int kRequestThreads = 2;

 private:
  struct LineJob;
  struct OpenGridJob;
  class ChangeEnd;
  using Lease = std::shared_ptr<CurrentGrid::Lease>;

  // The calling thread.
  Lease TakeLease(const RequestPtr& request, CurrentGrid::Use use);
  void SubmitExtract(RequestKind kind, const SGBoundingBox& box, std::uint32_t result_number,
                     bool full_resolution, const ResultCallback& on_done);
  void AnswerOfGrid(std::uint32_t kind, CurrentGrid::Lease& lease, const RequestPtr& request);
  void SubmitTrace(const ResultCallback& on_done,
                   const std::function<std::string(CurrentGrid::Lease&)>& change);
  void SubmitOpening(const std::string& name, const store::GridParameters* parameters,
                     const ResultCallback& on_done);
  void CancelBefore(std::uint64_t sequence, const char* reason);
  void SubmitBarrier(const RequestPtr& request, std::function<void(const CancelFlag&)> work);
  void EndLineRun();
  bool GridToCome();
  static std::shared_ptr<void> LimitThreads(std::uint32_t threads);

  // The grid thread.
  Finished Open(const OpenGridJob& job);
  std::unique_ptr<OpenGrid> OpenNew(const OpenGridJob& job);
  std::unique_ptr<OpenGrid> OpenStore(const OpenGridJob& job);
  void ReplaceCurrent(const OpenGridJob& job);
  Finished RunLine(const std::shared_ptr<LineJob>& job, const CancelFlag& cancelled);
  void Ingest(LineJob& job, const CancelFlag& cancelled, ResultLineAdded& result);
  void StartFeed(LineJob& job, int utm_zone);
  void StartFeedAhead(LineJob& job, int utm_zone);
  void EndGridChange(std::uint64_t sequence);
  void Synchronise();
  OpenGrid& GridForWork();

  const EngineConfig config_;
  Delivery& delivery_;
  const std::shared_ptr<void> thread_limit_;  // of all computing threads of the process
  TraceSet traces_;
  CurrentGrid current_;

  std::mutex mutex_;                    // guards the next three and LineJob::next
  std::shared_ptr<LineJob> last_line_;  // null unless the last serial request was a line
  // Of the openings and drops not yet done, by sequence: whether there may be a grid afterwards.
  std::vector<std::pair<std::uint64_t, bool>> grid_changes_;
  bool finished_ = false;

  // Last, so that their threads end before what they use.
  JobQueue requests_;
  JobQueue grid_work_;
};

}  // namespace quarro::service
