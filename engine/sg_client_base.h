// The engine front end as the client sees it.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "engine/exceptions.h"
#include "engine/quarro_spec.h"
#include "engine/result_token.h"
#include "engine/results.h"
#include "slog/slog.h"
#include "support/sg_bounding_box.h"

namespace quarro {

// Abstract base of the front ends: in-process and on the network.
//
// Operations are called from one thread at a time. Those that take `on_done` return once the
// request is accepted; the work and the call-back follow, as a rule on a thread of the engine
// library, maybe before the call returns. Every accepted request gets exactly one call-back. A
// request that cannot be accepted throws ExSGClientBase or a class derived from it, and gets none.
//
// LoadGrid, ConstructGrid, DropGrid, SynchGrid and RefineGrid are barriers: they begin when the
// lines before them are done, and are acknowledged after the call-backs of all earlier requests
// returned.
class SGClientBase {
 public:
  SGClientBase() : log_("engine") { log_.AddDrain(SlogCerrDrain::Instance(' ')); }
  SGClientBase(const SGClientBase&) = delete;
  SGClientBase& operator=(const SGClientBase&) = delete;
  virtual ~SGClientBase() = default;

  // 0 to 7. False when no engine is attached or it refused.
  virtual bool SetRemoteLogLevel(std::uint32_t level) = 0;

  // Blocks for the length of the discovery.
  virtual std::vector<QuarroSpec> FindEngines() = 0;
  // On an attached front end this switches to the engine named.
  virtual void AttachEngine(const QuarroSpec& engine) = 0;
  // Finishes what was asked for; no call-back runs after it returned or threw.
  virtual void DetachEngine() = 0;

  virtual void RequestServerStatistics(const ResultCallback& on_done) = 0;  // ResultServStats

  // Debug traces; each yields a ResultDebug. Columns and rows count from the south-west cell of the
  // grid's bounds; x and y are metres.
  virtual void DebugCell(std::uint32_t col, std::uint32_t row, bool on,
                         const ResultCallback& on_done) = 0;
  virtual void DebugAt(double x, double y, bool on, const ResultCallback& on_done) = 0;
  virtual void DebugOffEverywhere(const ResultCallback& on_done) = 0;

  // 1 grid status, 2 debug positions, 3 results pool: ResultQuery. 4 bounds: ResultBBox.
  virtual void RequestQuery(std::uint32_t kind, const ResultCallback& on_done) = 0;

  // Drops these results from the pool: ResultPosAck.
  virtual void PurgeResults(const std::set<std::uint32_t>& result_numbers,
                            const ResultCallback& on_done) = 0;

  // Resolutions in metres. ResultGridLoaded.
  virtual void ConstructGrid(const std::string& name, float resolution, float min_resolution,
                             const ResultCallback& on_done) = 0;
  virtual void LoadGrid(const std::string& name, const ResultCallback& on_done) = 0;

  // ResultLineAdded, carrying `line_id`, also for a line that failed. With `rendezvous` the grid is
  // synchronised once this line is done.
  virtual void AddLine(const std::string& file_name, std::uint32_t line_id, bool rendezvous,
                       const ResultCallback& on_done) = 0;

  // Results over `box`, taken from the grid as it is when the request is accepted. full_resolution:
  // 0 low, 1 full.
  virtual void RequestResolution(const SGBoundingBox& box, std::uint32_t result_number,
                                 const ResultCallback& on_done) = 0;  // ResultResolution
  virtual void RequestDepth(const SGBoundingBox& box, std::uint32_t result_number,
                            std::uint32_t full_resolution,
                            const ResultCallback& on_done) = 0;  // ResultDepth
  virtual void RequestHypotheses(const SGBoundingBox& box, std::uint32_t result_number,
                                 std::uint32_t full_resolution,
                                 const ResultCallback& on_done) = 0;  // ResultHypos

  // Each yields a ResultPosAck. DropGrid closes the grid, it deletes nothing; with `asap` the line
  // in work ends at its next chunk and what is queued fails.
  virtual void DropGrid(bool asap, const ResultCallback& on_done) = 0;
  virtual void SynchGrid(const ResultCallback& on_done) = 0;
  // n_threads 0: the engine's own choice.
  virtual void RefineGrid(std::uint32_t n_threads, const ResultCallback& on_done) = 0;

  // Keeps a slot of the interface; nothing calls it.
  virtual void Reserved() {}

  // Hands over the result that `token` names, once; the caller owns it. Throws the failure of the
  // request (ExSGCNoGrid, ExSGCServerResources, ExSGClientBase), and ExSGClientBase for a token
  // that names nothing, a purged result among them. Any thread.
  virtual SEBaseResult* GetResult(const SEResultToken& token) = 0;

  // Adds a file to the engine's log: appended, with time, level and channel. Throws ExTarn when the
  // file cannot be written.
  void AddLogFile(const std::string& path) {
    log_.AddDrain(std::make_shared<SlogFileDrain>(path, true, true, ' '));
  }
  // Messages of the engine's log below `level` are dropped.
  bool SetLogFilter(SlogLevel level) {
    log_.SetFilter(level);
    return true;
  }
  // Drops all results that wait in the pool: ResultPosAck.
  void Purge(const ResultCallback& on_done) { PurgeAllResults(on_done); }

  // The engine's log, channel "engine". For the thread that calls the operations.
  Slog& Log() { return log_; }

 protected:
  virtual void PurgeAllResults(const ResultCallback& on_done) = 0;

 private:
  Slog log_;
};

// Fetches the result that `token` names as a `Result`. Throws what GetResult throws, and
// ExSGCResultIncompatible when the result is of another class.
template <typename Result>
std::unique_ptr<Result> FetchResult(SGClientBase& client, const SEResultToken& token) {
  std::unique_ptr<SEBaseResult> base(client.GetResult(token));
  if (auto* result = dynamic_cast<Result*>(base.get())) {
    (void)base.release();
    return std::unique_ptr<Result>(result);
  }
  throw ExSGCResultIncompatible("");
}

}  // namespace quarro
