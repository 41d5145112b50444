// The test grids' values, their metadata, and their way into a file.

#include "bag/test_grid.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <proj.h>
#include <stdlib.h>

namespace quarro::bag {
namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

std::string printed(const char* format, double value) {
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), format, value);
  return text.data();
}

// Longitude and latitude of a position, in degrees.
std::pair<double, double> degreesOf(int utm_zone, double x_m, double y_m) {
  const std::string definition = "+proj=utm +zone=" + std::to_string(std::abs(utm_zone)) +
                                 (utm_zone < 0 ? " +south" : "") + " +ellps=WGS84";
  const std::unique_ptr<PJ_CONTEXT, decltype(&proj_context_destroy)> context(proj_context_create(),
                                                                             proj_context_destroy);
  const std::unique_ptr<PJ, decltype(&proj_destroy)> projection(
      proj_create(context.get(), definition.c_str()), proj_destroy);
  const PJ_COORD degrees = proj_trans(projection.get(), PJ_INV, proj_coord(x_m, y_m, 0, 0));
  return {proj_todeg(degrees.lp.lam), proj_todeg(degrees.lp.phi)};
}

Pairs keysOf(const TestGrid& grid) {
  const auto [west_deg, south_deg] = degreesOf(grid.utm_zone, grid.west_m, grid.south_m);
  const auto [east_deg, north_deg] = degreesOf(grid.utm_zone, grid.east_m(), grid.north_m());
  const int zone = std::abs(grid.utm_zone);
  return {{"UNIQUE_ID", grid.name},
          {"INPUT_RESPONSIBLE_PARTY", "tests"},
          {"RESPONSIBLE_PARTY", "tests"},
          {"CURRENT_DATE", "2024-05-06"},
          {"ROW_COUNT", std::to_string(grid.rows)},
          {"ROW_SPACING", printed("%.17g", (grid.north_m() - grid.south_m) / (grid.rows - 1.0))},
          {"COL_COUNT", std::to_string(grid.columns)},
          {"COL_SPACING", printed("%.17g", (grid.east_m() - grid.west_m) / (grid.columns - 1.0))},
          {"CORNER_COORDS", printed("%.3f,", grid.west_m) + printed("%.3f ", grid.south_m) +
                                printed("%.3f,", grid.east_m()) + printed("%.3f", grid.north_m())},
          {"DATASET_TITLE", grid.name},
          {"DATASET_DATE", "2024-05-06"},
          {"ABSTRACT", "A grid with known values."},
          {"WEST_LONGITUDE", printed("%.8f", west_deg)},
          {"SOUTH_LATITUDE", printed("%.8f", south_deg)},
          {"EAST_LONGITUDE", printed("%.8f", east_deg)},
          {"NORTH_LATITUDE", printed("%.8f", north_deg)},
          {"PROJECTION_SYSTEM",
           "UTM-" + std::to_string(zone) + (grid.utm_zone < 0 ? "S" : "N") + "-WGS84"},
          {"PROJECTION_MERIDIAN", printed("%.17g", (zone - 1) * 6.0 - 177.0)},
          {"LINEAGE_DESC", "Written by a test."},
          {"LINEAGE_DATETIME", "2024-05-06T07:08:09.123456"}};
}

// Writes the layers of one grid and remembers the first failure.
class GridWriter {
 public:
  GridWriter(bagHandle* file, const TestGrid& grid) : file_(file), grid_(grid) {}

  bagError write() {
    note(bagCreateVariableResolutionLayers(file_, refinedNodes(), 1));
    for (std::uint32_t row = 0; row < grid_.rows; ++row) writeRow(row);
    note(bagUpdateSurface(file_, kSurfaceElevation));
    note(bagUpdateSurface(file_, kSurfaceUncertainty));
    for (const int surface : {kSurfaceNodeGroup, kSurfaceRefinementMetadata, kSurfaceRefinement,
                              kSurfaceRefinementNodeGroup}) {
      note(bagUpdateOptSurface(file_, surface));
    }
    return status_;
  }

 private:
  void note(bagError status) {
    if (status_ == kBagSuccess) status_ = status;
  }

  std::uint64_t refinedNodes() const {
    std::uint64_t total = 0;
    for (std::uint32_t row = 0; row < grid_.rows; ++row) {
      for (std::uint32_t column = 0; column < grid_.columns; ++column) {
        const std::uint64_t side = grid_.nodes_per_side(row, column);
        total += side * side;
      }
    }
    return total;
  }

  void writeRow(std::uint32_t row) {
    std::vector<float> elevations;
    std::vector<float> uncertainties;
    std::vector<bagNodeRecord> nodes;
    std::vector<bagRefinementMetadataRecord> refinements;
    for (std::uint32_t column = 0; column < grid_.columns; ++column) {
      const bool hole = isHole(row, column);
      const double x_m = column * grid_.spacing_m;
      const double y_m = row * grid_.spacing_m;
      elevations.push_back(hole ? kBagNullValue : elevationAt(x_m, y_m));
      uncertainties.push_back(hole ? kBagNullValue : uncertaintyAt(x_m, y_m));
      nodes.push_back(hole ? bagNodeRecord{kBagNullValue, 0}
                           : bagNodeRecord{0.25F * static_cast<float>(column % 8), 1 + row % 3});
      refinements.push_back(refine(row, column));
    }
    const std::uint32_t last = grid_.columns - 1;
    note(bagWriteRow(file_, row, 0, last, kSurfaceElevation, elevations.data()));
    note(bagWriteRow(file_, row, 0, last, kSurfaceUncertainty, uncertainties.data()));
    note(bagWriteRow(file_, row, 0, last, kSurfaceNodeGroup, nodes.data()));
    note(bagWriteRow(file_, row, 0, last, kSurfaceRefinementMetadata, refinements.data()));
  }

  // Writes the cell's refinement and tells where it lies.
  bagRefinementMetadataRecord refine(std::uint32_t row, std::uint32_t column) {
    const std::uint32_t side = grid_.nodes_per_side(row, column);
    if (side == 0) return {kBagNullIndex, 0, 0, -1.0F, -1.0F, -1.0F, -1.0F};
    const double resolution_m = grid_.spacing_m / side;
    const double corner_m = 0.5 * grid_.spacing_m - 0.5 * (side - 1) * resolution_m;
    std::vector<bagRefinementRecord> refinements;
    std::vector<bagRefinementNodeRecord> nodes;
    for (std::uint32_t i = 0; i < side; ++i) {
      for (std::uint32_t j = 0; j < side; ++j) {
        const double x_m = (column - 0.5) * grid_.spacing_m + corner_m + j * resolution_m;
        const double y_m = (row - 0.5) * grid_.spacing_m + corner_m + i * resolution_m;
        const bool hole = isHole(std::uint64_t{row} * side + i, std::uint64_t{column} * side + j);
        refinements.push_back(
            hole ? bagRefinementRecord{kBagNullValue, kBagNullValue}
                 : bagRefinementRecord{elevationAt(x_m, y_m), uncertaintyAt(x_m, y_m)});
        nodes.push_back(hole ? bagRefinementNodeRecord{kBagNullValue, 0, 0}
                             : bagRefinementNodeRecord{0.5F, 1 + i % 2, 5 + j});
      }
    }
    const auto count = static_cast<std::uint32_t>(refinements.size());
    const std::uint32_t last = next_index_ + count - 1;
    note(bagWriteRow(file_, 0, next_index_, last, kSurfaceRefinement, refinements.data()));
    note(bagWriteRow(file_, 0, next_index_, last, kSurfaceRefinementNodeGroup, nodes.data()));
    const auto resolution = static_cast<float>(resolution_m);
    const auto corner = static_cast<float>(corner_m);
    return {std::exchange(next_index_, next_index_ + count),
            side,
            side,
            resolution,
            resolution,
            corner,
            corner};
  }

  bagHandle* file_;
  const TestGrid& grid_;
  std::uint32_t next_index_ = 0;
  bagError status_ = kBagSuccess;
};

}  // namespace

float elevationAt(double x_m, double y_m) {
  return static_cast<float>(-(20.0 + x_m / 64.0 + y_m / 128.0));
}

float uncertaintyAt(double x_m, double y_m) {
  return static_cast<float>(0.125 + x_m / 4096.0 + y_m / 8192.0);
}

bool isHole(std::uint64_t row, std::uint64_t column) { return (7 * row + 3 * column) % 11 == 5; }

std::filesystem::path templateOf(const TestGrid& grid) {
  return std::filesystem::path(QUARRO_SOURCE_DIR) / "examples" /
         (grid.utm_zone < 0 ? "bag_metadata_south.xml" : "bag_metadata_north.xml");
}

std::string filledTemplate(const std::filesystem::path& path, const TestGrid& grid) {
  std::string text = readText(path);
  for (const auto& [name, value] : keysOf(grid)) {
    const std::string key = "MERA_BAG_" + name;
    for (auto at = text.find(key); at != std::string::npos; at = text.find(key, at)) {
      text.replace(at, key.size(), value);
    }
  }
  return text;
}

void writeText(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

std::string readText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(file), {}};
}

bagError writeGrid(const std::filesystem::path& path, const TestGrid& grid) {
  const std::filesystem::path metadata = path.string() + ".metadata.xml";
  writeText(metadata, filledTemplate(templateOf(grid), grid));
  bagData definition = {};
  bagError status = bagInitDefinitionFromFile(&definition, metadata.c_str());
  if (status != kBagSuccess) return status;
  definition.has_variable_resolution = 1;
  bagHandle* file = nullptr;
  status = bagFileCreate(path.c_str(), &definition, &file);
  bagFreeDefinition(&definition);
  if (status != kBagSuccess) return status;
  status = GridWriter(file, grid).write();
  const bagError closed = bagFileClose(file);
  return status != kBagSuccess ? status : closed;
}

TestFolder::TestFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "quarro_bag.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make a folder " + name);
  path_ = name;
}

TestFolder::~TestFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace quarro::bag
