// One layer of a BAG file: takes records in any order, holds a window of chunks in memory, and
// writes each chunk once where records come in order.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "bag/hdf5.h"
#include "bag/layer_layout.h"

namespace quarro::bag {

struct LayerSize {
  std::uint64_t rows;
  std::uint64_t columns;
};

// A window is a piece of one row of chunks: all of it for a grid, a few chunks for the layers
// of one row, whose length has no bound. Windows are numbered row by row. Not for several threads
// at once; takes the HDF5 lock itself where it needs it.
class Layer {
 public:
  // Creates the dataset in `group`, with its null as fill value, and with the extremes that
  // `empty` states.
  Layer(const Hdf5Lock& lock, hid_t group, const LayerLayout& layout, LayerSize size,
        const Extremes& empty);

  const LayerLayout& layout() const { return *layout_; }
  LayerSize size() const { return size_; }

  // The caller has checked the range.
  void write(std::uint64_t row, std::uint64_t first_column, std::uint64_t last_column,
             const std::byte* records);

  // Writes the window in memory, if it changed.
  void flush();

  // Flushes, stores the extremes of the whole layer and gives the window's memory back.
  void update();

  void storeExtreme(const Hdf5Lock& lock, std::size_t field, double min, double max) const;

 private:
  struct Place {
    std::uint64_t row;
    std::uint64_t column;
  };

  void createAttributes(const Hdf5Lock& lock) const;
  void storeExtremes(const Extremes& extremes) const;
  void openWindow(std::uint64_t window);
  void fillWithNulls();
  void readWindow(std::uint64_t window);
  Extremes extremesOfWindow() const;
  Extremes extremesOnDisc();
  void releaseWindow();

  std::uint64_t windowOf(std::uint64_t row, std::uint64_t column) const;
  // The number of chunks of a window that lie in the layer; the last one of a row may have fewer.
  std::size_t chunksIn(std::uint64_t window) const;
  Place placeOf(std::uint64_t window, std::size_t chunk) const;
  std::size_t chunkBytes() const;
  std::byte* chunkData(std::size_t chunk) { return buffer_.data() + chunk * chunkBytes(); }

  const LayerLayout* layout_;
  LayerSize size_;
  std::uint64_t chunk_rows_;
  std::uint64_t chunk_columns_;
  std::uint64_t chunks_per_window_;
  std::uint64_t windows_per_row_;
  Hdf5Id type_;
  Hdf5Id dataset_;

  // The window in memory, its chunks one after the other, each padded with nulls to full size.
  std::vector<std::byte> buffer_;
  std::optional<std::uint64_t> window_;
  bool changed_ = false;
  // Whether the window in memory has never been on disc.
  bool fresh_ = false;

  // Windows from this number on have never been on disc.
  std::uint64_t first_fresh_window_ = 0;
  Extremes empty_;
  // The extremes of all windows on disc, as long as none was written twice.
  Extremes extremes_;
  bool written_once_ = true;
};

}  // namespace quarro::bag
