// Writes Bathymetric Attributed Grids (BAG): one low-resolution grid of elevation and uncertainty,
// the refinement of each of its cells, and the metadata that says where the grid lies.
//
//   bagData definition = {};
//   if (bagInitDefinitionFromFile(&definition, "metadata.xml") != 0) ...
//   definition.has_variable_resolution = 1;
//   bagHandle* file = nullptr;
//   if (bagFileCreate("depth.bag", &definition, &file) != 0) ...
//   bagCreateVariableResolutionLayers(file, refined_nodes, 1);
//   for each row: bagWriteRow(file, row, 0, columns - 1, kSurfaceElevation, elevations);
//   bagUpdateSurface(file, kSurfaceElevation);
//   ...
//   bagFreeDefinition(&definition);
//   bagError status = bagFileClose(file);
//
// No exception leaves these functions, and nothing is printed. Threads: different files may be
// written by different threads at the same time; one file is written by one thread at a time.
// Memory a file: at most 16 rows of each layer that is being written and a few MiB.

#pragma once

#include <cstdint>

namespace quarro {

// 0 for success, else one of bagStatus. bagGetErrorString gives its text.
using bagError = int;

enum bagStatus : int {
  kBagSuccess = 0,

  // A pointer that must not be null was null.
  kBagBadArgument = 1,
  kBagOutOfMemory = 2,
  // A fault of the library itself.
  kBagInternal = 3,

  // The metadata document: each element that the grid cannot be placed without.
  kBagMetadataUnreadable = 10,
  kBagMetadataNotXml = 11,
  kBagMetadataNoRoot = 12,
  kBagMetadataNoGrid = 13,
  kBagMetadataNoRowCount = 14,
  kBagMetadataNoColumnCount = 15,
  kBagMetadataNoRowSpacing = 16,
  kBagMetadataNoColumnSpacing = 17,
  kBagMetadataNoCorners = 18,
  kBagMetadataNoWestBound = 19,
  kBagMetadataNoEastBound = 20,
  kBagMetadataNoSouthBound = 21,
  kBagMetadataNoNorthBound = 22,
  // The corners, the counts and the spacings do not describe one grid.
  kBagMetadataGridContradiction = 23,
  // The corners, taken through the coordinate system, do not lie at the geographic bounds.
  kBagMetadataPlaceContradiction = 24,

  // The file.
  kBagNoSuchFolder = 30,
  kBagNotRegularFile = 31,
  kBagCreateFailed = 32,
  kBagWriteFailed = 33,
  kBagReadFailed = 34,
  kBagCloseFailed = 35,

  // The layers.
  kBagNotVariableResolution = 40,
  kBagLayersExist = 41,
  kBagTooManyRefinedNodes = 42,
  kBagUnknownSurface = 43,
  kBagLayerMissing = 44,
  kBagRowOutOfRange = 45,
  kBagColumnsOutOfRange = 46,
};

// The layers, by the codes that bagWriteRow and the update functions take.
enum bagSurface : int {
  kSurfaceElevation = 1,
  kSurfaceUncertainty = 2,
  kSurfaceNodeGroup = 8,
  kSurfaceRefinementMetadata = 10,
  kSurfaceRefinement = 11,
  kSurfaceRefinementNodeGroup = 12,
};

// What elevation, uncertainty and hypothesis strength hold where there is no data.
inline constexpr float kBagNullValue = 1000000.0F;
// The index of a cell that has no refinement.
inline constexpr std::uint32_t kBagNullIndex = 0xFFFFFFFFU;

// One element of kSurfaceElevation or kSurfaceUncertainty is a float: metres, elevation positive
// up, uncertainty one standard deviation. The records of the other layers:

// kSurfaceNodeGroup; null: (kBagNullValue, 0).
struct bagNodeRecord {
  float hypothesis_strength;
  std::uint32_t hypothesis_count;
};

// kSurfaceRefinementMetadata: where a cell's refinement begins in the refinement layers, its
// nodes, their spacing, and the offset of its south-west node from the cell's south-west corner
// (metres). Null: (kBagNullIndex, 0, 0, -1, -1, -1, -1).
struct bagRefinementMetadataRecord {
  std::uint32_t index;
  std::uint32_t dimension_x;
  std::uint32_t dimension_y;
  float resolution_x_m;
  float resolution_y_m;
  float sw_corner_x_m;
  float sw_corner_y_m;
};

// kSurfaceRefinement; null: (kBagNullValue, kBagNullValue).
struct bagRefinementRecord {
  float elevation_m;
  float uncertainty_m;
};

// kSurfaceRefinementNodeGroup; null: (kBagNullValue, 0, 0).
struct bagRefinementNodeRecord {
  float hypothesis_strength;
  std::uint32_t hypothesis_count;
  std::uint32_t sample_count;
};

// What a BAG is made from. Plain data: the caller zeroes it, bagInitDefinitionFromFile fills it,
// the caller sets the last five fields, and bagFreeDefinition releases the two texts.
struct bagData {
  // The metadata document as it goes into the file, and the text of its horizontal coordinate
  // system (empty where it names none). Null-terminated, owned by this record.
  char* metadata;
  std::uint64_t metadata_size;
  char* horizontal_wkt;

  std::uint32_t rows;
  std::uint32_t columns;
  // Distance of neighbouring nodes, in the coordinate system's units. Always finite and positive:
  // an axis with a single node takes the spacing of the other one, a lone node 1.
  double row_spacing;
  double column_spacing;
  // Positions of the south-west and the north-east node.
  double west;
  double south;
  double east;
  double north;
  // Degrees.
  double west_longitude;
  double south_latitude;
  double east_longitude;
  double north_latitude;

  // What the elevation and uncertainty layers state until bagUpdateSurface recomputes it.
  float min_elevation_m;
  float max_elevation_m;
  float min_uncertainty_m;
  float max_uncertainty_m;

  // 1: the file is to have variable-resolution layers. A caller that zeroes the record and knows
  // nothing of them gets a plain grid, and bagCreateVariableResolutionLayers refuses its file:
  // what a file holds is settled by its definition, before the file exists.
  std::int32_t has_variable_resolution;
};

// An open file; made by bagFileCreate, released by bagFileClose.
struct bagHandle;

// Reads the metadata document and fills `definition`, which must be zeroed or freed before. A
// definition whose parts contradict each other is refused (a template for the northern hemisphere
// filled with a southern grid, say); a coordinate system that cannot be read is no reason to
// refuse. On failure `definition` is left as it was.
bagError bagInitDefinitionFromFile(bagData* definition, const char* metadata_path);

// Releases the texts of `definition` and zeroes the pointers. The file made from it does not need
// them any more.
void bagFreeDefinition(bagData* definition);

// Creates the file with its metadata, the elevation and the uncertainty layer; an existing file is
// overwritten. On failure `*file` is null, and a file that was begun lies beside its name with
// ".incomplete" appended.
bagError bagFileCreate(const char* path, const bagData* definition, bagHandle** file);

// Adds the variable-resolution layers for `refined_nodes` nodes (0 is fine), with the three that
// tell of hypotheses and samples unless `with_node_groups` is 0. A failure is remembered, as those
// of writes are.
bagError bagCreateVariableResolutionLayers(bagHandle* file, std::uint64_t refined_nodes,
                                           int with_node_groups);

// Writes the records of columns `first_column` to `last_column`, both included. The refinement
// layers have one row, 0. Any order is right; rows upwards and columns eastwards are fast. A
// failure is remembered: bagFileClose returns the first.
bagError bagWriteRow(bagHandle* file, std::uint32_t row, std::uint32_t first_column,
                     std::uint32_t last_column, int surface, const void* records);

// Stores the layer's minimum and maximum, nulls left out. A layer of nothing but nulls states its
// null value as both, but for the spacing of refinements, which then is that of the grid. The first
// is for the two mandatory layers, the second for the others.
bagError bagUpdateSurface(bagHandle* file, int surface);
bagError bagUpdateOptSurface(bagHandle* file, int surface);

// Writes what is still in memory and releases the handle, whatever it returns. Returns the first
// failure of the file's life; the file then lies beside its name with ".incomplete" appended, so
// that nobody takes a surface with holes for a whole one.
bagError bagFileClose(bagHandle* file);

// Gives the text of a status; it lives as long as the program. Returns 0 when there is one, else
// 1 with `*text` unchanged.
int bagGetErrorString(bagError status, const char** text);

}  // namespace quarro
