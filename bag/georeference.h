// Whether a grid's corners and its geographic bounds speak of the same place.

#pragma once

#include "bag/metadata.h"

namespace quarro::bag {

// Takes the grid's edges through its coordinate system and looks for the geographic bounds there,
// be they the positions of two corners or a box around all four. True also where the coordinate
// system cannot be read, and nothing can be compared.
bool boundsFitCorners(const GridPlace& grid);

}  // namespace quarro::bag
