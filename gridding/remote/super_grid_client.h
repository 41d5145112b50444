// Engines on the network.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "engine/sg_client_base.h"
#include "support/mparams.h"

namespace quarro {

// A front end for engines on the network. Attaching opens a session at the engine, which lives
// through short losses of the connection: it is made again for ReconnectSeconds. After that, or
// when the engine ends, every outstanding request fails through its call-back (a line with its
// failure flag), and so does what is asked for until another engine, or the same again, is
// attached.
//
// Operations come from one thread at a time; GetResult from any. Without an engine, operations that
// announce their failure by throwing throw ExSGClientBase, the others (drop, synch, refine,
// queries, debug, purge, statistics) fail through their call-back, which has returned when they
// return.
class SuperGridClient : public SGClientBase {
 public:
  // Reads the network's parameters. Throws ExSGClientBase for a value out of range; keys that no
  // part of the system knows are logged.
  explicit SuperGridClient(const MParams& params);
  // Detaches first. Every call-back has returned when it returns.
  ~SuperGridClient() override;

  bool SetRemoteLogLevel(std::uint32_t level) override;
  std::vector<QuarroSpec> FindEngines() override;
  // Throws ExSGClientBase, and stays attached as it was, when the engine cannot be reached, speaks
  // another protocol version, or refuses.
  void AttachEngine(const QuarroSpec& engine) override;
  // Waits for the results asked for, and a few seconds for lines; lines that are not done then go
  // on at the engine, and their results tell nothing but that. Throws ExSGClientBase without an
  // engine, and on a call-back's thread; not for an engine that is lost.
  void DetachEngine() override;

  void RequestServerStatistics(const ResultCallback& on_done) override;
  void DebugCell(std::uint32_t col, std::uint32_t row, bool on,
                 const ResultCallback& on_done) override;
  void DebugAt(double x, double y, bool on, const ResultCallback& on_done) override;
  void DebugOffEverywhere(const ResultCallback& on_done) override;
  void RequestQuery(std::uint32_t kind, const ResultCallback& on_done) override;
  void PurgeResults(const std::set<std::uint32_t>& result_numbers,
                    const ResultCallback& on_done) override;
  void ConstructGrid(const std::string& name, float resolution, float min_resolution,
                     const ResultCallback& on_done) override;
  void LoadGrid(const std::string& name, const ResultCallback& on_done) override;
  void AddLine(const std::string& file_name, std::uint32_t line_id, bool rendezvous,
               const ResultCallback& on_done) override;
  void RequestResolution(const SGBoundingBox& box, std::uint32_t result_number,
                         const ResultCallback& on_done) override;
  void RequestDepth(const SGBoundingBox& box, std::uint32_t result_number,
                    std::uint32_t full_resolution, const ResultCallback& on_done) override;
  void RequestHypotheses(const SGBoundingBox& box, std::uint32_t result_number,
                         std::uint32_t full_resolution, const ResultCallback& on_done) override;
  void DropGrid(bool asap, const ResultCallback& on_done) override;
  void SynchGrid(const ResultCallback& on_done) override;
  void RefineGrid(std::uint32_t n_threads, const ResultCallback& on_done) override;
  SEBaseResult* GetResult(const SEResultToken& token) override;

 protected:
  void PurgeAllResults(const ResultCallback& on_done) override;

 private:
  class Engine;  // what it is attached to
  std::unique_ptr<Engine> engine_;
};

}  // namespace quarro
