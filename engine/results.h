// What the engine delivers: one class for each kind of finished work.
//
// Grids and lists are row-major arrays that `storage` keeps alive: on the heap when small, in an
// unlinked mapped file when large. A result outlives the grid and the engine that made it. All are
// constant once delivered, so any thread may read them.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "support/sg_bounding_box.h"

namespace quarro {

// Depth of a cell or node without data.
inline constexpr float kNoDepth = std::numeric_limits<float>::lowest();
// Resolution of a cell without refinement, and of a resolution record without data.
inline constexpr float kNotRefined = -1.0F;

class SEBaseResult {
 public:
  virtual ~SEBaseResult() = default;
};

// The request was carried out; nothing else to tell.
class ResultPosAck : public SEBaseResult {};

// A grid was constructed or loaded.
class ResultGridLoaded : public ResultPosAck {
 public:
  SGBoundingBox bounds;  // of the corner nodes, metres; all zeros for a grid without data
};

// Bounding box of the current grid.
class ResultBBox : public SEBaseResult {
 public:
  SGBoundingBox bounds;
};

// A debug trace was started or stopped.
class ResultDebug : public SEBaseResult {
 public:
  std::string output_file;
};

// What became of one survey line.
class ResultLineAdded : public SEBaseResult {
 public:
  std::uint32_t line_id = 0;  // the id given to AddLine
  std::uint32_t failed = 0;   // nonzero: the line failed
  std::uint32_t pings = 0;
  std::uint32_t soundings_per_ping = 0;  // greatest beam count of the line's pings
  std::uint32_t rejected_by_flag = 0;
  std::uint32_t offered = 0;  // to the estimator
  std::uint32_t used = 0;     // in the update
};

// The answer to a query, line by line.
class ResultQuery : public SEBaseResult {
 public:
  std::vector<std::string> lines;
};

class ResultServStats : public SEBaseResult {
 public:
  std::uint32_t threads = 0;
  std::uint32_t priority_queue_length = 0;  // result requests, queries and traces not yet begun
  std::uint32_t run_queue_length = 0;       // lines and barriers accepted and not yet done
  float priority_queue_duration_s = 0.0F;   // expected, from the durations of late requests
  std::uint32_t results_waiting = 0;        // in the result pool, not yet fetched
};

// The estimate at one node.
struct NodalDepth {
  float depth_m = kNoDepth;  // positive down
  float variance_m2 = 0.0F;
  std::uint32_t hypothesis_count = 0;
  float hypothesis_strength = 0.0F;  // 0 where nothing competes, to 5
};

struct RefinedNode {
  NodalDepth estimate;
  std::uint16_t sample_count = 0;  // of the hypothesis reported
};

// nodes_b rows from south to north of nodes_a nodes from west to east, centred in the cell.
struct RefinementBlock {
  std::uint32_t nodes_a = 0;
  std::uint32_t nodes_b = 0;
  const RefinedNode* nodes = nullptr;
};

struct DepthCell {
  float resolution_m = kNotRefined;  // node spacing of the refinement
  NodalDepth estimate;
  const RefinementBlock* refinement = nullptr;  // null when there is none
};

// A dense rectangle of low-resolution cells: row 0 is the south row, column 0 the west column.
template <typename Cell>
struct ResultGrid {
  std::uint32_t rows = 0;
  std::uint32_t columns = 0;
  const Cell* cells = nullptr;
  std::shared_ptr<const void> storage;

  const Cell& At(std::uint32_t row, std::uint32_t column) const {
    return cells[static_cast<std::size_t>(row) * columns + column];
  }
};

class ResultDepth : public SEBaseResult {
 public:
  std::uint32_t result_number = 0;
  SGBoundingBox bounds;  // of the corner nodes
  ResultGrid<DepthCell> grid;
};

struct Hypothesis {
  float depth_m = 0.0F;
  float variance_m2 = 0.0F;
  std::uint32_t sample_count = 0;
};

// Every hypothesis of one node, the reported one first, then by falling sample count.
struct NodalHypos {
  double easting_m = 0.0;
  double northing_m = 0.0;
  float resolution_m = kNotRefined;  // node spacing, -1 for a low-resolution node
  float hypothesis_strength = 0.0F;
  std::uint32_t count = 0;
  const Hypothesis* hypotheses = nullptr;
};

class ResultHypos : public SEBaseResult {
 public:
  std::uint32_t result_number = 0;
  SGBoundingBox bounds;
  std::uint64_t count = 0;
  const NodalHypos* nodes = nullptr;
  std::shared_ptr<const void> storage;
};

// What the data of one low-resolution cell supports. The members are the fields of the resolution
// file, numbered 0 to 16 in this order.
struct ResolutionRecord {
  std::uint32_t soundings = 0;           // 0: in the cell
  double node_spacing_m = kNotRefined;   // 1: that the data supports; -1: no data
  double mean_depth_m = 0.0;             // 2
  double depth_deviation_m = 0.0;        // 3: standard deviation
  double shallowest_m = 0.0;             // 4
  double deepest_m = 0.0;                // 5
  double mean_vertical_sigma_m = 0.0;    // 6: root mean square of the 1-sigma uncertainties
  double mean_horizontal_sigma_m = 0.0;  // 7
  double density_per_m2 = 0.0;           // 8: soundings over the part of the cell with data
  double covered_fraction = 0.0;         // 9: part of the cell with data, by its 8 x 8 mask
  std::uint64_t occupancy = 0;           // 10: the mask, bit 8 * row + column, from south-west
  double covered_area_m2 = 0.0;          // 11
  float depth_m = kNoDepth;              // 12: low-resolution estimate
  float uncertainty_m = 0.0F;            // 13: its 1-sigma uncertainty
  float hypothesis_strength = 0.0F;      // 14
  double easting_m = 0.0;                // 15: of the cell's node
  double northing_m = 0.0;               // 16
};

class ResultResolution : public SEBaseResult {
 public:
  std::uint32_t result_number = 0;
  SGBoundingBox bounds;
  ResultGrid<ResolutionRecord> grid;
};

}  // namespace quarro
