// From no refined cell to all, one row, one column, both hemispheres, and the date line.

#include "bag/judged_grids.h"

#include <cstdint>
#include <fstream>

namespace quarro::bag {
namespace {

auto everywhere(std::uint32_t side) {
  return [side](std::uint32_t, std::uint32_t) { return side; };
}

}  // namespace

std::vector<TestGrid> judgedGrids() {
  std::vector<TestGrid> grids;
  grids.push_back({.name = "no_refined_cell"});
  grids.push_back(
      {.name = "one_refined_cell", .nodes_per_side = [](std::uint32_t row, std::uint32_t column) {
         return row == 3 && column == 7 ? 4U : 0U;
       }});
  grids.push_back({.name = "all_with_different_spacings",
                   .rows = 5,
                   .columns = 7,
                   .nodes_per_side = [](std::uint32_t row, std::uint32_t column) {
                     return 2 + row * 7 + column;
                   }});
  grids.push_back({.name = "single_row", .rows = 1, .columns = 9, .nodes_per_side = everywhere(4)});
  grids.push_back(
      {.name = "single_column", .rows = 9, .columns = 1, .nodes_per_side = everywhere(4)});
  grids.push_back({.name = "single_node", .rows = 1, .columns = 1, .spacing_m = 1.0});
  grids.push_back(
      {.name = "uniform_spacing", .rows = 20, .columns = 33, .nodes_per_side = everywhere(8)});
  grids.push_back({.name = "southern_uniform_spacing",
                   .utm_zone = -56,
                   .rows = 18,
                   .columns = 14,
                   .south_m = 6250000.0,
                   .nodes_per_side = everywhere(4)});
  grids.push_back({.name = "just_south_of_the_equator",
                   .utm_zone = -23,
                   .south_m = 9990000.0,
                   .nodes_per_side = everywhere(2)});
  grids.push_back({.name = "next_to_the_date_line",
                   .utm_zone = 60,
                   .rows = 40,
                   .columns = 30,
                   .west_m = 800000.0,
                   .south_m = 7000000.0,
                   .spacing_m = 1024.0,
                   .nodes_per_side = everywhere(0)});
  grids.push_back({.name = "large",
                   .rows = 1000,
                   .columns = 1000,
                   .spacing_m = 8.0,
                   .nodes_per_side = [](std::uint32_t row, std::uint32_t column) {
                     return (row * 31 + column * 17) % 97 == 0 ? 4U : 0U;
                   }});
  return grids;
}

void describe(const std::string& path, const TestGrid& grid) {
  std::ofstream json(path + ".json");
  json.precision(17);
  json << "{\"name\": \"" << grid.name << "\", \"utm_zone\": " << grid.utm_zone
       << ", \"rows\": " << grid.rows << ", \"columns\": " << grid.columns
       << ", \"west\": " << grid.west_m << ", \"south\": " << grid.south_m
       << ", \"spacing\": " << grid.spacing_m << ", \"nodes_per_side\": [";
  for (std::uint32_t row = 0; row < grid.rows; ++row) {
    json << (row == 0 ? "[" : ", [");
    for (std::uint32_t column = 0; column < grid.columns; ++column) {
      json << (column == 0 ? "" : ", ") << grid.nodes_per_side(row, column);
    }
    json << "]";
  }
  json << "]}\n";
}

}  // namespace quarro::bag
