// Debug traces: the steps of chosen nodes' estimates, each trace in a text file.
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "gridding/core/lattice.h"
#include "gridding/core/node_estimator.h"

namespace quarro::service {

// One trace. Its cell's low-resolution estimate is traced when a line touches the cell, and the
// node nearest to `offset` when the cell is refined. One line of the file a step. Any thread may
// write.
class Trace : public core::EstimatorTrace {
 public:
  enum class Place : std::uint8_t { kPosition, kCell };

  // Creates the file. Throws ExSGClientBase naming it when it cannot be written.
  Trace(Place place, core::CellIndex cell, core::Position position, core::Position node,
        const std::string& path);
  ~Trace() override;
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  Place place() const { return place_; }
  core::CellIndex cell() const { return cell_; }
  core::Position position() const { return position_; }
  const std::string& path() const { return path_; }

  // Of a cell of side `cell_m` with n x n nodes: the one nearest to the position.
  std::size_t NodeNearest(std::uint32_t nodes_per_side, double cell_m) const;

  void Step(const std::string& line) override;
  void Flush();

 private:
  const Place place_;
  const core::CellIndex cell_;
  const core::Position position_;
  const core::Position offset_;  // of the cell's node
  const std::string path_;
  std::mutex mutex_;  // guards the file
  std::FILE* file_;
};

using TraceList = std::vector<std::shared_ptr<Trace>>;

// The traces of `traces` that lie in `cell`.
TraceList TracesIn(const TraceList& traces, core::CellIndex cell);

// The traces of one session. Any thread may call anything.
class TraceSet {
 public:
  // Trace files are named <grid>.trace_<column>_<row>_<number>.txt, column and row those of the
  // cell's index on the lattice, in `directory`.
  explicit TraceSet(std::filesystem::path directory) : directory_(std::move(directory)) {}

  // Both give the file's path. Starting what is traced already gives its file; stopping what is not
  // traced throws ExSGClientBase.
  std::string Start(Trace::Place place, const std::string& grid, const core::Lattice& lattice,
                    core::CellIndex cell, core::Position position);
  std::string Stop(Trace::Place place, core::CellIndex cell, core::Position position);
  // Gives the files' paths, separated by a comma and a blank.
  std::string StopAll();

  TraceList List() const;
  // One line of text for each trace.
  std::vector<std::string> Describe() const;

 private:
  TraceList::iterator Find(Trace::Place place, core::CellIndex cell, core::Position position);

  const std::filesystem::path directory_;
  mutable std::mutex mutex_;  // guards traces_
  TraceList traces_;
};

}  // namespace quarro::service
