// What the tests of the store share: a fresh directory, lines made up from a number, and all that a
// grid holds as one value.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "gridding/store/grid_store.h"

namespace quarro::store {

// A directory of its own, removed at the end.
class FreshDirectory {
 public:
  FreshDirectory();
  FreshDirectory(const FreshDirectory&) = delete;
  FreshDirectory& operator=(const FreshDirectory&) = delete;
  ~FreshDirectory();
  const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
};

inline constexpr GridParameters kParameters{.resolution_m = 12.3F, .min_resolution_m = 0.1F};

std::unique_ptr<GridStore> CreateGrid(const std::filesystem::path& directory,
                                      const std::string& name = "g");

// Bytes that depend on the seed.
Bytes BytesOf(std::uint32_t seed, std::size_t size);
Bytes Text(const std::string& text);

// The line of number `number` as AddLine records it.
LineRecord RecordOf(std::uint32_t number);

struct LineShape {
  std::vector<CellIndex> cells{{0, 0}, {0, 1}, {-3, 7}};
  std::size_t bytes_a_cell = 480;  // of soundings, of 16 bytes each
};
// What line `number` adds to a cell, and the state that it leaves there.
Bytes SoundingsOf(std::uint32_t number, CellIndex cell, const LineShape& shape);
Bytes StateOf(std::uint32_t number, CellIndex cell);
// Puts the line into the writer, without committing it.
void Write(LineWriter& writer, std::uint32_t number, const LineShape& shape = {});
// Adds it whole; gives its sequence number.
std::uint32_t AddLine(GridStore& store, std::uint32_t number, const LineShape& shape = {});

// Everything that a snapshot shows, but bytes_on_disc.
struct Contents {
  struct Cell {
    Bytes state;
    Bytes refinement;
    bool changed = false;
    Bytes soundings;
    std::vector<std::pair<std::uint32_t, std::size_t>> runs;
    friend bool operator==(const Cell&, const Cell&) = default;
  };
  std::vector<std::uint64_t> totals;
  std::vector<std::string> lines;
  std::string setting;  // of the key "zone"
  std::vector<CellIndex> changed_cells;
  std::map<CellIndex, Cell> cells;
  friend bool operator==(const Contents&, const Contents&) = default;
};
Contents ReadAll(Snapshot& snapshot);
Contents ReadAll(GridStore& store);

inline constexpr CellRange kEverywhere{.south_west = {.row = INT32_MIN, .column = INT32_MIN},
                                       .north_east = {.row = INT32_MAX, .column = INT32_MAX}};

// The text of the StoreError that `action` throws; "no error" when it throws none.
template <typename Action>
std::string ErrorOf(const Action& action) {
  try {
    action();
  } catch (const StoreError& error) {
    return error.what();
  }
  return "no error";
}

}  // namespace quarro::store
