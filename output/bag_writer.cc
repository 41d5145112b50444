// Streams a two-level grid into the layers of a BAG, row by row and refinement by refinement.
#include "output/bag_writer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <utility>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "bag/bag.h"
#include "cli/command_state.h"
#include "output/bag_failure_text.h"
#include "output/bag_metadata.h"
#include "slog/slog.h"

namespace quarro {

namespace {

constexpr bagRefinementMetadataRecord kNotRefinedRecord = {kBagNullIndex, 0,     0,    -1.0F,
                                                           -1.0F,         -1.0F, -1.0F};

struct Range {
  float lowest = std::numeric_limits<float>::max();
  float highest;
};

struct SurfaceRanges {
  Range elevation{.highest = std::numeric_limits<float>::lowest()};
  Range uncertainty{.highest = -1.0F};
};

struct RefinementSize {
  std::uint64_t total_nodes = 0;
  std::uint64_t largest_block = 0;
};

bool HasData(const NodalDepth& estimate) { return estimate.depth_m != kNoDepth; }

bool IsRefined(const DepthCell& cell) {
  return cell.resolution_m != kNotRefined && cell.refinement != nullptr;
}

std::uint64_t NodeCount(const RefinementBlock& block) {
  return static_cast<std::uint64_t>(block.nodes_a) * block.nodes_b;
}

float Elevation(const NodalDepth& estimate) {
  return HasData(estimate) ? -estimate.depth_m : kBagNullValue;
}

float Uncertainty(const NodalDepth& estimate) {
  return HasData(estimate) ? std::sqrt(estimate.variance_m2) : kBagNullValue;
}

bagNodeRecord NodeRecord(const NodalDepth& estimate) {
  if (!HasData(estimate)) {
    return {kBagNullValue, 0};
  }
  return {estimate.hypothesis_strength, estimate.hypothesis_count};
}

bagRefinementNodeRecord RefinementNodeRecord(const RefinedNode& node) {
  if (!HasData(node.estimate)) {
    return {kBagNullValue, 0, 0};
  }
  return {node.estimate.hypothesis_strength, node.estimate.hypothesis_count, node.sample_count};
}

// Places the refinement's nodes centred in the cell. Both axes take the dimension from nodes_b and
// the corner from nodes_a and the column spacing, which is the same for square blocks and cells.
bagRefinementMetadataRecord MetadataRecord(const DepthCell& cell, std::uint64_t index,
                                           double column_spacing_m) {
  const RefinementBlock& block = *cell.refinement;
  const float extent_m = static_cast<float>(block.nodes_a - 1U) * cell.resolution_m;
  const auto corner_m = static_cast<float>(column_spacing_m * 0.5 - extent_m * 0.5);
  return {static_cast<std::uint32_t>(index),
          block.nodes_b,
          block.nodes_b,
          cell.resolution_m,
          cell.resolution_m,
          corner_m,
          corner_m};
}

template <typename Visit>
void ForEachCell(const ResultGrid<DepthCell>& grid, Visit visit) {
  for (std::uint32_t row = 0; row < grid.rows; ++row) {
    for (std::uint32_t column = 0; column < grid.columns; ++column) {
      visit(grid.At(row, column));
    }
  }
}

SurfaceRanges FindRanges(const ResultGrid<DepthCell>& grid) {
  SurfaceRanges ranges;
  const auto widen = [](Range& range, float value) {
    range.lowest = std::min(range.lowest, value);
    range.highest = std::max(range.highest, value);
  };
  ForEachCell(grid, [&](const DepthCell& cell) {
    if (HasData(cell.estimate)) {
      widen(ranges.elevation, Elevation(cell.estimate));
      widen(ranges.uncertainty, Uncertainty(cell.estimate));
    }
  });
  return ranges;
}

RefinementSize MeasureRefinement(const ResultGrid<DepthCell>& grid) {
  RefinementSize size;
  ForEachCell(grid, [&](const DepthCell& cell) {
    if (IsRefined(cell)) {
      const std::uint64_t nodes = NodeCount(*cell.refinement);
      size.total_nodes += nodes;
      size.largest_block = std::max(size.largest_block, nodes);
    }
  });
  return size;
}

// The metadata document, deleted when the file is done or given up.
class MetadataDocument {
 public:
  explicit MetadataDocument(std::string path) : path_(std::move(path)) {}
  MetadataDocument(const MetadataDocument&) = delete;
  MetadataDocument& operator=(const MetadataDocument&) = delete;
  ~MetadataDocument() { std::remove(path_.c_str()); }

  const std::string& path() const { return path_; }

 private:
  const std::string path_;
};

struct Definition {
  Definition() = default;
  Definition(const Definition&) = delete;
  Definition& operator=(const Definition&) = delete;
  ~Definition() { bagFreeDefinition(&data); }

  bagData data = {};
};

// Writes one file; each step says what it does at level 1.
class Writer {
 public:
  Writer(CommandState& state, const ResultGrid<DepthCell>& grid) : log_(&state.log), grid_(grid) {}
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  ~Writer() {
    if (file_ != nullptr) {
      bagFileClose(file_);  // given up, for a reason that has been logged
    }
  }

  void Create(const std::string& metadata_path, const SurfaceRanges& ranges,
              const std::string& path);
  void WriteSurfaces();
  void WriteNodeGroup();
  void WriteRefinementMetadata(double east_west_extent_m);
  void WriteRefinements();
  void Close();

  void Say(const std::string& text) { log_() << text << endmsg; }

 private:
  [[noreturn]] void Fail(const std::string& reason);
  template <typename Record, typename MakeRecord>
  void WriteRows(int surface, MakeRecord make_record);

  Slog log_;
  const ResultGrid<DepthCell>& grid_;
  bagHandle* file_ = nullptr;
  std::uint64_t largest_block_ = 0;  // nodes
  double spacing_of_lone_column_m_ = 0.0;
};

void Writer::Fail(const std::string& reason) {
  log_ << SlogLevel(4);
  log_() << reason << endmsg;
  throw CommandState::bag_output_failed();
}

void Writer::Create(const std::string& metadata_path, const SurfaceRanges& ranges,
                    const std::string& path) {
  Say("Creating BAG definition from metadata file ...");
  Definition definition;
  bagError status = bagInitDefinitionFromFile(&definition.data, metadata_path.c_str());
  if (status != kBagSuccess) {
    Fail(BagFailureText(BagStep::kInitialisation, status));
  }
  definition.data.min_elevation_m = ranges.elevation.lowest;
  definition.data.max_elevation_m = ranges.elevation.highest;
  definition.data.min_uncertainty_m = ranges.uncertainty.lowest;
  definition.data.max_uncertainty_m = ranges.uncertainty.highest;
  // What a file holds is settled by its definition; without this the layers of refinements would be
  // refused.
  definition.data.has_variable_resolution = 1;
  spacing_of_lone_column_m_ = definition.data.column_spacing;

  Say("Creating BAG file ...");
  status = bagFileCreate(path.c_str(), &definition.data, &file_);
  if (status != kBagSuccess) {
    Fail(BagFailureText(BagStep::kCreation, status));
  }
  const RefinementSize size = MeasureRefinement(grid_);
  largest_block_ = size.largest_block;
  status = bagCreateVariableResolutionLayers(file_, size.total_nodes, 1);
  if (status != kBagSuccess) {
    Fail(BagFailureText(BagStep::kLayerCreation, status));
  }
}

// Writes the record that `make_record` gives for each cell, rows from the south.
template <typename Record, typename MakeRecord>
void Writer::WriteRows(int surface, MakeRecord make_record) {
  std::vector<Record> records(grid_.columns);
  for (std::uint32_t row = 0; row < grid_.rows; ++row) {
    for (std::uint32_t column = 0; column < grid_.columns; ++column) {
      records[column] = make_record(grid_.At(row, column));
    }
    bagWriteRow(file_, row, 0, grid_.columns - 1, surface, records.data());
  }
}

void Writer::WriteSurfaces() {
  Say("Generating Elevation and Uncertainty mandatory layers ... ");
  std::vector<float> elevations(grid_.columns);
  std::vector<float> uncertainties(grid_.columns);
  for (std::uint32_t row = 0; row < grid_.rows; ++row) {
    for (std::uint32_t column = 0; column < grid_.columns; ++column) {
      const NodalDepth& estimate = grid_.At(row, column).estimate;
      elevations[column] = Elevation(estimate);
      uncertainties[column] = Uncertainty(estimate);
    }
    bagWriteRow(file_, row, 0, grid_.columns - 1, kSurfaceElevation, elevations.data());
    bagWriteRow(file_, row, 0, grid_.columns - 1, kSurfaceUncertainty, uncertainties.data());
  }
  Say("Updating bounds in Elevation mandatory layer ... ");
  bagUpdateSurface(file_, kSurfaceElevation);
  Say("Updating bounds in Uncertainty mandatory layer ... ");
  bagUpdateSurface(file_, kSurfaceUncertainty);
}

void Writer::WriteNodeGroup() {
  Say("Generating NodeGroup information into layer ...");
  WriteRows<bagNodeRecord>(kSurfaceNodeGroup,
                           [](const DepthCell& cell) { return NodeRecord(cell.estimate); });
  Say("Updating bounds in NodeGroup ...");
  bagUpdateOptSurface(file_, kSurfaceNodeGroup);
}

void Writer::WriteRefinementMetadata(double east_west_extent_m) {
  // One column has no distance to a next one: its cells are as wide as the definition says, which
  // takes the spacing of the rows.
  const double column_spacing_m = grid_.columns > 1
                                      ? east_west_extent_m / static_cast<double>(grid_.columns - 1U)
                                      : spacing_of_lone_column_m_;
  Say("Generating Variable Resolution Metadata Group information into layer ... ");
  std::uint64_t index = 0;
  WriteRows<bagRefinementMetadataRecord>(kSurfaceRefinementMetadata, [&](const DepthCell& cell) {
    if (!IsRefined(cell)) {
      return kNotRefinedRecord;
    }
    const auto record = MetadataRecord(cell, index, column_spacing_m);
    index += NodeCount(*cell.refinement);
    return record;
  });
  Say("Updating bounds in Variable Resolution Metadata Group ...");
  bagUpdateOptSurface(file_, kSurfaceRefinementMetadata);
}

void Writer::WriteRefinements() {
  Say("Generating for Variable Resolution Refinement and Node Groups (simultaneously) ...");
  std::vector<bagRefinementRecord> refinements(largest_block_);
  std::vector<bagRefinementNodeRecord> nodes(largest_block_);
  std::uint32_t start = 0;
  ForEachCell(grid_, [&](const DepthCell& cell) {
    if (!IsRefined(cell) || NodeCount(*cell.refinement) == 0) {
      return;
    }
    const auto count = static_cast<std::uint32_t>(NodeCount(*cell.refinement));
    for (std::uint32_t i = 0; i < count; ++i) {
      const RefinedNode& node = cell.refinement->nodes[i];
      refinements[i] = {Elevation(node.estimate), Uncertainty(node.estimate)};
      nodes[i] = RefinementNodeRecord(node);
    }
    const std::uint32_t last = start + count - 1;
    bagWriteRow(file_, 0, start, last, kSurfaceRefinement, refinements.data());
    bagWriteRow(file_, 0, start, last, kSurfaceRefinementNodeGroup, nodes.data());
    start += count;
  });
  Say("Updating bounds in Variable Resolution Refinement Group ...");
  bagUpdateOptSurface(file_, kSurfaceRefinement);
  Say("Updating bounds in Variable Resolution Node Group ...");
  bagUpdateOptSurface(file_, kSurfaceRefinementNodeGroup);
}

// The library keeps the first failure of all the writes until here, so that no write needs a test
// of its own and no part of a surface is lost in silence.
void Writer::Close() {
  const bagError status = bagFileClose(std::exchange(file_, nullptr));
  if (status != kBagSuccess) {
    Fail(BagFailureText(BagStep::kWriting, status));
  }
}

std::string DirectoryOf(const std::string& path) {
  const std::string directory = boost::filesystem::path(path).parent_path().string();
  return directory.empty() ? "." : directory;
}

}  // namespace

void WriteVariableResolutionBag(CommandState& state, const ResultGrid<DepthCell>& grid,
                                double north, double south, double west, double east,
                                const std::string& path) {
  Slog log(&state.log);
  log() << "Finding min/max for depth/uncrt (for metadata)..." << endmsg;
  const SurfaceRanges ranges = FindRanges(grid);
  log() << "Found elevation (" << ranges.elevation.lowest << ", " << ranges.elevation.highest
        << "), uncrt (" << ranges.uncertainty.lowest << ", " << ranges.uncertainty.highest << ")."
        << endmsg;

  log() << "Generating metadata file ..." << endmsg;
  std::string location = DirectoryOf(path);
  GenerateBagMetadata(state, grid.rows, grid.columns, north, south, west, east, location);
  const MetadataDocument metadata(location);
  log() << "Metadata file generated as \"" << metadata.path() << "\"." << endmsg;

  Writer writer(state, grid);
  writer.Create(metadata.path(), ranges, path);
  writer.WriteSurfaces();
  writer.WriteNodeGroup();
  writer.WriteRefinementMetadata(east - west);
  writer.WriteRefinements();
  writer.Close();
}

}  // namespace quarro
