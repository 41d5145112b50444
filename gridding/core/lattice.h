// The lattice of low-resolution cells.
#pragma once

#include <compare>
#include <cstdint>

namespace quarro::core {

// Row counts northward, column eastward, from the projection's origin.
struct CellIndex {
  std::int32_t row = 0;
  std::int32_t column = 0;
  // Row-major. The check takes the generated comparison with zero for a null pointer.
  friend auto operator<=>(const CellIndex&,
                          const CellIndex&) = default;  // NOLINT(modernize-use-nullptr)
};

struct Position {
  double easting_m = 0.0;
  double northing_m = 0.0;
};

// An inclusive rectangle of cells.
struct CellRange {
  CellIndex south_west;
  CellIndex north_east;
  std::uint64_t Rows() const;
  std::uint64_t Columns() const;
  bool Contains(CellIndex cell) const;
  friend bool operator==(const CellRange&, const CellRange&) = default;
};

// Cells of side D metres: cell (i, j) has its node at (j D, i D) and covers half a cell on each
// side, its west and south edges excluded.
class Lattice {
 public:
  // D is the shortest decimal that reads back as `resolution_m`. The caller has checked that it is
  // finite and positive.
  explicit Lattice(float resolution_m);
  double spacing_m() const { return spacing_m_; }
  CellIndex CellOf(double easting_m, double northing_m) const;
  Position NodeOf(CellIndex cell) const;
  // True when CellOf can name the cell: positions beyond 2^31 cells have none.
  bool InReach(double easting_m, double northing_m) const;
  // Cells whose nodes lie in the box or on its edge. False when there is none.
  bool CellsInBox(double west_m, double south_m, double east_m, double north_m,
                  CellRange& range) const;

 private:
  double spacing_m_;
};

}  // namespace quarro::core
