// The tables of a grid's database and the marks that tell it from other files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "gridding/store/database.h"
#include "gridding/store/grid_store.h"

namespace quarro::store {

inline constexpr const char* kDatabaseFile = "grid.sqlite";
inline constexpr std::uint32_t kApplicationId = 0x51475244;  // "QGRD"
inline constexpr std::uint32_t kFormatVersion = 1;

// Makes the tables in an empty database.
void CreateTables(Connection& connection, const GridParameters& parameters);

// Reads the head of the file. Throws StoreError, which begins with `grid`, for a file that is no
// database of a grid, or of another format version.
void CheckFormat(const std::filesystem::path& database, const std::string& grid);

GridParameters ReadParameters(Connection& connection);

// The totals but bytes_on_disc, as the connection's transaction sees them.
Totals ReadTotals(Connection& connection, Statement& select_totals);
void WriteTotals(Statement& update_totals, const Totals& totals);
inline constexpr const char* kSelectTotals =
    "SELECT lines, soundings, cells, cells_refined, nodes_refined, cells_changed, "
    "south, west, north, east FROM totals";
inline constexpr const char* kUpdateTotals =
    "UPDATE totals SET lines = ?, soundings = ?, cells = ?, cells_refined = ?, nodes_refined = ?, "
    "cells_changed = ?, south = ?, west = ?, north = ?, east = ?";

}  // namespace quarro::store
