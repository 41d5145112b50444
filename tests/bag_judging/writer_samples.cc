// Writes the judged grids as the client does: each as a depth result, through the writer of BAG
// files and the example templates, with a JSON file that tells what it should be.

#include <cmath>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "bag/judged_grids.h"
#include "bag/test_grid.h"
#include "cli/command_state.h"
#include "engine/results.h"
#include "output/bag_writer.h"
#include "output/utm_projection.h"
#include "support/mparams.h"

namespace quarro {
namespace {

// A depth result that holds a test grid's values.
class GeneratedDepth {
 public:
  explicit GeneratedDepth(const bag::TestGrid& grid) : grid_(grid) {
    // The result points into these, which therefore never grow.
    blocks_.reserve(std::size_t{grid.rows} * grid.columns);
    nodes_.reserve(blocks_.capacity());
    cells_.reserve(blocks_.capacity());
    for (std::uint32_t row = 0; row < grid.rows; ++row) {
      for (std::uint32_t column = 0; column < grid.columns; ++column) {
        cells_.push_back(Cell(row, column));
      }
    }
    result_.bounds = SGBoundingBox(grid.west_m, grid.south_m, grid.east_m(), grid.north_m());
    result_.grid = {grid.rows, grid.columns, cells_.data(), nullptr};
  }
  GeneratedDepth(const GeneratedDepth&) = delete;
  GeneratedDepth& operator=(const GeneratedDepth&) = delete;

  const ResultDepth& result() const { return result_; }

 private:
  // At offsets from the grid's south-west node. The square root of a square is the number itself.
  static NodalDepth Estimate(double x_m, double y_m, float strength, std::uint32_t hypotheses) {
    const float uncertainty_m = bag::uncertaintyAt(x_m, y_m);
    return {.depth_m = -bag::elevationAt(x_m, y_m),
            .variance_m2 = uncertainty_m * uncertainty_m,
            .hypothesis_count = hypotheses,
            .hypothesis_strength = strength};
  }

  DepthCell Cell(std::uint32_t row, std::uint32_t column) {
    DepthCell cell;
    if (!bag::isHole(row, column)) {
      cell.estimate = Estimate(column * grid_.spacing_m, row * grid_.spacing_m,
                               0.25F * static_cast<float>(column % 8), 1 + row % 3);
    }
    const std::uint32_t side = grid_.nodes_per_side(row, column);
    if (side > 0) {
      cell.resolution_m = static_cast<float>(grid_.spacing_m / side);
      nodes_.push_back(Nodes(row, column, side));
      blocks_.push_back({side, side, nodes_.back().data()});
      cell.refinement = &blocks_.back();
    }
    return cell;
  }

  std::vector<RefinedNode> Nodes(std::uint32_t row, std::uint32_t column, std::uint32_t side) {
    const double resolution_m = grid_.spacing_m / side;
    const double corner_m = 0.5 * grid_.spacing_m - 0.5 * (side - 1) * resolution_m;
    std::vector<RefinedNode> nodes(std::size_t{side} * side);
    for (std::uint32_t i = 0; i < side; ++i) {
      for (std::uint32_t j = 0; j < side; ++j) {
        if (bag::isHole(std::uint64_t{row} * side + i, std::uint64_t{column} * side + j)) {
          continue;
        }
        const double x_m = (column - 0.5) * grid_.spacing_m + corner_m + j * resolution_m;
        const double y_m = (row - 0.5) * grid_.spacing_m + corner_m + i * resolution_m;
        nodes[std::size_t{i} * side + j] = {Estimate(x_m, y_m, 0.5F, 1 + i % 2),
                                            static_cast<std::uint16_t>(5 + j)};
      }
    }
    return nodes;
  }

  const bag::TestGrid& grid_;
  std::vector<std::vector<RefinedNode>> nodes_;
  std::vector<RefinementBlock> blocks_;
  std::vector<DepthCell> cells_;
  ResultDepth result_;
};

void Write(const std::string& path, const bag::TestGrid& grid) {
  MParams params;
  params.Set("ClientServer", "BAGMetadataTemplate", bag::templateOf(grid).string());
  CommandState state(nullptr, params);
  state.log.SetFilter(SlogLevel(4));
  state.grid_name.Set(grid.name);
  state.projection.Set(std::make_shared<const UTMProjection>(grid.utm_zone));
  const GeneratedDepth depth(grid);
  const SGBoundingBox& bounds = depth.result().bounds;
  WriteVariableResolutionBag(state, depth.result().grid, bounds.north(), bounds.south(),
                             bounds.west(), bounds.east(), path);
  bag::describe(path, grid);
}

}  // namespace
}  // namespace quarro

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: writer_samples FOLDER\n";
    return 2;
  }
  for (const quarro::bag::TestGrid& grid : quarro::bag::judgedGrids()) {
    const std::string path = std::string(argv[1]) + "/" + grid.name + ".bag";
    try {
      quarro::Write(path, grid);
    } catch (const quarro::CommandState::bag_output_failed&) {
      return 1;  // the writer has said why
    } catch (const std::exception& failure) {
      std::cerr << path << ": " << failure.what() << '\n';
      return 1;
    }
  }
  return 0;
}
