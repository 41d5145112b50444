#include "gridding/service/traces.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <system_error>

#include "support/exceptions.h"

namespace quarro::service {

namespace {

std::string TextOf(core::Position position) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text.setf(std::ios::fixed);
  text.precision(3);
  text << position.easting_m << ' ' << position.northing_m;
  return text.str();
}

std::string TextOf(core::CellIndex cell) {
  return "column " + std::to_string(cell.column) + " row " + std::to_string(cell.row);
}

std::string UnusedPath(const std::filesystem::path& directory, const std::string& grid,
                       core::CellIndex cell) {
  const std::string stem =
      grid + ".trace_" + std::to_string(cell.column) + "_" + std::to_string(cell.row) + "_";
  for (int number = 1;; ++number) {
    const std::filesystem::path path = directory / (stem + std::to_string(number) + ".txt");
    std::error_code error;
    if (!std::filesystem::exists(path, error)) return path.string();
  }
}

}  // namespace

Trace::Trace(Place place, core::CellIndex cell, core::Position position, core::Position node,
             const std::string& path)
    : place_(place),
      cell_(cell),
      position_(position),
      offset_{position.easting_m - node.easting_m, position.northing_m - node.northing_m},
      path_(path),
      file_(std::fopen(path.c_str(), "wx")) {
  if (file_ == nullptr) {
    const int error = errno;
    throw ExSGClientBase("cannot write the trace file \"" + path +
                         "\": " + std::generic_category().message(error));
  }
  Step("# trace at " + TextOf(position) + ", cell " + TextOf(cell) + " with its node at " +
       TextOf(node));
  Flush();
}

Trace::~Trace() { std::fclose(file_); }

std::size_t Trace::NodeNearest(std::uint32_t nodes_per_side, double cell_m) const {
  const auto along = [&](double offset_m) {
    const double index = std::floor((offset_m / cell_m + 0.5) * nodes_per_side);
    return static_cast<std::size_t>(std::clamp(index, 0.0, nodes_per_side - 1.0));
  };
  return along(offset_.northing_m) * nodes_per_side + along(offset_.easting_m);
}

void Trace::Step(const std::string& line) {
  const std::lock_guard lock(mutex_);
  std::fputs(line.c_str(), file_);
  std::fputc('\n', file_);
}

void Trace::Flush() {
  const std::lock_guard lock(mutex_);
  std::fflush(file_);
}

TraceList TracesIn(const TraceList& traces, core::CellIndex cell) {
  TraceList found;
  std::copy_if(traces.begin(), traces.end(), std::back_inserter(found),
               [&](const auto& trace) { return trace->cell() == cell; });
  return found;
}

TraceList::iterator TraceSet::Find(Trace::Place place, core::CellIndex cell,
                                   core::Position position) {
  return std::find_if(traces_.begin(), traces_.end(), [&](const auto& trace) {
    if (trace->place() != place || trace->cell() != cell) return false;
    return place == Trace::Place::kCell || (trace->position().easting_m == position.easting_m &&
                                            trace->position().northing_m == position.northing_m);
  });
}

std::string TraceSet::Start(Trace::Place place, const std::string& grid,
                            const core::Lattice& lattice, core::CellIndex cell,
                            core::Position position) {
  const std::lock_guard lock(mutex_);
  const auto found = Find(place, cell, position);
  if (found != traces_.end()) return (*found)->path();
  traces_.push_back(std::make_shared<Trace>(place, cell, position, lattice.NodeOf(cell),
                                            UnusedPath(directory_, grid, cell)));
  return traces_.back()->path();
}

std::string TraceSet::Stop(Trace::Place place, core::CellIndex cell, core::Position position) {
  const std::lock_guard lock(mutex_);
  const auto found = Find(place, cell, position);
  if (found == traces_.end()) {
    throw ExSGClientBase(place == Trace::Place::kCell
                             ? "no debug trace runs in the cell at " + TextOf(position)
                             : "no debug trace runs at " + TextOf(position));
  }
  std::string path = (*found)->path();
  traces_.erase(found);
  return path;
}

std::string TraceSet::StopAll() {
  const std::lock_guard lock(mutex_);
  std::string paths;
  for (const auto& trace : traces_) paths += (paths.empty() ? "" : ", ") + trace->path();
  traces_.clear();
  return paths;
}

TraceList TraceSet::List() const {
  const std::lock_guard lock(mutex_);
  return traces_;
}

std::vector<std::string> TraceSet::Describe() const {
  std::vector<std::string> lines;
  for (const auto& trace : List()) {
    lines.push_back((trace->place() == Trace::Place::kCell ? "cell with its node at " : "at ") +
                    TextOf(trace->position()) + ", output to \"" + trace->path() + "\"");
  }
  if (lines.empty()) lines.emplace_back("no debug traces");
  return lines;
}

}  // namespace quarro::service
