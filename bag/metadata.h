// Reads the metadata document that a BAG is made from.

#pragma once

#include <cstdint>
#include <string>

namespace quarro::bag {

// Where the grid lies, as the document says: node positions in the units of the coordinate
// system, and degrees.
struct GridPlace {
  std::uint32_t rows = 0;
  std::uint32_t columns = 0;
  double row_spacing = 0;
  double column_spacing = 0;
  double west = 0;
  double south = 0;
  double east = 0;
  double north = 0;
  double west_longitude = 0;
  double south_latitude = 0;
  double east_longitude = 0;
  double north_latitude = 0;
  // Empty where the document names no coordinate system.
  std::string horizontal_wkt;
};

struct Metadata {
  // The document; that of the file, but for a spacing that its axis could not give.
  std::string text;
  GridPlace grid;
};

// Throws Failure, with the status of the first element that is missing or wrong, and where the
// document contradicts itself.
Metadata readMetadata(const char* path);

}  // namespace quarro::bag
