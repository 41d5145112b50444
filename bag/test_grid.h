// Grids with known values for the tests: an inclined seafloor with holes, refined cell by cell, and
// the metadata that places it.

#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "bag/bag.h"

namespace quarro::bag {

struct TestGrid {
  std::string name;
  // Negative in the southern hemisphere.
  int utm_zone = 19;
  std::uint32_t rows = 11;
  std::uint32_t columns = 11;
  double west_m = 300000.0;
  double south_m = 4700000.0;
  double spacing_m = 16.0;
  // Nodes along each side of a cell's refinement; 0 where it has none.
  std::function<std::uint32_t(std::uint32_t row, std::uint32_t column)> nodes_per_side =
      [](std::uint32_t, std::uint32_t) { return 0U; };

  double east_m() const { return west_m + (columns - 1) * spacing_m; }
  double north_m() const { return south_m + (rows - 1) * spacing_m; }
};

// The values at a position relative to the grid's south-west node.
float elevationAt(double x_m, double y_m);
float uncertaintyAt(double x_m, double y_m);
// Every eleventh node, counted obliquely, has no data.
bool isHole(std::uint64_t row, std::uint64_t column);

// The example template of the grid's hemisphere.
std::filesystem::path templateOf(const TestGrid& grid);

// The template's text with each key replaced by the grid's value.
std::string filledTemplate(const std::filesystem::path& path, const TestGrid& grid);

void writeText(const std::filesystem::path& path, const std::string& text);
std::string readText(const std::filesystem::path& path);

// Writes the whole grid to `path`, its metadata beside it; the first status that is not success.
bagError writeGrid(const std::filesystem::path& path, const TestGrid& grid);

// A folder of its own, removed with all it holds.
class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace quarro::bag
