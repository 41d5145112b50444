// A layer's windows of chunks, and their way to and from the file.

#include "bag/layer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "bag/chunk_codec.h"

namespace quarro::bag {
namespace {

// Low chunks: rows come one at a time, and a row of chunks is held until it is full.
constexpr std::uint64_t kChunkRows = 16;
constexpr std::uint64_t kChunkColumns = 1024;
constexpr std::uint64_t kOneRowChunkColumns = 16384;
constexpr std::uint64_t kOneRowChunksPerWindow = 8;

using Dimensions = std::array<hsize_t, 2>;

// The layer keeps whole chunks itself: a second copy in HDF5's cache would only cost memory.
Hdf5Id uncachedAccess() {
  Hdf5Id access(H5Pcreate(H5P_DATASET_ACCESS), H5Pclose, kBagCreateFailed);
  check(H5Pset_chunk_cache(access.get(), 1, 0, 0), kBagCreateFailed);
  return access;
}

Hdf5Id chunkedCreation(hid_t type, const LayerLayout& layout, const Dimensions& chunk) {
  Hdf5Id creation(H5Pcreate(H5P_DATASET_CREATE), H5Pclose, kBagCreateFailed);
  // The same surface gives the same file, whenever it is written.
  check(H5Pset_obj_track_times(creation.get(), false), kBagCreateFailed);
  check(H5Pset_fill_value(creation.get(), type, layout.null_record.data()), kBagCreateFailed);
  // A layer without columns has nothing to cut into chunks.
  if (chunk[1] > 0) {
    check(H5Pset_chunk(creation.get(), 2, chunk.data()), kBagCreateFailed);
    check(H5Pset_deflate(creation.get(), 1), kBagCreateFailed);
  }
  return creation;
}

std::uint64_t ceilDivide(std::uint64_t value, std::uint64_t divisor) {
  return value / divisor + (value % divisor != 0 ? 1 : 0);
}

}  // namespace

Layer::Layer(const Hdf5Lock& lock, hid_t group, const LayerLayout& layout, LayerSize size,
             const Extremes& empty)
    : layout_(&layout),
      size_(size),
      chunk_rows_(std::min(kChunkRows, size.rows)),
      chunk_columns_(std::min(layout.one_row ? kOneRowChunkColumns : kChunkColumns, size.columns)),
      chunks_per_window_(0),
      windows_per_row_(0),
      type_(recordType(lock, layout)),
      empty_(empty),
      extremes_(empty) {
  if (size.columns > 0) {
    const std::uint64_t chunks_per_row = ceilDivide(size.columns, chunk_columns_);
    chunks_per_window_ = layout.one_row ? kOneRowChunksPerWindow : chunks_per_row;
    windows_per_row_ = ceilDivide(chunks_per_row, chunks_per_window_);
  }
  const Dimensions dimensions = {size.rows, size.columns};
  const Hdf5Id space(H5Screate_simple(2, dimensions.data(), nullptr), H5Sclose, kBagCreateFailed);
  const Hdf5Id creation = chunkedCreation(type_.get(), layout, {chunk_rows_, chunk_columns_});
  const Hdf5Id access = uncachedAccess();
  dataset_ = Hdf5Id(H5Dcreate2(group, layout.name, type_.get(), space.get(), H5P_DEFAULT,
                               creation.get(), access.get()),
                    H5Dclose, kBagCreateFailed);
  createAttributes(lock);
}

void Layer::createAttributes(const Hdf5Lock& lock) const {
  const Hdf5Id scalar(H5Screate(H5S_SCALAR), H5Sclose, kBagCreateFailed);
  for (std::size_t index = 0; index < layout_->fields.size(); ++index) {
    const Field& field = layout_->fields[index];
    if (field.min_attribute == nullptr) continue;
    for (const char* name : {field.min_attribute, field.max_attribute}) {
      const Hdf5Id attribute(H5Acreate2(dataset_.get(), name, hdf5Type(field.type), scalar.get(),
                                        H5P_DEFAULT, H5P_DEFAULT),
                             H5Aclose, kBagCreateFailed);
    }
    storeExtreme(lock, index, extremes_.min(index), extremes_.max(index));
  }
}

void Layer::storeExtreme(const Hdf5Lock&, std::size_t field_index, double min, double max) const {
  const Field& field = layout_->fields[field_index];
  for (const auto& [name, value] :
       {std::pair(field.min_attribute, min), std::pair(field.max_attribute, max)}) {
    const Hdf5Id attribute(H5Aopen(dataset_.get(), name, H5P_DEFAULT), H5Aclose, kBagWriteFailed);
    // HDF5 converts from the double to the attribute's own type, exactly.
    check(H5Awrite(attribute.get(), H5T_NATIVE_DOUBLE, &value), kBagWriteFailed);
  }
}

void Layer::storeExtremes(const Extremes& extremes) const {
  const Hdf5Lock lock;
  for (std::size_t index = 0; index < layout_->fields.size(); ++index) {
    if (layout_->fields[index].min_attribute == nullptr) continue;
    storeExtreme(lock, index, extremes.min(index), extremes.max(index));
  }
}

void Layer::write(std::uint64_t row, std::uint64_t first_column, std::uint64_t last_column,
                  const std::byte* records) {
  const std::size_t record_size = layout_->record_size;
  for (std::uint64_t column = first_column; column <= last_column;) {
    const std::uint64_t window = windowOf(row, column);
    if (window_ != window) openWindow(window);
    const std::uint64_t chunk = column / chunk_columns_;
    const std::uint64_t column_in_chunk = column % chunk_columns_;
    const std::uint64_t count =
        std::min(chunk_columns_ - column_in_chunk, last_column - column + 1);
    const std::uint64_t record = row % chunk_rows_ * chunk_columns_ + column_in_chunk;
    std::memcpy(chunkData(chunk % chunks_per_window_) + record * record_size, records,
                count * record_size);
    records += count * record_size;
    column += count;
    changed_ = true;
    if (!fresh_) written_once_ = false;
  }
}

void Layer::openWindow(std::uint64_t window) {
  flush();
  window_.reset();
  buffer_.resize(chunks_per_window_ * chunkBytes());
  fresh_ = window >= first_fresh_window_;
  fillWithNulls();
  if (!fresh_) readWindow(window);
  window_ = window;
}

void Layer::fillWithNulls() {
  for (std::size_t at = 0; at < buffer_.size(); at += layout_->record_size) {
    std::memcpy(buffer_.data() + at, layout_->null_record.data(), layout_->record_size);
  }
}

void Layer::readWindow(std::uint64_t window) {
  const Hdf5Lock lock;
  for (std::size_t chunk = 0; chunk < chunksIn(window); ++chunk) {
    const auto [row, column] = placeOf(window, chunk);
    const Dimensions start = {row, column};
    const Dimensions count = {std::min(chunk_rows_, size_.rows - row),
                              std::min(chunk_columns_, size_.columns - column)};
    const Dimensions chunk_dimensions = {chunk_rows_, chunk_columns_};
    const Dimensions origin = {0, 0};
    const Hdf5Id file_space(H5Dget_space(dataset_.get()), H5Sclose, kBagReadFailed);
    const Hdf5Id chunk_space(H5Screate_simple(2, chunk_dimensions.data(), nullptr), H5Sclose,
                             kBagReadFailed);
    check(H5Sselect_hyperslab(file_space.get(), H5S_SELECT_SET, start.data(), nullptr, count.data(),
                              nullptr),
          kBagReadFailed);
    check(H5Sselect_hyperslab(chunk_space.get(), H5S_SELECT_SET, origin.data(), nullptr,
                              count.data(), nullptr),
          kBagReadFailed);
    check(H5Dread(dataset_.get(), type_.get(), chunk_space.get(), file_space.get(), H5P_DEFAULT,
                  chunkData(chunk)),
          kBagReadFailed);
  }
}

void Layer::flush() {
  if (!window_ || !changed_) return;
  const std::size_t chunks = chunksIn(*window_);
  std::vector<CompressedChunk> compressed(chunks);
  forEachInParallel(chunks, [&](std::size_t chunk) {
    compressed[chunk] = compress({chunkData(chunk), chunkBytes()});
  });
  {
    const Hdf5Lock lock;
    for (std::size_t chunk = 0; chunk < chunks; ++chunk) {
      const auto [row, column] = placeOf(*window_, chunk);
      const Dimensions offset = {row, column};
      check(H5Dwrite_chunk(dataset_.get(), H5P_DEFAULT, 0, offset.data(), compressed[chunk].size(),
                           compressed[chunk].data()),
            kBagWriteFailed);
    }
  }
  if (fresh_) extremes_.add(extremesOfWindow());
  first_fresh_window_ = std::max(first_fresh_window_, *window_ + 1);
  changed_ = false;
  fresh_ = false;
}

void Layer::update() {
  flush();
  storeExtremes(written_once_ ? extremes_ : extremesOnDisc());
  releaseWindow();
}

Extremes Layer::extremesOfWindow() const {
  std::vector<Extremes> of_chunk(chunksIn(*window_), empty_);
  forEachInParallel(of_chunk.size(), [&](std::size_t chunk) {
    of_chunk[chunk].add({buffer_.data() + chunk * chunkBytes(), chunkBytes()});
  });
  Extremes all(empty_);
  for (const Extremes& extremes : of_chunk) all.add(extremes);
  return all;
}

Extremes Layer::extremesOnDisc() {
  Extremes all(empty_);
  for (std::uint64_t window = 0; window < first_fresh_window_; ++window) {
    openWindow(window);
    all.add(extremesOfWindow());
  }
  return all;
}

void Layer::releaseWindow() {
  window_.reset();
  buffer_ = {};
}

std::uint64_t Layer::windowOf(std::uint64_t row, std::uint64_t column) const {
  return row / chunk_rows_ * windows_per_row_ + column / chunk_columns_ / chunks_per_window_;
}

std::size_t Layer::chunksIn(std::uint64_t window) const {
  const std::uint64_t chunks_per_row = ceilDivide(size_.columns, chunk_columns_);
  const std::uint64_t first = window % windows_per_row_ * chunks_per_window_;
  return std::min(chunks_per_window_, chunks_per_row - first);
}

Layer::Place Layer::placeOf(std::uint64_t window, std::size_t chunk) const {
  return {.row = window / windows_per_row_ * chunk_rows_,
          .column = (window % windows_per_row_ * chunks_per_window_ + chunk) * chunk_columns_};
}

std::size_t Layer::chunkBytes() const {
  return chunk_rows_ * chunk_columns_ * layout_->record_size;
}

}  // namespace quarro::bag
