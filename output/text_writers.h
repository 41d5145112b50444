// Depth, hypothesis and resolution results as plain text: blank-separated fields, one record a
// line.
#pragma once

#include <iosfwd>
#include <string>

#include "engine/results.h"
#include "support/sg_bounding_box.h"

namespace quarro {

// Writes "depth variance count strength": metres, square metres, the number of hypotheses and the
// strength of the reported one, numbers with 7 significant digits whatever the stream's precision,
// flags and locale.
std::ostream& operator<<(std::ostream& out, const NodalDepth& estimate);

// Writes one line, its newline included: "easting northing resolution strength count", then "depth
// variance samples" for each of the `count` hypotheses, the reported one first. Positions are
// metres with three decimals, other numbers have 7 significant digits, whatever the stream's
// settings.
std::ostream& operator<<(std::ostream& out, const NodalHypos& node);

// Each writer replaces the file at `path`, and returns once it is on the disc. A path that cannot
// be opened gives no file and no error; a file that could not be written whole (a full disc) is
// told in the log and stands as PATH.incomplete. Rows count from the south, columns from the west,
// both from zero. Any thread; memory does not grow with the result.

// Two equal header lines "rows columns west south east north"; then for each cell with data
//   row column depth variance count strength
// and for a refined one
//   row column resolution nodes_b nodes_a nodes_with_data 0
// followed, for each of its nodes with data, from south-west, west to east first, by
//   node_row node_column depth variance count strength
void WriteDepthText(const ResultGrid<DepthCell>& grid, const SGBoundingBox& bounds,
                    const std::string& path);

// Header "records west south east north", then one line a node.
void WriteHypothesesText(const ResultHypos& hypotheses, const SGBoundingBox& bounds,
                         const std::string& path);

// Header "rows columns west south east north", then for each cell one line
//   row column soundings node_spacing mean_depth depth_deviation shallowest deepest covered_area
//   depth uncertainty strength easting northing occupancy vertical_sigma density horizontal_sigma
//   covered_fraction
// where a cell without data has zeros after its count of soundings.
void WriteResolutionText(const ResultGrid<ResolutionRecord>& grid, const SGBoundingBox& bounds,
                         const std::string& path);

}  // namespace quarro
